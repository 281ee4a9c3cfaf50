// SPDX-License-Identifier: Apache-2.0
// MCTP control messages, the BMC as requester (DSP0236, clause 12).
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/error.h"
#include "common/output.h"
#include "common/sleep.h"
#include "transport/control.h"
#include "transport/eid_pool.h"
#include "transport/mctp.h"

using namespace sideband;

namespace sideband::control {
namespace {

constexpr uint8_t kRequestBit = 0x80;
constexpr int kTries = 3;
constexpr uint32_t kNotReadyPauseUs = 50000;
/// Most data of a request here.
constexpr size_t kRequestDataMax = 3;

/// Whether the first byte of a header says that it is a response's: neither a request nor a
/// datagram (DSP0236, clause 11.1).
bool is_response(uint8_t first) {
    constexpr uint8_t kDatagramBit = 0x40;
    return (first & (kRequestBit | kDatagramBit)) == 0;
}

/// An endpoint has an EID. Those of sockets are other ones: the kernel's networks have their
/// owners.
void note_in_use(const mctp_ctx& ctx, uint8_t eid) {
    if (ctx.binding_kind != MCTP_BINDING_KIND_SOCKET) {
        eid_pool::note(eid);
    }
}

/// Whether the answer to Set Endpoint ID says that the endpoint has taken the EID (DSP0236, clause
/// 12.3).
bool is_accepted(WireReader& data, uint8_t eid) {
    constexpr uint8_t kStatusMask = 0x30;
    const bool accepted = (data.u8() & kStatusMask) == 0;
    const bool same = data.u8() == eid;
    return data.ok() && accepted && same;
}

/// Whether the answer to Allocate Endpoint IDs says that the pool was taken (DSP0236,
/// clause 12.10). Who only asks for information gets some.
bool is_allocated(WireReader& data, uint8_t operation) {
    constexpr uint8_t kGetInformation = 2;
    constexpr uint8_t kStatusMask = 0x03;
    const bool accepted = (data.u8() & kStatusMask) == 0;
    return data.ok() && (accepted || operation == kGetInformation);
}

/// @param cause  counts if the binding has not said why
Answer no_answer(mctp_ctx* ctx, Command command, uint8_t cause) {
    if (ctx != nullptr) {
        fail(ctx->last_error, cause);
    }
    return {-1, WireReader({}), ctx, command};
}

/// The command has been answered, but not done. @return -1
int32_t refuse(const Answer& answer) {
    fail(answer.ctx->last_error, SIDEBAND_CAUSE_REFUSED);
    record_step(answer.ctx->last_error, SIDEBAND_STEP_CONTROL, answer.command);
    return -1;
}

/// Sends until the endpoint is ready, three times at most.
/// @param room  of kResponseSize bytes at least, all of one value, which stays where none comes
/// @return bytes received, at least kResponseSize, or -1
int32_t transfer_until_ready(mctp_ctx& ctx, std::span<const uint8_t> request,
                             std::span<uint8_t> room) {
    const uint8_t preset = room.front();
    int32_t received = 0;
    for (int tries = 0; tries < kTries; ++tries) {
        // Nothing of a longer answer that was "not ready" stays behind a shorter one.
        std::memset(room.data(), preset, room.size());
        received = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()),
                            static_cast<int32_t>(room.size()), request.data(), room.data());
        if (received < static_cast<int32_t>(kResponseSize)) {
            return fail(ctx.last_error,
                        received < 0 ? SIDEBAND_CAUSE_NO_ANSWER : SIDEBAND_CAUSE_MALFORMED);
        }
        if (room[kCompletionOffset] != kCompletionNotReady) {
            break;
        }
        sleep_us(kNotReadyPauseUs);
    }
    return received;
}

/// A command without request data whose answer holds nothing but a completion code.
int32_t plain_command(mctp_ctx* ctx, Command command) {
    std::array<uint8_t, kResponseSize> room{};
    return finish(exchange(ctx, command, {}, room));
}

}  // namespace

Header Header::read(WireReader& reader) {
    const uint8_t first = reader.u8();
    return {(first & kRequestBit) != 0, instance_of(first), reader.u8()};
}

void Header::write(WireWriter& writer) const {
    writer.u8((is_request ? kRequestBit : 0) | instance_id).u8(command);
}

Answer exchange(mctp_ctx* ctx, Command command, std::span<const uint8_t> data,
                std::span<uint8_t> room) {
    if (ctx != nullptr) {
        ctx->last_error = kNoError;
    }
    if (ctx == nullptr || ctx->xfer == nullptr) {
        return no_answer(ctx, command, SIDEBAND_CAUSE_ARGUMENT);
    }
    const Header sent{true, Header::instance_of(ctx->instance_id), command};
    ++ctx->instance_id;
    std::array<uint8_t, Header::kSize + kRequestDataMax> bytes;
    WireWriter writer(bytes);
    sent.write(writer);
    writer.bytes(data);
    const int32_t received =
        transfer_until_ready(*ctx, std::span(bytes).first(writer.written()), room);
    if (received < 0) {
        return no_answer(ctx, command, SIDEBAND_CAUSE_NO_ANSWER);
    }
    WireReader reader(room);
    const Header header = Header::read(reader);
    const uint8_t completion = reader.u8();
    // After the last try "not ready" is deliberately taken for an answer, with zeros for what did
    // not come: some endpoints never say anything else.
    const bool strict = is_strict(*ctx, MCTP_STRICT_PACKETS);
    const bool is_answer =
        completion == kCompletionSuccess || (completion == kCompletionNotReady && !strict);
    if (!is_answer || (strict && !is_response(room[0])) || header.command != sent.command ||
        header.instance_id != sent.instance_id) {
        if (!is_answer) {
            record_code(ctx->last_error, SIDEBAND_CODE_CONTROL, completion);
        }
        return no_answer(ctx, command, SIDEBAND_CAUSE_MALFORMED);
    }
    if (completion == kCompletionSuccess) {
        reader = WireReader(reader.rest().first(
            std::min(static_cast<size_t>(received), room.size()) - kResponseSize));
    }
    return {received, reader, ctx, command};
}

int32_t finish(const Answer& answer) {
    if (answer.result >= 0 && answer.data.ok()) {
        return 0;
    }
    if (answer.ctx != nullptr) {
        fail(answer.ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
        record_step(answer.ctx->last_error, SIDEBAND_STEP_CONTROL, answer.command);
    }
    return -1;
}

uint8_t assigned_eid(const mctp_ctx& ctx, std::span<const uint8_t> request) {
    WireReader reader(request);
    const bool assigns =
        Header::read(reader).command == kSetEndpointId && ctx.msg_type == MCTP_MSG_TYPE_CONTROL;
    reader.skip(1);  // the operation
    const uint8_t eid = reader.u8();
    return assigns ? eid : uint8_t{0};
}

int32_t read_routing_table(mctp_ctx* ctx, uint8_t entry_handle, RoutingTable room) {
    constexpr size_t kHandleAndCount = 2;
    std::memset(room.data(), 0, room.size());
    Answer answer = exchange(ctx, kGetRoutingTableEntries, {&entry_handle, 1}, room);
    answer.data.skip(kHandleAndCount);
    if (finish(answer) < 0) {
        print_on_console("[%s] failed\n", "mctp_get_routing_table_entries");
        return -1;
    }
    return answer.result;
}

}  // namespace sideband::control

using namespace sideband::control;

int32_t mctp_set_endpoint_id(mctp_ctx* ctx, uint8_t eid) {
    constexpr uint8_t kOperationSetEid = 0;
    const std::array<uint8_t, 2> data{kOperationSetEid, eid};
    std::array<uint8_t, 6> room;
    room.fill(0xFF);
    Answer answer = exchange(ctx, kSetEndpointId, data, room);
    if (finish(answer) < 0) {
        return -1;
    }
    if (is_strict(*ctx, MCTP_STRICT_ADDRESSES) && !is_accepted(answer.data, eid)) {
        return refuse(answer);
    }
    ctx->dest_eid = eid;  // what was asked for, not what the endpoint echoed
    note_in_use(*ctx, eid);
    return 0;
}

int32_t mctp_get_endpoint_id(mctp_ctx* ctx) {
    std::array<uint8_t, 6> room{};
    Answer answer = exchange(ctx, kGetEndpointId, {}, room);
    const uint8_t eid = answer.data.u8();
    if (finish(answer) < 0) {
        return -1;
    }
    ctx->dest_eid = eid;
    note_in_use(*ctx, eid);
    return eid;
}

int32_t mctp_get_endpoint_uuid(mctp_ctx* ctx) {
    std::array<uint8_t, kResponseSize + sizeof ctx->uuid> room{};
    Answer answer = exchange(ctx, kGetEndpointUuid, {}, room);
    const auto uuid = answer.data.bytes(sizeof ctx->uuid);
    if (finish(answer) < 0) {
        print_on_console("fail to get mctp UUID\n");
        return -1;
    }
    std::memcpy(ctx->uuid, uuid.data(), sizeof ctx->uuid);
    ctx->uuid_end = 0;
    return 0;
}

int32_t mctp_allocate_endpoint_ids(mctp_ctx* ctx, uint8_t operation, uint8_t pool_size,
                                   uint8_t starting_eid) {
    const std::array<uint8_t, 3> data{operation, pool_size, starting_eid};
    std::array<uint8_t, 6> room;
    room.fill(0xFF);  // no pool that was accepted
    Answer answer = exchange(ctx, kAllocateEndpointIds, data, room);
    int32_t result = finish(answer);
    if (result == 0 && is_strict(*ctx, MCTP_STRICT_ADDRESSES) &&
        !is_allocated(answer.data, operation)) {
        result = refuse(answer);
    }
    if (result < 0) {
        print_on_console("[%s] failed\n", "mctp_allocate_endpoint_ids");
        return -1;
    }
    return 0;
}

int32_t mctp_get_routing_table_entries(mctp_ctx* ctx, uint8_t entry_handle, uint8_t* table) {
    std::array<uint8_t, MCTP_ROUTING_TABLE_RESPONSE_SIZE> room;
    if (table == nullptr) {
        if (ctx != nullptr) {
            ctx->last_error = kArgumentError;
        }
        return -1;
    }
    if (read_routing_table(ctx, entry_handle, room) < 0) {
        return -1;
    }
    std::memcpy(table, room.data(), room.size());
    return 0;
}

int32_t mctp_prepare_for_endpoint_discovery(mctp_ctx* ctx) {
    return plain_command(ctx, kPrepareForEndpointDiscovery);
}

int32_t mctp_endpoint_discovery(mctp_ctx* ctx) {
    return plain_command(ctx, kEndpointDiscovery);
}
