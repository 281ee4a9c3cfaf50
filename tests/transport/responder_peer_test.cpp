// SPDX-License-Identifier: Apache-2.0
// Whom the BMC answers as an endpoint over PCIe, however the port fills the record of a read.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::hex;
using test::port;

constexpr uint8_t kFormerEid = 0x08;
constexpr uint8_t kOwnerEid = 0x0A;

/// What a port's read stores in the two EIDs of the record; empty: what was there stays.
struct Port {
    const char* name;
    std::optional<uint8_t> src_eid;
    std::optional<uint8_t> dest_eid;
    bool peer_is_destination;
};

const Port kPorts[] = {
    {"SenderToNull", kOwnerEid, 0x00, false},
    {"SenderToBroadcast", kOwnerEid, 0xFF, false},
    {"SenderToFormerEid", kOwnerEid, kFormerEid, false},
    {"SenderToUnknownEid", kOwnerEid, 0x33, false},
    {"PeerAndNull", 0x00, kOwnerEid, true},
    {"PeerAndBroadcast", 0xFF, kOwnerEid, true},
    {"PeerAndFormerEid", kFormerEid, kOwnerEid, true},
    {"PeerAndWhatWasThere", {}, kOwnerEid, true},
};

class ResponderPeer : public test::PlatformTest, public ::testing::WithParamInterface<Port> {
protected:
    ResponderPeer() {
        ctx.src_eid = kFormerEid;
        ctx.binding_kind = MCTP_BINDING_KIND_PCIE;
        ctx.skip_discovery = 1;
        EXPECT_EQ(mctp_init2(&ctx), 0);
        ctx.recv = mctp_pcie_recv_with_type;
        port().on_pcie = [this](plt_pcie_request& request) { return transact(request); };
    }

    /// The owner does not answer Discovery Notify; then it asks.
    int transact(plt_pcie_request& request) {
        if (request.operation == PLT_PCIE_WRITE) {
            answers.push_back(request);
        }
        if (request.operation != PLT_PCIE_READ || requests.empty()) {
            return 0;
        }
        const Bytes message = requests.front();
        requests.pop_front();
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        request.src_eid = GetParam().src_eid.value_or(request.src_eid);
        request.dest_eid = GetParam().dest_eid.value_or(static_cast<uint8_t>(request.dest_eid));
        return 1;
    }

    mctp_ctx ctx{};
    std::deque<Bytes> requests;
    std::vector<plt_pcie_request> answers;
};

INSTANTIATE_TEST_SUITE_P(Port, ResponderPeer, ::testing::ValuesIn(kPorts),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(ResponderPeer, EveryAnswerGoesToWhoAsked) {
    requests = {hex("00 82 0B"), hex("00 80 02"), hex("00 81 01 00 FF"), hex("00 83 01 00 2A")};
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    ASSERT_EQ(answers.size(), 4u);
    for (const plt_pcie_request& answer : answers) {
        EXPECT_EQ(answer.dest_eid, kOwnerEid);
    }
    EXPECT_EQ(answers[0].src_eid, 0x00) << "no EID so far";
    EXPECT_EQ(answers[3].src_eid, 0x2A);
}

TEST_P(ResponderPeer, TheOwnerIsRememberedAsThePeer) {
    requests = {hex("00 83 01 00 2A")};
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(ctx.src_eid, 0x2A);
    EXPECT_EQ(ctx.dest_eid, kOwnerEid);
    EXPECT_EQ(ctx.owner_route.binding_eids[0], kOwnerEid);
    const uint8_t returned[] = {ctx.binding_eids[0], ctx.binding_eids[1]};
    const size_t other = GetParam().peer_is_destination ? 0 : 1;
    EXPECT_EQ(ctx.owner_route.binding_eids[1], returned[other]);
    EXPECT_EQ(returned[1 - other], kOwnerEid) << "what the port returned stays as it was";
}

TEST_P(ResponderPeer, NobodyToBeTakenForThePeerIsAnsweredAtTheFirstEid) {
    requests = {hex("00 80 02")};
    port().on_pcie = [this](plt_pcie_request& request) {
        const int result = transact(request);
        if (request.operation == PLT_PCIE_READ) {
            request.src_eid = kFormerEid;
            request.dest_eid = 0xFF;
        }
        return result;
    };
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].dest_eid, kFormerEid);
}

}  // namespace
