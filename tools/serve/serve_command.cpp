// SPDX-License-Identifier: Apache-2.0
// The command serve: the board as a device for other software, behind a serial line.
#include <fmt/format.h>

#include "tools/serve/commands.h"
#include "tools/shell/codes.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

std::string service_text(const Service& service) {
    Table table({{"EID", true}, {"ENDPOINT"}, {"TYPE"}, {"WHERE"}, {"SPEAKS"}});
    table.add({std::to_string(service.eid()), "-", "bridge", "serial", "-"});
    for (const ServedEndpoint& served : service.endpoints()) {
        table.add({std::to_string(served.eid), served.endpoint.name, served.endpoint.type,
                   endpoint_location(served.endpoint), message_types_text(served.message_types)});
    }
    return fmt::format("MCTP over serial on {}\n{}", service.tty(), table.text());
}

Json service_json(const Service& service) {
    Json endpoints = Json::array();
    for (const ServedEndpoint& served : service.endpoints()) {
        const Endpoint& endpoint = served.endpoint;
        endpoints.push_back({{"eid", served.eid},
                             {"name", endpoint.name},
                             {"type", endpoint.type},
                             {"transport", endpoint.transport == Transport::kPcie ? "pcie" : "i2c"},
                             {"message_types", served.message_types}});
    }
    return {{"tty", service.tty()}, {"eid", service.eid()}, {"endpoints", endpoints}};
}

std::string use_text(const ServiceUse& use) {
    return fmt::format("{} frames received, {} sent; {} refused, {} discarded\n", use.received,
                       use.sent, use.refused, use.discarded);
}

}  // namespace

void run_serve(Context& context, const ServeWish& wish) {
    // A signal is how this command ends, and no reason to end otherwise than well.
    const InterruptGuard until_signal;
    const std::unique_ptr<Service> service = context.port.start_service(wish.tty, wish.eid);
    if (service == nullptr) {
        throw Failure(ExitStatus::kFailed, "the platform cannot be served");
    }
    context.output.text(service_text(*service));
    context.output.document(service_json(*service));
    while (!InterruptGuard::pending()) {
        service->serve_a_while();
    }
    context.output.text(use_text(service->use()));
}

}  // namespace tool
