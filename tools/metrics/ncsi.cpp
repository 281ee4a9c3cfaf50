// SPDX-License-Identifier: Apache-2.0
// What a network controller has in figures: the links of its channels.
#include "tools/metrics/scrape.h"
#include "tools/ncsi/codes.h"
#include "tools/ncsi/link.h"

namespace tool {
namespace {

constexpr MetricFamily kUp{"sideband_ncsi_link_up", "", "Whether the channel has a link."};
constexpr MetricFamily kSpeed{"sideband_ncsi_link_speed_bytes", "bytes",
                              "Speed of the channel's link in bytes per second."};
constexpr MetricFamily kNegotiated{"sideband_ncsi_link_autonegotiation_complete", "",
                                   "Whether auto-negotiation of the channel's link is complete."};

}  // namespace

void scrape_ncsi(const Subject& subject) {
    NcsiClient client(subject.session);
    for (const ChannelLink& link : read_links(client, client.numbers())) {
        if (link.failure) {
            subject.scrape.failures.push_back(*link.failure);
            continue;
        }
        const MetricLabels labels{{"channel", std::to_string(link.number)}};
        subject.add(kUp, labels, link.up ? 1 : 0);
        subject.add(kNegotiated, labels, link.autonegotiated ? 1 : 0);
        // The speed of a link that is down means nothing (DSP0222, link status).
        const uint64_t bits = link.up ? ncsi_bits_per_second(link.speed) : 0;
        if (bits != 0) {
            subject.add(kSpeed, labels, static_cast<double>(bits) / 8);
        }
    }
}

}  // namespace tool
