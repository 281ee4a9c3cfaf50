// SPDX-License-Identifier: Apache-2.0
// Faults of a device: what goes wrong, and at which occasions.
#ifndef SIDEBAND_SIM_DEVICE_FAULT_H
#define SIDEBAND_SIM_DEVICE_FAULT_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "sim/board/file_reader.h"

namespace sim {

/// The largest number of times in a board file.
inline constexpr int64_t kMostTimes = 1'000'000'000;

enum class FaultKind {
    kNoAck,          ///< the device does not acknowledge its address
    kLostRequest,    ///< a packet to the device is acknowledged and forgotten
    kLostResponse,   ///< a packet from the device never goes out
    kDuplicate,      ///< a packet from the device goes out twice
    kReorder,        ///< a packet from the device goes out after the one that follows it
    kLate,           ///< a packet from the device waits delay_us longer
    kTruncate,       ///< a packet from the device lacks its last bytes
    kOverLong,       ///< a packet from the device has bytes too many
    kBadPec,         ///< a packet from the device has a wrong PEC
    kWrongTag,       ///< a packet from the device carries the next message tag
    kWrongSequence,  ///< a packet from the device carries the next packet sequence number
    kNotReady,       ///< a request is answered with completion code 4
    kHostile,        ///< a message from the device is anything, see hostile.h
};

struct Fault {
    FaultKind kind = FaultKind::kNoAck;
    uint64_t after = 0;  ///< occasions that pass before the first
    uint64_t every = 1;  ///< then each n-th one is hit
    uint64_t count = 0;  ///< that many are hit, 0 = no limit
    uint64_t delay_us = 0;
    uint64_t bytes = 1;
    uint64_t seed = 0;
    uint32_t rate = 0;  ///< of a thousand messages

    uint64_t seen = 0;
    uint64_t hits = 0;
};

/// Reads one object of a "faults" array.
Fault read_fault(const Place& place);

class FaultSet {
public:
    void add(const Fault& fault) { faults_.push_back(fault); }
    void clear() { faults_.clear(); }
    bool has(FaultKind kind) const {
        return std::ranges::any_of(faults_,
                                   [kind](const Fault& fault) { return fault.kind == kind; });
    }

    /// An occasion for faults of one kind.
    /// @return a fault that strikes now; null if none does
    const Fault* strike(FaultKind kind);

private:
    std::vector<Fault> faults_;
};

/// Of a device's own faults, which count the messages of one command: one that hits the message.
/// @param number    of the message, from 1
/// @param is_meant  whether a fault is of this kind and command
/// @return null if there is none
template <typename OwnFault, typename Predicate>
const OwnFault* striking(const std::vector<OwnFault>& faults, uint64_t number, Predicate is_meant) {
    const auto found = std::ranges::find_if(faults, [&](const OwnFault& fault) {
        const bool in_row =
            number >= fault.at && (fault.count == 0 || number - fault.at < fault.count);
        return in_row && is_meant(fault);
    });
    return found != faults.end() ? &*found : nullptr;
}

}  // namespace sim

#endif
