// SPDX-License-Identifier: Apache-2.0
// Reads the "drive" key of an NVMe drive.
#include "sim/nvme/config.h"

#include <algorithm>

#include "sim/device/fault.h"
#include "sim/nvme/firmware.h"
#include "sim/pldm/firmware_config.h"

namespace sim {

namespace {

constexpr int64_t kLongestUs = 60'000'000;
constexpr int64_t kMostBytes = 8192;
constexpr int64_t kLargestCapacity = int64_t{1} << 56;
constexpr int64_t kAnyCount = INT64_MAX;
constexpr int64_t kLastController = 0xFFEF;
constexpr int64_t kMostNamespaces = 128;
constexpr size_t kMostPorts = 16;
constexpr size_t kMostControllers = 127;
constexpr size_t kMostSlots = 7;
constexpr int64_t kSmallestUnit = 64;
constexpr int64_t kLargestUnit = 250;
constexpr int64_t kInvalidParameter = 4;

/// In the order of NvmeFault::Kind.
const std::vector<std::string> kNvmeFaultNames = {
    "status", "completion", "no_answer", "bad_check", "truncate", "over_long", "more_processing"};

const std::vector<std::optional<std::string>> kUsualSlots = {"1.0", std::nullopt, std::nullopt};

/// A whole number of the type of what it is by default.
template <typename T>
T whole(ObjectReader& reader, const std::string& key, int64_t low, int64_t high, T absent) {
    return static_cast<T>(reader.whole(key, low, high, static_cast<int64_t>(absent)));
}

/// A text of printable ASCII.
std::string read_ascii(const Place& place, size_t longest) {
    const std::string& text = place.text();
    auto printable = [](char c) { return c >= ' ' && c <= '~'; };
    if (text.size() <= longest && std::ranges::all_of(text, printable)) {
        return text;
    }
    place.complain("must have at most " + std::to_string(longest) + " ASCII characters");
    return "";
}

std::string read_ascii(ObjectReader& reader, const std::string& key, size_t longest,
                       const std::string& absent) {
    const std::optional<Place> place = reader.find(key);
    return place ? read_ascii(*place, longest) : absent;
}

NvmeFault read_nvme_fault(const Place& place) {
    using Kind = NvmeFault::Kind;
    ObjectReader reader(place);
    NvmeFault fault;
    fault.kind = static_cast<Kind>(reader.choice("kind", kNvmeFaultNames));
    fault.set = reader.choice("set", {"management", "admin"}) == 1 ? NvmeCommandSet::kAdmin
                                                                   : NvmeCommandSet::kManagement;
    fault.opcode = static_cast<uint8_t>(reader.whole("opcode", 0, 255));
    fault.at = whole(reader, "at", 1, kMostTimes, fault.at);
    fault.count = whole(reader, "count", 0, kMostTimes, fault.count);
    if (fault.kind == Kind::kStatus) {
        fault.value = static_cast<uint32_t>(reader.whole("value", 1, 255));
        if (fault.value == kInvalidParameter) {
            fault.byte = whole(reader, "byte", 0, 0xFFFF, fault.byte);
            fault.bit = whole(reader, "bit", 0, 7, fault.bit);
        }
    } else if (fault.kind == Kind::kCompletion) {
        fault.sct = static_cast<uint8_t>(reader.whole("sct", 0, 7));
        fault.value = static_cast<uint32_t>(reader.whole("sc", 0, 255));
        if (fault.set != NvmeCommandSet::kAdmin) {
            reader.complain("set", "must be admin");
        }
    } else if (fault.kind == Kind::kTruncate) {
        fault.value = static_cast<uint32_t>(reader.whole("length", 0, kMostBytes));
    } else if (fault.kind == Kind::kOverLong) {
        fault.value = static_cast<uint32_t>(reader.whole("bytes", 1, kMostBytes));
    } else if (fault.kind == Kind::kMoreProcessing) {
        fault.value = static_cast<uint32_t>(reader.whole("answers", 1, 1000));
    }
    reader.finish();
    return fault;
}

NvmePort read_port(const Place& place) {
    ObjectReader reader(place);
    NvmePort port;
    port.type = static_cast<NvmePortType>(reader.choice("type", {"inactive", "pcie", "smbus"}));
    const bool smbus = port.type == NvmePortType::kSmbus;
    port.largest_unit = static_cast<uint16_t>(reader.whole(
        "largest_unit", kSmallestUnit, kLargestUnit, smbus ? kLargestUnit : kSmallestUnit));
    if (smbus) {
        port.highest_frequency = whole(reader, "highest_frequency", 1, 3, port.highest_frequency);
        port.frequency = whole(reader, "frequency", 1, port.highest_frequency, port.frequency);
    }
    reader.finish();
    return port;
}

void read_ports(ObjectReader& reader, NvmeConfig& config) {
    const std::optional<Place> ports = reader.find("ports");
    if (!ports) {
        config.ports = {{NvmePortType::kPcie},
                        {NvmePortType::kSmbus, static_cast<uint16_t>(kLargestUnit)}};
        return;
    }
    ports->each([&](const Place& port) {
        // Controllers name ports by number: one that is wrong keeps its place.
        config.ports.emplace_back();
        config.ports.back() = read_port(port);
    });
    if (config.ports.empty() || config.ports.size() > kMostPorts) {
        ports->complain("must have 1 to " + std::to_string(kMostPorts) + " ports");
        config.ports.resize(1);
    }
}

void read_controllers(ObjectReader& reader, NvmeConfig& config) {
    const std::optional<Place> controllers = reader.find("controllers");
    if (!controllers) {
        config.controllers.emplace(0, NvmeControllerState{});
        return;
    }
    controllers->each([&](const Place& place) {
        ObjectReader each(place);
        NvmeControllerState controller;
        controller.id = static_cast<uint16_t>(each.whole("id", 0, kLastController));
        controller.port =
            whole<uint8_t>(each, "port", 0, static_cast<int64_t>(config.ports.size()) - 1, 0);
        if (!config.controllers.emplace(controller.id, controller).second) {
            each.complain("id", "appears twice");
        }
        each.finish();
    });
    if (config.controllers.empty() || config.controllers.size() > kMostControllers) {
        controllers->complain("must have 1 to " + std::to_string(kMostControllers) +
                              " controllers");
    }
}

void read_smart(NvmeSmart& smart, const Place& place) {
    ObjectReader reader(place);
    smart.critical_warning = whole(reader, "critical_warning", 0, 255, smart.critical_warning);
    smart.available_spare = whole(reader, "available_spare", 0, 100, smart.available_spare);
    smart.spare_threshold = whole(reader, "spare_threshold", 0, 100, smart.spare_threshold);
    smart.percentage_used = whole(reader, "percentage_used", 0, 255, smart.percentage_used);
    const std::pair<const char*, uint64_t*> counts[] = {
        {"data_units_read", &smart.data_units_read},
        {"data_units_written", &smart.data_units_written},
        {"host_reads", &smart.host_reads},
        {"host_writes", &smart.host_writes},
        {"busy_minutes", &smart.busy_minutes},
        {"power_cycles", &smart.power_cycles},
        {"power_on_hours", &smart.power_on_hours},
        {"unsafe_shutdowns", &smart.unsafe_shutdowns},
        {"media_errors", &smart.media_errors},
    };
    for (const auto& [key, count] : counts) {
        *count = whole(reader, key, 0, kAnyCount, *count);
    }
    reader.finish();
}

NvmeFeature feature_of(NvmeFeatureValue value, bool changeable) {
    return {value, value, std::nullopt, changeable, changeable};
}

/// The features of a drive whose file says nothing of them (NVMe, feature identifiers).
std::map<uint8_t, NvmeFeature> usual_features() {
    constexpr uint32_t k70Celsius = 343;
    return {
        {0x01, feature_of({0, {}}, true)},            // arbitration
        {0x02, feature_of({0, {}}, true)},            // power management
        {0x04, feature_of({k70Celsius, {}}, true)},   // temperature threshold
        {0x05, feature_of({0, {}}, true)},            // error recovery
        {0x06, feature_of({1, {}}, true)},            // volatile write cache
        {0x07, feature_of({0x000F000F, {}}, false)},  // number of queues
        {0x0B, feature_of({0, {}}, true)},            // asynchronous events
        {0x0E, feature_of({0, Bytes(8)}, true)},      // timestamp
        {0x81, feature_of({0, Bytes(8)}, true)},      // host identifier
    };
}

void read_features(ObjectReader& reader, NvmeConfig& config) {
    const std::optional<Place> features = reader.find("features");
    if (!features) {
        config.features = usual_features();
        return;
    }
    features->each([&](const Place& place) {
        ObjectReader each(place);
        const auto id = static_cast<uint8_t>(each.whole("id", 0, 255));
        NvmeFeature feature;
        feature.initial.value = whole(each, "value", 0, 0xFFFFFFFF, feature.initial.value);
        if (const std::optional<Place> data = each.find("data")) {
            feature.initial.data = data->hex();
        }
        if (feature.initial.data.size() > 4096 || feature.initial.data.size() % 4 != 0) {
            each.complain("data", "must have up to 4096 bytes, a multiple of 4");
        }
        feature.current = feature.initial;
        feature.changeable = each.flag("changeable", feature.changeable);
        feature.saveable = each.flag("saveable", feature.changeable);
        if (!config.features.emplace(id, feature).second) {
            each.complain("id", "appears twice");
        }
        each.finish();
    });
}

NvmeNamespace read_namespace(ObjectReader& reader, const NvmeConfig& config) {
    NvmeNamespace space;
    space.format = whole<uint8_t>(reader, "format", 0, kNvmeFormats.size() - 1, 0);
    const auto most = static_cast<int64_t>(config.capacity >> kNvmeFormats[space.format]);
    space.blocks = static_cast<uint64_t>(reader.whole("blocks", 1, most));
    space.used = whole<uint64_t>(reader, "used", 0, static_cast<int64_t>(space.blocks), 0);
    const std::optional<Place> attached = reader.find("controllers");
    if (!attached) {
        for (const auto& [id, controller] : config.controllers) {
            space.controllers.insert(id);
        }
    } else {
        attached->each([&](const Place& place) {
            const auto id = static_cast<uint16_t>(place.whole(0, kLastController));
            if (!config.controllers.contains(id)) {
                place.fail("is not among the drive's controllers");
            }
            space.controllers.insert(id);
        });
    }
    space.sharing = space.controllers.size() > 1 ? 1 : 0;
    return space;
}

void read_namespaces(ObjectReader& reader, NvmeConfig& config) {
    config.most_namespaces =
        whole(reader, "most_namespaces", 1, kMostNamespaces, config.most_namespaces);
    const std::optional<Place> namespaces = reader.find("namespaces");
    if (!namespaces) {
        NvmeNamespace space;
        space.blocks = config.capacity >> kNvmeFormats[0];
        for (const auto& [id, controller] : config.controllers) {
            space.controllers.insert(id);
        }
        space.sharing = space.controllers.size() > 1 ? 1 : 0;
        config.namespaces.emplace(1, space);
        return;
    }
    uint64_t left = config.capacity;
    namespaces->each([&](const Place& place) {
        ObjectReader each(place);
        const auto id = static_cast<uint32_t>(each.whole("id", 1, config.most_namespaces));
        const NvmeNamespace space = read_namespace(each, config);
        if (!config.namespaces.emplace(id, space).second) {
            each.complain("id", "appears twice");
        }
        if (space.bytes() > left) {
            each.complain("blocks", "is more than what the drive has left");
        }
        left -= std::min(left, space.bytes());
        each.finish();
    });
}

void read_firmware_slots(NvmeFirmwareConfig& firmware, ObjectReader& reader) {
    const std::optional<Place> slots = reader.find("slots");
    if (!slots) {
        firmware.slots = kUsualSlots;
    } else {
        slots->each([&](const Place& slot) {
            const std::string revision = read_ascii(slot, NvmeFirmware::kRevisionSize);
            firmware.slots.push_back(revision.empty() ? std::nullopt
                                                      : std::optional<std::string>(revision));
        });
        if (firmware.slots.empty() || firmware.slots.size() > kMostSlots) {
            slots->fail("must have 1 to " + std::to_string(kMostSlots) + " slots");
        }
    }
    firmware.active =
        whole(reader, "active", 1, static_cast<int64_t>(firmware.slots.size()), firmware.active);
    if (!firmware.slots[firmware.active - 1u]) {
        reader.fail("active", "is an empty slot");
    }
}

void read_nvme_firmware(NvmeFirmwareConfig& firmware, const Place& place) {
    ObjectReader reader(place);
    read_firmware_slots(firmware, reader);
    firmware.first_read_only = reader.flag("first_read_only", firmware.first_read_only);
    firmware.immediate = reader.flag("immediate", firmware.immediate);
    firmware.expected = read_expected(reader);
    reader.finish();
}

void read_vpd(ObjectReader& reader, NvmeConfig& config) {
    constexpr int64_t kLargestVpd = 65'535;
    constexpr int64_t kUsualVpd = 256;
    if (const std::optional<Place> vpd = reader.find("vpd")) {
        config.vpd = vpd->hex();
    }
    const auto filled = static_cast<int64_t>(config.vpd.size());
    if (filled > kLargestVpd) {
        reader.complain("vpd", "must have at most 65535 bytes");
    }
    config.vpd.resize(static_cast<size_t>(reader.whole("vpd_size", std::max<int64_t>(filled, 1),
                                                       kLargestVpd, std::max(filled, kUsualVpd))),
                      0xFF);
    if (reader.find("vpd_writes")) {
        config.settings.vpd_writes =
            static_cast<uint32_t>(reader.whole("vpd_writes", 0, kMostTimes));
    }
}

void read_temperatures(ObjectReader& reader, NvmeConfig& config) {
    NvmeSettings& settings = config.settings;
    reader.within("temperature", [&](const Place& waveform) {
        config.temperature = Waveform(waveform);
        if (config.temperature->low() < -100 || config.temperature->high() > 200) {
            waveform.complain("must stay within -100 to 200");
        }
    });
    if (!config.temperature) {
        settings.temperature = 35;
    }
    settings.warning_temperature =
        whole(reader, "warning_temperature", -100, 200, settings.warning_temperature);
    settings.critical_temperature =
        whole(reader, "critical_temperature", -100, 200, settings.critical_temperature);
}

void read_drive_behaviour(ObjectReader& reader, NvmeSettings& settings) {
    settings.more_processing = whole(reader, "more_processing", 0, 1000, settings.more_processing);
    settings.processing_us = whole(reader, "processing_us", 0, kLongestUs, settings.processing_us);
    settings.subsystem_status =
        whole(reader, "subsystem_status", 0, 255, settings.subsystem_status);
    settings.sanitize_seconds = reader.number("sanitize_s", settings.sanitize_seconds);
    if (settings.sanitize_seconds < 0 || settings.sanitize_seconds > 1e6) {
        reader.complain("sanitize_s", "must be from 0 to 1000000 seconds");
    }
    settings.sanitize_fails = reader.flag("sanitize_fails", settings.sanitize_fails);
    reader.each("vendor_commands", [&](const Place& place) {
        ObjectReader each(place);
        const auto opcode = static_cast<uint8_t>(each.whole("opcode", 0xC0, 0xFF));
        if (!settings.vendor.emplace(opcode, each.require("data").hex()).second) {
            each.complain("opcode", "appears twice");
        } else if (opcode == kNvmePassthrough) {
            each.complain("opcode", "is a command that the drive has of itself");
        }
        each.finish();
    });
    reader.each("faults",
                [&](const Place& fault) { settings.faults.push_back(read_nvme_fault(fault)); });
}

void read_names(ObjectReader& reader, NvmeConfig& config) {
    constexpr size_t kModelSize = 40;
    constexpr size_t kSerialSize = 20;
    constexpr size_t kNqnSize = 223;
    config.model = read_ascii(reader, "model", kModelSize, "Simulated drive");
    config.serial = read_ascii(reader, "serial", kSerialSize, "SIM0000000001");
    config.nqn =
        read_ascii(reader, "nqn", kNqnSize, "nqn.2014-08.org.nvmexpress:sim:" + config.serial);
    config.vendor_id = whole<uint16_t>(reader, "vendor_id", 0, 0xFFFF, 0x1234);
    config.subsystem_vendor_id = whole(reader, "subsystem_vendor_id", 0, 0xFFFF, config.vendor_id);
    config.device_id = whole<uint16_t>(reader, "device_id", 0, 0xFFFF, 0x0001);
    if (const std::optional<Place> ieee = reader.find("ieee")) {
        const Bytes bytes = ieee->hex();
        if (bytes.size() == config.ieee.size()) {
            std::ranges::copy(bytes, config.ieee.begin());
        } else {
            ieee->complain("must have 3 bytes");
        }
    }
}

}  // namespace

NvmeConfig read_nvme(const Place& place) {
    constexpr uint64_t kUsualCapacity = 1'000'204'886'016;
    ObjectReader reader(place);
    NvmeConfig config;
    read_names(reader, config);
    config.capacity = whole(reader, "capacity", int64_t{1} << kNvmeFormats.back(), kLargestCapacity,
                            kUsualCapacity);
    read_ports(reader, config);
    read_controllers(reader, config);
    read_temperatures(reader, config);
    reader.within("smart", [&](const Place& smart) { read_smart(config.smart, smart); });
    read_features(reader, config);
    read_namespaces(reader, config);
    config.firmware.slots = kUsualSlots;
    reader.within("firmware", [&](const Place& firmware) {
        NvmeFirmwareConfig wanted;
        read_nvme_firmware(wanted, firmware);
        config.firmware = std::move(wanted);
    });
    read_vpd(reader, config);
    read_drive_behaviour(reader, config.settings);
    reader.finish();
    return config;
}

}  // namespace sim
