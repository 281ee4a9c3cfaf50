// SPDX-License-Identifier: Apache-2.0
// The link state of a network controller's channels, as a table for people and for programs.
#ifndef SIDEBAND_TOOLS_NCSI_LINK_H
#define SIDEBAND_TOOLS_NCSI_LINK_H

#include <optional>
#include <string>
#include <vector>

#include "tools/ncsi/client.h"
#include "tools/shell/json.h"

namespace tool {

/// What Get Link Status answers for one channel (DSP0222).
struct ChannelLink {
    unsigned number = 0;
    uint8_t channel_id = 0;
    bool up = false;
    uint8_t speed = 0;
    bool autonegotiated = false;
    std::optional<Failure> failure;  ///< the other fields tell nothing then
};

/// Asks each of these channels. One that fails stops nothing.
std::vector<ChannelLink> read_links(NcsiClient& client, const std::vector<unsigned>& numbers);

/// @param indent  blanks before each line
std::string links_text(const std::vector<ChannelLink>& links, size_t indent = 0);
Json links_json(const std::vector<ChannelLink>& links);

}  // namespace tool

#endif
