// SPDX-License-Identifier: Apache-2.0
// Names that the standard of NC-SI gives to codes: responses, reasons, link speeds.
#ifndef SIDEBAND_TOOLS_NCSI_CODES_H
#define SIDEBAND_TOOLS_NCSI_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// Response and reason codes of NC-SI: DSP0222, standard and command-specific codes.
std::string ncsi_response_name(uint16_t code);
std::string ncsi_reason_name(uint16_t code);

/// Speed and duplex of a link: DSP0222, Get Link Status. The extended values go on behind the ones
/// of the link status's bits 4 to 1.
std::string ncsi_speed_name(uint8_t speed);
/// The same in bits per second; 0 for a speed that is not known.
uint64_t ncsi_bits_per_second(uint8_t speed);

}  // namespace tool

#endif
