// SPDX-License-Identifier: Apache-2.0
// What the tool makes of the packets on the buses: a line for each, and why a request got no
// answer.
#include "tools/shell/wire_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "tools/shell/endpoint_name.h"

namespace tool {
namespace {

// The MCTP transport header (DSP0236, clause 8.1).
constexpr size_t kHeaderSize = 4;
constexpr size_t kFlagsAt = 3;
constexpr uint8_t kStartOfMessage = 0x80;
constexpr uint8_t kEndOfMessage = 0x40;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagBits = 0x07;

WireWatch* standing = nullptr;

std::string spaced_hex(std::span<const uint8_t> bytes) {
    std::string text;
    for (uint8_t byte : bytes) {
        text += fmt::format(" {:02x}", byte);
    }
    return text;
}

std::string place_of(const Packet& packet) {
    Endpoint endpoint;
    endpoint.transport = packet.transport;
    endpoint.bus = packet.bus;
    endpoint.address = packet.address;
    endpoint.bdf = packet.bdf;
    return endpoint_location(endpoint);
}

/// What came of it, if that is not the usual.
const char* remark(const Packet& packet) {
    if (!packet.taken) {
        return packet.transport == Transport::kI2c ? "  (no acknowledge)" : "  (lost)";
    }
    return packet.pec_good ? "" : "  (bad PEC)";
}

}  // namespace

std::string packet_text(const Packet& packet) {
    const size_t header = std::min(kHeaderSize, packet.bytes.size());
    return fmt::format("packet: {:10.6f} {} {} {} {}{}", static_cast<double>(packet.at_ns) * 1e-9,
                       packet.sent ? '>' : '<', place_of(packet),
                       spaced_hex(packet.bytes.first(header)),
                       spaced_hex(packet.bytes.subspan(header)), remark(packet));
}

void MessageFate::note(const Packet& packet) {
    if (packet.bytes.size() <= kFlagsAt) {
        return;
    }
    if (packet.sent) {
        note_sent(packet);
    } else {
        note_received(packet);
    }
}

void MessageFate::note_sent(const Packet& packet) {
    const bool repeated =
        std::equal(packet.bytes.begin(), packet.bytes.end(), untaken_.begin(), untaken_.end());
    const uint8_t flags = packet.bytes[kFlagsAt];
    if ((flags & kStartOfMessage) != 0) {
        *this = {};
        place_ = place_of(packet);
        tag_ = flags & kTagBits;
    } else if (!untaken_.empty() && !repeated) {
        abandoned_ = true;
    }
    untaken_.clear();
    if (!packet.taken && packet.transport == Transport::kI2c) {
        untaken_.assign(packet.bytes.begin(), packet.bytes.end());
    }
}

/// Only what can be an answer counts, not what the device asks by itself.
void MessageFate::note_received(const Packet& packet) {
    const uint8_t flags = packet.bytes[kFlagsAt];
    if ((flags & kTagOwner) != 0 || place_of(packet) != place_) {
        return;
    }
    if (!packet.pec_good) {
        spoilt_ = true;
    } else if ((flags & kTagBits) != tag_) {
        other_tag_ = flags & kTagBits;
    } else {
        begun_ = true;
        ended_ |= (flags & kEndOfMessage) != 0;
    }
}

std::string MessageFate::reason() const {
    if (abandoned_ || !untaken_.empty()) {
        return "no acknowledge from " + place_;
    }
    if (spoilt_) {
        return "the answer came with a bad PEC";
    }
    if (begun_) {
        return ended_ ? "" : "only a part of the answer came";
    }
    return other_tag_
               ? fmt::format("the answer carries message tag {} instead of {}", *other_tag_, tag_)
               : "";
}

WireWatch::WireWatch(Port& port, Output* shown) : port_(port), shown_(shown) {
    standing = this;
    port_.observe(this);
}

WireWatch::~WireWatch() {
    port_.observe(nullptr);
    standing = nullptr;
}

void WireWatch::passed(const Packet& packet) {
    fate_.note(packet);
    if (shown_ != nullptr) {
        shown_->note(packet_text(packet));
    }
    if (other_ != nullptr) {
        other_->passed(packet);
    }
}

void WireWatch::relay(PacketObserver* other) {
    if (standing != nullptr) {
        standing->other_ = other;
    }
}

void WireWatch::forget() {
    if (standing != nullptr) {
        standing->fate_ = {};
        standing->port_.forget_complaint();
    }
}

std::string WireWatch::reason() {
    if (standing == nullptr) {
        return "";
    }
    const std::string seen = standing->fate_.reason();
    return seen.empty() ? standing->port_.complaint() : seen;
}

}  // namespace tool
