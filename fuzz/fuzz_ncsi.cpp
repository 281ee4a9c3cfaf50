// SPDX-License-Identifier: Apache-2.0
// Fuzzes the responses to NC-SI commands, below and in place of the transfer operation, and a
// context's life over SMBus.
#include <sideband/ncsi.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;
using fuzz::world;

constexpr size_t kIid = 3;
constexpr size_t kType = 4;
constexpr uint32_t kChecksumSize = 4;

void require_result(int32_t result) {
    require(result == 0 || result == -1, "an undocumented result");
}

/// None, which is 0, or if strict the one that makes all words of 16 bits come to 0 (DSP0222,
/// clause 8.2.2.3).
void require_checksum(const uint8_t* request, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length - kChecksumSize; i += 2) {
        sum += static_cast<uint32_t>(request[i] << 8 | request[i + 1]);
    }
    uint32_t checksum = 0;
    for (uint32_t i = length - kChecksumSize; i < length; ++i) {
        checksum = checksum << 8 | request[i];
    }
    const bool strict = (world().strict & MCTP_STRICT_INTEGRITY) != 0;
    require(checksum == (strict ? 0 - sum : 0), "a wrong checksum");
}

/// An endpoint's exchange: what goes out is a whole control packet.
int32_t controller_xfer(mctp_ctx* /*ctx*/, uint32_t request_length, int32_t response_length,
                        const uint8_t* request, uint8_t* response) {
    require(request_length >= NCSI_HEADER_SIZE + kChecksumSize && request_length % 4 == 0,
            "a request without its checksum field");
    require_checksum(request, request_length);
    require(request[kIid] != 0, "instance ID 0");
    require(response_length >= 0 && response_length % 4 == 0, "a capacity that is not padded");
    ++world().exchanges;
    world().last_instance = 0;
    world().last_command = static_cast<uint8_t>(request[kType] | 0x80);
    const fuzz::Answer answer = fuzz::next_answer(kType);
    const size_t room = static_cast<size_t>(response_length);
    std::copy_n(answer.bytes.begin(), std::min(answer.bytes.size(), room), response);
    return std::min(answer.result, response_length);
}

/// A transfer operation as a caller may install one: codes are not looked at, and the length is
/// whatever it says.
int32_t own_transfer(ncsi_channel* channel, uint32_t /*request_length*/, int32_t response_capacity,
                     uint8_t* request, uint8_t* response) {
    ++world().exchanges;
    world().last_command = static_cast<uint8_t>(request[kType] | 0x80);
    const fuzz::Answer answer = fuzz::next_answer(kType);
    const size_t room = static_cast<size_t>((response_capacity + 3) / 4 * 4);
    std::copy_n(answer.bytes.begin(), std::min(answer.bytes.size(), room), response);
    channel->ctx->response_length = answer.result;
    return std::min(answer.result, 0);
}

/// What the commands under test may be called with.
struct Target {
    ncsi_ctx ctx{};
    ncsi_transfer_op transfer = nullptr;  ///< the library's own, whatever ctx has

    ncsi_channel& channel(Input& input) { return ctx.channels[input.u8() % NCSI_CHANNELS]; }
};

void discover(Target& target, Input& /*input*/) {
    ncsi_ctx& ctx = target.ctx;
    const uint8_t before = ctx.channel_num;
    const int32_t result = ncsi_discovery(&ctx);
    require_result(result);
    const auto found = static_cast<uint8_t>(ctx.channel_num - before);
    require(found <= NCSI_CHANNELS && (found != 0) == (result == 0), "a wrong count of channels");
    require(world().exchanges <= NCSI_PACKAGES * NCSI_CHANNELS, "too many attempts");
}

void discover_oem(Target& target, Input& /*input*/) {
    require_result(ncsi_oem_discovery(&target.ctx));
    require(world().exchanges <= NCSI_CHANNELS, "too many attempts");
}

void get_link_status(Target& target, Input& input) {
    ncsi_channel& channel = target.channel(input);
    const ncsi_channel before = channel;
    const int32_t result = ncsi_get_link_status(&channel);
    require(result <= 0, "an undocumented result");
    require(result == 0 || std::memcmp(&before, &channel, sizeof before) == 0,
            "a failed command changed the record");
    require(result != 0 || (channel.link_up <= 1 && channel.autoneg_done <= 1), "no flags");
}

void address_package(Target& target, Input& input) {
    ncsi_channel& channel = target.channel(input);
    const uint8_t which = input.u8();
    const uint32_t package = which / 2u % (NCSI_PACKAGES + 1);
    const int32_t result = which % 2 == 0 ? ncsi_select_package(&channel, package)
                                          : ncsi_deselect_package(&channel, package);
    require(result <= 0, "an undocumented result");
    require(package < NCSI_PACKAGES || (result == -1 && world().exchanges == 0),
            "a package that there is none of");
}

void require_setting(const ncsi_channel& before, const ncsi_channel& after, bool may_change) {
    const bool same = before.oem_flag == after.oem_flag && before.oem_value == after.oem_value;
    require(may_change || same, "a command changed the setting in the record");
    require(same || (after.oem_flag <= 1 && after.oem_valid == 1), "a setting that is not valid");
    require(after.oem_valid <= 1 || after.oem_valid == before.oem_valid, "no flag");
}

void broadcom(Target& target, Input& input) {
    ncsi_channel& channel = target.channel(input);
    const ncsi_channel before = channel;
    const uint32_t command = input.u8() % 3u;
    const int32_t result = ncsi_oem_brcm_entry(&channel, command);
    require(result <= 0, "an undocumented result");
    require_setting(before, channel, command == 0 && result == 0);
}

void mellanox(Target& target, Input& input) {
    ncsi_channel& channel = target.channel(input);
    const ncsi_channel before = channel;
    const uint32_t command = input.u8() % 5u;
    const int32_t result = ncsi_oem_mx_entry(&channel, command | 0x100u);
    require(result <= (command == 3 ? 255 : 0), "an undocumented result");
    require_setting(before, channel, command == 0 && result == 0);
}

/// Either exchange with a request and room of any size.
void exchange(Target& target, Input& input) {
    ncsi_ctx& ctx = target.ctx;
    ncsi_channel& channel = target.channel(input);
    const uint8_t which = input.u8();
    const uint32_t length = input.u8();
    const auto capacity = static_cast<int16_t>(input.u16());
    const auto wanted = static_cast<size_t>(std::max<int16_t>(capacity, 0));
    GuardedBuffer request((length + 3) / 4 * 4 + kChecksumSize);
    GuardedBuffer response((wanted + 3) / 4 * 4);
    input.fill({request.data(), length});
    const int32_t result =
        which % 2 == 0
            ? target.transfer(&channel, length, capacity, request.data(), response.data())
            : ctx.oem_transfer(&ctx, length, capacity, request.data(), response.data());
    request.check();
    response.check();
    require(result <= 0, "an undocumented result");
    require(length >= NCSI_HEADER_SIZE || result < 0, "a request without a header");
}

/// What a caller writes into a record.
void configure(Target& target, Input& input) {
    ncsi_channel& channel = target.channel(input);
    channel.channel_id = input.u8();
    channel.oem_flag = input.u8();
    channel.oem_value = input.u16();
    channel.sensor_index = input.u8();
}

/// The whole stack: an endpoint of its own, brought up over SMBus packets.
void life(Target& /*target*/, Input& input) {
    const mctp_ctx config = fuzz::configuration(input.u8());
    ncsi_ctx ctx{};
    const int32_t result = ncsi_init(&ctx, &config);
    require_result(result);
    require(result != 0 || (ctx.mctp != nullptr && ctx.channel_num != 0), "no endpoint");
    if (result == 0) {
        require_result(ncsi_get_link_status(&ctx.channels[0]));
        require(ncsi_oem_mx_get_temperature(&ctx.channels[0]) <= 255, "an undocumented result");
    }
    require(ncsi_deinit(&ctx) == 0 && ctx.mctp == nullptr, "not released");
}

constexpr void (*kCalls[])(Target&, Input&) = {
    discover,  discover_oem, get_link_status, address_package, broadcom, mellanox, exchange,
    configure, life,
};

/// Gives a context both operations and an endpoint. No binding has this number: the endpoint keeps
/// its own exchange.
void bind(ncsi_ctx& ctx, mctp_ctx& endpoint) {
    mctp_ctx nowhere{};
    nowhere.binding_kind = endpoint.binding_kind = 0xFF;
    // The last one's transfer counts: that of the plain exchange.
    require(ncsi_oem_init(&ctx, &endpoint) == -1 && ncsi_init(&ctx, &nowhere) == -1, "a binding");
    ctx.mctp = &endpoint;
    endpoint.xfer = controller_xfer;
    endpoint.msg_type = MCTP_MSG_TYPE_NCSI;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsOfAnInput = 16;
    // Over SMBus 64 attempts and two more exchanges, each with its dropped packets.
    constexpr unsigned kPlatformCallsMax = 68 * 1200;
    mctp_ctx endpoint{};
    Target target;
    bind(target.ctx, endpoint);
    fuzz::begin(bytes, size);
    endpoint.strict = world().strict;
    Input& input = world().input;
    const uint8_t mode = input.u8();
    target.transfer = target.ctx.transfer;
    if ((mode & 0x01) != 0) {
        target.ctx.transfer = own_transfer;
    }
    target.ctx.iid = mode & 0xFE;
    endpoint.bus = mode >> 4;
    for (int i = 0; i < kCallsOfAnInput && (i == 0 || !input.empty()); ++i) {
        kCalls[input.u8() % std::size(kCalls)](target, input);
        fuzz::end(kPlatformCallsMax);
    }
    fuzz::finish();
    return 0;
}
