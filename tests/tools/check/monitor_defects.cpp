// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on PDRs and sensors.
#include "tests/tools/check/defects.h"
#include "tools/check/repository.h"

namespace check_test {
namespace {

using namespace tool::check;

// An answer to GetPDR: next record, next transfer, flag and count in front of the record.
constexpr size_t kFlag = 12;
constexpr size_t kCount = 13;
constexpr size_t kRecord = 15;

Match info() {
    return pldm(kMonitoring, kGetPdrRepositoryInfo);
}

/// GetPDR of a record by a small handle, in parts of 512 bytes.
Match whole(uint8_t handle) {
    return with(with(pldm(kMonitoring, kGetPdr), 3, handle), 13, 0x02);
}

/// GetPDR in parts of 16 bytes.
Match small() {
    return sized(with(with(pldm(kMonitoring, kGetPdr), 12, 16), 13, 0), 16);
}

Match small_first() {
    return with(small(), 11, kGetFirstPart);
}

Match small_next() {
    return with(small(), 11, kGetNextPart);
}

/// GetPDR of the record 0xFFFFFFFE, which is not there.
Match no_record() {
    return with(with(pldm(kMonitoring, kGetPdr), 3, 0xFE), 6, 0xFF);
}

Match signature() {
    return pldm(kMonitoring, kGetPdrRepositorySignature);
}

/// A byte too many in a part, and in its count.
void lengthen_part(Exchange& exchange) {
    if (exchange.response && exchange.response->size() == kRecord + 16) {
        lengthen(1)(exchange);
        put(kCount, 17)(exchange);
    }
}

std::vector<Defect> record_defects() {
    return {
        {"monitor.info.length", "gpu0", info(), lengthen(1)},
        {"monitor.info.state", "gpu0", info(), put(4, 3)},
        {"monitor.walk.end", "gpu0", whole(3), put(4, 2)},
        {"monitor.walk.end", "gpu0", whole(3), code(0x01)},
        {"monitor.walk.end", "gpu0", whole(3), shorten(1)},
        {"monitor.info.records", "gpu0", info(), flip(31, 0x01)},
        {"monitor.info.size", "gpu0", info(), put(36, 0xFF)},
        {"monitor.info.largest", "gpu0", info(), put(40, 0xFF)},
        {"monitor.pdr.handle", "gpu0", whole(3), put(kRecord, 0x63), {"monitor.pdr.parts"}},
        {"monitor.pdr.null-handle",
         "gpu0",
         whole(3),
         put(kRecord, 0),
         {"monitor.pdr.handle", "monitor.pdr.same"}},
        {"monitor.pdr.header-version", "gpu0", whole(3), put(kRecord + 4, 2), {"monitor.pdr.same"}},
        {"monitor.pdr.data-length",
         "gpu0",
         whole(3),
         flip(kRecord + 8, 0x01),
         {"monitor.pdr.same"}},
        {"monitor.pdr.transfer-flag", "gpu0", whole(3), put(kFlag, 4)},
    };
}

std::vector<Defect> transfer_defects() {
    return {
        {"monitor.pdr.parts", "gpu0", small_next(), code(0x80)},
        {"monitor.pdr.request-count",
         "gpu0",
         small_first(),
         lengthen_part,
         {"monitor.pdr.same", "monitor.pdr.checksum", "monitor.pdr.begin-anew"}},
        {"monitor.pdr.same",
         "gpu0",
         whole(0),
         flip(kRecord + 20, 0x01),
         {"monitor.pdr.begin-anew"}},
        {"monitor.pdr.checksum", "gpu0", small_next(),
         [](Exchange& exchange) {
             if (exchange.response && ((*exchange.response)[kFlag] & 4) != 0) {
                 exchange.response->back() ^= 0x01;
             }
         }},
        {"monitor.pdr.unknown-record", "gpu0", no_record(), code(0x02)},
        {"monitor.pdr.operation", "gpu0", with(small(), 11, 0x7F), code(0x00)},
        {"monitor.pdr.unknown-transfer", "gpu0", with(small_next(), 7, 0xFE), code(0x00)},
        {"monitor.pdr.request-too-short", "gpu0", sized(pldm(kMonitoring, kGetPdr), 15),
         code(0x01)},
        {"monitor.signature.length", "gpu0", signature(), lengthen(1)},
        {"monitor.signature.stable", "gpu0", second(signature()), flip(4, 0x01)},
    };
}

/// A transfer that is given up leaves something behind: the device goes on with the old one.
Defect stuck_transfer() {
    return {"monitor.pdr.begin-anew", "gpu0",
            [firsts = 0, before = Bytes()](const Exchange& exchange) mutable {
                if (!small_first()(exchange)) {
                    firsts = small_next()(exchange) ? 0 : firsts;
                    return false;
                }
                const Bytes record(exchange.request.begin() + 3, exchange.request.begin() + 7);
                const bool other = firsts > 0 && record != before;
                ++firsts;
                before = record;
                return other;
            },
            flip(kRecord + 12, 0x01)};
}

Defect unsteady_part() {
    return {"monitor.pdr.repeat", "gpu0",
            [before = Bytes()](const Exchange& exchange) mutable {
                const Bytes question(exchange.request.begin() + 1, exchange.request.end());
                const bool again = std::exchange(before, question) == question;
                return again && small_first()(exchange);
            },
            flip(kRecord + 12, 0x01)};
}

Match reading() {
    return sized(pldm(kMonitoring, kGetSensorReading), 6);
}

Match state_reading() {
    return pldm(kMonitoring, kGetStateSensorReadings);
}

/// Of the sensor 0xFFFE.
Match of_nobody(const Match& match) {
    return with(with(match, 3, 0xFE), 4, 0xFF);
}

std::vector<Defect> sensor_defects() {
    const Match enable = pldm(kMonitoring, kSetNumericSensorEnable);
    return {
        {"monitor.reading.length", "gpu0", with(reading(), 3, 2), shorten(1)},
        {"monitor.reading.length",
         "gpu0",
         with(reading(), 3, 2),
         put(4, 6),
         {"monitor.reading.data-size"}},
        {"monitor.reading.length", "gpu0", with(reading(), 3, 2), code(0x01)},
        {"monitor.reading.data-size", "gpu0", with(reading(), 3, 3), flip(4, 0x01)},
        {"monitor.reading.operational-state", "gpu0", with(reading(), 3, 1), put(5, 8)},
        {"monitor.reading.event-enable", "gpu0", with(reading(), 3, 1), put(6, 5)},
        {"monitor.reading.present-state", "gpu0", with(reading(), 3, 1), put(9, 11)},
        {"monitor.reading.unknown-sensor", "gpu0", of_nobody(reading()), code(0x02)},
        {"monitor.reading.request-too-short", "gpu0",
         sized(pldm(kMonitoring, kGetSensorReading), 5), code(0x02)},
        {"monitor.thresholds.length", "gpu0", with(pldm(kMonitoring, kGetSensorThresholds), 3, 1),
         shorten(1)},
        {"monitor.thresholds.unknown-sensor", "gpu0",
         of_nobody(pldm(kMonitoring, kGetSensorThresholds)), code(0x02)},
        {"monitor.enable.unknown-sensor", "gpu0", of_nobody(enable), code(0x00)},
        {"monitor.enable.state", "gpu0", with(enable, 5, 0xF0), code(0x02)},
        {"monitor.states.length", "gpu0", with(state_reading(), 3, 8), shorten(1)},
        {"monitor.states.composites", "gpu0", with(state_reading(), 3, 8),
         success({1, 0, 1, 1, 1})},
        {"monitor.states.operational-state", "gpu0", with(state_reading(), 3, 7), put(5, 8)},
        {"monitor.states.unknown-sensor", "gpu0", of_nobody(state_reading()), code(0x00)},
    };
}

}  // namespace

std::vector<Defect> monitor_defects() {
    std::vector<Defect> all = {stuck_transfer(), unsteady_part()};
    for (const auto& table : {record_defects(), transfer_defects(), sensor_defects()}) {
        all.insert(all.end(), table.begin(), table.end());
    }
    return all;
}

}  // namespace check_test
