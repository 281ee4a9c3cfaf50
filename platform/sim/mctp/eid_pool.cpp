// SPDX-License-Identifier: Apache-2.0
// What a bridge has of its bus owner, a pool of EIDs, and what it tells of its routes (DSP0236).
#include "sim/mctp/eid_pool.h"

#include <algorithm>

#include "sim/mctp/control.h"

namespace sim {

namespace {

constexpr unsigned kFirstEid = 8;
constexpr unsigned kLastEid = 254;
constexpr uint8_t kLastHandle = 0xFF;

}  // namespace

std::optional<Bytes> EidPool::with_wish(std::optional<Bytes> answer, size_t wanted) const {
    constexpr size_t kAnswerSize = 6;
    constexpr uint8_t kWantsPool = 0x01;
    constexpr uint8_t kHasPool = 0x02;
    if (answer && answer->size() == kAnswerSize && (*answer)[1] == kControlSetEndpointId) {
        constexpr size_t kMost = kLastEid - kFirstEid + 1;
        if (wanted != 0) {
            (*answer)[3] |= size_ == 0 ? kWantsPool : kHasPool;
        }
        (*answer)[5] = static_cast<uint8_t>(std::min(wanted, kMost));
    }
    return answer;
}

Bytes EidPool::allocate(ByteView data, bool& granted) {
    enum Operation : uint8_t { kAllocate = 0, kForce = 1, kInformation = 2 };
    granted = false;
    if (data.size() != 3) {
        return {kControlInvalidLength};
    }
    const uint8_t operation = data[0] & 3;
    if (operation > kInformation) {
        return {kControlInvalidData};
    }
    if (operation != kInformation) {
        const unsigned last = data[2] + data[1] - 1u;
        if (data[1] == 0 || data[2] < kFirstEid || last > kLastEid) {
            return {kControlInvalidData};
        }
        size_ = data[1];
        first_ = data[2];
        granted = true;
    }
    return {kControlSuccess, 0x00, size_, first_};
}

Bytes routing_entry(uint8_t eid, RouteType type, uint8_t port, uint8_t binding, uint8_t medium,
                    ByteView address) {
    Bytes out{1,       eid,    static_cast<uint8_t>(static_cast<uint8_t>(type) | port),
              binding, medium, static_cast<uint8_t>(address.size())};
    append(out, address);
    return out;
}

Bytes pcie_routing_entry(uint8_t eid, RouteType type, uint8_t port,
                         const std::array<uint8_t, 3>& bdf) {
    constexpr uint8_t kPcieVdm = 0x02;
    constexpr uint8_t kPcie4 = 0x0C;
    const Bytes address{bdf[0], static_cast<uint8_t>(bdf[1] << 3 | bdf[2])};
    return routing_entry(eid, type, port, kPcieVdm, kPcie4, address);
}

Bytes routing_table_part(ByteView data, const std::vector<Bytes>& entries,
                         size_t entries_per_part) {
    if (data.size() != 1) {
        return {kControlInvalidLength};
    }
    const size_t begin = data[0];
    if (begin != 0 && begin >= entries.size()) {
        return {kControlInvalidData};
    }
    const size_t end = std::min(begin + entries_per_part, entries.size());
    const bool is_last = end == entries.size();
    Bytes out{kControlSuccess, is_last ? kLastHandle : static_cast<uint8_t>(end),
              static_cast<uint8_t>(end - begin)};
    for (size_t i = begin; i < end; ++i) {
        append(out, entries[i]);
    }
    return out;
}

}  // namespace sim
