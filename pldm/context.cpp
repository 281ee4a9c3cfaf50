// SPDX-License-Identifier: Apache-2.0
// The life of a PLDM terminus: binding a context to its endpoint and releasing it.
#include <sideband/debug_log.h>
#include <sideband/pldm.h>

#include "common/error.h"
#include "common/output.h"
#include "transport/mctp.h"

using namespace sideband;

int32_t pldm_init(pldm_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    if (ctx->mctp != nullptr) {
        // The number is part of the text that log readers match.
        print_formatted("[%s:%d] release ptr in dangerous way.\n", "pldm_init", 411);
    }
    release(ctx->owned);
    *ctx = pldm_ctx{};
    ctx->recv_op = pldm_recv;
    ctx->send_op = pldm_send;
    ctx->transfer_op = pldm_transfer;
    return 0;
}

int32_t mctp_pldm_register(mctp_ctx* mctp, pldm_ctx* ctx) {
    if (mctp == nullptr || ctx == nullptr) {
        if (ctx != nullptr) {
            ctx->last_error = kArgumentError;
        }
        return -1;
    }
    const bool is_its_own = mctp == endpoint_of(ctx->owned);
    if (is_its_own) {
        ctx->owned = {};  // or it would go before it is bound again
    }
    pldm_init(ctx);
    if (is_its_own) {
        own(ctx->owned, mctp);
    }
    ctx->mctp = mctp;
    mctp->msg_type = MCTP_MSG_TYPE_PLDM;
    return 0;
}

int32_t pldm_terminus_init(pldm_ctx* ctx, const mctp_ctx* config) {
    if (config == nullptr || ctx == nullptr) {
        debug_log("%s, invalid parameters\n", "pldm_terminus_init");
        if (ctx != nullptr) {
            ctx->last_error = kArgumentError;
        }
        return PLDM_ERROR_ARGUMENT;
    }
    EndpointPtr endpoint = create_endpoint(*config);
    if (endpoint == nullptr) {
        debug_log("%s, malloc() fail\n", "pldm_terminus_init");
        fail_set_up(ctx->last_error, nullptr);
        return PLDM_ERROR_ARGUMENT;
    }
    if (mctp_init2(endpoint.get()) < 0) {
        debug_log("%s, mctp_initial() fail\n", "pldm_terminus_init");
        return fail_set_up(ctx->last_error, &endpoint->last_error);
    }
    mctp_pldm_register(endpoint.get(), ctx);
    own(ctx->owned, endpoint.release());
    return 0;
}

int32_t pldm_terminus_deinit(pldm_ctx* ctx) {
    if (ctx == nullptr) {
        debug_log("%s, pldm_ctx is NULL\n", "pldm_terminus_deinit");
        return 0;
    }
    release(ctx->owned);
    ctx->mctp = nullptr;
    return 0;
}

int32_t discover_pldm_terminus(pldm_ctx* ctx, const mctp_ctx* config) {
    sideband_error unused;
    sideband_error& error = ctx != nullptr ? ctx->last_error : unused;
    if (config == nullptr) {
        error = kArgumentError;
        return -1;
    }
    const EndpointPtr endpoint = create_endpoint(*config);
    if (endpoint == nullptr) {
        print_formatted("can't alloc m_ctx\n");
        return fail_set_up(error, nullptr);
    }
    if (mctp_init2(endpoint.get()) < 0) {
        debug_log("[%s] mctp init & discovery failed.", "discover_pldm_terminus");
        return fail_set_up(error, &endpoint->last_error);
    }
    // ctx->mctp is left pointing at the endpoint that goes with this scope, and nobody follows it:
    // the context does not own it. Callers that discover and keep talking use pldm_terminus_init().
    const int32_t registered = mctp_pldm_register(endpoint.get(), ctx);
    const int32_t discovered = pldm_discovery(ctx);
    return registered + discovered;
}
