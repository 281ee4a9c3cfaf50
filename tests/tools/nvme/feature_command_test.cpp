// SPDX-License-Identifier: Apache-2.0
// Tests of nvme feature and nvme lockdown.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;

TEST(NvmeFeature, IsReadAndChanged) {
    expect_text(DriveBench().run({"nvme", "feature", "get", "nvme0", "4"}),
                "fid     0x04 (Temperature Threshold)\n"
                "sel     0 (current)\n"
                "dword0  0x00000157\n");
    expect_text(
        DriveBench().run({"nvme", "feature", "get", "nvme0", "7", "--select", "capabilities"}),
        "fid     0x07 (Number of Queues)\n"
        "sel     3 (capabilities)\n"
        "dword0  0x00000000 (none)\n");
    expect_json(
        DriveBench().run({"nvme", "feature", "get", "nvme0", "0x0e", "--length", "8", "--json"}),
        R"({"endpoint": "nvme0", "fid": 14, "sel": 0, "dword0": 0,
                    "data": "0000000000000000"})");
    expect_text(DriveBench().run({"nvme", "feature", "set", "nvme0", "4", "0x160", "--save"}),
                "                                      BEFORE      AFTER\n"
                "feature 0x04 (Temperature Threshold)  0x00000157  0x00000160\n");
    expect_error(DriveBench().run({"nvme", "feature", "set", "nvme0", "7", "1"}), 1,
                 "sideband-sim: nvme feature set: nvme0: Set Features of feature 0x07 (Number of "
                 "Queues) failed: status code type 1 (Command Specific Status), status code 0x0e "
                 "(Feature Not Changeable)");
}

TEST(NvmeLockdown, ProhibitsACommand) {
    expect_text(DriveBench().run({"nvme", "lockdown", "nvme0", "admin", "0x80"}),
                "admin command 0x80 (Format NVM) is prohibited\n");
    expect_json(DriveBench().run({"nvme", "lockdown", "nvme0", "feature", "4", "--allow",
                                  "--interface", "management", "--json"}),
                R"({"endpoint": "nvme0", "scp": 2, "prhbt": false, "ifc": 2, "ofi": 4})");
    expect_error(DriveBench().run({"nvme", "lockdown", "nvme0", "mi", "0x40"}), 1,
                 "sideband-sim: nvme lockdown: nvme0: Lockdown of NVMe-MI command 0x40 "
                 "(reserved) failed: status code type 1 (Command Specific Status), status code "
                 "0x28 (Prohibition of Command "
                 "Execution Not Supported)");
}

}  // namespace
