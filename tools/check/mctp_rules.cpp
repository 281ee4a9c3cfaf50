// SPDX-License-Identifier: Apache-2.0
// Rules on MCTP control messages (DSP0236, clauses 11 and 12).
#include <fmt/format.h>
#include <sideband/mctp.h>

#include <algorithm>
#include <set>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

constexpr uint8_t kBroadcastEid = 0xFF;
constexpr uint8_t kFirstEid = 8;
constexpr uint8_t kMessageTypeUnknown = 0x80;  // of Get MCTP Version Support
constexpr uint8_t kNoCommand = 0x70;           // nobody has defined it

// ---- The header ---------------------------------------------------------------------------------

void request_bit_is_clear(Device& device) {
    const Exchange exchange = recall_control(device, kGetEndpointId);
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(!answer.empty() && (answer[0] & (kRequestBit | kDatagramBit)) == 0, exchange,
           "an answer with Rq and D clear");
}

void header_bit_is_zero(Device& device) {
    const Exchange exchange = recall_control(device, kGetEndpointId);
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(!answer.empty() && (answer[0] & kReservedBit) == 0, exchange,
           "an answer with bit 5 of its first byte clear");
}

void instance_is_echoed(Device& device) {
    for (const uint8_t instance : kInstances) {
        Bytes request = control_request(kGetEndpointId);
        request[0] |= instance;
        const Exchange exchange = device.send(MCTP_MSG_TYPE_CONTROL, request);
        const std::span<const uint8_t> answer = response_of(exchange);
        if (answer.empty() || (answer[0] & kInstanceBits) != instance) {
            fail(exchange, fmt::format("an answer with instance ID {}", instance));
        }
    }
}

void command_is_echoed(Device& device) {
    for (const uint8_t command : {kGetEndpointId, kGetMessageTypeSupport}) {
        const Exchange exchange = recall_control(device, command);
        const std::span<const uint8_t> answer = response_of(exchange);
        expect(answer.size() > 1 && answer[1] == command, exchange,
               "an answer with the command code of the request");
    }
}

void command_is_unsupported(Device& device) {
    expect_control_code(ask_control(device, kNoCommand), kUnsupportedCommand,
                        "ERROR_UNSUPPORTED_CMD");
}

// ---- Get Endpoint ID ----------------------------------------------------------------------------

std::span<const uint8_t> endpoint_id_data(const Exchange& exchange) {
    const std::span<const uint8_t> data = control_data(exchange, "Get Endpoint ID");
    if (data.size() < 2) {
        not_applicable("Get Endpoint ID has no endpoint type");
    }
    return data;
}

void eid_has_its_length(Device& device) {
    expect_control_success(recall_control(device, kGetEndpointId), 6);
}

void eid_is_the_one_spoken_to(Device& device) {
    const Exchange exchange = ask_control(device, kGetEndpointId);
    const uint8_t eid = endpoint_id_data(exchange)[0];
    if (eid != device.channel().eid()) {
        fail(exchange, fmt::format("EID {}, at which the device answers", device.channel().eid()));
    }
}

void eid_reserved_bits_are_zero(Device& device) {
    const Exchange exchange = recall_control(device, kGetEndpointId);
    constexpr uint8_t kReserved = 0xCC;
    expect((endpoint_id_data(exchange)[1] & kReserved) == 0, exchange,
           "an endpoint type with bits 7, 6, 3 and 2 clear");
}

uint8_t endpoint_type(Device& device) {
    const Exchange exchange = recall_control(device, kGetEndpointId);
    return endpoint_id_data(exchange)[1] >> 4 & 3;
}

void endpoint_type_is_defined(Device& device) {
    expect(endpoint_type(device) <= 1, recall_control(device, kGetEndpointId),
           "endpoint type 0 (simple endpoint) or 1 (bus owner or bridge)");
}

void long_eid_request_is_refused(Device& device) {
    expect_control_code(ask_control(device, kGetEndpointId, Bytes{0}), kInvalidLength,
                        "ERROR_INVALID_LENGTH");
}

// ---- Set Endpoint ID ----------------------------------------------------------------------------

void refuses_eid(Device& device, uint8_t eid) {
    expect_control_code(ask_control(device, kSetEndpointId, Bytes{0, eid}), kInvalidData,
                        "ERROR_INVALID_DATA");
}

void null_eid_is_refused(Device& device) {
    refuses_eid(device, 0);
}

void broadcast_eid_is_refused(Device& device) {
    refuses_eid(device, kBroadcastEid);
}

void own_eid_is_accepted(Device& device) {
    const uint8_t eid = device.channel().eid();
    const Exchange exchange = ask_control(device, kSetEndpointId, Bytes{0, eid});
    expect_control_success(exchange, 6);
    const std::span<const uint8_t> data = control_data(exchange, "Set Endpoint ID");
    constexpr uint8_t kAssignment = 0x30;
    constexpr uint8_t kReserved = 0xCC;
    if ((data[0] & kAssignment) == 0) {
        expect(data[1] == eid, exchange, "the EID that was assigned");
    }
    expect((data[0] & kReserved) == 0, exchange, "a status with bits 7, 6, 3 and 2 clear");
}

void short_eid_is_refused(Device& device) {
    expect_control_code(ask_control(device, kSetEndpointId, Bytes{0}), kInvalidLength,
                        "ERROR_INVALID_LENGTH");
}

// ---- Get Endpoint UUID --------------------------------------------------------------------------

constexpr size_t kUuidSize = 16;

Exchange ask_uuid(Device& device) {
    Exchange exchange = ask_control(device, kGetEndpointUuid);
    if (control_code(exchange) == kUnsupportedCommand) {
        not_applicable("the device has no Get Endpoint UUID");
    }
    return exchange;
}

void uuid_has_its_length(Device& device) {
    expect_control_success(ask_uuid(device), kControlHeader + 1 + kUuidSize);
}

void uuid_stays(Device& device) {
    const Exchange first = ask_uuid(device);
    const Exchange second = ask_uuid(device);
    if (!std::ranges::equal(control_data(first, "Get Endpoint UUID"),
                            control_data(second, "Get Endpoint UUID"))) {
        fail({first, second}, "the same UUID twice");
    }
}

void uuid_has_the_variant(Device& device) {
    const Exchange exchange = ask_uuid(device);
    const std::span<const uint8_t> uuid = control_data(exchange, "Get Endpoint UUID");
    if (uuid.size() != kUuidSize) {
        not_applicable("Get Endpoint UUID has no UUID");
    }
    constexpr size_t kVariant = 8;
    expect((uuid[kVariant] & 0xC0) == 0x80, exchange,
           "a UUID whose ninth byte begins with the bits 10, as RFC 4122 has it");
}

// ---- Get MCTP Version Support -------------------------------------------------------------------

constexpr uint8_t kBaseVersion = 0xFF;
constexpr size_t kVersionSize = 4;

/// Ends the rule unless the device tells versions of a message type, and so many as it says.
Exchange expect_versions(Device& device, uint8_t type) {
    Exchange exchange = recall_control(device, kGetVersionSupport, Bytes{type});
    expect_control_code(exchange, kSuccess, "SUCCESS");
    const std::span<const uint8_t> data = control_data(exchange, "Get MCTP Version Support");
    expect(!data.empty() && data[0] != 0, exchange, "at least one version");
    expect(data.size() == 1 + kVersionSize * data[0], exchange,
           "four bytes for each version behind their number");
    return exchange;
}

void base_has_versions(Device& device) {
    expect_versions(device, kBaseVersion);
}

void control_has_versions(Device& device) {
    expect_versions(device, MCTP_MSG_TYPE_CONTROL);
}

void versions_are_encoded(Device& device) {
    const Exchange exchange = recall_control(device, kGetVersionSupport, Bytes{kBaseVersion});
    sideband::WireReader reader(control_data(exchange, "Get MCTP Version Support"));
    reader.skip(1);
    while (reader.remaining() >= kVersionSize) {
        const std::span<const uint8_t> version = reader.bytes(kVersionSize);
        expect(is_version(version[0], version[1], version[2], version[3]), exchange,
               "major, minor and update number in BCD, and a letter or 0");
    }
}

void every_type_has_versions(Device& device) {
    const Bytes types = message_types(device);
    if (types.empty()) {
        not_applicable("the device names no message types");
    }
    for (const uint8_t type : types) {
        expect_versions(device, type);
    }
}

void unknown_type_has_no_version(Device& device) {
    const Bytes types = message_types(device);
    uint8_t type = 0x70;
    while (std::ranges::find(types, type) != types.end()) {
        --type;
    }
    expect_control_code(ask_control(device, kGetVersionSupport, Bytes{type}), kMessageTypeUnknown,
                        "message type number not supported");
}

void short_version_request_is_refused(Device& device) {
    expect_control_code(ask_control(device, kGetVersionSupport), kInvalidLength,
                        "ERROR_INVALID_LENGTH");
}

// ---- Get Message Type Support -------------------------------------------------------------------

void types_have_their_length(Device& device) {
    const Exchange exchange = recall_control(device, kGetMessageTypeSupport);
    expect_control_code(exchange, kSuccess, "SUCCESS");
    const std::span<const uint8_t> data = control_data(exchange, "Get Message Type Support");
    expect(!data.empty() && data.size() == 1U + data[0], exchange,
           "a byte for each message type behind their number");
}

void types_are_proper(Device& device) {
    const Exchange exchange = recall_control(device, kGetMessageTypeSupport);
    const Bytes types = message_types(device);
    const std::set<uint8_t> once(types.begin(), types.end());
    expect(once.size() == types.size(), exchange, "each message type once");
    expect(std::ranges::none_of(types, [](uint8_t type) { return (type & 0x80) != 0; }), exchange,
           "message types, which have seven bits");
}

// ---- Get Routing Table Entries ------------------------------------------------------------------

constexpr uint8_t kLastEntry = 0xFF;

/// One answer of the table.
struct TablePart {
    Exchange exchange;
    uint8_t next = kLastEntry;
    bool whole = false;                             ///< its entries end with it
    std::vector<std::pair<uint8_t, uint8_t>> eids;  ///< range size and first EID of its entries
};

TablePart read_table(Device& device, uint8_t handle) {
    TablePart part;
    part.exchange = recall_control(device, kGetRoutingTableEntries, Bytes{handle});
    if (endpoint_type(device) == 0) {
        not_applicable("the device says that it is a simple endpoint");
    }
    if (control_code(part.exchange) == kUnsupportedCommand) {
        not_applicable("the device has no Get Routing Table Entries");
    }
    expect_control_code(part.exchange, kSuccess, "SUCCESS");
    sideband::WireReader reader(control_data(part.exchange, "Get Routing Table Entries"));
    part.next = reader.u8();
    for (int left = reader.u8(); left > 0 && reader.ok(); --left) {
        constexpr size_t kTypeBindingMedia = 3;
        const uint8_t size = reader.u8();
        part.eids.emplace_back(size, reader.u8());
        reader.skip(kTypeBindingMedia);
        reader.skip(reader.u8());
    }
    part.whole = reader.ok() && reader.remaining() == 0;
    return part;
}

/// Does something with each part of the table; ends if the table does not.
template <typename Judge>
void walk_table(Device& device, Judge judge) {
    std::set<uint8_t> seen;
    uint8_t handle = 0;
    do {
        const TablePart part = read_table(device, handle);
        judge(part);
        expect(seen.insert(handle).second, part.exchange, "a handle that was not there before");
        handle = part.next;
    } while (handle != kLastEntry);
}

void routes_end(Device& device) {
    walk_table(device, [](const TablePart&) {});
}

void routes_have_their_length(Device& device) {
    const TablePart part = read_table(device, 0);
    expect(part.whole, part.exchange, "as many entries as their number says, and nothing else");
}

void routes_have_eids(Device& device) {
    const TablePart part = read_table(device, 0);
    for (const auto& [size, first] : part.eids) {
        expect(size != 0 && first >= kFirstEid && first + size <= kBroadcastEid, part.exchange,
               "ranges of at least one EID, from 8 to 254");
    }
}

constexpr Rule kRules[] = {
    {"mctp.control.request-bit", "DSP0236, 11.1", "an answer has Rq and D clear",
     request_bit_is_clear},
    {"mctp.control.reserved-bit", "DSP0236, 11.1", "bit 5 of an answer's first byte is clear",
     header_bit_is_zero},
    {"mctp.control.instance-id", "DSP0236, 11.1", "an answer has the request's instance ID",
     instance_is_echoed},
    {"mctp.control.command-code", "DSP0236, 11.1", "an answer has the request's command code",
     command_is_echoed},
    {"mctp.control.unsupported", "DSP0236, table 13",
     "a command that nobody has defined is answered with ERROR_UNSUPPORTED_CMD",
     command_is_unsupported},
    {"mctp.eid.length", "DSP0236, 12.4", "Get Endpoint ID succeeds, with six bytes",
     eid_has_its_length},
    {"mctp.eid.agrees", "DSP0236, 12.4", "the EID is the one at which the device answers",
     eid_is_the_one_spoken_to},
    {"mctp.eid.reserved-bits", "DSP0236, 12.4", "the endpoint type has its reserved bits clear",
     eid_reserved_bits_are_zero},
    {"mctp.eid.endpoint-type", "DSP0236, 12.4", "the endpoint type is one that is defined",
     endpoint_type_is_defined},
    {"mctp.eid.request-too-long", "DSP0236, table 13",
     "Get Endpoint ID with a byte too many is answered with ERROR_INVALID_LENGTH",
     long_eid_request_is_refused},
    {"mctp.set-eid.null", "DSP0236, 12.3", "EID 0 is refused with ERROR_INVALID_DATA",
     null_eid_is_refused, true},
    {"mctp.set-eid.broadcast", "DSP0236, 12.3", "EID 0xff is refused with ERROR_INVALID_DATA",
     broadcast_eid_is_refused, true},
    {"mctp.set-eid.own", "DSP0236, 12.3", "the EID that the device has can be set again",
     own_eid_is_accepted, true},
    {"mctp.set-eid.request-too-short", "DSP0236, table 13",
     "Set Endpoint ID without an EID is answered with ERROR_INVALID_LENGTH", short_eid_is_refused,
     true},
    {"mctp.uuid.length", "DSP0236, 12.5", "Get Endpoint UUID succeeds, with 16 bytes of UUID",
     uuid_has_its_length},
    {"mctp.uuid.stable", "DSP0236, 12.5", "the UUID stays", uuid_stays},
    {"mctp.uuid.variant", "DSP0236, 12.5", "the UUID has the variant of RFC 4122",
     uuid_has_the_variant},
    {"mctp.version.base", "DSP0236, 12.6", "the versions of the base specification are told",
     base_has_versions},
    {"mctp.version.control", "DSP0236, 12.6", "the versions of the control protocol are told",
     control_has_versions},
    {"mctp.version.encoding", "DSP0236, 12.6", "version numbers are in BCD", versions_are_encoded},
    {"mctp.version.every-type", "DSP0236, 12.6",
     "the versions of each message type that the device names are told", every_type_has_versions},
    {"mctp.version.unknown-type", "DSP0236, 12.6",
     "the version of another message type is refused with code 0x80", unknown_type_has_no_version},
    {"mctp.version.request-too-short", "DSP0236, table 13",
     "Get MCTP Version Support without a type is answered with ERROR_INVALID_LENGTH",
     short_version_request_is_refused},
    {"mctp.types.length", "DSP0236, 12.7", "Get Message Type Support names as many as it says",
     types_have_their_length},
    {"mctp.types.proper", "DSP0236, 12.7", "message types have seven bits and are named once",
     types_are_proper},
    {"mctp.routes.end", "DSP0236, 12.12", "the routing table comes to its end", routes_end},
    {"mctp.routes.length", "DSP0236, 12.12", "its entries are as many as their number says",
     routes_have_their_length},
    {"mctp.routes.eids", "DSP0236, 12.12", "its entries have EIDs from 8 to 254", routes_have_eids},
};

}  // namespace

std::span<const Rule> mctp_rules() {
    return kRules;
}

}  // namespace tool::check
