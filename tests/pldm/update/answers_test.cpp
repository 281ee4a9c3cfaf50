// SPDX-License-Identifier: Apache-2.0
// The update agent's answers to a device: bytes sent, texts, results, progress, marks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "pldm/update/agent_fixture.h"

namespace {

using test::Bytes;
using test::FwAnswerTest;
using test::kComponent;
using test::Outcome;
using test::Texts;
using test::operator+;

// ---- GetPackageData ----

class PldmGetPackageData : public FwAnswerTest {
protected:
    /// A refused request sets the counts of the process back, whatever ran before.
    void SetUp() override {
        EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, -1);
        endpoint.calls.clear();
        ctx.fd_will_send_pkg_data = 1;
        ctx.max_transfer_size = 4;
    }

    Outcome ask(std::string_view request, int32_t send_result = 0) {
        return asked(pldm_get_package_data, request, send_result);
    }

    void expect_refused(std::string_view request, int index, const char* text,
                        const std::string& answer) {
        const Outcome outcome = ask(request);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "cmd_idx = " + std::to_string(index) + "\n" + text + "\n");
        EXPECT_EQ(sent(), answer);
    }
};

TEST_F(PldmGetPackageData, GoesOutInPartsWithTheirFlagsAndHandles) {
    add_record(1, "v", test::counting(10, 0xA0));
    Outcome outcome = ask("83 05 11 44 33 22 11 01");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "cmd_idx = 1\nresp_len = 13, transfer_size = 4\n"
              "pldm_get_package_data e rc = 0, last_part =0\n");
    EXPECT_EQ(sent(), "03 05 11 00 45 33 22 11 01 a0 a1 a2 a3");
    outcome = ask("84 05 11 45 33 22 11 00");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(sent(), "04 05 11 00 46 33 22 11 02 a4 a5 a6 a7");
    outcome = ask("85 05 11 46 33 22 11 00");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.out,
              "cmd_idx = 3\nresp_len = 11, transfer_size = 2\n"
              "pldm_get_package_data e rc = 0, last_part =1\n");
    EXPECT_EQ(sent(), "05 05 11 00 47 33 22 11 04 a8 a9");
    // The next one begins anew.
    EXPECT_EQ(ask("86 05 11 00 00 00 00 01").result, 0);
    EXPECT_EQ(sent(), "06 05 11 00 01 00 00 00 01 a0 a1 a2 a3");
}

TEST_F(PldmGetPackageData, DataNoLongerThanTheTransferSizeGoesInOneAnswerWithFlagFive) {
    for (size_t length : {1, 3, 4}) {
        pldm_free_ctx_resource(&ctx);
        add_record(1, "v", test::counting(length, 0xA0));
        EXPECT_EQ(ask("80 05 11 ff ff ff ff 01").result, 1);
        EXPECT_EQ(sent(),
                  "00 05 11 00 00 00 00 00 05 " + test::to_hex(test::counting(length, 0xA0)));
    }
}

TEST_F(PldmGetPackageData, ADeviceThatHasNotAnnouncedItIsRefused) {
    add_record(1, "v", {1});
    ctx.fd_will_send_pkg_data = 0;
    expect_refused("80 05 11 07 00 00 00 00", 1, "PLDM_FW_UPDATE_COMMAND_NOT_EXPECTED FAIL",
                   "00 05 11 88 08 00 00 00 04");
}

TEST_F(PldmGetPackageData, WithoutPackageDataItIsRefused) {
    expect_refused("80 05 11 07 00 00 00 01", 1, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL",
                   "00 05 11 8f 08 00 00 00 04");
    add_record(1, "v");
    expect_refused("80 05 11 07 00 00 00 01", 1, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL",
                   "00 05 11 8f 08 00 00 00 04");
}

TEST_F(PldmGetPackageData, WithoutARecordThereIsNoPackageData) {
    ctx.package_data_len = 3;
    expect_refused("80 05 11 07 00 00 00 01", 1, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL",
                   "00 05 11 8f 08 00 00 00 04");
    add_record(1, "v", {1, 2, 3});
    const uint8_t records = std::exchange(ctx.device_record_num, uint8_t{0});
    expect_refused("80 05 11 07 00 00 00 01", 1, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL",
                   "00 05 11 8f 08 00 00 00 04");
    ctx.device_record_num = records;
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 1);
}

TEST_F(PldmGetPackageData, PackageDataThatFoundNoMemoryIsNoPackageData) {
    pldm_device_record& record = add_record(1, "v", {1, 2, 3});
    std::free(record.package_data);
    record.package_data = nullptr;
    expect_refused("80 05 11 07 00 00 00 01", 1, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL",
                   "00 05 11 8f 08 00 00 00 04");
}

TEST_F(PldmGetPackageData, AFirstRequestForTheNextPartIsAnswered91AndResetsTheSequence) {
    add_record(1, "v", test::counting(3, 0xA0));
    expect_refused("80 05 11 07 00 00 00 00", 1,
                   "PLDM_FW_UPDATE_INVALID_TRANSFER_OPERATION_FLAG FAIL",
                   "00 05 11 91 08 00 00 00 04");
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 1);
}

TEST_F(PldmGetPackageData, AnotherHandleOrFlagResetsTheSequence) {
    add_record(1, "v", test::counting(10, 0xA0));
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 0);
    // The handle is looked at before the flag.
    expect_refused("80 05 11 02 00 00 00 01", 2, "PLDM_FW_UPDATE_INVALID_DATA_TRANSFER_HANDLE FAIL",
                   "00 05 11 90 03 00 00 00 04");
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 0);
    expect_refused("80 05 11 01 00 00 00 01", 2,
                   "PLDM_FW_UPDATE_INVALID_TRANSFER_OPERATION_FLAG FAIL",
                   "00 05 11 91 02 00 00 00 04");
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 0);
    EXPECT_EQ(sent(), "00 05 11 00 01 00 00 00 01 a0 a1 a2 a3");
}

TEST_F(PldmGetPackageData, ARefusalThatCannotBeSentIsReported) {
    const Outcome outcome = ask("80 05 11 07 00 00 00 01", -1);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with("error handling response fail, rc =-1\n"));
}

TEST_F(PldmGetPackageData, APartThatCannotBeSentGivesTheResultOfTheSendUnlessItIsTheLast) {
    add_record(1, "v", test::counting(6, 0xA0));
    Outcome outcome = ask("80 05 11 00 00 00 00 01", -1);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with(
        "get package data cmd write fail\npldm_get_package_data e rc = -1, last_part =0\n"));
    outcome = ask("80 05 11 01 00 00 00 00", -1);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_TRUE(outcome.out.ends_with(
        "get package data cmd write fail\npldm_get_package_data e rc = -1, last_part =1\n"));
}

TEST_F(PldmGetPackageData, TheFirstRecordIsSentAndNothingBehindItsEnd) {
    ctx.max_transfer_size = 0xFFFFFFFF;
    add_record(1, "v", {0xC1, 0xC2});
    add_record(1, "v", test::counting(5, 0xD0));
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 1);
    EXPECT_EQ(sent(), "00 05 11 00 01 00 00 00 05 c1 c2 00 00 00");
    ctx.max_transfer_size = 1;
    for (int i = 0; i < 5; i++) {
        const std::string handle = test::to_hex(Bytes{static_cast<uint8_t>(i)});
        const int32_t result =
            ask("80 05 11 " + handle + " 00 00 00 " + (i == 0 ? "01" : "00")).result;
        EXPECT_EQ(result, i == 4 ? 1 : 0);
        EXPECT_EQ(endpoint.calls.back().bytes.back(), (Bytes{0xC1, 0xC2, 0, 0, 0})[i]);
    }
}

TEST_F(PldmGetPackageData, ALongerRecordIsCutToTheLengthThatWasAnnounced) {
    add_record(1, "v", test::counting(9, 0xC0));
    add_record(1, "v", {0xD0});
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 1);
    EXPECT_EQ(sent(), "00 05 11 00 01 00 00 00 05 c0");
}

TEST_F(PldmGetPackageData, AnotherUpdateWithLessDataDoesNotReadBehindItsEnd) {
    add_record(1, "v", test::counting(9, 0xC0));
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 0);
    pldm_free_ctx_resource(&ctx);
    add_record(1, "v", {0xD0, 0xD1});
    EXPECT_EQ(ask("80 05 11 01 00 00 00 00").result, 1);
    EXPECT_EQ(sent(), "00 05 11 00 02 00 00 00 04");
}

TEST_F(PldmGetPackageData, TheLargestPackageDataGoesOutWhole) {
    const Bytes data = test::counting(0xFFFF);
    add_record(1, "v", data);
    ctx.max_transfer_size = 0x10000;
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 1);
    EXPECT_EQ(endpoint.calls.back().bytes, test::hex("00 05 11 00 01 00 00 00 05") + data);
}

TEST_F(PldmGetPackageData, WithoutMemoryOrArgumentsNothingIsSent) {
    add_record(1, "v", {1});
    libc.fail_allocation(1);
    EXPECT_EQ(asked_without_answer(pldm_get_package_data, "80 05 11 00 00 00 00 01").result, -1);
    expect_unusable_arguments_refused(pldm_get_package_data);
}

TEST_F(PldmGetPackageData, BehindARequestWithoutMemoryTheSamePartCanBeAskedForAgain) {
    add_record(1, "v", test::counting(10, 0xA0));
    EXPECT_EQ(ask("80 05 11 00 00 00 00 01").result, 0);
    libc.fail_allocation(1);
    EXPECT_EQ(asked_without_answer(pldm_get_package_data, "81 05 11 01 00 00 00 00").result, -1);
    EXPECT_EQ(ask("82 05 11 01 00 00 00 00").result, 0);
    EXPECT_EQ(sent(), "02 05 11 00 02 00 00 00 02 a4 a5 a6 a7");
}

// ---- RequestFirmwareData ----

class PldmRequestFirmwareData : public FwAnswerTest {
protected:
    static constexpr size_t kFileSize = 300;

    void SetUp() override {
        file = test::counting(kFileSize);
        write_file(file);
        ctx.package_file = path.c_str();
        ctx.last_percentage = 10;
        // Sets the percentage of the process that was printed last to 10, whatever ran before.
        set_component(0, 0xFFFFFFFF);
        EXPECT_EQ(ask("80 05 15 00 00 00 00 20 00 00 00").result, 0);
        EXPECT_TRUE(test::port().progress.empty());
        endpoint.calls.clear();
        set_component(0x40, 0x1234);
    }

    void TearDown() override {
        EXPECT_EQ(libc.open_descriptors(), 0u);
        EXPECT_EQ(libc.live_mappings(), 0u);
        FwAnswerTest::TearDown();
    }

    void set_component(uint32_t location, uint32_t size) {
        const Bytes place = little(location) + little(size);
        set_components({"0a 00 01 01 44 33 22 11 00 00 00 00 " + test::to_hex(place) + " 01 00"});
    }

    static Bytes little(uint32_t value) {
        return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
    }

    Outcome ask(std::string_view request, int32_t send_result = 0) {
        return asked(pldm_request_fw_data, request, send_result);
    }
    Outcome ask_for(uint32_t offset, uint32_t length) {
        return ask("85 05 15 " + test::to_hex(little(offset) + little(length)));
    }

    /// An answer with these bytes of the file and zeros up to a length.
    std::string answer(size_t from, size_t count, size_t length) const {
        Bytes bytes = test::hex("05 05 15 00");
        for (size_t i = from; i < from + count; i++) {
            bytes.push_back(file[i]);
        }
        bytes.resize(4 + length, 0);
        return test::to_hex(bytes);
    }

    Bytes file;
};

TEST_F(PldmRequestFirmwareData, SendsThePieceFromWhereTheComponentLies) {
    const Outcome outcome = ask("85 05 15 05 00 00 00 20 00 00 00");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "image length = 0x12c, offset = 0x5\n");
    EXPECT_EQ(sent(), answer(0x45, 0x20, 0x20));
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmRequestFirmwareData, OnlyTheFirstPiecesAreAnnounced) {
    file = test::counting(0x1100);
    write_file(file);
    EXPECT_NE(ask_for(0xFFF, 0x20).out.find("image length = 0x1100, offset = 0xfff\n"),
              std::string::npos);
    EXPECT_EQ(ask_for(0x1000, 0x20).out.find("image length"), std::string::npos);
}

TEST_F(PldmRequestFirmwareData, Length31IsAnswered83AndTheTransferSizeIsAccepted) {
    Outcome outcome = ask_for(0, 31);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "image length = 0x12c, offset = 0x0\nPLDM_FW_UPDATE_INVALID_TRANSFER_LENGTH\n");
    EXPECT_EQ(sent(), "05 05 15 83");
    EXPECT_EQ(ask_for(0, 32).result, 0);
    EXPECT_EQ(ask_for(0, 64).result, 0);
    EXPECT_EQ(sent(), answer(0x40, 64, 64));
    EXPECT_EQ(ask_for(0, 65).result, -1);
    EXPECT_EQ(sent(), "05 05 15 83");
}

TEST_F(PldmRequestFirmwareData, LengthZeroIsNoDivisor) {
    for (uint32_t offset : {0u, 300u, 301u, 364u, 365u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ask_for(offset, 0).result, -1);
        EXPECT_EQ(sent(), "05 05 15 83");
    }
}

TEST_F(PldmRequestFirmwareData, APieceThatPassesTheEndOfTheFileTakesTheRestOfTheDivision) {
    set_component(0, 0x1234);
    EXPECT_EQ(ask_for(256, 64).result, 0);  // 300 % 64 = 44
    EXPECT_EQ(sent(), answer(256, 44, 64));
    // Even if the file has more, or less.
    EXPECT_EQ(ask_for(240, 64).result, 0);
    EXPECT_EQ(sent(), answer(240, 44, 64));
    EXPECT_EQ(ask_for(280, 64).result, 0);
    EXPECT_EQ(sent(), answer(280, 20, 64));
    EXPECT_EQ(ask_for(300, 64).result, 0);
    EXPECT_EQ(sent(), answer(0, 0, 64));
}

TEST_F(PldmRequestFirmwareData, BeyondTheTransferSizeBehindTheFileIsOutOfRange) {
    const Outcome outcome = ask_for(301, 64);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "image length = 0x12c, offset = 0x12d\nPLDM_FW_UPDATE_DATA_OUT_OF_RANGE\n");
    EXPECT_EQ(sent(), "05 05 15 82");
}

TEST_F(PldmRequestFirmwareData, TheRangeIsThatOfTheFileNotOfTheComponent) {
    set_component(0, 1);
    EXPECT_EQ(ask_for(64, 64).result, 0);
    EXPECT_EQ(sent(), answer(64, 64, 64));
}

TEST_F(PldmRequestFirmwareData, ABadLengthOverridesABadRange) {
    const Outcome outcome = ask_for(400, 31);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with(
        "PLDM_FW_UPDATE_DATA_OUT_OF_RANGE\nPLDM_FW_UPDATE_INVALID_TRANSFER_LENGTH\n"));
    EXPECT_EQ(sent(), "05 05 15 83");
}

TEST_F(PldmRequestFirmwareData, AnEndBeyond32BitsIsOutOfRange) {
    EXPECT_EQ(ask_for(0xFFFFFFE0, 32).result, -1);
    EXPECT_EQ(sent(), "05 05 15 82");
    ctx.max_transfer_size = 0xFFFFFFFF;
    EXPECT_EQ(ask_for(0xFFFFFFE0, 32).result, -1);
    EXPECT_EQ(sent(), "05 05 15 82");
    EXPECT_EQ(ask_for(0x20, 0xFFFFFFFF).result, -1);
    EXPECT_EQ(sent(), "05 05 15 83");
}

TEST_F(PldmRequestFirmwareData, AComponentBeyondTheFileIsZeros) {
    for (uint32_t location : {300u, 0x10000u, 0xFFFFFFFFu}) {
        set_component(location, 0x1234);
        EXPECT_EQ(ask_for(0, 64).result, 0);
        EXPECT_EQ(sent(), answer(0, 0, 64));
    }
    set_component(280, 0x1234);
    EXPECT_EQ(ask_for(0, 64).result, 0);
    EXPECT_EQ(sent(), answer(280, 20, 64));
}

TEST_F(PldmRequestFirmwareData, ProgressGoesToThePlatformInStepsOfFiveAndMore) {
    using Reports = std::vector<std::pair<uint32_t, unsigned>>;
    set_component(0, 1000);
    EXPECT_TRUE(ask_for(0, 64).out.ends_with("\n15%\n"));  // 85 * 64 / 1000 + 10
    EXPECT_EQ(test::port().progress, (Reports{{0x7A5C, 15}}));
    EXPECT_TRUE(ask_for(64, 40).out.ends_with("\n18%\n"));
    EXPECT_FALSE(ask_for(64, 40).out.ends_with("%\n"));  // printed already
    EXPECT_TRUE(ask_for(64, 52).out.ends_with("\n19%\n"));
    EXPECT_EQ(test::port().progress.size(), 1u);
    EXPECT_EQ(ctx.last_percentage, 15);
    EXPECT_TRUE(ask_for(64, 64).out.ends_with("\n20%\n"));
    EXPECT_EQ(test::port().progress, (Reports{{0x7A5C, 15}, {0x7A5C, 20}}));
    EXPECT_TRUE(ask_for(0, 32).out.ends_with("\n12%\n"));  // again, from the start
    EXPECT_EQ(test::port().progress.size(), 2u);
}

TEST_F(PldmRequestFirmwareData, TheLastPieceIsAtNinetyFive) {
    set_component(0, 300);
    EXPECT_TRUE(ask_for(256, 64).out.ends_with("\n95%\n"));
    EXPECT_EQ(test::port().progress.back().second, 95u);
}

TEST_F(PldmRequestFirmwareData, ProgressIsOneByteAndAComponentSizeOfZeroHasNone) {
    set_component(0, 1);
    EXPECT_TRUE(ask_for(0, 64).out.ends_with("\n74%\n"));  // 5450 in eight bits
    set_component(0, 0);
    EXPECT_FALSE(ask_for(0, 64).out.ends_with("%\n"));
    EXPECT_EQ(sent(), answer(0, 64, 64));
    EXPECT_EQ(test::port().progress.size(), 1u);
}

TEST_F(PldmRequestFirmwareData, PaddingBehindTheComponentIsNoProgress) {
    set_component(0, 33);
    EXPECT_TRUE(ask_for(0, 64).out.ends_with("\n174%\n"));
    ASSERT_EQ(test::port().progress.size(), 1u);
    EXPECT_EQ(test::port().progress[0].second, 95u);
    for (uint32_t size = 1; size < 64; size++) {
        set_component(0, size);
        for (const uint32_t offset : {0u, 64u, 256u}) {
            ctx.last_percentage = 0;
            EXPECT_EQ(ask_for(offset, 64).result, 0);
            EXPECT_EQ(test::port().progress.back().second, 95u) << size << " " << offset;
        }
    }
}

TEST_F(PldmRequestFirmwareData, AnAnswerThatCannotBeSentGivesTheResultOfTheSend) {
    EXPECT_EQ(ask("80 05 15 00 00 00 00 20 00 00 00", -1).result, -1);
}

TEST_F(PldmRequestFirmwareData, WithoutTheFileNothingIsAnswered) {
    std::filesystem::remove(path);
    const char* request = "80 05 15 00 00 00 00 20 00 00 00";
    Outcome outcome = asked_without_answer(pldm_request_fw_data, request);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "can't open file " + path + "\n");
    write_file({});
    outcome = asked_without_answer(pldm_request_fw_data, request);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "can't map the file " + path + "\n");
    ctx.package_file = nullptr;
    EXPECT_EQ(asked_without_answer(pldm_request_fw_data, request).result, -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmRequestFirmwareData, AFileThatTheSystemDoesNotTellOfIsNoFile) {
    for (const int call : {1, 2}) {
        libc.fail["fstat"] = call;
        const Outcome outcome =
            asked_without_answer(pldm_request_fw_data, "80 05 15 00 00 00 00 20 00 00 00");
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "can't map the file " + path + "\n");
    }
    EXPECT_TRUE(endpoint.calls.empty());
    libc.fail["fstat"] = 3;  // behind the read: nobody knows what was read
    EXPECT_EQ(ask_for(0, 32).result, -1);
    EXPECT_EQ(sent(), "05 05 15 01");
    EXPECT_EQ(ask_for(0, 32).result, 0);
}

TEST_F(PldmRequestFirmwareData, AFileThatIsReplacedIsReadAsItIsThen) {
    file = test::counting(100, 0x99);
    std::filesystem::remove(path);
    write_file(file);
    EXPECT_EQ(ask_for(0, 64).result, 0);
    EXPECT_EQ(sent(), answer(0x40, 36, 64));
    EXPECT_EQ(ask_for(101, 64).result, -1);
    EXPECT_EQ(sent(), "05 05 15 82");
}

TEST_F(PldmRequestFirmwareData, AFileThatIsCutOrCannotBeReadIsAnsweredWithAnError) {
    libc.fail["pread"] = 1;
    EXPECT_EQ(ask_for(0, 32).result, -1);
    EXPECT_EQ(sent(), "05 05 15 01");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_request_fw_data, can't read " + path + "\n"});
    endpoint.calls.clear();
    libc.before["pread"] = [this] { std::filesystem::resize_file(path, 0x50); };
    EXPECT_EQ(ask_for(0, 32).result, -1);
    EXPECT_EQ(sent(), "05 05 15 01");
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmRequestFirmwareData, AFileThatIsWrittenToWhileItIsReadIsAnsweredWithAnError) {
    libc.before["pread"] = [this] {
        file[0x41] ^= 0xFF;
        write_file(file);
        const timespec times[2] = {{1, 0}, {1, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    EXPECT_EQ(ask_for(0, 64).result, -1);
    EXPECT_EQ(sent(), "05 05 15 01");
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_request_fw_data, " + path + " has changed since it was parsed\n"});
    libc.before.clear();
    EXPECT_EQ(ask_for(0, 64).result, 0);
    EXPECT_EQ(sent(), answer(0x40, 64, 64));
}

TEST_F(PldmRequestFirmwareData, AFifoInThePlaceOfTheFileEndsItAtOnce) {
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    alarm(10);
    const Outcome outcome =
        asked_without_answer(pldm_request_fw_data, "80 05 15 00 00 00 00 20 00 00 00");
    alarm(0);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "can't map the file " + path + "\n");
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmRequestFirmwareData, AFileThatComesInSmallPiecesIsReadToTheEnd) {
    libc.read_at_most = 7;
    EXPECT_EQ(ask_for(0, 64).result, 0);
    EXPECT_EQ(sent(), answer(0x40, 64, 64));
}

TEST_F(PldmRequestFirmwareData, WithoutTheComponentNothingIsAnswered) {
    const char* request = "80 05 15 00 00 00 00 20 00 00 00";
    set_components({"", kComponent});
    for (uint8_t index : {0, 2, 255}) {
        ctx.component_index = index;
        test::port().syslog.clear();
        EXPECT_EQ(asked_without_answer(pldm_request_fw_data, request).result, -1);
        EXPECT_EQ(test::port().syslog,
                  Texts{"pldm_request_fw_data, no component " + std::to_string(index) + "\n"});
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmRequestFirmwareData, WithoutMemoryOrArgumentsNothingIsAnswered) {
    libc.fail_allocation(1);
    EXPECT_EQ(asked_without_answer(pldm_request_fw_data, "80 05 15 00 00 00 00 20 00 00 00").result,
              -1);
    expect_unusable_arguments_refused(pldm_request_fw_data);
}

TEST_F(PldmRequestFirmwareData, OffsetsAndLengthsAtTheirExtremesStayInside) {
    const uint32_t values[] = {0,   1,   31,  32,         63,         64,         65,        236,
                               299, 300, 301, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    for (uint32_t offset : values) {
        for (uint32_t length : values) {
            const int32_t result = ask_for(offset, length).result;
            const bool accepted = length >= 32 && length <= 64 && offset <= 364 - length;
            EXPECT_EQ(result, accepted ? 0 : -1) << offset << " " << length;
            EXPECT_EQ(endpoint.calls.back().bytes.size(), accepted ? 4 + length : 4u);
        }
    }
}

}  // namespace
