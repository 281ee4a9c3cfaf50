// SPDX-License-Identifier: Apache-2.0
// The parser of FRU records, for who wants to know why one cannot be parsed.
#ifndef SIDEBAND_PLDM_FRU_RECORD_H
#define SIDEBAND_PLDM_FRU_RECORD_H

#include <sideband/pldm_fru.h>

#include <cstdint>
#include <span>

namespace sideband {

/// As pldm_parse_record_table().
/// @return SIDEBAND_CAUSE_...: none if the record is whole
uint8_t parse_fru_record(std::span<const uint8_t> table, pldm_fru_record& record);

}  // namespace sideband

#endif
