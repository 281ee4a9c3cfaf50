// SPDX-License-Identifier: Apache-2.0
// The command pkg show: what a firmware update package holds, without any device.
#include <fmt/format.h>

#include "tools/shell/json.h"
#include "tools/shell/text.h"
#include "tools/update/commands.h"
#include "tools/update/package.h"

namespace tool {
namespace {

Json record_json(const pldm_device_record& record) {
    const size_t length = record.package_data != nullptr ? record.package_data_len : 0;
    return {{"record_length", record.record_len},
            {"applicable_components", fmt::format("0x{:08x}", record.applicable_components)},
            {"image_set_version", record.image_version_string},
            {"package_data", hex({record.package_data, length})},
            {"descriptors", descriptors_json(descriptors_of(record))}};
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
    const PackageHeader& header = package.header();
    Json records = Json::array();
    for (const pldm_device_record& record : package.records()) {
        records.push_back(record_json(record));
    }
    Json components = Json::array();
    for (const Component& component : package.components()) {
        components.push_back(component_json(component));
    }
    return {{"header_format_revision", header.revision()},
            {"header_size", header.size()},
            {"checksum", fmt::format("0x{:08x}", header.checksum())},
            {"version", package.version()},
            {"component_bitmap_bit_length", header.bitmap_bits()},
            {"records", records},
            {"components", components}};
}

/// "0, 2, 5": the components that a record marks.
std::string component_list(const pldm_device_record& record) {
    std::string list;
    for (size_t i = 0; i < PLDM_APPLICABLE_COMPONENTS_MAX; ++i) {
        if (is_applicable(record, i)) {
            list += fmt::format("{}{}", list.empty() ? "" : ", ", i);
        }
    }
    return list.empty() ? "none" : list;
}

std::string record_text(const pldm_device_record& record, size_t index) {
    std::string text =
        fmt::format("\nDevice record {}\n  Version       {}\n  Components    {}\n", index,
                    printable(record.image_version_string), component_list(record));
    if (record.package_data_len > 0) {
        text += fmt::format("  Package data  {}\n", counted(record.package_data_len, "byte"));
    }
    return text + (record.desc_num > 0 ? descriptors_text(descriptors_of(record), 2)
                                       : "  for every device\n");
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
    for (const Component& one : package.components()) {
        table.add({std::to_string(index++), std::to_string(one.classification),
                   std::to_string(one.identifier), fmt::format("0x{:08x}", one.comparison_stamp),
                   fmt::format("0x{:04x}", one.options),
                   fmt::format("0x{:04x}", one.activation_method),
                   std::to_string(one.location_offset), std::to_string(one.size), one.version});
    }
    return "\n" + table.text();
}

std::string package_text(const ParsedPackage& package) {
    const PackageHeader& header = package.header();
    std::string text = fmt::format(
        "Version   {}\nHeader    {} bytes, format revision {}, checksum 0x{:08x}\n"
        "Contents  {} for {}\n",
        printable(package.version()), header.size(), header.revision(), header.checksum(),
        counted(package.components().size(), "component"),
        counted(package.records().size(), "device record"));
    for (size_t i = 0; i < package.records().size(); ++i) {
        text += record_text(package.records()[i], i);
    }
    return package.components().empty() ? text : text + components_text(package);
}

/// A package may be good as far as its header goes and yet miss what it is for.
void note_missing_images(Context& context, const ParsedPackage& package) {
    size_t index = 0;
    for (const Component& one : package.components()) {
        if (uint64_t{one.location_offset} + one.size > package.header().file_size) {
            context.output.note(fmt::format("note: {}: component {} is not wholly in the file",
                                            package.path(), index));
        }
        ++index;
    }
}

}  // namespace

void run_pkg_show(Context& context, const std::string& path) {
    const ParsedPackage package(path);
    context.output.text(package_text(package));
    context.output.document(package_json(package));
    note_missing_images(context, package);
}

}  // namespace tool
