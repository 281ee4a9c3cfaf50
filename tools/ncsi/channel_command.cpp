// SPDX-License-Identifier: Apache-2.0
// The commands ncsi discover, ncsi link, ncsi select and ncsi deselect.
#include <fmt/format.h>

#include "tools/ncsi/commands.h"
#include "tools/ncsi/link.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {

void run_ncsi_discover(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    Table table({{"CHANNEL", true}, {"ID"}, {"PACKAGE", true}});
    Json channels = Json::array();
    for (unsigned number : client.numbers()) {
        const uint8_t id = client.channel(number).channel_id;
        table.add({std::to_string(number), fmt::format("0x{:02x}", id),
                   std::to_string(client.package())});
        channels.push_back({{"channel", number}, {"channel_id", id}});
    }
    context.output.text(table.text());
    context.output.document(
        {{"endpoint", endpoint}, {"package_id", client.package()}, {"channels", channels}});
}

void run_ncsi_link(Context& context, const std::string& endpoint, std::optional<unsigned> channel) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    std::vector<unsigned> numbers = client.numbers();
    if (channel) {
        numbers = {client.choose(channel)};
    }
    const std::vector<ChannelLink> links = read_links(client, numbers);
    context.output.text(links_text(links));
    context.output.document({{"endpoint", endpoint}, {"channels", links_json(links)}});
    for (const ChannelLink& link : links) {
        if (link.failure) {
            context.report(*link.failure);
        }
    }
}

void run_ncsi_package(Context& context, const std::string& endpoint, unsigned package,
                      bool select) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    ncsi_channel& channel = client.channel(client.numbers().front());
    const auto command = select ? ncsi_select_package : ncsi_deselect_package;
    client.call(fmt::format("{} Package {}", select ? "Select" : "Deselect", package),
                [&] { return command(&channel, package); });
    context.output.text(
        fmt::format("package {} is {}\n", package, select ? "selected" : "deselected"));
    context.output.document(
        {{"endpoint", endpoint}, {"package_id", package}, {"selected", select}});
}

}  // namespace tool
