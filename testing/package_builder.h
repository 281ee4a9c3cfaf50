// SPDX-License-Identifier: Apache-2.0
// Builds firmware update packages, valid and broken ones, from the words of DSP0267.
#ifndef SIDEBAND_TESTING_PACKAGE_BUILDER_H
#define SIDEBAND_TESTING_PACKAGE_BUILDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

/// Where a header says how long it is, and what its checksum takes (DSP0267, package header).
inline constexpr size_t kHeaderSizeOffset = 17;
inline constexpr size_t kChecksumSize = 4;

/// PackageHeaderIdentifier of header format 1.0.
inline constexpr std::array<uint8_t, 16> kPackageIdentifier{
    0xF0, 0x18, 0x87, 0x8C, 0xCB, 0x7D, 0x49, 0x43, 0x98, 0x00, 0xA0, 0x2F, 0x05, 0x9A, 0xCA, 0x02};

struct PackageDescriptor {
    uint16_t type = 0;
    std::vector<uint8_t> value;
    std::optional<uint16_t> length;  ///< stated instead of the value's
};

/// A firmware device ID record.
struct PackageRecord {
    uint32_t update_option_flags = 0;
    std::vector<size_t> components;  ///< indices of those that are for this device
    uint8_t version_type = 1;
    std::string version;
    std::vector<PackageDescriptor> descriptors;
    std::vector<uint8_t> package_data;
    // Stated instead of the right ones.
    std::optional<uint16_t> record_length;
    std::optional<uint8_t> descriptor_count;
    std::optional<uint8_t> version_length;
    std::optional<uint16_t> package_data_length;
};

/// A component and its image.
struct PackageComponent {
    uint16_t classification = 10;
    uint16_t identifier = 1;
    uint32_t comparison_stamp = 0xFFFFFFFF;
    uint16_t options = 0;
    uint16_t activation_method = 0;
    uint8_t version_type = 1;
    std::string version;
    std::vector<uint8_t> image;
    // Stated instead of the right ones.
    std::optional<uint32_t> location_offset{};
    std::optional<uint32_t> size{};
    std::optional<uint8_t> version_length{};
};

/// A package of header format 1.0, unless it says otherwise.
struct Package {
    std::array<uint8_t, 16> identifier = kPackageIdentifier;
    uint8_t format_revision = 1;
    /// UTC offset, microseconds, then 2024-03-17 10:20:30; see DSP0240, timestamp104.
    std::array<uint8_t, 13> release_date_time{0, 0, 0, 0, 0, 30, 20, 10, 17, 3, 0xE8, 0x07, 0};
    uint8_t version_type = 1;
    std::string version;
    std::vector<PackageRecord> records;
    std::vector<PackageComponent> components;
    // Stated instead of the right ones.
    std::optional<uint16_t> bitmap_bits;
    std::optional<uint8_t> version_length;
    std::optional<uint8_t> record_count;
    std::optional<uint16_t> component_count;
    std::optional<uint16_t> header_size;
    std::optional<uint32_t> checksum;
};

/// Where the parts of a built package lie.
struct PackageLayout {
    size_t record_count = 0;
    std::vector<size_t> records;
    size_t component_count = 0;
    std::vector<size_t> components;  ///< the component image information entries
    size_t checksum = 0;
};

/// The bytes of a package: header, then the images in order.
/// @param layout  receives the offsets; may be null
std::vector<uint8_t> build_package(const Package& package, PackageLayout* layout = nullptr);

/// Makes the checksum that is stored at an offset that of all the bytes in front of it.
void seal_package(std::vector<uint8_t>& bytes, size_t checksum_offset);

/// CRC-32 as the header checksum has it, computed bit by bit.
uint32_t package_checksum(const uint8_t* bytes, size_t size);

}  // namespace tool

#endif
