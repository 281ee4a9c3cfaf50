// SPDX-License-Identifier: Apache-2.0
// The MPIO's bring-up and its guard, the lookup through it, and discovery over PCIe.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::hex;
using test::port;
using test::operator+;
using Lines = std::vector<std::string>;

class AmdMpio : public test::PlatformTest {
protected:
    AmdMpio() {
        answers_ = {{0x01, hex("00 00 10 00")}, {0x02, hex("00 21 00 00")},
                    {0x08, hex("00 00 20 40")}, {0x0A, hex("00 FF 01 01 4A 00 02 08 02 41 13")},
                    {0x0B, hex("00")},          {0x0C, hex("00")}};
        port().on_pcie = [this](plt_pcie_request& request) { return answer(request); };
        target.pcie_bdf[0] = 0x41;
        target.pcie_bdf[1] = 2;
        target.pcie_bdf[2] = 3;
        target.binding_kind = MCTP_BINDING_KIND_PCIE;
        _init_amd_mpio_ctx(&mpio);
        port().secure.mpio_state = PLT_MPIO_WANTED;
        port().global.mpio_bringup_pending = 1;
    }

    /// The MPIO rejects this command from now on.
    void reject(uint8_t command) { answers_[command] = hex("01"); }
    /// The MPIO no longer answers.
    void be_silent() { answers_.clear(); }

    /// The commands that the MPIO was sent.
    static Bytes commands() {
        Bytes commands;
        for (const plt_pcie_request& request : port().pcie_requests) {
            commands.push_back(request.message[2]);
        }
        return commands;
    }

    mctp_ctx mpio{};
    mctp_ctx target{};

private:
    int answer(plt_pcie_request& request) {
        const auto found = answers_.find(request.message[2]);
        if (found == answers_.end()) {
            return 0;
        }
        const Bytes message =
            Bytes{0x00, static_cast<uint8_t>(request.message[1] & 0x1F), request.message[2]} +
            found->second;
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        return 1;
    }

    std::map<uint8_t, Bytes> answers_;  ///< by command code, from the completion code on
};

using AmdMpioLookup = AmdMpio;
using PcieDiscovery = AmdMpio;

TEST_F(AmdMpio, ContextIsTheRootComplexOverPcie) {
    mctp_ctx ctx{};
    _init_amd_mpio_ctx(&ctx);
    EXPECT_EQ(ctx.src_eid, 0x80);
    EXPECT_EQ(ctx.dest_eid, 0);
    EXPECT_EQ(ctx.msg_type, 0);
    EXPECT_EQ(ctx.tag, 0x80);
    EXPECT_EQ(Bytes(ctx.pcie_bdf, ctx.pcie_bdf + 3), hex("00 00 00"));
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ctx.binding, &pcie_mctp_binding);
    mctp_ctx plain{};
    plain.binding_kind = MCTP_BINDING_KIND_PCIE;
    plain.skip_discovery = 1;
    ASSERT_EQ(mctp_init2(&plain), 0);
    EXPECT_EQ(ctx.send, plain.send);
    EXPECT_EQ(ctx.recv, plain.recv);
    EXPECT_EQ(ctx.xfer, plain.xfer);
}

TEST_F(AmdMpio, BringUpSendsFourCommandsAndRests) {
    EXPECT_EQ(do_init_amd_mpio(&mpio), 0);
    EXPECT_EQ(commands(), hex("0B 0C 01 08"));
    const plt_pcie_request& pool = port().pcie_requests.at(3);
    EXPECT_EQ(Bytes(pool.message + 3, pool.message + 6), hex("00 20 40"));
    EXPECT_EQ(mpio.dest_eid, 0x10);
    EXPECT_EQ(port().global.next_eid, 0x11);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{3000000});
    EXPECT_EQ(port().global.mpio_bringup_pending, 0);
}

TEST_F(AmdMpio, SignalsDoNotCutTheRestShort) {
    libc.failure_errno = EINTR;
    int signals = 0;
    libc.before["usleep"] = [&] { libc.fail["usleep"] = ++signals <= 2 ? 1 : 0; };
    EXPECT_EQ(do_init_amd_mpio(&mpio), 0);
    // Nothing of it has gone by, or a little, on a machine that has other things to do.
    ASSERT_EQ(libc.sleeps.size(), 3u);
    EXPECT_EQ(libc.sleeps[0], 3000000u);
    for (const size_t again : {1u, 2u}) {
        EXPECT_GT(libc.sleeps[again], 2000000u);
        EXPECT_LE(libc.sleeps[again], 3001000u);
    }
    EXPECT_EQ(port().global.mpio_bringup_pending, 0);
}

TEST_F(AmdMpio, EveryRequestCarriesTag0x80) {
    EXPECT_EQ(do_init_amd_mpio(&mpio), 0);
    for (const plt_pcie_request& request : port().pcie_requests) {
        EXPECT_EQ(request.tag, 0x80);
        EXPECT_EQ(request.src_eid, 0x80);
        EXPECT_EQ(request.bus | request.device | request.function, 0u);
    }
}

TEST_F(AmdMpio, EachStepOfTheBringUpCanFail) {
    const struct {
        uint8_t command;
        const char* commands;
        const char* line;
    } steps[] = {
        {0x0B, "0B", "[MCTP] Req PrepareForEndpointDiscovery to AMD MPIO faled.\n"},
        {0x0C, "0B 0C", "[MCTP] Req mctp_endpoint_discovery to AMD MPIO faled.\n"},
        {0x01, "0B 0C 01", "[MCTP] Cannot assing EID to AMD MPIO.\n"},
        {0x08, "0B 0C 01 08", "[MCTP] Cannot allocate eid pool to AMD MPIO.\n"},
    };
    for (auto step = std::rbegin(steps); step != std::rend(steps); ++step) {
        reject(step->command);
        port().pcie_requests.clear();
        port().syslog.clear();
        EXPECT_EQ(do_init_amd_mpio(&mpio), -1);
        EXPECT_EQ(commands(), hex(step->commands));
        EXPECT_EQ(port().syslog.back(), step->line);
        EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
        EXPECT_EQ(port().global.mpio_bringup_pending, 1);
    }
}

TEST_F(AmdMpio, GuardRunsTheBringUpOnceUnderTheMpioMutex) {
    EXPECT_EQ(init_amd_mpio_if_need(&mpio), 0);
    EXPECT_EQ(port().secure.mpio_state, 0x10u);
    EXPECT_EQ(port().shell_commands, Lines{"touch /nv/mpio.ready"});
    EXPECT_EQ(port().syslog.front(), "try do_init_amd_mpio\n");
    EXPECT_EQ(port().trace,
              (Lines{"lock mpio", "pcie", "pcie", "lock eid", "pcie", "unlock eid", "pcie",
                     "sleep 3000000", "shell touch /nv/mpio.ready", "unlock mpio"}));
    port().trace.clear();
    EXPECT_EQ(init_amd_mpio_if_need(&mpio), 0);
    EXPECT_EQ(port().trace, (Lines{"lock mpio", "unlock mpio"}));
}

TEST_F(AmdMpio, GuardLeavesAStateWordOtherThanWantedAlone) {
    for (uint32_t state : {0u, 0x21u, 0xFEu, 0x100u, 0xFFFFFFFFu}) {
        port().secure.mpio_state = state;
        EXPECT_EQ(init_amd_mpio_if_need(&mpio), 0);
        EXPECT_EQ(port().secure.mpio_state, state);
    }
    EXPECT_EQ(port().pcie_requests.size(), 0u);
    EXPECT_EQ(port().shell_commands, Lines());
}

TEST_F(AmdMpio, GuardClearsTheStateWordWhereTheBringUpFails) {
    reject(0x0C);
    EXPECT_EQ(init_amd_mpio_if_need(&mpio), -1);
    EXPECT_EQ(port().secure.mpio_state, 0u);
    EXPECT_EQ(port().shell_commands, Lines());
    EXPECT_EQ(port().syslog.back(), "do_init_amd_mpio fail\n");
}

TEST_F(AmdMpio, ARefusedMpioMutexFailsWithoutABringUp) {
    port().refused_locks = {"mpio"};
    EXPECT_EQ(init_amd_mpio_if_need(&mpio), -1);
    EXPECT_EQ(port().secure.mpio_state, PLT_MPIO_WANTED);
    EXPECT_EQ(port().pcie_requests.size(), 0u);
    EXPECT_EQ(mpio.last_error.cause, SIDEBAND_CAUSE_LOCK);
    port().refused_locks.clear();
    port().secure.mpio_state = PLT_MPIO_NONE;
    EXPECT_EQ(init_amd_mpio_if_need(&mpio), 0);
    EXPECT_EQ(mpio.last_error.cause, SIDEBAND_CAUSE_NONE) << "of the call before";
}

// ---- Lookup ----

TEST_F(AmdMpioLookup, GoesThroughTheRoutingTableWhereTheStateWordHoldsAnEid) {
    port().secure.mpio_state = 0x10;
    EXPECT_EQ(get_eid_from_mpio(&target), 0);
    EXPECT_EQ(target.dest_eid, 0x4A);
    EXPECT_EQ(commands(), hex("0A"));
}

TEST_F(AmdMpioLookup, GoesThroughTheRoutingTableWhereTheMarkerFileExists) {
    libc.present.insert("/nv/mpio.ready");
    for (uint32_t state : {0u, 0xFFu}) {
        port().secure.mpio_state = state;
        EXPECT_EQ(get_eid_from_mpio(&target), 0);
        EXPECT_EQ(target.dest_eid, 0x4A);
    }
}

TEST_F(AmdMpioLookup, AFailedLookupAllocatesThePoolAgain) {
    port().secure.mpio_state = 0x10;
    target.pcie_bdf[2] = 4;
    EXPECT_EQ(get_eid_from_mpio(&target), -1);
    EXPECT_EQ(commands(), hex("0A 08"));
    const plt_pcie_request& pool = port().pcie_requests.at(1);
    EXPECT_EQ(Bytes(pool.message + 3, pool.message + 6), hex("00 20 40"));
    EXPECT_EQ(port().syslog.back(), "fail get_eid_from_mpio\n");
}

TEST_F(AmdMpioLookup, APoolThatCannotBeAllocatedAgainChangesNothing) {
    port().secure.mpio_state = 0x10;
    be_silent();
    EXPECT_EQ(get_eid_from_mpio(&target), -1);
    EXPECT_EQ(commands(), hex("0A 08"));
}

TEST_F(AmdMpioLookup, NotReadyOnTheBoardThatNeedsItProdsTheMpioOnce) {
    port().secure.mpio_state = 0;
    platform.identifier = PLT_IDENTIFIER_TURIN;
    EXPECT_EQ(get_eid_from_mpio(&target), -1);
    EXPECT_EQ(commands(), hex("0B"));
    EXPECT_EQ(port().syslog, Lines{"[Turin] MPIO not ready, skip the MCTP req.\n"});
}

TEST_F(AmdMpioLookup, NotReadyElsewhereSendsNothing) {
    const struct {
        uint32_t state;
        uint16_t identifier;
    } cases[] = {{0, 0x1D42}, {0xFF, PLT_IDENTIFIER_TURIN}, {0xFF, 0}};
    for (const auto& one : cases) {
        port().secure.mpio_state = one.state;
        platform.identifier = one.identifier;
        port().syslog.clear();
        EXPECT_EQ(get_eid_from_mpio(&target), -1);
        EXPECT_EQ(port().syslog, Lines{"[Turin] MPIO not ready, skip the MCTP req.\n"});
    }
    EXPECT_EQ(port().pcie_requests.size(), 0u);
}

// ---- Discovery of a PCIe endpoint ----

TEST_F(PcieDiscovery, UsesTheMpioWhereTheStateWordIsNotZero) {
    port().secure.mpio_state = 0x10;
    EXPECT_EQ(mctp_init2(&target), 0);
    EXPECT_EQ(target.dest_eid, 0x4A);
    EXPECT_EQ(commands(), hex("0A"));
}

TEST_F(PcieDiscovery, FailsWhereTheMpioDoesNotKnowTheEndpoint) {
    port().secure.mpio_state = 0x10;
    target.pcie_bdf[0] = 0x40;
    EXPECT_EQ(mctp_init2(&target), -1);
}

TEST_F(PcieDiscovery, AsksTheMpioItselfWhereTheStateWordIsZero) {
    port().secure.mpio_state = 0;
    libc.present.insert("/nv/mpio.ready");
    EXPECT_EQ(mctp_init2(&target), 0);
    EXPECT_EQ(commands(), hex("02 0A"));
    EXPECT_EQ(target.dest_eid, 0x4A);
}

TEST_F(PcieDiscovery, WithoutAnMpioTheEndpointItselfIsAsked) {
    port().secure.mpio_state = 0;
    int asked = 0;
    port().on_pcie = [&asked](plt_pcie_request& request) {
        if (asked++ == 0) {
            return 0;  // the MPIO
        }
        const Bytes message =
            Bytes{0x00, static_cast<uint8_t>(request.message[1] & 0x1F)} + hex("02 00 33 00 00");
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        return 1;
    };
    EXPECT_EQ(mctp_init2(&target), 0);
    EXPECT_EQ(target.dest_eid, 0x33);
    EXPECT_EQ(port().syslog, Lines{"[AMD] CPU without MPIO.\n"});
    ASSERT_EQ(port().pcie_requests.size(), 2u);
    EXPECT_EQ(port().pcie_requests[0].bus, 0u);
    EXPECT_EQ(port().pcie_requests[1].bus, 0x41u);
}

TEST_F(PcieDiscovery, WithoutAnMpioAndWithoutAnAnswerItFails) {
    port().secure.mpio_state = 0;
    be_silent();
    EXPECT_EQ(mctp_init2(&target), -1);
    EXPECT_EQ(port().syslog, Lines{"[AMD] CPU without MPIO.\n"});
}

}  // namespace
