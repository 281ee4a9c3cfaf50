// SPDX-License-Identifier: Apache-2.0
// What the PDR decoders know about raw records.
#ifndef SIDEBAND_PLDM_PDR_H
#define SIDEBAND_PLDM_PDR_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// Bytes that a raw record must have for pldm_parse_pdr() to make sense of it; 0 for a type that
/// has no decoder.
/// @param raw  what came of the record, zeroed behind it: at least PLDM_PDR_PART_SIZE bytes
size_t pdr_size_demanded(std::span<const uint8_t> raw);

}  // namespace sideband

#endif
