// SPDX-License-Identifier: Apache-2.0
// The standard NC-SI commands, and the discovery of channels with them (DSP0222).
#include <sideband/ncsi.h>
#include <sideband/platform.h>

#include <cstdio>
#include <cstring>

#include "ncsi/message.h"

using namespace sideband;

namespace {

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
