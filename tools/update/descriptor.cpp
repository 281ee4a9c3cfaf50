// SPDX-License-Identifier: Apache-2.0
// Descriptors of firmware devices (DSP0267): their names, what their values mean, how they are
// shown.
#include "tools/update/descriptor.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// What the data of a type are.
enum class DescriptorKind {
    kBytes,   ///< the standard gives them no order, or leaves them to somebody else
    kId,      ///< a little-endian number that is written in hex
    kNumber,  ///< a little-endian number that is written in decimal
    kUuid,
    kText,  ///< ASCII, filled up with blanks or NULs
};

struct DescriptorType {
    uint16_t type;
    const char* name;
    DescriptorKind kind;
    size_t size;  ///< of the data in bytes; 0: any
};

/// DSP0267, descriptor identifier table.
constexpr DescriptorType kDescriptorTypes[] = {
    {0x0000, "PCI Vendor ID", DescriptorKind::kId, 2},
    {0x0001, "IANA Enterprise ID", DescriptorKind::kNumber, 4},
    {0x0002, "UUID", DescriptorKind::kUuid, 16},
    {0x0003, "PnP Vendor ID", DescriptorKind::kBytes, 3},
    {0x0004, "ACPI Vendor ID", DescriptorKind::kBytes, 4},
    {0x0005, "IEEE Assigned Company ID", DescriptorKind::kBytes, 3},
    {0x0006, "SCSI Vendor ID", DescriptorKind::kText, 8},
    {0x0100, "PCI Device ID", DescriptorKind::kId, 2},
    {0x0101, "PCI Subsystem Vendor ID", DescriptorKind::kId, 2},
    {0x0102, "PCI Subsystem ID", DescriptorKind::kId, 2},
    {0x0103, "PCI Revision ID", DescriptorKind::kId, 1},
    {0x0104, "PnP Product Identifier", DescriptorKind::kBytes, 4},
    {0x0105, "ACPI Product Identifier", DescriptorKind::kBytes, 4},
    {0x0106, "ASCII Model Number (Long String)", DescriptorKind::kText, 40},
    {0x0107, "ASCII Model Number (Short String)", DescriptorKind::kText, 10},
    {0x0108, "SCSI Product ID", DescriptorKind::kText, 16},
    {0x0109, "UBM Controller Device Code", DescriptorKind::kBytes, 4},
    {0x010A, "IEEE EUI-64 ID", DescriptorKind::kBytes, 8},
    {0x010B, "PCI Revision ID Range", DescriptorKind::kBytes, 2},
    {0xFFFF, "Vendor Defined", DescriptorKind::kBytes, 0},
};

constexpr DescriptorType kUnknownType{0, "Unknown ID", DescriptorKind::kBytes, 0};

const DescriptorType& type_of(uint16_t type) {
    for (const DescriptorType& known : kDescriptorTypes) {
        if (known.type == type) {
            return known;
        }
    }
    return kUnknownType;
}

/// Text without what fills it up; empty if it is no printable ASCII.
std::string ascii_text(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && (bytes.back() == 0 || bytes.back() == ' ')) {
        bytes = bytes.first(bytes.size() - 1);
    }
    const bool is_ascii = std::all_of(bytes.begin(), bytes.end(),
                                      [](uint8_t byte) { return byte >= ' ' && byte <= '~'; });
    return is_ascii ? std::string(bytes.begin(), bytes.end()) : std::string();
}

}  // namespace

uint32_t little_endian(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

std::vector<uint8_t> Descriptor::wire() const {
    std::vector<uint8_t> bytes{static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
                               static_cast<uint8_t>(data.size()),
                               static_cast<uint8_t>(data.size() >> 8)};
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

std::string descriptor_name(uint16_t type) {
    return type_of(type).name;
}

std::optional<size_t> descriptor_size(uint16_t type) {
    const size_t size = type_of(type).size;
    return size == 0 ? std::nullopt : std::optional(size);
}

std::string descriptor_value(const Descriptor& descriptor) {
    const DescriptorType& type = type_of(descriptor.type);
    if (descriptor.data.size() != type.size) {
        return {};
    }
    switch (type.kind) {
        case DescriptorKind::kId:
            return fmt::format("0x{:0{}x}", little_endian(descriptor.data), 2 * type.size);
        case DescriptorKind::kNumber:
            return std::to_string(little_endian(descriptor.data));
        case DescriptorKind::kUuid:
            return uuid_text(descriptor.data);
        case DescriptorKind::kText:
            return ascii_text(descriptor.data);
        default:
            return {};
    }
}

Json descriptors_json(const std::vector<Descriptor>& descriptors) {
    Json list = Json::array();
    for (const Descriptor& descriptor : descriptors) {
        list.push_back({{"type", fmt::format("0x{:04x}", descriptor.type)},
                        {"name", descriptor_name(descriptor.type)},
                        {"data", hex(descriptor.data)}});
        const std::string value = descriptor_value(descriptor);
        if (!value.empty()) {
            list.back()["value"] = value;
        }
    }
    return list;
}

std::string descriptors_text(const std::vector<Descriptor>& descriptors, size_t indent) {
    Table table({{"TYPE"}, {"NAME"}, {"VALUE"}, {"DATA"}});
    for (const Descriptor& descriptor : descriptors) {
        const std::string value = descriptor_value(descriptor);
        table.add({fmt::format("0x{:04x}", descriptor.type), descriptor_name(descriptor.type),
                   value.empty() ? "-" : value, hex(descriptor.data)});
    }
    return table.text(indent);
}

}  // namespace tool
