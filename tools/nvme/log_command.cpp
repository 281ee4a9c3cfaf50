// SPDX-License-Identifier: Apache-2.0
// The commands nvme log.
#include <fmt/format.h>

#include "tools/nvme/client.h"
#include "tools/nvme/codes.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/structures.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr uint8_t kErrorPage = 0x01;
constexpr size_t kErrorEntrySize = 64;

/// One entry of the error log: for a table, and for programs.
void add_error(std::span<const uint8_t> entry, Table& table, Json& list) {
    const auto at = [entry](size_t offset, size_t size) {
        return little_endian_at(entry, offset, size);
    };
    const auto status = static_cast<uint16_t>(at(12, 2));
    const auto code = static_cast<uint8_t>(status >> 1);
    const auto type = static_cast<uint8_t>(status >> 9 & 7);
    const uint64_t location = at(14, 2);
    const uint64_t lba = at(16, 8);
    const uint64_t nsid = at(24, 4);
    table.add({std::to_string(at(0, 8)), std::to_string(at(8, 2)), std::to_string(at(10, 2)),
               fmt::format("{}:0x{:02x} {}", type, code, nvme_status_name(type, code)),
               location == 0xFFFF
                   ? "-"
                   : fmt::format("byte {}, bit {}", location & 0xFF, location >> 8 & 7),
               std::to_string(nsid), std::to_string(lba)});
    list.push_back({{"error_count", at(0, 8)},
                    {"sqid", at(8, 2)},
                    {"cmdid", at(10, 2)},
                    {"status_field", status},
                    {"status_code_type", type},
                    {"status_code", code},
                    {"status_code_name", nvme_status_name(type, code)},
                    {"parm_error_location", location},
                    {"lba", lba},
                    {"nsid", nsid},
                    {"vs", at(28, 1)},
                    {"trtype", at(29, 1)},
                    {"cs", at(32, 8)},
                    {"trtype_spec_info", at(40, 2)}});
}

void show_fields(Context& context, const NvmeTarget& target, const Fields& fields) {
    context.output.text(fields.text());
    Json document{{"endpoint", target.endpoint}};
    document.update(fields.json());
    context.output.document(document);
}

}  // namespace

void run_nvme_log_smart(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    show_fields(context, target, read_smart(found.client, controller));
}

void run_nvme_log_sanitize(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    show_fields(context, target, read_sanitize(found.client, controller).fields);
}

void run_nvme_log_firmware(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    const FirmwareSlots slots = read_firmware_slots(found.client, controller);
    context.output.text(slots_text(slots));
    Json document{{"endpoint", target.endpoint}};
    document.update(slots_json(slots));
    context.output.document(document);
}

void run_nvme_log_error(Context& context, const NvmeTarget& target, uint32_t entries) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    const std::vector<uint8_t> data = found.client.log_page(
        controller, kErrorPage, entries * static_cast<uint32_t>(kErrorEntrySize));
    Table table({{"COUNT", true},
                 {"SQID", true},
                 {"CMDID", true},
                 {"STATUS"},
                 {"LOCATION"},
                 {"NSID", true},
                 {"LBA", true}});
    Json list = Json::array();
    for (size_t at = 0; at < data.size(); at += kErrorEntrySize) {
        const auto entry = std::span(data).subspan(at, kErrorEntrySize);
        if (little_endian_at(entry, 0, 8) != 0) {
            add_error(entry, table, list);
        }
    }
    context.output.text(list.items().empty() ? "no errors\n" : table.text());
    context.output.document({{"endpoint", target.endpoint}, {"errors", list}});
}

}  // namespace tool
