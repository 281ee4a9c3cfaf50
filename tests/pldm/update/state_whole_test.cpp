// SPDX-License-Identifier: Apache-2.0
// Updates from RequestUpdate to ActivateFirmware: one to three components, and each way to fail.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "pldm/update/device.h"

namespace {

using test::load;
using test::Outcome;
using test::piece;
using test::Texts;

const std::string kRequestUpdate = "> 80 05 10 40 00 00 00 01 00 01 00 00 01 03 72 65 63";
constexpr const char* kRefusal = "00 05 14 00 01 06 00 00 00 00 00 00";

class PldmWholeUpdate : public test::FwMachineTest {
protected:
    Outcome update() {
        return test::run([&] { return pldm_request_firmware_update(&ctx); });
    }

    /// The agent's requests, without the instance IDs: "14 02" is UpdateComponent of identifier 2.
    Texts steps() const {
        Texts found;
        for (const std::string& line : device.dialogue_of({"> "})) {
            std::string step = line.substr(8, 2);
            if (step == "14") {
                step += " " + line.substr(17, 2);
            }
            found.push_back(step);
        }
        return found;
    }
};

// ---- Success ----

TEST_F(PldmWholeUpdate, OfOneComponentByteForByte) {
    prepare(1);
    device.loads = {
        {piece(0, 32), piece(32, 32), "81 05 16 00", "82 05 17 00", "83 05 18 00 00 00"}};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.dialogue,
              (Texts{kRequestUpdate, "> 81 05 13 05 0a 00 01 00 01 00 22 33 44 01 02 76 30",
                     "> 82 05 14 0a 00 01 00 01 00 22 33 44 28 00 00 00 00 00 00 00 01 02 76 30",
                     "< 80 05 15 00 00 00 00 20 00 00 00",
                     "= 00 05 15 00 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14"
                     " 15 16 17 18 19 1a 1b 1c 1d 1e 1f",
                     "< 80 05 15 20 00 00 00 20 00 00 00",
                     "= 00 05 15 00 20 21 22 23 24 25 26 27 00 00 00 00 00 00 00 00 00 00 00 00 00"
                     " 00 00 00 00 00 00 00 00 00 00 00",
                     "< 81 05 16 00", "= 01 05 16 00", "< 82 05 17 00", "= 02 05 17 00",
                     "< 83 05 18 00 00 00", "= 03 05 18 00", "> 83 05 1a 00"}));
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmWholeUpdate, OfOneComponentSaysWhatItDoes) {
    prepare(1);
    print_ten_percent();
    device.loads = {load()};
    EXPECT_EQ(update().out,
              "ctx->state = 0x1\n"
              "PLDM_FW_UPDATE_STATE_LEARN_COMPONENTS \n"
              "ctx->state = 0x2\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 0\n"
              "classification : a,\nidentifier : 1,\nclassification_index : 1,\n"
              "component_comparison_stamp : 44332200,\ncomponent_size : 28,\n"
              "ctx->state = 0x3\n"
              "image length = 0x7d, offset = 0x0\n"
              "78%\n"
              "------------PLDM_FW_UPDATE_TRANSFER_COMPLETE ---------------\n"
              "TransferResult: 0x0\n"
              "------------PLDM_FW_UPDATE_VERIFY_COMPLETE---------------\n"
              "VerifyResult: 0\n"
              "---------------PLDM_FW_UPDATE_APPLY_COMPLETE--------\n"
              "AppleResult: 0x0 - (0,0)\n"
              "Apply complete success ctx->component_index =0\n"
              "ctx->state = 0x5\n"
              "ctx->component_index = 1, ctx->components_num =1\n"
              "ctx->state = 0x6\n"
              "activate fw completion code: 0\n"
              "activation time: 0\n"
              "PLDM_FW_UPDATE_STATE_READY_XFER e, ctx->component_index = 1\n");
    EXPECT_EQ(progress(), (std::vector<unsigned>{78, 97, 98}));
}

TEST_F(PldmWholeUpdate, OfTwoComponents) {
    prepare(2);
    device.loads = {load(), load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13", "14 01", "14 02", "1a"}));
    EXPECT_EQ(progress(), (std::vector<unsigned>{78, 97, 98}));
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.component_index, 2);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmWholeUpdate, OfThreeComponentsSendsEachItsOwnImage) {
    prepare(3);
    device.loads = {load(), load(), load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13", "13", "14 01", "14 02", "14 03", "1a"}));
    const Texts images = device.dialogue_of({"= 00 05 15"});
    ASSERT_EQ(images.size(), 3u);
    for (uint8_t i = 0; i < 3; i++) {
        EXPECT_EQ(images[i], "= 00 05 15 00 " +
                                 test::to_hex(test::counting(32, static_cast<uint8_t>(16 * i))));
    }
    EXPECT_EQ(ctx.component_index, 3);
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmWholeUpdate, WithPackageDataAndMetadata) {
    tool::Package package = test::update_package(1);
    package.records[0].package_data = test::counting(3, 0xA0);
    prepare(package, test::known(1));
    device.usual[0x10] = "00 05 10 00 05 00 01";
    device.usual[0x12] = "00 05 12 00 00 00 00 00 05 d0 d1 d2 d3 d4";
    device.asks = {"84 05 11 00 00 00 00 01"};
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "12", "13", "14 01", "1a"}));
    EXPECT_EQ(device.dialogue[0], "> 80 05 10 40 00 00 00 01 00 01 03 00 01 03 72 65 63");
    EXPECT_EQ(device.dialogue[2], "= 04 05 11 00 01 00 00 00 05 a0 a1 a2");
    EXPECT_EQ(ctx.fd_metadata_len, 5);
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmWholeUpdate, OfComponentsThatTheRecordDoesNotMarkLeavesThemOut) {
    tool::Package package = test::update_package(3);
    package.records[0].components = {1};
    prepare(package, {{10, 2, 2}});
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "14 02", "1a"}));
    EXPECT_EQ(ctx.component_index, 3);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmWholeUpdate, ThatIsForcedAsksForThatForEachComponent) {
    prepare(2);
    pldm_force_update_flag = 1;
    device.loads = {load(), load()};
    update();
    const Texts offers = device.dialogue_of({"> 83 05 14", "> 84 05 14"});
    ASSERT_EQ(offers.size(), 2u);
    for (const std::string& offer : offers) {
        EXPECT_NE(offer.find("28 00 00 00 01 00 00 00 01 02"), std::string::npos) << offer;
    }
}

// ---- Failures ----

struct Failure {
    const char* name;
    std::vector<Texts> loads;  ///< of those of three components that the device takes
    Texts steps;               ///< behind RequestUpdate and PassComponentTable
    uint8_t mark;
    uint8_t state;
    int refused;  ///< this UpdateComponent; -1: none
    uint8_t index;
};

class PldmFailedUpdate : public PldmWholeUpdate, public ::testing::WithParamInterface<Failure> {};

TEST_P(PldmFailedUpdate, EndsAsItMust) {
    const Failure& failure = GetParam();
    prepare(3);
    device.loads.assign(failure.loads.begin(), failure.loads.end());
    if (failure.refused >= 0) {
        device.answers[0x14] = {device.usual[0x14], device.usual[0x14], device.usual[0x14]};
        device.answers[0x14][static_cast<size_t>(failure.refused)] = kRefusal;
    }
    EXPECT_EQ(update().result, 0);
    Texts expected{"10", "13", "13", "13"};
    expected.insert(expected.end(), failure.steps.begin(), failure.steps.end());
    EXPECT_EQ(steps(), expected);
    EXPECT_EQ(ctx.pldm.completion_code, failure.mark);
    EXPECT_EQ(ctx.state, failure.state);
    EXPECT_EQ(ctx.component_index, failure.index);
    EXPECT_EQ(libc.open_descriptors(), 0u);
    EXPECT_EQ(libc.live_mappings(), 0u);
}

const std::string kPiece = piece(0, 32);
const Texts kTransferFails{kPiece, "81 05 16 02"};
const Texts kVerifyFails{kPiece, "81 05 16 00", "82 05 17 02"};
const Texts kApplyFails{kPiece, "81 05 16 00", "82 05 17 00", "83 05 18 02 00 00"};

INSTANTIATE_TEST_SUITE_P(
    Components, PldmFailedUpdate,
    ::testing::Values(
        Failure{"FirstRefused", {load(), load()}, {"14 01", "14 02", "14 03", "1a"}, 0, 6, 0, 3},
        Failure{"SecondRefused", {load(), load()}, {"14 01", "14 02", "14 03", "1a"}, 0, 6, 1, 3},
        Failure{"LastRefused", {load(), load()}, {"14 01", "14 02", "14 03", "1a"}, 0, 6, 2, 3},
        Failure{"FirstTransferFails",
                {kTransferFails, load(), load()},
                {"14 01", "1c", "14 02", "14 03", "1a"},
                0x57,
                6,
                -1,
                3},
        Failure{"FirstVerificationFails",
                {kVerifyFails, load(), load()},
                {"14 01", "1c", "14 02", "14 03", "1a"},
                0x58,
                6,
                -1,
                3},
        Failure{"FirstApplicationFails",
                {kApplyFails, load(), load()},
                {"14 01", "1c", "14 02", "14 03", "1a"},
                0x59,
                6,
                -1,
                3},
        // Behind the last one there is nothing to go on with, and nothing is activated.
        Failure{"LastTransferFails",
                {load(), load(), kTransferFails},
                {"14 01", "14 02", "14 03", "1c"},
                0x57,
                2,
                -1,
                3},
        Failure{"LastVerificationFails",
                {load(), load(), kVerifyFails},
                {"14 01", "14 02", "14 03", "1c"},
                0x58,
                2,
                -1,
                3},
        Failure{"LastApplicationFails",
                {load(), load(), kApplyFails},
                {"14 01", "14 02", "14 03", "1c"},
                0x59,
                2,
                -1,
                3},
        Failure{"AllTransfersFail",
                {kTransferFails, kTransferFails, kTransferFails},
                {"14 01", "1c", "14 02", "1c", "14 03", "1c"},
                0x57,
                2,
                -1,
                3},
        Failure{"SilentBeforeTheFirstPiece", {{}}, {"14 01"}, 0x5A, 3, -1, 0},
        Failure{"SilentInDownload", {{kPiece}}, {"14 01"}, 0x5A, 3, -1, 0},
        Failure{"SilentInVerify", {{kPiece, "81 05 16 00"}}, {"14 01"}, 0x5A, 4, -1, 0},
        Failure{
            "SilentInApply", {{kPiece, "81 05 16 00", "82 05 17 00"}}, {"14 01"}, 0x5A, 5, -1, 0},
        Failure{"SilentInTheSecond", {load(), {kPiece}}, {"14 01", "14 02"}, 0x5A, 3, -1, 1},
        Failure{"VerifyBeforeTransfer", {{kPiece, "81 05 17 00"}}, {"14 01"}, 0, 3, -1, 0},
        Failure{"ApplyBeforeVerify",
                {{kPiece, "81 05 16 00", "82 05 18 00 00 00"}},
                {"14 01"},
                0,
                4,
                -1,
                0},
        Failure{"BadPiece", {{piece(0, 16)}}, {"14 01"}, 0, 3, -1, 1},
        Failure{"PieceOutOfRange", {{piece(0xFFFFFFF0, 32)}}, {"14 01"}, 0, 3, -1, 1}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(PldmWholeUpdate, OfADeviceThatIsUnableToStartOne) {
    prepare(1);
    device.usual[0x10] = "00 05 10 8a";
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(device.dialogue, Texts{kRequestUpdate});
    EXPECT_EQ(ctx.pldm.completion_code, 0x56);
    EXPECT_EQ(ctx.state, 0);
}

TEST_F(PldmWholeUpdate, WhereTheDeviceAcceptsNoComponentStopsInStateOne) {
    prepare(2);
    device.usual[0x13] = "";
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13"}));
    EXPECT_EQ(ctx.state, 1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x13);
}

TEST_F(PldmWholeUpdate, WhereEachUpdateComponentIsLostEndsWithActivation) {
    prepare(2);
    device.usual[0x14] = "";
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13", "14 01", "14 02", "1a"}));
    EXPECT_EQ(ctx.pldm.completion_code, 0x14);
}

TEST_F(PldmWholeUpdate, WhoseCancelIsRefusedStaysWhereItIs) {
    prepare(2);
    device.loads = {kTransferFails};
    device.usual[0x1C] = "00 05 1c 80";
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13", "14 01", "1c"}));
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.component_index, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x57);
}

TEST_F(PldmWholeUpdate, WhoseActivationIsRefusedBehindAFailedComponentKeepsTheMarkOfThat) {
    prepare(2);
    device.loads = {kTransferFails, load()};
    device.usual[0x1A] = "00 05 1a 85";
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(steps(), (Texts{"10", "13", "13", "14 01", "1c", "14 02", "1a"}));
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.pldm.completion_code, 0x57);
}

TEST_F(PldmWholeUpdate, WhoseNextComponentFailsElsewhereHasTheMarkOfThat) {
    prepare(2);
    device.loads = {kTransferFails, kVerifyFails};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x58);
}

TEST_F(PldmWholeUpdate, OfADeviceThatAsksForEverEnds) {
    prepare(1);
    device.asks_always = [] { return piece(0, 32); };
    device.keeps_dialogue = false;
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.messages, 4100);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
}

TEST_F(PldmWholeUpdate, OfADeviceThatAsksForBytesOfAnotherComponentGetsWhatLiesThere) {
    prepare(2);
    // The offset counts from the first component's image, behind whose 40 bytes the second lies.
    device.loads = {{piece(40, 32), "81 05 16 00", "82 05 17 00", "83 05 18 00 00 00"}, load()};
    EXPECT_EQ(update().result, 0);
    const Texts images = device.dialogue_of({"= 00 05 15"});
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images[0], "= 00 05 15 00 " + test::to_hex(test::counting(32, 16)));
    EXPECT_EQ(images[0], images[1]);
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmWholeUpdate, WhosePackageIsRemovedMeanwhileSkipsTheComponent) {
    prepare(1);
    device.loads = {load()};
    device.on_receive = [this] { std::remove(path.c_str()); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.dialogue_of({"="}), Texts());
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.state, 3);
}

TEST_F(PldmWholeUpdate, WhosePackageIsCutMeanwhileSkipsTheComponent) {
    prepare(1);
    device.loads = {load()};
    // The inode stays.
    device.on_receive = [this] { ASSERT_EQ(truncate(path.c_str(), 64), 0); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.dialogue_of({"="}), Texts{"= 00 05 15 01"});
    EXPECT_EQ(test::port().syslog.back(),
              "pldm_request_fw_data, " + path + " has changed since it was parsed\n");
    EXPECT_EQ(ctx.state, 3);
}

// ---- Many components ----

class PldmNestedUpdate : public PldmWholeUpdate {
protected:
    static constexpr size_t kCount = 255;

    /// A list of as many components as can be counted, all of them for the device.
    void prepare_list() {
        prepare(kCount);
        ctx.update_list =
            static_cast<pldm_update_component*>(std::calloc(kCount, sizeof(pldm_update_component)));
        for (size_t i = 0; i < kCount; i++) {
            ctx.update_list[i].image = ctx.component_images[i];
        }
        device.keeps_dialogue = false;
    }
};

TEST_F(PldmNestedUpdate, Of255ComponentsThatAreAllAccepted) {
    prepare_list();
    device.loads.assign(kCount, load());
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(device.messages, static_cast<int>(4 * kCount));
    EXPECT_EQ(ctx.component_index, kCount);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(progress().back(), 98u);
}

TEST_F(PldmNestedUpdate, Of255ComponentsThatAreAllRefused) {
    prepare_list();
    device.usual[0x14] = kRefusal;
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(ctx.component_index, kCount);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(progress(), (std::vector<unsigned>{97, 98}));
}

TEST_F(PldmNestedUpdate, Of255ComponentsThatAreAllCancelled) {
    prepare_list();
    device.loads.assign(kCount, kVerifyFails);
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(ctx.component_index, kCount);
    EXPECT_EQ(ctx.state, 2);
    EXPECT_EQ(ctx.pldm.completion_code, 0x58);
}

TEST_F(PldmNestedUpdate, WithEveryOtherComponentRefusedAndTheDeviceSilentEnds) {
    prepare_list();
    device.answers[0x14] = {};
    for (size_t i = 0; i < 2 * kCount; i++) {
        device.answers[0x14].push_back(i % 2 == 0 ? kRefusal : device.usual[0x14]);
    }
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(ctx.component_index, kCount);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    // Ten receives of 60 seconds are more than 540: no more downloads than components.
    EXPECT_EQ(device.capacity.size() % 10, 0u);
    EXPECT_LE(device.capacity.size(), 10 * kCount);
}

/// Each refusal offers the last one again once it has gone silent.
TEST_F(PldmNestedUpdate, WithAllRefusedButTheLastThatOneIsTriedAsOftenAsThereAreComponents) {
    prepare_list();
    device.answers[0x14].assign(kCount - 1, kRefusal);
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(ctx.component_index, kCount - 1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    EXPECT_EQ(device.capacity.size(), 10 * kCount);
}

}  // namespace
