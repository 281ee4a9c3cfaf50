// SPDX-License-Identifier: Apache-2.0
// A device's MCTP packet layer: reassembly of what it gets, splitting of what it sends (DSP0236).
#include "sim/mctp/endpoint.h"

#include <algorithm>

namespace sim {

namespace {
// Transport header, DSP0236, clause 8.1.
constexpr uint8_t kHeaderVersion = 1;
constexpr uint8_t kStart = 0x80;
constexpr uint8_t kEnd = 0x40;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagBits = 0x0F;
constexpr uint8_t kBroadcastEid = 0xFF;

constexpr size_t kLongestMessage = 65'536;
constexpr size_t kMostAssemblies = 16;

uint8_t sequence_of(uint8_t flags) {
    return flags >> 4 & 3;
}
}  // namespace

MctpEndpoint::MctpEndpoint(uint8_t eid, size_t unit, bool lenient_ending)
    : eid_(eid), unit_(unit), lenient_ending_(lenient_ending) {}

MctpEndpoint::Assembly* MctpEndpoint::find(uint8_t source_eid, uint8_t tag_bits) {
    for (Assembly& assembly : assemblies_) {
        if (assembly.source_eid == source_eid && assembly.tag_bits == tag_bits) {
            return &assembly;
        }
    }
    return nullptr;
}

void MctpEndpoint::drop(const Assembly* assembly) {
    assemblies_.erase(assemblies_.begin() + (assembly - assemblies_.data()));
}

MctpEndpoint::Assembly* MctpEndpoint::begin(ByteView packet) {
    const uint8_t tag_bits = packet[3] & kTagBits;
    if (const Assembly* unfinished = find(packet[2], tag_bits)) {
        drop(unfinished);
    }
    if (assemblies_.size() >= kMostAssemblies) {
        drop(&assemblies_.front());
    }
    Assembly& assembly = assemblies_.emplace_back();
    assembly.source_eid = packet[2];
    assembly.destination_eid = packet[1];
    assembly.tag_bits = tag_bits;
    assembly.unit = packet.size() - kHeaderSize;
    return &assembly;
}

std::optional<Message> MctpEndpoint::finish(Assembly* assembly) {
    Message message;
    message.type = assembly->bytes[0];
    message.body.assign(assembly->bytes.begin() + 1, assembly->bytes.end());
    message.source_eid = assembly->source_eid;
    message.destination_eid = assembly->destination_eid;
    message.tag = assembly->tag_bits & 7;
    message.tag_owner = (assembly->tag_bits & kTagOwner) != 0;
    drop(assembly);
    return message;
}

std::optional<Message> MctpEndpoint::receive(ByteView packet) {
    if (packet.size() < kHeaderSize + 1 || (packet[0] & 0x0F) != kHeaderVersion) {
        return std::nullopt;
    }
    const uint8_t destination = packet[1];
    if (destination != 0 && destination != eid_ && destination != kBroadcastEid && !accepts_all_) {
        return std::nullopt;
    }
    const uint8_t flags = packet[3];
    const ByteView payload = packet.subspan(kHeaderSize);

    Assembly* assembly = (flags & kStart) != 0 ? begin(packet) : find(packet[2], flags & kTagBits);
    if (assembly == nullptr) {
        return std::nullopt;
    }
    if ((flags & kStart) == 0) {
        // DSP0236, clause 8.8: a gap in the sequence, or a middle packet of another size, ends
        // the assembly.
        const bool in_sequence = sequence_of(flags) == ((assembly->sequence + 1) & 3);
        const bool fits = (flags & kEnd) != 0 ? payload.size() <= assembly->unit
                                              : payload.size() == assembly->unit;
        if (!in_sequence || !fits || assembly->bytes.size() + payload.size() > kLongestMessage) {
            drop(assembly);
            return std::nullopt;
        }
    }
    assembly->sequence = sequence_of(flags);
    assembly->last = payload.size();
    ++assembly->packets;
    append(assembly->bytes, payload);
    return (flags & kEnd) != 0 ? finish(assembly) : std::nullopt;
}

std::optional<Message> MctpEndpoint::sender_waits() {
    if (!lenient_ending_) {
        return std::nullopt;
    }
    for (Assembly& assembly : assemblies_) {
        if (assembly.packets >= 2 && assembly.last == assembly.unit) {
            return finish(&assembly);
        }
    }
    return std::nullopt;
}

std::vector<Bytes> MctpEndpoint::split(const Message& message) const {
    Bytes all{message.type};
    append(all, message.body);
    const size_t unit = std::min(unit_, unit_limit_);
    std::vector<Bytes> packets;
    for (size_t at = 0; at < all.size(); at += unit) {
        const size_t chunk = std::min(unit, all.size() - at);
        auto flags = static_cast<uint8_t>((packets.size() & 3) << 4 | (message.tag & 7));
        if (message.tag_owner) {
            flags |= kTagOwner;
        }
        if (at == 0) {
            flags |= kStart;
        }
        if (at + chunk == all.size()) {
            flags |= kEnd;
        }
        Bytes packet{kHeaderVersion, message.destination_eid, message.source_eid, flags};
        append(packet, ByteView(all).subspan(at, chunk));
        packets.push_back(std::move(packet));
    }
    return packets;
}

void MctpEndpoint::reset() {
    assemblies_.clear();
}

}  // namespace sim
