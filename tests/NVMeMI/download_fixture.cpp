// SPDX-License-Identifier: Apache-2.0
// Tests of the image download: an image on disk, the texts of each step, and what must not be left.
#include "NVMeMI/download_fixture.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/numbers.h"

namespace test {

Bytes image_of(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<uint8_t>(1 + i % 251);
    }
    return bytes;
}

Bytes head_of(uint32_t length, uint32_t dwords_less_one, uint32_t dword_offset) {
    return hex("10 00 00 11") + Bytes{static_cast<uint8_t>(length != 0 ? 1 : 0)} + hex("34 12") +
           Bytes(24) + le32(length) + Bytes(8) + le32(dwords_less_one) + le32(dword_offset) +
           Bytes(16);
}

ImageFile::ImageFile() : path(std::filesystem::temp_directory_path() / "sideband-image-XXXXXX") {
    const int descriptor = mkstemp(path.data());
    EXPECT_GE(descriptor, 0);
    close(descriptor);
}

ImageFile::~ImageFile() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

void ImageFile::write(const Bytes& bytes) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(file.flush().good());
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

Texts placed(const Texts& messages) {
    Texts texts;
    for (const std::string& message : messages) {
        texts.emplace_back("[nvme_fw_image_download]");
        texts.push_back(message);
    }
    return texts;
}

void DownloadTest::TearDown() {
    expect_nothing_left();
    NvmeTest::TearDown();
}

void DownloadTest::expect_nothing_left() {
    EXPECT_EQ(libc.open_descriptors(), 0u);
    EXPECT_EQ(libc.live_mappings(), 0u);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(libc.calls["open file"], libc.calls["close"] + unopened);
}

Outcome DownloadTest::download(uint32_t chunk_size) {
    return run([&] {
        return nvme_fw_image_download(&ctx, kController, image.path.c_str(), chunk_size, kTask);
    });
}

void DownloadTest::download_whole(const Bytes& content, uint32_t chunk_size) {
    start_over();
    port().progress.clear();
    image.write(content);
    const size_t pieces = (content.size() + chunk_size - 1) / chunk_size;
    endpoint.answers.assign(pieces, MctpAnswer::of(admin_response()));
    const Outcome outcome = download(chunk_size);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(status(), 100);
    EXPECT_EQ(endpoint.calls.size(), pieces);
    EXPECT_EQ(port().syslog, Texts());
}

}  // namespace test
