// SPDX-License-Identifier: Apache-2.0
// The FRU table from devices whose answers all have one size, and the fields of its first record.
#include <gtest/gtest.h>
#include <sideband/pldm_fru.h>

#include "pldm/fru_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::metadata_of;
using test::Outcome;
using test::table_part;
using test::operator+;

constexpr const char* kRequestLines =
    "====== pldm_get_FRU_record_table_M1 Req =====\n"
    "===================================\n";
constexpr const char* kExchangeLines =
    "====== pldm_get_FRU_record_table_M1 Req =====\n"
    "===================================\n"
    "====== pldm_get_FRU_record_table_M1 Resp =====\n"
    "===================================\n"
    "pldm_get_FRU_record_table_MX resp.h.completion =0\n";

// ---- Answers of one size ----

class PldmGetFruTableFixed : public test::FruTest {
protected:
    Outcome get(size_t room) {
        table = Guarded(room);
        const Outcome outcome = test::run([&] {
            return pldm_get_FRU_record_table_MX(&ctx, table.data(), static_cast<int32_t>(room));
        });
        EXPECT_TRUE(table.intact());
        EXPECT_EQ(libc.allocations(), 0);
        return outcome;
    }

    Guarded table{0};
};

TEST_F(PldmGetFruTableFixed, PartsOf54AreReadWithoutMetadata) {
    answer({table_part(0, 0x01020304, test::counting(54)),
            table_part(1, 0x05060708, test::counting(54, 54)),
            table_part(4, 0, test::counting(54, 108))});
    const Outcome outcome = get(118);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(118), test::counting(118));
    EXPECT_EQ(outcome.out, kExchangeLines + std::string("tmp_len =64, data_len =54\n") +
                               kExchangeLines + "tmp_len =10, data_len =108\n" + kExchangeLines +
                               "tmp_len =0, data_len =118\n");
    EXPECT_EQ(endpoint.messages(), (Texts{"80 04 02 00 00 00 00 01", "81 04 02 04 03 02 01 00",
                                          "82 04 02 08 07 06 05 00"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 64);
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PldmGetFruTableFixed, ALastPartOf54IsTheLongest) {
    answer({table_part(5, 0, test::counting(54)), table_part(5, 0, test::counting(55))});
    EXPECT_EQ(get(54).result, 0);
    EXPECT_EQ(table.head(54), test::counting(54));
    const Outcome outcome = get(55);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kExchangeLines);
    EXPECT_EQ(test::port().console, Texts{"len fail tmp_len =55, data_len =0\n"});
    EXPECT_EQ(table.head(55), Bytes(55, 0));
}

TEST_F(PldmGetFruTableFixed, ALastPartTooEarlyLeavesZerosBehindTheFirst) {
    answer({table_part(0, 1, test::counting(54)), table_part(4, 0, test::counting(54))});
    EXPECT_EQ(get(120).result, 0);
    EXPECT_EQ(table.head(120), test::counting(54) + Bytes(66, 0));
    EXPECT_EQ(test::port().console, Texts{"len fail tmp_len =66, data_len =54\n"});
}

TEST_F(PldmGetFruTableFixed, ALastPartShorterThanTheRoomLeavesZeros) {
    answer({table_part(0, 1, test::counting(54)), table_part(4, 0, test::counting(6, 54))});
    EXPECT_EQ(get(80).result, 0);
    EXPECT_EQ(table.head(80), test::counting(60) + Bytes(20, 0));
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table_MX, last part of 6 bytes: 26 are wanted\n"});
}

TEST_F(PldmGetFruTableFixed, ALastPartThatBringsTheRestIsNotReported) {
    for (unsigned surplus : {0, 1, 4}) {
        answer({table_part(0, 1, test::counting(54)), table_part(4, 0, Bytes(26 + surplus))});
        EXPECT_EQ(get(80).result, 0);
    }
    // An operation that does not tell the length is taken to have filled the response.
    pass_through(0, table_part(5, 0, Bytes(3)));
    EXPECT_EQ(get(54).result, 0);
    EXPECT_TRUE(test::port().syslog.empty());
    answer({table_part(5, 0, {})});
    ctx.transfer_op = pldm_transfer;
    EXPECT_EQ(get(1).result, 0);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table_MX, last part of 0 bytes: 1 are wanted\n"});
}

TEST_F(PldmGetFruTableFixed, WhatIsBehindTheWholeTableIsNotReported) {
    // Pad bytes and checksum (DSP0257, FRU record table), in the part that completes the table.
    answer({table_part(0, 1, test::counting(60))});
    EXPECT_EQ(get(54).result, 0);
    EXPECT_EQ(table.head(54), test::counting(54));
    EXPECT_TRUE(test::port().syslog.empty());
}

TEST_F(PldmGetFruTableFixed, PartsOfMoreThan54BytesAreReportedOnce) {
    answer({table_part(0, 1, test::counting(55)), table_part(1, 2, test::counting(80, 55)),
            table_part(4, 0, Bytes(12, 0xAA))});
    EXPECT_EQ(get(120).result, 0);
    EXPECT_EQ(table.head(120), test::counting(54) + test::counting(54, 55) + Bytes(12, 0xAA));
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_FRU_record_table_MX, part of 55 bytes is not the last: those behind "
                    "54 are lost\n"});
}

TEST_F(PldmGetFruTableFixed, AMiddlePartWithLessThan54LeftEndsWithAWarning) {
    answer({table_part(0, 1, test::counting(54)), table_part(1, 2, test::counting(54, 54))});
    const Outcome outcome = get(64);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(64), test::counting(64));
    EXPECT_EQ(outcome.out, kExchangeLines + std::string("tmp_len =10, data_len =54\n") +
                               kExchangeLines + "=============Warning==============\n" +
                               "dump tmp_buf3, tem_len = 10, maxlen = 54\n");
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmGetFruTableFixed, AMiddlePartThatFillsTheRoomEndsTheCall) {
    answer({table_part(0, 1, test::counting(54)), table_part(1, 2, test::counting(54, 54)),
            table_part(1, 2, test::counting(54))});
    const Outcome outcome = get(108);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(108), test::counting(108));
    EXPECT_TRUE(outcome.out.ends_with("tmp_len =0, data_len =108\n"));
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmGetFruTableFixed, NoRoomTakesOneAnswerAndWritesNothing) {
    answer({table_part(5, 0, test::counting(54)), table_part(0, 1, test::counting(54))});
    Outcome outcome = get(0);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with("tmp_len =0, data_len =0\n"));
    outcome = get(0);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with(
        "=============Warning==============\ndump tmp_buf3, tem_len = 0, maxlen = 54\n"));
}

TEST_F(PldmGetFruTableFixed, AFailedTransferIsReportedOnTheConsole) {
    answer({table_part(0, 1, test::counting(54))});
    const Outcome outcome = get(64);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with(std::string("tmp_len =10, data_len =54\n") + kRequestLines +
                                      kXferFailed));
    EXPECT_EQ(test::port().console, Texts{"pldm_get_FRU_record_table_MX command fail\n"});
    EXPECT_EQ(table.head(64), test::counting(54) + Bytes(10, 0));
    pass_through(-57, {});
    EXPECT_EQ(get(64).result, -57);
}

TEST_F(PldmGetFruTableFixed, CodesThatEndTheTransferAreNamedAndGiveTheTransfersResult) {
    const std::pair<const char*, const char*> codes[] = {
        {"81", "PLDM_FRU_INVALID_TRANSFER_OPERATION_FLAG\n"},
        {"85", "PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE\n"},
        {"80", "PLDM_FRU_INVALID_DATA_TRANSFER_HANDLE\n"},
    };
    for (const auto& [code, name] : codes) {
        test::port().console.clear();
        pass_through(3, test::hex(std::string("00 04 02 ") + code + " 00 00 00 00 05 aa bb"));
        const Outcome outcome = get(2);
        EXPECT_EQ(outcome.result, 3);
        EXPECT_EQ(outcome.out, kRequestLines);
        EXPECT_EQ(test::port().console, Texts{name});
        EXPECT_EQ(table.head(2), Bytes(2, 0));
        EXPECT_EQ(asked_capacity, 64);
    }
}

TEST_F(PldmGetFruTableFixed, OtherCodesThatWerePassedThroughDoNotKeepTheTableBack) {
    pass_through(0, test::hex("00 04 02 82 00 00 00 00 05 aa bb"));
    const Outcome outcome = get(2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(table.head(2), test::hex("aa bb"));
    EXPECT_TRUE(outcome.out.ends_with(
        "pldm_get_FRU_record_table_MX resp.h.completion =130\ntmp_len =0, data_len =2\n"));
}

TEST_F(PldmGetFruTableFixed, BadArgumentsFailWithoutAnExchange) {
    uint8_t byte = 0xEE;
    EXPECT_EQ(pldm_get_FRU_record_table_MX(nullptr, &byte, 1), -1);
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, nullptr, 1), -1);
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, &byte, -1), -1);
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, &byte, INT32_MIN), -1);
    ctx.transfer_op = nullptr;
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, &byte, 1), -1);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmGetFruTableFixed, AnswersTruncatedAtEveryByteFailOrAreWholeEnough) {
    const Bytes middle = table_part(0, 1, test::counting(54));
    const Bytes last = table_part(4, 0, test::counting(54, 54));
    for (size_t length = 0; length <= middle.size(); length++) {
        SCOPED_TRACE(length);
        answer_only({Bytes(middle.begin(), middle.begin() + static_cast<long>(length)), last});
        EXPECT_EQ(get(64).result, length < 63 ? -1 : 0);
        answer_only({middle, Bytes(last.begin(), last.begin() + static_cast<long>(length))});
        EXPECT_EQ(get(64).result, length < 9 ? -1 : 0);
    }
    EXPECT_EQ(test::port().syslog.back(),
              "pldm_get_FRU_record_table_MX, response of 62 bytes is too short\n");
}

TEST_F(PldmGetFruTableFixed, AnswersWithEachBitFlippedNeverLeaveTheBuffers) {
    const Bytes good = table_part(4, 1, test::counting(54));
    for (size_t bit = 0; bit < 16 * 8; bit++) {
        SCOPED_TRACE(bit);
        endpoint.answers.clear();
        Bytes bad = good;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        answer({bad, bad, bad});
        const int32_t result = get(120).result;
        EXPECT_EQ(result, bit / 8 == 3 ? -1 : 0);
        EXPECT_LE(endpoint.calls.size(), (bit + 1) * 3);
    }
}

// ---- Fields ----

class PldmGetFruFields : public test::FruTest {
protected:
    Outcome fields(uint32_t id) {
        const Outcome outcome = test::run([&] { return pldm_get_FRU_fields(&ctx, id); });
        EXPECT_EQ(libc.live_blocks(), 0u);
        return outcome;
    }

    /// Answers with a table in one part.
    void serve(const Bytes& table) {
        answer({metadata_of(static_cast<uint32_t>(table.size())), table_part(5, 0, table)});
    }

    static Bytes record_of(uint8_t fields) {
        Bytes table = test::hex("01 00 01") + Bytes{fields, 1};
        for (unsigned i = 0; i < fields; i++) {
            table = table + Bytes{2, 1, static_cast<uint8_t>('a' + i)};
        }
        return table;
    }

    static std::string reading(size_t length) {
        return "start to send get PLDM metadata message\n"
               "call get FRU record table metadata\n"
               "recordTable_length = " +
               std::to_string(length) + "\nbuf size = " + std::to_string(length + 16) +
               ", RECORD_TABLE_RESP_REMAINING_BYTE =7\n"
               "dump tmp_buf1, tem_len = " +
               std::to_string(length) + "\n";
    }
};

TEST_F(PldmGetFruFields, EveryFieldOfTheTypeIsPrinted) {
    const Bytes table = test::hex("01 00 01 03 01  02 03 53 42 31  05 01 78  02 02 6f 6b");
    serve(table);
    const Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, reading(17) +
                               "field_num = 3\n"
                               "FRUData.fields[0].ctx = SB1\n"
                               "FRUData.fields[2].ctx = ok\n");
    EXPECT_EQ(endpoint.messages(), (Texts{"80 04 01", "81 04 02 00 00 00 00 01"}));
    EXPECT_EQ(endpoint.calls[1].capacity, 33);
}

TEST_F(PldmGetFruFields, ControlCharactersAreShownInHex) {
    // Clears the screen and writes a line of its own; DEL, C1 alone and in UTF-8, then UTF-8.
    serve(
        test::hex("01 00 01 04 01  02 08 1b 5b 32 4a 0a 4f 4b 0d  02 03 7f 9b 41"
                  "02 04 c2 9b c3 a9  02 03 42 00 1b"));
    const Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(
        outcome.out.ends_with("field_num = 4\n"
                              "FRUData.fields[0].ctx = \\x1b[2J\\x0aOK\\x0d\n"
                              "FRUData.fields[1].ctx = \\x7f\\x9bA\n"
                              "FRUData.fields[2].ctx = \\xc2\\x9b\xc3\xa9\n"
                              "FRUData.fields[3].ctx = B\n"))
        << outcome.out;
}

TEST_F(PldmGetFruFields, AControlCharacterInALongerFormThanItsOwnIsShownInHexToo) {
    // U+009B in three and in four bytes; then the first characters that have three and four.
    serve(
        test::hex("01 00 01 03 01  02 03 e0 82 9b  02 04 f0 80 82 9b"
                  "02 07 e0 a0 80 f0 90 80 80"));
    const Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(
        outcome.out.ends_with("FRUData.fields[0].ctx = \xe0\\x82\\x9b\n"
                              "FRUData.fields[1].ctx = \xf0\\x80\\x82\\x9b\n"
                              "FRUData.fields[2].ctx = \xe0\xa0\x80\xf0\x90\x80\x80\n"))
        << outcome.out;
}

TEST_F(PldmGetFruFields, TheLongestFieldOfControlCharactersIsShownWhole) {
    serve(test::hex("01 00 01 01 01  02 ff") + Bytes(255, 0x1B));
    const Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, 0);
    std::string shown;
    for (int i = 0; i < 255; i++) {
        shown += "\\x1b";
    }
    EXPECT_TRUE(outcome.out.ends_with("FRUData.fields[0].ctx = " + shown + "\n")) << outcome.out;
}

TEST_F(PldmGetFruFields, ATypeThatTheRecordDoesNotHavePrintsNoField) {
    serve(record_of(2));
    const Outcome outcome = fields(15);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, reading(11) + "field_num = 2\n");
}

TEST_F(PldmGetFruFields, FieldTypesOneAndSixteenAreRefusedWithoutAnExchange) {
    const std::pair<uint32_t, const char*> types[] = {
        {0, "0"}, {1, "1"}, {16, "16"}, {0x7FFFFFFF, "2147483647"}, {0xFFFFFFFF, "-1"}};
    for (const auto& [type, text] : types) {
        const Outcome outcome = fields(type);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, std::string(text) + " - error fieldId. can't get the fields\n");
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmGetFruFields, ATableThatCannotBeReadIsReported) {
    Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, -2);
    EXPECT_TRUE(
        outcome.out.ends_with("Fail - can't get the record table metadata\n"
                              "Fail - get FRU record table fail\n"));
    answer({metadata_of(20)});
    outcome = fields(2);
    EXPECT_EQ(outcome.result, -2);
    EXPECT_TRUE(
        outcome.out.ends_with("pldm_get_FRU_record_table-216 command fail\n"
                              "Fail - get FRU record table fail\n"));
    answer({metadata_of(0xFFFFFFFF)});
    EXPECT_EQ(fields(2).result, -2);
    answer({metadata_of(20), table_part(5, 0, test::counting(19))});
    EXPECT_EQ(fields(2).result, -2);
}

TEST_F(PldmGetFruFields, NullContextAndMissingOperationAreATableThatCannotBeRead) {
    Outcome outcome = test::run([] { return pldm_get_FRU_fields(nullptr, 2); });
    EXPECT_EQ(outcome.result, -2);
    EXPECT_EQ(outcome.out, "Fail - get FRU record table fail\n");
    ctx.transfer_op = nullptr;
    EXPECT_EQ(fields(2).result, -2);
}

TEST_F(PldmGetFruFields, SixteenFieldsAreTheMost) {
    serve(record_of(16));
    EXPECT_TRUE(fields(2).out.ends_with("FRUData.fields[15].ctx = p\n"));
    serve(record_of(17));
    Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, -3);
    EXPECT_EQ(outcome.out, reading(56) + "17 field nums is too much, please check\n");
    // A count that the table cannot hold is too much as well.
    serve(test::hex("01 00 01 ff 01 02 01 61"));
    outcome = fields(2);
    EXPECT_EQ(outcome.result, -3);
    EXPECT_EQ(outcome.out, reading(8) + "255 field nums is too much, please check\n");
}

TEST_F(PldmGetFruFields, ARecordThatCannotBeParsedIsABadArgument) {
    serve(test::hex("01 00 01 02 01 02 01 61 05 02 62"));
    Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, reading(11) + "field_num = 2\n");
    serve(test::hex("01 00 01 00 01"));
    EXPECT_EQ(fields(2).result, -112);
    for (size_t length = 0; length < 5; length++) {
        serve(Bytes(length, 1));
        EXPECT_EQ(fields(2).result, -112) << length;
    }
}

TEST_F(PldmGetFruFields, ACodeThatWasPassedThroughIsReturned) {
    // One response for both exchanges: byte 8 is the flag, bytes 10 to 13 are the length.
    pass_through(0, test::hex("00 04 02 85 00 00 00 00 05 aa 0a 00 00 00"));
    Outcome outcome = fields(2);
    EXPECT_EQ(outcome.result, 0x85);
    EXPECT_TRUE(outcome.out.ends_with("PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE\nfield_num = 0\n"));
    // Table: 01 0a 00 00 00 ...: no fields, but the code comes first.
    pass_through(0, test::hex("00 04 02 82 00 00 00 00 05 01 0a 00 00 00"));
    EXPECT_EQ(fields(2).result, 0x82);
}

TEST_F(PldmGetFruFields, TooManyFieldsComeBeforeACodeThatWasPassedThrough) {
    ctx.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t* request, uint8_t* response) {
        constexpr uint8_t kGetTable = 2;
        const Bytes table = record_of(17);
        Bytes answer = metadata_of(static_cast<uint32_t>(table.size()));
        if (request[2] == kGetTable) {
            answer = table_part(5, 0, table);
            answer[3] = 0x82;
        }
        std::copy(answer.begin(), answer.end(), response);
        return 0;
    };
    EXPECT_EQ(fields(2).result, -3);
}

TEST_F(PldmGetFruFields, EveryFailedAllocationIsReportedAndLeaksNothing) {
    serve(record_of(2));
    ASSERT_EQ(fields(2).result, 0);
    EXPECT_EQ(libc.allocations(), 5);  // table, response, array, two values
    const int32_t results[] = {-2, -2, -112, -112, -112};
    for (int failing = 1; failing <= 5; failing++) {
        SCOPED_TRACE(failing);
        endpoint.answers.clear();
        serve(record_of(2));
        libc.fail_allocation(failing);
        EXPECT_EQ(fields(2).result, results[failing - 1]);
    }
}

TEST_F(PldmGetFruFields, TablesWithEachBitFlippedGiveAResult) {
    const Bytes good = record_of(3);
    for (size_t bit = 0; bit < good.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes bad = good;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        serve(bad);
        const int32_t result = fields(2).result;
        EXPECT_TRUE(result == 0 || result == -3 || result == -112) << result;
    }
}

}  // namespace
