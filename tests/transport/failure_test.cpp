// SPDX-License-Identifier: Apache-2.0
// Every platform call and every allocation made to fail in turn, under every operation.
#include <sideband/mctp.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::port;
using test::ready_context;
using test::smbus_context;
using Lines = std::vector<std::string>;

/// One operation on a fresh context, with an endpoint that answers it well.
struct Operation {
    const char* name;
    int32_t (*run)();
    bool can_fail = true;  ///< a PCIe send cannot: its failure shows in the missing answer
};

Bytes answer_to(const Bytes& request) {
    const uint8_t command = request.size() > 1 ? request[1] : 0;
    Bytes answer(command == 0x03 ? 19 : 6, 0x00);
    answer[0] = request[0] & 0x1F;
    answer[1] = command;
    if (command == 0x0A) {
        answer = hex("00 0A 00 FF 01 01 4A 00 02 08 02 00 00");
        answer[0] = request[0] & 0x1F;
    }
    return answer;
}

int32_t with_endpoint(const std::function<int32_t()>& run) {
    Endpoint endpoint(
        [](uint8_t, const Bytes& request) { return std::optional<Bytes>(answer_to(request)); });
    port().on_pcie = [](plt_pcie_request& request) {
        const Bytes body = answer_to(Bytes(request.message + 1, request.message + request.length));
        std::copy(body.begin(), body.end(), request.message + 1);
        request.length = static_cast<uint32_t>(body.size() + 1);
        return 1;
    };
    return run();
}

template <int32_t (*Command)(mctp_ctx*), uint8_t Kind = MCTP_BINDING_KIND_SMBUS>
int32_t run_operation() {
    return with_endpoint([] {
        mctp_ctx ctx = ready_context(Kind);
        return Command(&ctx);
    });
}

int32_t exchange(mctp_ctx* ctx) {
    const Bytes request = hex("80 02");
    Guarded response(64);
    const int32_t result = ctx->xfer(ctx, 2, 64, request.data(), response.data());
    EXPECT_TRUE(response.intact());
    EXPECT_TRUE(result >= 0 || response.untouched_from(0));
    return result;
}

int32_t long_send(mctp_ctx* ctx) {
    const Bytes body = test::counting(95);
    return ctx->send(ctx, 95, body.data(), 1);
}

int32_t receive(mctp_ctx* ctx) {
    port().queue({hex("01 08 1D 80 00 AA"), hex("01 08 1D 50 BB")});
    Guarded buffer(1036);
    const int32_t result = ctx->recv(ctx, 1036, buffer.data());
    port().reads.clear();
    EXPECT_TRUE(buffer.intact());
    return result;
}

int32_t pcie_receive(mctp_ctx* ctx) {
    port().on_pcie = [](plt_pcie_request& request) {
        request.length = 2;
        return 1;
    };
    return receive(ctx);
}

int32_t delayed_exchange(mctp_ctx*) {
    mctp_ctx ctx = smbus_context();
    ctx.skip_discovery = 1;
    EXPECT_EQ(mctp_init2_with_i2c_delay(&ctx), 0);
    return exchange(&ctx);
}

int32_t set_up(mctp_ctx*) {
    mctp_ctx ctx = smbus_context();
    return mctp_init2(&ctx);
}

int32_t delayed_set_up(mctp_ctx*) {
    mctp_ctx ctx = smbus_context();
    return mctp_init2_with_i2c_delay(&ctx);
}

int32_t set_eid(mctp_ctx* ctx) {
    return mctp_set_endpoint_id(ctx, 9);
}
int32_t allocate(mctp_ctx* ctx) {
    return mctp_allocate_endpoint_ids(ctx, 0, 32, 64);
}

int32_t read_routing_table(mctp_ctx* ctx) {
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    const int32_t result = mctp_get_routing_table_entries(ctx, 0, table.data());
    EXPECT_TRUE(result == 0 || table.untouched_from(0));
    return result;
}

int32_t look_up(mctp_ctx* ctx) {
    mctp_ctx target{};
    return get_eid_from_routing_table(ctx, &target);
}

const Operation kOperationsThatFail[] = {
    {"SmbusSend", run_operation<long_send>},
    {"SmbusReceive", run_operation<receive>},
    {"SmbusExchange", run_operation<exchange>},
    {"Sl8Send", run_operation<long_send, MCTP_BINDING_KIND_SL8_SMBUS>},
    {"Sl8Receive", run_operation<receive, MCTP_BINDING_KIND_SL8_SMBUS>},
    {"Sl8Exchange", run_operation<exchange, MCTP_BINDING_KIND_SL8_SMBUS>},
    {"DelayedExchange", run_operation<delayed_exchange>},
    {"PcieSend", run_operation<long_send, MCTP_BINDING_KIND_PCIE>, false},
    {"PcieReceive", run_operation<pcie_receive, MCTP_BINDING_KIND_PCIE>},
    {"PcieExchange", run_operation<exchange, MCTP_BINDING_KIND_PCIE>},
    {"SetEndpointId", run_operation<set_eid>},
    {"GetEndpointId", run_operation<mctp_get_endpoint_id>},
    {"GetEndpointIdSl8", run_operation<mctp_get_endpoint_id, MCTP_BINDING_KIND_SL8_SMBUS>},
    {"GetEndpointIdPcie", run_operation<mctp_get_endpoint_id, MCTP_BINDING_KIND_PCIE>},
    {"GetEndpointUuid", run_operation<mctp_get_endpoint_uuid>},
    {"AllocateEndpointIds", run_operation<allocate>},
    {"GetRoutingTableEntries", run_operation<read_routing_table>},
    {"PrepareForEndpointDiscovery", run_operation<mctp_prepare_for_endpoint_discovery>},
    {"EndpointDiscovery", run_operation<mctp_endpoint_discovery>},
    {"RoutingTableLookup", run_operation<look_up>},
    {"AssignEid", run_operation<mctp_assign_eid>},
    {"Discovery", run_operation<mctp_discovery>},
    {"DiscoverySl8", run_operation<mctp_discovery, MCTP_BINDING_KIND_SL8_SMBUS>},
    {"SetUp", run_operation<set_up>},
    {"DelayedSetUp", run_operation<delayed_set_up>},
};

class EveryFailure : public test::PlatformTest, public ::testing::WithParamInterface<Operation> {
protected:
    /// Runs the operation from a fresh state, with the n-th call of the platform failing.
    int32_t run(int failing_call, bool and_all_following = false) {
        port().reset();
        port().fail_call = failing_call;
        port().fail_following = and_all_following;
        const int32_t result = GetParam().run();
        EXPECT_EQ(port().held, Lines()) << failing_call;
        EXPECT_EQ(port().violations, Lines()) << failing_call;
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_EQ(libc.open_streams(), 0u);
        return result;
    }

    int calls_of_a_good_run() {
        EXPECT_GE(run(0), 0);
        return port().result_calls;
    }
};

INSTANTIATE_TEST_SUITE_P(Operation, EveryFailure, ::testing::ValuesIn(kOperationsThatFail),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(EveryFailure, OfOnePlatformCallGivesTheOrdinaryErrorOrIsRetried) {
    const int calls = calls_of_a_good_run();
    ASSERT_GT(calls, 0);
    for (int call = 1; call <= calls; call++) {
        const int32_t result = run(call);
        const std::string failed = port().failed_call;
        ASSERT_FALSE(failed.empty());
        // A write is attempted three times; mux and address have no result that counts.
        const bool survived = failed == "write" || failed == "mux" || failed == "address";
        if (survived || !GetParam().can_fail) {
            EXPECT_GE(result, 0) << failed << ", call " << call;
        } else {
            EXPECT_EQ(result, std::string(GetParam().name) == "PcieExchange" ? -2 : -1)
                << failed << ", call " << call;
        }
    }
}

TEST_P(EveryFailure, OfAllPlatformCallsFromOneOnGivesTheOrdinaryError) {
    const int calls = calls_of_a_good_run();
    for (int call = 1; call <= calls; call++) {
        const int32_t result = run(call, true);
        const std::string failed = port().failed_call;
        // The last calls may be ones whose failure does not count.
        const bool tail = call == calls && (failed == "mux" || failed == "address");
        if (GetParam().can_fail && !tail) {
            EXPECT_LT(result, 0) << failed << ", call " << call;
        }
    }
}

TEST_P(EveryFailure, OfAnAllocationLeavesNothingBehind) {
    const int calls = calls_of_a_good_run();
    const int allocations = libc.allocations();
    EXPECT_EQ(allocations, 0) << "no operation of this layer needs the heap";
    libc.fail_allocation(1);
    EXPECT_GE(run(0), 0);
    EXPECT_EQ(port().result_calls, calls);
    libc.fail_allocation(0);
}

TEST_P(EveryFailure, OfFileTestOrShellDoesNotMatter) {
    libc.present.insert("/sys/bus/i2c/devices/3-0010/mctp-slave-mqueue");
    for (const char* call : {"access", "system"}) {
        libc.fail = {{call, libc.kEvery}};
        EXPECT_GE(run(0), 0) << call;
    }
}

}  // namespace
