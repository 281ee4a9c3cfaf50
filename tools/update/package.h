// SPDX-License-Identifier: Apache-2.0
// A firmware update package that the library has parsed, for the commands that show or use it.
#ifndef SIDEBAND_TOOLS_UPDATE_PACKAGE_H
#define SIDEBAND_TOOLS_UPDATE_PACKAGE_H

#include <sideband/pldm_fw_update.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/update/descriptor.h"

namespace tool {

/// The front of a package file, as far as a header can reach.
struct PackageHeader {
    std::vector<uint8_t> bytes;
    uint64_t file_size = 0;

    /// 0 if the file ends before.
    uint32_t number(size_t offset, size_t width) const;
    uint32_t size() const;
    uint8_t revision() const;
    uint32_t bitmap_bits() const;
    /// Over all of the header but its last four bytes, where the checksum itself is; as far as the
    /// file goes.
    uint32_t checksum() const;
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

/// A parsed package, released with its scope. Throws Failure for a file that is none, and for what
/// is no regular file. The file is read once: the library parses the same bytes that header() has,
/// whatever somebody puts in its place meanwhile.
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

}  // namespace tool

#endif
