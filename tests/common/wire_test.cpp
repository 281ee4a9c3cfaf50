// SPDX-License-Identifier: Apache-2.0
// The cursors over wire bytes: both byte orders, and what a cursor that ran out does.
#include "common/wire.h"

#include <gtest/gtest.h>

#include <array>

#include "support/bytes.h"

namespace {

using sideband::WireReader;
using sideband::WireWriter;
using test::Bytes;
using test::hex;

TEST(Wire, AByteThatIsNotThereIsZero) {
    const Bytes bytes = hex("01 02");
    EXPECT_EQ(sideband::byte_at(bytes, 1), 0x02);
    EXPECT_EQ(sideband::byte_at(bytes, 2), 0x00);
    EXPECT_EQ(sideband::byte_at({}, 0), 0x00);
}

TEST(Wire, LittleEndianNumbersComeFromAnywhere) {
    const Bytes bytes = hex("FF 0302 07060584");
    EXPECT_EQ(sideband::le16(std::span(bytes).subspan<1, 2>()), 0x0203);
    EXPECT_EQ(sideband::le32(std::span(bytes).subspan<3, 4>()), 0x84050607u);
}

TEST(WireReader, ReadsNumbersInBothOrders) {
    const Bytes bytes = hex("01 0302 07060504 0809 0A0B0C0D");
    WireReader reader(bytes);
    EXPECT_EQ(reader.u8(), 0x01);
    EXPECT_EQ(reader.le16(), 0x0203);
    EXPECT_EQ(reader.le32(), 0x04050607u);
    EXPECT_EQ(reader.be16(), 0x0809);
    EXPECT_EQ(reader.be32(), 0x0A0B0C0Du);
    EXPECT_EQ(reader.remaining(), 0u);
    EXPECT_TRUE(reader.ok());
}

TEST(WireReader, GivesBytesAndTheRestInPlace) {
    const Bytes bytes = hex("00 01 02 03 04");
    WireReader reader(bytes);
    reader.skip(1);
    const auto two = reader.bytes(2);
    EXPECT_EQ(two.data(), bytes.data() + 1);
    EXPECT_EQ(two.size(), 2u);
    EXPECT_EQ(reader.rest().data(), bytes.data() + 3);
    EXPECT_EQ(reader.rest().size(), 2u);
    std::array<uint8_t, 2> target{};
    reader.copy(target);
    EXPECT_EQ(Bytes(target.begin(), target.end()), hex("03 04"));
    EXPECT_TRUE(reader.ok());
}

TEST(WireReader, AReadPastTheEndGivesZerosAndStaysFailed) {
    const Bytes bytes = hex("FF FF FF");
    for (int kind = 0; kind < 4; kind++) {
        WireReader reader(bytes);
        std::array<uint8_t, 4> target{1, 2, 3, 4};
        switch (kind) {
            case 0:
                EXPECT_EQ(reader.le32(), 0u);
                break;
            case 1:
                EXPECT_EQ(reader.be32(), 0u);
                break;
            case 2:
                EXPECT_TRUE(reader.bytes(4).empty());
                break;
            default:
                reader.copy(target);
                EXPECT_EQ(target, (std::array<uint8_t, 4>{}));
        }
        EXPECT_FALSE(reader.ok());
        EXPECT_EQ(reader.u8(), 0) << "although there is a byte";
        EXPECT_FALSE(reader.ok());
    }
}

TEST(WireReader, SkipsNoFurtherThanTheEnd) {
    const Bytes bytes = hex("01 02");
    WireReader reader(bytes);
    reader.skip(2);
    EXPECT_TRUE(reader.ok());
    reader.skip(0);
    EXPECT_TRUE(reader.ok());
    reader.skip(SIZE_MAX);
    EXPECT_FALSE(reader.ok());
}

TEST(WireReader, OfNothingIsFineUntilItIsRead) {
    WireReader reader({});
    reader.copy({});
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(reader.u8(), 0);
    EXPECT_FALSE(reader.ok());
}

TEST(WireWriter, WritesNumbersInBothOrders) {
    Bytes bytes(16, 0xEE);
    WireWriter writer(bytes);
    writer.u8(0x01).le16(0x0203).le32(0x04050607).be16(0x0809).be32(0x0A0B0C0D).skip(1);
    writer.bytes(hex("0E 0F"));
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(writer.written(), 16u);
    EXPECT_EQ(bytes, hex("01 0302 07060504 0809 0A0B0C0D EE 0E0F"));
}

TEST(WireWriter, AWritePastTheEndIsDroppedAndSoIsAllBehindIt) {
    Bytes bytes(3);
    WireWriter writer(bytes);
    writer.u8(1).le32(0xFFFFFFFF).u8(2);
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(bytes, hex("01 00 00"));
    writer.bytes({});
    EXPECT_FALSE(writer.ok());
}

}  // namespace
