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
        {{"nvme", "ns", "create", "nvme0", "--blocks=-1"},
         "nvme ns create: Could not convert: --blocks = -1"},
        {{"nvme", "ns", "create", "nvme0", "--blocks=-18446744073709550592"},
         "nvme ns create: Could not convert: --blocks = -18446744073709550592"},
        {{"nvme", "ns", "create", "nvme0", "--blocks", "18446744073709551616"},
         "nvme ns create: Could not convert: --blocks = 18446744073709551616"},
        {{"nvme", "ns", "create", "nvme0", "--blocks", " 12"},
         "nvme ns create: Could not convert: --blocks =  12"},
        {{"nvme", "ns", "delete", "nvme0", "4294967296", "--yes"},
         "nvme ns delete: Could not convert: NSID = 4294967296"},
        {{"nvme", "config", "set", "nvme0", "--port", "0", "--frequency", "0100000"},
         "nvme config set: --frequency: 0100000 not in {100,400,1000}"},
        {{"nvme", "vpd", "write", "nvme0", "0", ""}, "nvme vpd write: there are no data to write"},
        {{"nvme", "vpd", "write", "nvme0", "65535", "0102"},
         "nvme vpd write: the data do not fit the VPD"},
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
