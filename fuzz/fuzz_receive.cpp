// SPDX-License-Identifier: Apache-2.0
// Fuzzes what arrives over SMBus during an exchange or a receive, on every SMBus operation set.
#include <sideband/mctp.h>

#include <algorithm>
#include <array>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

/// Packets in a row that may have to be dropped before a receive gives up, and some.
constexpr unsigned kDroppedMax = 1024 + 8;
constexpr size_t kRequestRoom = 1100;
constexpr int32_t kCapacityMax = 5000;

struct Setup {
    uint8_t kind;
    bool delayed;
    bool receive_only;
    bool with_type;
    int32_t capacity;
    uint32_t request_length;
};

Setup set_up(mctp_ctx& ctx, Input& input) {
    const uint8_t mode = input.u8();
    Setup setup{};
    setup.kind = (mode & 0x01) != 0 ? MCTP_BINDING_KIND_SL8_SMBUS : MCTP_BINDING_KIND_SMBUS;
    setup.delayed = (mode & 0x02) != 0 && setup.kind == MCTP_BINDING_KIND_SMBUS;
    setup.receive_only = (mode & 0x04) != 0;
    setup.with_type = (mode & 0x08) != 0 && setup.kind == MCTP_BINDING_KIND_SMBUS;
    ctx.i2c_delay_us = (mode & 0x10) != 0 ? 50 : 0;
    ctx.msg_type = (mode & 0x20) != 0 ? 0x84 : (mode & 0x40) != 0 ? 0x01 : 0x00;
    const uint8_t unit = input.u8();
    ctx.unit_size = unit == 0xFF ? uint16_t{0xFFFF} : unit;
    setup.capacity = static_cast<int32_t>(input.u16()) % (kCapacityMax + 4) - 4;
    setup.request_length = input.u8() * ((mode & 0x80) != 0 ? 4u : 1u);
    ctx.tag = input.u8();
    ctx.binding_kind = setup.kind;
    ctx.skip_discovery = 1;
    ctx.strict = fuzz::world().strict;
    ctx.bus = 3;
    ctx.slave_addr = 0x64;
    ctx.dest_eid = 0x1D;
    const int32_t result = setup.delayed ? mctp_init2_with_i2c_delay(&ctx) : mctp_init2(&ctx);
    require(result == 0, "the context was not set up");
    if (setup.with_type) {
        ctx.recv = mctp_smbus_recv_with_type;
    }
    return setup;
}

int32_t run(mctp_ctx& ctx, const Setup& setup, const uint8_t* request, GuardedBuffer& response) {
    if (!setup.receive_only) {
        return ctx.xfer(&ctx, setup.request_length, setup.capacity, request, response.data());
    }
    if (setup.kind == MCTP_BINDING_KIND_SMBUS) {
        return ctx.recv(&ctx, setup.capacity, response.data());
    }
    // This operation set leaves the lock to its caller.
    lx_mutex& bus = at_p_St_GlobalVar->bus_mutex[ctx.bus];
    if (lx_mutex_get(&bus, LX_MUTEX_WAIT_FOREVER) != 0) {
        return -1;
    }
    const int32_t result = ctx.recv(&ctx, setup.capacity, response.data());
    lx_mutex_put(&bus);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kExchangesMax = 4;
    fuzz::begin(bytes, size);
    mctp_ctx ctx{};
    const Setup setup = set_up(ctx, fuzz::world().input);
    std::array<uint8_t, kRequestRoom> request;
    request.fill(0x5A);
    const auto room = static_cast<size_t>(std::max<int32_t>(setup.capacity, 0));
    for (int i = 0; i < kExchangesMax && (i == 0 || !fuzz::world().input.empty()); ++i) {
        GuardedBuffer response(room);
        const uint16_t unit_size = ctx.unit_size;
        const int32_t result = run(ctx, setup, request.data(), response);
        response.check();
        require(result >= -1 && result <= std::max<int32_t>(setup.capacity, 0),
                "an undocumented result");
        require(result < 0 || response.untouched_from(static_cast<size_t>(result)),
                "written behind what the result counts");
        require(ctx.bus == 3 && ctx.slave_addr == 0x64 && ctx.dest_eid == 0x1D &&
                    ctx.unit_size == unit_size,
                "the configuration has changed");
        const unsigned packets = setup.request_length + 5;
        // What the input holds, all of it dropped; then the last packet again, stored or dropped.
        const auto spoken = static_cast<unsigned>(size);
        fuzz::end(spoken + kDroppedMax + static_cast<unsigned>(room) + 3 * packets);
    }
    fuzz::finish();
    return 0;
}
