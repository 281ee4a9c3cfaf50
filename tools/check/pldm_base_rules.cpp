// SPDX-License-Identifier: Apache-2.0
// Rules on PLDM messages and the base commands (DSP0240).
#include <fmt/format.h>
#include <sideband/mctp.h>

#include <algorithm>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

constexpr uint8_t kNoCommand = 0x7F;  // nobody has defined it
constexpr uint8_t kNoTid = 0xFF;

// Completion codes of the base commands.
constexpr uint8_t kInvalidOperationFlag = 0x81;
constexpr uint8_t kTypeNotInRequest = 0x83;
constexpr uint8_t kVersionNotInRequest = 0x84;
constexpr uint8_t kInvalidPldmType = 0x20;

void need_pldm(Device& device) {
    need_message_type(device, MCTP_MSG_TYPE_PLDM, "PLDM");
}

// ---- The header ---------------------------------------------------------------------------------

void request_bit_is_clear(Device& device) {
    need_pldm(device);
    const Exchange exchange = recall_pldm(device, kBase, kGetTid);
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(!answer.empty() && (answer[0] & (kRequestBit | kDatagramBit)) == 0, exchange,
           "an answer with Rq and D clear");
}

void header_bit_is_zero(Device& device) {
    need_pldm(device);
    const Exchange exchange = recall_pldm(device, kBase, kGetTid);
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(!answer.empty() && (answer[0] & kReservedBit) == 0, exchange,
           "an answer with bit 5 of its first byte clear");
}

void instance_is_echoed(Device& device) {
    need_pldm(device);
    for (const uint8_t instance : kInstances) {
        Bytes request = pldm_request(kBase, kGetTid);
        request[0] |= instance;
        const Exchange exchange = device.send(MCTP_MSG_TYPE_PLDM, request);
        const std::span<const uint8_t> answer = response_of(exchange);
        if (answer.empty() || (answer[0] & kInstanceBits) != instance) {
            fail(exchange, fmt::format("an answer with instance ID {}", instance));
        }
    }
}

void header_version_is_zero(Device& device) {
    need_pldm(device);
    const Exchange exchange = recall_pldm(device, kBase, kGetPldmTypes);
    const std::span<const uint8_t> answer = response_of(exchange);
    expect(answer.size() > 1 && answer[1] >> 6 == 0, exchange, "an answer with header version 0");
}

void command_is_echoed(Device& device) {
    need_pldm(device);
    for (const uint8_t command : {kGetTid, kGetPldmTypes}) {
        const Exchange exchange = recall_pldm(device, kBase, command);
        const std::span<const uint8_t> answer = response_of(exchange);
        constexpr uint8_t kTypeBits = 0x3F;
        expect(answer.size() > 2 && (answer[1] & kTypeBits) == kBase && answer[2] == command,
               exchange, "an answer with PLDM type and command of the request");
    }
}

void datagram_has_no_answer(Device& device) {
    need_pldm(device);
    Bytes request = pldm_request(kBase, kGetTid);
    request[0] |= kDatagramBit;
    const Exchange exchange = device.ask(MCTP_MSG_TYPE_PLDM, request);
    expect(!exchange.response, exchange, "no answer to a datagram");
}

void command_is_unsupported(Device& device) {
    need_pldm(device);
    expect_pldm_code(ask_pldm(device, kBase, kNoCommand), kUnsupportedCommand,
                     "ERROR_UNSUPPORTED_PLDM_CMD");
}

/// A PLDM type that the device does not name.
uint8_t unknown_type(Device& device) {
    need_pldm(device);
    const Bytes types = pldm_types(device);
    uint8_t type = 0x3E;
    while (type > 0 && std::ranges::find(types, type) != types.end()) {
        --type;
    }
    if (type == 0) {
        not_applicable("the device names every PLDM type");
    }
    return type;
}

void type_is_unsupported(Device& device) {
    expect_pldm_code(ask_pldm(device, unknown_type(device), 1), kInvalidPldmType,
                     "ERROR_INVALID_PLDM_TYPE");
}

// ---- SetTID, GetTID -----------------------------------------------------------------------------

void tid_has_its_length(Device& device) {
    need_pldm_command(device, kBase, kGetTid, "GetTID");
    expect_pldm_success(recall_pldm(device, kBase, kGetTid), 5);
}

uint8_t tid_of(const Exchange& exchange) {
    sideband::WireReader reader(pldm_data(exchange, "GetTID"));
    const uint8_t tid = reader.u8();
    if (!reader.ok()) {
        not_applicable("GetTID has no TID");
    }
    return tid;
}

void tid_is_not_reserved(Device& device) {
    need_pldm(device);
    const Exchange exchange = recall_pldm(device, kBase, kGetTid);
    expect(tid_of(exchange) != kNoTid, exchange, "a TID other than 0xff, which is reserved");
}

void long_tid_request_is_refused(Device& device) {
    need_pldm_command(device, kBase, kGetTid, "GetTID");
    expect_pldm_code(ask_pldm(device, kBase, kGetTid, Bytes{0}), kInvalidLength,
                     "ERROR_INVALID_LENGTH");
}

void reserved_tids_are_refused(Device& device) {
    need_pldm_command(device, kBase, kSetTid, "SetTID");
    for (const uint8_t tid : {uint8_t{0}, kNoTid}) {
        expect_pldm_code(ask_pldm(device, kBase, kSetTid, Bytes{tid}), kInvalidData,
                         "ERROR_INVALID_DATA");
    }
}

void own_tid_is_accepted(Device& device) {
    need_pldm_command(device, kBase, kSetTid, "SetTID");
    const uint8_t tid = tid_of(ask_pldm(device, kBase, kGetTid));
    if (tid == 0 || tid == kNoTid) {
        not_applicable("the device has no TID");
    }
    expect_pldm_success(ask_pldm(device, kBase, kSetTid, Bytes{tid}), kPldmHeader + 1);
    const Exchange after = ask_pldm(device, kBase, kGetTid);
    expect(tid_of(after) == tid, after, "the TID that was set");
}

// ---- GetPLDMVersion -----------------------------------------------------------------------------

Exchange ask_version(Device& device, uint8_t operation, uint8_t type) {
    return ask_pldm(device, kBase, kGetPldmVersion, Bytes(Body().le32(0).u8(operation).u8(type)));
}

/// What GetPLDMVersion answers in one part: its flag, and the versions with their checksum.
struct Versions {
    Exchange exchange;
    uint8_t flag = 0;
    Bytes versions;
    uint32_t checksum = 0;
};

Versions versions_of(Device& device, uint8_t type) {
    need_pldm(device);
    Versions known;
    known.exchange = recall_pldm(device, kBase, kGetPldmVersion,
                                 Bytes(Body().le32(0).u8(kGetFirstPart).u8(type)));
    sideband::WireReader reader(pldm_data(known.exchange, "GetPLDMVersion"));
    reader.skip(4);
    known.flag = reader.u8();
    if (known.flag != kOnlyPart || reader.remaining() < 8 || reader.remaining() % 4 != 0) {
        not_applicable("the versions do not come whole in one part");
    }
    const std::span<const uint8_t> versions = reader.bytes(reader.remaining() - 4);
    known.versions.assign(versions.begin(), versions.end());
    known.checksum = reader.le32();
    return known;
}

void every_type_has_a_version(Device& device) {
    need_pldm(device);
    for (const uint8_t type : pldm_types(device)) {
        const Exchange exchange = ask_version(device, kGetFirstPart, type);
        expect_pldm_code(exchange, kSuccess, "SUCCESS");
        constexpr size_t kShortest = kPldmHeader + 1 + 5 + 4 + 4;
        expect(response_of(exchange).size() >= kShortest, exchange,
               "an answer with at least one version and its checksum: 17 bytes");
    }
}

void version_comes_whole(Device& device) {
    need_pldm(device);
    const Exchange exchange = ask_version(device, kGetFirstPart, kBase);
    sideband::WireReader reader(pldm_data(exchange, "GetPLDMVersion"));
    reader.skip(4);
    const uint8_t flag = reader.u8();
    expect(reader.ok() && (flag == 1 || flag == kOnlyPart), exchange,
           "transfer flag 1 (Start) or 5 (StartAndEnd) in the first part");
}

void versions_have_their_checksum(Device& device) {
    const Versions known = versions_of(device, kBase);
    const uint32_t checksum = crc32_of(known.versions);
    if (known.checksum != checksum) {
        fail(known.exchange, fmt::format("the CRC-32 of the versions, 0x{:08x}", checksum));
    }
}

void versions_are_encoded(Device& device) {
    need_pldm(device);
    for (const uint8_t type : pldm_types(device)) {
        const Versions known = versions_of(device, type);
        sideband::WireReader reader(known.versions);
        while (reader.remaining() >= 4) {
            const std::span<const uint8_t> version = reader.bytes(4);
            expect(is_version(version[3], version[2], version[1], version[0]), known.exchange,
                   "major, minor and update number in BCD, and a letter or 0");
        }
    }
}

void version_operation_is_refused(Device& device) {
    need_pldm(device);
    expect_pldm_code(ask_version(device, kNoOperation, kBase), kInvalidOperationFlag,
                     "INVALID_TRANSFER_OPERATION_FLAG");
}

void version_of_unknown_type_is_refused(Device& device) {
    expect_pldm_code(ask_version(device, kGetFirstPart, unknown_type(device)), kTypeNotInRequest,
                     "INVALID_PLDM_TYPE_IN_REQUEST_DATA");
}

void short_version_request_is_refused(Device& device) {
    need_pldm(device);
    expect_pldm_code(ask_pldm(device, kBase, kGetPldmVersion, Bytes(5)), kInvalidLength,
                     "ERROR_INVALID_LENGTH");
}

// ---- GetPLDMTypes, GetPLDMCommands --------------------------------------------------------------

void types_have_their_length(Device& device) {
    need_pldm(device);
    expect_pldm_success(recall_pldm(device, kBase, kGetPldmTypes), kPldmHeader + 1 + 8);
}

void types_have_the_base(Device& device) {
    need_pldm(device);
    const Exchange exchange = recall_pldm(device, kBase, kGetPldmTypes);
    const std::span<const uint8_t> data = pldm_data(exchange, "GetPLDMTypes");
    expect(!data.empty() && (data[0] & 1) != 0, exchange, "type 0, the base, among the types");
}

Exchange ask_commands(Device& device, uint8_t type, std::span<const uint8_t> version) {
    return ask_pldm(device, kBase, kGetPldmCommands, Bytes(Body().u8(type).bytes(version)));
}

void commands_have_their_length(Device& device) {
    need_pldm(device);
    for (const uint8_t type : pldm_types(device)) {
        if (const std::optional<Bytes> version = pldm_version(device, type)) {
            expect_pldm_success(ask_commands(device, type, *version), kPldmHeader + 1 + 32);
        }
    }
}

void base_commands_are_named(Device& device) {
    need_pldm(device);
    const std::optional<Bytes> version = pldm_version(device, kBase);
    if (!version) {
        not_applicable("the version of the base type is not known");
    }
    const Exchange exchange = ask_commands(device, kBase, *version);
    const std::span<const uint8_t> data = pldm_data(exchange, "GetPLDMCommands");
    constexpr uint8_t kMandatory =
        1 << kGetPldmVersion | 1 << kGetPldmTypes | 1 << kGetPldmCommands;
    expect(!data.empty() && (data[0] & kMandatory) == kMandatory, exchange,
           "GetPLDMVersion, GetPLDMTypes and GetPLDMCommands among the commands");
}

/// Questions that change nothing and whose request has no data.
struct Question {
    uint8_t type;
    uint8_t command;
};
constexpr Question kQuestions[] = {{kBase, 0x02},       {kBase, 0x04},  {kMonitoring, 0x50},
                                   {kMonitoring, 0x53}, {kFru, 0x01},   {kUpdate, 0x01},
                                   {kUpdate, 0x02},     {kUpdate, 0x1B}};

void commands_are_there(Device& device) {
    need_pldm(device);
    for (const Question& question : kQuestions) {
        if (has_pldm_command(device, question.type, question.command)) {
            const Exchange exchange = ask_pldm(device, question.type, question.command);
            const std::optional<uint8_t> code = pldm_code(exchange);
            expect(code && *code != kUnsupportedCommand, exchange,
                   "an answer to a command that the device names");
        }
    }
}

void commands_of_unknown_type_are_refused(Device& device) {
    const uint8_t type = unknown_type(device);
    expect_pldm_code(ask_commands(device, type, Bytes{0x00, 0xF0, 0xF0, 0xF1}), kTypeNotInRequest,
                     "INVALID_PLDM_TYPE_IN_REQUEST_DATA");
}

void commands_of_unknown_version_are_refused(Device& device) {
    need_pldm(device);
    expect_pldm_code(ask_commands(device, kBase, Bytes{0x00, 0xF9, 0xF9, 0x99}),
                     kVersionNotInRequest, "INVALID_PLDM_VERSION_IN_REQUEST_DATA");
}

constexpr Rule kRules[] = {
    {"pldm.header.request-bit", "DSP0240, message fields", "an answer has Rq and D clear",
     request_bit_is_clear},
    {"pldm.header.reserved-bit", "DSP0240, message fields",
     "bit 5 of an answer's first byte is clear", header_bit_is_zero},
    {"pldm.header.instance-id", "DSP0240, message fields",
     "an answer has the request's instance ID", instance_is_echoed},
    {"pldm.header.version", "DSP0240, message fields", "an answer has header version 0",
     header_version_is_zero},
    {"pldm.header.command", "DSP0240, message fields",
     "an answer has PLDM type and command of the request", command_is_echoed},
    {"pldm.header.datagram", "DSP0240, message fields", "a datagram gets no answer",
     datagram_has_no_answer},
    {"pldm.base.unsupported-command", "DSP0240, completion codes",
     "a command that nobody has defined is answered with ERROR_UNSUPPORTED_PLDM_CMD",
     command_is_unsupported},
    {"pldm.base.unsupported-type", "DSP0240, completion codes",
     "a type that the device does not name is answered with ERROR_INVALID_PLDM_TYPE",
     type_is_unsupported},
    {"pldm.tid.length", "DSP0240, GetTID", "GetTID succeeds, with five bytes", tid_has_its_length},
    {"pldm.tid.value", "DSP0240, GetTID", "the TID is not 0xff", tid_is_not_reserved},
    {"pldm.tid.request-too-long", "DSP0240, completion codes",
     "GetTID with a byte too many is answered with ERROR_INVALID_LENGTH",
     long_tid_request_is_refused},
    {"pldm.set-tid.reserved", "DSP0240, SetTID",
     "the TIDs 0 and 0xff are refused with ERROR_INVALID_DATA", reserved_tids_are_refused, true},
    {"pldm.set-tid.own", "DSP0240, SetTID", "the TID that the device has can be set again",
     own_tid_is_accepted, true},
    {"pldm.version.every-type", "DSP0240, GetPLDMVersion",
     "each type that the device names has a version", every_type_has_a_version},
    {"pldm.version.transfer-flag", "DSP0240, GetPLDMVersion",
     "the first part says that it is the first", version_comes_whole},
    {"pldm.version.checksum", "DSP0240, GetPLDMVersion", "the versions have their CRC-32",
     versions_have_their_checksum},
    {"pldm.version.encoding", "DSP0240, ver32", "version numbers are in BCD", versions_are_encoded},
    {"pldm.version.operation", "DSP0240, GetPLDMVersion",
     "an unknown operation is refused with INVALID_TRANSFER_OPERATION_FLAG",
     version_operation_is_refused},
    {"pldm.version.unknown-type", "DSP0240, GetPLDMVersion",
     "another type is refused with INVALID_PLDM_TYPE_IN_REQUEST_DATA",
     version_of_unknown_type_is_refused},
    {"pldm.version.request-too-short", "DSP0240, completion codes",
     "GetPLDMVersion with a byte too few is answered with ERROR_INVALID_LENGTH",
     short_version_request_is_refused},
    {"pldm.types.length", "DSP0240, GetPLDMTypes", "GetPLDMTypes succeeds, with eight bytes of it",
     types_have_their_length},
    {"pldm.types.base", "DSP0240, GetPLDMTypes", "the base type is among the types",
     types_have_the_base},
    {"pldm.commands.length", "DSP0240, GetPLDMCommands",
     "GetPLDMCommands succeeds for each type, with 32 bytes", commands_have_their_length},
    {"pldm.commands.mandatory", "DSP0240, PLDM discovery commands",
     "the commands for discovery are among those of the base type", base_commands_are_named},
    {"pldm.commands.there", "DSP0240, GetPLDMCommands",
     "commands that the device names are not answered with ERROR_UNSUPPORTED_PLDM_CMD",
     commands_are_there},
    {"pldm.commands.unknown-type", "DSP0240, GetPLDMCommands",
     "another type is refused with INVALID_PLDM_TYPE_IN_REQUEST_DATA",
     commands_of_unknown_type_are_refused},
    {"pldm.commands.unknown-version", "DSP0240, GetPLDMCommands",
     "another version is refused with INVALID_PLDM_VERSION_IN_REQUEST_DATA",
     commands_of_unknown_version_are_refused},
};

}  // namespace

std::span<const Rule> pldm_base_rules() {
    return kRules;
}

}  // namespace tool::check
