// SPDX-License-Identifier: Apache-2.0
// The FRU record table: requests, parts, texts and results, and devices that lie about it.
#include <gtest/gtest.h>
#include <sideband/pldm_fru.h>

#include <algorithm>

#include "pldm/fru_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::MctpAnswer;
using test::metadata_of;
using test::Outcome;
using test::table_part;
using test::operator+;

constexpr const char* kMetadataLines =
    "start to send get PLDM metadata message\ncall get FRU record table metadata\n";

// ---- GetFRURecordTableMetadata ----

class PldmGetFruMetadata : public test::FruTest {
protected:
    Outcome get() {
        return test::run([&] { return pldm_get_FRU_record_table_metadata(&ctx, &length); });
    }

    uint32_t length = 0xEEEEEEEE;
};

TEST_F(PldmGetFruMetadata, TableLengthIsTakenFromByteTen) {
    endpoint.answer({"00 04 01 00 01 00 00 10 00 00 34 12 00 00 02 00 03 00 de ad be ef"});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(length, 0x1234u);
    EXPECT_EQ(outcome.out, "start to send PLDM message\ncall get FRU record table metadata\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 04 01"});
    EXPECT_EQ(endpoint.calls[0].capacity, 22);
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_F(PldmGetFruMetadata, AFailedExchangeIsReturnedAndReported) {
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, std::string("start to send PLDM message\n") + kXferFailed +
                               "call get FRU record table metadata\n"
                               "failed to get record table metadata!!\n");
    pass_through(-57, {});
    EXPECT_EQ(get().result, -57);
    EXPECT_EQ(length, 0xEEEEEEEE);
}

TEST_F(PldmGetFruMetadata, ACodeThatWasPassedThroughIsReturned) {
    pass_through(0, test::hex("00 04 01 85 01 00 00 10 00 00 34 12 00 00"));
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0x85);
    EXPECT_EQ(outcome.out, "start to send PLDM message\ncall get FRU record table metadata\n");
    EXPECT_EQ(length, 0xEEEEEEEE);
    EXPECT_EQ(asked_capacity, 22);
}

TEST_F(PldmGetFruMetadata, AnAnswerThatEndsBeforeTheLengthIsRefused) {
    const Bytes good = metadata_of(0x1234);
    for (size_t size = 0; size <= good.size(); size++) {
        SCOPED_TRACE(size);
        test::port().syslog.clear();
        length = 0xEEEEEEEE;
        endpoint.answers.push_back(
            MctpAnswer::of(Bytes(good.begin(), good.begin() + static_cast<long>(size))));
        EXPECT_EQ(get().result, size < 14 ? -1 : 0);
        EXPECT_EQ(length, size < 14 ? 0xEEEEEEEE : 0x1234u);
        if (size >= 4 && size < 14) {
            EXPECT_EQ(test::port().syslog,
                      Texts{"pldm_get_FRU_record_table_metadata, response of " +
                            std::to_string(size) + " bytes is too short\n"});
        }
    }
}

TEST_F(PldmGetFruMetadata, NullArgumentsAndAMissingOperationFail) {
    EXPECT_EQ(pldm_get_FRU_record_table_metadata(nullptr, &length), -1);
    EXPECT_EQ(pldm_get_FRU_record_table_metadata(&ctx, nullptr), -1);
    ctx.transfer_op = nullptr;
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- GetFRURecordTable ----

class PldmGetFruTable : public test::FruTest {
protected:
    /// Reads a table into a guarded buffer of a size.
    Outcome get(size_t room, uint32_t expected = 0) {
        table = Guarded(room);
        const Outcome outcome =
            test::run([&] { return pldm_get_FRU_record_table(&ctx, table.data(), expected); });
        EXPECT_TRUE(table.intact());
        EXPECT_EQ(libc.live_blocks(), 0u);
        return outcome;
    }

    Guarded table{0};
};

TEST_F(PldmGetFruTable, ATableThatFitsOneResponseIsCopiedInOneStep) {
    answer({metadata_of(10), table_part(5, 0, test::counting(10, 0x30))});
    const Outcome outcome = get(10);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(10), test::counting(10, 0x30));
    EXPECT_EQ(outcome.out, std::string(kMetadataLines) +
                               "recordTable_length = 10\n"
                               "buf size = 26, RECORD_TABLE_RESP_REMAINING_BYTE =7\n"
                               "dump tmp_buf1, tem_len = 10\n");
    EXPECT_EQ(endpoint.messages(), (Texts{"80 04 01", "81 04 02 00 00 00 00 01"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 22);
    EXPECT_EQ(endpoint.calls[1].capacity, 26);
    EXPECT_TRUE(test::port().syslog.empty());
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PldmGetFruTable, AMiddlePartOf54AndAnEndPartOf10Give64) {
    answer({metadata_of(64), table_part(0, 0x11223344, test::counting(54)),
            table_part(4, 0, test::counting(10, 54))});
    const Outcome outcome = get(64, 64);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(64), test::counting(64));
    EXPECT_EQ(outcome.out, std::string(kMetadataLines) +
                               "recordTable_length = 64\n"
                               "buf size = 80, RECORD_TABLE_RESP_REMAINING_BYTE =7\n"
                               "dump tmp_buf2, tem_len = 64, maxlen = 54\n"
                               "dump tmp_buf1, tem_len = 10\n");
    EXPECT_EQ(endpoint.messages(),
              (Texts{"80 04 01", "81 04 02 00 00 00 00 01", "82 04 02 44 33 22 11 00"}));
}

TEST_F(PldmGetFruTable, PadAndChecksumBehindTheTableAreNotCopied) {
    answer({metadata_of(10), table_part(5, 0, test::counting(10) + Bytes(6, 0xFF))});
    EXPECT_EQ(get(10).result, 0);
    EXPECT_EQ(table.head(10), test::counting(10));
}

TEST_F(PldmGetFruTable, AMiddlePartWithLessThan54LeftEndsTheTable) {
    answer({metadata_of(64), table_part(0, 1, test::counting(54)),
            table_part(1, 2, test::counting(54, 54))});
    const Outcome outcome = get(64);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(64), test::counting(64));
    EXPECT_TRUE(
        outcome.out.ends_with("dump tmp_buf2, tem_len = 64, maxlen = 54\n"
                              "dump tmp_buf2, tem_len = 10, maxlen = 54\n"
                              "dump tmp_buf3, tem_len = 10, maxlen = 54\n"))
        << outcome.out;
    EXPECT_EQ(endpoint.calls.size(), 3u);
}

TEST_F(PldmGetFruTable, FlagsThatNeverEndAreBoundedByTheLength) {
    endpoint.answers.push_back(MctpAnswer::of(metadata_of(162)));
    for (unsigned i = 0; i < 10; i++) {
        answer({table_part(1, i, test::counting(54, static_cast<uint8_t>(54 * i)))});
    }
    const Outcome outcome = get(162);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(162), test::counting(162));
    EXPECT_EQ(endpoint.calls.size(), 4u);
    EXPECT_TRUE(outcome.out.ends_with("dump tmp_buf2, tem_len = 54, maxlen = 54\n"));
}

TEST_F(PldmGetFruTable, OneByteAndFiftyFiveAreTheEdgesOfAMiddlePart) {
    answer({metadata_of(1), table_part(1, 9, {0x77})});
    Outcome outcome = get(1);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(1), Bytes{0x77});
    EXPECT_TRUE(outcome.out.ends_with("dump tmp_buf3, tem_len = 1, maxlen = 54\n"));
    answer({metadata_of(55), table_part(1, 9, test::counting(54)), table_part(1, 9, {54})});
    outcome = get(55);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(55), test::counting(55));
}

TEST_F(PldmGetFruTable, ALengthThatIsNotTheExpectedOneEndsBeforeTheTableIsAskedFor) {
    answer({metadata_of(10)});
    const Outcome outcome = get(11, 11);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, kMetadataLines);
    EXPECT_EQ(endpoint.messages(), Texts{"80 04 01"});
    EXPECT_TRUE(table.untouched_from(0));
}

TEST_F(PldmGetFruTable, ExpectedLengthZeroAcceptsAnyTableLength) {
    for (uint32_t length : {5u, 54u, 200u}) {
        answer({metadata_of(length), table_part(5, 0, test::counting(length))});
        EXPECT_EQ(get(length).result, 0);
        EXPECT_EQ(table.head(length), test::counting(length));
    }
}

TEST_F(PldmGetFruTable, FailedMetadataIsReturnedAndReported) {
    Outcome outcome = get(10);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, std::string("start to send get PLDM metadata message\n") + kXferFailed +
                               "call get FRU record table metadata\n"
                               "Fail - can't get the record table metadata\n");
    pass_through(-57, {});
    outcome = get(10);
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out,
              std::string(kMetadataLines) + "Fail - can't get the record table metadata\n");
}

TEST_F(PldmGetFruTable, AFailedPartIsReturnedAndReported) {
    answer({metadata_of(64), table_part(0, 1, test::counting(54))});
    const Outcome outcome = get(64);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with(std::string("dump tmp_buf2, tem_len = 64, maxlen = 54\n") +
                                      kXferFailed + "pldm_get_FRU_record_table-216 command fail\n"))
        << outcome.out;
}

TEST_F(PldmGetFruTable, MetadataTooShortForALengthIsRefused) {
    answer({test::hex("00 04 01 00 01 00 00 10 00 00 34 12 00")});
    EXPECT_EQ(get(16).result, -1);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table, response of 13 bytes is too short\n"});
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmGetFruTable, TheCompletionCodeOfTheMetadataIsNotExamined) {
    // One response for both exchanges: byte 8 is the flag, bytes 10 to 13 are the length.
    pass_through(0, test::hex("00 04 02 01 00 00 00 00 05 aa 05 00 00 00 bb"));
    const Outcome outcome = get(5);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(table.head(5), test::hex("aa 05 00 00 00"));
}

TEST_F(PldmGetFruTable, CodesThatEndTheTransferAreNamedAndReturned) {
    const std::pair<const char*, const char*> codes[] = {
        {"80", "PLDM_FRU_INVALID_DATA_TRANSFER_HANDLE\n"},
        {"81", "PLDM_FRU_INVALID_TRANSFER_OPERATION_FLAG\n"},
        {"85", "PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE\n"},
    };
    for (const auto& [code, name] : codes) {
        pass_through(
            0, test::hex(std::string("00 04 02 ") + code + " 00 00 00 00 05 aa 05 00 00 00 bb"));
        const Outcome outcome = get(5);
        EXPECT_EQ(outcome.result, test::hex(code)[0]);
        EXPECT_TRUE(outcome.out.ends_with(
            std::string("buf size = 21, RECORD_TABLE_RESP_REMAINING_BYTE =7\n") + name))
            << outcome.out;
        EXPECT_TRUE(table.untouched_from(0));
    }
}

TEST_F(PldmGetFruTable, OtherCodesThatWerePassedThroughDoNotKeepTheTableBack) {
    pass_through(0, test::hex("00 04 02 82 00 00 00 00 05 aa 05 00 00 00 bb"));
    EXPECT_EQ(get(5).result, 0x82);
    EXPECT_EQ(table.head(5), test::hex("aa 05 00 00 00"));
}

TEST_F(PldmGetFruTable, AnErrorAnswerEndsTheExchangeBeforeItsNameIsPrinted) {
    answer({metadata_of(5), test::hex("00 04 02 85")});
    const Outcome outcome = get(5);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(ctx.completion_code, 0x85);
    EXPECT_TRUE(
        outcome.out.ends_with("command:0x2 is not successful, completion code:0x85\n"
                              "pldm_get_FRU_record_table-216 command fail\n"));
}

TEST_F(PldmGetFruTable, NullArgumentsAndAMissingOperationFail) {
    uint8_t byte = 0;
    EXPECT_EQ(pldm_get_FRU_record_table(nullptr, &byte, 0), -1);
    EXPECT_EQ(pldm_get_FRU_record_table(&ctx, nullptr, 0), -1);
    ctx.transfer_op = nullptr;
    const Outcome outcome = get(1);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmGetFruTable, AFailedAllocationIsABadArgument) {
    answer({metadata_of(10)});
    libc.fail_allocation(1);
    const Outcome outcome = get(10);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, std::string(kMetadataLines) + "recordTable_length = 10\n");
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

// ---- Parts that carry more than is taken of them ----

constexpr const char* kSurplus60 =
    "pldm_get_FRU_record_table, part of 60 bytes is not the last: those behind 54 are lost\n";

TEST_F(PldmGetFruTable, PartsOfMoreThan54BytesMakeAWrongTableAndOneLine) {
    answer({metadata_of(120), table_part(0, 1, test::counting(60)),
            table_part(1, 2, test::counting(60, 60)), table_part(4, 0, Bytes(12, 0xAA))});
    EXPECT_EQ(get(120).result, 0);
    EXPECT_EQ(table.head(120), test::counting(54) + test::counting(54, 60) + Bytes(12, 0xAA));
    EXPECT_EQ(test::port().syslog, Texts{kSurplus60});
    // Once a call, not once for ever.
    answer({metadata_of(60), table_part(0, 1, test::counting(60)), table_part(4, 0, Bytes(6))});
    EXPECT_EQ(get(60).result, 0);
    EXPECT_EQ(test::port().syslog, (Texts{kSurplus60, kSurplus60}));
}

TEST_F(PldmGetFruTable, APartOf55BytesIsTheShortestThatIsReported) {
    answer({metadata_of(60), table_part(0, 1, test::counting(54)), table_part(4, 0, Bytes(6))});
    EXPECT_EQ(get(60).result, 0);
    EXPECT_TRUE(test::port().syslog.empty());
    answer({metadata_of(60), table_part(0, 1, test::counting(55)), table_part(4, 0, Bytes(6))});
    EXPECT_EQ(get(60).result, 0);
    ASSERT_EQ(test::port().syslog.size(), 1u);
    EXPECT_EQ(test::port().syslog[0],
              "pldm_get_FRU_record_table, part of 55 bytes is not the last: those behind 54 are "
              "lost\n");
}

TEST_F(PldmGetFruTable, ATableThatCameInOnePartWhichIsNotTheLastIsReported) {
    // The answer fills all the room that there is for it: 100 + 16 bytes.
    answer({metadata_of(100), table_part(0, 1, test::counting(107)), table_part(4, 0, Bytes(46))});
    EXPECT_EQ(get(100).result, 0);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table, part of 107 bytes is not the last: those behind "
                    "54 are lost\n"});
}

TEST_F(PldmGetFruTable, PadAndChecksumBehindTheLastBytesAreNotReported) {
    answer({metadata_of(64), table_part(0, 1, test::counting(54)),
            table_part(1, 2, test::counting(10, 54) + Bytes(50, 0xFF))});
    EXPECT_EQ(get(64).result, 0);
    answer({metadata_of(54), table_part(1, 2, test::counting(54) + Bytes(6, 0xFF))});
    EXPECT_EQ(get(54).result, 0);
    EXPECT_TRUE(test::port().syslog.empty());
}

/// pldm_transfer, but for the length of the response, which it does not tell.
int32_t transfer_without_length(pldm_ctx* ctx, uint32_t length, int32_t capacity, uint8_t* request,
                                uint8_t* response) {
    const int32_t result = pldm_transfer(ctx, length, capacity, request, response);
    ctx->response_length = capacity;
    return result;
}

/// pldm_transfer by another name.
int32_t transfer_with_length(pldm_ctx* ctx, uint32_t length, int32_t capacity, uint8_t* request,
                             uint8_t* response) {
    return pldm_transfer(ctx, length, capacity, request, response);
}

TEST_F(PldmGetFruTable, AnOperationThatTellsNoLengthIsNotReported) {
    ctx.transfer_op = transfer_without_length;
    answer({metadata_of(100), table_part(0, 1, test::counting(54)),
            table_part(4, 0, test::counting(46, 54))});
    EXPECT_EQ(get(100).result, 0);
    EXPECT_EQ(table.head(100), test::counting(100));
    EXPECT_TRUE(test::port().syslog.empty());
    ctx.transfer_op = transfer_with_length;
    answer({metadata_of(100), table_part(0, 1, test::counting(60)), table_part(4, 0, Bytes(46))});
    EXPECT_EQ(get(100).result, 0);
    EXPECT_EQ(test::port().syslog, Texts{kSurplus60});
}

TEST_F(PldmGetFruTable, ADeviceThatNeverEndsIsAskedForTheLongestTableAndNoMore) {
    static int asked;
    asked = 0;
    ctx.transfer_op = [](pldm_ctx*, uint32_t, int32_t capacity, uint8_t* request,
                         uint8_t* response) {
        const Bytes body =
            request[2] == 1 ? metadata_of(PLDM_FRU_TABLE_LENGTH_MAX) : table_part(1, 1, Bytes(54));
        std::copy_n(body.begin(), std::min(body.size(), static_cast<size_t>(capacity)), response);
        asked += request[2] == 1 ? 0 : 1;
        return 0;
    };
    EXPECT_EQ(get(PLDM_FRU_TABLE_LENGTH_MAX).result, 0);
    EXPECT_EQ(asked, 19419);
}

// ---- Devices that lie ----

TEST_F(PldmGetFruTable, ATableOfNoBytesWritesNothing) {
    for (uint8_t flag : {5, 4, 1, 0}) {
        answer({metadata_of(0), table_part(flag, 7, test::counting(54))});
        const Outcome outcome = get(0);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_TRUE(outcome.out.ends_with(flag >= 4 ? "dump tmp_buf1, tem_len = 0\n"
                                                    : "dump tmp_buf2, tem_len = 0, maxlen = 54\n"));
    }
    EXPECT_EQ(endpoint.calls.size(), 8u);
}

TEST_F(PldmGetFruTable, ATableBeyondTheBoundIsRefusedBeforeMemoryIsTaken) {
    const std::pair<uint32_t, const char*> lengths[] = {{0x100001, "1048577"},
                                                        {0x7FFFFFFF, "2147483647"},
                                                        {0xFFFFFFF0, "4294967280"},
                                                        {0xFFFFFFFF, "4294967295"}};
    for (const auto& [length, text] : lengths) {
        test::port().syslog.clear();
        answer({metadata_of(length)});
        EXPECT_EQ(get(16).result, -112);
        EXPECT_EQ(test::port().syslog, Texts{std::string("pldm_get_FRU_record_table, table of ") +
                                             text + " bytes is too long\n"});
        EXPECT_TRUE(table.untouched_from(0));
    }
    EXPECT_EQ(libc.allocations(), 0);
    EXPECT_EQ(endpoint.calls.size(), 4u);
}

TEST_F(PldmGetFruTable, TheLongestTableIsRead) {
    const Bytes whole = test::counting(PLDM_FRU_TABLE_LENGTH_MAX);
    answer({metadata_of(PLDM_FRU_TABLE_LENGTH_MAX), table_part(5, 0, whole)});
    EXPECT_EQ(get(whole.size()).result, 0);
    EXPECT_EQ(table.head(whole.size()), whole);
}

TEST_F(PldmGetFruTable, ATableThatBecameShorterThanItsMetadataIsRefused) {
    answer({metadata_of(64), table_part(5, 0, test::counting(20))});
    EXPECT_EQ(get(64).result, -112);
    EXPECT_TRUE(table.untouched_from(0));
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table, response of 29 bytes is too short\n"});
    answer({metadata_of(64), table_part(0, 1, test::counting(54)),
            table_part(4, 0, test::counting(9))});
    EXPECT_EQ(get(64).result, -112);
    EXPECT_EQ(table.head(54), test::counting(54));
    EXPECT_TRUE(table.untouched_from(54));
}

TEST_F(PldmGetFruTable, ATableThatBecameLongerThanItsMetadataIsCutToTheRoom) {
    answer({metadata_of(20), table_part(5, 0, test::counting(200))});
    EXPECT_EQ(get(20).result, 0);
    EXPECT_EQ(table.head(20), test::counting(20));
}

TEST_F(PldmGetFruTable, AMiddlePartOfLessThan54BytesIsRefused) {
    answer({metadata_of(64), table_part(0, 1, test::counting(53))});
    EXPECT_EQ(get(64).result, -112);
    EXPECT_TRUE(table.untouched_from(0));
}

/// The answers of a good transfer of 64 bytes.
std::vector<Bytes> good_answers() {
    return {metadata_of(64), table_part(0, 1, test::counting(54)),
            table_part(4, 0, test::counting(10, 54))};
}

TEST_F(PldmGetFruTable, AnswersTruncatedAtEveryByteFailOrAreWholeEnough) {
    const size_t needed[] = {14, 63, 19};
    for (size_t at = 0; at < 3; at++) {
        for (size_t length = 0; length <= good_answers()[at].size(); length++) {
            SCOPED_TRACE(testing::Message() << "answer " << at << " of " << length << " bytes");
            endpoint.answers.clear();
            std::vector<Bytes> answers = good_answers();
            answers[at].resize(length);
            answer({answers[0], answers[1], answers[2]});
            const int32_t result = get(64).result;
            EXPECT_EQ(result == 0, length >= needed[at]) << result;
            EXPECT_TRUE(result == 0 || result == -1 || result == -112) << result;
        }
    }
}

TEST_F(PldmGetFruTable, AnswersWithEachBitFlippedNeverLeaveTheBuffers) {
    for (size_t at = 0; at < 3; at++) {
        const size_t bits = std::min<size_t>(good_answers()[at].size(), 22) * 8;
        for (size_t bit = 0; bit < bits; bit++) {
            SCOPED_TRACE(testing::Message() << "answer " << at << " bit " << bit);
            endpoint.answers.clear();
            std::vector<Bytes> answers = good_answers();
            uint8_t& flipped = answers[at][bit / 8];
            flipped = static_cast<uint8_t>(flipped ^ (1u << (bit % 8)));
            answer({answers[0], answers[1], answers[2], answers[2]});
            const int32_t result = get(64, 64).result;
            EXPECT_TRUE(result == 0 || result == -1 || result == -112) << result;
            if (bit / 8 == 3) {
                EXPECT_NE(result, 0) << "an error code was taken for success";
            }
        }
    }
}

TEST_F(PldmGetFruTable, LengthsOfAnswersThatLieNeverLeaveTheBuffers) {
    for (size_t at = 0; at < 3; at++) {
        for (int32_t length : {INT32_MIN, -1, 0, 1, 3, 4, 9, 4096, INT32_MAX}) {
            SCOPED_TRACE(testing::Message() << "answer " << at << " length " << length);
            endpoint.answers.clear();
            std::vector<Bytes> answers = good_answers();
            answer({answers[0], answers[1], answers[2]});
            endpoint.answers[at].result = length;
            EXPECT_EQ(get(64).result == 0, length >= 4096);
        }
    }
}

}  // namespace
