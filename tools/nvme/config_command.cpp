// SPDX-License-Identifier: Apache-2.0
// The commands nvme config: how the ports of a drive's management endpoint are set.
#include <fmt/format.h>

#include "tools/nvme/client.h"
#include "tools/nvme/codes.h"
#include "tools/nvme/commands.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// How one port is set.
struct PortConfig {
    uint8_t port = 0;
    std::optional<uint8_t> frequency;  ///< NVMEMI_SMBUS_...; nothing if the port has none
    uint16_t unit_size = 0;
};

std::string frequency_text(const std::optional<uint8_t>& frequency) {
    return frequency ? nvmemi_frequency_name(*frequency) : "-";
}

/// A port that is none of SMBus refuses the question.
std::optional<uint8_t> read_frequency(NvmeClient& client, uint8_t port) {
    uint8_t frequency = 0;
    try {
        client.call(fmt::format("Configuration Get (SMBus/I2C Frequency) of port {}", port), [&] {
            return nvmemi_config_get_smbus_freq(client.context(), port, &frequency);
        });
    } catch (const Failure& failure) {
        if (failure.code() && failure.code()->code == NVMEMI_STATUS_INVALID_PARAMETER) {
            return std::nullopt;
        }
        throw;
    }
    return frequency;
}

PortConfig read_port_config(NvmeClient& client, uint8_t port) {
    PortConfig config{.port = port, .frequency = read_frequency(client, port)};
    client.call(
        fmt::format("Configuration Get (MCTP Transmission Unit Size) of port {}", port), [&] {
            return nvmemi_config_get_mctp_tx_unit_size(client.context(), port, &config.unit_size);
        });
    return config;
}

Json port_json(const PortConfig& config) {
    Json json{{"smbus_i2c_frequency", nullptr}, {"mctp_transmission_unit_size", config.unit_size}};
    if (config.frequency) {
        json["smbus_i2c_frequency"] = *config.frequency;
    }
    return json;
}

std::vector<PortConfig> read_ports(NvmeClient& client, std::optional<unsigned> wanted) {
    if (wanted) {
        return {read_port_config(client, static_cast<uint8_t>(*wanted))};
    }
    const uint8_t last = client.data_structure("reading the NVM subsystem information",
                                               NVMEMI_DS(NVMEMI_DTYP_SUBSYSTEM, 0, 0))[0];
    std::vector<PortConfig> ports;
    for (unsigned port = 0; port <= last; ++port) {
        ports.push_back(read_port_config(client, static_cast<uint8_t>(port)));
    }
    return ports;
}

void clear_changes(NvmeClient& client, uint32_t changes) {
    client.call("Configuration Set (Health Status Change)",
                [&] { return nvmemi_config_set_health_status_change(client.context(), &changes); });
}

void write_port(NvmeClient& client, uint8_t port, const NvmeConfigWish& wish) {
    if (wish.frequency_khz) {
        const uint8_t frequency = *wish.frequency_khz == 100   ? NVMEMI_SMBUS_100_KHZ
                                  : *wish.frequency_khz == 400 ? NVMEMI_SMBUS_400_KHZ
                                                               : NVMEMI_SMBUS_1_MHZ;
        client.call(fmt::format("Configuration Set (SMBus/I2C Frequency) of port {}", port), [&] {
            return nvmemi_config_set_smbus_freq(client.context(), port, frequency);
        });
    }
    if (wish.unit_size) {
        client.call(fmt::format("Configuration Set (MCTP Transmission Unit Size) of port {}", port),
                    [&] {
                        return nvmemi_config_set_mctp_tx_unit_size(
                            client.context(), port, static_cast<uint16_t>(*wish.unit_size));
                    });
    }
}

}  // namespace

void run_nvme_config_get(Context& context, const std::string& endpoint,
                         const NvmeConfigWish& wish) {
    FoundDrive found(context.port, endpoint);
    Table table({{"PORT", true}, {"SMBUS FREQUENCY", true}, {"UNIT SIZE", true}});
    Json list = Json::array();
    for (const PortConfig& config : read_ports(found.client, wish.port)) {
        table.add({std::to_string(config.port), frequency_text(config.frequency),
                   std::to_string(config.unit_size)});
        Json json{{"port", config.port}};
        json.update(port_json(config));
        list.push_back(json);
    }
    context.output.text(table.text());
    context.output.document({{"endpoint", endpoint}, {"ports", list}});
}

void run_nvme_config_set(Context& context, const std::string& endpoint,
                         const NvmeConfigWish& wish) {
    const bool of_port = wish.frequency_khz || wish.unit_size;
    if (!of_port && !wish.clear) {
        throw Failure(ExitStatus::kUsage,
                      "--frequency, --unit-size or --clear-changes is required (try --help)");
    }
    if (of_port && !wish.port) {
        throw Failure(ExitStatus::kUsage, "--port is required (try --help)");
    }
    FoundDrive found(context.port, endpoint);
    Json document{{"endpoint", endpoint}};
    if (of_port) {
        const auto port = static_cast<uint8_t>(*wish.port);
        const PortConfig before = read_port_config(found.client, port);
        write_port(found.client, port, wish);
        const PortConfig after = read_port_config(found.client, port);
        Table table({{""}, {"BEFORE"}, {"AFTER"}});
        table.add(
            {"SMBus frequency", frequency_text(before.frequency), frequency_text(after.frequency)});
        table.add({"unit size", std::to_string(before.unit_size), std::to_string(after.unit_size)});
        context.output.text(table.text());
        document["port"] = port;
        document["before"] = port_json(before);
        document["after"] = port_json(after);
    }
    if (wish.clear) {
        clear_changes(found.client, *wish.clear);
        context.output.text(fmt::format("health status changes 0x{:08x} cleared\n", *wish.clear));
        document["health_status_change"] = *wish.clear;
    }
    context.output.document(document);
}

}  // namespace tool
