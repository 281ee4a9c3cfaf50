// SPDX-License-Identifier: Apache-2.0
// The EID pool of strict contexts: what it leaves out. The library notes EIDs for as long as the
// process lives, so that these tests are a program of their own and each has EIDs of its own.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <set>
#include <string>
#include <vector>

#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::hex;
using test::operator+;
using test::port;
using Lines = std::vector<std::string>;

class EidPool : public test::PlatformTest {
protected:
    /// A context for the endpoint at this address of bus 9, which has no EID.
    static mctp_ctx endpoint_at(uint8_t address, uint32_t strict = MCTP_STRICT_ADDRESSES) {
        mctp_ctx made{};
        made.src_eid = 8;
        made.bus = 9;
        made.slave_addr = address;
        made.unit_size = 64;
        made.skip_discovery = 1;
        EXPECT_EQ(mctp_init2(&made), 0);
        made.strict = strict;
        return made;
    }

    /// Assigns the next EID of the pool to an endpoint that takes it.
    static int32_t assign(mctp_ctx& ctx) {
        Endpoint endpoint([](uint8_t, const Bytes& request) {
            return Bytes{static_cast<uint8_t>(request[0] & 0x1F), 1, 0, 0, request[3], 0};
        });
        const int32_t eid = mctp_assign_eid(&ctx);
        EXPECT_EQ(endpoint.requests.size(), eid < 0 ? 0u : 1u);
        if (eid >= 0) {
            EXPECT_EQ(endpoint.requests.back()[3], eid) << "on the wire";
            EXPECT_EQ(ctx.dest_eid, eid);
        }
        return eid;
    }

    /// Assigns from here on.
    static int32_t assign_from(uint8_t next, mctp_ctx& ctx) {
        port().global.next_eid = next;
        return assign(ctx);
    }
};

TEST_F(EidPool, TheBroadcastEidIsLeftOut) {
    // The strict one first: nobody has been given it so far.
    mctp_ctx strict = endpoint_at(0x12);
    EXPECT_EQ(assign_from(0xFF, strict), 0x10);
    EXPECT_EQ(port().global.next_eid, 0x11);
    mctp_ctx lax = endpoint_at(0x10, 0);
    EXPECT_EQ(assign_from(0xFF, lax), 0xFF);
    EXPECT_EQ(port().global.next_eid, 0);
}

TEST_F(EidPool, ThoseOfTheBmcAreLeftOut) {
    mctp_ctx lax = endpoint_at(0x14, 0);
    EXPECT_EQ(assign_from(0x80, lax), 0x80) << "towards the MPIO";
    mctp_ctx strict = endpoint_at(0x16);
    EXPECT_EQ(assign_from(0x80, strict), 0x81);
    EXPECT_EQ(port().global.next_eid, 0x82);

    mctp_ctx other = endpoint_at(0x18);
    other.src_eid = 0x20;
    EXPECT_EQ(assign_from(0x20, other), 0x21) << "of this context";
    mctp_ctx somebody{};
    somebody.src_eid = 0x22;
    somebody.skip_discovery = 1;
    EXPECT_EQ(mctp_init2(&somebody), 0);
    mctp_ctx another = endpoint_at(0x1A);
    EXPECT_EQ(assign_from(0x22, another), 0x23) << "of another context";
}

TEST_F(EidPool, TheMpioAndItsRangeAreLeftOut) {
    mctp_ctx lax = endpoint_at(0x1C, 0);
    EXPECT_EQ(assign_from(0x40, lax), 0x40);
    mctp_ctx strict = endpoint_at(0x1E);
    EXPECT_EQ(assign_from(0x40, strict), 0x60);
    mctp_ctx other = endpoint_at(0x20);
    EXPECT_EQ(assign_from(0x5F, other), 0x61);
    port().secure.mpio_state = 0x62;
    mctp_ctx another = endpoint_at(0x22);
    EXPECT_EQ(assign_from(0x62, another), 0x63);
}

TEST_F(EidPool, WhatEndpointsReportIsLeftOut) {
    mctp_ctx reporting = endpoint_at(0x24, 0);
    Endpoint reports({hex("00 02 00 90 00 00")});
    EXPECT_EQ(mctp_get_endpoint_id(&reporting), 0x90);
    mctp_ctx lax = endpoint_at(0x26, 0);
    EXPECT_EQ(assign_from(0x90, lax), 0x90);
    mctp_ctx strict = endpoint_at(0x28);
    EXPECT_EQ(assign_from(0x90, strict), 0x91);
}

TEST_F(EidPool, WhatCallersSayIsLeftOut) {
    mctp_ctx known{};
    known.dest_eid = 0x94;
    known.skip_discovery = 1;
    EXPECT_EQ(mctp_init2(&known), 0);
    mctp_ctx set = endpoint_at(0x2A);
    Endpoint takes({hex("00 01 00 00 95 00")});
    EXPECT_EQ(mctp_set_endpoint_id(&set, 0x95), 0);
    mctp_ctx strict = endpoint_at(0x2C);
    EXPECT_EQ(assign_from(0x94, strict), 0x96);
}

TEST_F(EidPool, WhatARoutingTableNamesIsLeftOut) {
    mctp_ctx owner = endpoint_at(0x2E);
    mctp_ctx target{};
    Endpoint table({hex("00 0A 00 FF 01 04 A0 00 01 04 01 64")});
    EXPECT_EQ(get_eid_from_routing_table(&owner, &target), -1);
    mctp_ctx strict = endpoint_at(0x30);
    EXPECT_EQ(assign_from(0xA0, strict), 0xA4) << "a range of four";
}

TEST_F(EidPool, WhatWasGivenIsLeftOutWheneverThePoolComesRound) {
    mctp_ctx lax = endpoint_at(0x32, 0);
    EXPECT_EQ(assign_from(0xA8, lax), 0xA8);
    mctp_ctx first = endpoint_at(0x34);
    EXPECT_EQ(assign_from(0xA8, first), 0xA9) << "by a context that is not strict";
    mctp_ctx second = endpoint_at(0x36);
    EXPECT_EQ(assign_from(0xA8, second), 0xAA);
    mctp_ctx again = endpoint_at(0x38, 0);
    EXPECT_EQ(assign_from(0xA8, again), 0xA8) << "nothing keeps one that is not";
}

TEST_F(EidPool, AnEndpointThatHasLostItsEidGetsItAgain) {
    mctp_ctx ctx = endpoint_at(0x3A);
    EXPECT_EQ(assign_from(0xB0, ctx), 0xB0);
    mctp_ctx same_place = endpoint_at(0x3A);
    EXPECT_EQ(assign_from(0xB8, same_place), 0xB0);
    EXPECT_EQ(port().global.next_eid, 0xB8) << "the pool stays where it is";
    mctp_ctx behind_a_multiplexer = endpoint_at(0x3A);
    behind_a_multiplexer.mux[0] = 1;
    EXPECT_EQ(assign(behind_a_multiplexer), 0xB8) << "another place";
    mctp_ctx lax = endpoint_at(0x3A, 0);
    EXPECT_EQ(assign(lax), 0xB9);
    EXPECT_EQ(assign(same_place), 0xB9) << "the last one that it was given";
    mctp_ctx other = endpoint_at(0x3C);
    EXPECT_EQ(assign_from(0xB0, other), 0xB0) << "free again";
}

TEST_F(EidPool, WhatNoEndpointMayHaveIsNotGivenAgain) {
    uint8_t address = 0x50;
    uint8_t free = 0xD0;
    // Reserved, in the MPIO's range, the BMC's towards it, broadcast.
    for (const uint8_t eid : {0x03, 0x45, 0x80, 0xFF}) {
        mctp_ctx lax = endpoint_at(address, 0);
        EXPECT_EQ(assign_from(eid, lax), eid);
        mctp_ctx same_place = endpoint_at(address);
        EXPECT_EQ(assign_from(free, same_place), free);
        address += 2;
        ++free;
    }
}

TEST_F(EidPool, ARejectedEidLeavesThePoolAsItWas) {
    mctp_ctx ctx = endpoint_at(0x3E);
    port().global.next_eid = 0xC0;
    Endpoint rejects({hex("00 01 00 10 00 00")});
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(rejects.requests, std::vector<Bytes>{hex("80 01 00 C0")});
    EXPECT_EQ(port().global.next_eid, 0xC0);
}

TEST_F(EidPool, NullAndReservedEidsAreLeftOut) {
    for (uint8_t next = 1; next < 16; next++) {
        mctp_ctx ctx = endpoint_at(static_cast<uint8_t>(0x80 + 2 * next));
        EXPECT_GE(assign_from(next, ctx), 16);
    }
}

TEST_F(EidPool, TheKernelsEidsAreItsOwn) {
    mctp_ctx ctx{};
    ctx.binding_kind = MCTP_BINDING_KIND_SOCKET;
    ctx.src_eid = 0xC4;
    ctx.dest_eid = 0xC5;
    ctx.skip_discovery = 1;
    mctp_init2(&ctx);
    mctp_ctx first = endpoint_at(0x42);
    EXPECT_EQ(assign_from(0xC4, first), 0xC4);
    mctp_ctx second = endpoint_at(0x44);
    EXPECT_EQ(assign_from(0xC5, second), 0xC5);
}

// The last one: nothing is left behind it.
TEST_F(EidPool, ZEveryEidIsGivenOnceAndThenNone) {
    std::set<int32_t> given;
    int32_t eid = 0;
    for (unsigned address = 0; eid >= 0; address++) {
        ASSERT_LT(address, 256u);
        mctp_ctx ctx = endpoint_at(static_cast<uint8_t>(address));
        ctx.bus = 77;
        eid = assign(ctx);
        EXPECT_TRUE(given.insert(eid).second) << eid << " twice";
    }
    given.erase(-1);
    EXPECT_GT(given.size(), 100u);
    EXPECT_EQ(given.count(0xFF) + given.count(0x80) + given.count(0x50) + given.count(8), 0u);
    EXPECT_EQ(port().syslog.back(), "[mctp_assign_eid] every EID is in use\n");
}

}  // namespace
