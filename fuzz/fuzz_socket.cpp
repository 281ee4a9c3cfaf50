// SPDX-License-Identifier: Apache-2.0
// Fuzzes the addresses and messages that the kernel's MCTP sockets hand over, and their failures.
#include <sideband/mctp.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/sockets.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;
using fuzz::sockets;

constexpr int32_t kCapacityMax = 9000;
/// What one wait may take beyond its time: it may be interrupted late.
constexpr int64_t kInterruptionMax = 255 + 10;

size_t room_for(int32_t capacity) {
    return static_cast<size_t>(std::max<int32_t>(capacity, 0));
}

int32_t take_capacity(Input& input) {
    return static_cast<int32_t>(input.u16()) % (kCapacityMax + 4) - 4;
}

/// Judges what a receive has done with its buffer.
void require_received(const mctp_ctx& ctx, int32_t result, int32_t capacity,
                      const GuardedBuffer& room, int64_t start) {
    room.check();
    require(result >= -1 && result <= std::max<int32_t>(capacity, 0), "an undocumented result");
    require(room.untouched_from(room_for(result)), "written behind what the result counts");
    require(result <= 0 || !fuzz::must_not_pass(ctx), "a message that must not pass");
    const int64_t wait =
        (ctx.route & 0xFFFF) != 0 ? ctx.route & 0xFFFF : MCTP_SOCKET_WAIT_DEFAULT_MS;
    require(sockets().now - start <= wait + kInterruptionMax, "it waits for too long");
}

void exchange(mctp_ctx& ctx, Input& input) {
    const int32_t capacity = take_capacity(input);
    const std::vector<uint8_t> request(input.u16() % 1100u, 0x5A);
    GuardedBuffer room(room_for(capacity));
    const int64_t start = sockets().now;
    const int32_t result = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()), capacity,
                                    request.data(), room.data());
    require_received(ctx, result, capacity, room, start);
}

void receive(mctp_ctx& ctx, Input& input) {
    const int32_t capacity = take_capacity(input);
    GuardedBuffer room(room_for(capacity));
    const int64_t start = sockets().now;
    const int32_t result = ctx.recv(&ctx, capacity, room.data());
    require_received(ctx, result, capacity, room, start);
}

void send(mctp_ctx& ctx, Input& input) {
    const uint8_t tag_owner = input.u8() & 1;
    const std::vector<uint8_t> body(input.u16() % 5000u, 0x0D);
    const int32_t result =
        ctx.send(&ctx, static_cast<uint32_t>(body.size()), body.data(), tag_owner);
    require(result == 0 || result == -1, "an undocumented result");
}

/// A step of a firmware update, whose requests open and close the listener.
void step(mctp_ctx& ctx, Input& input) {
    const uint8_t request[] = {0x80, 0x05, input.u8()};
    ctx.msg_type = MCTP_MSG_TYPE_PLDM;
    const int32_t result = ctx.send(&ctx, sizeof request, request, 1);
    require(result == 0 || result == -1, "an undocumented result");
}

void readdress(mctp_ctx& ctx, Input& input) {
    ctx.dest_eid = input.u8();
    ctx.pcie_param = input.u8();
    ctx.msg_type = input.u8();
    ctx.route = input.u16() & 0x0FFF;
}

void let_time_pass(mctp_ctx& /*ctx*/, Input& input) {
    sockets().now += input.u16();
}

void ask_for_eid(mctp_ctx& ctx, Input& /*input*/) {
    ctx.msg_type = MCTP_MSG_TYPE_CONTROL;
    const int32_t result = mctp_get_endpoint_id(&ctx);
    require(result >= -1 && result <= 255, "an undocumented result");
}

void speak_pldm(mctp_ctx& ctx, Input& /*input*/) {
    pldm_ctx terminus{};
    require(mctp_pldm_register(&ctx, &terminus) == 0, "not registered");
    require(pldm_discovery(&terminus) <= 255, "an undocumented result");
}

void speak_nvme(mctp_ctx& ctx, Input& /*input*/) {
    nvmemi_ctx drive{};
    if (nvmemi_init(&drive, &ctx) == 0) {
        const mctp_ctx* const expected = sockets().expected;
        sockets().expected = drive.mctp;
        uint16_t size = 0;
        const int32_t result = nvmemi_config_get_mctp_tx_unit_size(&drive, 0, &size);
        require(result >= -1 && result <= 255, "an undocumented result");
        sockets().expected = expected;
    }
    require(nvmemi_deinit(&drive) == 0, "not released");
}

constexpr void (*kCalls[])(mctp_ctx&, Input&) = {
    exchange, receive, send, step, readdress, let_time_pass, ask_for_eid, speak_pldm, speak_nvme,
};

mctp_ctx endpoint() {
    mctp_ctx made{};
    made.binding_kind = MCTP_BINDING_KIND_SOCKET;
    made.pcie_param = 1;
    made.dest_eid = 9;
    made.skip_discovery = 1;
    made.strict = fuzz::world().strict;
    made.msg_type = MCTP_MSG_TYPE_PLDM;
    require(mctp_init2(&made) == 0, "not installed");
    return made;
}

/// Much later a request, even one that fails, closes whatever was open.
void require_nothing_left() {
    constexpr int64_t kLong = 1000000;
    sockets().now += kLong;
    sockets().failures = 0xFF;
    mctp_ctx ctx = endpoint();
    require(ctx.send(&ctx, 0, nullptr, 1) == -1, "a request without a socket");
    require(sockets().open.empty(), "descriptors were left open");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsOfAnInput = 100;
    fuzz::begin(bytes, size);
    fuzz::begin_sockets();
    Input& input = fuzz::world().input;
    mctp_ctx contexts[2] = {endpoint(), endpoint()};
    sockets().failures = input.u8();
    for (int i = 0; i < kCallsOfAnInput && (i == 0 || !input.empty()); ++i) {
        const uint8_t which = input.u8();
        mctp_ctx& ctx = contexts[which >> 7];
        sockets().expected = &ctx;
        kCalls[(which & 0x7F) % std::size(kCalls)](ctx, input);
        fuzz::end(0);
    }
    require_nothing_left();
    fuzz::finish_sockets();
    fuzz::finish();
    return 0;
}
