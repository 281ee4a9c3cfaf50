// SPDX-License-Identifier: Apache-2.0
// Tests of why a command failed on a Linux machine: each cause in the tool's line and its JSON,
// with a preloaded I2C device behind an adapter that is none.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool;
using tool_test::TemporaryFile;

struct Case {
    const char* name;
    const char* device;  ///< how it behaves
    const char* keys;    ///< of the board
    const char* message;
    const char* cause;
};

const Case kCases[] = {
    {"NotAcknowledged", "nack", "", "Get Endpoint ID failed: I2C bus 3: no acknowledge from 0x9e",
     "not-acknowledged"},
    {"NothingCame", "silent", "", "Get Endpoint ID failed: no answer", "no-answer"},
    {"WrongPec", "wrong-pec", "",
     "Get Endpoint ID failed: I2C bus 3: a block has come whose PEC is wrong", "wrong-checksum"},
    {"WrongTag", "wrong-tag", "", "Get Endpoint ID failed: only answers to something else came",
     "wrong-tag"},
    {"TooShort", "short", "", "Get Endpoint ID failed: the answer has 2 bytes only",
     "malformed-answer"},
    {"Code", "code", "", "GetTID failed: completion code 0x05 (ERROR_UNSUPPORTED_PLDM_CMD)",
     "device-code"},
    {"NoPower", "tid", R"("power": {"main": {"file": "/none/power"}}, )",
     "Get Endpoint ID failed: the host's main power is off", "no-power"},
};

class LinuxCause : public ::testing::TestWithParam<Case> {
protected:
    LinuxCause() : folder_(::testing::TempDir() + "sideband-cause-XXXXXX") {
        mkdtemp(folder_.data());
        queue_ = folder_ + "/queue";
        mkfifo(queue_.c_str(), 0600);
        setenv("LD_PRELOAD", std::getenv("SIDEBAND_I2C_DEVICE"), 1);
        const char* const before = std::getenv("ASAN_OPTIONS");
        const std::string options =
            std::string(before != nullptr ? before : "") + ":verify_asan_link_order=0";
        setenv("ASAN_OPTIONS", options.c_str(), 1);
        setenv("SIDEBAND_TEST_QUEUE", queue_.c_str(), 1);
        set_run_folder(folder_ + "/run");
    }
    ~LinuxCause() override {
        unsetenv("LD_PRELOAD");
        unsetenv("SIDEBAND_TEST_QUEUE");
        unsetenv("SIDEBAND_TEST_I2C");
        unsetenv("SIDEBAND_RUN_FOLDER");
        std::filesystem::remove_all(folder_);
    }
    static void set_run_folder(const std::string& path) {
        setenv("SIDEBAND_RUN_FOLDER", path.c_str(), 1);
    }
    /// A board with gpu0 behind the queue.
    std::string board_with(const std::string& keys) const {
        return R"({"name": "rack7", )" + keys +
               R"("i2c": {"device": "/dev/null", "slave_queue": ")" + queue_ +
               R"("}, "devices": [{"name": "gpu0", "bus": 3, "address": "0x9e",
               "read_timeout_ms": 200}]})";
    }
    void expect_cause(const std::string& keys, const std::string& message, const char* cause) {
        const TemporaryFile board(board_with(keys));
        const std::string whole = "gpu0: " + message;
        expect_error(run_tool({"--board", board.path(), "pldm", "info", "gpu0"}), 1,
                     "sideband: pldm info: " + whole);
        const Outcome failed =
            run_tool({"--json", "--board", board.path(), "pldm", "info", "gpu0"});
        const Json error = one_document(failed.out)["error"];
        EXPECT_EQ(error["message"], whole);
        EXPECT_EQ(error["cause"], cause);
        EXPECT_EQ(error["exit_status"], 1);
    }

    std::string folder_;
    std::string queue_;
};

TEST_P(LinuxCause, IsToldInTheLineAndToPrograms) {
    const Case& one = GetParam();
    setenv("SIDEBAND_TEST_I2C", one.device, 1);
    expect_cause(one.keys, one.message, one.cause);
}

INSTANTIATE_TEST_SUITE_P(All, LinuxCause, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

class LinuxLockCause : public LinuxCause {};

/// What is no folder cannot have the file of the locks.
TEST_P(LinuxLockCause, IsToldInTheLineAndToPrograms) {
    setenv("SIDEBAND_TEST_I2C", GetParam().device, 1);
    std::ofstream(folder_ + "/file") << "no folder";
    set_run_folder(folder_ + "/file");
    expect_cause("", "Get Endpoint ID failed: locks: " + folder_ + "/file/locks: Not a directory",
                 GetParam().cause);
}

INSTANTIATE_TEST_SUITE_P(Lock, LinuxLockCause,
                         ::testing::Values(Case{"Refused", "tid", "", "", "lock-refused"}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
