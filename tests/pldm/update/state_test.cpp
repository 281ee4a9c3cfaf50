// SPDX-License-Identifier: Apache-2.0
// The states of a firmware update: what each does once, what it prints and reports, what follows.
#include <gtest/gtest.h>

#include "pldm/update/device.h"

namespace {

using test::Outcome;
using test::Texts;

const std::string kPassed = "> 80 05 13 05 0a 00 01 00 01 00 22 33 44 01 02 76 30";

/// What UpdateComponent prints for a component of update_package().
std::string offered(const std::string& number, const std::string& stamp) {
    return "classification : a,\nidentifier : " + number + ",\nclassification_index : " + number +
           ",\ncomponent_comparison_stamp : " + stamp + ",\ncomponent_size : 28,\n";
}

/// What follows if the device refuses a component of update_package().
std::string skipped(const std::string& index) {
    return "Component will no be updated, response code: 0x6,\n"
           "Give up component image index = " +
           index + "\nPLDM_FW_UPDATE_STATE_READY_XFER err, ctx->component_index = " + index +
           "\nctx->state = 0x5\n";
}

const std::string kActivated =
    "ctx->state = 0x6\n"
    "activate fw completion code: 0\n"
    "activation time: 0\n";

class PldmState : public test::FwMachineTest {
protected:
    /// A package whose list is built, with the machine held in state 1.
    void prepare_list(size_t components) {
        prepare(components);
        device.usual[0x13] = "00 05 13 80";
        EXPECT_EQ(act(1).result, 0);
        device.usual[0x13] = "00 05 13 00 00 00";
        device.dialogue.clear();
        ctx.pldm.instance_id = 0;
        ctx.pldm.completion_code = 0;
    }

    /// The answer that a component will not be updated.
    static constexpr const char* kRefusal = "00 05 14 00 01 06 00 00 00 00 00 00";
};

TEST_F(PldmState, ThatHaveNoActionPrintTheirNumberOnly) {
    prepare_list(1);
    for (const unsigned state : {0u, 4u, 7u, 8u, 0x80u, 255u}) {
        const Outcome outcome = act(static_cast<uint8_t>(state));
        EXPECT_EQ(outcome.result, 0);
        char line[40];
        std::snprintf(line, sizeof line, "ctx->state = 0x%x\n", state);
        EXPECT_EQ(outcome.out, line);
        EXPECT_EQ(ctx.state, state);
    }
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(device.capacity.size(), 0u);
    EXPECT_EQ(progress(), std::vector<unsigned>());
    EXPECT_EQ(ctx.component_index, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmState, OfNoContextFails) {
    const Outcome outcome = test::run([] { return fw_update_state_fn(nullptr); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
}

// ---- 1: learn components ----

TEST_F(PldmState, LearnServesPackageDataWhereTheDeviceHasAnnouncedIt) {
    tool::Package package = test::update_package(1);
    package.records[0].package_data = test::counting(3, 0xA0);
    prepare(package, test::known(1));
    ctx.component_index = 1;
    ctx.fd_will_send_pkg_data = 1;
    device.asks = {"84 05 11 00 00 00 00 01"};
    const Outcome outcome = act(1);
    EXPECT_EQ(outcome.out,
              "ctx->state = 0x1\n"
              "PLDM_FW_UPDATE_STATE_LEARN_COMPONENTS \n"
              "FD will send get package data cmd\n"
              "------------PLDM_FW_UPDATE_GET_PACKAGE_DATA ---------------\n"
              "cmd_idx = 1\n"
              "resp_len = 12, transfer_size = 3\n"
              "pldm_get_package_data e rc = 0, last_part =1\n"
              "last GetPackageData cmd\n"
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n");
    EXPECT_EQ(device.dialogue, (Texts{"< 84 05 11 00 00 00 00 01",
                                      "= 04 05 11 00 01 00 00 00 05 a0 a1 a2", kPassed}));
}

TEST_F(PldmState, LearnReceivesNothingWhereTheDeviceHasAnnouncedNothing) {
    prepare(1);
    ctx.component_index = 1;
    device.asks = {"84 05 11 00 00 00 00 01"};
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue, Texts{kPassed});
    EXPECT_EQ(device.capacity.size(), 0u);
}

TEST_F(PldmState, LearnGoesOnWhereTheDeviceDoesNotFetchTheDataThatItAnnounced) {
    prepare(1);
    ctx.component_index = 1;
    ctx.fd_will_send_pkg_data = 1;
    ctx.req_fw_data_wait = 10;
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue, (Texts{"...", kPassed}));
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    EXPECT_EQ(ctx.state, 2);
}

TEST_F(PldmState, LearnFetchesTheMetadataBehindThePackageDataAndInFrontOfTheTable) {
    tool::Package package = test::update_package(1);
    package.records[0].package_data = {0xA0};
    prepare(package, test::known(1));
    ctx.component_index = 1;
    ctx.fd_will_send_pkg_data = 1;
    ctx.fd_metadata_len = 4;
    device.asks = {"80 05 11 00 00 00 00 01"};
    device.answers[0x12] = {"00 05 12 00 07 00 00 00 01 d0 d1 d2 d3",
                            "00 05 12 00 08 00 00 00 04 d4"};
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.room[0x12], 13);
    EXPECT_EQ(device.dialogue,
              (Texts{"< 80 05 11 00 00 00 00 01", "= 00 05 11 00 01 00 00 00 05 a0",
                     "> 80 05 12 00 00 00 00 01", "> 81 05 12 07 00 00 00 00",
                     "> 82 05 13 05 0a 00 01 00 01 00 22 33 44 01 02 76 30"}));
}

TEST_F(PldmState, LearnFetchesNoMetadataWhereThereIsNone) {
    prepare(1);
    ctx.component_index = 1;
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue_of({"> 80 05 12", "> 81 05 12"}), Texts());
}

TEST_F(PldmState, LearnGoesOnWhereTheMetadataCannotBeHad) {
    prepare(1);
    ctx.component_index = 1;
    ctx.fd_metadata_len = 0xFFFF;
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue_of({"> 80 05 12"}).size(), 1u);
    EXPECT_EQ(ctx.state, 2);
}

// ---- 2: ready to transfer ----

TEST_F(PldmState, ReadyStopsBehindTheLastComponent) {
    prepare_list(2);
    for (const unsigned index : {2u, 3u, 255u}) {
        ctx.component_index = static_cast<uint8_t>(index);
        const Outcome outcome = act(2);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out,
                  "ctx->state = 0x2\n"
                  "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = " +
                      std::to_string(index) + "\n");
        EXPECT_EQ(ctx.state, 2);
        EXPECT_EQ(ctx.component_index, index);
    }
    EXPECT_EQ(device.dialogue, Texts());
}

TEST_F(PldmState, ReadyOffersTheComponentAndThenServesTheDevice) {
    prepare_list(2);
    ctx.component_index = 1;
    device.answers[0x14] = {"00 05 14 00 00 00 00 00 00 00 0a 00"};
    const Outcome outcome = act(2);
    EXPECT_EQ(outcome.out,
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n" +
                  offered("2", "44332201") +
                  "ctx->state = 0x3\n"
                  "PLDM_FW_UPDATE_STATE_READY_XFER e, ctx->component_index = 1\n");
    EXPECT_EQ(device.dialogue,
              (Texts{"> 80 05 14 0a 00 02 00 02 01 22 33 44 28 00 00 00 00 00 00 00 01 02 76 31",
                     "..."}));
    EXPECT_EQ(device.room[0x14], 12);
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.req_fw_data_wait, 10);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
}

TEST_F(PldmState, ReadySkipsAComponentThatTheDeviceRefusesAndActivatesBehindTheLast) {
    prepare_list(1);
    device.usual[0x14] = kRefusal;
    const Outcome outcome = act(2);
    EXPECT_EQ(outcome.out,
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 0\n" +
                  offered("1", "44332200") + skipped("0") +
                  "ctx->component_index = 1, ctx->components_num =1\n" + kActivated);
    EXPECT_EQ(device.dialogue.back(), "> 81 05 1a 00");
    EXPECT_EQ(progress(), (std::vector<unsigned>{97, 98}));
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.last_percentage, 98);
}

TEST_F(PldmState, ReadySkipsEachRefusedComponentOnce) {
    prepare_list(3);
    device.usual[0x14] = kRefusal;
    act(2);
    const Texts offers = device.dialogue_of({"> 80 05 14", "> 81 05 14", "> 82 05 14"});
    ASSERT_EQ(offers.size(), 3u);
    EXPECT_TRUE(offers[0].starts_with("> 80 05 14 0a 00 01"));
    EXPECT_TRUE(offers[1].starts_with("> 81 05 14 0a 00 02"));
    EXPECT_TRUE(offers[2].starts_with("> 82 05 14 0a 00 03"));
    EXPECT_EQ(device.dialogue.back(), "> 83 05 1a 00");
    EXPECT_EQ(device.dialogue.size(), 4u);
    EXPECT_EQ(progress(), (std::vector<unsigned>{97, 98}));
}

TEST_F(PldmState, ReadyMovesOnFromAnElementWithoutAnImage) {
    tool::Package package = test::update_package(2);
    package.records[0].components = {1};
    prepare(package, test::known(2));
    device.usual[0x14] = kRefusal;
    test::port().syslog.clear();
    const Outcome outcome = act(1);
    EXPECT_NE(outcome.out.find("PLDM_FW_UPDATE_STATE_READY_XFER err, ctx->component_index = 0\n"
                               "ctx->state = 0x5\n"
                               "ctx->component_index = 1, ctx->components_num =2\n"
                               "ctx->state = 0x2\n"
                               "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n" +
                               offered("2", "44332201")),
              std::string::npos)
        << outcome.out;
    EXPECT_EQ(device.dialogue,
              (Texts{"> 80 05 13 05 0a 00 02 00 02 01 22 33 44 01 02 76 31",
                     "> 81 05 14 0a 00 02 00 02 01 22 33 44 28 00 00 00 00 00 00 00 01 02 76 31",
                     "> 82 05 1a 00"}));
    EXPECT_EQ(test::port().syslog, Texts{"pldm_update_component_table, no component 0\n"});
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmState, ReadyComesBackToAComponentWhoseDeviceWentSilentBehindARefusedOne) {
    prepare_list(2);
    device.answers[0x14] = {kRefusal, "00 05 14 00 00 00 00 00 00 00 0a 00", kRefusal};
    const Outcome outcome = act(2);
    EXPECT_EQ(outcome.out,
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 0\n" +
                  offered("1", "44332200") + skipped("0") +
                  "ctx->component_index = 1, ctx->components_num =2\n"
                  "ctx->state = 0x2\n"
                  "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n" +
                  offered("2", "44332201") +
                  "ctx->state = 0x3\n"
                  "PLDM_FW_UPDATE_STATE_READY_XFER e, ctx->component_index = 1\n" +
                  offered("2", "44332201") + skipped("1") +
                  "ctx->component_index = 2, ctx->components_num =2\n" + kActivated);
    EXPECT_EQ(ctx.component_index, 2);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
}

TEST_F(PldmState, ReadyLeavesMark14WhereTheExchangeFails) {
    prepare_list(1);
    device.usual[0x14] = "";
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x14);
    EXPECT_EQ(ctx.state, 6);
}

// ---- 3: download ----

TEST_F(PldmState, DownloadReceivesUntilTheDeviceIsSilent) {
    prepare_list(1);
    ctx.req_fw_data_wait = 10;
    const Outcome outcome = act(3);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "ctx->state = 0x3\n");
    EXPECT_EQ(device.dialogue, Texts{"..."});
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    EXPECT_EQ(ctx.state, 3);
}

// ---- 5: apply ----

TEST_F(PldmState, ApplyGoesOnWithTheNextComponent) {
    prepare_list(2);
    ctx.component_index = 1;
    device.usual[0x14] = "00 05 14 00 00 00 00 00 00 00 0a 00";
    EXPECT_TRUE(
        act(5).out.starts_with("ctx->state = 0x5\n"
                               "ctx->component_index = 1, ctx->components_num =2\n"
                               "ctx->state = 0x2\n"
                               "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n"));
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(progress(), std::vector<unsigned>());
}

TEST_F(PldmState, ApplyReportsNinetySevenBehindTheLastAndActivates) {
    prepare_list(2);
    ctx.component_index = 2;
    EXPECT_EQ(act(5).out,
              "ctx->state = 0x5\n"
              "ctx->component_index = 2, ctx->components_num =2\n" +
                  kActivated);
    EXPECT_EQ(test::port().progress,
              (std::vector<std::pair<uint32_t, unsigned>>{{0x7A5C, 97}, {0x7A5C, 98}}));
    EXPECT_EQ(ctx.last_percentage, 98);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(device.dialogue, Texts{"> 80 05 1a 00"});
}

TEST_F(PldmState, ApplyBeyondTheLastStopsInStateTwo) {
    prepare_list(2);
    ctx.component_index = 3;
    EXPECT_EQ(act(5).out,
              "ctx->state = 0x5\n"
              "ctx->component_index = 3, ctx->components_num =2\n"
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 3\n");
    EXPECT_EQ(ctx.state, 2);
    EXPECT_EQ(progress(), std::vector<unsigned>());
    EXPECT_EQ(device.dialogue, Texts());
}

// ---- 6: activate ----

TEST_F(PldmState, ActivateReportsNinetyEightAndSendsActivateFirmware) {
    tool::Package package = test::update_package(1);
    package.components[0].activation_method = 0x0003;
    prepare(package, test::known(1));
    ctx.component_index = 1;
    act(1);
    device.dialogue.clear();
    ctx.pldm.instance_id = 0;
    device.usual[0x1A] = "00 05 1a 00 34 12";
    EXPECT_EQ(act(6).out,
              "ctx->state = 0x6\nactivate fw completion code: 0\nactivation time: 1234\n");
    EXPECT_EQ(device.dialogue, Texts{"> 80 05 1a 02"});
    EXPECT_EQ(progress(), std::vector<unsigned>{98});
    EXPECT_EQ(ctx.last_percentage, 98);
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmState, ActivateDoesNotUseTheResultOfActivateFirmware) {
    prepare_list(1);
    for (const char* answer : {"00 05 1a 80", "00 05 1a 84", "00 05 1a 01", ""}) {
        device.usual[0x1A] = answer;
        EXPECT_EQ(act(6).result, 0) << answer;
        EXPECT_EQ(ctx.state, 6);
        EXPECT_EQ(ctx.last_percentage, 98);
    }
}

}  // namespace
