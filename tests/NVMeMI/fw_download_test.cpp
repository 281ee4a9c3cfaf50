// SPDX-License-Identifier: Apache-2.0
// Firmware Image Download: how an image is cut, what each piece says, what is reported, and that
// nothing stays open.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "NVMeMI/admin_commands.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::command_error;
using test::completion;
using test::hex;
using test::kDoNotRetry;
using test::LibcPatch;
using test::MctpAnswer;
using test::Outcome;
using test::port;
using test::status_response;
using test::Texts;
using test::to_hex;
using test::unsuccess;
using test::operator+;

constexpr uint32_t kTask = 0x00C0FFEE;
constexpr uint16_t kController = 0x1234;
constexpr uint8_t kAdmin = 0x90;
/// What no outcome writes.
constexpr uint8_t kNoStatus = 0xEE;

/// Bytes of an image, none of which repeats at the distance of a chunk size.
Bytes image_of(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<uint8_t>(1 + i % 251);
    }
    return bytes;
}

Bytes le32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

/// A piece as it must go out, up to its data.
Bytes head_of(uint32_t length, uint32_t dwords_less_one, uint32_t dword_offset) {
    return hex("10 00 00 11") + Bytes{static_cast<uint8_t>(length != 0 ? 1 : 0)} + hex("34 12") +
           Bytes(24) + le32(length) + Bytes(8) + le32(dwords_less_one) + le32(dword_offset) +
           Bytes(16);
}

std::string size_line(size_t size) {
    return "st.st_size=" + std::to_string(size) + "\n";
}
std::string loops_line(unsigned loops, unsigned chunk_size) {
    return "num_loop=" + std::to_string(loops) +
           ", fw_download_chunk_size=" + std::to_string(chunk_size) + "\n";
}
std::string loop_line(unsigned loop, unsigned loops) {
    return "loop:" + std::to_string(loop) + "/" + std::to_string(loops) + "\n";
}
std::string last_line(unsigned padding, unsigned offset) {
    return "append_bytes=" + std::to_string(padding) + ", offset=" + std::to_string(offset) + "\n";
}
std::string sent_line(unsigned size, unsigned dwords, unsigned offset, uint32_t dword10,
                      uint32_t dword11) {
    char text[128];
    std::snprintf(text, sizeof text, "tx_size=%u, num_dw=%u offset=%u, DW10=%ld, dW11=%ld\n", size,
                  dwords, offset, static_cast<long>(dword10), static_cast<long>(dword11));
    return text;
}
std::string percent_line(unsigned percent) {
    return "NVMe FW download percent done=" + std::to_string(percent) + "\n";
}
const std::string kFailedExchange = "nvme_admin_cmd failed. resp.status=0\n";

class NvmeDownload : public test::NvmeTest {
protected:
    NvmeDownload() : path(std::filesystem::temp_directory_path() / "sideband-image-XXXXXX") {
        const int descriptor = mkstemp(path.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        port().global.nvme_fw_update_status = kNoStatus;
    }
    ~NvmeDownload() override {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    void TearDown() override {
        expect_nothing_left();
        NvmeTest::TearDown();
    }

    void expect_nothing_left() {
        EXPECT_EQ(libc.open_descriptors(), 0u);
        EXPECT_EQ(libc.live_mappings(), 0u);
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_EQ(libc.calls["open"], libc.calls["close"] + unopened);
    }

    void write_image(const Bytes& bytes) const {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        EXPECT_TRUE(file.flush().good());
    }

    /// Downloads the file.
    Outcome download(uint32_t chunk_size) {
        return test::run([&] {
            return nvme_fw_image_download(&ctx, kController, path.c_str(), chunk_size, kTask);
        });
    }
    /// Downloads an image; the controller takes each piece. It must work.
    void download_whole(const Bytes& image, uint32_t chunk_size) {
        start_over();
        port().progress.clear();
        write_image(image);
        const size_t pieces = (image.size() + chunk_size - 1) / chunk_size;
        endpoint.answers.assign(pieces, MctpAnswer::of(admin_response()));
        const Outcome outcome = download(chunk_size);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 100);
        EXPECT_EQ(endpoint.calls.size(), pieces);
        EXPECT_EQ(port().syslog, Texts());
    }
    /// Downloads an image of three pieces where the second one gets this answer.
    Outcome download_with(const std::vector<MctpAnswer>& second) {
        start_over();
        port().progress.clear();
        port().global.nvme_fw_update_status = kNoStatus;
        write_image(image_of(12));
        endpoint.answers = {MctpAnswer::of(admin_response())};
        endpoint.answers.insert(endpoint.answers.end(), second.begin(), second.end());
        return download(4);
    }
    /// Expects that nothing was sent and this was the outcome.
    void expect_refused(const Outcome& outcome, uint8_t expected_status) {
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), expected_status);
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_TRUE(port().progress.empty());
    }

    static uint8_t status() { return port().global.nvme_fw_update_status; }

    /// The log, the places in front of the messages included.
    static Texts logged() { return test::without_line(port().console, "nvme_fw_image_download"); }
    /// Messages with the place that stands in front of each.
    static Texts placed(const Texts& messages) {
        Texts texts;
        for (const std::string& message : messages) {
            texts.emplace_back("[nvme_fw_image_download]");
            texts.push_back(message);
        }
        return texts;
    }
    /// What is logged of the second of three pieces of 4 bytes before its answer.
    static Texts until_second_piece() {
        return placed({size_line(12), loops_line(3, 4), loop_line(0, 3), sent_line(71, 1, 0, 0, 0),
                       percent_line(0), loop_line(1, 3), sent_line(71, 1, 4, 0, 1)});
    }
    static Texts joined(Texts a, const Texts& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }

    std::string path;
    int unopened = 0;  ///< calls of open() that were made to fail or failed
};

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
    EXPECT_EQ(port().progress,
              (std::vector<std::pair<uint32_t, unsigned>>{{kTask, 0}, {kTask, 50}}));
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
        EXPECT_EQ(port().progress, (std::vector<std::pair<uint32_t, unsigned>>{{kTask, 0}}));
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
    EXPECT_EQ(port().progress.size(), 1024u);
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
    for (size_t size = 1; size <= 20; size++) {
        for (uint32_t chunk_size = 1; chunk_size <= 21; chunk_size++) {
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

TEST_F(NvmeDownload, EveryPercentageFrom0To99IsReported) {
    std::vector<unsigned> seen;
    endpoint.on_call = [&] { seen.push_back(status()); };
    download_whole(image_of(400), 4);
    // A piece sees what the one in front of it has left.
    ASSERT_EQ(seen.size(), 100u);
    ASSERT_EQ(port().progress.size(), 100u);
    EXPECT_EQ(seen[0], unsigned{kNoStatus});
    for (unsigned i = 0; i < 100; i++) {
        EXPECT_EQ(port().progress[i], (std::pair<uint32_t, unsigned>{kTask, i}));
        EXPECT_EQ(seen[i], i == 0 ? kNoStatus : i - 1);
    }
    EXPECT_EQ(status(), 100);
}

// ---- What is refused before the first request ----

TEST_F(NvmeDownload, NoPathIsStatus202) {
    const Outcome outcome =
        test::run([&] { return nvme_fw_image_download(&ctx, 0, nullptr, 0, kTask); });
    expect_refused(outcome, 202);
    EXPECT_EQ(port().console, Texts());
}

TEST_F(NvmeDownload, AChunkSizeOf0IsStatus205) {
    expect_refused(download(0), 205);
    EXPECT_EQ(logged(), placed({"NVMe fw_download_chunk_size should not be 0\n"}));
    EXPECT_EQ(libc.calls["open"], 0);
}

TEST_F(NvmeDownload, AChunkSizeAbove4096IsStatus205) {
    write_image(image_of(8192));
    for (uint32_t chunk_size : {4097u, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX}) {
        start_over();
        expect_refused(download(chunk_size), 205);
        EXPECT_EQ(logged(), placed({"NVMe fw_download_chunk_size should not be above 4096\n"}));
    }
    EXPECT_EQ(libc.calls["open"], 0);
}

TEST_F(NvmeDownload, AMissingFileIsStatus200) {
    std::filesystem::remove(path);
    unopened = 1;
    expect_refused(download(4), 200);
    EXPECT_EQ(port().console, Texts());
    EXPECT_EQ(port().syslog, Texts{"nvme_fw_image_download, can't open " + path + "\n"});
}

TEST_F(NvmeDownload, ADirectoryIsStatus200) {
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    unopened = 1;
    expect_refused(download(4), 200);
}

TEST_F(NvmeDownload, AFileThatIsNoRegularOneIsStatus201) {
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expect_refused(download(4), 201);
    EXPECT_EQ(port().console, Texts());
    EXPECT_EQ(port().syslog, Texts{"nvme_fw_image_download, " + path + " is no image file\n"});
}

TEST_F(NvmeDownload, AFileWhoseOffsetsHaveNo32BitsIsStatus201) {
    // A hole, which takes no room on the disk.
    std::error_code error;
    std::filesystem::resize_file(path, uint64_t{1} << 32, error);
    if (error) {
        GTEST_SKIP() << "the file system of " << path << " has no files of 4 GiB";
    }
    expect_refused(download(4096), 201);
}

TEST_F(NvmeDownload, AFailedOpenIsStatus200) {
    write_image(image_of(12));
    libc.fail["open"] = 1;
    unopened = 1;
    expect_refused(download(4), 200);
}

TEST_F(NvmeDownload, AFailedFstatIsStatus201) {
    write_image(image_of(12));
    libc.fail["fstat"] = 1;
    expect_refused(download(4), 201);
}

TEST_F(NvmeDownload, NoMappingIsNeeded) {
    // A mapping would end the process when somebody truncates the file.
    libc.fail["mmap"] = LibcPatch::EVERY;
    download_whole(image_of(12), 4);
    EXPECT_EQ(libc.calls["mmap"], 0);
}

// ---- A file that fails meanwhile ----

TEST_F(NvmeDownload, EachFailedReadIsStatus201) {
    for (int nth = 1; nth <= 3; nth++) {
        SCOPED_TRACE(nth);
        libc.fail["pread"] = nth;
        const MctpAnswer good = MctpAnswer::of(admin_response());
        const Outcome outcome = download_with({good, good});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(status(), 201);
        EXPECT_EQ(endpoint.calls.size(), static_cast<size_t>(nth - 1));
        EXPECT_EQ(port().progress.size(), static_cast<size_t>(nth - 1));
        expect_nothing_left();
    }
    EXPECT_EQ(libc.fail["pread"], 0);
}

TEST_F(NvmeDownload, ReadsThatGiveFewerBytesAreContinued) {
    for (size_t at_most : {size_t{1}, size_t{3}, size_t{4095}}) {
        libc.read_at_most = at_most;
        const Bytes image = image_of(4097);
        download_whole(image, 4096);
        EXPECT_EQ(endpoint.calls.at(0).bytes,
                  head_of(4096, 1023, 0) + Bytes(image.begin(), image.end() - 1));
        EXPECT_EQ(endpoint.calls.at(1).bytes, head_of(4, 0, 1024) + hex("51 00 00 00"));
    }
}

TEST_F(NvmeDownload, AFileThatShrinksMeanwhileIsStatus201) {
    for (uintmax_t left : {0u, 3u, 4u, 7u}) {
        SCOPED_TRACE(left);
        endpoint.on_call = [&] { std::filesystem::resize_file(path, left); };
        const MctpAnswer good = MctpAnswer::of(admin_response());
        const Outcome outcome = download_with({good, good});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(status(), 201);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(port().syslog,
                  Texts{"nvme_fw_image_download, the image file has become shorter\n"});
    }
}

TEST_F(NvmeDownload, AFileThatGrowsMeanwhileKeepsTheSizeItHad) {
    endpoint.on_call = [&] { std::filesystem::resize_file(path, 100); };
    download_whole(image_of(12), 4);
    EXPECT_EQ(endpoint.calls.size(), 3u);
}

// ---- What the device answers ----

TEST_F(NvmeDownload, AFailedExchangeIsStatus204) {
    for (int32_t failure : {-1, -57, INT32_MIN, 0}) {
        const Outcome outcome = download_with({3, MctpAnswer::failure(failure)});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), 4u);
        EXPECT_EQ(port().progress, (std::vector<std::pair<uint32_t, unsigned>>{{kTask, 0}}));
        EXPECT_EQ(logged(), joined(until_second_piece(), placed({kFailedExchange})));
    }
}

TEST_F(NvmeDownload, EachExchangeMadeToFailEndsTheDownload) {
    for (size_t good = 0; good < 3; good++) {
        start_over();
        port().progress.clear();
        write_image(image_of(12));
        endpoint.answers.assign(good, MctpAnswer::of(admin_response()));
        EXPECT_EQ(download(4).result, -1);
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), good + 3);
        EXPECT_EQ(port().progress.size(), good);
        expect_nothing_left();
    }
}

TEST_F(NvmeDownload, EveryStatusIsStatus206) {
    for (unsigned value = 2; value < 256; value++) {
        SCOPED_TRACE(value);
        const Outcome outcome = download_with({MctpAnswer::of(
            status_response(static_cast<uint8_t>(value), hex("02 1b 00"), kAdmin))});
        EXPECT_EQ(outcome.result, static_cast<int32_t>(value));
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 206);
        EXPECT_EQ(endpoint.calls.size(), 2u);
        const std::string text =
            value == 4 ? "[print_resp_error:58] Invalid parameter at request byte 0x1b, bit 2\n"
                       : unsuccess(value);
        EXPECT_EQ(logged(), joined(until_second_piece(), {text}));
    }
}

TEST_F(NvmeDownload, EveryStatusCodeIsStatus205) {
    for (unsigned code = 1; code < 256; code++) {
        SCOPED_TRACE(code);
        const uint32_t type = code % 8;
        const uint32_t dword3 = completion(code, type) | (code % 2 != 0 ? kDoNotRetry : 0);
        const Outcome outcome = download_with({MctpAnswer::of(admin_response({}, dword3))});
        EXPECT_EQ(outcome.result, static_cast<int32_t>(dword3));
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 205);
        EXPECT_EQ(logged(), joined(until_second_piece(), {command_error(type, code)}));
    }
}

TEST_F(NvmeDownload, ATruncatedResponseIsStatus204) {
    for (size_t length = 1; length < 19; length++) {
        SCOPED_TRACE(length);
        Bytes response = admin_response();
        response.resize(length);
        const Outcome outcome = download_with({MctpAnswer::of(response)});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), 2u);
        EXPECT_EQ(logged(), joined(until_second_piece(), placed({kFailedExchange})));
        EXPECT_EQ(port().syslog.size(), 1u);
    }
}

TEST_F(NvmeDownload, AResponseLongerThanItsRoomIsStatus204) {
    EXPECT_EQ(download_with({MctpAnswer::of(admin_response(Bytes(1)))}).result, -1);
    EXPECT_EQ(status(), 204);
}

TEST_F(NvmeDownload, ADriveThatNeedsTimeGetsIt) {
    const MctpAnswer later = MctpAnswer::of(status_response(1, Bytes(3), kAdmin));
    const MctpAnswer good = MctpAnswer::of(admin_response());
    EXPECT_EQ(download_with({later, good, later, good}).result, 0);
    EXPECT_EQ(status(), 100);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{200000, 200000}));
}

TEST_F(NvmeDownload, ADriveThatNeedsTimeForEverIsStatus206OrStatus204) {
    const MctpAnswer later = MctpAnswer::of(status_response(1, Bytes(3), kAdmin));
    EXPECT_EQ(download_with({later, later}).result, 1);
    EXPECT_EQ(status(), 206);
    EXPECT_EQ(logged(), joined(until_second_piece(), {unsuccess(1)}));
    EXPECT_EQ(download_with({later}).result, -1);
    EXPECT_EQ(status(), 204);
}

TEST_F(NvmeDownload, NoContextIsStatus204) {
    write_image(image_of(4));
    EXPECT_EQ(nvme_fw_image_download(nullptr, 0, path.c_str(), 4, kTask), -1);
    EXPECT_EQ(status(), 204);
}

// ---- On the wire ----

class NvmeDownloadOnTheWire : public test::NvmeSmbusTest {};

TEST_F(NvmeDownloadOnTheWire, ThePiecesCarryTheirIntegrityChecks) {
    std::string path = std::filesystem::temp_directory_path() / "sideband-image-XXXXXX";
    const int descriptor = mkstemp(path.data());
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(write(descriptor, "\x11\x22\x33\x44\x55", 5), 5);
    close(descriptor);
    const Outcome outcome = exchange({admin_response(), admin_response()}, [&] {
        return nvme_fw_image_download(&ctx, kController, path.c_str(), 4, kTask);
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
    std::filesystem::remove(path);
}

}  // namespace
