// SPDX-License-Identifier: Apache-2.0
// The update of a card with a package file: flags, results, failures, and the release.
#include <gtest/gtest.h>

#include "pldm/update/nic_fixture.h"

namespace {

using test::kInUpdateMode;
using test::load;
using test::Outcome;
using test::port;
using test::Texts;

class PldmNicUpdateRun : public test::NicUpdateTest {};

// ---- Flags ----

TEST_F(PldmNicUpdateRun, FlagTwoPrintsTheVersionsOfTheDeviceAndUpdatesNothing) {
    write_package({3});
    const Outcome outcome = update(2);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(
        outcome.out.ends_with("FD active component version : a\n"
                              "FD pending component version : p\n"))
        << outcome.out;
    EXPECT_EQ(commands(), "01 02");
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(progress(), std::vector<unsigned>{10});
}

TEST_F(PldmNicUpdateRun, FlagsTwoAndOnePrintTheVersionOfThePackageAsWell) {
    write_package({3});
    const Outcome outcome = update(3);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(
        outcome.out.ends_with("FD active component version : a\n"
                              "FD pending component version : p\n"
                              "Image component version : pkg\n"))
        << outcome.out;
    EXPECT_EQ(commands(), "01 02");
}

TEST_F(PldmNicUpdateRun, FlagTwoForThreeRecordsPrintsThemForEachThatMatches) {
    write_package({3, 1, 3});
    const std::string out = update(2).out;
    const size_t first = out.find("FD active component version");
    EXPECT_NE(out.find("FD active component version", first + 1), std::string::npos);
    EXPECT_EQ(commands(), "01 02 01 01 02");
}

TEST_F(PldmNicUpdateRun, FlagOneAloneUpdates) {
    write_package({3});
    device.loads = {load()};
    const Outcome outcome = update(1);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(commands(), "01 02 10 13 14 1a");
    EXPECT_EQ(outcome.out.find("component version :"), std::string::npos);
    EXPECT_EQ(pldm_force_update_flag, 0);
}

TEST_F(PldmNicUpdateRun, FlagFourForcesTheUpdate) {
    write_package({3});
    device.loads = {load()};
    EXPECT_EQ(update(4).result, 0);
    EXPECT_NE(pldm_force_update_flag, 0);
    EXPECT_EQ(device.dialogue_of({"> 84"}),
              Texts{"> 84 05 14 0a 00 01 00 01 00 22 33 44 28 00 00 00 01 00 00 00 01 02 76 30"});
}

TEST_F(PldmNicUpdateRun, WithoutFlagFourTheUpdateIsNotForcedWhateverWasThere) {
    write_package({3});
    pldm_force_update_flag = 1;
    device.loads = {load()};
    EXPECT_EQ(update(0xFFFFFFF8).result, 0);
    EXPECT_EQ(pldm_force_update_flag, 0);
    EXPECT_EQ(device.dialogue_of({"> 84"}),
              Texts{"> 84 05 14 0a 00 01 00 01 00 22 33 44 28 00 00 00 00 00 00 00 01 02 76 30"});
}

TEST_F(PldmNicUpdateRun, FlagsTwoAndFourUpdateNothing) {
    write_package({3});
    EXPECT_EQ(update(6).result, -1);
    EXPECT_EQ(commands(), "01 02");
    EXPECT_EQ(pldm_force_update_flag, 0);
}

// ---- Results of RequestUpdate, and the device that is in update mode ----

TEST_F(PldmNicUpdateRun, ADeviceThatIsUnableToStartGivesMinusOneAndMark56) {
    write_package({3});
    device.usual[0x10] = "00 05 10 8a";
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x56);
    EXPECT_EQ(commands(), "01 02 10");
}

TEST_F(PldmNicUpdateRun, ADeviceThatWantsToBeAskedAgainGetsASecondAndNothingElse) {
    write_package({3});
    device.usual[0x10] = "00 05 10 8e";
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(commands(), "01 02 10");
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{1000000});
    EXPECT_TRUE(outcome.out.ends_with("ctx->state = 0x0\n"));
}

TEST_F(PldmNicUpdateRun, GivesTheResultOfAFailedExchange) {
    write_package({3});
    fail_exchanges_of(0x10, -57);
    EXPECT_EQ(update().result, -57);
}

TEST_F(PldmNicUpdateRun, GivesTheResultOfTheLastRequest) {
    write_package({3, 3});
    device.answers[0x10] = {"00 05 10 8a"};
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(commands(), "01 02 10 01 02 10 13 14 1a");
    EXPECT_EQ(named(), (Texts{"r0", "r1"}));
}

TEST_F(PldmNicUpdateRun, ADeviceInUpdateModeIsCancelledAndAskedAgainUnderTheNextName) {
    write_package({3, 1});
    device.answers[0x10] = {kInUpdateMode};
    device.loads = {load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(commands(), "01 02 10 1d 1d 10 13 14 1a 01");
    EXPECT_EQ(named(), (Texts{"r0", "r1"}));
    EXPECT_NE(outcome.out.find("Warning. record[1]"), std::string::npos);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 55, 78, 97, 98}));
    EXPECT_EQ(ctx.record_index, 2);
}

TEST_F(PldmNicUpdateRun, TheOnlyRecordOfADeviceInUpdateModeIsNamedAgain) {
    write_package({3});
    device.answers[0x10] = {kInUpdateMode};
    device.loads = {load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(commands(), "01 02 10 1d 1d 10 13 14 1a");
    EXPECT_EQ(named(), (Texts{"r0", "r0"}));
    EXPECT_EQ(outcome.out.find("Warning."), std::string::npos);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 100, 97, 98}));
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmNicUpdateRun, NoPercentageIsAbove95InTheTransferAndNoneAbove100) {
    tool::Package package = test::update_package(1);
    package.components[0].image = test::counting(33);
    package.records[0].descriptors = {{0x0000, {3, 0x15}, {}}};
    write_file(tool::build_package(package));
    device.loads = {load(64)};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 95, 97, 98}));
    bind();
    port().progress.clear();
    ctx.component_index = 0;
    device.answers[0x10] = {kInUpdateMode};
    device.loads = {load(64)};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 100, 97, 98}));
}

TEST_F(PldmNicUpdateRun, ADeviceThatDoesNotCancelIsNotAskedAgain) {
    write_package({3, 3});
    device.answers[0x10] = {kInUpdateMode};
    device.answers[0x1D] = {"", "00 05 1d 80"};
    device.loads = {load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);  // of the second record
    EXPECT_EQ(commands(), "01 02 10 1d 1d 01 02 10 13 14 1a");
    EXPECT_NE(outcome.out.find("the error code of pldm_cancel_update is ffffffff\n"),
              std::string::npos);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 78, 97, 98}));
}

TEST_F(PldmNicUpdateRun, TheResultOfACancelThatFailedIsGiven) {
    write_package({3});
    device.usual[0x10] = kInUpdateMode;
    device.usual[0x1D] = "00 05 1d 80";
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(commands(), "01 02 10 1d 1d");
    EXPECT_TRUE(outcome.out.ends_with("the error code of pldm_cancel_update is ffffffff\n"));
    EXPECT_EQ(progress(), std::vector<unsigned>{10});
}

TEST_F(PldmNicUpdateRun, ADeviceThatStaysInUpdateModeIsAskedOnceForEachRecordAndOnceMore) {
    write_package({3, 1, 1});
    device.usual[0x10] = kInUpdateMode;
    EXPECT_EQ(update().result, -2);
    EXPECT_EQ(commands(), "01 02 10 1d 1d 10 1d 1d 10 1d 1d 10 1d 01 01");
    EXPECT_EQ(named(), (Texts{"r0", "r1", "r2", "r2"}));
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 40, 70, 100}));
}

TEST_F(PldmNicUpdateRun, OfManyRecordsForADeviceThatStaysInUpdateModeEnds) {
    write_package(std::vector<uint8_t>(255, 3));
    device.usual[0x10] = kInUpdateMode;
    device.keeps_dialogue = true;
    EXPECT_EQ(update().result, -2);
    // All records in the first walk and once more, then once for each of the other records.
    EXPECT_EQ(named().size(), 255u + 1 + 254);
}

// ---- Whatever fails ----

class PldmNicUpdateWithoutMemory : public test::NicUpdateTest,
                                   public ::testing::WithParamInterface<unsigned> {
protected:
    /// An update with these flags, of two components.
    int32_t run_update() {
        device.asks.clear();
        device.loads = {load(), load()};
        ctx.component_index = 0;
        port().trace.clear();
        return update(GetParam()).result;
    }
};

TEST_P(PldmNicUpdateWithoutMemory, EachAllocationThatFailsReleasesEverything) {
    write_package({3}, 2);
    int allocations = libc.allocations();
    EXPECT_EQ(run_update(), GetParam() == 0 ? 0 : -1);
    allocations = libc.allocations() - allocations;
    EXPECT_GT(allocations, 10);
    for (int n = 1; n <= allocations; n++) {
        bind();
        libc.fail_allocation(n);
        const int32_t result = run_update();
        EXPECT_TRUE(result == 0 || result == -1) << n << ": " << result;
        const uint8_t cause = pldm_fw_update_last_error(&ctx)->cause;
        EXPECT_TRUE(cause == SIDEBAND_CAUSE_MEMORY || cause == SIDEBAND_CAUSE_NONE)
            << n << ": " << +cause;
        const Texts trace = sessions();
        EXPECT_TRUE(trace == Texts() || trace == (Texts{"open", "close"})) << n;
        EXPECT_EQ(ctx.pcie_session, nullptr);
        libc.fail_allocation(0);
    }
}

INSTANTIATE_TEST_SUITE_P(Flags, PldmNicUpdateWithoutMemory, ::testing::Values(0, 3));

TEST_F(PldmNicUpdateRun, EachExchangeThatIsLostReleasesEverything) {
    write_package({3}, 2);
    for (const int command : {0x01, 0x02, 0x10, 0x13, 0x14, 0x1A, 0x1C, 0x1D}) {
        const auto code = static_cast<uint8_t>(command);
        const std::string answer = device.usual[code];
        device.usual[code] = "";
        device.asks.clear();
        device.loads = {load(), load()};
        ctx.component_index = 0;
        port().trace.clear();
        const int32_t result = update().result;
        EXPECT_EQ(result, command <= 0x10 ? -1 : 0) << command;
        EXPECT_EQ(sessions(), (Texts{"open", "close"}));
        device.usual[code] = answer;
        bind();
    }
}

TEST_F(PldmNicUpdateRun, OfNoContextGivesMinusOne) {
    write_package({3});
    EXPECT_EQ(pldm_nic_update(path.c_str(), nullptr, nullptr, 0), -1);
    EXPECT_EQ(sessions(), Texts());
}

TEST_F(PldmNicUpdateRun, OfNoTerminusClosesItsSession) {
    write_package({3});
    EXPECT_EQ(pldm_terminus_deinit(&ctx.pldm), 0);
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(sessions(), (Texts{"open", "close"}));
    EXPECT_EQ(ctx.pcie_session, nullptr);
    EXPECT_EQ(commands(), "");
}

TEST_F(PldmNicUpdateRun, OfNoPathLeavesMark53) {
    EXPECT_EQ(pldm_nic_update(nullptr, &ctx, nullptr, 0), -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x53);
    expect_released();
}

TEST_F(PldmNicUpdateRun, IgnoresItsThirdArgument) {
    write_package({3});
    device.loads = {load()};
    int anything = 5;
    const Outcome outcome =
        test::run([&] { return pldm_nic_update(path.c_str(), &ctx, &anything, 0); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(anything, 5);
}

// ---- The release ----

TEST_F(PldmNicUpdateRun, ReleaseOfNoContextIsRefused) {
    EXPECT_EQ(pldm_free_ua_resource(nullptr), -1);
    EXPECT_EQ(pldm_free_ctx_resource(nullptr), 0);
}

TEST_F(PldmNicUpdateRun, ReleaseOfTheHeapKeepsTheTerminus) {
    prepare(2);
    EXPECT_EQ(act(1).result, 0);
    EXPECT_NE(ctx.update_list, nullptr);
    mctp_ctx* const mctp = ctx.pldm.mctp;
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
    EXPECT_EQ(ctx.pldm.mctp, mctp);
    EXPECT_EQ(libc.live_blocks(), 1u);
    EXPECT_EQ(pldm_terminus_deinit(&ctx.pldm), 0);
    expect_released();
}

TEST_F(PldmNicUpdateRun, ReleaseOfTheAgentTearsTheTerminusDownAndKeepsTheRest) {
    prepare(2);
    EXPECT_EQ(act(1).result, 0);
    ctx.pldm.completion_code = 0x57;
    int session = 0;
    ctx.pcie_session = &session;
    EXPECT_EQ(pldm_free_ua_resource(&ctx), 0);
    expect_released();
    EXPECT_EQ(ctx.pldm.completion_code, 0x57);
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.pcie_session, &session);
    EXPECT_EQ(pldm_free_ua_resource(&ctx), 0);  // once more
}

}  // namespace
