// SPDX-License-Identifier: Apache-2.0
// What the tests of the platform library for a Linux machine share: a folder of their own, and a
// board in use.
#ifndef SIDEBAND_TESTS_LINUX_MACHINE_TEST_H
#define SIDEBAND_TESTS_LINUX_MACHINE_TEST_H

#include <gtest/gtest.h>
#include <sched.h>
#include <sideband/platform.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/linux/state.h"

namespace machine_test {

/// A folder that goes away with the test.
class Folder {
public:
    Folder() {
        std::string name = ::testing::TempDir() + "sideband-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    std::string at(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline std::string content_of(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// Puts a file system of the process's own in the place of a folder: nobody else sees it.
/// @return false where nothing can be mounted
inline bool mount_own(const std::string& folder, const char* options) {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", folder.c_str(), "tmpfs", 0, options) == 0;
}

/// What a process of a test ends with that could mount nothing.
inline constexpr int kNoMount = 77;

class MachineTest : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv(machine::kRunFolderVariable);
        machine::lead_console([this](std::string_view line) { console.emplace_back(line); });
    }
    void TearDown() override {
        machine::use_none();
        machine::lead_console({});
    }

    /// A board whose run folder is the test's own.
    machine::Board board() const {
        machine::Board described;
        described.run_folder = folder.at("run");
        return described;
    }

    Folder folder;
    std::vector<std::string> console;  ///< lines of console_log()
};

}  // namespace machine_test

#endif
