// SPDX-License-Identifier: Apache-2.0
// The loop that serves a firmware device: what it answers, when it ends, and how long it waits.
#include <gtest/gtest.h>

#include <utility>

#include "pldm/update/device.h"

namespace {

using test::load;
using test::Outcome;
using test::piece;
using test::Texts;

const std::string kState = "ctx->state = 0x3\n";
const std::string kTransfer = "------------PLDM_FW_UPDATE_TRANSFER_COMPLETE ---------------\n";
const std::string kVerify = "------------PLDM_FW_UPDATE_VERIFY_COMPLETE---------------\n";
const std::string kApply = "---------------PLDM_FW_UPDATE_APPLY_COMPLETE--------\n";
const std::string kPackageData = "------------PLDM_FW_UPDATE_GET_PACKAGE_DATA ---------------\n";

class PldmLoop : public test::FwMachineTest {
protected:
    /// One component in the list; a second one that is refused keeps the machine from going on.
    void SetUp() override {
        prepare(1);
        device.usual[0x13] = "00 05 13 80";
        EXPECT_EQ(act(1).result, 0);
        device.dialogue.clear();
        device.usual[0x14] = "00 05 14 80";
        device.usual[0x1A] = "00 05 1a 80";
        ctx.pldm.completion_code = 0;
        ctx.pldm.instance_id = 0;
        ctx.req_fw_data_wait = 10;
        start_ = *libc.now;
    }

    Outcome serve() { return act(3); }
    Outcome serve(std::initializer_list<std::string> asks) {
        device.asks.assign(asks);
        return serve();
    }

    /// The loop has ended because the device was silent.
    void expect_silence() const {
        ASSERT_FALSE(device.dialogue.empty());
        EXPECT_EQ(device.dialogue.back(), "...");
        EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    }
    /// The loop has ended at once, behind so many receives.
    void expect_left(size_t receives) const {
        EXPECT_EQ(device.capacity.size(), receives);
        EXPECT_EQ(device.dialogue_of({"..."}), Texts());
    }

    int64_t passed() const { return *libc.now - start_; }

private:
    int64_t start_ = 0;
};

// ---- Receiving ----

TEST_F(PldmLoop, ReceivesIntoABufferOf1024Bytes) {
    serve({"80 05 12"});
    EXPECT_EQ(device.capacity.front(), 1024);
    EXPECT_EQ(device.max_blocks, static_cast<int>(libc.live_blocks()) + 1);
}

TEST_F(PldmLoop, WithoutMemoryForTheBufferReceivesNothing) {
    libc.fail_allocation(1);
    EXPECT_EQ(serve().out, kState);
    expect_left(0);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmLoop, WithoutAReceiveOperationReceivesNothing) {
    ctx.pldm.recv_op = nullptr;
    EXPECT_EQ(serve().out, kState);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmLoop, NotesTheCommandOfEachMessageAndWaitsNinetyTimesSixSecondsAfterwards) {
    serve({"80 05 14"});
    EXPECT_EQ(ctx.pldm.last_command, 0x14);
    EXPECT_EQ(ctx.req_fw_data_wait, 90);
}

TEST_F(PldmLoop, AShortMessageHasZerosForWhatItLacks) {
    const Outcome outcome = serve({piece(0xFFFFFF, 0xFFFFFF), "80 05 15"});
    EXPECT_EQ(outcome.out, kState +
                               "PLDM_FW_UPDATE_DATA_OUT_OF_RANGE\n"
                               "PLDM_FW_UPDATE_INVALID_TRANSFER_LENGTH\n");
    ctx.component_index = 0;
    EXPECT_NE(serve({"80 05 12 ff ff ff ff ff ff ff ff", "80 05 15"}).out.find(", offset = 0x0\n"),
              std::string::npos);
    EXPECT_EQ(device.dialogue.back(), "= 00 05 15 83");
}

// ---- Time ----

TEST_F(PldmLoop, ExactlySixTimesTheWaitDoesNotEndIt) {
    device.wait = 60;
    serve();
    EXPECT_EQ(device.capacity.size(), 2u);
    expect_silence();
}

TEST_F(PldmLoop, ASecondMoreEndsIt) {
    device.wait = 61;
    serve();
    EXPECT_EQ(device.capacity.size(), 1u);
    expect_silence();
}

TEST_F(PldmLoop, TheCallersDeadlineEndsIt) {
    ctx.last_error = {};  // of the component that was refused
    mctp_set_deadline(ctx.pldm.mctp, 1000);
    device.wait = 1;
    device.on_receive = [this] { libc.later_ms += 600; };
    serve();
    EXPECT_EQ(device.capacity.size(), 2u);
    expect_silence();
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_DEADLINE);
}

TEST_F(PldmLoop, AnOperationWithoutAnEndpointEndsItWithItsSilence) {
    ctx.last_error = ctx.pldm.last_error = {};
    mctp_ctx* const mctp = std::exchange(ctx.pldm.mctp, nullptr);
    ctx.pldm.recv_op = [](pldm_ctx*, int32_t, uint8_t*) -> int32_t {
        *test::LibcPatch::current()->now += 20;
        return -1;
    };
    serve();
    EXPECT_EQ(passed(), 80) << "more than six times ten seconds";
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_NO_ANSWER);
    ctx.pldm.mctp = mctp;
}

TEST_F(PldmLoop, TheFirstMessageIsWaitedForAsLongAsTheDeviceHasSaid) {
    ctx.req_fw_data_wait = 65535;
    device.wait = 6 * 65535;
    serve();
    EXPECT_EQ(device.capacity.size(), 2u);
    expect_silence();
}

TEST_F(PldmLoop, AfterTheFirstMessage540SecondsAreWaited) {
    device.wait = 540;
    serve({"80 05 12"});
    EXPECT_EQ(device.capacity.size(), 3u);
    EXPECT_EQ(passed(), 1080);
    expect_silence();
}

TEST_F(PldmLoop, AfterTheFirstMessage541SecondsAreTooLong) {
    device.wait = 541;
    ctx.req_fw_data_wait = 65535;
    serve({"80 05 12"});
    EXPECT_EQ(device.capacity.size(), 2u);
    expect_silence();
}

TEST_F(PldmLoop, EachMessageStartsTheWaitAnew) {
    device.wait = 500;
    serve({"80 05 12", "", "80 05 12", "", "80 05 12"});
    EXPECT_EQ(device.capacity.size(), 7u);
    EXPECT_EQ(passed(), 2000);
    EXPECT_EQ(device.dialogue,
              (Texts{"< 80 05 12", "...", "< 80 05 12", "...", "< 80 05 12", "..."}));
}

TEST_F(PldmLoop, AClockThatIsSetBackStartsTheWaitAnew) {
    int receives = 0;
    device.wait = 50;
    device.on_receive = [&] {
        if (++receives == 2) {
            *libc.now -= 86400;
        }
    };
    serve();
    EXPECT_EQ(receives, 4);
    expect_silence();
}

TEST_F(PldmLoop, AReceiveThatFailsIsRepeatedAtOnce) {
    device.wait = 0;
    serve({"", "", "", "80 05 18"});
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
    EXPECT_EQ(device.capacity.size(), 4u);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

// ---- What is ignored ----

class PldmLoopIgnores : public PldmLoop, public ::testing::WithParamInterface<int> {};

TEST_P(PldmLoopIgnores, TheCodeAndGoesOn) {
    const auto code = static_cast<uint8_t>(GetParam());
    const std::string message = "80 05 " + test::to_hex(test::Bytes{code}) + " 00 00 00 00";
    EXPECT_EQ(serve({message, message}).out, kState);
    EXPECT_EQ(device.dialogue, (Texts{"< " + message, "< " + message, "..."}));
    EXPECT_EQ(ctx.pldm.last_command, code);
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.component_index, 0);
}

INSTANTIATE_TEST_SUITE_P(Codes, PldmLoopIgnores,
                         ::testing::Values(0x00, 0x01, 0x02, 0x10, 0x12, 0x13, 0x14, 0x19, 0x1A,
                                           0x1B, 0x1C, 0x1D, 0x7F, 0x91, 0xFF));

// ---- 0x11 GetPackageData ----

class PldmLoopPackageData : public PldmLoop {
protected:
    void SetUp() override {
        PldmLoop::SetUp();
        tool::Package package = test::update_package(1);
        package.records[0].package_data = test::counting(40, 1);
        ASSERT_EQ(parse(package), 0);
        ctx.max_transfer_size = 32;
    }
};

TEST_F(PldmLoopPackageData, IsServedUntilTheLastPart) {
    ctx.fd_will_send_pkg_data = 1;
    EXPECT_EQ(serve({"80 05 11 00 00 00 00 01", "81 05 11 01 00 00 00 00", "82 05 12"}).out,
              kState + kPackageData +
                  "cmd_idx = 1\n"
                  "resp_len = 41, transfer_size = 32\n"
                  "pldm_get_package_data e rc = 0, last_part =0\n" +
                  kPackageData +
                  "cmd_idx = 2\n"
                  "resp_len = 17, transfer_size = 8\n"
                  "pldm_get_package_data e rc = 0, last_part =1\n"
                  "last GetPackageData cmd\n");
    expect_left(2);
    EXPECT_EQ(device.dialogue.back(), "= 01 05 11 00 02 00 00 00 04 21 22 23 24 25 26 27 28");
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmLoopPackageData, ThatIsRefusedLeavesTheLoop) {
    EXPECT_EQ(serve({"80 05 11 05 00 00 00 01"}).out,
              kState + kPackageData +
                  "cmd_idx = 1\n"
                  "PLDM_FW_UPDATE_COMMAND_NOT_EXPECTED FAIL\n"
                  "pldm_get_package_data fail\n");
    EXPECT_EQ(device.dialogue.back(), "= 00 05 11 88 06 00 00 00 04");
    expect_left(1);
}

TEST_F(PldmLoopPackageData, WhosePartCannotBeSentLeavesTheLoop) {
    ctx.fd_will_send_pkg_data = 1;
    device.failing_send = 1;
    const Outcome outcome = serve({"80 05 11 00 00 00 00 01"});
    EXPECT_TRUE(
        outcome.out.ends_with("get package data cmd write fail\n"
                              "pldm_get_package_data e rc = -1, last_part =0\n"
                              "pldm_get_package_data fail\n"))
        << outcome.out;
    expect_left(1);
}

// ---- 0x15 RequestFirmwareData ----

TEST_F(PldmLoop, AnsweredDataGoesOn) {
    serve({piece(0, 32), piece(32, 32)});
    EXPECT_EQ(device.dialogue_of({"="}).size(), 2u);
    expect_silence();
    EXPECT_EQ(ctx.component_index, 0);
}

TEST_F(PldmLoop, DataThatIsRefusedSkipsTheComponentAndLeaves) {
    serve({piece(0, 31)});
    EXPECT_EQ(device.dialogue, (Texts{"< " + piece(0, 31), "= 00 05 15 83"}));
    expect_left(1);
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.state, 3);
}

TEST_F(PldmLoop, DataThatCannotBeSentSkipsTheComponentAndLeaves) {
    device.failing_send = 2;
    serve({piece(0, 32), piece(32, 32), piece(0, 32)});
    expect_left(2);
    EXPECT_EQ(ctx.component_index, 1);
}

TEST_F(PldmLoop, DataOfAPackageThatIsGoneSkipsTheComponentAndLeavesWithoutAnAnswer) {
    ASSERT_EQ(std::remove(path.c_str()), 0);
    serve({piece(0, 32)});
    expect_left(1);
    EXPECT_EQ(device.dialogue_of({"="}), Texts());
    EXPECT_EQ(ctx.component_index, 1);
}

TEST_F(PldmLoop, APieceMayBeAskedForAgainAndOutOfOrder) {
    serve({piece(32, 32), piece(0, 32), piece(0, 32), piece(32, 32)});
    const Texts answers = device.dialogue_of({"="});
    ASSERT_EQ(answers.size(), 4u);
    EXPECT_EQ(answers[0], answers[3]);
    EXPECT_EQ(answers[1], answers[2]);
    EXPECT_EQ(answers[1], "= 00 05 15 00 " + test::to_hex(test::counting(32)));
}

// ---- 0x16 TransferComplete ----

TEST_F(PldmLoop, ATransferThatIsCompleteGoesOnInStateFour) {
    EXPECT_EQ(serve({"81 05 16 00"}).out, kState + kTransfer + "TransferResult: 0x0\n");
    EXPECT_EQ(device.dialogue, (Texts{"< 81 05 16 00", "= 01 05 16 00", "..."}));
    EXPECT_EQ(ctx.state, 4);
}

TEST_F(PldmLoop, ATransferThatFailedLeaves) {
    EXPECT_EQ(serve({"81 05 16 02"}).out,
              kState + kTransfer +
                  "TransferResult: 0x2\n"
                  "transfer complete with error 2\n"
                  "ctx->state = 0x2\n"
                  "PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = 1\n");
    EXPECT_EQ(device.dialogue, (Texts{"< 81 05 16 02", "= 01 05 16 00", "> 80 05 1c"}));
    expect_left(1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x57);
    EXPECT_EQ(ctx.state, 2);
}

// ---- 0x17 VerifyComplete ----

TEST_F(PldmLoop, VerifyCompleteBeforeTransferCompleteLeavesWithoutAnAnswer) {
    EXPECT_EQ(serve({"80 05 17 00"}).out, kState + kVerify);
    EXPECT_EQ(device.dialogue, Texts{"< 80 05 17 00"});
    expect_left(1);
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.component_index, 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmLoop, AVerificationThatIsCompleteGoesOnInStateFive) {
    EXPECT_EQ(serve({"80 05 16 00", "81 05 17 00"}).out,
              kState + kTransfer + "TransferResult: 0x0\n" + kVerify + "VerifyResult: 0\n");
    EXPECT_EQ(device.dialogue.back(), "...");
    EXPECT_EQ(device.dialogue[3], "= 01 05 17 00");
    EXPECT_EQ(ctx.state, 5);
}

TEST_F(PldmLoop, AVerificationThatFailedLeaves) {
    const Outcome outcome = serve({"80 05 16 00", "81 05 17 01"});
    EXPECT_NE(outcome.out.find("VerifyResult: 1\nverify complete with error 1\n"),
              std::string::npos);
    EXPECT_EQ(device.dialogue.back(), "> 80 05 1c");
    expect_left(2);
    EXPECT_EQ(ctx.pldm.completion_code, 0x58);
}

TEST_F(PldmLoop, ASecondVerifyCompleteLeavesWithoutAnAnswer) {
    serve({"80 05 16 00", "81 05 17 00", "82 05 17 00"});
    EXPECT_EQ(device.dialogue.back(), "< 82 05 17 00");
    expect_left(3);
    EXPECT_EQ(ctx.state, 5);
}

// ---- 0x18 ApplyComplete ----

TEST_F(PldmLoop, ApplyCompleteOutsideTheApplyStateLeavesWithoutAnAnswer) {
    EXPECT_EQ(serve({"80 05 18 00 00 00"}).out, kState + kApply);
    EXPECT_EQ(device.dialogue, Texts{"< 80 05 18 00 00 00"});
    expect_left(1);
    EXPECT_EQ(ctx.component_index, 0);
    device.dialogue.clear();
    serve({"80 05 16 00", "80 05 18 00 00 00"});  // state 4
    EXPECT_EQ(device.dialogue.back(), "< 80 05 18 00 00 00");
    EXPECT_EQ(ctx.state, 4);
    EXPECT_EQ(ctx.component_index, 0);
}

TEST_F(PldmLoop, AnApplicationThatIsCompleteGoesOnThroughTheMachineAndLeaves) {
    serve({"80 05 16 00", "81 05 17 00", "82 05 18 01 0a 00", "83 05 12"});
    EXPECT_EQ(device.dialogue_of({"= 02", "> "}), (Texts{"= 02 05 18 00", "> 80 05 1a 00"}));
    expect_left(3);
    EXPECT_EQ(ctx.component_index, 1);
    EXPECT_EQ(ctx.state, 6);
}

TEST_F(PldmLoop, AnApplicationThatFailedLeaves) {
    serve({"80 05 16 00", "81 05 17 00", "82 05 18 02 00 00", "83 05 12"});
    EXPECT_EQ(device.dialogue.back(), "> 80 05 1c");
    expect_left(3);
    EXPECT_EQ(ctx.pldm.completion_code, 0x59);
    EXPECT_EQ(ctx.component_index, 1);
}

// ---- A device without an end ----

class PldmLoopBound : public PldmLoop {
protected:
    void SetUp() override {
        PldmLoop::SetUp();
        device.keeps_dialogue = false;
        test::port().syslog.clear();
    }

    void expect_given_up(int messages) const {
        EXPECT_EQ(device.messages, messages);
        EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
        EXPECT_EQ(test::port().syslog,
                  Texts{"fw_update_state_fn, the device asks without an end\n"});
    }

    /// A device gets all of a component of this size in the smallest pieces.
    void expect_loaded_whole(uint32_t size) {
        uint32_t offset = 0;
        device.asks_always = [&offset, size] {
            offset += 32;
            return offset <= size ? piece(offset - 32, 32) : std::string("80 05 18 00 00 00");
        };
        serve();
        EXPECT_EQ(device.messages, static_cast<int>(size / 32) + 1);
        EXPECT_EQ(ctx.component_index, 0);
    }
};

TEST_F(PldmLoopBound, ThatAsksForTheSamePieceForEverIsGivenUp) {
    device.asks_always = [] { return piece(0, 32); };
    serve();
    expect_given_up(4096 + 4 * (40 / 32));
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(ctx.component_index, 0);
}

TEST_F(PldmLoopBound, ThatSendsWhatIsIgnoredForEverIsGivenUp) {
    device.asks_always = [] { return "80 05 12"; };
    EXPECT_EQ(serve().out, kState);
    expect_given_up(4100);
}

TEST_F(PldmLoopBound, ThatReportsItsTransferForEverIsGivenUp) {
    device.asks_always = [] { return "80 05 16 00"; };
    serve();
    expect_given_up(4100);
    EXPECT_EQ(ctx.state, 4);
}

TEST_F(PldmLoopBound, ThatAnnouncedPackageDataAndSendsSomethingElseForEverIsGivenUp) {
    ctx.fd_will_send_pkg_data = 1;
    ctx.package_data_len = 0;
    device.asks_always = [] { return "80 05 13"; };
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.messages, 4096);
    ctx.package_data_len = 100;
    device.messages = 0;
    EXPECT_EQ(act(1).result, 0);
    EXPECT_EQ(device.messages, 4096 + 4 * 100);
}

TEST_F(PldmLoopBound, LeavesAHonestDeviceEnoughForAllOfALargeComponent) {
    constexpr uint32_t kSize = 1 << 18;
    tool::Package package = test::update_package(1);
    package.components[0].image = test::Bytes(kSize);
    prepare(package, test::known(1));
    device.usual[0x13] = "00 05 13 80";
    act(1);
    expect_loaded_whole(kSize);
}

class PldmLoopOfAHandFilledContext : public PldmLoopBound {
protected:
    /// A component of so many bytes, whose package nobody has parsed.
    void set_size(uint32_t size) {
        ctx.package_size = 0;
        for (int i = 0; i < 4; i++) {
            ctx.update_list[0].image[16 + i] = static_cast<uint8_t>(size >> (8 * i));
        }
    }
};

TEST_F(PldmLoopOfAHandFilledContext, LeavesAHonestDeviceEnoughForAllOfALargeComponent) {
    constexpr uint32_t kSize = 1 << 18;
    set_size(kSize);
    write_file(test::counting(kSize));
    expect_loaded_whole(kSize);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

TEST_F(PldmLoopOfAHandFilledContext, IsBoundedByTheSizeOfTheComponent) {
    device.asks_always = [] { return "80 05 12"; };
    for (const auto& [size, messages] : {std::pair(31u, 4096), std::pair(1u << 20, 135168)}) {
        set_size(size);
        device.messages = 0;
        test::port().syslog.clear();
        ctx.pldm.completion_code = 0;
        serve();
        expect_given_up(messages);
    }
}

TEST_F(PldmLoopOfAHandFilledContext, AnIgnoredCommandEvery540SecondsHoldsItForItsMessages) {
    set_size(31);
    bool speaks = false;
    ctx.req_fw_data_wait = 65535;
    device.wait = 540;
    device.asks_always = [&speaks] {
        speaks = !speaks;
        return speaks ? "80 05 12" : "";
    };
    serve();
    expect_given_up(4096);
    EXPECT_EQ(passed(), 4095 * 540);  // 25 days and a half
}

}  // namespace
