// SPDX-License-Identifier: Apache-2.0
// Descriptors of firmware devices (DSP0267), in a package or as a device tells them: their names,
// what their values mean, how they are shown.
#ifndef SIDEBAND_TOOLS_UPDATE_DESCRIPTOR_H
#define SIDEBAND_TOOLS_UPDATE_DESCRIPTOR_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/json.h"

namespace tool {

/// A little-endian number of at most four bytes.
uint32_t little_endian(std::span<const uint8_t> bytes);

/// What identifies a device.
struct Descriptor {
    uint16_t type = 0;
    std::vector<uint8_t> data;

    /// As pldm_compare_descriptors() takes it.
    std::vector<uint8_t> wire() const;
};

/// The standard's name of a type; "Unknown ID" for one that it does not assign.
std::string descriptor_name(uint16_t type);

/// Bytes of a type's value; nothing if the standard does not say.
std::optional<size_t> descriptor_size(uint16_t type);

/// The value as people write it: PCI IDs in hex and an enterprise number in decimal, a UUID in its
/// groups, a model number as text. Empty for other types, and if the data have not the type's
/// size.
std::string descriptor_value(const Descriptor& descriptor);

/// Type, name, data and, if it has one, value, each descriptor an object; see
/// descriptors_text() for people.
Json descriptors_json(const std::vector<Descriptor>& descriptors);
std::string descriptors_text(const std::vector<Descriptor>& descriptors, size_t indent = 0);

}  // namespace tool

#endif
