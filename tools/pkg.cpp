// SPDX-License-Identifier: Apache-2.0
// The command pkg show: what a firmware update package holds, without any device.
#include <fmt/format.h>
#include <sideband/pldm_fw_update.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/command.h"
#include "tools/text.h"

namespace tool {
namespace {

// Package header of format 1.0 (DSP0267): what the library checks, but does not keep.
constexpr std::array<uint8_t, 16> identifier{0xF0, 0x18, 0x87, 0x8C, 0xCB, 0x7D, 0x49, 0x43,
                                             0x98, 0x00, 0xA0, 0x2F, 0x05, 0x9A, 0xCA, 0x02};
constexpr size_t revision_offset = 16;
constexpr size_t header_size_offset = 17;
constexpr size_t bitmap_length_offset = 32;
constexpr size_t fixed_header_size = 36;
constexpr size_t header_size_max = 0xFFFF;
constexpr size_t checksum_size = 4;

uint32_t little_endian(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

/// The front of a package file, up to the largest header there can be.
struct Header {
    std::vector<uint8_t> bytes;
    uint64_t file_size = 0;

    uint32_t number(size_t offset, size_t width) const {
        return little_endian(std::span(bytes).subspan(offset, width));
    }
    uint32_t size() const { return number(header_size_offset, 2); }

    /// Over all of the header but its last four bytes, where the checksum itself is.
    uint32_t checksum() const { return CRC32(0, bytes.data(), size() - checksum_size); }
};

Header read_header(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.is_open() ? std::streamoff{file.tellg()} : -1;
    if (size < 0) {
        throw Failure(ExitStatus::input, path + ": " + std::strerror(errno));
    }
    Header header{
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
std::string refusal(const Header& header) {
    const std::vector<uint8_t>& bytes = header.bytes;
    if (bytes.size() < identifier.size() ||
        !std::equal(identifier.begin(), identifier.end(), bytes.begin())) {
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

/// A parsed package, released with its scope.
class ParsedPackage {
public:
    explicit ParsedPackage(const std::string& path) : header_(read_header(path)) {
        if (pldm_parse_file(path.c_str(), &context_) != 0) {
            pldm_free_ctx_resource(&context_);
            throw Failure(ExitStatus::input, path + ": " + refusal(header_));
        }
    }
    ~ParsedPackage() { pldm_free_ctx_resource(&context_); }
    ParsedPackage(const ParsedPackage&) = delete;
    ParsedPackage& operator=(const ParsedPackage&) = delete;

    const Header& header() const { return header_; }
    std::string version() const {
        return context_.package_version_string != nullptr ? context_.package_version_string : "";
    }
    std::span<const pldm_device_record> records() const {
        return {context_.records, context_.device_record_num};
    }
    std::span<uint8_t* const> components() const {
        return {context_.component_images, context_.component_num};
    }

private:
    Header header_;
    pldm_fw_update_ctx context_{};
};

struct Descriptor {
    uint16_t type = 0;
    std::vector<uint8_t> data;
};

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

struct Component {
    uint16_t classification;
    uint16_t identifier;
    uint32_t comparison_stamp;
    uint16_t options;
    uint16_t activation_method;
    uint32_t location_offset;
    uint32_t size;
    std::string version;
};

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

Json record_json(const pldm_device_record& record) {
    Json descriptors = Json::array();
    for (const Descriptor& descriptor : descriptors_of(record)) {
        descriptors.push_back({{"type", fmt::format("0x{:04x}", descriptor.type)},
                               {"name", show_desc_id_string(descriptor.type)},
                               {"data", hex(descriptor.data)}});
    }
    const size_t length = record.package_data != nullptr ? record.package_data_len : 0;
    return {{"record_length", record.record_len},
            {"applicable_components", fmt::format("0x{:08x}", record.applicable_components)},
            {"image_set_version", record.image_version_string},
            {"package_data", hex({record.package_data, length})},
            {"descriptors", descriptors}};
}

Json component_json(const Component& component) {
    return {{"classification", component.classification},
            {"identifier", component.identifier},
            {"comparison_stamp", fmt::format("0x{:08x}", component.comparison_stamp)},
            {"options", fmt::format("0x{:04x}", component.options)},
            {"activation_method", fmt::format("0x{:04x}", component.activation_method)},
            {"location_offset", component.location_offset},
            {"size", component.size},
            {"version", component.version}};
}

Json package_json(const ParsedPackage& package) {
    const Header& header = package.header();
    Json records = Json::array();
    for (const pldm_device_record& record : package.records()) {
        records.push_back(record_json(record));
    }
    Json components = Json::array();
    for (const uint8_t* entry : package.components()) {
        components.push_back(component_json(component_of(entry)));
    }
    return {{"header_format_revision", header.bytes[revision_offset]},
            {"header_size", header.size()},
            {"checksum", fmt::format("0x{:08x}", header.checksum())},
            {"version", package.version()},
            {"component_bitmap_bit_length", header.number(bitmap_length_offset, 2)},
            {"records", records},
            {"components", components}};
}

/// "0, 2, 5": the components that a bitmap marks.
std::string component_list(uint32_t bitmap) {
    std::string list;
    for (unsigned i = 0; i < PLDM_APPLICABLE_COMPONENTS_MAX; ++i) {
        if ((bitmap >> i & 1) != 0) {
            list += fmt::format("{}{}", list.empty() ? "" : ", ", i);
        }
    }
    return list.empty() ? "none" : list;
}

std::string record_text(const pldm_device_record& record, size_t index) {
    std::string text = fmt::format("\nDevice record {}\n  Version       {}\n  Components    {}\n",
                                   index, one_line(record.image_version_string),
                                   component_list(record.applicable_components));
    if (record.package_data_len > 0) {
        text += fmt::format("  Package data  {}\n", counted(record.package_data_len, "byte"));
    }
    Table table({{"TYPE"}, {"NAME"}, {"DATA"}});
    for (const Descriptor& descriptor : descriptors_of(record)) {
        table.add({fmt::format("0x{:04x}", descriptor.type), show_desc_id_string(descriptor.type),
                   hex(descriptor.data)});
    }
    return text + (record.desc_num > 0 ? table.text(2) : "  for every device\n");
}

std::string components_text(const ParsedPackage& package) {
    Table table({{"COMPONENT", true},
                 {"CLASS", true},
                 {"ID", true},
                 {"STAMP"},
                 {"OPTIONS"},
                 {"ACTIVATION"},
                 {"OFFSET", true},
                 {"SIZE", true},
                 {"VERSION"}});
    size_t index = 0;
    for (const uint8_t* entry : package.components()) {
        const Component one = component_of(entry);
        table.add(
            {std::to_string(index++), std::to_string(one.classification),
             std::to_string(one.identifier), fmt::format("0x{:08x}", one.comparison_stamp),
             fmt::format("0x{:04x}", one.options), fmt::format("0x{:04x}", one.activation_method),
             std::to_string(one.location_offset), std::to_string(one.size), one_line(one.version)});
    }
    return "\n" + table.text();
}

std::string package_text(const ParsedPackage& package) {
    const Header& header = package.header();
    std::string text = fmt::format(
        "Version   {}\nHeader    {} bytes, format revision {}, checksum 0x{:08x}\n"
        "Contents  {} for {}\n",
        one_line(package.version()), header.size(), header.bytes[revision_offset],
        header.checksum(), counted(package.components().size(), "component"),
        counted(package.records().size(), "device record"));
    for (size_t i = 0; i < package.records().size(); ++i) {
        text += record_text(package.records()[i], i);
    }
    return package.components().empty() ? text : text + components_text(package);
}

/// A package may be good as far as its header goes and yet miss what it is for.
void note_missing_images(Context& context, const std::string& path, const ParsedPackage& package) {
    size_t index = 0;
    for (const uint8_t* entry : package.components()) {
        const Component one = component_of(entry);
        if (uint64_t{one.location_offset} + one.size > package.header().file_size) {
            context.output.note(
                fmt::format("note: {}: component {} is not wholly in the file", path, index));
        }
        ++index;
    }
}

}  // namespace

void run_pkg_show(Context& context, const std::string& path) {
    const ParsedPackage package(path);
    context.output.text(package_text(package));
    context.output.document(package_json(package));
    note_missing_images(context, path, package);
}

}  // namespace tool
