// SPDX-License-Identifier: Apache-2.0
// Tests of nvme ds.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::Outcome;

TEST(NvmeDs, ShowsEveryDataStructure) {
    expect_text(DriveBench().run({"nvme", "ds", "subsystem", "nvme0"}),
                "nump  1\nmjr   1\nmnr   2\n");
    expect_text(DriveBench().run({"nvme", "ds", "controllers", "nvme0"}), "1\n5\n");
    expect_json(DriveBench().run({"nvme", "ds", "port", "nvme0", "1", "--json"}),
                R"({"endpoint": "nvme0", "port": 1, "prttyp": 2, "mmctptus": 250, "meb": 0,
                    "cvpdaddr": 166, "mvpdfreq": 3, "cmeaddr": 58, "mmefreq": 3, "nvmebm": 0})");
    expect_json(DriveBench().run({"nvme", "ds", "controller", "nvme0", "5", "--json"}),
                R"({"endpoint": "nvme0", "controller": 5, "portid": 0, "prii": 0, "pri": 0,
                    "pcivid": 4660, "pcidid": 8, "pcisvid": 4660, "pcissid": 8})");
    const Outcome commands = DriveBench().run({"nvme", "ds", "commands", "nvme0"});
    EXPECT_TRUE(contains(commands.out, "TYPE  OPCODE  NAME\n   1  0x06    VPD Write\n"))
        << commands.out;
    EXPECT_TRUE(contains(commands.out, "   2  0x84    Sanitize\n")) << commands.out;
}

}  // namespace
