// SPDX-License-Identifier: Apache-2.0
// Tests of the image download: an image on disk, the texts of each step, and what must not be left.
#ifndef SIDEBAND_TESTS_NVMEMI_DOWNLOAD_FIXTURE_H
#define SIDEBAND_TESTS_NVMEMI_DOWNLOAD_FIXTURE_H

#include <string>
#include <utility>
#include <vector>

#include "NVMeMI/admin_commands.h"

namespace test {

constexpr uint32_t kTask = 0x00C0FFEE;
constexpr uint16_t kController = 0x1234;
/// What no outcome writes.
constexpr uint8_t kNoStatus = 0xEE;

/// Bytes of an image, none of which repeats at the distance of a chunk size.
Bytes image_of(size_t size);

/// A piece as it must go out, up to its data.
Bytes head_of(uint32_t length, uint32_t dwords_less_one, uint32_t dword_offset);

/// The file of an image, as long as this lives.
class ImageFile {
public:
    ImageFile();
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    void write(const Bytes& bytes) const;

    std::string path;
};

// The messages of the steps.
std::string size_line(size_t size);
std::string loops_line(unsigned loops, unsigned chunk_size);
std::string loop_line(unsigned loop, unsigned loops);
std::string last_line(unsigned padding, unsigned offset);
std::string sent_line(unsigned size, unsigned dwords, unsigned offset, uint32_t dword10,
                      uint32_t dword11);
std::string percent_line(unsigned percent);

/// Messages with the place that stands in front of each.
Texts placed(const Texts& messages);

class DownloadTest : public NvmeTest {
protected:
    DownloadTest() { port().global.nvme_fw_update_status = kNoStatus; }
    void TearDown() override;

    void expect_nothing_left();

    /// Downloads the file.
    Outcome download(uint32_t chunk_size);
    /// Downloads an image; the controller takes each piece. It must work.
    void download_whole(const Bytes& image, uint32_t chunk_size);

    static uint8_t status() { return port().global.nvme_fw_update_status; }
    /// The log, the places in front of the messages included.
    static Texts logged() { return without_line(port().console, "nvme_fw_image_download"); }

    ImageFile image;
    int unopened = 0;  ///< calls of open() that were made to fail or failed
};

}  // namespace test

#endif
