// SPDX-License-Identifier: Apache-2.0
// What the tool makes of the packets on the buses: a line for each, and why a request got no
// answer.
#ifndef SIDEBAND_TOOLS_SHELL_WIRE_WATCH_H
#define SIDEBAND_TOOLS_SHELL_WIRE_WATCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/output.h"
#include "tools/shell/port.h"

namespace tool {

/// A packet as one line: when, which way, where, its bytes from the MCTP transport header on.
std::string packet_text(const Packet& packet);

/// How the BMC's last message fared, as far as its packets tell.
class MessageFate {
public:
    void note(const Packet& packet);

    /// Why it has no answer; empty if the packets do not tell.
    std::string reason() const;

private:
    void note_sent(const Packet& packet);
    void note_received(const Packet& packet);

    std::string place_;                 ///< of the device
    uint8_t tag_ = 0;                   ///< of the message
    std::vector<uint8_t> untaken_;      ///< the packet sent last, if nobody acknowledged it
    bool abandoned_ = false;            ///< such a packet was not tried again until it was taken
    bool spoilt_ = false;               ///< a packet came with a bad PEC
    bool begun_ = false;                ///< a packet of the answer came
    bool ended_ = false;                ///< its last one did
    std::optional<uint8_t> other_tag_;  ///< a packet of an answer came, of another message
};

/// Watches a port for as long as it stands. One stands at a time.
class WireWatch final : public PacketObserver {
public:
    /// @param shown  receives a line for each packet; null for none
    WireWatch(Port& port, Output* shown);
    ~WireWatch() override;
    WireWatch(const WireWatch&) = delete;
    WireWatch& operator=(const WireWatch&) = delete;

    void passed(const Packet& packet) override;

    /// Tells somebody else of the packets too, from now on; null for nobody.
    static void relay(PacketObserver* other);

    /// Forgets the last message: what comes now belongs to the next one.
    static void forget();
    /// Why the last message has no answer; empty if nobody can tell.
    static std::string reason();

private:
    Port& port_;
    Output* shown_;
    PacketObserver* other_ = nullptr;
    MessageFate fate_;
};

}  // namespace tool

#endif
