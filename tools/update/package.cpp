// SPDX-License-Identifier: Apache-2.0
// A firmware update package that the library has parsed, for the commands that show or use it.
#include "tools/update/package.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "testing/package_builder.h"
#include "tools/shell/failure.h"
#include "tools/shell/temporary_file.h"
#include "tools/shell/text.h"
#include "tools/update/input_file.h"

namespace tool {
namespace {

// Package header of format 1.0 (DSP0267): what the library checks, but does not keep.
constexpr size_t kRevisionOffset = 16;
constexpr size_t kBitmapLengthOffset = 32;
constexpr size_t kFixedHeaderSize = 36;

/// A header has at most 65,535 bytes, and a descriptor that begins in it at most 65,539.
constexpr size_t kFrontSizeMax = 0x20000;

/// Offset and size of a component have 32 bits each: nothing behind this can belong to a package.
constexpr uint64_t kPackageSizeMax = uint64_t{0xFFFFFFFF} * 2;

/// PackageHeaderIdentifier of the later formats, which are laid out in other ways.
struct HeaderFormat {
    const char* version;
    std::array<uint8_t, 16> identifier;
};

constexpr HeaderFormat kLaterFormats[] = {
    {"1.1",
     {0x12, 0x44, 0xD2, 0x64, 0x8D, 0x7D, 0x47, 0x18, 0xA0, 0x30, 0xFC, 0x8A, 0x56, 0x58, 0x7D,
      0x5A}},
    {"1.2",
     {0x31, 0x19, 0xCE, 0x2F, 0xE8, 0x0A, 0x4A, 0x99, 0xAF, 0x6D, 0x46, 0xF8, 0xB1, 0x21, 0xF6,
      0xBF}},
    {"1.3",
     {0x7B, 0x29, 0x1C, 0x99, 0x6D, 0xB6, 0x42, 0x08, 0x80, 0x1B, 0x02, 0x02, 0x6E, 0x46, 0x3C,
      0x78}},
};

/// @param size  receives the file's size
OpenFile open_package(const std::string& path, uint64_t& size) {
    OpenFile file = open_regular_file(path, size);
    if (size > kPackageSizeMax) {
        throw unusable(path, fmt::format("the file has {} bytes, a package has at most {}", size,
                                         kPackageSizeMax));
    }
    return file;
}

PackageHeader read_header(const std::string& path) {
    PackageHeader header;
    const OpenFile file = open_package(path, header.file_size);
    header.bytes.resize(static_cast<size_t>(std::min<uint64_t>(header.file_size, kFrontSizeMax)));
    header.bytes.resize(std::fread(header.bytes.data(), 1, header.bytes.size(), file.get()));
    if (std::ferror(file.get()) != 0) {
        throw unusable(path, std::strerror(errno));
    }
    return header;
}

/// Why the library refused a package, in words of its own.
std::string refusal(const PackageHeader& header) {
    const std::vector<uint8_t>& bytes = header.bytes;
    const auto begins_with = [&bytes](const std::array<uint8_t, 16>& identifier) {
        return bytes.size() >= identifier.size() &&
               std::equal(identifier.begin(), identifier.end(), bytes.begin());
    };
    for (const HeaderFormat& format : kLaterFormats) {
        if (begins_with(format.identifier)) {
            return fmt::format("package header format {} ({}) is not supported, only 1.0",
                               format.version, hex(format.identifier));
        }
    }
    if (!begins_with(kPackageIdentifier)) {
        return "this is no PLDM firmware package";
    }
    if (bytes.size() < kFixedHeaderSize || bytes.size() < header.size()) {
        return "the file ends inside the package header";
    }
    const bool sealed =
        header.size() >= kChecksumSize &&
        header.checksum() == header.number(header.size() - kChecksumSize, kChecksumSize);
    return sealed ? "the package header contradicts itself" : "the header checksum is wrong";
}

}  // namespace

uint32_t PackageHeader::number(size_t offset, size_t width) const {
    const std::span<const uint8_t> all(bytes);
    return offset <= all.size() && width <= all.size() - offset
               ? little_endian(all.subspan(offset, width))
               : 0;
}

uint32_t PackageHeader::size() const {
    return number(kHeaderSizeOffset, 2);
}

uint8_t PackageHeader::revision() const {
    return static_cast<uint8_t>(number(kRevisionOffset, 1));
}

uint32_t PackageHeader::bitmap_bits() const {
    return number(kBitmapLengthOffset, 2);
}

uint32_t PackageHeader::checksum() const {
    const size_t stated = size();
    const size_t covered = stated >= kChecksumSize ? stated - kChecksumSize : 0;
    return CRC32(0, bytes.data(), std::min(covered, bytes.size()));
}

ParsedPackage::ParsedPackage(const std::string& path) : path_(path), header_(read_header(path)) {
    const TemporaryFile front(header_.bytes);
    const bool parsed = pldm_parse_file(front.path().c_str(), &context_) == 0;
    context_.package_file = path_.c_str();
    if (!parsed) {
        pldm_free_ctx_resource(&context_);
        throw unusable(path_, refusal(header_));
    }
}

std::vector<Component> ParsedPackage::components() const {
    std::vector<Component> list;
    for (uint32_t i = 0; i < context_.component_num; ++i) {
        list.push_back(component_of(context_.component_images[i]));
    }
    return list;
}

std::vector<Descriptor> descriptors_of(const pldm_device_record& record) {
    std::vector<Descriptor> list;
    const uint8_t* at = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        const uint32_t length = little_endian({at + 2, 2});
        const uint8_t* value = at + PLDM_DESCRIPTOR_HEADER_SIZE;
        list.push_back({static_cast<uint16_t>(little_endian({at, 2})), {value, value + length}});
        at = value + length;
    }
    return list;
}

Component component_of(const uint8_t* entry) {
    const auto word = [entry](size_t offset) {
        return static_cast<uint16_t>(little_endian({entry + offset, 2}));
    };
    const auto number = [entry](size_t offset) { return little_endian({entry + offset, 4}); };
    return {word(0),    word(2),
            number(4),  word(8),
            word(10),   number(12),
            number(16), {reinterpret_cast<const char*>(entry + PLDM_COMPONENT_IMAGE_SIZE)}};
}

bool is_applicable(const pldm_device_record& record, size_t component) {
    return component < PLDM_APPLICABLE_COMPONENTS_MAX &&
           (record.applicable_components >> component & 1) != 0;
}

}  // namespace tool
