// SPDX-License-Identifier: Apache-2.0
// What the firmware update code shares about packages: descriptors, components, their release.
#ifndef SIDEBAND_PLDM_UPDATE_PACKAGE_H
#define SIDEBAND_PLDM_UPDATE_PACKAGE_H

#include <sideband/pldm_fw_update.h>

#include <cstddef>
#include <cstdint>

#include "common/file.h"
#include "common/wire.h"

namespace sideband {

/// A descriptor.
struct Descriptor {
    uint16_t type;
    std::span<const uint8_t> value;

    /// Reads the next one. If it is not all there the reader is not ok() any more.
    explicit Descriptor(WireReader& reader);
    /// @param bytes  of a descriptor that is all there, whatever its length says
    explicit Descriptor(const uint8_t* bytes);

    /// Bytes to the next descriptor.
    size_t size() const { return PLDM_DESCRIPTOR_HEADER_SIZE + value.size(); }
};

/// pldm_parse_record_descriptors()
void print(const Descriptor& descriptor);

/// pldm_compare_descriptors()
int32_t compare(const Descriptor& wanted, const Descriptor& found);

/// Whether a package keeps to the standard where an update could do without; says why if not.
/// @param header  the package from its first byte on, which has been parsed into the context
bool is_strict_package(std::span<const uint8_t> header, uint64_t file_size,
                       const pldm_fw_update_ctx& ctx);

/// Releases what pldm_parse_file() has put into the context and what points into it.
void release_package(pldm_fw_update_ctx& ctx);

/// Releases the component parameter table entries of the device.
void release_device_parameters(pldm_fw_update_ctx& ctx);

/// An open package file and its mapping.
struct MappedFile {
    int32_t descriptor = -1;
    void* address = nullptr;
    size_t size = 0;
    FileStamp stamp{};
};

static_assert(sizeof(FileStamp) == sizeof(pldm_fw_update_ctx::package_stamp));

/// Opens and maps a regular file; close_pldm_file() undoes it. Says on standard output what failed.
/// @return false if nothing is open
bool map_file(const char* path, MappedFile& file);

}  // namespace sideband

#endif
