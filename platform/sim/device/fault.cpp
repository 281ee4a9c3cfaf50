// SPDX-License-Identifier: Apache-2.0
// Faults of a device: what goes wrong, and at which occasions.
#include "sim/device/fault.h"

#include "sim/device/hostile.h"

namespace sim {

namespace {
constexpr int64_t kLongestDelayUs = 600'000'000;
constexpr int64_t kMostBytes = 255;

const std::vector<std::string> kKindNames = {"no_ack",    "lost",           "duplicate", "reorder",
                                             "late",      "truncate",       "over_long", "bad_pec",
                                             "wrong_tag", "wrong_sequence", "not_ready", "hostile"};
constexpr FaultKind kKinds[] = {
    FaultKind::kNoAck,    FaultKind::kLostResponse,  FaultKind::kDuplicate, FaultKind::kReorder,
    FaultKind::kLate,     FaultKind::kTruncate,      FaultKind::kOverLong,  FaultKind::kBadPec,
    FaultKind::kWrongTag, FaultKind::kWrongSequence, FaultKind::kNotReady,  FaultKind::kHostile};
const std::vector<std::string> kLostNames = {"response", "request"};
}  // namespace

Fault read_fault(const Place& place) {
    ObjectReader reader(place);
    Fault fault;
    const size_t kind = reader.choice("kind", kKindNames);
    fault.kind = kKinds[kind];
    if (fault.kind == FaultKind::kLostResponse && reader.choice("what", kLostNames, 0) == 1) {
        fault.kind = FaultKind::kLostRequest;
    }
    if (fault.kind == FaultKind::kLate) {
        fault.delay_us = static_cast<uint64_t>(reader.whole("delay_us", 1, kLongestDelayUs));
    }
    if (fault.kind == FaultKind::kTruncate) {
        fault.bytes = static_cast<uint64_t>(reader.whole("bytes", 1, kMostBytes, 1));
    }
    if (fault.kind == FaultKind::kOverLong) {
        fault.bytes = static_cast<uint64_t>(reader.whole("bytes", 1, kMostBytes, 16));
    }
    if (fault.kind == FaultKind::kHostile) {
        fault.seed = static_cast<uint64_t>(reader.whole("seed", 0, 0xFFFFFFFF));
        fault.rate =
            static_cast<uint32_t>(reader.whole("rate", 1, Hostile::kMostRate, Hostile::kUsualRate));
    }
    fault.after = static_cast<uint64_t>(reader.whole("after", 0, kMostTimes, 0));
    fault.every = static_cast<uint64_t>(reader.whole("every", 1, kMostTimes, 1));
    fault.count = static_cast<uint64_t>(reader.whole("count", 0, kMostTimes, 0));
    reader.finish();
    return fault;
}

const Fault* FaultSet::strike(FaultKind kind) {
    const Fault* striking = nullptr;
    for (Fault& fault : faults_) {
        if (fault.kind != kind) {
            continue;
        }
        const uint64_t occasion = fault.seen++;
        const bool due = occasion >= fault.after && (occasion - fault.after) % fault.every == 0;
        const bool spent = fault.count != 0 && fault.hits >= fault.count;
        if (due && !spent && striking == nullptr) {
            ++fault.hits;
            striking = &fault;
        }
    }
    return striking;
}

}  // namespace sim
