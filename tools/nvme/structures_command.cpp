// SPDX-License-Identifier: Apache-2.0
// The commands nvme ds: the data structures of NVMe-MI.
#include <fmt/format.h>

#include "tools/nvme/client.h"
#include "tools/nvme/codes.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/fields.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr FieldLayout kSubsystemLayout[] = {{"nump", 0, 1}, {"mjr", 1, 1}, {"mnr", 2, 1}};

constexpr FieldLayout kPortLayout[] = {{"prttyp", 0, 1}, {"mmctptus", 2, 2}, {"meb", 4, 4}};

constexpr FieldLayout kPcieLayout[] = {
    {"pciemps", 8, 1},  {"pcieslsv", 9, 1, FieldLook::kHex},
    {"pciecls", 10, 1}, {"pciemlw", 11, 1},
    {"pcienlw", 12, 1}, {"pciepn", 13, 1},
};

constexpr FieldLayout kSmbusLayout[] = {
    {"cvpdaddr", 8, 1, FieldLook::kHex}, {"mvpdfreq", 9, 1},
    {"cmeaddr", 10, 1, FieldLook::kHex}, {"mmefreq", 11, 1},
    {"nvmebm", 12, 1, FieldLook::kHex},
};

constexpr FieldLayout kControllerInfoLayout[] = {
    {"portid", 0, 1},
    {"prii", 5, 1, FieldLook::kHex},
    {"pri", 6, 2, FieldLook::kHex},
    {"pcivid", 8, 2, FieldLook::kHex},
    {"pcidid", 10, 2, FieldLook::kHex},
    {"pcisvid", 12, 2, FieldLook::kHex},
    {"pcissid", 14, 2, FieldLook::kHex},
};

constexpr uint64_t kPciePort = 1;
constexpr uint64_t kSmbusPort = 2;

void show(Context& context, Json document, const Fields& fields) {
    context.output.text(fields.text());
    document.update(fields.json());
    context.output.document(document);
}

Fields port_fields(std::span<const uint8_t> data) {
    Fields fields;
    fields.decode(data, kPortLayout);
    const uint64_t type = fields.json()["prttyp"].unsigned_number();
    if (type == kPciePort) {
        fields.decode(data, kPcieLayout);
    } else if (type == kSmbusPort) {
        fields.decode(data, kSmbusLayout);
    }
    return fields;
}

}  // namespace

void run_nvme_ds_subsystem(Context& context, const std::string& endpoint) {
    FoundDrive found(context.port, endpoint);
    Fields fields;
    fields.decode(found.client.data_structure("reading the NVM subsystem information",
                                              NVMEMI_DS(NVMEMI_DTYP_SUBSYSTEM, 0, 0)),
                  kSubsystemLayout);
    show(context, {{"endpoint", endpoint}}, fields);
}

void run_nvme_ds_port(Context& context, const std::string& endpoint, uint32_t id) {
    FoundDrive found(context.port, endpoint);
    const std::vector<uint8_t> data = found.client.data_structure(
        fmt::format("reading the information on port {}", id), NVMEMI_DS(NVMEMI_DTYP_PORT, id, 0));
    show(context, {{"endpoint", endpoint}, {"port", id}}, port_fields(data));
}

void run_nvme_ds_controllers(Context& context, const std::string& endpoint) {
    FoundDrive found(context.port, endpoint);
    const std::vector<uint16_t> ids = found.client.controllers();
    context.output.text(fmt::format("{}\n", fmt::join(ids, "\n")));
    context.output.document({{"endpoint", endpoint}, {"controllers", ids}});
}

void run_nvme_ds_controller(Context& context, const std::string& endpoint, uint32_t id) {
    FoundDrive found(context.port, endpoint);
    Fields fields;
    fields.decode(
        found.client.data_structure(fmt::format("reading the information on controller {}", id),
                                    NVMEMI_DS(NVMEMI_DTYP_CONTROLLER, 0, id)),
        kControllerInfoLayout);
    show(context, {{"endpoint", endpoint}, {"controller", id}}, fields);
}

void run_nvme_ds_commands(Context& context, const std::string& endpoint) {
    constexpr unsigned kManagement = 1;
    constexpr unsigned kAdmin = 2;
    const std::string operation = "reading the optionally supported commands";
    FoundDrive found(context.port, endpoint);
    const std::vector<uint8_t> data =
        found.client.data_structure(operation, NVMEMI_DS(NVMEMI_DTYP_OPTIONAL_COMMANDS, 0, 0));
    const size_t count = data.size() >= 2 ? little_endian_at(data, 0, 2) : 0;
    if (data.size() < 2 + 2 * count) {
        throw Failure(endpoint, operation,
                      fmt::format("{} bytes do not hold {} commands", data.size(), count));
    }
    Table table({{"TYPE", true}, {"OPCODE"}, {"NAME"}});
    Json list = Json::array();
    for (size_t i = 0; i < count; ++i) {
        const unsigned type = data[2 + 2 * i] >> 3 & 0x0F;
        const uint8_t opcode = data[3 + 2 * i];
        const std::string name = type == kManagement ? nvmemi_command_name(opcode)
                                 : type == kAdmin    ? nvme_admin_command_name(opcode)
                                                     : "unknown";
        table.add({std::to_string(type), fmt::format("0x{:02x}", opcode), name});
        list.push_back({{"nmimt", type}, {"opc", opcode}, {"name", name}});
    }
    context.output.text(table.text());
    context.output.document({{"endpoint", endpoint}, {"commands", list}});
}

}  // namespace tool
