// SPDX-License-Identifier: Apache-2.0
// Firmware Image Download against bad arguments, files that fail and devices that refuse: each
// outcome has its status, and nothing stays open.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "NVMeMI/download_fixture.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::command_error;
using test::completion;
using test::head_of;
using test::hex;
using test::image_of;
using test::kDoNotRetry;
using test::kNoStatus;
using test::kTask;
using test::LibcPatch;
using test::loop_line;
using test::loops_line;
using test::MctpAnswer;
using test::Outcome;
using test::percent_line;
using test::placed;
using test::port;
using test::sent_line;
using test::size_line;
using test::status_response;
using test::Texts;
using test::unsuccess;
using test::operator+;

constexpr uint8_t kAdminRequest = 0x90;
const std::string kFailedExchange = "nvme_admin_cmd failed. resp.status=0\n";

/// What is logged up to the second of three pieces of 4 bytes, then these.
Texts until_second_piece(const Texts& behind) {
    Texts texts =
        placed({size_line(12), loops_line(3, 4), loop_line(0, 3), sent_line(71, 1, 0, 0, 0),
                percent_line(0), loop_line(1, 3), sent_line(71, 1, 4, 0, 1)});
    texts.insert(texts.end(), behind.begin(), behind.end());
    return texts;
}

class NvmeDownloadFailure : public test::DownloadTest {
protected:
    /// Downloads an image of three pieces if the second one gets this answer.
    Outcome download_with(const std::vector<MctpAnswer>& second) {
        start_over();
        port().progress.clear();
        port().global.nvme_fw_update_status = kNoStatus;
        image.write(image_of(12));
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
};

// ---- What is refused before the first request ----

TEST_F(NvmeDownloadFailure, NoPathIsStatus202) {
    const Outcome outcome =
        test::run([&] { return nvme_fw_image_download(&ctx, 0, nullptr, 0, kTask); });
    expect_refused(outcome, 202);
    EXPECT_EQ(port().console, Texts());
}

TEST_F(NvmeDownloadFailure, AChunkSizeOf0IsStatus205) {
    expect_refused(download(0), 205);
    EXPECT_EQ(logged(), placed({"NVMe fw_download_chunk_size should not be 0\n"}));
    EXPECT_EQ(libc.calls["open file"], 0);
}

TEST_F(NvmeDownloadFailure, AChunkSizeAbove4096IsStatus205) {
    image.write(image_of(8192));
    for (uint32_t chunk_size : {4097u, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX}) {
        start_over();
        expect_refused(download(chunk_size), 205);
        EXPECT_EQ(logged(), placed({"NVMe fw_download_chunk_size should not be above 4096\n"}));
    }
    EXPECT_EQ(libc.calls["open file"], 0);
}

TEST_F(NvmeDownloadFailure, AMissingFileIsStatus200) {
    std::filesystem::remove(image.path);
    unopened = 1;
    expect_refused(download(4), 200);
    EXPECT_EQ(port().console, Texts());
    EXPECT_EQ(port().syslog, Texts{"nvme_fw_image_download, can't open " + image.path + "\n"});
}

TEST_F(NvmeDownloadFailure, ControlCharactersOfAPathAreShownInTheLog) {
    const std::string path = "/nowhere/\x1b[2J\n";
    unopened = 1;
    expect_refused(
        test::run([&] { return nvme_fw_image_download(&ctx, 0, path.c_str(), 4, kTask); }), 200);
    EXPECT_EQ(port().syslog, Texts{"nvme_fw_image_download, can't open /nowhere/\\x1b[2J\\x0a\n"});
}

TEST_F(NvmeDownloadFailure, ADirectoryIsStatus200) {
    std::filesystem::remove(image.path);
    std::filesystem::create_directory(image.path);
    unopened = 1;
    expect_refused(download(4), 200);
}

TEST_F(NvmeDownloadFailure, AFileThatIsNoRegularOneIsStatus201) {
    std::filesystem::remove(image.path);
    ASSERT_EQ(mkfifo(image.path.c_str(), 0600), 0);
    expect_refused(download(4), 201);
    EXPECT_EQ(port().console, Texts());
    EXPECT_EQ(port().syslog,
              Texts{"nvme_fw_image_download, " + image.path + " is no image file\n"});
}

TEST_F(NvmeDownloadFailure, ADeviceIsStatus201) {
    for (const char* device : {"/dev/null", "/dev/zero"}) {
        expect_refused(test::run([&] { return nvme_fw_image_download(&ctx, 0, device, 4, kTask); }),
                       201);
    }
}

TEST_F(NvmeDownloadFailure, AFileThatSomebodyHasALeaseOnIsStatus200WithoutWaiting) {
    image.write(image_of(12));
    const int holder = open(image.path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    // The system tells the holder to give the lease up, and lets those wait who open the file.
    const auto before = std::signal(SIGIO, SIG_IGN);
    const bool leased = fcntl(holder, F_SETLEASE, F_RDLCK) == 0;
    if (leased) {
        alarm(10);
        unopened = 1;
        expect_refused(download(4), 200);
        alarm(0);
    }
    close(holder);
    std::signal(SIGIO, before);
    if (!leased) {
        GTEST_SKIP() << "the file system has no leases";
    }
}

TEST_F(NvmeDownloadFailure, AFileWhoseOffsetsHaveNo32BitsIsStatus201) {
    // A hole, which takes no room on the disk.
    ASSERT_EQ(truncate(image.path.c_str(), off_t{1} << 32), 0);
    expect_refused(download(4096), 201);
}

TEST_F(NvmeDownloadFailure, AFailedOpenIsStatus200) {
    image.write(image_of(12));
    libc.fail["open"] = 1;
    unopened = 1;
    expect_refused(download(4), 200);
}

TEST_F(NvmeDownloadFailure, AFailedFstatIsStatus201) {
    image.write(image_of(12));
    for (int nth : {1, 2}) {
        libc.fail["fstat"] = nth;
        expect_refused(download(4), 201);
    }
}

TEST_F(NvmeDownloadFailure, NoMappingIsNeeded) {
    // A mapping would end the process when somebody truncates the file.
    libc.fail["mmap"] = LibcPatch::kEvery;
    download_whole(image_of(12), 4);
    EXPECT_EQ(libc.calls["mmap"], 0);
}

// ---- A file that fails meanwhile ----

TEST_F(NvmeDownloadFailure, EachFailedReadIsStatus201) {
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

TEST_F(NvmeDownloadFailure, ReadsThatGiveFewerBytesAreContinued) {
    for (size_t at_most : {size_t{1}, size_t{3}, size_t{4095}}) {
        libc.read_at_most = at_most;
        const Bytes content = image_of(4097);
        download_whole(content, 4096);
        EXPECT_EQ(endpoint.calls.at(0).bytes,
                  head_of(4096, 1023, 0) + Bytes(content.begin(), content.end() - 1));
        EXPECT_EQ(endpoint.calls.at(1).bytes, head_of(4, 0, 1024) + hex("51 00 00 00"));
    }
}

TEST_F(NvmeDownloadFailure, AFileThatShrinksMeanwhileIsStatus201) {
    for (uintmax_t left : {0u, 3u, 4u, 7u}) {
        SCOPED_TRACE(left);
        endpoint.on_call = [&] { std::filesystem::resize_file(image.path, left); };
        const MctpAnswer good = MctpAnswer::of(admin_response());
        const Outcome outcome = download_with({good, good});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(status(), 201);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(port().syslog,
                  Texts{"nvme_fw_image_download, the image file has become shorter\n"});
    }
}

// ---- What the device answers ----

TEST_F(NvmeDownloadFailure, AFailedExchangeIsStatus204) {
    for (int32_t failure : {-1, -57, INT32_MIN, 0}) {
        const Outcome outcome = download_with({3, MctpAnswer::failure(failure)});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), 4u);
        EXPECT_EQ(port().progress, (std::vector<std::pair<uint32_t, unsigned>>{{kTask, 0}}));
        EXPECT_EQ(logged(), until_second_piece(placed({kFailedExchange})));
    }
}

TEST_F(NvmeDownloadFailure, EachExchangeMadeToFailEndsTheDownload) {
    for (size_t good = 0; good < 3; good++) {
        start_over();
        port().progress.clear();
        image.write(image_of(12));
        endpoint.answers.assign(good, MctpAnswer::of(admin_response()));
        EXPECT_EQ(download(4).result, -1);
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), good + 3);
        EXPECT_EQ(port().progress.size(), good);
        expect_nothing_left();
    }
}

TEST_F(NvmeDownloadFailure, EveryStatusIsStatus206) {
    for (unsigned value = 2; value < 256; value++) {
        SCOPED_TRACE(value);
        const Outcome outcome = download_with({MctpAnswer::of(
            status_response(static_cast<uint8_t>(value), hex("02 1b 00"), kAdminRequest))});
        EXPECT_EQ(outcome.result, static_cast<int32_t>(value));
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 206);
        EXPECT_EQ(endpoint.calls.size(), 2u);
        const std::string text =
            value == 4 ? "[print_resp_error:58] Invalid parameter at request byte 0x1b, bit 2\n"
                       : unsuccess(value);
        EXPECT_EQ(logged(), until_second_piece(placed({text})));
    }
}

TEST_F(NvmeDownloadFailure, EveryStatusCodeIsStatus205) {
    for (unsigned code = 1; code < 256; code++) {
        SCOPED_TRACE(code);
        const uint32_t type = code % 8;
        const uint32_t dword3 = completion(code, type) | (code % 2 != 0 ? kDoNotRetry : 0);
        const Outcome outcome = download_with({MctpAnswer::of(admin_response({}, dword3))});
        EXPECT_EQ(outcome.result, static_cast<int32_t>(dword3));
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 205);
        EXPECT_EQ(logged(), until_second_piece(placed({command_error(type, code)})));
    }
}

TEST_F(NvmeDownloadFailure, ATruncatedResponseIsStatus204) {
    for (size_t length = 1; length < 19; length++) {
        SCOPED_TRACE(length);
        Bytes response = admin_response();
        response.resize(length);
        const Outcome outcome = download_with({MctpAnswer::of(response)});
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(status(), 204);
        EXPECT_EQ(endpoint.calls.size(), 2u);
        EXPECT_EQ(logged(), until_second_piece(placed({kFailedExchange})));
        EXPECT_EQ(port().syslog.size(), 1u);
    }
}

TEST_F(NvmeDownloadFailure, AResponseLongerThanItsRoomIsStatus204) {
    EXPECT_EQ(download_with({MctpAnswer::of(admin_response(Bytes(1)))}).result, -1);
    EXPECT_EQ(status(), 204);
}

TEST_F(NvmeDownloadFailure, ADriveThatNeedsTimeGetsIt) {
    const MctpAnswer later = MctpAnswer::of(status_response(1, Bytes(3), kAdminRequest));
    const MctpAnswer good = MctpAnswer::of(admin_response());
    EXPECT_EQ(download_with({later, good, later, good}).result, 0);
    EXPECT_EQ(status(), 100);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{200000, 200000}));
}

TEST_F(NvmeDownloadFailure, ADriveThatNeedsTimeForEverIsStatus206OrStatus204) {
    const MctpAnswer later = MctpAnswer::of(status_response(1, Bytes(3), kAdminRequest));
    EXPECT_EQ(download_with({later, later}).result, 1);
    EXPECT_EQ(status(), 206);
    EXPECT_EQ(logged(), until_second_piece(placed({unsuccess(1)})));
    EXPECT_EQ(download_with({later}).result, -1);
    EXPECT_EQ(status(), 204);
}

TEST_F(NvmeDownloadFailure, NoContextIsStatus204) {
    image.write(image_of(4));
    EXPECT_EQ(nvme_fw_image_download(nullptr, 0, image.path.c_str(), 4, kTask), -1);
    EXPECT_EQ(status(), 204);
}

}  // namespace
