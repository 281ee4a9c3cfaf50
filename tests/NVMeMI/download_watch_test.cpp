// SPDX-License-Identifier: Apache-2.0
// An image file that somebody changes while it is sent: nothing of another image goes out.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "NVMeMI/download_fixture.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::image_of;
using test::MctpAnswer;
using test::Outcome;
using test::port;
using test::Texts;

/// What somebody does to the image of 12 bytes.
struct Change {
    const char* name;
    void (*make)(const std::string& path);
};

/// File times go in steps of a few milliseconds: the change is not to fall into the first one's.
void wait_for_the_clock() {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

void write_at(const std::string& path, std::streamoff offset, const Bytes& bytes) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offset);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(file.flush().good());
}

void rewrite(const std::string& path) {
    write_at(path, 0, Bytes(12, 0xEE));
}

void rewrite_the_last_byte(const std::string& path) {
    write_at(path, 11, {0xEE});
}

void rewrite_and_set_the_time_back(const std::string& path) {
    struct stat before;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    rewrite(path);
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

void touch(const std::string& path) {
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), nullptr, 0), 0);
}

void append(const std::string& path) {
    std::filesystem::resize_file(path, 100);
}

void replace(const std::string& path) {
    const std::string other = path + "-new";
    std::ofstream(other, std::ios::binary) << "another image";
    ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
}

constexpr Change kChanges[] = {
    {"Rewritten", rewrite},
    {"RewrittenInOneByte", rewrite_the_last_byte},
    {"RewrittenWithItsTimeSetBack", rewrite_and_set_the_time_back},
    {"Touched", touch},
    {"Grown", append},
    {"Replaced", replace},
};

class NvmeDownloadWatched : public test::DownloadTest, public testing::WithParamInterface<Change> {
protected:
    NvmeDownloadWatched() {
        image.write(image_of(12));
        endpoint.answers.assign(3, MctpAnswer::of(admin_response()));
    }

    /// Downloads three pieces of 4 bytes: this many of them are sent.
    void expect_ended(size_t pieces) {
        const Outcome outcome = download(4);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(status(), 201);
        ASSERT_EQ(endpoint.calls.size(), pieces);
        EXPECT_EQ(port().progress.size(), pieces);
        EXPECT_EQ(port().syslog, Texts{"nvme_fw_image_download, the image file has changed\n"});
    }
    void change() const {
        wait_for_the_clock();
        GetParam().make(image.path);
    }
};

INSTANTIATE_TEST_SUITE_P(Image, NvmeDownloadWatched, testing::ValuesIn(kChanges),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(NvmeDownloadWatched, DuringTheFirstPieceEndsTheDownload) {
    endpoint.on_call = [&] {
        endpoint.on_call = nullptr;
        change();
    };
    expect_ended(1);
}

TEST_P(NvmeDownloadWatched, DuringTheSecondPieceEndsTheDownload) {
    endpoint.on_call = [&] {
        if (endpoint.calls.size() == 2) {
            change();
        }
    };
    expect_ended(2);
}

class NvmeDownloadWatch : public NvmeDownloadWatched {};

TEST_F(NvmeDownloadWatch, AChangeRightBeforeTheReadIsSeenBehindIt) {
    libc.before["pread"] = [&] {
        wait_for_the_clock();
        rewrite(image.path);
    };
    expect_ended(0);
}

TEST_F(NvmeDownloadWatch, AnImageThatGetsShorterBehindTheNextPieceEndsTheDownload) {
    endpoint.on_call = [&] { std::filesystem::resize_file(image.path, 11); };
    expect_ended(1);
}

TEST_F(NvmeDownloadWatch, AStampThatCannotBeHadEndsTheDownload) {
    for (int nth : {3, 4, 5}) {
        SCOPED_TRACE(nth);
        start_over();
        port().progress.clear();
        endpoint.answers.assign(3, MctpAnswer::of(admin_response()));
        libc.fail["fstat"] = nth;
        expect_ended(static_cast<size_t>(nth - 3));
    }
}

TEST_F(NvmeDownloadWatch, ReadersDoNotDisturb) {
    endpoint.on_call = [&] {
        wait_for_the_clock();
        std::ifstream reader(image.path, std::ios::binary);
        EXPECT_EQ(reader.get(), 1);
    };
    EXPECT_EQ(download(4).result, 0);
    EXPECT_EQ(status(), 100);
}

}  // namespace
