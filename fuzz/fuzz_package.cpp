// SPDX-License-Identifier: Apache-2.0
// Fuzzes firmware update package files: parsed, looked through, compared and released.
#include <sideband/pldm_fw_update.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/file.h"
#include "fuzz/world.h"

namespace {

using fuzz::require;

/// Mode bits, in the byte behind the environment record.
enum : uint8_t {
    kSeal = 0x01,   ///< the checksum at the end of the header is put right
    kTwice = 0x02,  ///< the package is parsed twice into one context
};

/// The largest header, and some components behind it.
constexpr size_t kFileSizeMax = 0x30000;

/// Puts the checksum where a well-formed header has it.
void seal(std::vector<uint8_t>& bytes) {
    if (bytes.size() < 19) {
        return;
    }
    const size_t header = bytes[17] | static_cast<size_t>(bytes[18]) << 8;
    if (header < 4 || header > bytes.size()) {
        return;
    }
    const uint32_t checksum = CRC32(0, bytes.data(), header - 4);
    for (size_t i = 0; i < 4; ++i) {
        bytes[header - 4 + i] = static_cast<uint8_t>(checksum >> (8 * i));
    }
}

size_t descriptor_size(const uint8_t* descriptor) {
    return 4u + descriptor[2] + (static_cast<size_t>(descriptor[3]) << 8);
}

/// Every byte that a good record promises is there, under AddressSanitizer's eyes.
void look_through(const pldm_device_record& record) {
    require(record.image_version_string != nullptr, "a record without version");
    require(std::strlen(record.image_version_string) <= record.component_image_set_ver_string_len,
            "a version longer than it says");
    require(record.package_data == nullptr || record.package_data[record.package_data_len] == 0,
            "package data without its end");
    const uint8_t* at = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        require(pldm_compare_descriptors(at, at) == 0, "a descriptor that differs from itself");
        pldm_compare_descriptors(record.descriptors, at);
        plds_show_descriptot(at, at, nullptr);
        at += descriptor_size(at);
    }
}

void look_through(const pldm_fw_update_ctx& ctx) {
    for (unsigned i = 0; i < ctx.device_record_num; ++i) {
        look_through(ctx.records[i]);
    }
    for (unsigned i = 0; i < ctx.component_num; ++i) {
        const uint8_t* const entry = ctx.component_images[i];
        pldm_parse_component_image(nullptr, entry);
        require(entry[PLDM_COMPONENT_IMAGE_SIZE + entry[21]] == 0, "an entry without its end");
    }
}

void require_released(const pldm_fw_update_ctx& ctx) {
    require(ctx.records == nullptr && ctx.component_images == nullptr &&
                ctx.package_version_string == nullptr,
            "the context was not released");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    fuzz::begin(bytes, size);
    fuzz::Input& input = fuzz::world().input;
    const uint8_t mode = input.u8();
    const std::span<const uint8_t> rest = input.take(kFileSizeMax);
    std::vector<uint8_t> content(rest.begin(), rest.end());
    if ((mode & kSeal) != 0) {
        seal(content);
    }
    const fuzz::File file(content);
    pldm_fw_update_ctx ctx{};
    ctx.strict = fuzz::world().strict;
    for (int turn = 0; turn < ((mode & kTwice) != 0 ? 2 : 1); ++turn) {
        const int32_t result = pldm_parse_file(file.path(), &ctx);
        require(result == 0 || result == -1, "an undocumented result");
        require(content.empty() || ctx.package_file == file.path(), "the path was not kept");
        if (result == 0) {
            look_through(ctx);
        }
    }
    require(pldm_free_ctx_resource(&ctx) == 0, "not released");
    require_released(ctx);
    fuzz::end(0);
    fuzz::finish();
    return 0;
}

// The library reads the header into pages of its own. What lies behind the file's last byte there
// is not the file's: AddressSanitizer is told so.

extern "C" ssize_t __real_pread64(int descriptor, void* buffer, size_t size, off_t offset);
extern "C" int __real_munmap(void* address, size_t length);

namespace {

size_t whole_pages(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

}  // namespace

extern "C" ssize_t __wrap_pread64(int descriptor, void* buffer, size_t size, off_t offset) {
    const ssize_t done = __real_pread64(descriptor, buffer, size, offset);
    if (done == static_cast<ssize_t>(size)) {
        fuzz::poison(static_cast<uint8_t*>(buffer) + size, whole_pages(size) - size, true);
    }
    return done;
}

extern "C" int __wrap_munmap(void* address, size_t length) {
    fuzz::poison(address, whole_pages(length), false);
    return __real_munmap(address, length);
}
