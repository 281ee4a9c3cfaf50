// SPDX-License-Identifier: Apache-2.0
// The command serve --i2c: the board's I2C buses as devices of this machine.
#include <fmt/format.h>

#include "tools/serve/commands.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

std::vector<Endpoint> endpoints_on_buses(const Port& port) {
    std::vector<Endpoint> found = port.endpoints();
    std::erase_if(found, [](const Endpoint& each) { return each.transport != Transport::kI2c; });
    return found;
}

std::string buses_text(const BusService& service, const std::vector<Endpoint>& endpoints) {
    Table buses({{"BUS", true}, {"DEVICE"}, {"SLAVE QUEUE"}});
    for (const ServedBus& bus : service.buses()) {
        buses.add({std::to_string(bus.bus), bus.device, bus.slave_queue});
    }
    Table devices({{"ENDPOINT"}, {"TYPE"}, {"WHERE"}});
    for (const Endpoint& endpoint : endpoints) {
        devices.add({endpoint.name, endpoint.type, endpoint_location(endpoint)});
    }
    return buses.text() + devices.text();
}

Json buses_json(const BusService& service, const std::vector<Endpoint>& endpoints) {
    Json buses = Json::array();
    for (const ServedBus& bus : service.buses()) {
        buses.push_back(
            {{"bus", bus.bus}, {"device", bus.device}, {"slave_queue", bus.slave_queue}});
    }
    Json devices = Json::array();
    for (const Endpoint& endpoint : endpoints) {
        devices.push_back({{"name", endpoint.name},
                           {"type", endpoint.type},
                           {"bus", endpoint.bus},
                           {"address", endpoint.address}});
    }
    return {{"buses", buses}, {"endpoints", devices}};
}

}  // namespace

void run_serve_buses(Context& context, const ServeWish& wish) {
    if (!wish.tty.empty() || wish.eid != ServeWish{}.eid) {
        throw Failure(ExitStatus::kUsage, "--i2c goes without --tty and --eid (try --help)");
    }
    const InterruptGuard until_signal;
    const std::unique_ptr<BusService> service = context.port.start_bus_service();
    if (service == nullptr) {
        throw Failure(ExitStatus::kFailed, "the platform cannot be served");
    }
    const std::vector<Endpoint> endpoints = endpoints_on_buses(context.port);
    context.output.text(buses_text(*service, endpoints));
    context.output.document(buses_json(*service, endpoints));
    while (!InterruptGuard::pending()) {
        service->serve_a_while();
    }
    const BusTraffic traffic = service->traffic();
    context.output.text(
        fmt::format("{} messages acknowledged, {} not; {} blocks read, {} dropped\n",
                    traffic.written, traffic.refused, traffic.read, traffic.dropped));
}

}  // namespace tool
