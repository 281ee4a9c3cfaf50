// SPDX-License-Identifier: Apache-2.0
// The FRU record table of the simulated PLDM terminus, byte by byte (DSP0257).
#include "terminus_fixture.h"

namespace {

using namespace sim_test;

class FruTable : public TerminusTest {
protected:
    std::string get(const std::string& handle_and_operation) {
        return pldm("80 04 02 " + handle_and_operation);
    }
};

/// Sixteen bytes of table: no padding.
constexpr const char* kSmall = R"("records": [
    {"set": 1, "fields": [{"type": "model", "text": "SB1"},
                          {"type": 15, "hex": "11223344"}]}])";

/// One field of sixty characters: 67 bytes of table, one pad byte, four of checksum.
constexpr const char* kLong = R"("records": [{"type": 1, "fields": [{"type": "description",
    "text": "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGH"}]}])";
constexpr const char* kLongFirst =
    "01 00 01 01 01 0c 3c 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 51 52 53 54 "
    "55 56 57 58 59 5a 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 51 52 53 54 55";
constexpr const char* kLongLast = "56 57 58 59 5a 41 42 43 44 45 46 47 48 00 e2 f8 b0 f7";

TEST_F(FruTable, MakesTheTerminusSpeakFru) {
    open_terminus(std::string("\"fru\": {") + kSmall + "}");
    EXPECT_EQ(pldm("80 00 04"), "00 00 04 00 15 00 00 00 00 00 00 00");
    EXPECT_EQ(pldm("80 00 05 04 00 00 00 00").substr(0, 17), "00 00 05 00 06 00");
    EXPECT_EQ(pldm("80 00 03 00 00 00 00 01 04").substr(0, 38),
              "00 00 03 00 00 00 00 00 05 00 f0 f0 f1");
}

TEST_F(FruTable, MetadataTellLengthCountsAndChecksum) {
    open_terminus(std::string("\"fru\": {") + kSmall + "}");
    EXPECT_EQ(pldm("80 04 01"),
              "00 04 01 00 01 00 00 00 00 00 10 00 00 00 01 00 01 00 49 80 6d eb");
    EXPECT_EQ(pldm("80 04 01 00"), "00 04 01 03");
}

TEST_F(FruTable, ComesInOnePartWithItsChecksum) {
    open_terminus(std::string("\"fru\": {") + kSmall + "}");
    EXPECT_EQ(get("00 00 00 00 01"),
              "00 04 02 00 00 00 00 00 05 01 00 01 02 01 02 03 53 42 31 0f 04 11 22 33 44 "
              "49 80 6d eb");
    EXPECT_EQ(get("00 00 00 00 00"), "00 04 02 80");
    EXPECT_EQ(get("10 00 00 00 00"), "00 04 02 80");
    EXPECT_EQ(get("00 00 00 00 02"), "00 04 02 81");
    EXPECT_EQ(get("00 00 00 00"), "00 04 02 03");
}

TEST_F(FruTable, MetadataCountSetsAndRecords) {
    open_terminus(R"("fru": {"records": [
        {"set": 1, "type": 1, "encoding": 1,
         "fields": [{"type": 2, "text": "SB1"}, {"type": 15, "hex": "11223344"}]},
        {"set": 2, "type": 254, "encoding": 1, "fields": [{"type": 2, "hex": "00"}]}]})");
    EXPECT_EQ(pldm("80 04 01").substr(30, 23), "18 00 00 00 02 00 02 00");
}

TEST_F(FruTable, PartsOf54EndWithWhatIsLeft) {
    open_terminus(std::string("\"fru\": {\"part_size\": 54, ") + kLong + "}");
    EXPECT_EQ(pldm("80 04 01").substr(30, 11), "43 00 00 00");
    EXPECT_EQ(get("ff ff ff ff 01"), std::string("00 04 02 00 36 00 00 00 00 ") + kLongFirst);
    EXPECT_EQ(get("36 00 00 00 00"), std::string("00 04 02 00 00 00 00 00 04 ") + kLongLast);
    EXPECT_EQ(get("37 00 00 00 00"), "00 04 02 80");
    EXPECT_EQ(get("6c 00 00 00 00"), "00 04 02 80");
}

TEST_F(FruTable, SmallPartsHaveMiddlesBetween) {
    open_terminus(std::string("\"fru\": {\"part_size\": 8, ") + kSmall + "}");
    EXPECT_EQ(get("00 00 00 00 01"), "00 04 02 00 08 00 00 00 00 01 00 01 02 01 02 03 53");
    EXPECT_EQ(get("08 00 00 00 00"), "00 04 02 00 10 00 00 00 01 42 31 0f 04 11 22 33 44");
    EXPECT_EQ(get("10 00 00 00 00"), "00 04 02 00 00 00 00 00 04 49 80 6d eb");
}

TEST_F(FruTable, PartsOfFixedSizeAreFilledUp) {
    open_terminus(std::string("\"fru\": {\"part_size\": 54, \"fixed_size\": true, ") + kLong + "}");
    EXPECT_EQ(get("00 00 00 00 01"), std::string("00 04 02 00 36 00 00 00 00 ") + kLongFirst);
    std::string last = std::string("00 04 02 00 00 00 00 00 04 ") + kLongLast;
    for (int i = 18; i < 54; i++) {
        last += " 00";
    }
    EXPECT_EQ(get("36 00 00 00 00"), last);
    EXPECT_EQ(pldm("80 04 01").substr(30, 11), "43 00 00 00");
}

TEST_F(FruTable, MetadataMayLie) {
    open_terminus(std::string("\"fru\": {\"claimed_length\": \"0xffffffff\", ") + kSmall + "}");
    EXPECT_EQ(pldm("80 04 01").substr(30, 11), "ff ff ff ff");
}

TEST_F(FruTable, WithoutRecordsItIsUnavailable) {
    open_terminus(R"("fru": {"records": []})");
    EXPECT_EQ(pldm("80 04 01"), "00 04 01 83");
    EXPECT_EQ(get("00 00 00 00 01"), "00 04 02 85");
}

TEST(FruBoardFile, Errors) {
    const std::string at = "devices[0].fru.";
    auto refusal = [](const std::string& keys) {
        return refusal_of(terminus_with("\"fru\": {\n" + keys + "}"));
    };
    auto field = [&](const std::string& keys) {
        return refusal("\"records\": [{\"fields\": [\n{" + keys + "}]}]");
    };
    const std::string first = "14: " + at + "records[0].fields[0].";
    EXPECT_EQ(refusal("\"part_size\": 54"), "12: " + at + "records: is missing");
    EXPECT_EQ(refusal("\"records\": [{\n\"set\": 1}]"),
              "13: " + at + "records[0].fields: is missing");
    EXPECT_EQ(refusal("\"records\": [{\n\"encoding\": 256, \"fields\": []}]"),
              "14: " + at + "records[0].encoding: must be a whole number from 0 to 255");
    EXPECT_EQ(refusal("\"records\": [],\n\"part_size\": 65536"),
              "14: " + at + "part_size: must be a whole number from 0 to 65535");
    EXPECT_EQ(refusal("\"records\": [],\n\"fixed_size\": true"),
              "14: " + at + "fixed_size: needs a part_size");
    EXPECT_EQ(refusal("\"records\": [],\n\"size\": 1"), "14: " + at + "size: no such key");
    EXPECT_EQ(field("\"text\": \"a\""), first + "type: is missing");
    EXPECT_EQ(field("\"type\": \"colour\""), first + "type: must be a whole number from 0 to 255");
    EXPECT_EQ(field("\"type\": 2"), first + "hex: is missing");
    EXPECT_EQ(field("\"type\": 2, \"text\": \"a\", \"hex\": \"00\""),
              first + "hex: cannot stand beside text");
    EXPECT_EQ(field("\"type\": 2, \"text\": \"" + std::string(256, 'a') + "\""),
              first + "text: must have at most 255 bytes");
    EXPECT_EQ(field("\"type\": 2, \"text\": \"" + std::string(255, 'a') + "\""), "accepted");
    EXPECT_EQ(field("\"type\": 2, \"hex\": \"" + std::string(512, 'a') + "\""),
              first + "hex: must have at most 255 bytes");
}

}  // namespace
