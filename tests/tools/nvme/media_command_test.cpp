// SPDX-License-Identifier: Apache-2.0
// Tests of nvme format and nvme sanitize, and of the question before data are destroyed.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::Outcome;
using tool_test::run_tool_typing;

TEST(NvmeFormat, KeepsTheFormatUnlessToldOtherwise) {
    expect_json(DriveBench().run({"nvme", "format", "nvme0", "3", "--controller", "5", "--yes",
                                  "--erase", "crypto", "--json"}),
                R"({"endpoint": "nvme0", "nsid": 3, "lbaf": 1, "ses": 2})");
    expect_text(DriveBench().run({"nvme", "format", "nvme0", "0xffffffff", "--lbaf", "1", "--yes"}),
                "every namespace has been formatted with LBA format 1\n");
    expect_error(DriveBench().run({"nvme", "format", "nvme0", "1", "--lbaf", "7", "--yes"}), 1,
                 "sideband-sim: nvme format: nvme0: Format NVM of namespace 1 failed: status code "
                 "type 1 (Command Specific Status), status code 0x0a (Invalid Format)");
}

TEST(NvmeSanitize, IsStartedAndFollowedToItsEnd) {
    const Outcome started = DriveBench().run({"nvme", "sanitize", "nvme0", "block-erase", "--yes"});
    EXPECT_EQ(started.status, 0) << started.err;
    EXPECT_TRUE(contains(started.out, "sstat   0x0002 (in progress)\n")) << started.out;
    EXPECT_TRUE(contains(started.out, "scdw10  0x00000002\n")) << started.out;
    const Outcome done = DriveBench().run({"nvme", "sanitize", "nvme0", "overwrite", "--passes",
                                           "2", "--pattern", "0xa5a5a5a5", "--invert",
                                           "--unrestricted", "--no-deallocate", "--yes", "--wait"});
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_TRUE(contains(done.out, "\n100 %\nsprog   65535\n")) << done.out;
    EXPECT_TRUE(contains(done.out, " (completed)\nscdw10  0x0000032b\n")) << done.out;
    DriveBench failing;
    failing.drive()["sanitize_fails"] = true;
    const Outcome failed =
        failing.run({"nvme", "sanitize", "nvme0", "crypto-erase", "--yes", "--wait"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(
        failed.err,
        "sideband-sim: nvme sanitize: nvme0: the sanitize operation failed: the drive says so "
        "in its log\n");
}

TEST(NvmeConfirmation, WhatDestroysDataNeedsYes) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"nvme", "format", "nvme0", "1"},
         "nvme format: Format NVM destroys what namespace 1 of nvme0 holds: this needs --yes"},
        {{"nvme", "sanitize", "nvme0", "overwrite"},
         "nvme sanitize: Sanitize destroys all that nvme0 holds: this needs --yes"},
        {{"nvme", "ns", "delete", "nvme0", "0xffffffff"},
         "nvme ns delete: This deletes every namespace of nvme0 with all data: this needs --yes"},
    };
    for (const auto& [arguments, error] : cases) {
        expect_error(DriveBench().run(arguments), 2, std::string("sideband-sim: ") + error);
    }
}

TEST(NvmeConfirmation, IsAskedForOnATerminal) {
    const std::vector<std::string> format = {"nvme", "format", "nvme0", "1"};
    const std::string question =
        "Format NVM destroys what namespace 1 of nvme0 holds. Go on? [y/N] ";
    for (const char* yes : {"y\n", "Y\n", "yes\n"}) {
        const Outcome run = run_tool_typing(format, yes);
        EXPECT_EQ(run.status, 0) << yes;
        EXPECT_EQ(run.err, question);
        EXPECT_EQ(run.out, "namespace 1 has been formatted with LBA format 0\n");
    }
    for (const char* no : {"\n", "n\n", "yesterday\n", "\x04"}) {
        const Outcome run = run_tool_typing(format, no);
        EXPECT_EQ(run.status, 2) << no;
        EXPECT_EQ(run.err,
                  question + "sideband-sim: nvme format: not confirmed: nothing was done\n");
        EXPECT_EQ(run.out, "");
    }
}

}  // namespace
