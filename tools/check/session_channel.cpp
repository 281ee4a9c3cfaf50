// SPDX-License-Identifier: Apache-2.0
// The way to a device through a session, with the packets that pass.
#include "tools/check/session_channel.h"

#include "tools/shell/time_limit.h"
#include "tools/shell/wire_watch.h"

namespace tool::check {
namespace {

/// Packets of an exchange that are kept. The largest answer that is taken has fewer.
constexpr size_t kMostPackets = 256;

}  // namespace

SessionChannel::SessionChannel(Port& port, Session& session) : port_(port), session_(session) {
    WireWatch::relay(this);
}

SessionChannel::~SessionChannel() {
    WireWatch::relay(nullptr);
}

Exchange SessionChannel::exchange(uint8_t type, std::span<const uint8_t> body) {
    packets_.clear();
    Exchange exchange{type, {body.begin(), body.end()}, std::nullopt, {}};
    try {
        exchange.response = session_.exchange(type, body);
    } catch (const Failure&) {  // no answer, or none that has come in time: nothing is judged by it
        TimeLimit::check(session_.endpoint().name, "the check");
    }
    exchange.packets = std::move(packets_);
    packets_ = {};
    return exchange;
}

bool SessionChannel::appends_check() const {
    const uint8_t binding = session_.endpoint().binding_kind;
    return binding == MCTP_BINDING_KIND_SMBUS || binding == MCTP_BINDING_KIND_SOCKET;
}

void SessionChannel::passed(const Packet& packet) {
    if (packets_.size() < kMostPackets) {
        packets_.push_back({packet.sent,
                            packet.transport == Transport::kI2c,
                            packet.pec_good,
                            {packet.bytes.begin(), packet.bytes.end()}});
    }
}

}  // namespace tool::check
