// SPDX-License-Identifier: Apache-2.0
// Which components an update has, in which order they go to the device, and PassComponentTable.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "pldm/update/device.h"

namespace {

using test::Bytes;
using test::Known;
using test::Outcome;
using test::Texts;
using test::operator+;

const std::string kLearn = "ctx->state = 0x1\nPLDM_FW_UPDATE_STATE_LEARN_COMPONENTS \n";
const std::string kNotInUpdateMode = "command:0x13 is not successful, completion code:0x80\n";

class PldmComponents : public test::FwMachineTest {
protected:
    /// Learns the components of a device that accepts none.
    Outcome learn() {
        device.usual[0x13] = "00 05 13 80";
        return act(1);
    }

    /// Classification indices of a package's components, in its order.
    void prepare_indices(const std::vector<uint8_t>& indices) {
        std::vector<Known> components;
        for (size_t i = 0; i < indices.size(); i++) {
            components.push_back({10, static_cast<uint16_t>(i + 1), indices[i]});
        }
        prepare(test::update_package(indices.size()), components);
    }

    std::vector<uint32_t> listed_indices() const {
        std::vector<uint32_t> indices;
        for (unsigned i = 0; ctx.update_list != nullptr && i < ctx.component_num; i++) {
            indices.push_back(ctx.update_list[i].classification_index);
        }
        return indices;
    }

    /// Which of the package's components each element is; -1: none.
    std::vector<int> listed_components() const {
        std::vector<int> components;
        for (unsigned i = 0; ctx.update_list != nullptr && i < ctx.component_num; i++) {
            int component = -1;
            for (int k = 0; k < ctx.component_num; k++) {
                if (ctx.update_list[i].image == ctx.component_images[k]) {
                    component = k;
                }
            }
            components.push_back(component);
        }
        return components;
    }

    /// The machine has stopped in state 1 without a word to the device.
    void expect_stopped_silently(const Outcome& outcome, const std::string& text) {
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, kLearn + text);
        EXPECT_EQ(device.dialogue, Texts());
        EXPECT_EQ(ctx.state, 1);
        EXPECT_EQ(ctx.pldm.completion_code, 0);
    }
};

// ---- The list ----

TEST_F(PldmComponents, EachElementHasItsImageAndTheIndexThatTheDeviceReported) {
    prepare(test::update_package(2), {{10, 1, 7}, {10, 2, 9}});
    learn();
    EXPECT_EQ(listed_indices(), (std::vector<uint32_t>{7, 9}));
    EXPECT_EQ(listed_components(), (std::vector<int>{0, 1}));
}

TEST_F(PldmComponents, ElementsThatTheRecordDoesNotMarkCarryNoImage) {
    tool::Package package = test::update_package(4);
    package.records[0].components = {1, 3};
    prepare(package, test::known(4));
    learn();
    EXPECT_EQ(listed_components(), (std::vector<int>{-1, 1, -1, 3}));
    EXPECT_EQ(listed_indices(), (std::vector<uint32_t>{0, 2, 0, 4}));
}

TEST_F(PldmComponents, ElementsWithoutAnImageTakePartInTheOrder) {
    tool::Package package = test::update_package(3);
    package.records[0].components = {0, 2};
    prepare(package, {{10, 1, 3}, {10, 3, 5}});
    learn();
    EXPECT_EQ(listed_components(), (std::vector<int>{-1, 0, 2}));
    EXPECT_EQ(listed_indices(), (std::vector<uint32_t>{0, 3, 5}));
}

TEST_F(PldmComponents, OnlyTheFirstThirtyTwoCanBeMarked) {
    prepare(40);
    ctx.matched_record->applicable_components = 0xFFFFFFFF;
    EXPECT_EQ(learn().result, 0);
    std::vector<int> components = listed_components();
    std::sort(components.begin(), components.end());
    std::vector<int> expected(8, -1);
    for (int i = 0; i < 32; i++) {
        expected.push_back(i);
    }
    EXPECT_EQ(components, expected);
    EXPECT_EQ(device.dialogue.size(), 32u);
}

TEST_F(PldmComponents, BitsBehindTheLastComponentMeanNothing) {
    prepare(2);
    ctx.matched_record->applicable_components = 0xFFFFFFFF;
    learn();
    EXPECT_EQ(listed_components(), (std::vector<int>{0, 1}));
}

TEST_F(PldmComponents, TheFirstEntryWithSameClassificationAndIdentifierGivesTheIndex) {
    prepare(test::update_package(1), {{11, 1, 3}, {10, 2, 4}, {10, 1, 5}, {10, 1, 6}});
    learn();
    EXPECT_EQ(listed_indices(), (std::vector<uint32_t>{5}));
}

TEST_F(PldmComponents, ADeviceWithoutComponentsStopsTheUpdateWithoutAMessage) {
    prepare(test::update_package(1), {});
    expect_stopped_silently(act(1), "can't find the classification index!. (10,1)\n");
}

TEST_F(PldmComponents, AComponentThatTheDeviceDoesNotKnowStopsTheUpdateWithoutAMessage) {
    prepare(test::update_package(2), {{10, 1, 3}, {11, 2, 4}, {10, 3, 5}});
    expect_stopped_silently(act(1), "can't find the classification index!. (10,2)\n");
}

TEST_F(PldmComponents, AnUnknownComponentThatIsNotMarkedDoesNotStopTheUpdate) {
    tool::Package package = test::update_package(2);
    package.records[0].components = {0};
    prepare(package, {{10, 1, 3}});
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue.front(), "> 80 05 13 05 0a 00 01 00 03 00 22 33 44 01 02 76 30");
}

TEST_F(PldmComponents, ATableThatEndedEarlyKnowsTheEntriesInFrontOfItsEnd) {
    prepare(test::update_package(2), {{10, 1, 3}});
    const Bytes response = test::parameters({{10, 1, 3}, {10, 2, 4}});
    const Outcome outcome = test::run([&] {
        return pldm_parse_firmware_para(&ctx, response.data(),
                                        static_cast<int32_t>(response.size()) - 1);
    });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(ctx.fd_components_num, 2);
    expect_stopped_silently(act(1), "can't find the classification index!. (10,2)\n");
}

TEST_F(PldmComponents, WithoutAMatchedRecordTheUpdateStops) {
    prepare(1);
    ctx.matched_record = nullptr;
    expect_stopped_silently(act(1), "");
    EXPECT_EQ(ctx.update_list, nullptr);
}

TEST_F(PldmComponents, WithoutTheirImagesTheUpdateStops) {
    prepare(1);
    uint8_t** const images = std::exchange(ctx.component_images, nullptr);
    expect_stopped_silently(act(1), "");
    EXPECT_EQ(ctx.update_list, nullptr);
    ctx.component_images = images;
}

TEST_F(PldmComponents, WithoutComponentsTheUpdateStops) {
    tool::Package package = test::update_package(1);
    package.components.clear();
    package.records[0].components.clear();
    prepare(package, {{10, 1, 1}});
    EXPECT_EQ(ctx.component_num, 0);
    expect_stopped_silently(act(1), "");
}

TEST_F(PldmComponents, WithMoreThanAnIndexCanCountTheUpdateStops) {
    prepare(256);
    expect_stopped_silently(act(1), "");
}

TEST_F(PldmComponents, WithoutMemoryForTheListTheUpdateStops) {
    prepare(1);
    libc.fail_allocation(1);
    expect_stopped_silently(act(1), "");
    EXPECT_EQ(ctx.update_list, nullptr);
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_MEMORY);
}

TEST_F(PldmComponents, AComponentThatThePackageHasNoCopyOfCarriesNoImage) {
    prepare(2);
    uint8_t* const copy = std::exchange(ctx.component_images[0], nullptr);
    learn();
    EXPECT_EQ(ctx.update_list[0].image, nullptr);
    EXPECT_EQ(ctx.update_list[1].image, ctx.component_images[1]);
    ctx.component_images[0] = copy;
}

TEST_F(PldmComponents, TheListOfAnEarlierRecordIsReplaced) {
    prepare(2);
    learn();
    const size_t blocks = libc.live_blocks();
    ctx.matched_record->applicable_components = 2;
    learn();
    EXPECT_EQ(libc.live_blocks(), blocks);
    EXPECT_EQ(listed_components(), (std::vector<int>{-1, 1}));
}

// ---- The order ----

struct Order {
    std::vector<uint8_t> indices;  ///< in the package
    std::vector<uint32_t> passed;  ///< in the list
};

class PldmComponentOrder : public PldmComponents, public ::testing::WithParamInterface<Order> {};

TEST_P(PldmComponentOrder, FollowsTheProcedureThatDeployedAgentsHave) {
    prepare_indices(GetParam().indices);
    learn();
    EXPECT_EQ(listed_indices(), GetParam().passed);
}

// By hand: whatever is below the running minimum changes places with it, and never the last.
INSTANTIATE_TEST_SUITE_P(Lists, PldmComponentOrder,
                         ::testing::Values(Order{{4}, {4}}, Order{{1, 2}, {1, 2}},
                                           Order{{2, 1}, {2, 1}}, Order{{1, 2, 3}, {1, 2, 3}},
                                           Order{{3, 1, 2}, {1, 3, 2}}, Order{{2, 3, 1}, {2, 3, 1}},
                                           Order{{4, 3, 2, 1}, {3, 2, 4, 1}},
                                           Order{{5, 5, 1, 0}, {1, 5, 5, 0}},
                                           Order{{2, 3, 1, 4}, {1, 3, 2, 4}}));

TEST_F(PldmComponents, IndicesThreeOneTwoArePassedInTheOrderOneThreeTwo) {
    prepare_indices({3, 1, 2});
    learn();
    EXPECT_EQ(device.dialogue, (Texts{"> 80 05 13 01 0a 00 02 00 01 01 22 33 44 01 02 76 31",
                                      "> 81 05 13 02 0a 00 01 00 03 00 22 33 44 01 02 76 30",
                                      "> 82 05 13 04 0a 00 03 00 02 02 22 33 44 01 02 76 32"}));
}

// ---- PassComponentTable ----

TEST_F(PldmComponents, ASingleApplicableComponentGoesOutWithTransferFlagFive) {
    prepare(1);
    const Outcome outcome = learn();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kLearn + kNotInUpdateMode);
    EXPECT_EQ(device.dialogue, Texts{"> 80 05 13 05 0a 00 01 00 01 00 22 33 44 01 02 76 30"});
    EXPECT_EQ(device.room[0x13], 6);
}

TEST_F(PldmComponents, TheOnlyOneOfAPackageOfThreeGoesOutWithTransferFlagFive) {
    tool::Package package = test::update_package(3);
    package.records[0].components = {1};
    prepare(package, test::known(3));
    learn();
    EXPECT_EQ(device.dialogue, Texts{"> 80 05 13 05 0a 00 02 00 02 01 22 33 44 01 02 76 31"});
}

TEST_F(PldmComponents, TheFlagsCountTheComponentsThatGoOut) {
    tool::Package package = test::update_package(6);
    package.records[0].components = {1, 2, 4};
    prepare(package, test::known(6));
    learn();
    ASSERT_EQ(device.dialogue.size(), 3u);
    EXPECT_TRUE(device.dialogue[0].starts_with("> 80 05 13 01 0a 00 02 00 02"));
    EXPECT_TRUE(device.dialogue[1].starts_with("> 81 05 13 02 0a 00 03 00 03"));
    EXPECT_TRUE(device.dialogue[2].starts_with("> 82 05 13 04 0a 00 05 00 05"));
}

TEST_F(PldmComponents, VersionStringsGoOutWholeAtAnyLength) {
    for (const size_t length : {0u, 1u, 255u}) {
        tool::Package package = test::update_package(1);
        package.components[0].version_type = 3;
        package.components[0].version = std::string(length, 'x');
        prepare(package, test::known(1));
        device.dialogue.clear();
        ctx.pldm.instance_id = 0;
        learn();
        const Bytes expected = test::hex("80 05 13 05 0a 00 01 00 01 00 22 33 44 03") +
                               Bytes{static_cast<uint8_t>(length)} + Bytes(length, 'x');
        EXPECT_EQ(device.dialogue, Texts{"> " + test::to_hex(expected)});
    }
}

TEST_F(PldmComponents, ARecordThatMarksNothingStopsTheUpdate) {
    prepare(2);
    ctx.matched_record->applicable_components = 0;
    expect_stopped_silently(act(1), "");
}

TEST_F(PldmComponents, WhereNoneIsAcceptedTheUpdateStopsBehindTheLast) {
    prepare(2);
    const Outcome outcome = learn();
    EXPECT_EQ(outcome.out, kLearn + kNotInUpdateMode + kNotInUpdateMode);
    EXPECT_EQ(device.dialogue.size(), 2u);
    EXPECT_EQ(ctx.state, 1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x80);
}

TEST_F(PldmComponents, WhereOneIsAcceptedTheUpdateGoesOn) {
    for (const int accepted : {0, 1}) {
        prepare(2);
        device.dialogue.clear();
        ctx.component_index = 2;  // nothing is left to do in state 2
        device.answers[0x13] = {"00 05 13 80"};
        device.answers[0x13].insert(
            accepted == 0 ? device.answers[0x13].begin() : device.answers[0x13].end(),
            "00 05 13 00 00 00");
        EXPECT_EQ(act(1).out, kLearn + kNotInUpdateMode +
                                  "ctx->state = 0x2\n"
                                  "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 2\n");
        EXPECT_EQ(device.dialogue.size(), 2u);
        EXPECT_EQ(ctx.state, 2);
    }
}

TEST_F(PldmComponents, WhatTheDeviceThinksOfAComponentIsNotLookedAt) {
    prepare(1);
    ctx.component_index = 1;
    for (const char* answer : {"00 05 13 00 01 06", "00 05 13 00 ff ff", "00 05 13 00"}) {
        device.usual[0x13] = answer;
        act(1);
        EXPECT_EQ(ctx.state, 2) << answer;
        EXPECT_EQ(ctx.pldm.completion_code, 0);
    }
}

TEST_F(PldmComponents, AnExchangeThatFailsWithMinusOneLeavesMark13AndIsNotAccepted) {
    prepare(2);
    device.usual[0x13] = "";
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.dialogue.size(), 2u);
    EXPECT_EQ(ctx.pldm.completion_code, 0x13);
    EXPECT_EQ(ctx.state, 1);
}

TEST_F(PldmComponents, AnotherCompletionCodeLeavesMark13AndIsNotAccepted) {
    prepare(1);
    device.usual[0x13] = "00 05 13 84";
    EXPECT_EQ(act(1).out, kLearn + "command:0x13 is not successful, completion code:0x84\n");
    EXPECT_EQ(ctx.pldm.completion_code, 0x13);
    EXPECT_EQ(ctx.state, 1);
}

TEST_F(PldmComponents, AnExchangeThatFailsOtherwiseLeavesMark13AndIsAccepted) {
    prepare(1);
    ctx.component_index = 1;
    fail_exchanges_of(0x13, -57);
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x13);
    EXPECT_EQ(ctx.state, 2);
}

}  // namespace
