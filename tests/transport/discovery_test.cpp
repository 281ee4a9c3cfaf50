// SPDX-License-Identifier: Apache-2.0
// Discovery over SMBus, the EID pool, and the lookup in a bus owner's routing table.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <string>
#include <vector>

#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::hex;
using test::port;
using test::ready_context;
using test::operator+;
using Lines = std::vector<std::string>;

/// Answers of an endpoint that reports this EID.
Bytes eid_answer(uint8_t eid) {
    return Bytes{0x00, 0x02, 0x00, eid, 0x00, 0x00};
}

const Bytes kSetEidAccepted = hex("00 01 00 00 10 00");
const Bytes kSetEidRejected = hex("00 01 02 00 00 00");

class MctpDiscovery : public test::PlatformTest, public ::testing::WithParamInterface<uint8_t> {
protected:
    mctp_ctx ctx = ready_context(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Kind, MctpDiscovery,
                         ::testing::Values(MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS),
                         [](const auto& parameter) {
                             return std::string(parameter.param == 0 ? "Smbus" : "Sl8");
                         });

class AssignEid : public test::PlatformTest {
protected:
    mctp_ctx ctx = ready_context();
};

TEST_P(MctpDiscovery, AnEndpointWithEid8KeepsIt) {
    Endpoint endpoint({eid_answer(8)});
    EXPECT_EQ(mctp_discovery(&ctx), 0);
    EXPECT_EQ(ctx.dest_eid, 8);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{hex("80 02")});
    EXPECT_EQ(port().global.next_eid, 0);
}

TEST_P(MctpDiscovery, AnEndpointWithEid255KeepsIt) {
    Endpoint endpoint({eid_answer(255)});
    EXPECT_EQ(mctp_discovery(&ctx), 0);
    EXPECT_EQ(ctx.dest_eid, 255);
}

TEST_P(MctpDiscovery, EndpointsWithEid0To7GetOneFromThePool) {
    for (uint8_t eid = 0; eid <= 7; eid++) {
        port().global.next_eid = 0;
        ctx.instance_id = 0;
        Endpoint endpoint({eid_answer(eid), kSetEidAccepted});
        EXPECT_EQ(mctp_discovery(&ctx), 0);
        EXPECT_EQ(ctx.dest_eid, 0x10);
        EXPECT_EQ(endpoint.requests, (std::vector<Bytes>{hex("80 02"), hex("81 01 00 10")}));
        EXPECT_EQ(port().global.next_eid, 0x11);
    }
}

TEST_P(MctpDiscovery, AnEndpointThatIsNeverReadyGetsAnEid) {
    const Bytes busy = hex("00 02 04");
    Endpoint endpoint({busy, busy, busy, kSetEidAccepted});
    EXPECT_EQ(mctp_discovery(&ctx), 0);
    EXPECT_EQ(ctx.dest_eid, 0x10);
}

TEST_P(MctpDiscovery, AnEndpointThatDoesNotAnswerFails) {
    EXPECT_EQ(mctp_discovery(&ctx), -1);
    EXPECT_EQ(ctx.dest_eid, 0x1D);
    EXPECT_EQ(port().global.next_eid, 0);
    EXPECT_EQ(port().trace_of({"lock"}), Lines{"lock bus 3"});
}

TEST_P(MctpDiscovery, ARejectedEidFails) {
    Endpoint endpoint({eid_answer(0), kSetEidRejected});
    EXPECT_EQ(mctp_discovery(&ctx), -1);
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpDiscovery, TheEidMutexIsTakenBetweenTheExchangesAndBeforeTheBus) {
    Endpoint endpoint({eid_answer(0), kSetEidAccepted});
    EXPECT_EQ(mctp_discovery(&ctx), 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock"}),
              (Lines{"lock bus 3", "unlock bus 3", "lock eid", "lock bus 3", "unlock bus 3",
                     "unlock eid"}));
}

TEST_F(AssignEid, FirstAssignmentIs16AndTheNext17) {
    Endpoint endpoint({kSetEidAccepted, kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), 16);
    EXPECT_EQ(ctx.dest_eid, 16);
    EXPECT_EQ(mctp_assign_eid(&ctx), 17);
    EXPECT_EQ(ctx.dest_eid, 17);
    EXPECT_EQ(port().global.next_eid, 18);
    EXPECT_EQ(port().syslog, (Lines{"[mctp_assign_eid][1371] successful, new eid: 0x10\n",
                                    "[mctp_assign_eid][1371] successful, new eid: 0x11\n"}));
}

TEST_F(AssignEid, ThePoolIsSharedByAllContexts) {
    mctp_ctx other = ready_context(MCTP_BINDING_KIND_SL8_SMBUS);
    Endpoint endpoint({kSetEidAccepted, kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), 16);
    EXPECT_EQ(mctp_assign_eid(&other), 17);
}

TEST_F(AssignEid, After255ThePoolBeginsAt16Again) {
    port().global.next_eid = 254;
    Endpoint endpoint({kSetEidAccepted, kSetEidAccepted, kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), 254);
    EXPECT_EQ(mctp_assign_eid(&ctx), 255);
    EXPECT_EQ(port().global.next_eid, 0);
    EXPECT_EQ(mctp_assign_eid(&ctx), 16);
}

TEST_F(AssignEid, AFailureLeavesThePoolForTheNextEndpoint) {
    port().global.next_eid = 0x20;
    Endpoint endpoint({kSetEidRejected, kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(ctx.dest_eid, 0x1D);
    EXPECT_EQ(port().global.next_eid, 0x20);
    EXPECT_EQ(port().syslog, Lines());
    EXPECT_EQ(port().held, Lines());
    EXPECT_EQ(mctp_assign_eid(&ctx), 0x20);
}

TEST_F(AssignEid, AFailedFirstAssignmentStillHandsOut16Next) {
    Endpoint endpoint({kSetEidRejected, kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(mctp_assign_eid(&ctx), 16);
}

TEST_F(AssignEid, NoContextFailsWithoutALock) {
    EXPECT_EQ(mctp_assign_eid(nullptr), -1);
    EXPECT_EQ(mctp_discovery(nullptr), -1);
    EXPECT_EQ(port().trace, Lines());
}

TEST_F(AssignEid, HoldsTheEidMutexAroundTheExchange) {
    Endpoint endpoint({kSetEidAccepted});
    EXPECT_EQ(mctp_assign_eid(&ctx), 16);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}),
              (Lines{"lock eid", "lock bus 3", "write", "read", "unlock bus 3", "unlock eid"}));
}

TEST_F(AssignEid, ARefusedEidMutexFailsWithoutTouchingPoolOrBus) {
    port().refused_locks = {"eid"};
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(port().trace, Lines{"lock eid fails"});
    EXPECT_EQ(port().global.next_eid, 0);
}

TEST_F(AssignEid, ARefusedBusMutexReleasesTheEidMutex) {
    port().refused_locks = {"bus 3"};
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(port().trace, (Lines{"lock eid", "lock bus 3 fails", "unlock eid"}));
}

// ---- Routing table ----

/// An answer with this next handle and these entries.
Bytes table(uint8_t next_handle, const std::vector<Bytes>& entries) {
    Bytes answer{0x00, 0x0A, 0x00, next_handle, static_cast<uint8_t>(entries.size())};
    for (const Bytes& entry : entries) {
        answer = answer + entry;
    }
    return answer;
}

const char* const kAsked = "[get_eid_from_routing_table:1296] B/D/F: 41/02/03\n";
const char* const kNotFound = "[get_eid_from_routing_table] B/D/F: 41/02/03, EID not find\n";

class RoutingTable : public test::PlatformTest {
protected:
    RoutingTable() {
        // Bus 0x41, device 2, function 3: the second address byte is 2 << 3 | 3 = 0x13.
        target.pcie_bdf[0] = 0x41;
        target.pcie_bdf[1] = 2;
        target.pcie_bdf[2] = 3;
        target.dest_eid = 0x55;
    }

    int32_t look_up(std::vector<Bytes> answers) {
        Endpoint endpoint(std::move(answers));
        const int32_t result = get_eid_from_routing_table(&owner, &target);
        requests = endpoint.requests;
        return result;
    }

    mctp_ctx owner = ready_context();
    mctp_ctx target{};
    std::vector<Bytes> requests;
};

// Range size, starting EID, type and port, binding type, medium, address size, address.
const Bytes kMatch = hex("01 4A 00 02 08 02 41 13");

TEST_F(RoutingTable, AMatchGivesItsEid) {
    EXPECT_EQ(look_up({table(0xFF, {kMatch})}), 0);
    EXPECT_EQ(target.dest_eid, 0x4A);
    EXPECT_EQ(requests, std::vector<Bytes>{hex("80 0A 00")});
    EXPECT_EQ(port().syslog,
              (Lines{kAsked, "    EID: 0x4A, ", "Addr: 0x41 0x13\n", "      -> EID: 74\n\n\n"}));
}

TEST_F(RoutingTable, TheFirstMatchWins) {
    EXPECT_EQ(look_up({table(0xFF, {kMatch, hex("01 4B 00 02 08 02 41 13")})}), 0);
    EXPECT_EQ(target.dest_eid, 0x4A);
}

TEST_F(RoutingTable, ATableWhoseFirstAnswerEndsItIsReadOnce) {
    EXPECT_EQ(look_up({table(0xFF, {hex("01 4A 00 02 08 02 41 14")}), table(0xFF, {kMatch})}), -1);
    EXPECT_EQ(requests.size(), 1u);
    EXPECT_EQ(target.dest_eid, 0x55);
    EXPECT_EQ(port().syslog, (Lines{kAsked, "    EID: 0x4A, ", "Addr: 0x41 0x14\n", kNotFound}));
}

TEST_F(RoutingTable, FurtherEntriesAreAskedForByTheNextHandle) {
    EXPECT_EQ(look_up({table(0x07, {hex("01 40 00 02 08 02 41 00")}), table(0xFE, {}),
                       table(0xFF, {kMatch})}),
              0);
    EXPECT_EQ(requests, (std::vector<Bytes>{hex("80 0A 00"), hex("81 0A 07"), hex("82 0A FE")}));
    EXPECT_EQ(target.dest_eid, 0x4A);
}

TEST_F(RoutingTable, EveryPartOfTheAddressMustMatch) {
    for (const char* entry : {"01 4A 00 02 08 02 40 13",   // bus
                              "01 4A 00 02 08 02 41 1B",   // device
                              "01 4A 00 02 08 02 41 12",   // function
                              "01 4A 00 01 08 02 41 13"})  // SMBus
    {
        EXPECT_EQ(look_up({table(0xFF, {hex(entry)})}), -1) << entry;
        EXPECT_EQ(target.dest_eid, 0x55);
    }
}

TEST_F(RoutingTable, AnEntryWithoutASecondAddressByteDoesNotMatch) {
    target.pcie_bdf[1] = 0;
    target.pcie_bdf[2] = 0;
    EXPECT_EQ(look_up({table(0xFF, {hex("01 4A 00 02 08 01 41")})}), -1);
    EXPECT_EQ(look_up({table(0xFF, {hex("01 4A 00 02 08 01 41"), hex("00 4B 00 02 08 00")})}), -1);
    EXPECT_EQ(target.dest_eid, 0x55);
}

TEST_F(RoutingTable, TheLargestDeviceAndFunctionMatch) {
    target.pcie_bdf[1] = 31;
    target.pcie_bdf[2] = 7;
    EXPECT_EQ(look_up({table(0xFF, {hex("01 4A 00 02 08 02 41 FF")})}), 0);
}

TEST_F(RoutingTable, EntriesOfOtherAddressSizesAreWalkedOver) {
    EXPECT_EQ(look_up({table(0xFF, {hex("01 20 00 01 04 01 64"), hex("01 21 00 03 00 00"),
                                    hex("01 22 00 06 00 04 01 02 03 04"), kMatch})}),
              0);
    EXPECT_EQ(target.dest_eid, 0x4A);
    EXPECT_EQ(port().syslog,
              (Lines{kAsked, "    EID: 0x20, ", "Addr: 0x64\n", "    EID: 0x21, ",
                     "Addr: Unknown (0)\n", "    EID: 0x22, ", "Addr: Unknown (4)\n",
                     "    EID: 0x4A, ", "Addr: 0x41 0x13\n", "      -> EID: 74\n\n\n"}));
}

TEST_F(RoutingTable, SevenEntriesFillAnAnswer) {
    std::vector<Bytes> entries(6, hex("01 20 00 02 08 02 01 00"));
    entries.push_back(kMatch);
    EXPECT_EQ(look_up({table(0xFF, entries)}), 0);
    EXPECT_EQ(target.dest_eid, 0x4A);
}

TEST_F(RoutingTable, AnEmptyTableHasNoMatch) {
    EXPECT_EQ(look_up({table(0xFF, {})}), -1);
    EXPECT_EQ(port().syslog, (Lines{kAsked, kNotFound}));
}

TEST_F(RoutingTable, AFailedRequestIsReported) {
    EXPECT_EQ(look_up({hex("00 0A 01")}), -1);
    EXPECT_EQ(port().syslog, (Lines{kAsked, "fail in mctp_get_routing_table_entries\n"}));
    EXPECT_EQ(port().console, Lines{"[mctp_get_routing_table_entries] failed\n"});
    EXPECT_EQ(target.dest_eid, 0x55);
}

TEST_F(RoutingTable, AFailedSecondRequestIsReported) {
    EXPECT_EQ(look_up({table(0x01, {})}), -1);
    EXPECT_EQ(requests.size(), 2u);
    EXPECT_EQ(port().syslog, (Lines{kAsked, "fail in mctp_get_routing_table_entries\n"}));
}

TEST_F(RoutingTable, WithoutOwnerOrTargetItFails) {
    EXPECT_EQ(get_eid_from_routing_table(nullptr, &target), -1);
    EXPECT_EQ(target.last_error.cause, SIDEBAND_CAUSE_ARGUMENT);
    EXPECT_EQ(get_eid_from_routing_table(&owner, nullptr), -1);
    EXPECT_EQ(port().trace, Lines());
}

// ---- Routing tables that lie ----

/// Seven entries of eight bytes fill the 56 bytes of an answer; what is larger runs past it.
TEST_F(RoutingTable, AnEntryThatRunsPastTheAnswerFails) {
    std::vector<Bytes> entries(6, hex("01 20 00 02 08 02 01 00"));
    entries.push_back(hex("01 4A 00 02 08 03 41 13"));
    EXPECT_EQ(look_up({table(0xFF, entries)}), -1);
    EXPECT_EQ(target.dest_eid, 0x55);
    EXPECT_EQ(port().syslog.back(), kNotFound);
}

TEST_F(RoutingTable, AnAddressSizeOf255Fails) {
    EXPECT_EQ(look_up({table(0x01, {hex("01 4A 00 02 08 FF 41 13")}), table(0xFF, {kMatch})}), -1);
    EXPECT_EQ(target.dest_eid, 0x55);
}

TEST_F(RoutingTable, ACountBeyondTheEntriesThatWereSentFails) {
    Bytes answer = table(0xFF, {hex("01 20 00 02 08 02 01 00")});
    for (uint8_t count : {2, 7, 8, 255}) {
        answer[4] = count;
        EXPECT_EQ(look_up({answer}), -1);
        EXPECT_EQ(target.dest_eid, 0x55);
    }
}

TEST_F(RoutingTable, AnEntryCutByTheEndOfTheAnswerIsNotAMatch) {
    const Bytes whole = table(0xFF, {kMatch});
    for (size_t length = 5; length < whole.size(); length++) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_EQ(look_up({cut}), -1) << length;
        EXPECT_EQ(target.dest_eid, 0x55) << length;
    }
}

TEST_F(RoutingTable, AnAnswerWithoutAnEntryCountFails) {
    EXPECT_EQ(look_up({hex("00 0A 00 FF")}), -1);
    EXPECT_EQ(port().syslog.back(), "fail in mctp_get_routing_table_entries\n");
}

TEST_F(RoutingTable, AnEndlessTableIsGivenUp) {
    unsigned asked = 0;
    Endpoint endpoint([&asked](uint8_t, const Bytes& request) {
        asked++;
        Bytes answer = table(0x01, {hex("01 20 00 02 08 02 01 00")});
        answer[0] = request[0] & 0x1F;
        return std::optional<Bytes>(answer);
    });
    EXPECT_EQ(get_eid_from_routing_table(&owner, &target), -1);
    EXPECT_EQ(asked, 255u);
    EXPECT_EQ(target.dest_eid, 0x55);
}

}  // namespace
