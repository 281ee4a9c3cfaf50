// SPDX-License-Identifier: Apache-2.0
// MCTP control messages, the BMC as an endpoint on a bus that somebody else owns (DSP0236, clause
// 12).
#include <sideband/mctp.h>

#include <array>
#include <cstring>
#include <span>
#include <utility>

#include "common/error.h"
#include "transport/control.h"
#include "transport/eid_pool.h"
#include "transport/pcie_message.h"

using namespace sideband;

namespace {

using namespace sideband::control;

constexpr int kIgnoredMessagesMax = 5;
constexpr size_t kMessageRoom = 1024;
constexpr uint8_t kFirstEid = 1;
constexpr uint8_t kLastEid = 254;
constexpr uint8_t kNullEid = 0x00;
constexpr uint8_t kBroadcastEid = 0xFF;

/// A message as it came. Of a short one the missing bytes count as zero.
struct Message {
    uint8_t type;
    Header header;
    WireReader data;
};

enum class Outcome { kGoOn, kAssigned, kFailed };

mctp_route current_route(const mctp_ctx& ctx) {
    mctp_route route;
    std::memcpy(route.binding_eids, ctx.binding_eids, sizeof route.binding_eids);
    route.bus = ctx.bus;
    route.slave_addr = ctx.slave_addr;
    std::memcpy(route.mux, ctx.mux, sizeof route.mux);
    return route;
}

class Responder {
public:
    /// @param former_eid  the BMC's EID so far, under which an owner may still address it
    Responder(mctp_ctx& ctx, uint8_t former_eid) : ctx_(ctx), former_eid_(former_eid) {}

    /// Answers one control message.
    Outcome answer(Message& message) {
        switch (message.header.command) {
            case kSetEndpointId:
                return set_endpoint_id(message);
            case kGetEndpointId: {
                constexpr uint8_t kBusOwnerDynamicEid = 0x10;
                return send(message, {0x00, ctx_.src_eid, kBusOwnerDynamicEid, 0x00});
            }
            case kGetVendorDefinedMessageSupport:
                if (message.data.u8() != 0) {
                    return send(message, {kCompletionInvalidData});
                }
                return send(message, {0x00, 0xFF, 0x00, 0x03, 0x1A, 0x00, 0x01});
            case kPrepareForEndpointDiscovery:
            case kDiscoveryNotify:
                return send(message, {0, 0, 0, 0});
            case kEndpointDiscovery:
                if (discovered_) {
                    return Outcome::kGoOn;
                }
                discovered_ = true;
                return send(message, {0, 0, 0, 0, 0, 0, 0, 0, 0});
            default:
                return Outcome::kGoOn;
        }
    }

private:
    bool may_be_peer(uint8_t eid) const {
        return eid != kNullEid && eid != kBroadcastEid && eid != former_eid_;
    }

    /// Which of the binding EIDs is who asked: the first, but some PCIe ports return the peer as
    /// the destination, where a write wants it.
    size_t requester_index() const {
        return !may_be_peer(ctx_.binding_eids[0]) && may_be_peer(ctx_.binding_eids[1]) ? 1 : 0;
    }

    uint8_t requester() const { return ctx_.binding_eids[requester_index()]; }

    mctp_route route_to_requester() const {
        mctp_route route = current_route(ctx_);
        if (requester_index() != 0) {
            std::swap(route.binding_eids[0], route.binding_eids[1]);
        }
        return route;
    }

    Outcome set_endpoint_id(Message& message) {
        message.data.skip(1);  // the operation
        const uint8_t eid = message.data.u8();
        uint8_t completion = kCompletionInvalidData;
        uint8_t echoed = 0;
        if (eid >= kFirstEid && eid <= kLastEid) {
            ctx_.src_eid = eid;
            eid_pool::note(eid);
            ctx_.dest_eid = requester();
            ctx_.owner_route = route_to_requester();
            completion = kCompletionSuccess;
            echoed = eid;
        }
        const Outcome outcome = send(message, {completion, 0, echoed, 0});
        if (outcome == Outcome::kFailed || ctx_.src_eid == 0) {
            return outcome;
        }
        return Outcome::kAssigned;
    }

    /// @param tail  what follows the header
    Outcome send(const Message& message, std::initializer_list<uint8_t> tail) {
        std::array<uint8_t, 11> response;
        WireWriter writer(response);
        Header{false, message.header.instance_id, message.header.command}.write(writer);
        writer.bytes({tail.begin(), tail.size()});
        const AddressedTo peer(&ctx_, requester());
        const int32_t result =
            ctx_.send(&ctx_, static_cast<uint32_t>(writer.written()), response.data(), 0);
        return result < 0 ? Outcome::kFailed : Outcome::kGoOn;
    }

    mctp_ctx& ctx_;
    uint8_t former_eid_;
    bool discovered_ = false;
};

/// Announces the BMC. @return whether the answer already says which EID it has
bool notify_owner(mctp_ctx& ctx) {
    std::array<uint8_t, kResponseSize> room{};
    // A matching answer repeats the command code, so that this is not met in practice; bus owners
    // that answer with 0 there are the reason for it.
    if (finish(exchange(&ctx, kDiscoveryNotify, {}, room)) < 0) {
        return false;
    }
    WireReader reader(room);
    return Header::read(reader).command == 0 && ctx.binding_eids[1] != 0;
}

Message parse(std::span<const uint8_t> bytes) {
    WireReader reader(bytes);
    // In this order: members of a braced list are evaluated as they stand.
    return {reader.u8(), Header::read(reader), reader};
}

/// Whether an owner cannot have heard of the BMC, which is why nothing comes of it.
bool is_unsent(const sideband_error& notified) {
    return notified.cause == SIDEBAND_CAUSE_LOCK || notified.cause == SIDEBAND_CAUSE_NO_POWER ||
           notified.cause == SIDEBAND_CAUSE_NO_BUS ||
           notified.cause == SIDEBAND_CAUSE_NOT_ACKNOWLEDGED;
}

bool is_control(int32_t length, const Message& message) {
    return length > 0 && (message.type & ~MCTP_MSG_TYPE_INTEGRITY_CHECK) == MCTP_MSG_TYPE_CONTROL;
}

/// @param notified  what became of the announcement
int32_t respond_until_assigned(mctp_ctx& ctx, uint8_t former_eid, const sideband_error& notified) {
    Responder responder(ctx, former_eid);
    const sideband_error* first = &notified;
    int ignored = 0;
    // No time limit of its own: the binding's read bounds each wait.
    for (;;) {
        std::memset(ctx.pcie_bdf, 0, sizeof ctx.pcie_bdf);
        ctx.binding_eids[1] = 0;
        std::array<uint8_t, kMessageRoom> bytes{};
        const int32_t length = ctx.recv(&ctx, static_cast<int32_t>(bytes.size()), bytes.data());
        if (length < 0) {
            fail(ctx.last_error, SIDEBAND_CAUSE_NO_ANSWER);
            if (is_unsent(*first)) {
                ctx.last_error = *first;
            }
            return 0;
        }
        first = &kNoError;  // Somebody is there nevertheless.
        Message message = parse(bytes);
        if (!is_control(length, message)) {
            if (++ignored == kIgnoredMessagesMax) {
                ctx.last_error = error_of(SIDEBAND_CAUSE_WRONG_TAG);
                return 0;
            }
            continue;
        }
        const Outcome outcome = responder.answer(message);
        if (outcome != Outcome::kGoOn) {
            return outcome == Outcome::kAssigned ? 1 : 0;
        }
    }
}

}  // namespace

int32_t get_bmc_by_owner(mctp_ctx* ctx) {
    if (ctx == nullptr) {
        return 0;
    }
    if (ctx->xfer == nullptr || ctx->recv == nullptr || ctx->send == nullptr) {
        ctx->last_error = kArgumentError;
        return 0;
    }
    const uint8_t former_eid = ctx->src_eid;
    ctx->src_eid = 0;
    ctx->dest_eid = 0;
    if (notify_owner(*ctx)) {
        ctx->src_eid = ctx->binding_eids[1];
        ctx->dest_eid = ctx->binding_eids[0];
        ctx->owner_route = current_route(*ctx);
        return 1;
    }
    const sideband_error notified = ctx->last_error;
    return respond_until_assigned(*ctx, former_eid, notified);
}
