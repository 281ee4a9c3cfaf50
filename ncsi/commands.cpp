// SPDX-License-Identifier: Apache-2.0
// The standard NC-SI commands, and the discovery of channels with them (DSP0222).
#include <sideband/ncsi.h>
#include <sideband/platform.h>

#include <cstring>

#include "common/output.h"
#include "ncsi/message.h"

using namespace sideband;

namespace {

/// Bytes that are asked for if nothing but the codes is wanted: codes and checksum.
constexpr int32_t kStatusCapacity = 24;

/// A command without payload whose response holds nothing but the codes.
int32_t plain_command(ncsi_channel& channel, uint8_t type, uint8_t channel_id) {
    ncsi::Request request(type, channel_id);
    return finish(exchange(channel, request, kStatusCapacity));
}

uint8_t channel_id_of(unsigned package, unsigned channel) {
    return static_cast<uint8_t>(package << ncsi::kPackageShift | channel);
}

/// Clears the initial state of a channel and records it.
bool discover(ncsi_ctx& ctx, unsigned package, unsigned number) {
    const uint8_t id = channel_id_of(package, number);
    ncsi_channel& channel = ctx.channels[number];
    if (!ncsi::begin(&channel) || plain_command(channel, NCSI_CLEAR_INITIAL_STATE, id) < 0) {
        print_formatted("clear init state failed. channel_id:%02x\n", id);
        return false;
    }
    channel.channel_id = id;
    ++ctx.channel_num;
    print_formatted("discovery ncsi channel[%u], channel_id:%02x\n", number, id);
    return true;
}

/// Of several channels that did not answer the first one tells why, and not the last one, which may
/// not be there at all.
void keep_first(sideband_error& first, const sideband_error& error) {
    if (first.cause == SIDEBAND_CAUSE_NONE) {
        first = error;
    }
}

int32_t address_package(ncsi_channel* channel, uint8_t type, uint32_t package_id,
                        const char* failure) {
    if (!ncsi::begin(channel)) {
        return -1;
    }
    int32_t result = -1;
    // More has no room in a channel ID: the rest would name another package.
    if (package_id < NCSI_PACKAGES) {
        result = plain_command(*channel, type, channel_id_of(package_id, ncsi::kWholePackage));
    }
    if (result < 0) {
        print_on_console(failure, static_cast<int>(package_id));
    }
    return result;
}

}  // namespace

int32_t ncsi_request_init(uint8_t* header) {
    if (header == nullptr) {
        return -1;
    }
    std::memset(header, 0, NCSI_HEADER_SIZE);
    ncsi::Header{}.write({header, NCSI_HEADER_SIZE});
    return 0;
}

int32_t ncsi_discovery(ncsi_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kArgumentError;
    if (ctx->transfer == nullptr) {
        return -1;
    }
    sideband_error first = kNoError;
    for (unsigned package = 0; package < NCSI_PACKAGES; ++package) {
        bool found = false;
        for (unsigned number = 0; number < NCSI_CHANNELS; ++number) {
            found |= discover(*ctx, package, number);
            keep_first(first, ctx->last_error);
        }
        if (found) {
            ctx->last_error = kNoError;  // Of channels that are not there.
            return 0;
        }
    }
    ctx->last_error = first;
    return -1;
}

int32_t ncsi_oem_discovery(ncsi_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kArgumentError;
    if (ctx->oem_transfer == nullptr) {
        return -1;
    }
    sideband_error first = kNoError;
    for (unsigned number = 0; number < NCSI_CHANNELS; ++number) {
        ncsi::Request request(NCSI_CLEAR_INITIAL_STATE, channel_id_of(0, number));
        ctx->last_error = kNoError;
        if (ctx->oem_transfer(ctx, request.size(), kStatusCapacity, request.data(),
                              request.room().data()) >= 0) {
            return 0;
        }
        ncsi::note_failed_exchange(*ctx, NCSI_CLEAR_INITIAL_STATE);
        print_line("clear init state failed.");
        keep_first(first, ctx->last_error);
    }
    ctx->last_error = first;
    return -1;
}

int32_t ncsi_get_link_status(ncsi_channel* channel) {
    constexpr int32_t kLinkStatusCapacity = 36;
    constexpr uint32_t kLinkUp = 1u << 0;
    constexpr unsigned kSpeedShift = 1;
    constexpr uint32_t kSpeedMask = 0x0F;
    constexpr uint32_t kAutonegDone = 1u << 6;
    constexpr unsigned kExtendedSpeedShift = 24;
    if (!ncsi::begin(channel)) {
        return -1;
    }
    ncsi::Request request(NCSI_GET_LINK_STATUS, channel->channel_id);
    ncsi::Answer answer = exchange(*channel, request, kLinkStatusCapacity);
    const uint32_t status = answer.body.be32();
    const int32_t result = finish(answer);
    if (result < 0) {
        print_line("get link status failed.");
        return result;
    }
    const uint32_t extended_speed = status >> kExtendedSpeedShift;
    const uint32_t speed = status >> kSpeedShift & kSpeedMask;
    channel->link_up = (status & kLinkUp) != 0 ? 1 : 0;
    channel->speed = static_cast<uint8_t>(extended_speed != 0 ? extended_speed : speed);
    channel->autoneg_done = (status & kAutonegDone) != 0 ? 1 : 0;
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
