// SPDX-License-Identifier: Apache-2.0
// Files read by position: what is opened, what is read, and what tells one from another.
#include "common/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/bytes.h"

namespace {

using sideband::File;
using sideband::FileStamp;
using test::Bytes;

class FileTest : public ::testing::Test {
protected:
    FileTest() {
        std::string pattern = ::testing::TempDir() + "sideband-file-XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        directory_ = pattern;
    }
    ~FileTest() override { std::filesystem::remove_all(directory_); }

    std::string path(const char* name) const { return directory_ / name; }
    void write(const char* name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }
    FileStamp stamp(const char* name) const {
        const File file(sideband::open_regular(path(name).c_str(), O_RDONLY));
        FileStamp found{};
        EXPECT_TRUE(sideband::stamp_of(file.descriptor(), found));
        return found;
    }

private:
    std::filesystem::path directory_;
};

TEST_F(FileTest, ADescriptorIsClosedWithItsScopeUnlessItIsReleased) {
    write("a", "text");
    int closed = -1;
    int released = -1;
    {
        const File file(sideband::open_regular(path("a").c_str(), O_RDONLY));
        ASSERT_TRUE(file);
        closed = file.descriptor();
    }
    EXPECT_EQ(fcntl(closed, F_GETFD), -1);
    {
        File file(sideband::open_regular(path("a").c_str(), O_RDONLY));
        released = file.release();
        EXPECT_FALSE(file);
    }
    EXPECT_EQ(fcntl(released, F_GETFD), FD_CLOEXEC);
    close(released);
}

TEST_F(FileTest, NothingButARegularFileIsOpenedAndNobodyIsWaitedFor) {
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    EXPECT_LT(sideband::open_regular(path("fifo").c_str(), O_RDONLY), 0);
    EXPECT_LT(sideband::open_regular(path("fifo").c_str(), O_WRONLY), 0);
    EXPECT_LT(sideband::open_regular(path("").c_str(), O_RDONLY), 0);
    EXPECT_LT(sideband::open_regular("/dev/null", O_RDONLY), 0);
    EXPECT_LT(sideband::open_regular(path("absent").c_str(), O_RDONLY), 0);
}

TEST_F(FileTest, AFileIsCreatedWithItsMode) {
    const File file(sideband::open_regular(path("new").c_str(), O_WRONLY | O_CREAT, 0600));
    ASSERT_TRUE(file);
    struct stat status {};
    ASSERT_EQ(fstat(file.descriptor(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(FileTest, ReadsFromAPositionAsMuchAsThereIs) {
    write("a", "0123456789");
    const File file(sideband::open_regular(path("a").c_str(), O_RDONLY));
    Bytes target(4, 'x');
    EXPECT_EQ(sideband::read_file(file.descriptor(), 3, target), 4u);
    EXPECT_EQ(std::string(target.begin(), target.end()), "3456");
    EXPECT_EQ(sideband::read_file(file.descriptor(), 8, target), 2u);
    EXPECT_EQ(std::string(target.begin(), target.end()), "8956");
    EXPECT_EQ(sideband::read_file(file.descriptor(), 10, target), 0u);
    EXPECT_EQ(sideband::read_file(file.descriptor(), 1000, target), 0u);
    EXPECT_EQ(sideband::read_file(-1, 0, target), 0u);
}

TEST_F(FileTest, AStampTellsAFileFromAnotherAndFromItselfAfterAChange) {
    write("a", "text");
    write("b", "text");
    const FileStamp first = stamp("a");
    EXPECT_EQ(first.size, 4u);
    EXPECT_EQ(first, stamp("a"));
    EXPECT_NE(first, stamp("b"));
    write("a", "longer text");
    EXPECT_NE(first, stamp("a"));
    FileStamp none{};
    EXPECT_FALSE(sideband::stamp_of(-1, none));
}

}  // namespace
