// SPDX-License-Identifier: Apache-2.0
// Rules on NC-SI control packets (DSP0222, over MCTP as in DSP0261).
#include <fmt/format.h>
#include <sideband/mctp.h>

#include <algorithm>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

// The header (DSP0222, clause 8.2.1).
constexpr size_t kHeaderSize = 16;
constexpr size_t kController = 0;
constexpr size_t kRevision = 1;
constexpr size_t kReserved = 2;
constexpr size_t kInstance = 3;
constexpr size_t kType = 4;
constexpr size_t kChannel = 5;
constexpr size_t kLength = 6;
constexpr size_t kReservedEnd = 8;
constexpr uint16_t kLengthBits = 0x0FFF;
constexpr uint8_t kThisRevision = 1;
constexpr uint8_t kResponse = 0x80;
constexpr size_t kCodesSize = 4;
constexpr size_t kChecksumSize = 4;

enum PacketType : uint8_t {
    kClearInitialState = 0x00,
    kSelectPackage = 0x01,
    kGetLinkStatus = 0x0A,
    kNoPacketType = 0x7D,  // nobody has defined it
};

// Response and reason codes.
constexpr uint16_t kCompleted = 0x0000;
constexpr uint16_t kFailed = 0x0001;
constexpr uint16_t kUnsupported = 0x0003;
constexpr uint16_t kNoReason = 0x0000;
constexpr uint16_t kNeedsInitialisation = 0x0001;
constexpr uint16_t kInvalidLengthReason = 0x0005;
constexpr uint16_t kUnknownCommand = 0x7FFF;

constexpr uint8_t kWholePackage = 0x1F;
constexpr uint8_t kPackages = 8;

size_t padded(size_t size) {
    return (size + 3) / 4 * 4;
}

/// @param checksum  0 says that there is none
Bytes packet(uint8_t type, uint8_t channel, std::span<const uint8_t> payload = {},
             uint32_t checksum = 0) {
    Bytes bytes = Body()
                      .u8(0)
                      .u8(kThisRevision)
                      .u8(0)
                      .u8(0)
                      .u8(type)
                      .u8(channel)
                      .be16(static_cast<uint16_t>(payload.size()))
                      .le32(0)
                      .le32(0)
                      .bytes(payload);
    bytes.resize(padded(bytes.size()));
    return Body().bytes(bytes).be32(checksum);
}

Exchange ask(Device& device, const Bytes& request) {
    return device.ask(MCTP_MSG_TYPE_NCSI, request);
}

/// The first channel that answers.
struct Channel {
    bool found = false;
    uint8_t id = 0;  ///< package and internal channel
};

Channel find_channel(Device& device) {
    for (uint8_t package = 0; package < kPackages; ++package) {
        const auto id = static_cast<uint8_t>(package << 5);
        if (ask(device, packet(kGetLinkStatus, id)).response) {
            return {true, id};
        }
    }
    return {};
}

uint8_t channel_of(Device& device) {
    need_message_type(device, MCTP_MSG_TYPE_NCSI, "NC-SI");
    const Channel& channel = device.once(find_channel);
    if (!channel.found) {
        not_applicable("the first channel of no package answers");
    }
    return channel.id;
}

/// An answer in any state of the channel.
Exchange any_answer(Device& device) {
    return device.recall(MCTP_MSG_TYPE_NCSI, packet(kGetLinkStatus, channel_of(device)));
}

/// Its bytes; the rule ends, for another one to judge, if there are too few.
std::span<const uint8_t> whole_header(const Exchange& exchange) {
    const std::span<const uint8_t> answer = response_of(exchange);
    if (answer.size() < kHeaderSize + kCodesSize) {
        not_applicable("the answer is too short");
    }
    return answer;
}

struct Codes {
    uint16_t response = 0xFFFF;
    uint16_t reason = 0xFFFF;
};

Codes codes_of(const Exchange& exchange) {
    const std::span<const uint8_t> answer = response_of(exchange);
    if (answer.size() < kHeaderSize + kCodesSize) {
        return {};
    }
    sideband::WireReader reader(answer.subspan(kHeaderSize));
    Codes codes;
    codes.response = reader.be16();
    codes.reason = reader.be16();
    return codes;
}

void expect_codes(const Exchange& exchange, uint16_t response, uint16_t reason) {
    const Codes codes = codes_of(exchange);
    if (codes.response != response || codes.reason != reason) {
        fail(exchange,
             fmt::format("response code 0x{:04x}, reason code 0x{:04x}", response, reason));
    }
}

uint16_t payload_length(std::span<const uint8_t> answer) {
    sideband::WireReader reader(answer.subspan(kLength));
    return reader.be16() & kLengthBits;
}

/// Whether an answer is as long as its payload length says: header, codes and data, padding, and
/// the checksum.
bool fits(std::span<const uint8_t> answer) {
    const size_t length = payload_length(answer);
    return length >= kCodesSize && answer.size() == kHeaderSize + padded(length) + kChecksumSize;
}

// ---- The header ---------------------------------------------------------------------------------

void channel_answers(Device& device) {
    need_message_type(device, MCTP_MSG_TYPE_NCSI, "NC-SI");
    const Channel& channel = device.once(find_channel);
    const Exchange exchange = ask(device, packet(kGetLinkStatus, channel.id));
    constexpr size_t kShortest = kHeaderSize + kCodesSize + kChecksumSize;
    expect(response_of(exchange).size() >= kShortest, exchange,
           "an answer of at least 24 bytes from the first channel of a package");
}

void revision_is_one(Device& device) {
    const Exchange exchange = any_answer(device);
    expect(whole_header(exchange)[kRevision] == kThisRevision, exchange, "header revision 1");
}

void reserved_bytes_are_zero(Device& device) {
    const Exchange exchange = any_answer(device);
    const std::span<const uint8_t> answer = whole_header(exchange);
    const std::span<const uint8_t> last = answer.subspan(kReservedEnd, kHeaderSize - kReservedEnd);
    expect(answer[kReserved] == 0 && answer[kLength] >> 4 == 0 &&
               std::ranges::all_of(last, [](uint8_t byte) { return byte == 0; }),
           exchange, "reserved bits and bytes of zero");
}

void controller_is_echoed(Device& device) {
    Bytes request = packet(kGetLinkStatus, channel_of(device));
    request[kController] = 0x5A;
    const Exchange exchange = ask(device, request);
    expect(whole_header(exchange)[kController] == 0x5A, exchange, "the request's MC ID");
}

void instance_is_echoed(Device& device) {
    constexpr uint8_t kTried[] = {0x01, 0x7F, 0xFE};
    for (const uint8_t instance : kTried) {
        Bytes request = packet(kGetLinkStatus, channel_of(device));
        request[kInstance] = instance;
        const Exchange exchange = device.send(MCTP_MSG_TYPE_NCSI, request);
        if (whole_header(exchange)[kInstance] != instance) {
            fail(exchange, fmt::format("an answer with instance ID 0x{:02x}", instance));
        }
    }
}

void type_is_that_of_a_response(Device& device) {
    const Exchange exchange = any_answer(device);
    expect(whole_header(exchange)[kType] == (kGetLinkStatus | kResponse), exchange,
           "control packet type 0x8a, the request's with bit 7 set");
}

void channel_is_echoed(Device& device) {
    const Exchange exchange = any_answer(device);
    expect(whole_header(exchange)[kChannel] == channel_of(device), exchange,
           "the request's channel ID");
}

void payload_has_its_length(Device& device) {
    const Exchange exchange = any_answer(device);
    expect(fits(whole_header(exchange)), exchange,
           "a payload as long as its length says, padded, and a checksum");
}

void checksum_is_right(Device& device) {
    const Exchange exchange = any_answer(device);
    const std::span<const uint8_t> answer = whole_header(exchange);
    const size_t summed = kHeaderSize + padded(payload_length(answer));
    if (answer.size() < summed + kChecksumSize) {
        not_applicable("the answer has no checksum");
    }
    sideband::WireReader words(answer.first(summed));
    uint32_t sum = 0;
    while (words.remaining() >= 2) {
        sum += words.be16();
    }
    sideband::WireReader behind(answer.subspan(summed));
    const uint32_t checksum = behind.be32();
    if (checksum != 0 && checksum != ~sum + 1) {
        fail(exchange, fmt::format("checksum 0, or 0x{:08x}", ~sum + 1));
    }
}

void wrong_checksum_is_dropped(Device& device) {
    const Exchange exchange =
        ask(device, packet(kGetLinkStatus, channel_of(device), {}, 0x12345678));
    expect(!exchange.response, exchange, "no answer to a packet with a wrong checksum");
}

// ---- Codes --------------------------------------------------------------------------------------

void completion_has_no_reason(Device& device) {
    const Exchange exchange = any_answer(device);
    whole_header(exchange);
    const Codes codes = codes_of(exchange);
    constexpr uint16_t kLastCode = 4;
    constexpr uint16_t kFirstOfVendor = 0x8000;
    expect(codes.response <= kLastCode || codes.response >= kFirstOfVendor, exchange,
           "a response code that is defined");
    expect(codes.response != kCompleted || codes.reason == kNoReason, exchange,
           "reason code 0 with response code 0");
}

void repetition_has_the_same_answer(Device& device) {
    Bytes request = packet(kGetLinkStatus, channel_of(device));
    request[kInstance] = 0x31;
    const Exchange once = device.send(MCTP_MSG_TYPE_NCSI, request);
    whole_header(once);
    const Exchange twice = device.send(MCTP_MSG_TYPE_NCSI, request);
    const Codes first = codes_of(once);
    const Codes second = codes_of(twice);
    if (first.response != second.response || first.reason != second.reason) {
        fail({once, twice}, "the same codes when a command is sent again");
    }
}

void unknown_command_is_unsupported(Device& device) {
    const Exchange exchange = ask(device, packet(kNoPacketType, channel_of(device)));
    const Codes codes = codes_of(exchange);
    const bool initial_state = codes.response == kFailed && codes.reason == kNeedsInitialisation;
    if (!initial_state) {
        expect_codes(exchange, kUnsupported, kUnknownCommand);
    }
}

void select_completes(Device& device) {
    const auto package = static_cast<uint8_t>(channel_of(device) | kWholePackage);
    // Hardware arbitration is off.
    expect_codes(ask(device, packet(kSelectPackage, package, Bytes{0, 0, 0, 1})), kCompleted,
                 kNoReason);
}

void initial_state_is_cleared(Device& device) {
    expect_codes(ask(device, packet(kClearInitialState, channel_of(device))), kCompleted,
                 kNoReason);
}

/// Takes the channel out of its initial state.
uint8_t ready_channel(Device& device) {
    const uint8_t channel = channel_of(device);
    const Exchange exchange = ask(device, packet(kClearInitialState, channel));
    if (codes_of(exchange).response != kCompleted) {
        not_applicable("Clear Initial State does not complete");
    }
    return channel;
}

void link_status_completes(Device& device) {
    const Exchange exchange = ask(device, packet(kGetLinkStatus, ready_channel(device)));
    expect_codes(exchange, kCompleted, kNoReason);
    constexpr uint16_t kShortest = 16;
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(payload_length(answer) >= kShortest && fits(answer), exchange,
           "a payload of at least 16 bytes, as long as its length says");
}

void long_payload_is_refused(Device& device) {
    expect_codes(ask(device, packet(kGetLinkStatus, ready_channel(device), Bytes(4))), kFailed,
                 kInvalidLengthReason);
}

void ready_channel_knows_no_command(Device& device) {
    expect_codes(ask(device, packet(kNoPacketType, ready_channel(device))), kUnsupported,
                 kUnknownCommand);
}

constexpr Rule kRules[] = {
    {"ncsi.answer", "DSP0222, Get Link Status", "a channel answers Get Link Status, in any state",
     channel_answers},
    {"ncsi.header.revision", "DSP0222, 8.2.1", "an answer has header revision 1", revision_is_one},
    {"ncsi.header.reserved", "DSP0222, 8.2.1", "reserved bits are clear", reserved_bytes_are_zero},
    {"ncsi.header.mc-id", "DSP0222, 8.2.1", "an answer has the request's MC ID",
     controller_is_echoed},
    {"ncsi.header.instance-id", "DSP0222, 8.2.1", "an answer has the request's instance ID",
     instance_is_echoed},
    {"ncsi.header.type", "DSP0222, 8.2.1", "an answer has the request's type with bit 7 set",
     type_is_that_of_a_response},
    {"ncsi.header.channel", "DSP0222, 8.2.1", "an answer has the request's channel ID",
     channel_is_echoed},
    {"ncsi.payload.length", "DSP0222, 8.2.1", "an answer is as long as its payload length says",
     payload_has_its_length},
    {"ncsi.checksum", "DSP0222, 8.2.2.3", "an answer's checksum is right, or 0", checksum_is_right},
    {"ncsi.checksum.request", "DSP0222, 8.2.2.3", "a packet with a wrong checksum gets no answer",
     wrong_checksum_is_dropped},
    {"ncsi.codes", "DSP0222, response codes", "response codes are defined, and reasons fit",
     completion_has_no_reason},
    {"ncsi.repeat", "DSP0222, instance ID", "a command that is sent again has the same codes",
     repetition_has_the_same_answer},
    {"ncsi.unknown-command", "DSP0222, reason codes",
     "a command that nobody has defined is unsupported, or needs initialisation first",
     unknown_command_is_unsupported},
    {"ncsi.select", "DSP0222, Select Package", "Select Package completes", select_completes, true},
    {"ncsi.clear-initial-state", "DSP0222, Clear Initial State", "Clear Initial State completes",
     initial_state_is_cleared, true},
    {"ncsi.link.length", "DSP0222, Get Link Status",
     "Get Link Status then completes, with 16 bytes", link_status_completes, true},
    {"ncsi.link.payload-length", "DSP0222, reason codes",
     "Get Link Status with a payload is refused with reason code 5", long_payload_is_refused, true},
    {"ncsi.ready.unknown-command", "DSP0222, reason codes",
     "a command that nobody has defined is then unsupported", ready_channel_knows_no_command, true},
};

}  // namespace

std::span<const Rule> ncsi_rules() {
    return kRules;
}

}  // namespace tool::check
