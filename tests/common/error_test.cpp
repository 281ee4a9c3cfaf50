// SPDX-License-Identifier: Apache-2.0
// The text of a failure's record: every cause, every kind of code, every step, small buffers.
#include <gtest/gtest.h>
#include <sideband/error.h>

#include <array>
#include <set>
#include <string>

#include "support/errors.h"
#include "support/offset_table.h"

namespace {

using test::said;

sideband_error made(uint8_t cause, uint8_t kind = 0, uint8_t step = 0, uint8_t command = 0,
                    uint16_t code = 0, uint16_t detail = 0) {
    return {cause, kind, step, command, code, detail};
}

TEST(ErrorText, EachCauseHasItsOwnText) {
    const std::array<std::string, 17> texts = {
        "no failure",
        "wrong argument",
        "out of memory",
        "lock refused",
        "no power",
        "no such bus",
        "not acknowledged",
        "no answer",
        "only answers to something else came",
        "wrong checksum",
        "malformed answer",
        "refused by the device",
        "not done by the device",
        "not found",
        "bad file",
        "deadline passed",
        "refused by the system",
    };
    for (size_t cause = 0; cause < texts.size(); ++cause) {
        if (cause != SIDEBAND_CAUSE_DEVICE) {
            EXPECT_EQ(said(made(static_cast<uint8_t>(cause))), texts[cause]);
        }
    }
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
}

TEST(ErrorText, TheCodeOfADeviceSaysWhoseItIs) {
    const auto device = [](uint8_t kind, uint16_t code, uint16_t detail = 0) {
        return said(made(SIDEBAND_CAUSE_DEVICE, kind, 0, 0, code, detail));
    };
    EXPECT_EQ(device(SIDEBAND_CODE_CONTROL, 5), "refused by the device: MCTP completion code 0x05");
    EXPECT_EQ(device(SIDEBAND_CODE_PLDM, 0x80), "refused by the device: PLDM completion code 0x80");
    EXPECT_EQ(device(SIDEBAND_CODE_NCSI, 3, 0x7FFF),
              "refused by the device: NC-SI response code 0x03, reason code 0x7fff");
    EXPECT_EQ(device(SIDEBAND_CODE_NVME_MI, 4, 0x0D00),
              "refused by the device: NVMe-MI status 0x04");
    EXPECT_EQ(device(SIDEBAND_CODE_NVME, 0x109), "refused by the device: NVMe status 0x109");
    EXPECT_EQ(device(SIDEBAND_CODE_PLDM_FW_RESULT, 0x0A), "refused by the device: result 0x0a");
}

TEST(ErrorText, TheStepSaysWhatWasBeingDone) {
    const auto in = [](uint8_t step) {
        return said(made(SIDEBAND_CAUSE_NO_ANSWER, 0, step, 0x11));
    };
    EXPECT_EQ(in(SIDEBAND_STEP_CONTROL), "no answer, in MCTP control command 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_PLDM), "no answer, in PLDM command 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_NCSI), "no answer, in NC-SI command 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_NVME_MI), "no answer, in NVMe-MI command 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_NVME), "no answer, in NVMe command 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_FW_UPDATE), "no answer, in the device's request 0x11");
    EXPECT_EQ(in(SIDEBAND_STEP_FILE), "no answer, in the file");
    EXPECT_EQ(in(SIDEBAND_STEP_SET_UP), "no answer, in setting up the endpoint");
}

TEST(ErrorText, NumbersThatNobodyKnowsAreNoTexts) {
    EXPECT_EQ(said(made(17)), "?");
    EXPECT_EQ(said(made(255, 255, 255)), "?, in ?");
    EXPECT_EQ(said(made(SIDEBAND_CAUSE_DEVICE, 7)), "refused by the device: ? 0x00");
    EXPECT_EQ(sideband_error_text(nullptr, nullptr, 0), 10u) << "no failure";
}

TEST(ErrorText, IsCutToTheRoomWithANulBehindItAndSaysHowLongItIs) {
    const sideband_error error = made(SIDEBAND_CAUSE_NOT_ACKNOWLEDGED, 0, SIDEBAND_STEP_PLDM, 0x02);
    const std::string whole = "not acknowledged, in PLDM command 0x02";
    for (size_t size = 1; size <= whole.size() + 2; ++size) {
        std::string room(whole.size() + 3, '#');
        EXPECT_EQ(sideband_error_text(&error, room.data(), size), whole.size());
        EXPECT_STREQ(room.c_str(), whole.substr(0, size - 1).c_str());
        EXPECT_EQ(room.substr(std::min(size, whole.size() + 1)).find_first_not_of('#'),
                  std::string::npos)
            << size;
    }
    char untouched = '#';
    EXPECT_EQ(sideband_error_text(&error, &untouched, 0), whole.size());
    EXPECT_EQ(untouched, '#');
}

int failing_vsnprintf() {
    return -1;
}

TEST(ErrorText, ATextThatCannotBePutTogetherIsAnEmptyOne) {
    test::Substitute substitutes[] = {
        {"vsnprintf", test::address_of(failing_vsnprintf)},
        {"__vsnprintf_chk", test::address_of(failing_vsnprintf)},
    };
    const sideband_error error = made(SIDEBAND_CAUSE_LOCK);
    char text[] = "####";
    test::patch_offsets(substitutes);
    const size_t length = sideband_error_text(&error, text, sizeof text);
    test::restore_offsets(substitutes);
    EXPECT_EQ(length, 0u);
    EXPECT_STREQ(text, "");
}

}  // namespace
