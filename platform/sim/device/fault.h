// SPDX-License-Identifier: Apache-2.0
// Faults of a device: what goes wrong, and at which occasions.
#ifndef SIDEBAND_SIM_DEVICE_FAULT_H
#define SIDEBAND_SIM_DEVICE_FAULT_H

#include <cstdint>
#include <vector>

#include "sim/board/json_tree.h"

namespace sim {

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
};

struct Fault {
    FaultKind kind = FaultKind::kNoAck;
    uint64_t after = 0;  ///< occasions that pass before the first
    uint64_t every = 1;  ///< then each n-th one is hit
    uint64_t count = 0;  ///< that many are hit, 0 = no limit
    uint64_t delay_us = 0;
    uint64_t bytes = 1;

    uint64_t seen = 0;
    uint64_t hits = 0;
};

/// Reads one object of a "faults" array.
Fault read_fault(const Place& place);

class FaultSet {
public:
    void add(const Fault& fault) { faults_.push_back(fault); }
    void clear() { faults_.clear(); }

    /// An occasion for faults of one kind.
    /// @return a fault that strikes now; null if none does
    const Fault* strike(FaultKind kind);

private:
    std::vector<Fault> faults_;
};

}  // namespace sim

#endif
