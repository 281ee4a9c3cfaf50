// SPDX-License-Identifier: Apache-2.0
// What the messages of several devices have in common.
#ifndef SIDEBAND_SIM_DEVICE_MESSAGE_H
#define SIDEBAND_SIM_DEVICE_MESSAGE_H

#include <cstdint>

namespace sim {

// MCTP message types, DSP0239.
inline constexpr uint8_t kControlType = 0x00;
inline constexpr uint8_t kPldmType = 0x01;
inline constexpr uint8_t kNcsiType = 0x02;
inline constexpr uint8_t kNvmeMiType = 0x04;

// The first byte of a control message and of one of PLDM (DSP0236, clause 11.1; DSP0240,
// clause 8.1).
inline constexpr uint8_t kRequestBit = 0x80;
inline constexpr uint8_t kDatagramBit = 0x40;
inline constexpr uint8_t kInstanceBits = 0x1F;

}  // namespace sim

#endif
