// SPDX-License-Identifier: Apache-2.0
// The command line of the command metrics.
#include "tools/metrics/commands.h"

#include "tools/shell/commands.h"

namespace tool {

void add_metrics_commands(const Commands& commands) {
    const auto [metrics, wish] = commands.add<MetricsWish>(
        commands.top(), "metrics", "sensors, health, links and versions for Prometheus",
        [](Context& c, const MetricsWish& w) { run_metrics(c, w); });
    metrics
        .add_option("ENDPOINT", wish.endpoints, "of these alone, each named as with other commands")
        .endpoint();
    metrics
        .add_option("--listen", wish.listen,
                    "serve them over HTTP until interrupted, e.g. on 127.0.0.1:9823")
        .type_name("ADDRESS[:PORT]");
}

}  // namespace tool
