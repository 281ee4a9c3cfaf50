// SPDX-License-Identifier: Apache-2.0
// What a bridge has of its bus owner, a pool of EIDs, and what it tells of its routes (DSP0236).
#ifndef SIDEBAND_SIM_MCTP_EID_POOL_H
#define SIDEBAND_SIM_MCTP_EID_POOL_H

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "sim/board/bytes.h"

namespace sim {

/// The EIDs that a bridge may give to those behind it.
class EidPool {
public:
    uint8_t first() const { return first_; }
    uint8_t size() const { return size_; }

    /// As before the first allocation.
    void reset() { size_ = 0; }

    /// Adds to an answer to Set Endpoint ID how many EIDs the bridge wants, and whether it has some
    /// (table 14). Other answers stay as they are.
    std::optional<Bytes> with_wish(std::optional<Bytes> answer, size_t wanted) const;

    /// Allocate Endpoint IDs (clause 12.10), from the data of the request to the completion code
    /// and the data of the answer.
    /// @param granted  set if there is a pool to hand out now
    Bytes allocate(ByteView data, bool& granted);

private:
    uint8_t first_ = 0;
    uint8_t size_ = 0;  ///< 0: none was allocated
};

/// A routing table entry is about one EID each here.
enum class RouteType : uint8_t {
    kEndpoint = 0x00,
    kBridge = 0x80,
};

/// An entry of a routing table (clause 12.12), created by itself.
/// @param binding  physical transport binding, and the medium (DSP0239)
/// @param address  on that medium
Bytes routing_entry(uint8_t eid, RouteType type, uint8_t port, uint8_t binding, uint8_t medium,
                    ByteView address);

/// The same for a PCIe function.
Bytes pcie_routing_entry(uint8_t eid, RouteType type, uint8_t port,
                         const std::array<uint8_t, 3>& bdf);

/// Get Routing Table Entries (clause 12.12), from the data of the request to the completion code
/// and the data of the answer. The handle is the number of an entry.
Bytes routing_table_part(ByteView data, const std::vector<Bytes>& entries, size_t entries_per_part);

}  // namespace sim

#endif
