// SPDX-License-Identifier: Apache-2.0
// Tests of the command line of the commands nvme.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::DriveBench;
using tool_test::Outcome;

TEST(NvmeErrors, WrongUsageEndsWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"nvme"}, "nvme: a command is required"},
        {{"nvme", "identify"}, "nvme identify: a command is required"},
        {{"nvme", "identify", "namespace", "nvme0"}, "nvme identify namespace: NSID is required"},
        {{"nvme", "feature", "get", "nvme0", "4", "--select", "last"},
         "nvme feature get: --select: last is none of current|default|saved|capabilities"},
        {{"nvme", "config", "set", "nvme0"},
         "nvme config set: --frequency, --unit-size or --clear-changes is required"},
        {{"nvme", "config", "set", "nvme0", "--unit-size", "64"},
         "nvme config set: --port is required"},
        {{"nvme", "vpd", "write", "nvme0", "0", "1"},
         "nvme vpd write: 1: the data are given as pairs of hex digits"},
        {{"nvme", "fw-download", "nvme0", "image", "--chunk-size", "30"},
         "nvme fw-download: --chunk-size must be a multiple of 4"},
        {{"nvme", "sanitize", "nvme0", "gently"},
         "nvme sanitize: ACTION: gently is none of "
         "exit-failure|block-erase|overwrite|crypto-erase"},
    };
    for (const auto& [arguments, error] : cases) {
        SCOPED_TRACE(error);
        const Outcome run = DriveBench().run(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.err.starts_with(std::string("sideband-sim: ") + error)) << run.err;
    }
}

}  // namespace
