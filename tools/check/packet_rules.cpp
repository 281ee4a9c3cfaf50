// SPDX-License-Identifier: Apache-2.0
// Rules on the packets of answers (DSP0236, clause 8; DSP0237, DSP0238).
#include <sideband/mctp.h>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

// The transport header (DSP0236, clause 8.1).
constexpr size_t kHeaderSize = 4;
constexpr uint8_t kVersion = 0x01;
constexpr uint8_t kStart = 0x80;
constexpr uint8_t kEnd = 0x40;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagBits = 0x07;
constexpr uint8_t kTypeBits = 0x7F;

/// The header of a packet, and how much of the message it carries.
struct Header {
    uint8_t version = 0;
    uint8_t destination = 0;
    uint8_t source = 0;
    uint8_t flags = 0;
    size_t payload = 0;

    uint8_t sequence() const { return flags >> 4 & 3; }
};

Header header_of(const SeenPacket& packet) {
    sideband::WireReader reader(packet.bytes);
    Header header;
    header.version = reader.u8();
    header.destination = reader.u8();
    header.source = reader.u8();
    header.flags = reader.u8();
    header.payload = reader.remaining();
    return header;
}

/// Questions whose answers the packets are looked at of: short ones, and those that may take
/// several packets.
std::vector<Exchange> sample(Device& device) {
    std::vector<Exchange> exchanges = {recall_control(device, kGetEndpointId),
                                       recall_control(device, kGetMessageTypeSupport)};
    const Bytes types = message_types(device);
    const auto speaks = [&](uint8_t type) {
        return std::find(types.begin(), types.end(), type) != types.end();
    };
    if (speaks(MCTP_MSG_TYPE_PLDM)) {
        const std::pair<uint8_t, Bytes> questions[] = {
            {kMonitoring, Body().u8(0x51).le32(0).le32(0).u8(kGetFirstPart).le16(256).le16(0)},
            {kFru, Body().u8(0x02).le32(0).u8(kGetFirstPart)},
            {kUpdate, Body().u8(0x02)}};
        for (const auto& [type, question] : questions) {
            const std::span<const uint8_t> all = question;
            exchanges.push_back(recall_pldm(device, type, all[0], all.subspan(1)));
        }
    }
    if (speaks(MCTP_MSG_TYPE_NVME_MI)) {
        constexpr uint8_t kVpdRead = 0x05;
        exchanges.push_back(recall_nvme(device, nvme_command(device, kVpdRead, 0, 64)));
    }
    return exchanges;
}

/// The packets of an answer.
std::vector<SeenPacket> answer_of(const Exchange& exchange) {
    std::vector<SeenPacket> received;
    for (const SeenPacket& packet : exchange.packets) {
        if (!packet.sent) {
            received.push_back(packet);
        }
    }
    return received;
}

/// Judges each answer by its packets. @param judge  gives whether they are right
void judge_answers(Device& device, const char* expected,
                   bool (*judge)(std::span<const SeenPacket> packets, const Exchange& exchange)) {
    bool seen = false;
    for (const Exchange& exchange : sample(device)) {
        const std::vector<SeenPacket> packets = answer_of(exchange);
        if (packets.empty()) {
            continue;
        }
        seen = true;
        if (!judge(packets, exchange)) {
            throw Finding{true, expected, {exchange}};
        }
    }
    if (!seen) {
        not_applicable("the platform does not show its packets");
    }
}

/// Judges each packet of each answer by itself.
template <bool (*judge)(const SeenPacket& packet, const Exchange& exchange)>
bool each(std::span<const SeenPacket> packets, const Exchange& exchange) {
    for (const SeenPacket& packet : packets) {
        if (!judge(packet, exchange)) {
            return false;
        }
    }
    return true;
}

/// The request's packet that went out first.
Header request_header(const Exchange& exchange) {
    for (const SeenPacket& packet : exchange.packets) {
        if (packet.sent) {
            return header_of(packet);
        }
    }
    return {};
}

bool version_is_right(const SeenPacket& packet, const Exchange&) {
    return packet.bytes.size() > kHeaderSize && header_of(packet).version == kVersion;
}

void packets_have_the_version(Device& device) {
    judge_answers(device, "header version 1, the reserved bits beside it clear, and a payload",
                  each<version_is_right>);
}

bool ends_are_marked(std::span<const SeenPacket> packets, const Exchange&) {
    for (size_t i = 0; i < packets.size(); ++i) {
        const uint8_t flags = header_of(packets[i]).flags;
        const bool starts = (flags & kStart) != 0;
        const bool ends = (flags & kEnd) != 0;
        if (starts != (i == 0) || ends != (i + 1 == packets.size())) {
            return false;
        }
    }
    return true;
}

void packets_mark_their_ends(Device& device) {
    judge_answers(device, "SOM in the first packet alone, EOM in the last alone", ends_are_marked);
}

bool sequence_is_kept(std::span<const SeenPacket> packets, const Exchange&) {
    for (size_t i = 1; i < packets.size(); ++i) {
        const uint8_t before = header_of(packets[i - 1]).sequence();
        if (header_of(packets[i]).sequence() != ((before + 1) & 3)) {
            return false;
        }
    }
    return true;
}

void packets_are_in_sequence(Device& device) {
    judge_answers(device, "sequence numbers that count modulo 4", sequence_is_kept);
}

bool tag_is_right(const SeenPacket& packet, const Exchange& exchange) {
    constexpr uint8_t kBits = kTagOwner | kTagBits;
    return (header_of(packet).flags & kBits) == (request_header(exchange).flags & kTagBits);
}

void packets_have_the_tag(Device& device) {
    judge_answers(device, "the request's message tag, and TO clear", each<tag_is_right>);
}

bool eids_are_right(const SeenPacket& packet, const Exchange& exchange) {
    const Header request = request_header(exchange);
    const Header header = header_of(packet);
    return header.destination == request.source &&
           (request.destination == 0 || header.source == request.destination);
}

void packets_have_the_eids(Device& device) {
    judge_answers(device, "the EIDs of the request, the other way round", each<eids_are_right>);
}

bool sizes_are_right(std::span<const SeenPacket> packets, const Exchange&) {
    const size_t unit = header_of(packets.front()).payload;
    for (size_t i = 0; i < packets.size(); ++i) {
        const size_t payload = header_of(packets[i]).payload;
        const bool last = i + 1 == packets.size();
        if (last ? payload > unit : payload != unit) {
            return false;
        }
    }
    return true;
}

void packets_have_one_size(Device& device) {
    judge_answers(device, "packets of one size, of which the last may be smaller", sizes_are_right);
}

bool unit_is_the_baseline(std::span<const SeenPacket> packets, const Exchange&) {
    constexpr size_t kBaseline = 64;
    return packets.size() == 1 || header_of(packets.front()).payload >= kBaseline;
}

void packets_have_the_baseline(Device& device) {
    judge_answers(device, "at least 64 bytes in all packets but the last", unit_is_the_baseline);
}

bool type_is_right(std::span<const SeenPacket> packets, const Exchange& exchange) {
    const Bytes& first = packets.front().bytes;
    return first.size() > kHeaderSize && ((first[kHeaderSize] ^ exchange.type) & kTypeBits) == 0;
}

void packets_have_the_type(Device& device) {
    judge_answers(device, "the request's message type", type_is_right);
}

bool control_is_unchecked(std::span<const SeenPacket> packets, const Exchange& exchange) {
    const Bytes& first = packets.front().bytes;
    return exchange.type != MCTP_MSG_TYPE_CONTROL || first.size() <= kHeaderSize ||
           (first[kHeaderSize] & MCTP_MSG_TYPE_INTEGRITY_CHECK) == 0;
}

void control_has_no_check(Device& device) {
    judge_answers(device, "control messages with the IC bit clear", control_is_unchecked);
}

bool pec_is_right(const SeenPacket& packet, const Exchange&) {
    return packet.pec_good;
}

void packets_have_the_pec(Device& device) {
    for (const SeenPacket& packet : recall_control(device, kGetEndpointId).packets) {
        if (!packet.on_smbus) {
            not_applicable("the device is not on SMBus");
        }
    }
    judge_answers(device, "a right PEC behind each packet", each<pec_is_right>);
}

constexpr Rule kRules[] = {
    {"mctp.packet.version", "DSP0236, 8.1", "packets have header version 1 and a payload",
     packets_have_the_version},
    {"mctp.packet.ends", "DSP0236, 8.1", "SOM and EOM are in the first and in the last packet",
     packets_mark_their_ends},
    {"mctp.packet.sequence", "DSP0236, 8.1", "sequence numbers count modulo 4",
     packets_are_in_sequence},
    {"mctp.packet.tag", "DSP0236, 8.1", "an answer has the request's tag, and TO clear",
     packets_have_the_tag},
    {"mctp.packet.eids", "DSP0236, 8.1", "an answer goes to where the request came from",
     packets_have_the_eids},
    {"mctp.packet.size", "DSP0236, message assembly",
     "the packets of a message have one size but for the last", packets_have_one_size},
    {"mctp.packet.baseline", "DSP0236, 8.3.1",
     "packets that others follow have at least 64 bytes of the message", packets_have_the_baseline},
    {"mctp.packet.type", "DSP0236, 8.1", "an answer has the request's message type",
     packets_have_the_type},
    {"mctp.packet.control-check", "DSP0236, 11.1", "control messages have no integrity check",
     control_has_no_check},
    {"mctp.smbus.pec", "DSP0237, PEC", "each packet on SMBus has a right PEC",
     packets_have_the_pec},
};

}  // namespace

std::span<const Rule> packet_rules() {
    return kRules;
}

}  // namespace tool::check
