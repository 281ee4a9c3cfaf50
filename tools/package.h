// SPDX-License-Identifier: Apache-2.0
// A firmware update package that the library has parsed, for the commands that show or use it.
#ifndef SIDEBAND_TOOLS_PACKAGE_H
#define SIDEBAND_TOOLS_PACKAGE_H

#include <sideband/pldm_fw_update.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <vector>

namespace tool {

/// A little-endian number of at most four bytes.
uint32_t little_endian(std::span<const uint8_t> bytes);

/// The front of a package file, up to the largest header there can be.
struct PackageHeader {
    std::vector<uint8_t> bytes;
    uint64_t file_size = 0;

    uint32_t number(size_t offset, size_t width) const {
        return little_endian(std::span(bytes).subspan(offset, width));
    }
    uint32_t size() const;
    uint8_t revision() const;
    uint32_t bitmap_bits() const;
    /// Over all of the header but its last four bytes, where the checksum itself is.
    uint32_t checksum() const;
};

/// What identifies a device, in a package or as the device tells it (DSP0267).
struct Descriptor {
    uint16_t type = 0;
    std::vector<uint8_t> data;

    /// As pldm_compare_descriptors() takes it.
    std::vector<uint8_t> wire() const;
};

/// A component image information entry.
struct Component {
    uint16_t classification = 0;
    uint16_t identifier = 0;
    uint32_t comparison_stamp = 0;
    uint16_t options = 0;
    uint16_t activation_method = 0;
    uint32_t location_offset = 0;
    uint32_t size = 0;
    std::string version;
};

/// A parsed package, released with its scope. Throws Failure for a file that is none.
class ParsedPackage {
public:
    explicit ParsedPackage(const std::string& path);
    ~ParsedPackage() { pldm_free_ctx_resource(&context_); }
    ParsedPackage(const ParsedPackage&) = delete;
    ParsedPackage& operator=(const ParsedPackage&) = delete;

    const std::string& path() const { return path_; }
    const PackageHeader& header() const { return header_; }
    std::string version() const {
        return context_.package_version_string != nullptr ? context_.package_version_string : "";
    }
    std::span<const pldm_device_record> records() const {
        return {context_.records, context_.device_record_num};
    }
    std::vector<Component> components() const;

private:
    std::string path_;
    PackageHeader header_;
    pldm_fw_update_ctx context_{};
};

std::vector<Descriptor> descriptors_of(const pldm_device_record& record);

/// An entry as the library keeps it.
Component component_of(const uint8_t* entry);

/// Whether a record's bitmap marks the package's component of an index.
bool is_applicable(const pldm_device_record& record, size_t component);

/// Type, name and value, each descriptor an object; see descriptors_text() for people.
nlohmann::ordered_json descriptors_json(const std::vector<Descriptor>& descriptors);
std::string descriptors_text(const std::vector<Descriptor>& descriptors, size_t indent = 0);

}  // namespace tool

#endif
