// SPDX-License-Identifier: Apache-2.0
// The life of an NC-SI context: an endpoint of its own, or one that is lent (DSP0261).
#include <sideband/ncsi.h>

#include "common/output.h"
#include "ncsi/message.h"
#include "transport/mctp.h"

using namespace sideband;

namespace {

/// Gives the commands of the channel records their way out.
void install(ncsi_ctx& ctx, ncsi_transfer_op transfer) {
    ctx.transfer = transfer;
    for (ncsi_channel& channel : ctx.channels) {
        channel.ctx = &ctx;
    }
}

}  // namespace

int32_t ncsi_init(ncsi_ctx* ctx, const mctp_ctx* config) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kArgumentError;
    if (config == nullptr) {
        return -1;
    }
    // First: the prototype may be the endpoint that is released.
    EndpointPtr endpoint = create_endpoint(*config);
    release_former(ctx->owned, ctx->mctp);
    ctx->mctp = nullptr;
    if (endpoint == nullptr) {
        print_line("can't alloc m_ctx");
        return fail_set_up(ctx->last_error, nullptr);
    }
    install(*ctx, ncsi::transfer);
    if (mctp_init2(endpoint.get()) < 0) {
        print_line("mctp discover failed");
        return fail_set_up(ctx->last_error, &endpoint->last_error);
    }
    endpoint->msg_type = MCTP_MSG_TYPE_NCSI;
    ctx->mctp = endpoint.release();
    own(ctx->owned, ctx->mctp);
    return ncsi_discovery(ctx);
}

int32_t ncsi_deinit(ncsi_ctx* ctx) {
    if (ctx != nullptr) {
        release_current(ctx->owned, ctx->mctp);
    }
    return 0;
}

int32_t ncsi_oem_init(ncsi_ctx* ctx, mctp_ctx* mctp) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kArgumentError;
    if (mctp == nullptr) {
        return -1;
    }
    release_former(ctx->owned, ctx->mctp, mctp);
    ctx->mctp = mctp;
    ctx->oem_transfer = ncsi::transfer_locked;
    install(*ctx, ncsi::transfer_by_oem);
    mctp->skip_discovery = 1;
    mctp->i2c_delay_us = 0;
    ctx->last_error = kNoError;
    if (mctp_init2(mctp) < 0) {
        print_line("binding method configure error");
        return fail_set_up(ctx->last_error, &mctp->last_error);
    }
    return 0;
}

const sideband_error* ncsi_last_error(const ncsi_ctx* ctx) {
    return ctx != nullptr ? &ctx->last_error : null_context_error();
}
