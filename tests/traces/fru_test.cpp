// SPDX-License-Identifier: Apache-2.0
// Recorded FRU record tables: fetched by both readers, parsed record by record and compared with
// the reading that came with them. The tables were recorded alone; the answers around them are put
// together here.
#include <gtest/gtest.h>
#include <sideband/pldm_fru.h>

#include "traces/record.h"
#include "traces/replay.h"

namespace {

using test::Bytes;
using test::quietly;
using test::Record;
using test::ReplayTerminus;
using tool::Json;
using test::operator+;

std::vector<Record> tables() {
    return test::records_of_command("PLDM", "FRU record table data");
}

/// A device whose whole table comes in one part, with its metadata.
ReplayTerminus device_with(const Bytes& table) {
    const auto length = static_cast<uint8_t>(table.size());
    const Bytes metadata = test::hex("00 04 01 00 01 00 00 00 00 00") +
                           Bytes{length, 0x00, 0x00, 0x00} + test::hex("01 00 01 00 00 00 00 00");
    return ReplayTerminus(
        {{test::hex("80 04 01"), metadata},
         {test::hex("80 04 02 00 00 00 00 01"), test::hex("00 04 02 00 00 00 00 00 05") + table}});
}

/// One record, given back at the end of its scope.
class Parsed {
public:
    Parsed(const uint8_t* table, size_t length) {
        result = pldm_parse_record_table(table, &record, static_cast<uint32_t>(length));
    }
    ~Parsed() { freeFRUdata(&record); }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    pldm_fru_record record{};
    int32_t result;
};

/// @return the length of the record in the table
size_t expect_record(const Json& says, const pldm_fru_record& record) {
    EXPECT_EQ(says.at("set"), record.set_identifier);
    EXPECT_EQ(says.at("type"), record.type);
    EXPECT_EQ(says.at("encoding"), record.encoding_type);
    EXPECT_EQ(says.at("fields"), record.number_of_fields);
    const Json& fields = says.at("tlv");
    size_t length = 5;
    for (size_t i = 0; i < record.number_of_fields && i < fields.size(); i++) {
        const pldm_fru_field& field = record.fields[i];
        EXPECT_EQ(fields.at(i).at(0), field.type);
        EXPECT_EQ(Bytes(field.value, field.value + field.length),
                  test::hex(fields.at(i).at(1).get<std::string>()));
        EXPECT_EQ(field.value[field.length], '\0');
        length += 2u + field.length;
    }
    return length;
}

class FruTrace : public testing::TestWithParam<Record> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FruTrace);

TEST_P(FruTrace, IsReadWholeByBothReaders) {
    const Bytes& table = GetParam().response;
    ReplayTerminus device = device_with(table);
    uint32_t length = 0;
    EXPECT_EQ(quietly([&] { return pldm_get_FRU_record_table_metadata(&device.ctx, &length); }), 0);
    EXPECT_EQ(length, table.size());
    test::Guarded room(table.size(), 0xEE);
    EXPECT_EQ(quietly([&] { return pldm_get_FRU_record_table(&device.ctx, room.data(), length); }),
              0);
    EXPECT_EQ(room.head(table.size()), table);
    test::Guarded fixed(table.size(), 0xEE);
    EXPECT_EQ(quietly([&] {
                  return pldm_get_FRU_record_table_MX(&device.ctx, fixed.data(),
                                                      static_cast<int32_t>(length));
              }),
              0);
    EXPECT_EQ(fixed.head(table.size()), table);
    EXPECT_TRUE(room.intact());
    EXPECT_TRUE(fixed.intact());
    EXPECT_TRUE(device.locks_in_order());
}

TEST_P(FruTrace, IsParsedOrRefusedAsTheRecordSays) {
    const Bytes& table = GetParam().response;
    const Json& says = GetParam().response_says;
    if (says.value("expect", "") == "refuse") {
        EXPECT_EQ(Parsed(table.data(), table.size()).result, PLDM_ERROR_ARGUMENT);
        return;
    }
    size_t at = 0;
    for (const Json& record : says.at("records")) {
        const Parsed parsed(table.data() + at, table.size() - at);
        ASSERT_EQ(parsed.result, 0);
        at += expect_record(record, parsed.record);
    }
    EXPECT_EQ(at, table.size());
}

INSTANTIATE_TEST_SUITE_P(Recorded, FruTrace, testing::ValuesIn(tables()), test::test_name);

TEST(FruTraces, NoRecordedTableIsLeftOut) {
    if (!test::have_records()) {
        GTEST_SKIP() << test::absence();
    }
    test::expect_all_exercised("PLDM",
                               {{"FRU record table data", static_cast<int>(tables().size())}},
                               {{"FRU record table data", 2}});
}

}  // namespace
