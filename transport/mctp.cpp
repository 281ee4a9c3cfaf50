// SPDX-License-Identifier: Apache-2.0
// The endpoint context: set-up by binding kind, and the trace of dropped packets.
#include <sideband/mctp.h>

#include <cstdlib>

#include "common/error.h"
#include "common/output.h"
#include "transport/eid_pool.h"
#include "transport/mctp.h"
#include "transport/pcie_message.h"
#include "transport/smbus_message.h"
#include "transport/socket_message.h"

using namespace sideband;

namespace sideband {

EndpointPtr create_endpoint(const mctp_ctx& config) {
    EndpointPtr endpoint(static_cast<mctp_ctx*>(std::calloc(1, sizeof(mctp_ctx))));
    if (endpoint != nullptr) {
        endpoint->src_eid = config.src_eid;
        endpoint->dest_eid = config.dest_eid;
        endpoint->section = config.section;
        endpoint->recv = nullptr;
        endpoint->send = nullptr;
        endpoint->xfer = nullptr;
        endpoint->binding = nullptr;
        endpoint->last_error = kNoError;
    }
    return endpoint;
}

namespace {

uintptr_t check_of(const mctp_ctx* endpoint) {
    return ~reinterpret_cast<uintptr_t>(endpoint);
}

}  // namespace

mctp_ctx* endpoint_of(const mctp_owned& owned) {
    return owned.check == check_of(owned.endpoint) ? owned.endpoint : nullptr;
}

void own(mctp_owned& owned, mctp_ctx* endpoint) {
    owned = {endpoint, check_of(endpoint)};
}

void release(mctp_owned& owned) {
    if (mctp_ctx* const endpoint = endpoint_of(owned)) {
        std::free(endpoint);
        owned = {};
    }
}

void release_former(mctp_owned& owned, const mctp_ctx* current, const mctp_ctx* kept) {
    const mctp_ctx* const endpoint = endpoint_of(owned);
    if (endpoint != current) {
        owned = {};
    } else if (endpoint != kept) {
        release(owned);
    }
}

void release_current(mctp_owned& owned, mctp_ctx*& current) {
    std::free(current);
    current = nullptr;
    owned = {};
}

namespace {

struct Operations {
    mctp_recv_op recv;
    mctp_send_op send;
    mctp_xfer_op xfer;
    const mctp_binding* binding;
};

constexpr Operations kSmbus{smbus_recv_locked, smbus_send_locked, smbus_xfer, &smbus_mctp_binding};
constexpr Operations kSmbusDelayed{smbus_recv_locked, smbus_send_locked, smbus_xfer_delayed,
                                   &smbus_mctp_binding};
constexpr Operations kPcie{pcie_recv, pcie_send, pcie_xfer, &pcie_mctp_binding};
constexpr Operations kSl8Smbus{sl8_smbus_recv, sl8_smbus_send, sl8_smbus_xfer,
                               &sl8_smbus_mctp_binding};

const Operations* operations_for(uint8_t binding_kind) {
    switch (binding_kind) {
        case MCTP_BINDING_KIND_SMBUS:
            return &kSmbus;
        case MCTP_BINDING_KIND_PCIE:
            return &kPcie;
        case MCTP_BINDING_KIND_SL8_SMBUS:
            return &kSl8Smbus;
#ifdef SIDEBAND_SOCKET
        case MCTP_BINDING_KIND_SOCKET: {
            static constexpr Operations kSocket{socket_recv, socket_send, socket_xfer, nullptr};
            return &kSocket;
        }
#endif
        default:
            return nullptr;
    }
}

void install(mctp_ctx& ctx, const Operations& operations) {
    ctx.recv = operations.recv;
    ctx.send = operations.send;
    ctx.xfer = operations.xfer;
    ctx.binding = operations.binding;
}

int32_t initialise(mctp_ctx& ctx, const Operations* operations) {
    if (ctx.unit_size == 0) {
        ctx.unit_size = MCTP_UNIT_SIZE_DEFAULT;
    }
    ctx.last_error = kNoError;
    if (operations == nullptr) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    install(ctx, *operations);
    // The EIDs that the kernel routes to are given out by whoever owns the bus.
    const bool has_pool = ctx.binding_kind != MCTP_BINDING_KIND_SOCKET;
    if (has_pool) {
        eid_pool::note(ctx.src_eid);
    }
    if (ctx.skip_discovery != 0) {
        if (has_pool) {
            eid_pool::note(ctx.dest_eid);
        }
        return 0;
    }
    ctx.msg_type = MCTP_MSG_TYPE_CONTROL;
    return has_pool ? mctp_discovery(&ctx) : 0;
}

}  // namespace

bool install_operations(mctp_ctx& ctx) {
    const Operations* const operations = operations_for(ctx.binding_kind);
    if (operations != nullptr) {
        install(ctx, *operations);
    }
    return operations != nullptr;
}

}  // namespace sideband

int32_t mctp_init2(mctp_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    return initialise(*ctx, operations_for(ctx->binding_kind));
}

int32_t mctp_init2_with_i2c_delay(mctp_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    const bool is_smbus = ctx->binding_kind == MCTP_BINDING_KIND_SMBUS;
    return initialise(*ctx, is_smbus ? &kSmbusDelayed : nullptr);
}

void dump_packets(int32_t length, const uint8_t* packet) {
    // File and line are part of the text that log readers match; they are not this call's place.
    print_formatted("[%s:%d] Dumping Packets....\n", "transport/mctp", 42);
    print_formatted("===== mctp payload packets(len: %d)=====\n", length);
    constexpr int32_t kPerLine = 12;
    int32_t line_end = kPerLine;
    for (int32_t i = 0; packet != nullptr && i < length; ++i) {
        if (i == line_end) {
            print_formatted("\n");
            line_end += kPerLine;
        }
        print_formatted(" %02x", packet[i]);
    }
    print_formatted("\n===========================");
}
