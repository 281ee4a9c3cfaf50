// SPDX-License-Identifier: Apache-2.0
// Structures of NVMe drives that more than one command reads.
#include "tools/nvme/structures.h"

#include <fmt/format.h>

#include "tools/nvme/states.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr uint8_t kSmartPage = 0x02;
constexpr uint8_t kFirmwareSlotPage = 0x03;
constexpr uint8_t kSanitizePage = 0x81;
constexpr uint32_t kPageSize = 512;

constexpr FieldLayout kSmartLayout[] = {
    {"available_spare", 3, 1, FieldLook::kPercent},
    {"available_spare_threshold", 4, 1, FieldLook::kPercent},
    {"percentage_used", 5, 1, FieldLook::kPercent},
    {"endurance_group_critical_warning_summary", 6, 1, FieldLook::kHex},
    {"data_units_read", 32, 16},
    {"data_units_written", 48, 16},
    {"host_read_commands", 64, 16},
    {"host_write_commands", 80, 16},
    {"controller_busy_time", 96, 16},
    {"power_cycles", 112, 16},
    {"power_on_hours", 128, 16},
    {"unsafe_shutdowns", 144, 16},
    {"media_errors", 160, 16},
    {"num_err_log_entries", 176, 16},
    {"warning_temp_time", 192, 4},
    {"critical_comp_time", 196, 4},
};

constexpr FieldLayout kThermalLayout[] = {
    {"thm_temp1_trans_count", 216, 4},
    {"thm_temp2_trans_count", 220, 4},
    {"thm_temp1_total_time", 224, 4},
    {"thm_temp2_total_time", 228, 4},
};

constexpr FieldLayout kSanitizeLayout[] = {
    {"scdw10", 4, 4, FieldLook::kHex},
    {"eto", 8, 4},
    {"etbe", 12, 4},
    {"etce", 16, 4},
    {"etond", 20, 4},
    {"etbend", 24, 4},
    {"etcend", 28, 4},
};

/// Places the numbered sensors alone that the drive has.
void add_temperature_sensors(Fields& fields, std::span<const uint8_t> data) {
    constexpr uint16_t kFirstSensor = 200;
    constexpr uint16_t kSensors = 8;
    for (uint16_t i = 0; i < kSensors; ++i) {
        const uint64_t kelvin = little_endian_at(data, kFirstSensor + 2U * i, 2);
        if (kelvin != 0) {
            fields.add(fmt::format("temperature_sensor_{}", i + 1), kelvin_text(kelvin), kelvin);
        }
    }
}

}  // namespace

std::string namespace_name(uint32_t nsid) {
    return nsid == kEveryNamespace ? "every namespace" : fmt::format("namespace {}", nsid);
}

size_t format_in_use(std::span<const uint8_t> data) {
    constexpr size_t kFormattedSize = 26;
    const uint8_t value = data[kFormattedSize];
    // The upper bits came with the formats beyond sixteen.
    return (value & 0x0FU) | (value >> 1 & 0x30U);
}

LbaFormat lba_format(std::span<const uint8_t> data, size_t index) {
    constexpr size_t kFirstFormat = 128;
    constexpr size_t kFormatSize = 4;
    const size_t at = kFirstFormat + kFormatSize * index;
    return {.metadata = static_cast<uint16_t>(little_endian_at(data, at, 2)),
            .data_size = data[at + 2],
            .performance = static_cast<uint8_t>(data[at + 3] & 3)};
}

/// Each list begins behind a namespace and is full while there are more of them.
std::vector<uint32_t> joined_lists(const std::string& drive, const NextList& next) {
    constexpr size_t kMost = 65536;
    constexpr uint32_t kLastAsked = kEveryNamespace - 2;
    std::vector<uint32_t> ids;
    for (uint32_t after = 0; after <= kLastAsked; after = ids.back()) {
        const std::vector<uint8_t> list = next(after);
        for (size_t at = 0; at < list.size(); at += 4) {
            const auto id = static_cast<uint32_t>(little_endian_at(list, at, 4));
            if (id == 0) {
                return ids;
            }
            ids.push_back(id);
        }
        if (ids.empty() || ids.back() <= after) {
            throw Failure(drive, "the list of namespaces", "it does not go on in ascending order");
        }
        if (ids.size() >= kMost) {
            throw Failure(drive, "the list of namespaces",
                          fmt::format("{} namespaces and no end", kMost));
        }
    }
    return ids;
}

std::vector<uint32_t> namespace_list(NvmeClient& client, uint16_t controller, bool attached) {
    return joined_lists(client.name(), [&](uint32_t after) {
        return client.identify(controller, attached ? kIdentifyCnsActive : kIdentifyCnsAllocated,
                               after);
    });
}

std::string firmware_revision(NvmeClient& client, uint16_t controller) {
    constexpr size_t kRevision = 64;
    constexpr size_t kSize = 8;
    const std::vector<uint8_t> data = client.identify(controller, kIdentifyCnsController, 0);
    return trimmed(std::span(data).subspan(kRevision, kSize));
}

Fields read_smart(NvmeClient& client, uint16_t controller) {
    const std::vector<uint8_t> data = client.log_page(controller, kSmartPage, kPageSize);
    Fields fields;
    fields.add("critical_warning", fmt::format("0x{:02x}", data[0]), data[0]);
    fields.explain(smart_warnings_text(data[0]));
    const uint64_t kelvin = little_endian_at(data, 1, 2);
    fields.add("temperature", kelvin_text(kelvin), kelvin);
    fields.decode(data, kSmartLayout);
    add_temperature_sensors(fields, data);
    fields.decode(data, kThermalLayout);
    return fields;
}

SanitizeState read_sanitize(NvmeClient& client, uint16_t controller) {
    const std::vector<uint8_t> data = client.log_page(controller, kSanitizePage, kPageSize);
    constexpr unsigned kWhole = 65536;
    const auto progress = static_cast<unsigned>(little_endian_at(data, 0, 2));
    const auto status = static_cast<uint16_t>(little_endian_at(data, 2, 2));
    SanitizeState state;
    state.status = status & 7;
    state.percent = progress * 100 / kWhole;
    state.fields.add("sprog", std::to_string(progress), progress);
    if (state.status == 2) {
        state.fields.explain(fmt::format("{} %", state.percent));
    }
    state.fields.add("sstat", fmt::format("0x{:04x}", status), status);
    state.fields.explain(sanitize_status_text(state.status));
    state.fields.decode(data, kSanitizeLayout);
    return state;
}

FirmwareSlots read_firmware_slots(NvmeClient& client, uint16_t controller) {
    constexpr size_t kFirstRevision = 8;
    constexpr size_t kRevisionSize = 8;
    const std::vector<uint8_t> data = client.log_page(controller, kFirmwareSlotPage, kPageSize);
    FirmwareSlots slots;
    slots.active = data[0] & 7;
    slots.next = data[0] >> 4 & 7;
    for (size_t i = 0; i < slots.revisions.size(); ++i) {
        slots.revisions[i] =
            trimmed(std::span(data).subspan(kFirstRevision + kRevisionSize * i, kRevisionSize));
    }
    return slots;
}

std::string slots_text(const FirmwareSlots& slots, size_t indent) {
    Table table({{"SLOT", true}, {"REVISION"}, {"STATE"}});
    for (size_t i = 0; i < slots.revisions.size(); ++i) {
        const bool active = slots.active == i + 1;
        const bool next = slots.next == i + 1;
        if (!slots.revisions[i].empty() || active || next) {
            table.add({std::to_string(i + 1), slots.revisions[i].empty() ? "-" : slots.revisions[i],
                       active && next ? "active, also behind the next reset"
                       : active       ? "active"
                       : next         ? "active behind the next reset"
                                      : ""});
        }
    }
    return table.text(indent);
}

Json slots_json(const FirmwareSlots& slots) {
    Json json{{"afi", slots.active | slots.next << 4},
              {"active_slot", slots.active},
              {"next_slot", slots.next}};
    for (size_t i = 0; i < slots.revisions.size(); ++i) {
        json[fmt::format("frs{}", i + 1)] = slots.revisions[i];
    }
    return json;
}

}  // namespace tool
