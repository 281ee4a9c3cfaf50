// SPDX-License-Identifier: Apache-2.0
// FRU records: what the parser takes from a table and refuses, and who owns the memory.
#include <gtest/gtest.h>
#include <sideband/pldm_fru.h>

#include <algorithm>
#include <memory>
#include <random>

#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::operator+;
using Texts = std::vector<std::string>;

class PldmFruRecord : public test::PlatformTest {
protected:
    ~PldmFruRecord() override { freeFRUdata(&record); }

    /// Parses a table that lies in a buffer of exactly its size.
    Outcome parse(const Bytes& table) {
        freeFRUdata(&record);
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[table.size()]);
        std::copy(table.begin(), table.end(), exact.get());
        return test::run([&] {
            return pldm_parse_record_table(exact.get(), &record,
                                           static_cast<uint32_t>(table.size()));
        });
    }

    /// What must hold of a record after any call of the parser.
    void expect_sound() const {
        if (record.fields == nullptr) {
            return;
        }
        for (int i = 0; i < record.number_of_fields; i++) {
            const pldm_fru_field& field = record.fields[i];
            if (field.value != nullptr) {
                EXPECT_EQ(field.value[field.length], '\0');
            }
        }
    }

    pldm_fru_record record{};
};

/// Set 0x0201, general record, three fields in ASCII: "SB1", nothing, "x".
const Bytes kTable = test::hex("01 02 01 03 01  02 03 53 42 31  03 00  05 01 78");

TEST_F(PldmFruRecord, HeaderAndFieldsAreTaken) {
    const Outcome outcome = parse(kTable);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(record.set_identifier, 0x0201);
    EXPECT_EQ(record.type, 1);
    EXPECT_EQ(record.number_of_fields, 3);
    EXPECT_EQ(record.encoding_type, 1);
    EXPECT_EQ(record.fields[0].type, 2);
    EXPECT_EQ(record.fields[0].length, 3);
    EXPECT_STREQ(record.fields[0].value, "SB1");
    EXPECT_EQ(record.fields[2].type, 5);
    EXPECT_EQ(record.fields[2].length, 1);
    EXPECT_STREQ(record.fields[2].value, "x");
    EXPECT_EQ(libc.live_blocks(), 4u);
    EXPECT_TRUE(test::port().syslog.empty());
}

TEST_F(PldmFruRecord, AFieldOfLengthZeroYieldsAnEmptyString) {
    ASSERT_EQ(parse(kTable).result, 0);
    EXPECT_EQ(record.fields[1].type, 3);
    EXPECT_EQ(record.fields[1].length, 0);
    ASSERT_NE(record.fields[1].value, nullptr);
    EXPECT_STREQ(record.fields[1].value, "");
}

TEST_F(PldmFruRecord, ValuesMayHoldZeros) {
    ASSERT_EQ(parse(test::hex("01 00 01 01 04  02 04 41 00 42 00")).result, 0);
    EXPECT_EQ(Bytes(record.fields[0].value, record.fields[0].value + 5),
              test::hex("41 00 42 00 00"));
}

TEST_F(PldmFruRecord, ALastFieldThatRunsOneByteOverFails) {
    Bytes table = kTable;
    table[13] = 2;
    const Outcome outcome = parse(table);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(test::port().syslog.empty());
    // What came before stays, for the caller to release.
    EXPECT_STREQ(record.fields[0].value, "SB1");
    EXPECT_EQ(record.fields[2].value, nullptr);
    freeFRUdata(&record);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmFruRecord, OnlyTheFirstRecordIsParsed) {
    ASSERT_EQ(parse(kTable + test::hex("02 00 fe 01 01 01 ff 00")).result, 0);
    EXPECT_EQ(record.set_identifier, 0x0201);
    EXPECT_EQ(record.number_of_fields, 3);
}

TEST_F(PldmFruRecord, FewerThanFiveBytesAreReportedInTheLog) {
    for (size_t length = 0; length < 5; length++) {
        test::port().syslog.clear();
        const Outcome outcome =
            parse(Bytes(kTable.begin(), kTable.begin() + static_cast<long>(length)));
        EXPECT_EQ(outcome.result, -112);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(test::port().syslog,
                  Texts{"[pldm_parse_record_table][442] Fail- FRU length fail\n"});
        EXPECT_EQ(record.set_identifier, 0);
    }
}

TEST_F(PldmFruRecord, ARecordWithoutFieldsFails) {
    const Outcome outcome = parse(test::hex("01 00 01 00 01 02 03 53 42 31"));
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(record.fields, nullptr);
    EXPECT_EQ(record.set_identifier, 1);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_TRUE(test::port().syslog.empty());
}

TEST_F(PldmFruRecord, NullArgumentsFail) {
    EXPECT_EQ(pldm_parse_record_table(nullptr, &record, 20), -112);
    EXPECT_EQ(pldm_parse_record_table(kTable.data(), nullptr, 15), -112);
}

TEST_F(PldmFruRecord, TheRecordIsZeroedFirst) {
    record.set_identifier = 0x1234;
    record.number_of_fields = 9;
    record.fields = nullptr;
    EXPECT_EQ(parse(test::hex("01 02 03")).result, -112);
    EXPECT_EQ(record.set_identifier, 0);
    EXPECT_EQ(record.number_of_fields, 0);
}

TEST_F(PldmFruRecord, TheLargestRecordIsTakenWhole) {
    Bytes table = test::hex("01 00 fe ff 02");
    for (unsigned i = 0; i < 255; i++) {
        table =
            table + Bytes{static_cast<uint8_t>(i), 255} + Bytes(255, static_cast<uint8_t>(i + 1));
    }
    ASSERT_EQ(table.size(), 65540u);
    ASSERT_EQ(parse(table).result, 0);
    EXPECT_EQ(std::string(record.fields[254].value), std::string(255, '\xff'));
    EXPECT_EQ(record.fields[254].type, 254);
    EXPECT_EQ(libc.live_blocks(), 256u);
    table.pop_back();
    EXPECT_EQ(parse(table).result, -112);
    expect_sound();
}

TEST_F(PldmFruRecord, EveryFailedAllocationIsReported) {
    libc.fail_allocation(1);
    Outcome outcome = parse(kTable);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "Fail to alloc memory for FRU fields\n");
    EXPECT_EQ(record.fields, nullptr);
    for (int failing = 2; failing <= 4; failing++) {
        libc.fail_allocation(failing);
        outcome = parse(kTable);
        EXPECT_EQ(outcome.result, -112) << failing;
        EXPECT_EQ(outcome.out, "Fail- memory alloc fial\n");
        EXPECT_EQ(libc.live_blocks(), static_cast<size_t>(failing - 1));
        freeFRUdata(&record);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

TEST_F(PldmFruRecord, ReleaseNullsThePointersAndMayBeRepeated) {
    ASSERT_EQ(parse(kTable).result, 0);
    const uint8_t count = record.number_of_fields;
    EXPECT_NE(count, 0);
    freeFRUdata(&record);
    EXPECT_EQ(record.fields, nullptr);
    EXPECT_EQ(record.number_of_fields, count);
    EXPECT_EQ(libc.live_blocks(), 0u);
    freeFRUdata(&record);
    EXPECT_EQ(record.fields, nullptr);
    pldm_fru_record empty{};
    freeFRUdata(&empty);
    empty.number_of_fields = 3;
    freeFRUdata(&empty);
    freeFRUdata(nullptr);
}

TEST_F(PldmFruRecord, PositionsAtTheLengthOrBehindAreOutside) {
    EXPECT_EQ(isBufOverFlow(0, 1), 0);
    EXPECT_EQ(isBufOverFlow(4, 5), 0);
    EXPECT_EQ(isBufOverFlow(5, 5), 1);
    EXPECT_EQ(isBufOverFlow(6, 5), 1);
    EXPECT_EQ(isBufOverFlow(0, 0), 1);
    EXPECT_EQ(isBufOverFlow(0xFFFFFFFE, 0xFFFFFFFF), 0);
    EXPECT_EQ(isBufOverFlow(0xFFFFFFFF, 0xFFFFFFFF), 1);
}

TEST_F(PldmFruRecord, MetadataIsPrintedOnTheConsole) {
    EXPECT_NE(sizeof(pldm_fru_metadata), 18u);  // the bytes of an answer behind its header
    print_pldm_metadata({1, 0, 0xFFFFFFFF, 0x80, 2, 0x103, 0xDEADBEEF});
    EXPECT_EQ(test::port().console,
              (Texts{"majorver     = 0x1\n", "minorver     = 0x0\n", "maxsize      = 0xffffffff\n",
                     "table_len    = 0x80\n", "setIdent_num = 0x2\n", "record_num   = 0x103\n",
                     "checksum     = 0xdeadbeef\n"}));
}

// ---- Sweeps: the table lies in a buffer of exactly its size ----

TEST_F(PldmFruRecord, TablesTruncatedAtEveryByteFail) {
    for (size_t length = 0; length <= kTable.size(); length++) {
        const Outcome outcome =
            parse(Bytes(kTable.begin(), kTable.begin() + static_cast<long>(length)));
        EXPECT_EQ(outcome.result, length == kTable.size() ? 0 : -112) << length;
        expect_sound();
    }
    freeFRUdata(&record);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmFruRecord, TablesWithEachBitFlippedStayInTheirBuffer) {
    for (size_t bit = 0; bit < kTable.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes table = kTable;
        table[bit / 8] = static_cast<uint8_t>(table[bit / 8] ^ (1u << (bit % 8)));
        const int32_t result = parse(table).result;
        EXPECT_TRUE(result == 0 || result == -112) << result;
        expect_sound();
        freeFRUdata(&record);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

TEST_F(PldmFruRecord, CountsAndLengthsAtTheirExtremesStayInTheBuffer) {
    for (size_t at : {3, 6, 11, 13}) {  // number of fields, the three lengths
        for (uint8_t value : {0, 1, 254, 255}) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{value});
            Bytes table = kTable;
            table[at] = value;
            const bool fits =
                value == kTable[at] || (at == 3 && value == 1) || (at == 13 && value == 0);
            EXPECT_EQ(parse(table).result == 0, fits);
            expect_sound();
            freeFRUdata(&record);
            EXPECT_EQ(libc.live_blocks(), 0u);
        }
    }
}

TEST_F(PldmFruRecord, RandomTablesStayInTheirBuffer) {
    std::mt19937 random(4);
    for (int round = 0; round < 2000; round++) {
        SCOPED_TRACE(round);
        Bytes table(random() % 64);
        std::generate(table.begin(), table.end(),
                      [&] { return static_cast<uint8_t>(random() % (round % 2 == 0 ? 6 : 256)); });
        const int32_t result = parse(table).result;
        EXPECT_TRUE(result == 0 || result == -112) << result;
        expect_sound();
        freeFRUdata(&record);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

}  // namespace
