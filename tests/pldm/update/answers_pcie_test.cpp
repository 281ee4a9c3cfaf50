// SPDX-License-Identifier: Apache-2.0
// Answers to a device over PCIe: the agent knows its peer, whatever a port says of a request.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <utility>

#include "pldm/update/device.h"
#include "pldm/update/package_fixture.h"

namespace {

using test::Bytes;
using test::port;

/// Source and destination EID of a record that a read returns.
using Returned = std::pair<uint8_t, uint8_t>;

constexpr uint8_t kAgent = 8;
constexpr uint8_t kDevice = 0x1D;

class FwAnswerOverPcie : public test::PackageTest, public ::testing::WithParamInterface<Returned> {
protected:
    void SetUp() override {
        endpoint_.binding_kind = MCTP_BINDING_KIND_PCIE;
        endpoint_.src_eid = kAgent;
        endpoint_.dest_eid = kDevice;
        endpoint_.pcie_bdf[0] = 0x41;
        endpoint_.skip_discovery = 1;
        ASSERT_GE(mctp_init2(&endpoint_), 0);
        ASSERT_EQ(mctp_pldm_register(&endpoint_, &ctx.pldm), 0);
        ASSERT_EQ(parse(test::update_package(1)), 0);
        ctx.update_list =
            static_cast<pldm_update_component*>(std::calloc(1, sizeof(pldm_update_component)));
        ctx.update_list[0].image = ctx.component_images[0];
        ctx.max_transfer_size = 64;
        libc.now = 1'700'000'000;
        port().on_pcie = [this](plt_pcie_request& request) { return serve(request); };
    }

    void TearDown() override {
        ctx.pldm.mctp = nullptr;  // the endpoint is the test's own
        PackageTest::TearDown();
    }

    std::deque<std::string> asks;
    std::vector<plt_pcie_request> answers;

private:
    int serve(plt_pcie_request& request) {
        if (request.operation == PLT_PCIE_WRITE) {
            answers.push_back(request);
            return 1;
        }
        if (asks.empty()) {
            *libc.now += 1000;
            return 0;
        }
        const Bytes message = test::hex("01 " + asks.front());
        asks.pop_front();
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        request.src_eid = GetParam().first;
        request.dest_eid = GetParam().second;
        return 1;
    }

    mctp_ctx endpoint_{};
};

TEST_P(FwAnswerOverPcie, GoesFromTheAgentToTheDevice) {
    asks = {"80 05 11 00 00 00 00 01"};
    ctx.state = 3;
    test::run([&] { return fw_update_state_fn(&ctx); });
    asks = {test::piece(0, 32), test::piece(32, 32), "81 05 16 00", "82 05 17 00"};
    ctx.state = 3;
    test::run([&] { return fw_update_state_fn(&ctx); });
    EXPECT_TRUE(asks.empty());
    ASSERT_EQ(answers.size(), 5u);
    for (const plt_pcie_request& answer : answers) {
        EXPECT_EQ(answer.src_eid, kAgent);
        EXPECT_EQ(answer.dest_eid, kDevice);
        EXPECT_EQ(answer.bus, 0x41u);
        EXPECT_EQ(answer.message[0], 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Ports, FwAnswerOverPcie,
                         ::testing::Values(Returned{kDevice, kAgent}, Returned{kAgent, kDevice},
                                           Returned{kDevice, kDevice}, Returned{kAgent, kAgent},
                                           Returned{0, 0}, Returned{0x55, 0x66}));

}  // namespace
