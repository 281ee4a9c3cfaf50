// SPDX-License-Identifier: Apache-2.0
// A directory for marker files and log file of the diagnostic log.
#ifndef SIDEBAND_TESTS_COMMON_DEBUG_LOG_FIXTURE_H
#define SIDEBAND_TESTS_COMMON_DEBUG_LOG_FIXTURE_H

#include <gtest/gtest.h>
#include <sideband/debug_log.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace test {

class DebugLog : public PlatformTest {
protected:
    void SetUp() override { use_directory(); }

    std::string path(const char* name) const { return libc.root + name; }
    void touch(const char* name) const { std::ofstream(path(name)).flush(); }
    bool exists(const char* name) const { return std::filesystem::exists(path(name)); }
    std::string contents(const char* name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// A log file of this many bytes.
    void make_log(size_t size) const {
        std::ofstream(path(DEBUG_LOG_FILE)) << std::string(size, 'x');
    }
    size_t entries() const {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path("/nv")),
                                                 std::filesystem::directory_iterator()));
    }
    std::vector<std::string> lines(const char* name) const {
        std::istringstream text(contents(name));
        std::vector<std::string> found;
        for (std::string line; std::getline(text, line);) {
            found.push_back(line);
        }
        return found;
    }
};

}  // namespace test

#endif
