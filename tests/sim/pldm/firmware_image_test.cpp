// SPDX-License-Identifier: Apache-2.0
// Images of a firmware device: the order of their pieces, and what they should be.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "firmware_fixture.h"

namespace {

using namespace sim_test;

// ---- Pieces ----

/// One component of 200 bytes in pieces of 48, in some order.
class FirmwarePieces : public FirmwareTest {
protected:
    std::string pieces(const std::string& keys) {
        open_device(kTwoComponents + ", " + keys);
        pldm("80 05 10  40000000 0200 01 0000 01 05 4e45572d32");
        pldm("80 05 13 05 0a00 0100 07 11000000 01 00");
        pldm("80 05 14 0a00 0100 07 11000000 c8000000 00000000 01 00");
        std::string log = serve(image_of(200));
        const std::string end = " 16 00 17 00 18 00 00 00";
        EXPECT_TRUE(log.ends_with(end)) << log;
        EXPECT_TRUE(std::ranges::equal(device->image(0), image_of(200)));
        return log.substr(0, log.size() - std::min(log.size(), end.size()));
    }
};

TEST_F(FirmwarePieces, ComeInEveryOrder) {
    EXPECT_EQ(pieces(R"("order": "ascending")"), "0+64 64+64 128+64 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 48)"), "0+48 48+48 96+48 144+48 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 48, "order": "descending")"),
              "192+32 144+48 96+48 48+48 0+48");
    EXPECT_EQ(pieces(R"("transfer_size": 48, "order": "interleaved")"),
              "0+48 96+48 192+32 48+48 144+48");
    const std::string random = pieces(R"("transfer_size": 32, "order": "random", "seed": 3)");
    EXPECT_EQ(random, pieces(R"("transfer_size": 32, "order": "random", "seed": 3)"));
    EXPECT_NE(random, pieces(R"("transfer_size": 32, "order": "random", "seed": 4)"));
}

TEST_F(FirmwarePieces, LastOneMayBeAsLongAsTheOthers) {
    EXPECT_EQ(pieces(R"("transfer_size": 48, "last_piece": "full")"),
              "0+48 48+48 96+48 144+48 192+48");
    EXPECT_EQ(pieces(R"("transfer_size": 40)"), "0+40 40+40 80+40 120+40 160+40");
}

TEST_F(FirmwarePieces, AreNeverLongerThanTheAgentAllowsNorShorterThanTheBaseline) {
    EXPECT_EQ(pieces(R"("transfer_size": 100)"), "0+64 64+64 128+64 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 1)"), "0+32 32+32 64+32 96+32 128+32 160+32 192+32");
}

TEST(FirmwarePlan, NamesEveryPieceOfALargeImageOnce) {
    for (const sim::PieceOrder order : {sim::PieceOrder::kAscending, sim::PieceOrder::kDescending,
                                        sim::PieceOrder::kInterleaved, sim::PieceOrder::kRandom}) {
        for (const uint32_t size : {1u, 31u, 33u, 6400u, 0xFFFFu}) {
            const sim::PiecePlan plan(size, 32, order, 12, false);
            std::vector<bool> seen(plan.count());
            for (uint32_t turn = 0; turn < plan.count(); ++turn) {
                const uint32_t offset = plan.at(turn).offset;
                ASSERT_EQ(offset % 32, 0u);
                ASSERT_FALSE(seen.at(offset / 32));
                seen[offset / 32] = true;
            }
            EXPECT_EQ(plan.count(), (size + 31) / 32);
        }
    }
    const sim::PiecePlan largest(0xFFFFFFFF, 32, sim::PieceOrder::kDescending, 0, true);
    EXPECT_EQ(largest.count(), 0x08000000u);
    EXPECT_EQ(largest.at(0).offset, 0xFFFFFFE0u);
    EXPECT_EQ(sim::PiecePlan(0, 32, sim::PieceOrder::kRandom, 0, false).count(), 0u);
}

// ---- What the image should be ----

class FirmwareImage : public FirmwareTest {
protected:
    /// Downloads the first component of 80 bytes. @return what followed the pieces
    std::string results(const sim::Bytes& image) {
        start_download();
        return serve(image).substr(17);
    }
};

TEST_F(FirmwareImage, IsComparedByteForByte) {
    open_device();
    device->expect(0, sim::ExpectedImage(image_of(80)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->first_difference(0), std::nullopt);
    pldm(kCancelUpdate);
    sim::Bytes other = image_of(80);
    other[79] ^= 0x01;
    EXPECT_EQ(results(other), "16 00 17 01") << "the last byte";
    EXPECT_EQ(device->first_difference(0), 79u);
    EXPECT_EQ(device->transfer(0).verify_result, 1);
    EXPECT_EQ(device->transfer(0).apply_result, std::nullopt);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 04 03 02 0a 65 02 00 00 00 00") << "failed";
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 00");
}

TEST_F(FirmwareImage, OfAnotherSizeIsRefused) {
    open_device();
    device->expect(0, sim::ExpectedImage(image_of(81)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 01");
    pldm(kCancelUpdate);
    device->expect(0, sim::ExpectedImage(image_of(79)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 01");
    EXPECT_EQ(device->first_difference(0), 79u);
}

TEST_F(FirmwareImage, NeedNotBeKept) {
    open_device(kTwoComponents + R"(, "keep_image": false)");
    device->expect(0, sim::ExpectedImage(image_of(80)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->image(0).size(), 0u);
    pldm(kCancelUpdate);
    sim::Bytes other = image_of(80);
    other[0] = 1;
    EXPECT_EQ(results(other), "16 00 17 01");
}

TEST_F(FirmwareImage, CanBeAPartOfAFile) {
    const std::string path = ::testing::TempDir() + "sim-firmware-" + std::to_string(getpid());
    const sim::Bytes content = image_of(70'000);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), 70'000);
    sim::ExpectedImage whole = sim::ExpectedImage::file(path, 0, 0);
    EXPECT_EQ(whole.size(), 70'000u);
    EXPECT_EQ(whole.difference(0, content), std::nullopt);
    EXPECT_EQ(whole.difference(1, content), 0u);
    EXPECT_EQ(whole.difference(69'999, {content.data() + 69'999, 1}), std::nullopt);
    EXPECT_EQ(whole.difference(70'000, content), 0u) << "behind the end";
    EXPECT_EQ(whole.difference(10, {content.data() + 10, 20}), std::nullopt) << "and back";
    sim::ExpectedImage part = sim::ExpectedImage::file(path, 60'000, 5);
    EXPECT_EQ(part.size(), 5u);
    EXPECT_EQ(part.difference(2, {content.data() + 60'002, 3}), std::nullopt);
    EXPECT_EQ(sim::ExpectedImage::file(path, 69'990, 0).size(), 10u);
    EXPECT_EQ(sim::ExpectedImage::file(path, 80'000, 0).size(), 0u);
    std::remove(path.c_str());
    sim::ExpectedImage gone = sim::ExpectedImage::file(path, 0, 0);
    EXPECT_EQ(gone.size(), 0u);
    EXPECT_EQ(gone.difference(0, content), 0u);
}

TEST_F(FirmwareImage, OfTheBoardFile) {
    open_device(R"("components": [{"identifier": 1, "index": 7, "active": "1",
        "expect_hex": ")" +
                std::string(160, '0') + R"("}])");
    pldm(kRequestUpdate);
    pldm("80 05 13 05 0a00 0100 07 11000000 01 00");
    pldm(kUpdateFirst);
    EXPECT_EQ(serve(sim::Bytes(80)), "0+32 32+32 64+32 16 00 17 00 18 00 00 00");
}

}  // namespace
