// SPDX-License-Identifier: Apache-2.0
// Fields that the board files of several platforms have: names, endpoint IDs, places on PCIe.
#ifndef SIDEBAND_BOARD_FILE_FIELDS_H
#define SIDEBAND_BOARD_FILE_FIELDS_H

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "platform/board_file/json_tree.h"

namespace board_file {

/// PCIe bus, device and function.
using Bdf = std::array<uint8_t, 3>;

/// The name of a device: a word that no other has.
/// @param names  those of the devices before it; receives this one's
std::string read_device_name(ObjectReader& reader, std::set<std::string>& names);

/// An EID that a device or the BMC may have (DSP0236, table 2): 0 for none, or 8 to 254.
uint8_t read_eid(ObjectReader& reader, uint8_t absent);

/// Bus, device and function: "47:00.0". Nothing if they are told to be wrong.
std::optional<Bdf> read_bdf(ObjectReader& reader);

}  // namespace board_file

#endif
