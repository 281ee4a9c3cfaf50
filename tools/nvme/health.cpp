// SPDX-License-Identifier: Apache-2.0
// The health of an NVMe drive as its management endpoint tells it, and the command nvme health.
#include "tools/nvme/health.h"

#include <fmt/format.h>

#include "tools/nvme/commands.h"
#include "tools/nvme/fields.h"
#include "tools/nvme/states.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// Percentage Drive Life Used.
std::string life_text(uint8_t used) {
    return used == 0xFF ? "more than 254 %" : fmt::format("{} %", used);
}

Fields subsystem_fields(const nvme_subsystem_health& health) {
    Fields fields;
    fields.add("nss", fmt::format("0x{:02x}", health.nss), health.nss);
    fields.explain(subsystem_status_text(health.nss));
    fields.add("sw", fmt::format("0x{:02x}", health.smart_warnings), health.smart_warnings);
    // A bit that is 0 warns.
    fields.explain(
        health_warnings_text(static_cast<uint8_t>(~health.smart_warnings), "no warning"));
    fields.add("ctemp", composite_text(health.ctemp), health.ctemp);
    fields.add("pdlu", life_text(health.pdlu), health.pdlu);
    fields.add("ccs", fmt::format("0x{:04x}", health.ccs), health.ccs);
    fields.explain(composite_status_text(health.ccs));
    return fields;
}

}  // namespace

NvmeHealth read_health(NvmeClient& client) {
    constexpr uint32_t kEveryFunction = NVMEMI_CONTROLLER_POLL_ALL | NVMEMI_CONTROLLER_POLL_INCF |
                                        NVMEMI_CONTROLLER_POLL_INCPF | NVMEMI_CONTROLLER_POLL_INCVF;
    constexpr uint32_t kKeepFlags = 0;
    NvmeHealth health;
    client.call("NVM Subsystem Health Status Poll", [&] {
        return nvmemi_nvm_subsystem_health_status_poll(client.context(), &kKeepFlags,
                                                       &health.subsystem);
    });
    // As many as one answer holds, then those behind them.
    for (uint32_t next = 0; next <= UINT16_MAX;) {
        const uint32_t dword0 = kEveryFunction |
                                NVMEMI_CONTROLLER_POLL_MAXRENT(NVMEMI_CONTROLLERS_MAX - 1) |
                                NVMEMI_CONTROLLER_POLL_SCTLID(next);
        uint8_t count = 0;
        nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX] = {};
        client.call("Controller Health Status Poll", [&] {
            return nvmemi_controller_health_status_poll(client.context(), &dword0, &kKeepFlags,
                                                        &count, entries);
        });
        health.controllers.insert(health.controllers.end(), entries, entries + count);
        // A drive that goes back has told all that it knows.
        if (count < NVMEMI_CONTROLLERS_MAX || entries[count - 1].ctlid < next) {
            break;
        }
        next = entries[count - 1].ctlid + 1U;
    }
    return health;
}

std::string health_text(const NvmeHealth& health, size_t indent) {
    Table table({{"CONTROLLER", true},
                 {"TEMPERATURE", true},
                 {"USED", true},
                 {"SPARE", true},
                 {"WARNINGS"},
                 {"STATUS"}});
    for (const nvme_controller_health& one : health.controllers) {
        table.add({std::to_string(one.ctlid), kelvin_text(one.ctemp), life_text(one.pdlu),
                   fmt::format("{} %", one.spare), health_warnings_text(one.cwarn, "none"),
                   controller_status_text(one.csts)});
    }
    return subsystem_fields(health.subsystem).text(indent) + "\n" + table.text(indent);
}

Json health_json(const NvmeHealth& health) {
    Json list = Json::array();
    for (const nvme_controller_health& one : health.controllers) {
        list.push_back({{"ctlid", one.ctlid},
                        {"csts", one.csts},
                        {"ctemp", one.ctemp},
                        {"pdlu", one.pdlu},
                        {"spare", one.spare},
                        {"cwarn", one.cwarn}});
    }
    Json json = subsystem_fields(health.subsystem).json();
    json["controllers"] = list;
    return json;
}

void run_nvme_health(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    const NvmeHealth health = read_health(found.client);
    context.output.text(health_text(health));
    Json document{{"endpoint", target.endpoint}};
    document.update(health_json(health));
    context.output.document(document);
}

}  // namespace tool
