// SPDX-License-Identifier: Apache-2.0
// The link state of a network controller's channels, as a table for people and for programs.
#include "tools/ncsi/link.h"

#include <fmt/format.h>

#include "tools/ncsi/codes.h"
#include "tools/shell/json.h"
#include "tools/shell/output.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// Bits 4 to 1 of the link status refer to the extended field, and that is 0: auto-negotiation is
/// not complete. The library passes on the 15 of the bits, which is a speed of the extended field.
bool speed_is_missing(std::span<const uint8_t> response) {
    constexpr size_t kExtendedSpeed = 20;
    constexpr uint8_t kSeeExtended = 0x0F;
    return response[kExtendedSpeed] == 0 &&
           (response[kExtendedSpeed + 3] >> 1 & 0x0F) == kSeeExtended;
}

ChannelLink read_link(NcsiClient& client, unsigned number) {
    ncsi_channel& channel = client.channel(number);
    ChannelLink link{.number = number, .channel_id = channel.channel_id, .failure = {}};
    try {
        client.call(fmt::format("Get Link Status of channel {}", number),
                    [&channel] { return ncsi_get_link_status(&channel); });
        link.up = channel.link_up != 0;
        link.speed = speed_is_missing(client.last_response()) ? 0 : channel.speed;
        link.autonegotiated = channel.autoneg_done != 0;
    } catch (const Failure& failure) {
        link.failure = failure;
    }
    return link;
}

std::string state_of(const ChannelLink& link) {
    if (link.failure) {
        return "failed";
    }
    return link.up ? "up" : "down";
}

}  // namespace

std::vector<ChannelLink> read_links(NcsiClient& client, const std::vector<unsigned>& numbers) {
    std::vector<ChannelLink> links;
    links.reserve(numbers.size());
    for (unsigned number : numbers) {
        links.push_back(read_link(client, number));
    }
    return links;
}

std::string links_text(const std::vector<ChannelLink>& links, size_t indent) {
    Table table({{"CHANNEL", true}, {"ID"}, {"LINK"}, {"SPEED"}, {"AUTONEGOTIATION"}});
    for (const ChannelLink& link : links) {
        // The speed of a link that is down means nothing (DSP0222, link status).
        table.add({std::to_string(link.number), fmt::format("0x{:02x}", link.channel_id),
                   state_of(link), link.up ? ncsi_speed_name(link.speed) : "-",
                   link.failure          ? "-"
                   : link.autonegotiated ? "complete"
                                         : "not complete"});
    }
    return table.text(indent);
}

Json links_json(const std::vector<ChannelLink>& links) {
    Json list = Json::array();
    for (const ChannelLink& link : links) {
        Json json{{"channel", link.number}, {"channel_id", link.channel_id}};
        if (link.failure) {
            json["error"] = failure_json(*link.failure);
        } else {
            json["link_flag"] = link.up;
            json["speed_and_duplex"] = link.speed;
            json["speed_and_duplex_name"] = ncsi_speed_name(link.speed);
            json["auto_negotiate_complete"] = link.autonegotiated;
        }
        list.push_back(json);
    }
    return list;
}

}  // namespace tool
