// SPDX-License-Identifier: Apache-2.0
// MCTP messages over PCIe VDM: the platform packetises, this layer adds and strips the type byte.
#include "transport/pcie_message.h"

#include <sideband/debug_log.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/crc.h"
#include "common/error.h"
#include "common/wire.h"
#include "transport/control.h"
#include "transport/deadline.h"
#include "transport/mctp.h"
#include "transport/pcie_binding.h"

using namespace sideband;

namespace sideband {
namespace {

constexpr uint8_t kNullEid = 0x00;
constexpr uint8_t kBroadcastEid = 0xFF;
/// Bit 7 pins the tag: the MPIO is always asked with the same one.
constexpr uint8_t kPinnedTag = 0x80;
constexpr uint8_t kTagMask = 0x07;
/// Messages of others that a receive passes over, at most.
constexpr int kPassedOverMax = 1024;

/// A message is kept in the record that takes it to the platform, and its answer comes there. Only
/// another binding than the library's own has it copied.
bool is_stock(const mctp_ctx& ctx) {
    return ctx.binding == &pcie_mctp_binding;
}

bool has_check(uint8_t type) {
    return (type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
}

/// Puts the type byte before a body. @return false if no record holds the message
bool build_message(const mctp_ctx& ctx, uint32_t length, const uint8_t* body,
                   plt_pcie_request& record) {
    const bool checked = is_strict(ctx, MCTP_STRICT_INTEGRITY) && has_check(ctx.msg_type);
    const size_t room = sizeof record.message - (checked ? kIntegrityCheckSize : 0);
    if (length >= room || (body == nullptr && length != 0)) {
        return false;
    }
    WireWriter writer(record.message);
    writer.u8(ctx.msg_type).bytes({body, length});
    if (checked) {
        writer.le32(integrity_check(ctx.msg_type, {body, length}));
    }
    record.length = static_cast<uint32_t>(writer.written());
    return true;
}

/// Get Routing Table Entries and Discovery Notify are for the bus owner (DSP0238, clause 6.7). What
/// is no control message can look like one.
bool is_for_root_complex(const mctp_ctx& ctx, uint32_t length, const uint8_t* body) {
    if (is_strict(ctx, MCTP_STRICT_ADDRESSES) && ctx.msg_type != MCTP_MSG_TYPE_CONTROL) {
        return false;
    }
    WireReader reader({body, length});
    const uint8_t command = control::Header::read(reader).command;
    return command == control::kGetRoutingTableEntries || command == control::kDiscoveryNotify;
}

// ---- What a strict context looks at ----

/// What makes a message the one that is waited for.
struct Wanted {
    uint8_t bdf[3];         ///< of its sender; 0, 0, 0: unknown, or the root complex
    bool any_type = false;  ///< not that of the context alone
    bool answers = false;   ///< the tag of the request
    uint8_t also_from = 0;  ///< an EID that the sender may have beside dest_eid; 0: none

    explicit Wanted(const mctp_ctx& ctx) { std::memcpy(bdf, ctx.pcie_bdf, sizeof bdf); }
};

bool is_from_peer(const mctp_ctx& ctx, const Wanted& wanted) {
    constexpr uint8_t kNobody[3] = {};
    const uint8_t source = ctx.binding_eids[0];
    const bool eid_fits = ctx.dest_eid == kNullEid || source == ctx.dest_eid ||
                          (wanted.also_from != kNullEid && source == wanted.also_from);
    return eid_fits && (std::memcmp(wanted.bdf, kNobody, sizeof kNobody) == 0 ||
                        std::memcmp(wanted.bdf, ctx.pcie_bdf, sizeof kNobody) == 0);
}

bool is_for_bmc(const mctp_ctx& ctx, const Wanted& wanted) {
    const uint8_t destination = ctx.binding_eids[1];
    return ctx.src_eid == kNullEid || destination == ctx.src_eid || destination == kNullEid ||
           (destination == kBroadcastEid && !wanted.answers);
}

/// Whether a message is another one than what is waited for.
bool is_foreign(const mctp_ctx& ctx, const Wanted& wanted, uint8_t type) {
    if (is_strict(ctx, MCTP_STRICT_ADDRESSES) && !is_from_peer(ctx, wanted)) {
        return true;
    }
    if (!is_strict(ctx, MCTP_STRICT_PACKETS)) {
        return false;
    }
    const bool other_type = ((type ^ ctx.msg_type) & ~MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
    const bool other_tag = ((ctx.pcie_tag ^ ctx.tag) & kTagMask) != 0;
    return (other_type && !wanted.any_type) || (other_tag && wanted.answers) ||
           !is_for_bmc(ctx, wanted);
}

constexpr int32_t kForeign = 0;

/// Looks at a message that came, and puts the context's addressing right if it is another one.
/// @param message  at least its type byte
/// @return its length without integrity check; kForeign; -1 if its check is not right
int32_t inspect(mctp_ctx& ctx, const Wanted& wanted, std::span<const uint8_t> message) {
    if (is_foreign(ctx, wanted, message[0])) {
        debug_log("[%s] passed over a message from EID %d at %02X/%02X/%02X\n", "mctp pcie",
                  ctx.binding_eids[0], ctx.pcie_bdf[0], ctx.pcie_bdf[1], ctx.pcie_bdf[2]);
        std::memcpy(ctx.pcie_bdf, wanted.bdf, sizeof wanted.bdf);
        fail(ctx.last_error, SIDEBAND_CAUSE_WRONG_TAG);
        return kForeign;
    }
    const auto length = static_cast<int32_t>(message.size());
    if (!is_strict(ctx, MCTP_STRICT_INTEGRITY) ||
        (!has_check(message[0]) && !has_check(ctx.msg_type))) {
        return length;
    }
    const bool is_right = has_check(message[0]) && message.size() > kIntegrityCheckSize &&
                          crc32c_update(kCrc32cInitial, message) == kCrc32cResidue;
    if (!is_right) {
        debug_log("[%s] EID %d: the integrity check is %s\n", "mctp pcie", ctx.dest_eid,
                  has_check(message[0]) ? "wrong" : "missing");
        return fail(ctx.last_error, SIDEBAND_CAUSE_WRONG_CHECK);
    }
    return length - static_cast<int32_t>(kIntegrityCheckSize);
}

// ---- The binding ----

/// Reads one message with its type byte.
/// @return bytes received, which may be more than length; -1 on failure
int32_t read_message(mctp_ctx& ctx, int32_t length, const uint8_t* buffer,
                     plt_pcie_request& record) {
    // The binding delivers whatever came, however small the caller's buffer is, so that it is read
    // aside.
    record.message[0] = buffer[0];
    return is_stock(ctx) ? read_record(ctx.section, PLT_PCIE_READ, record)
                         : ctx.binding->read(&ctx.section, std::min(length, PLT_PCIE_MESSAGE_SIZE),
                                             record.message);
}

/// Receives one message with its type byte into a record.
/// @return its length, at most that of the buffer; -1 on failure
int32_t receive(mctp_ctx& ctx, int32_t length, const uint8_t* buffer, bool any_type,
                plt_pcie_request& record) {
    if (buffer == nullptr || length <= 0 || ctx.binding == nullptr ||
        ctx.binding->read == nullptr) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    Wanted wanted(ctx);
    wanted.any_type = any_type;
    int32_t received = kForeign;
    for (int passed_over = 0; received == kForeign && passed_over < kPassedOverMax; ++passed_over) {
        if (is_over(ctx)) {
            return fail(ctx.last_error, SIDEBAND_CAUSE_DEADLINE);
        }
        record = {};
        received = read_message(ctx, length, buffer, record);
        if (received < 1 || received > PLT_PCIE_MESSAGE_SIZE) {
            return fail(ctx.last_error,
                        received < 0 ? SIDEBAND_CAUSE_NO_ANSWER : SIDEBAND_CAUSE_MALFORMED);
        }
        if (ctx.strict != 0) {
            received = inspect(ctx, wanted,
                               std::span(record.message).first(static_cast<size_t>(received)));
        }
    }
    if (received > length) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_MALFORMED);
    }
    if (received <= kForeign) {
        return -1;
    }
    ctx.last_error = kNoError;  // Of what was passed over.
    return received;
}

/// Receives one message into a buffer, type byte and all.
int32_t receive_with_type(mctp_ctx& ctx, int32_t length, uint8_t* buffer, bool any_type) {
    plt_pcie_request record;
    ctx.last_error = kNoError;
    const int32_t received = receive(ctx, length, buffer, any_type, record);
    if (received < 1) {
        return -1;
    }
    std::memcpy(buffer, record.message, static_cast<size_t>(received));
    return received;
}

/// The exchange through another binding than the library's own.
[[gnu::noinline]] int32_t transfer_aside(mctp_ctx& ctx, int32_t room, plt_pcie_request& record) {
    std::array<uint8_t, PLT_PCIE_MESSAGE_SIZE> answer{};
    const int32_t received = ctx.binding->transfer(
        &ctx.section, static_cast<int32_t>(record.length), room, record.message, answer.data());
    std::memcpy(record.message, answer.data(), answer.size());
    return received;
}

/// Sends the message in a record, and reads its answer into it.
/// @return bytes received
int32_t transfer(mctp_ctx& ctx, int32_t room, plt_pcie_request& record) {
    return is_stock(ctx) ? std::min(room, read_record(ctx.section, PLT_PCIE_WRITE_READ, record))
                         : transfer_aside(ctx, room, record);
}

void advance_tag(mctp_ctx& ctx) {
    if ((ctx.tag & kPinnedTag) == 0) {
        ++ctx.tag;
        // A tag that counts on gets pinned by and by.
        if (is_strict(ctx, MCTP_STRICT_PACKETS)) {
            ctx.tag &= kTagMask;
        }
    }
}

}  // namespace

int32_t pcie_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t /*tag_owner*/) {
    plt_pcie_request record{};
    ctx->last_error = kNoError;
    if (ctx->binding == nullptr || ctx->binding->write == nullptr ||
        !build_message(*ctx, length, body, record)) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (is_over(*ctx)) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    ctx->route = is_for_root_complex(*ctx, length, body) ? PLT_PCIE_ROUTE_TO_ROOT_COMPLEX
                                                         : PLT_PCIE_ROUTE_BY_ID;
    if (is_stock(*ctx)) {
        write_record(ctx->section, record);
        return 0;
    }
    const auto total = static_cast<int32_t>(record.length);
    return ctx->binding->write(&ctx->section, total, record.message) >= 0
               ? 0
               : fail(ctx->last_error, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
}

int32_t pcie_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    plt_pcie_request record;
    ctx->last_error = kNoError;
    const int32_t received = receive(*ctx, length, buffer, false, record);
    if (received <= 1) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
    }
    std::memcpy(buffer, record.message + 1, static_cast<size_t>(received - 1));
    return 0;  // and not the length: callers learn that from the message itself
}

int32_t pcie_recv_typed(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    return receive_with_type(*ctx, length, buffer, false);
}

int32_t pcie_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                  const uint8_t* request, uint8_t* response) {
    plt_pcie_request record{};
    ctx->last_error = kNoError;
    if (ctx->binding == nullptr || ctx->binding->transfer == nullptr || response_length < 0 ||
        (response == nullptr && response_length != 0) ||
        !build_message(*ctx, request_length, request, record)) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (is_over(*ctx)) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    ctx->binding_eids[0] = ctx->src_eid;
    ctx->binding_eids[1] = ctx->dest_eid;
    advance_tag(*ctx);
    ctx->pcie_tag = ctx->tag;
    ctx->route = PLT_PCIE_ROUTE_BY_ID;
    Wanted wanted(*ctx);
    const int32_t room = std::min(response_length, PLT_PCIE_MESSAGE_SIZE - 1) + 1;
    const bool whole = is_strict(*ctx, MCTP_STRICT_INTEGRITY);
    int32_t received = transfer(*ctx, whole ? PLT_PCIE_MESSAGE_SIZE : room, record);
    if (received > 0 && ctx->strict != 0) {
        wanted.answers = true;
        wanted.also_from = control::assigned_eid(*ctx, {request, request_length});
        const auto size = std::min(static_cast<size_t>(received), sizeof record.message);
        received = std::max(kForeign, inspect(*ctx, wanted, std::span(record.message).first(size)));
        received = std::min(received, room);
    }
    if (received >= 2) {
        const int32_t body = std::min(received, room) - 1;
        std::memcpy(response, record.message + 1, static_cast<size_t>(body));
    }
    if (received < 1) {
        fail(ctx->last_error, received < 0 ? SIDEBAND_CAUSE_NO_ANSWER : SIDEBAND_CAUSE_MALFORMED);
    }
    return received - 1;
}

}  // namespace sideband

int32_t mctp_pcie_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    return receive_with_type(*ctx, length, buffer, true);
}
