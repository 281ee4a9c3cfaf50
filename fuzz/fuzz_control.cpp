// SPDX-License-Identifier: Apache-2.0
// Fuzzes the answers to MCTP control requests, discovery, the routing table lookup, and the
// requests that come in while the BMC is an endpoint itself.
#include <sideband/mctp.h>

#include <algorithm>
#include <array>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

void require_success_or_failure(int32_t result) {
    require(result == 0 || result == -1, "an undocumented result");
}

void set_endpoint_id(mctp_ctx& ctx, Input& input) {
    const uint8_t before = ctx.dest_eid;
    const uint8_t eid = input.u8();
    const int32_t result = mctp_set_endpoint_id(&ctx, eid);
    require_success_or_failure(result);
    require(ctx.dest_eid == (result == 0 ? eid : before), "a wrong EID");
}

void get_endpoint_id(mctp_ctx& ctx, Input& /*input*/) {
    const uint8_t before = ctx.dest_eid;
    const int32_t result = mctp_get_endpoint_id(&ctx);
    require(result >= -1 && result <= 255, "an undocumented result");
    require(ctx.dest_eid == (result < 0 ? before : result), "a wrong EID");
}

void get_uuid(mctp_ctx& ctx, Input& /*input*/) {
    std::array<uint8_t, 16> before;
    std::copy_n(ctx.uuid, before.size(), before.begin());
    const int32_t result = mctp_get_endpoint_uuid(&ctx);
    require_success_or_failure(result);
    require(result == 0 || std::equal(before.begin(), before.end(), ctx.uuid),
            "a failed request changed the UUID");
    require(ctx.uuid_end == 0, "the UUID is not terminated");
}

void allocate_ids(mctp_ctx& ctx, Input& input) {
    const uint8_t operation = input.u8();
    const uint8_t pool_size = input.u8();
    require_success_or_failure(mctp_allocate_endpoint_ids(&ctx, operation, pool_size, input.u8()));
}

void get_routing_table(mctp_ctx& ctx, Input& input) {
    GuardedBuffer table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    const int32_t result = mctp_get_routing_table_entries(&ctx, input.u8(), table.data());
    table.check();
    require_success_or_failure(result);
    require(result == 0 || table.untouched_from(0), "a failed request changed the table");
}

void discover(mctp_ctx& ctx, Input& input) {
    ctx.strict = fuzz::world().strict_without_pool();
    switch (input.u8() % 3) {
        case 0:
            return require_success_or_failure(mctp_prepare_for_endpoint_discovery(&ctx));
        case 1:
            return require_success_or_failure(mctp_endpoint_discovery(&ctx));
        default:
            return require_success_or_failure(mctp_discovery(&ctx));
    }
}

void assign_eid(mctp_ctx& ctx, Input& /*input*/) {
    ctx.strict = fuzz::world().strict_without_pool();
    const uint8_t before = at_p_St_GlobalVar->next_eid;
    const uint8_t next = before == 0 ? uint8_t{16} : before;
    const int32_t result = mctp_assign_eid(&ctx);
    if (result == -1) {
        require(at_p_St_GlobalVar->next_eid == before || at_p_St_GlobalVar->next_eid == next,
                "a failure moved the pool on");
        return;
    }
    require(result == next && ctx.dest_eid == next, "a wrong EID");
    require(at_p_St_GlobalVar->next_eid == static_cast<uint8_t>(next + 1),
            "the pool did not move on");
}

void look_up(mctp_ctx& ctx, Input& input) {
    mctp_ctx target{};
    input.fill(target.pcie_bdf);
    const int32_t result = get_eid_from_routing_table(&ctx, &target);
    require_success_or_failure(result);
    require(result == 0 || target.dest_eid == 0, "a failed lookup left an EID");
}

void be_an_endpoint(mctp_ctx& ctx, Input& /*input*/) {
    const int32_t result = get_bmc_by_owner(&ctx);
    require(result == 0 || result == 1, "an undocumented result");
    require(result == 0 || ctx.src_eid != 0, "assigned, but no EID");
}

constexpr void (*kOperations[])(mctp_ctx&, Input&) = {
    set_endpoint_id, get_endpoint_id, get_uuid, allocate_ids,   get_routing_table,
    discover,        assign_eid,      look_up,  be_an_endpoint,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsMax = 8;
    /// A whole routing table, each request thrice; or one answer for each byte of the input.
    const auto exchanges_max = static_cast<unsigned>(255 * 3 + 16 + 2 * size);
    fuzz::begin(bytes, size);
    Input& input = fuzz::world().input;
    mctp_ctx ctx{};
    ctx.instance_id = input.u8();
    ctx.xfer = fuzz::scripted_xfer;
    ctx.send = fuzz::scripted_send;
    ctx.recv = fuzz::scripted_recv;
    for (int i = 0; i < kCallsMax && (i == 0 || !input.empty()); ++i) {
        ctx.strict = fuzz::world().strict;
        kOperations[input.u8() % std::size(kOperations)](ctx, input);
        fuzz::end(exchanges_max);
    }
    fuzz::finish();
    return 0;
}
