// SPDX-License-Identifier: Apache-2.0
// The NC-SI context and the standard commands (DSP0222).
#include <sideband/ncsi.h>
#include <sideband/platform.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/memory.h"
#include "ncsi/exchange.h"
#include "transport/transport.h"

namespace {

namespace ncsi = sideband::ncsi;

constexpr uint8_t kMessageType = 0x02;
constexpr int32_t kStatusCapacity = 24;
constexpr int32_t kLinkStatusCapacity = 36;

/// Sends a command without payload.
/// @param needed  bytes that the response has to have
int32_t command(ncsi_channel& channel, uint8_t type, uint8_t channel_id, int32_t capacity,
                size_t needed, ncsi::Response& response) {
    ncsi::Request request(type, channel_id, 0);
    return ncsi::transfer(channel, request, capacity, response, needed);
}

uint8_t channel_id_of(unsigned package, unsigned channel) {
    return static_cast<uint8_t>(package << ncsi::kPackageShift | channel);
}

/// Clears the initial state of a channel and records it.
bool discover(ncsi_ctx& ctx, unsigned package, unsigned number) {
    const uint8_t id = channel_id_of(package, number);
    ncsi_channel& channel = ctx.channels[number];
    ncsi::Response response{};
    if (command(channel, NCSI_CLEAR_INITIAL_STATE, id, kStatusCapacity, ncsi::kResponsePayload,
                response) < 0) {
        std::printf("clear init state failed. channel_id:%02x\n", id);
        return false;
    }
    channel.channel_id = id;
    ++ctx.channel_num;
    std::printf("discovery ncsi channel[%u], channel_id:%02x\n", number, id);
    return true;
}

int32_t address_package(ncsi_channel* channel, uint8_t type, uint32_t package_id,
                        const char* failure) {
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    int32_t result = -1;
    // More has no room in a channel ID: the rest would name another package.
    if (package_id < NCSI_PACKAGES) {
        ncsi::Response response{};
        result = command(*channel, type, channel_id_of(package_id, ncsi::kWholePackage),
                         kStatusCapacity, ncsi::kResponsePayload, response);
    }
    if (result < 0) {
        console_log(failure, static_cast<int>(package_id));
    }
    return result;
}

/// Frees the endpoint of an earlier ncsi_init(), if the context still has it and it is not to stay.
void release_owned(ncsi_ctx& ctx, const mctp_ctx* kept = nullptr) {
    const mctp_ctx* const owned = sideband::endpoint_of(ctx.owned);
    if (owned != ctx.mctp) {
        ctx.owned = {};
    } else if (owned != kept) {
        sideband::release(ctx.owned);
    }
}

/// Gives the commands of the channel records their way out.
void install(ncsi_ctx& ctx, ncsi_transfer_op transfer) {
    ctx.transfer = transfer;
    for (ncsi_channel& channel : ctx.channels) {
        channel.ctx = &ctx;
    }
}

}  // namespace

int32_t ncsi_request_init(uint8_t* header) {
    constexpr size_t kRevision = 1;
    if (header == nullptr) {
        return -1;
    }
    std::memset(header, 0, NCSI_HEADER_SIZE);
    header[kRevision] = 1;
    return 0;
}

int32_t ncsi_init(ncsi_ctx* ctx, const mctp_ctx* config) {
    if (ctx == nullptr || config == nullptr) {
        return -1;
    }
    // First: the prototype may be the endpoint that is released.
    sideband::EndpointPtr endpoint = sideband::create_endpoint(*config);
    release_owned(*ctx);
    ctx->mctp = nullptr;
    if (endpoint == nullptr) {
        std::puts("can't alloc m_ctx");
        return -1;
    }
    install(*ctx, ncsi::exchange);
    if (mctp_init2(endpoint.get()) < 0) {
        std::puts("mctp discover failed");
        return -1;
    }
    endpoint->msg_type = kMessageType;
    ctx->mctp = endpoint.release();
    sideband::own(ctx->owned, ctx->mctp);
    return ncsi_discovery(ctx);
}

int32_t ncsi_deinit(ncsi_ctx* ctx) {
    if (ctx != nullptr) {
        std::free(ctx->mctp);
        ctx->mctp = nullptr;
        ctx->owned = {};
    }
    return 0;
}

int32_t ncsi_oem_init(ncsi_ctx* ctx, mctp_ctx* mctp) {
    if (ctx == nullptr || mctp == nullptr) {
        return -1;
    }
    release_owned(*ctx, mctp);
    ctx->mctp = mctp;
    ctx->oem_transfer = ncsi::exchange_locked;
    install(*ctx, ncsi::exchange_by_oem);
    mctp->skip_discovery = 1;
    mctp->i2c_delay_us = 0;
    if (mctp_init2(mctp) < 0) {
        std::puts("binding method configure error");
        return -1;
    }
    return 0;
}

int32_t ncsi_discovery(ncsi_ctx* ctx) {
    if (ctx == nullptr || ctx->transfer == nullptr) {
        return -1;
    }
    for (unsigned package = 0; package < NCSI_PACKAGES; ++package) {
        bool found = false;
        for (unsigned number = 0; number < NCSI_CHANNELS; ++number) {
            found |= discover(*ctx, package, number);
        }
        if (found) {
            return 0;
        }
    }
    return -1;
}

int32_t ncsi_oem_discovery(ncsi_ctx* ctx) {
    if (ctx == nullptr || ctx->oem_transfer == nullptr) {
        return -1;
    }
    for (unsigned number = 0; number < NCSI_CHANNELS; ++number) {
        ncsi::Request request(NCSI_CLEAR_INITIAL_STATE, channel_id_of(0, number), 0);
        ncsi::Response response{};
        if (ctx->oem_transfer(ctx, request.size(), kStatusCapacity, request.data(),
                              response.data()) >= 0) {
            return 0;
        }
        std::puts("clear init state failed.");
    }
    return -1;
}

int32_t ncsi_get_link_status(ncsi_channel* channel) {
    // The link status is big-endian: its most significant byte comes first.
    constexpr size_t kHighByte = ncsi::kResponsePayload;
    constexpr size_t kLowByte = kHighByte + 3;
    constexpr uint8_t kLinkUp = 0x01;
    constexpr uint8_t kSpeedMask = 0x0F;
    constexpr uint8_t kAutonegDone = 0x40;
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Response response{};
    const int32_t result = command(*channel, NCSI_GET_LINK_STATUS, channel->channel_id,
                                   kLinkStatusCapacity, kLowByte + 1, response);
    if (result < 0) {
        std::puts("get link status failed.");
        return result;
    }
    const uint8_t low = response[kLowByte];
    channel->link_up = low & kLinkUp;
    channel->speed = response[kHighByte] != 0 ? response[kHighByte] : low >> 1 & kSpeedMask;
    channel->autoneg_done = (low & kAutonegDone) != 0 ? 1 : 0;
    return result;
}

int32_t ncsi_select_package(ncsi_channel* channel, uint32_t package_id) {
    return address_package(channel, NCSI_SELECT_PACKAGE, package_id,
                           "select package falied on package id[%d].\n");
}

int32_t ncsi_deselect_package(ncsi_channel* channel, uint32_t package_id) {
    return address_package(channel, NCSI_DESELECT_PACKAGE, package_id,
                           "deselect package falied on package id[%d]\n");
}
