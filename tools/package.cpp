// SPDX-License-Identifier: Apache-2.0
// A firmware update package that the library has parsed, for the commands that show or use it.
#include "tools/package.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/package_builder.h"
#include "tools/text.h"

namespace tool {
namespace {

// Package header of format 1.0 (DSP0267): what the library checks, but does not keep.
constexpr size_t revision_offset = 16;
constexpr size_t bitmap_length_offset = 32;
constexpr size_t fixed_header_size = 36;
constexpr size_t header_size_max = 0xFFFF;

PackageHeader read_header(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.is_open() ? std::streamoff{file.tellg()} : -1;
    if (size < 0) {
        throw Failure(ExitStatus::input, path + ": " + std::strerror(errno));
    }
    PackageHeader header{
        std::vector<uint8_t>(std::min<size_t>(static_cast<size_t>(size), header_size_max)),
        static_cast<uint64_t>(size)};
    file.seekg(0);
    file.read(reinterpret_cast<char*>(header.bytes.data()),
              static_cast<std::streamsize>(header.bytes.size()));
    if (!file) {
        throw Failure(ExitStatus::input, path + ": " + std::strerror(errno));
    }
    return header;
}

/// Why the library refused a package, in words of its own.
std::string refusal(const PackageHeader& header) {
    const std::vector<uint8_t>& bytes = header.bytes;
    if (bytes.size() < package_identifier.size() ||
        !std::equal(package_identifier.begin(), package_identifier.end(), bytes.begin())) {
        return "this is no firmware package of header format 1.0";
    }
    if (bytes.size() < fixed_header_size || bytes.size() < header.size()) {
        return "the file ends inside the package header";
    }
    const bool sealed =
        header.size() >= checksum_size &&
        header.checksum() == header.number(header.size() - checksum_size, checksum_size);
    return sealed ? "the package header contradicts itself" : "the header checksum is wrong";
}

}  // namespace

uint32_t little_endian(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

uint32_t PackageHeader::size() const {
    return number(header_size_offset, 2);
}

uint8_t PackageHeader::revision() const {
    return bytes[revision_offset];
}

uint32_t PackageHeader::bitmap_bits() const {
    return number(bitmap_length_offset, 2);
}

uint32_t PackageHeader::checksum() const {
    return CRC32(0, bytes.data(), size() - checksum_size);
}

std::vector<uint8_t> Descriptor::wire() const {
    std::vector<uint8_t> bytes{static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
                               static_cast<uint8_t>(data.size()),
                               static_cast<uint8_t>(data.size() >> 8)};
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

ParsedPackage::ParsedPackage(const std::string& path) : path_(path), header_(read_header(path)) {
    if (pldm_parse_file(path_.c_str(), &context_) != 0) {
        pldm_free_ctx_resource(&context_);
        throw Failure(ExitStatus::input, path_ + ": " + refusal(header_));
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

nlohmann::ordered_json descriptors_json(const std::vector<Descriptor>& descriptors) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Descriptor& descriptor : descriptors) {
        list.push_back({{"type", fmt::format("0x{:04x}", descriptor.type)},
                        {"name", show_desc_id_string(descriptor.type)},
                        {"data", hex(descriptor.data)}});
    }
    return list;
}

std::string descriptors_text(const std::vector<Descriptor>& descriptors, size_t indent) {
    Table table({{"TYPE"}, {"NAME"}, {"DATA"}});
    for (const Descriptor& descriptor : descriptors) {
        table.add({fmt::format("0x{:04x}", descriptor.type), show_desc_id_string(descriptor.type),
                   hex(descriptor.data)});
    }
    return table.text(indent);
}

}  // namespace tool
