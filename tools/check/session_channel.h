// SPDX-License-Identifier: Apache-2.0
// The way to a device through a session, with the packets that pass.
#ifndef SIDEBAND_TOOLS_CHECK_SESSION_CHANNEL_H
#define SIDEBAND_TOOLS_CHECK_SESSION_CHANNEL_H

#include "tools/check/exchange.h"
#include "tools/shell/session.h"

namespace tool::check {

/// What passes is taken as it comes: the strict bits of the session are to be clear.
class SessionChannel final : public Channel, private PacketObserver {
public:
    /// @param session  has found its endpoint
    SessionChannel(Port& port, Session& session);
    ~SessionChannel() override;

    Exchange exchange(uint8_t type, std::span<const uint8_t> body) override;
    uint64_t now_us() const override { return port_.now_us(); }
    uint8_t eid() const override { return session_.eid(); }
    bool appends_check() const override;

private:
    void passed(const Packet& packet) override;

    Port& port_;
    Session& session_;
    std::vector<SeenPacket> packets_;
};

}  // namespace tool::check

#endif
