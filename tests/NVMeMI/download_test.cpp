// SPDX-License-Identifier: Apache-2.0
// Firmware Image Download: how an image is cut, what each piece says, and what is reported.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "NVMeMI/download_fixture.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::head_of;
using test::hex;
using test::image_of;
using test::kController;
using test::kNoStatus;
using test::kTask;
using test::last_line;
using test::loop_line;
using test::loops_line;
using test::Outcome;
using test::percent_line;
using test::placed;
using test::port;
using test::sent_line;
using test::size_line;
using test::Texts;
using test::to_hex;
using test::operator+;

using Progress = std::vector<std::pair<uint32_t, unsigned>>;

class NvmeDownload : public test::DownloadTest {};

// ---- How an image is cut ----

TEST_F(NvmeDownload, AnImageOf4097BytesGoesInTwoCommands) {
    const Bytes image = image_of(4097);
    download_whole(image, 4096);
    ASSERT_EQ(endpoint.calls.size(), 2u);
    const Bytes& first = endpoint.calls[0].bytes;
    const Bytes& second = endpoint.calls[1].bytes;
    EXPECT_EQ(first.size(), 4163u);
    EXPECT_EQ(to_hex(Bytes(first.begin(), first.begin() + 67)),
              "10 00 00 11 01 34 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 10 00 00 00 00 00 00 00 00 00 00 ff 03 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(Bytes(first.begin() + 67, first.end()), Bytes(image.begin(), image.end() - 1));
    EXPECT_EQ(to_hex(second),
              "10 00 00 11 01 34 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 51 00 00 00");
    EXPECT_EQ(image.back(), 0x51);
    EXPECT_EQ(endpoint.calls[0].capacity, 19);
    EXPECT_EQ(endpoint.calls[1].capacity, 19);
    EXPECT_EQ(port().progress, (Progress{{kTask, 0}, {kTask, 50}, {kTask, 100}}));
    EXPECT_EQ(logged(),
              placed({size_line(4097), loops_line(2, 4096), loop_line(0, 2),
                      sent_line(4163, 1024, 0, 1023, 0), percent_line(0), loop_line(1, 2),
                      last_line(3, 4096), sent_line(71, 1, 4096, 0, 1024), percent_line(50)}));
}

TEST_F(NvmeDownload, TheTextsAreThese) {
    download_whole(image_of(5), 4);
    EXPECT_EQ(logged(), (Texts{
                            "[nvme_fw_image_download]",
                            "st.st_size=5\n",
                            "[nvme_fw_image_download]",
                            "num_loop=2, fw_download_chunk_size=4\n",
                            "[nvme_fw_image_download]",
                            "loop:0/2\n",
                            "[nvme_fw_image_download]",
                            "tx_size=71, num_dw=1 offset=0, DW10=0, dW11=0\n",
                            "[nvme_fw_image_download]",
                            "NVMe FW download percent done=0\n",
                            "[nvme_fw_image_download]",
                            "loop:1/2\n",
                            "[nvme_fw_image_download]",
                            "append_bytes=3, offset=4\n",
                            "[nvme_fw_image_download]",
                            "tx_size=71, num_dw=1 offset=4, DW10=0, dW11=1\n",
                            "[nvme_fw_image_download]",
                            "NVMe FW download percent done=50\n",
                        }));
}

TEST_F(NvmeDownload, AnEmptyImageIsDoneAtOnce) {
    for (uint32_t chunk_size : {1u, 4u, 4096u}) {
        download_whole({}, chunk_size);
        EXPECT_TRUE(port().progress.empty());
        EXPECT_EQ(logged(), placed({size_line(0), loops_line(0, chunk_size)}));
    }
}

/// An image that one command takes.
struct Single {
    size_t size;
    unsigned padding;
    unsigned dwords;
};

TEST_F(NvmeDownload, AnImageThatFitsOneCommandIsPaddedToWholeDwords) {
    const Single images[] = {{1, 3, 1},       {2, 2, 1},       {3, 1, 1},      {4, 0, 1},
                             {4093, 3, 1024}, {4095, 1, 1024}, {4096, 0, 1024}};
    for (const auto& [size, padding, dwords] : images) {
        SCOPED_TRACE(size);
        const Bytes image = image_of(size);
        download_whole(image, 4096);
        EXPECT_EQ(endpoint.messages(),
                  Texts{to_hex(head_of(dwords * 4, dwords - 1, 0) + image + Bytes(padding))});
        EXPECT_EQ(port().progress, (Progress{{kTask, 0}, {kTask, 100}}));
        EXPECT_EQ(
            logged(),
            placed({size_line(size), loops_line(1, 4096), loop_line(0, 1), last_line(padding, 0),
                    sent_line(static_cast<unsigned>(size) + 67 + padding, dwords, 0, dwords - 1, 0),
                    percent_line(0)}));
    }
}

TEST_F(NvmeDownload, ChunksOf4BytesAreOneDwordEach) {
    const Bytes image = image_of(4095);
    download_whole(image, 4);
    ASSERT_EQ(endpoint.calls.size(), 1024u);
    for (uint32_t i = 0; i < 1024; i++) {
        SCOPED_TRACE(i);
        Bytes data(image.begin() + 4 * i, image.begin() + std::min<long>(4 * i + 4, 4095));
        data.resize(4);
        EXPECT_EQ(endpoint.calls[i].bytes, head_of(4, 0, i) + data);
        EXPECT_EQ(port().progress.at(i), (std::pair<uint32_t, unsigned>{kTask, 100 * i / 1024}));
    }
    EXPECT_EQ(port().progress.size(), 1025u);
    EXPECT_EQ(port().progress.back(), (std::pair<uint32_t, unsigned>{kTask, 100}));
}

TEST_F(NvmeDownload, AChunkSizeThatIsNoMultipleOf4DropsTheLastBytesOfTheDwordCountOnly) {
    // Whole chunks of 6 bytes count as one dword; offsets are divided likewise.
    const Bytes image = image_of(15);
    download_whole(image, 6);
    const Bytes data = image + Bytes(1);
    EXPECT_EQ(endpoint.messages(),
              (Texts{to_hex(head_of(4, 0, 0) + Bytes(data.begin(), data.begin() + 6)),
                     to_hex(head_of(4, 0, 1) + Bytes(data.begin() + 6, data.begin() + 12)),
                     to_hex(head_of(4, 0, 3) + Bytes(data.begin() + 12, data.end()))}));
    EXPECT_EQ(logged(), placed({size_line(15), loops_line(3, 6), loop_line(0, 3),
                                sent_line(73, 1, 0, 0, 0), percent_line(0), loop_line(1, 3),
                                sent_line(73, 1, 6, 0, 1), percent_line(33), loop_line(2, 3),
                                last_line(1, 12), sent_line(71, 1, 12, 0, 3), percent_line(66)}));
}

TEST_F(NvmeDownload, ThePaddingIsThatOfTheImageNotOfTheLastPiece) {
    // 10 bytes lack 2 of a dword; the last piece has 4 of them and gets 2 more all the same.
    const Bytes ten = image_of(10);
    download_whole(ten, 6);
    EXPECT_EQ(to_hex(endpoint.calls.at(1).bytes),
              to_hex(head_of(8, 1, 1) + Bytes(ten.begin() + 6, ten.end()) + Bytes(2)));
    // 12 bytes lack none; the last piece has 6, of which one dword counts.
    const Bytes twelve = image_of(12);
    download_whole(twelve, 6);
    EXPECT_EQ(to_hex(endpoint.calls.at(1).bytes),
              to_hex(head_of(4, 0, 1) + Bytes(twelve.begin() + 6, twelve.end())));
}

TEST_F(NvmeDownload, ThePaddingOfAnOddChunkSizeGoesBehindALargestPiece) {
    // 4095 and 4095 bytes: the image lacks 2, so that the last piece has 4097 bytes of data.
    const Bytes image = image_of(8190);
    download_whole(image, 4095);
    ASSERT_EQ(endpoint.calls.size(), 2u);
    EXPECT_EQ(endpoint.calls[1].bytes,
              head_of(4096, 1023, 1023) + Bytes(image.begin() + 4095, image.end()) + Bytes(2));
}

TEST_F(NvmeDownload, ChunksOf1ByteCountAsNoDword) {
    const Bytes image = image_of(3);
    download_whole(image, 1);
    EXPECT_EQ(endpoint.messages(), (Texts{to_hex(head_of(0, 0xFFFFFFFF, 0) + hex("01")),
                                          to_hex(head_of(0, 0xFFFFFFFF, 0) + hex("02")),
                                          to_hex(head_of(4, 0, 0) + hex("03 00"))}));
    EXPECT_EQ(logged(),
              placed({size_line(3), loops_line(3, 1), loop_line(0, 3),
                      sent_line(68, 0, 0, 0xFFFFFFFF, 0), percent_line(0), loop_line(1, 3),
                      sent_line(68, 0, 1, 0xFFFFFFFF, 0), percent_line(33), loop_line(2, 3),
                      last_line(1, 2), sent_line(69, 1, 2, 0, 0), percent_line(66)}));
}

TEST_F(NvmeDownload, EverySizeAndEveryChunkSizeSendsTheWholeImageInOrder) {
    for (size_t size = 1; size <= 13; size++) {
        for (uint32_t chunk_size = 1; chunk_size <= 14; chunk_size++) {
            const Bytes image = image_of(size);
            download_whole(image, chunk_size);
            Bytes sent;
            for (const test::MctpCall& call : endpoint.calls) {
                const size_t left = size - sent.size();
                const auto take = static_cast<long>(67 + std::min<size_t>(chunk_size, left));
                ASSERT_GE(static_cast<long>(call.bytes.size()), take);
                sent.insert(sent.end(), call.bytes.begin() + 67, call.bytes.begin() + take);
            }
            EXPECT_EQ(sent, image) << size << " by " << chunk_size;
        }
    }
}

// ---- Progress ----

TEST_F(NvmeDownload, EveryPercentageFrom0To100IsReported) {
    std::vector<unsigned> seen;
    endpoint.on_call = [&] { seen.push_back(status()); };
    download_whole(image_of(400), 4);
    // A piece sees what the one in front of it has left.
    ASSERT_EQ(seen.size(), 100u);
    ASSERT_EQ(port().progress.size(), 101u);
    EXPECT_EQ(port().progress[100], (std::pair<uint32_t, unsigned>{kTask, 100}));
    EXPECT_EQ(seen[0], unsigned{kNoStatus});
    for (unsigned i = 0; i < 100; i++) {
        EXPECT_EQ(port().progress[i], (std::pair<uint32_t, unsigned>{kTask, i}));
        EXPECT_EQ(seen[i], i == 0 ? kNoStatus : i - 1);
    }
    EXPECT_EQ(status(), 100);
}

// ---- The file ----

/// How a file is open in this process, or -1 if it is not.
int access_mode_of(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed;
        if (std::filesystem::read_symlink(entry.path(), closed) == path) {
            return fcntl(std::stoi(entry.path().filename()), F_GETFL) & O_ACCMODE;
        }
    }
    return -1;
}

TEST_F(NvmeDownload, TheImageIsOpenForReadingAndWritingUntilTheEnd) {
    std::vector<int> modes;
    endpoint.on_call = [&] { modes.push_back(access_mode_of(image.path)); };
    download_whole(image_of(8), 4);
    EXPECT_EQ(modes, (std::vector<int>{O_RDWR, O_RDWR}));
    EXPECT_EQ(access_mode_of(image.path), -1);
}

// ---- On the wire ----

class NvmeDownloadOnTheWire : public test::NvmeSmbusTest {};

TEST_F(NvmeDownloadOnTheWire, ThePiecesCarryTheirIntegrityChecks) {
    const test::ImageFile image;
    image.write(hex("11 22 33 44 55"));
    const Outcome outcome = exchange({admin_response(), admin_response()}, [&] {
        return nvme_fw_image_download(&ctx, kController, image.path.c_str(), 4, kTask);
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(
        packets(),
        (Texts{
            "01 1d 08 89 84 10 00 00 11 01 34 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00",
            "01 1d 08 59 00 00 00 00 11 22 33 44 3d cc e5 71",
            "01 1d 08 8a 84 10 00 00 11 01 34 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00",
            "01 1d 08 5a 00 00 00 00 55 00 00 00 07 f9 4d 47"}));
}

}  // namespace