// SPDX-License-Identifier: Apache-2.0
// MCTP messages over PCIe VDM: the platform packetises, this layer adds and strips the type byte.
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/wire.h"
#include "transport/control.h"
#include "transport/pcie_message.h"

using namespace sideband;

namespace sideband {
namespace {

/// A message with its type byte first, in a record's room: no message over PCIe is larger.
using MessageBuffer = std::array<uint8_t, PLT_PCIE_MESSAGE_SIZE>;

/// Puts the type byte before a body. @return false if no record holds the message
bool build_message(const mctp_ctx& ctx, uint32_t length, const uint8_t* body,
                   MessageBuffer& message) {
    if (length >= message.size() || (body == nullptr && length != 0)) {
        return false;
    }
    WireWriter(message).u8(ctx.msg_type).bytes({body, length});
    return true;
}

/// Get Routing Table Entries and Discovery Notify are for the bus owner (DSP0238, clause 6.7).
bool is_for_root_complex(uint32_t length, const uint8_t* body) {
    WireReader reader({body, length});
    const uint8_t command = control::Header::read(reader).command;
    return command == control::kGetRoutingTableEntries || command == control::kDiscoveryNotify;
}

/// Reads one message with its type byte. The binding delivers whatever came, however small the
/// caller's buffer is, so that it is read aside.
/// @return bytes received, at most length; -1 on failure
int32_t read_message(mctp_ctx& ctx, int32_t length, const uint8_t* buffer, MessageBuffer& message) {
    if (buffer == nullptr || length <= 0 || ctx.binding == nullptr ||
        ctx.binding->read == nullptr) {
        return -1;
    }
    message = {};
    message[0] = buffer[0];
    const int32_t received = ctx.binding->read(&ctx.section, length, message.data());
    return received <= std::min<int32_t>(length, PLT_PCIE_MESSAGE_SIZE) ? received : -1;
}

}  // namespace

int32_t pcie_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t /*tag_owner*/) {
    MessageBuffer message;
    if (ctx->binding == nullptr || ctx->binding->write == nullptr ||
        !build_message(*ctx, length, body, message)) {
        return -1;
    }
    ctx->route =
        is_for_root_complex(length, body) ? PLT_PCIE_ROUTE_TO_ROOT_COMPLEX : PLT_PCIE_ROUTE_BY_ID;
    const auto total = static_cast<int32_t>(length + 1);
    return ctx->binding->write(&ctx->section, total, message.data()) >= 0 ? 0 : -1;
}

int32_t pcie_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    MessageBuffer message;
    const int32_t received = read_message(*ctx, length, buffer, message);
    if (received <= 1) {
        return -1;
    }
    std::memcpy(buffer, message.data() + 1, static_cast<size_t>(received - 1));
    return 0;  // and not the length: callers learn that from the message itself
}

int32_t pcie_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                  const uint8_t* request, uint8_t* response) {
    MessageBuffer message;
    MessageBuffer answer{};
    if (ctx->binding == nullptr || ctx->binding->transfer == nullptr || response_length < 0 ||
        (response == nullptr && response_length != 0) ||
        !build_message(*ctx, request_length, request, message)) {
        return -1;
    }
    ctx->binding_eids[0] = ctx->src_eid;
    ctx->binding_eids[1] = ctx->dest_eid;
    // Bit 7 pins the tag: the MPIO is always asked with the same one.
    if ((ctx->tag & 0x80) == 0) {
        ++ctx->tag;
    }
    ctx->pcie_tag = ctx->tag;
    ctx->route = PLT_PCIE_ROUTE_BY_ID;
    const int32_t room = std::min(response_length, PLT_PCIE_MESSAGE_SIZE - 1) + 1;
    const int32_t received =
        ctx->binding->transfer(&ctx->section, static_cast<int32_t>(request_length + 1), room,
                               message.data(), answer.data());
    if (received >= 2) {
        const int32_t body = std::min(received, room) - 1;
        std::memcpy(response, answer.data() + 1, static_cast<size_t>(body));
    }
    return received - 1;
}

}  // namespace sideband

int32_t mctp_pcie_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    MessageBuffer message;
    const int32_t received = read_message(*ctx, length, buffer, message);
    if (received < 1) {
        return -1;
    }
    std::memcpy(buffer, message.data(), static_cast<size_t>(received));
    return received;
}
