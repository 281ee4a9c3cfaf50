// SPDX-License-Identifier: Apache-2.0
// The FRU table from the simulated terminus through the library, in every form that it comes in.
#include <sideband/pldm_fru.h>

#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

class FruOverSmbus : public BoardRun {
protected:
    ~FruOverSmbus() override { freeFRUdata(&record); }

    /// A terminus with a table of 16 bytes, then fields of so many bytes together.
    void bring_up(const std::string& keys, size_t rest) {
        std::string records = R"({"set": 3, "fields": [{"type": "model", "text": "SB1"},
                                  {"type": "vendor_iana", "hex": "11223344"}]})";
        for (size_t length = 0; rest > 0; rest -= length + 7) {
            length = std::min<size_t>(rest - 7, 200);
            records += R"(, {"set": 4, "fields": [{"type": "description", "text": ")" +
                       std::string(length, 'x') + "\"}]}";
        }
        open(board_with("", R"({"name": "fru0", "type": "pldm", "bus": 2, "address": "0x64",
            "eid": 9, "fru": {)" +
                                keys + "\"records\": [" + records + "]}}"));
        terminus = pldm_ctx{};
        mctp = context_of("fru0");
        ASSERT_EQ(mctp_init2(&mctp), 0);
        ASSERT_EQ(mctp_pldm_register(&mctp, &terminus), 0);
    }

    /// What the table must be like, whichever way it came.
    void expect_table(const std::vector<uint8_t>& table) {
        ASSERT_EQ(
            pldm_parse_record_table(table.data(), &record, static_cast<uint32_t>(table.size())), 0);
        EXPECT_EQ(record.set_identifier, 3);
        ASSERT_EQ(record.number_of_fields, 2);
        EXPECT_STREQ(record.fields[0].value, "SB1");
        EXPECT_STREQ(record.fields[1].value, "\x11\x22\x33\x44");
        for (size_t i = 16 + 7; i < std::min<size_t>(table.size(), 16 + 7 + 10); i++) {
            EXPECT_EQ(table[i], 'x');
        }
        if (table.size() > 16) {
            EXPECT_EQ(table.back(), 'x');
        }
    }

    mctp_ctx mctp{};
    pldm_ctx terminus{};
    pldm_fru_record record{};
};

/// Lengths around the part size, at which pad bytes and checksum need a part of their own or not.
constexpr size_t kRests[] = {0, 30, 37, 38, 39, 42, 92, 93, 100, 400};

TEST_F(FruOverSmbus, ComesWholeInPartsOfAnyForm) {
    for (const char* keys :
         {"", "\"part_size\": 54, ", "\"part_size\": 54, \"fixed_size\": true, "}) {
        for (const size_t rest : kRests) {
            SCOPED_TRACE(testing::Message() << keys << rest);
            sim::Board::use(nullptr);
            freeFRUdata(&record);
            bring_up(keys, rest);
            test::Capture out(1);
            uint32_t length = 0;
            ASSERT_EQ(pldm_get_FRU_record_table_metadata(&terminus, &length), 0);
            ASSERT_EQ(length, 16 + rest);
            std::vector<uint8_t> table(length);
            ASSERT_EQ(pldm_get_FRU_record_table(&terminus, table.data(), length), 0);
            out.text();
            expect_table(table);
        }
    }
}

TEST_F(FruOverSmbus, ComesWholeToTheReaderOfPartsOfOneSize) {
    for (const size_t rest : kRests) {
        SCOPED_TRACE(rest);
        sim::Board::use(nullptr);
        freeFRUdata(&record);
        bring_up("\"part_size\": 54, \"fixed_size\": true, ", rest);
        test::Capture out(1);
        std::vector<uint8_t> table(16 + rest);
        ASSERT_EQ(pldm_get_FRU_record_table_MX(&terminus, table.data(),
                                               static_cast<int32_t>(table.size())),
                  0);
        out.text();
        expect_table(table);
    }
}

TEST_F(FruOverSmbus, FieldsArePrinted) {
    bring_up("\"part_size\": 54, ", 100);
    test::Capture out(1);
    EXPECT_EQ(pldm_get_FRU_fields(&terminus, 2), 0);
    EXPECT_TRUE(out.text().ends_with("field_num = 2\nFRUData.fields[0].ctx = SB1\n"));
}

TEST_F(FruOverSmbus, MetadataThatLieEndTheCall) {
    std::vector<uint8_t> table(4096);
    for (const char* claimed : {"17", "100", "\"0x100001\"", "\"0xffffffff\""}) {
        SCOPED_TRACE(claimed);
        sim::Board::use(nullptr);
        bring_up(std::string("\"claimed_length\": ") + claimed + ", ", 0);
        test::Capture out(1);
        EXPECT_EQ(pldm_get_FRU_record_table(&terminus, table.data(), 0),
                  std::string(claimed) == "17" ? 0 : -112);
    }
}

}  // namespace
