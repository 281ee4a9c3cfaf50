// SPDX-License-Identifier: Apache-2.0
// Firmware of a drive: images in pieces, slots, activation (NVMe, Firmware Commit and Image
// Download).
#include <cstdio>
#include <fstream>

#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;
using sim::ByteView;

class NvmeUpdate : public NvmeAdmin {
protected:
    static Bytes image(const std::string& revision, size_t size) {
        const std::string head = "SIMDRIVE" + revision + std::string(8 - revision.size(), ' ');
        Bytes out(head.begin(), head.end());
        for (uint32_t state = 1; out.size() < size; state = state * 1664525 + 1013904223) {
            out.push_back(static_cast<uint8_t>(state >> 24));
        }
        return out;
    }
    std::string download(const Bytes& image, size_t from, size_t size) {
        const ByteView piece = ByteView(image).subspan(from, size);
        return admin({.opcode = 0x11,
                      .dword10 = static_cast<uint32_t>(size / 4 - 1),
                      .dword11 = static_cast<uint32_t>(from / 4),
                      .data = Bytes(piece.begin(), piece.end())});
    }
    void download(const Bytes& image) {
        for (size_t at = 0; at < image.size(); at += 4096) {
            ASSERT_EQ(download(image, at, std::min<size_t>(4096, image.size() - at)), ended(0));
        }
    }
    std::string commit(uint32_t slot, uint32_t action) {
        return admin({.opcode = 0x10, .dword10 = action << 3 | slot});
    }
    /// Active and next slot, and the revisions.
    std::string slots() {
        const Bytes page = log(0x03, 512);
        return hex({page[0]}) + " " + text(page, 8, 24);
    }
};

TEST_F(NvmeUpdate, TakesEffectAfterAReset) {
    open_drive();
    const Bytes whole = image("2.0", 200'004);
    download(whole);
    EXPECT_TRUE(std::ranges::equal(drive->firmware().downloaded(), whole));
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, whole) << "byte for byte";
    EXPECT_EQ(slots(), "21 1.0     2.0     " + std::string(8, '\0'));
    EXPECT_EQ(revision(), "1.0     ");
    manage(0x07);
    EXPECT_EQ(revision(), "2.0     ");
    EXPECT_EQ(slots(), "02 1.0     2.0     " + std::string(8, '\0'));
    EXPECT_EQ(manage(0x01).substr(24, 5), "91 01") << "firmware activated";
    EXPECT_EQ(drive->firmware().next(), 0);
}

TEST_F(NvmeUpdate, ComparesWithTheFileAsItIsNow) {
    const std::string path = testing::TempDir() + "sim-drive-expected.bin";
    auto expect = [&path](const Bytes& content) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    };
    open_drive(R"("firmware": {"slots": ["1.0", ""], "expect_file": ")" + path + "\"}");
    expect(image("2.0", 8000));
    download(image("2.0", 8000));
    EXPECT_EQ(commit(2, 1), ended(0));
    expect(image("3.0", 8000));
    download(image("3.0", 8000));
    EXPECT_EQ(commit(2, 1), ended(0)) << "the new one";
    download(image("2.0", 8000));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "the old one";
    std::remove(path.c_str());
}

TEST_F(NvmeUpdate, ActivatesWhatIsThere) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1", ""], "active": 2})");
    EXPECT_EQ(revision(), "1.1     ");
    EXPECT_EQ(commit(1, 2), ended(0));
    EXPECT_EQ(slots().substr(0, 2), "12");
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(revision(), "1.0     ");
    EXPECT_EQ(commit(2, 3), ended(0)) << "at once";
    EXPECT_EQ(revision(), "1.1     ");
    EXPECT_EQ(commit(3, 2), failed(1, 0x07)) << "an empty slot";
    EXPECT_EQ(commit(3, 3), failed(1, 0x07));
}

TEST_F(NvmeUpdate, ReplacingTheActiveSlotLeavesWhatRuns) {
    open_drive(R"("firmware": {"slots": ["1.0"]})");
    download(image("2.0", 64));
    EXPECT_EQ(commit(0, 0), ended(0));
    EXPECT_EQ(revision(), "1.0     ");
    EXPECT_EQ(slots(), "01 2.0     " + std::string(16, '\0'));
    manage(0x07);
    EXPECT_EQ(revision(), "2.0     ");
}

TEST_F(NvmeUpdate, SlotZeroIsTheDrivesChoice) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1", ""], "active": 2})");
    download(image("3.0", 64));
    EXPECT_EQ(commit(0, 3), ended(0));
    EXPECT_EQ(slots(), "01 3.0     1.1     " + std::string(8, '\0'));
    EXPECT_EQ(revision(), "3.0     ");
}

TEST_F(NvmeUpdate, WrongSlotsAndActions) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1"], "first_read_only": true,
        "immediate": false})");
    EXPECT_EQ(identify(1)[260], 0x05);
    download(image("2.0", 64));
    EXPECT_EQ(commit(3, 1), failed(1, 0x06));
    EXPECT_EQ(commit(7, 2), failed(1, 0x06));
    EXPECT_EQ(commit(1, 1), failed(1, 0x06)) << "read-only";
    EXPECT_EQ(commit(2, 3), failed(0, 0x02)) << "only by a reset";
    for (uint32_t action = 4; action < 8; ++action) {
        EXPECT_EQ(commit(2, action), failed(0, 0x02));
    }
    EXPECT_EQ(commit(0, 1), ended(0)) << "the image is still there";
    EXPECT_EQ(drive->firmware().next(), 2);
}

TEST_F(NvmeUpdate, WrongImages) {
    open_drive();
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "none";
    for (size_t at = 0; at < 8; ++at) {
        Bytes bad = image("2.0", 64);
        bad[at] ^= 1;
        download(bad);
        EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << at;
    }
    download(image("", 64));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "no revision";
    download(image("\n", 64));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07));
    download(image("2.0", 64));
    drive->firmware().expect(sim::ExpectedImage(image("2.0", 68)));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "shorter than expected";
    download(image("2.0", 72));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "longer";
    Bytes other = image("2.0", 68);
    other.back() ^= 1;
    download(other);
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "another byte";
    drive->firmware().expect(sim::ExpectedImage(image("2.0", 65)));
    download(image("2.0", 68));
    EXPECT_EQ(commit(2, 1), ended(0)) << "padding behind it";
    EXPECT_EQ(drive->firmware().slot(1)->revision, "1.0");
}

TEST_F(NvmeUpdate, PiecesInAnyOrder) {
    open_drive();
    const Bytes whole = image("2.0", 64);
    EXPECT_EQ(download(whole, 48, 16), ended(0));
    EXPECT_EQ(download(whole, 0, 16), ended(0));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "a hole";
    for (const size_t at : {48, 16, 0, 32, 32, 0}) {
        EXPECT_EQ(download(whole, at, 16), ended(0)) << "repetitions do not matter";
    }
    EXPECT_EQ(download(image("3.0", 64), 16, 16), ended(0)) << "nor does the same";
    Bytes other = whole;
    other[40] ^= 1;
    EXPECT_EQ(download(other, 32, 16), failed(1, 0x14)) << "another piece in its place";
    EXPECT_EQ(download(other, 56, 4), ended(0));
    other.resize(128);
    EXPECT_EQ(download(other, 56, 16), failed(1, 0x14)) << "partly";
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, whole);
}

TEST_F(NvmeUpdate, AnotherFirstPieceBeginsAnew) {
    open_drive();
    download(image("2.0", 12288));
    download(image("3.0", 8192));
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, image("3.0", 8192));
}

TEST_F(NvmeUpdate, SizesAreChecked) {
    open_drive();
    const Bytes data(16);
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 4, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 2, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 0xFFFFFFFF, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 3, .dword11 = 0xFFFFFFFF, .data = data}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11}), failed(0, 0x02)) << "no data";
}

}  // namespace
