// SPDX-License-Identifier: Apache-2.0
// The demo's network controllers: who has a link, and how warm it is.
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "tools/demo/demo.h"
#include "tools/ncsi/link.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// Nothing if the controller does not know the command: it is another maker's.
std::optional<int32_t> temperature_of(NcsiClient& client) {
    try {
        return read_temperature(client, client.numbers().front(), 0);
    } catch (const Failure& failure) {
        if (failure.code() && failure.code()->code == NCSI_RESPONSE_UNSUPPORTED) {
            return std::nullopt;
        }
        throw;
    }
}

void show_controller(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    NcsiClient client(session);
    const std::vector<ChannelLink> links = read_links(client, client.numbers());
    step.output.text(links_text(links, 3));
    step.details = {{"channels", links_json(links)}};
    for (const ChannelLink& link : links) {
        if (link.failure) {
            throw Failure(*link.failure);
        }
    }
    const auto up =
        std::count_if(links.begin(), links.end(), [](const ChannelLink& link) { return link.up; });
    step.result = fmt::format("{}, {} up", counted(links.size(), "channel"), up);
    if (const std::optional<int32_t> temperature = temperature_of(client)) {
        step.say(fmt::format("temperature  {} degC", *temperature));
        step.details["temperature"] = *temperature;
        step.result += fmt::format(", {} degC", *temperature);
    }
}

}  // namespace

void show_controllers(Tour& tour, const std::vector<Endpoint>& controllers) {
    for (const Endpoint& endpoint : controllers) {
        tour.step("Network links", "NC-SI: Get Link Status of each channel, and the temperature.",
                  endpoint.name, [&](Tour::Step& step) { show_controller(step, endpoint); });
    }
}

}  // namespace tool
