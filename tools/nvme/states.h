// SPDX-License-Identifier: Apache-2.0
// Words for what NVMe drives report in bits and codes: health, warnings, temperature, sanitize.
#ifndef SIDEBAND_TOOLS_NVME_STATES_H
#define SIDEBAND_TOOLS_NVME_STATES_H

#include <cstdint>
#include <string>

namespace tool {

// NVM Subsystem Health Data Structure (NVMe-MI, NVM Subsystem Health Status Poll).
std::string subsystem_status_text(uint8_t nss);
std::string composite_status_text(uint16_t ccs);
/// The composite temperature; two's complement below 0 degrees.
std::string composite_text(uint8_t ctemp);

/// CSTS of a Controller Health Data Structure (NVMe-MI): other bits than those of CCS.
std::string controller_status_text(uint16_t csts);

/// CWARN of a Controller Health Data Structure, or what is 0 in SW of the subsystem's.
/// @param none  what is said if nothing warns
std::string health_warnings_text(uint8_t warnings, const char* none);

/// Critical Warning of SMART / Health Information (NVMe base specification).
std::string smart_warnings_text(uint8_t warnings);

/// The most recent sanitize operation: SSTAT, bits 2 to 0 (NVMe base specification, Sanitize
/// Status).
std::string sanitize_status_text(uint8_t status);

}  // namespace tool

#endif
