// SPDX-License-Identifier: Apache-2.0
// The command metrics: figures of devices for Prometheus, once or whenever it asks.
#include <algorithm>

#include "tools/metrics/commands.h"
#include "tools/metrics/http_server.h"
#include "tools/metrics/scrape.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

/// The endpoints that are asked for, each once; without a wish those that are present.
std::vector<Endpoint> wanted_endpoints(const Port& port, const std::vector<std::string>& names) {
    if (names.empty()) {
        return port.present_endpoints();
    }
    std::vector<Endpoint> endpoints;
    for (const std::string& name : names) {
        const bool twice =
            std::any_of(endpoints.begin(), endpoints.end(),
                        [&name](const Endpoint& known) { return known.name == name; });
        if (!twice) {
            endpoints.push_back(find_endpoint(port, name));
        }
    }
    return endpoints;
}

void serve_metrics(Context& context, const MetricsWish& wish) {
    const HttpAddress address = parse_http_address(wish.listen);
    // Names that no device has are told now, not to the first who asks.
    wanted_endpoints(context.port, wish.endpoints);
    // A signal is how this command ends, and no reason to end otherwise than well.
    const InterruptGuard until_signal;
    const HttpServer server(address);
    context.output.text("metrics on " + server.url() + "\n");
    context.output.document({{"url", server.url()}});
    server.serve([&] {
        TimeLimit::begin_again();
        const std::vector<Endpoint> endpoints = wanted_endpoints(context.port, wish.endpoints);
        return scrape(context.port, endpoints).figures.text();
    });
}

}  // namespace

void run_metrics(Context& context, const MetricsWish& wish) {
    if (!wish.listen.empty()) {
        serve_metrics(context, wish);
        return;
    }
    const Scrape all = scrape(context.port, wanted_endpoints(context.port, wish.endpoints));
    context.output.text(all.figures.text());
    context.output.document({{"metrics", all.figures.json()}});
    for (const Failure& failure : all.failures) {
        context.report(failure);
    }
}

}  // namespace tool
