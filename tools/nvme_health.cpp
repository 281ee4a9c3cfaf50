// SPDX-License-Identifier: Apache-2.0
// The health of an NVMe drive as its management endpoint tells it, and the command nvme health.
#include "tools/nvme_health.h"

#include <fmt/format.h>

#include "tools/nvme.h"
#include "tools/nvme_fields.h"
#include "tools/text.h"

namespace tool {
namespace {

constexpr BitName subsystem_bits[] = {
    {5, "drive functional"},
    {4, "no reset required"},
    {3, "PCIe link of port 0 active"},
    {2, "PCIe link of port 1 active"},
};

constexpr BitName health_warnings[] = {
    {0, "available spare"}, {1, "temperature"},   {2, "reliability"},
    {3, "read only"},       {4, "memory backup"}, {5, "persistent memory region"},
};

constexpr BitName controller_bits[] = {
    {0, "ready"},
    {1, "fatal"},
    {4, "subsystem reset occurred"},
    {5, "enable changed"},
    {6, "namespaces changed"},
    {7, "firmware activated"},
    {8, "status changed"},
    {9, "temperature changed"},
    {10, "percentage used changed"},
    {11, "available spare changed"},
    {12, "critical warning changed"},
};

/// Percentage Drive Life Used.
std::string life_text(uint8_t used) {
    return used == 0xFF ? "more than 254 %" : fmt::format("{} %", used);
}

Fields subsystem_fields(const nvme_subsystem_health& health) {
    Fields fields;
    fields.add("nss", fmt::format("0x{:02x}", health.nss), health.nss);
    fields.explain(bits_text(health.nss, subsystem_bits, "not functional"));
    fields.add("sw", fmt::format("0x{:02x}", health.smart_warnings), health.smart_warnings);
    // A bit that is 0 warns.
    fields.explain(bits_text(health.smart_warnings ^ 0xFFU, health_warnings, "no warning"));
    fields.add("ctemp", composite_text(health.ctemp), health.ctemp);
    fields.add("pdlu", life_text(health.pdlu), health.pdlu);
    fields.add("ccs", fmt::format("0x{:04x}", health.ccs), health.ccs);
    fields.explain(bits_text(health.ccs, controller_bits, "not ready"));
    return fields;
}

}  // namespace

std::string composite_text(uint8_t ctemp) {
    constexpr uint8_t hottest = 0x7F;
    constexpr uint8_t no_data = 0x80;
    constexpr uint8_t sensor_failed = 0x81;
    constexpr uint8_t coldest = 0xC4;
    if (ctemp < hottest) {
        return fmt::format("{} degC", ctemp);
    }
    switch (ctemp) {
        case hottest:
            return "127 degC or more";
        case no_data:
            return "no data";
        case sensor_failed:
            return "the sensor has failed";
        case coldest:
            return "-60 degC or less";
        default:
            return ctemp > coldest ? fmt::format("{} degC", static_cast<int8_t>(ctemp))
                                   : fmt::format("0x{:02x} (reserved)", ctemp);
    }
}

NvmeHealth read_health(NvmeDrive& drive) {
    constexpr uint32_t every_function = NVMEMI_CONTROLLER_POLL_ALL | NVMEMI_CONTROLLER_POLL_INCF |
                                        NVMEMI_CONTROLLER_POLL_INCPF | NVMEMI_CONTROLLER_POLL_INCVF;
    constexpr uint32_t keep_flags = 0;
    NvmeHealth health;
    drive.call("NVM Subsystem Health Status Poll", [&] {
        return nvmemi_nvm_subsystem_health_status_poll(drive.context(), &keep_flags,
                                                       &health.subsystem);
    });
    // As many as one answer holds, then those behind them.
    for (uint32_t next = 0; next <= UINT16_MAX;) {
        const uint32_t dword0 = every_function |
                                NVMEMI_CONTROLLER_POLL_MAXRENT(NVMEMI_CONTROLLERS_MAX - 1) |
                                NVMEMI_CONTROLLER_POLL_SCTLID(next);
        uint8_t count = 0;
        nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX] = {};
        drive.call("Controller Health Status Poll", [&] {
            return nvmemi_controller_health_status_poll(drive.context(), &dword0, &keep_flags,
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
                   fmt::format("{} %", one.spare), bits_text(one.cwarn, health_warnings, "none"),
                   bits_text(one.csts, controller_bits, "not ready")});
    }
    return subsystem_fields(health.subsystem).text(indent) + "\n" + table.text(indent);
}

nlohmann::ordered_json health_json(const NvmeHealth& health) {
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
    const NvmeHealth health = read_health(found.drive);
    context.output.text(health_text(health));
    Json document{{"endpoint", target.endpoint}};
    document.update(health_json(health));
    context.output.document(document);
}

}  // namespace tool
