// SPDX-License-Identifier: Apache-2.0
// Fuzzes the records that the platform's PCIe call hands back: exchange, receive, bring-up of the
// bus owner, discovery, and PLDM on top.
#include <sideband/mctp.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

constexpr int32_t kCapacityMax = 1200;

int32_t take_capacity(Input& input) {
    return static_cast<int32_t>(input.u16()) % (kCapacityMax + 4) - 4;
}

size_t room_for(int32_t capacity) {
    return static_cast<size_t>(std::max<int32_t>(capacity, 0));
}

void exchange(mctp_ctx& ctx, Input& input) {
    const int32_t capacity = take_capacity(input);
    const std::vector<uint8_t> request(input.u16() % 1100u, 0x5A);
    GuardedBuffer response(room_for(capacity));
    const auto length = static_cast<uint32_t>(request.size());
    const int32_t result = ctx.xfer(&ctx, length, capacity, request.data(), response.data());
    response.check();
    require(result >= -2 && result <= std::max<int32_t>(capacity, 0), "an undocumented result");
    require(response.untouched_from(room_for(result)), "written behind what the result counts");
}

void receive(mctp_ctx& ctx, Input& input) {
    const uint8_t how = input.u8();
    ctx.recv = (how & 1) != 0 ? mctp_pcie_recv_with_type : ctx.recv;
    const int32_t capacity = take_capacity(input);
    GuardedBuffer buffer(room_for(capacity));
    const int32_t result = ctx.recv(&ctx, capacity, buffer.data());
    buffer.check();
    require(result >= -1 && result <= std::max<int32_t>(capacity, 0), "an undocumented result");
    require(result >= 0 || buffer.untouched_from(0), "a failed receive changed the buffer");
}

void send(mctp_ctx& ctx, Input& input) {
    const std::vector<uint8_t> body(input.u16() % 1100u, 0x0D);
    const int32_t result = ctx.send(&ctx, static_cast<uint32_t>(body.size()), body.data(), 1);
    require(result == (body.size() < PLT_PCIE_MESSAGE_SIZE ? 0 : -1), "an undocumented result");
}

void binding_read(mctp_ctx& ctx, Input& input) {
    GuardedBuffer buffer(PLT_PCIE_MESSAGE_SIZE);
    const int32_t result = ctx.binding->read(&ctx.section, input.u8(), buffer.data());
    buffer.check();
    require(result >= -1 && result <= PLT_PCIE_MESSAGE_SIZE, "an undocumented result");
    require(buffer.untouched_from(room_for(result)), "written behind what the result counts");
}

void bring_up(mctp_ctx& /*ctx*/, Input& input) {
    mctp_ctx mpio{};
    mpio.strict = fuzz::world().strict;
    _init_amd_mpio_ctx(&mpio);
    const uint8_t how = input.u8();
    if ((how & 1) != 0) {
        at_p_St_GlobalSecVar->mpio_state = PLT_MPIO_WANTED;
    }
    const int32_t result = (how & 2) != 0 ? do_init_amd_mpio(&mpio) : init_amd_mpio_if_need(&mpio);
    require(result == 0 || result == -1, "an undocumented result");
}

void discover(mctp_ctx& ctx, Input& input) {
    input.fill(ctx.pcie_bdf);
    ctx.skip_discovery = 0;
    const int32_t result = (input.u8() & 1) != 0 ? mctp_init2(&ctx) : get_eid_from_mpio(&ctx);
    require(result == 0 || result == -1, "an undocumented result");
}

void speak_pldm(mctp_ctx& ctx, Input& /*input*/) {
    pldm_ctx terminus{};
    require(mctp_pldm_register(&ctx, &terminus) == 0, "not registered");
    require(pldm_discovery(&terminus) <= 255, "an undocumented result");
    ctx.msg_type = MCTP_MSG_TYPE_CONTROL;
}

void be_an_endpoint(mctp_ctx& ctx, Input& /*input*/) {
    if (fuzz::world().endless) {
        return;  // an owner that never stops asking is answered without end
    }
    ctx.recv = mctp_pcie_recv_with_type;
    const int32_t result = get_bmc_by_owner(&ctx);
    require(result == 0 || result == 1, "an undocumented result");
}

constexpr void (*kOperations[])(mctp_ctx&, Input&) = {
    exchange, receive, send, binding_read, bring_up, discover, speak_pldm, be_an_endpoint,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsMax = 8;
    /// A whole routing table, each request thrice; or one answer for each byte of the input.
    const auto exchanges_max = static_cast<unsigned>(255 * 3 + 32 + 2 * size);
    /// Messages of others that a strict receive passes over.
    constexpr unsigned kPassedOver = 1024;
    fuzz::begin(bytes, size);
    Input& input = fuzz::world().input;
    const bool passes_over =
        (fuzz::world().strict & (MCTP_STRICT_PACKETS | MCTP_STRICT_ADDRESSES)) != 0;
    const unsigned calls_max =
        exchanges_max * fuzz::strict_messages() * (passes_over ? kPassedOver + 1 : 1);
    for (int i = 0; i < kCallsMax && (i == 0 || !input.empty()); ++i) {
        mctp_ctx ctx{};
        ctx.binding_kind = MCTP_BINDING_KIND_PCIE;
        ctx.skip_discovery = 1;
        ctx.strict = fuzz::world().strict;
        ctx.tag = input.u8();
        require(mctp_init2(&ctx) == 0, "the context was not set up");
        kOperations[input.u8() % std::size(kOperations)](ctx, input);
        fuzz::end(calls_max);
    }
    fuzz::finish();
    return 0;
}
