// SPDX-License-Identifier: Apache-2.0
// Reads the "firmware" key of a device.
#include "sim/pldm/firmware_config.h"

#include <algorithm>
#include <utility>

#include "sim/device/fault.h"

namespace sim {

namespace {

constexpr int64_t kAnyWord = 0xFFFF;
constexpr int64_t kAnyDword = 0xFFFFFFFF;
constexpr int64_t kLongestWaitUs = 3'600'000'000;

/// A name in a board file and the number that stands for it on the wire.
struct Name {
    const char* text;
    uint16_t number;
};

/// Descriptor types (DSP0267, table of descriptor identifiers).
constexpr Name kDescriptors[] = {
    {"pci_vendor_id", 0x0000},
    {"iana_enterprise_id", 0x0001},
    {"uuid", 0x0002},
    {"pnp_vendor_id", 0x0003},
    {"acpi_vendor_id", 0x0004},
    {"pci_device_id", 0x0100},
    {"pci_subsystem_vendor_id", 0x0101},
    {"pci_subsystem_id", 0x0102},
    {"pci_revision_id", 0x0103},
    {"pnp_product_id", 0x0104},
    {"acpi_product_id", 0x0105},
    {"vendor_defined", 0xFFFF},
};

constexpr Name kCommands[] = {
    {"query_device_identifiers", kFwQueryDeviceIdentifiers},
    {"get_firmware_parameters", kFwGetFirmwareParameters},
    {"request_update", kFwRequestUpdate},
    {"get_package_data", kFwGetPackageData},
    {"get_device_meta_data", kFwGetDeviceMetaData},
    {"pass_component_table", kFwPassComponentTable},
    {"update_component", kFwUpdateComponent},
    {"request_firmware_data", kFwRequestFirmwareData},
    {"transfer_complete", kFwTransferComplete},
    {"verify_complete", kFwVerifyComplete},
    {"apply_complete", kFwApplyComplete},
    {"get_meta_data", kFwGetMetaData},
    {"activate_firmware", kFwActivateFirmware},
    {"get_status", kFwGetStatus},
    {"cancel_update_component", kFwCancelUpdateComponent},
    {"cancel_update", kFwCancelUpdate},
};

/// A number, or one of the names for it.
uint16_t named(const Place& place, std::span<const Name> names, int64_t high) {
    if (place.node->kind == Node::Kind::kString) {
        for (const Name& name : names) {
            if (place.node->text == name.text) {
                return name.number;
            }
        }
    }
    return static_cast<uint16_t>(place.whole(0, high));
}

uint8_t read_command(const Place& place) {
    return static_cast<uint8_t>(named(place, kCommands, 255));
}

uint32_t dword(ObjectReader& reader, const std::string& key, uint32_t absent = 0) {
    return static_cast<uint32_t>(reader.whole(key, 0, kAnyDword, absent));
}

uint16_t word(ObjectReader& reader, const std::string& key, uint16_t absent = 0) {
    return static_cast<uint16_t>(reader.whole(key, 0, kAnyWord, absent));
}

Bytes hex_or_nothing(ObjectReader& reader, const std::string& key) {
    const std::optional<Place> place = reader.find(key);
    return place ? place->hex() : Bytes{};
}

/// "1.2.3", or an object with all there is to a version.
PldmFirmwareVersion read_version(const Place& place) {
    PldmFirmwareVersion version;
    if (place.node->kind == Node::Kind::kString) {
        version.text = place.text();
    } else {
        ObjectReader reader(place);
        version.text = reader.text("text");
        version.type = static_cast<uint8_t>(reader.whole("type", 0, 255, 1));
        version.stamp = dword(reader, "stamp");
        version.date = reader.text("date", version.date);
        if (version.date.size() != 8) {
            reader.complain("date", "must have 8 characters");
        }
        reader.finish();
    }
    if (version.text.size() > 255) {
        place.complain("must have at most 255 bytes of text");
    }
    return version;
}

std::optional<PldmFirmwareVersion> read_pending(ObjectReader& reader) {
    std::optional<PldmFirmwareVersion> pending;
    reader.within("pending", [&](const Place& place) { pending = read_version(place); });
    return pending;
}

/// One descriptor as it travels: type, length, value.
Bytes read_descriptor(const Place& place) {
    ObjectReader reader(place);
    const uint16_t type = named(reader.require("type"), kDescriptors, kAnyWord);
    const Bytes value = reader.require("hex").hex();
    Bytes out;
    append_le16(out, type);
    append_le16(out, word(reader, "claimed_length", static_cast<uint16_t>(value.size())));
    append(out, value);
    reader.finish();
    return out;
}

Bytes read_identifiers(ObjectReader& reader) {
    if (const std::optional<Place> raw = reader.find("identifiers_hex")) {
        if (reader.find("descriptors")) {
            reader.complain("descriptors", "cannot stand beside identifiers_hex");
        }
        return raw->hex();
    }
    Bytes all;
    size_t count = 0;
    reader.each("descriptors", [&](const Place& descriptor) {
        ++count;
        append(all, read_descriptor(descriptor));
    });
    if (count > 255) {
        reader.complain("descriptors", "must have at most 255 elements");
    }
    Bytes out;
    append_le32(out, static_cast<uint32_t>(all.size()));
    out.push_back(static_cast<uint8_t>(count));
    append(out, all);
    return out;
}

PldmFirmwareComponent read_component(const Place& place) {
    ObjectReader reader(place);
    PldmFirmwareComponent component;
    component.classification = word(reader, "classification", component.classification);
    component.identifier = static_cast<uint16_t>(reader.whole("identifier", 0, kAnyWord));
    component.index = static_cast<uint8_t>(reader.whole("index", 0, 255, 0));
    component.active = read_version(reader.require("active"));
    component.pending = read_pending(reader);
    component.activation_methods = word(reader, "activation_methods", component.activation_methods);
    component.capabilities = dword(reader, "capabilities");
    component.expected = read_expected(reader);
    reader.finish();
    return component;
}

void read_metadata(ObjectReader& reader, PldmFirmwareSettings& settings) {
    settings.metadata = hex_or_nothing(reader, "metadata");
    if (settings.metadata.size() > kAnyWord) {
        reader.complain("metadata", "must have at most 65535 bytes");
    }
    settings.metadata_part_size = dword(reader, "metadata_part_size");
    if (reader.find("claimed_metadata_length")) {
        settings.claimed_metadata_length = word(reader, "claimed_metadata_length");
    }
}

void read_behaviour(ObjectReader& reader, PldmFirmwareSettings& settings) {
    settings.capabilities = dword(reader, "capabilities");
    settings.get_package_data = reader.flag("get_package_data", settings.get_package_data);
    settings.transfer_size = dword(reader, "transfer_size");
    settings.order = static_cast<PieceOrder>(
        reader.choice("order", {"ascending", "descending", "interleaved", "random"}, 0));
    settings.seed = dword(reader, "seed");
    settings.full_last_piece = reader.choice("last_piece", {"short", "full"}, 0) == 1;
    settings.keep_image = reader.flag("keep_image", settings.keep_image);
    settings.only_newer = reader.flag("only_newer", settings.only_newer);
    settings.activates_at_once = reader.choice("activation", {"at_once", "reset"}, 0) == 0;
    settings.time_before_request = word(reader, "time_before_request_s");
    settings.activation_time = word(reader, "activation_time_s");
    auto pause = [&](const std::string& key, uint64_t absent) {
        return static_cast<uint64_t>(
            reader.whole(key, 0, kLongestWaitUs, static_cast<int64_t>(absent)));
    };
    settings.request_us = pause("request_us", settings.request_us);
    settings.retry_us = pause("retry_us", settings.retry_us);
    settings.idle_us = pause("idle_us", settings.idle_us);
    settings.retries = static_cast<uint32_t>(reader.whole("retries", 0, 255, settings.retries));
}

/// What a kind of fault is called, to which commands it can happen, and what else it needs.
struct FaultShape {
    const char* name;
    std::vector<uint8_t> commands;  ///< none: any
    int64_t highest_value;          ///< -1: there is no value
    bool has_length;
    bool has_offset;
};

/// In the order of PldmFirmwareFault::Kind.
const std::vector<FaultShape>& fault_shapes() {
    static const std::vector<FaultShape> kShapes = {
        {"completion_code", {}, 255, false, false},
        {"no_answer", {}, -1, false, false},
        {"other_command", {}, 255, false, false},
        {"truncate", {}, -1, true, false},
        {"refuse_component", {kFwPassComponentTable, kFwUpdateComponent}, 255, false, false},
        {"result", {kFwTransferComplete, kFwVerifyComplete, kFwApplyComplete}, 255, false, false},
        {"stall", {}, -1, false, false},
        {"dead", {}, -1, false, false},
        {"reset", {}, -1, false, false},
        {"ask", {kFwRequestFirmwareData}, -1, true, true},
        {"repeat", {kFwRequestFirmwareData}, -1, false, false},
        {"endless",
         {kFwRequestFirmwareData, kFwGetPackageData, kFwGetDeviceMetaData},
         -1,
         false,
         false},
        {"handle", {kFwGetPackageData}, kAnyDword, false, false},
        {"flag", {kFwGetPackageData}, 255, false, false},
        {"send_instead", {}, 255, false, false},
    };
    return kShapes;
}

}  // namespace

ExpectedImage read_expected(ObjectReader& reader) {
    const std::optional<Place> bytes = reader.find("expect_hex");
    const std::optional<Place> file = reader.find("expect_file");
    const int64_t offset = reader.whole("expect_offset", 0, kAnyDword, 0);
    const uint32_t size = dword(reader, "expect_size");
    if (bytes && file) {
        reader.complain("expect_file", "cannot stand beside expect_hex");
    }
    if (file) {
        return ExpectedImage::file(file->text(), static_cast<uint64_t>(offset), size);
    }
    return bytes ? ExpectedImage(bytes->hex()) : ExpectedImage();
}

PldmFirmwareFault read_firmware_fault(const Place& place) {
    ObjectReader reader(place);
    std::vector<std::string> names;
    for (const FaultShape& shape : fault_shapes()) {
        names.emplace_back(shape.name);
    }
    PldmFirmwareFault fault;
    const size_t kind = reader.choice("kind", names);
    const FaultShape& shape = fault_shapes()[kind];
    fault.kind = static_cast<PldmFirmwareFault::Kind>(kind);
    fault.command = read_command(reader.require("command"));
    if (!shape.commands.empty() && std::ranges::count(shape.commands, fault.command) == 0) {
        reader.complain("command", "does not go with that kind");
    }
    fault.at = static_cast<uint32_t>(reader.whole("at", 1, kMostTimes, 1));
    fault.count = static_cast<uint32_t>(reader.whole("count", 0, kMostTimes, 1));
    if (fault.kind == PldmFirmwareFault::Kind::kSendInstead) {
        fault.value = read_command(reader.require("value"));
    } else if (shape.highest_value >= 0) {
        fault.value = static_cast<uint32_t>(reader.whole("value", 0, shape.highest_value));
    }
    if (shape.has_offset) {
        fault.offset = static_cast<uint32_t>(reader.whole("offset", 0, kAnyDword));
    }
    if (shape.has_length) {
        fault.length = static_cast<uint32_t>(reader.whole("length", 0, kAnyDword));
    }
    reader.finish();
    return fault;
}

PldmFirmwareConfig read_firmware(const Place& place) {
    ObjectReader reader(place);
    PldmFirmwareConfig config;
    config.settings.identifiers = read_identifiers(reader);
    if (const std::optional<Place> raw = reader.find("parameters_hex")) {
        config.settings.parameters = raw->hex();
    }
    reader.within("active", [&](const Place& active) { config.active = read_version(active); });
    config.pending = read_pending(reader);
    reader.each("components", [&](const Place& component) {
        config.components.push_back(read_component(component));
    });
    if (config.components.size() > kAnyWord) {
        reader.complain("components", "must have at most 65535 elements");
    }
    read_metadata(reader, config.settings);
    read_behaviour(reader, config.settings);
    reader.each("faults", [&](const Place& fault) {
        config.settings.faults.push_back(read_firmware_fault(fault));
    });
    reader.finish();
    return config;
}

}  // namespace sim
