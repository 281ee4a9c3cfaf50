// SPDX-License-Identifier: Apache-2.0
// Tests of nvme config.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;

TEST(NvmeConfig, IsReadAndChanged) {
    expect_text(DriveBench().run({"nvme", "config", "get", "nvme0"}),
                "PORT  SMBUS FREQUENCY  UNIT SIZE\n"
                "   0                -         64\n"
                "   1          100 kHz         64\n");
    expect_text(DriveBench().run({"nvme", "config", "set", "nvme0", "--port", "1", "--frequency",
                                  "400", "--unit-size", "128"}),
                "                 BEFORE   AFTER\n"
                "SMBus frequency  100 kHz  400 kHz\n"
                "unit size        64       128\n");
    expect_json(
        DriveBench().run({"nvme", "config", "set", "nvme0", "--clear-changes", "0xffff", "--json"}),
        R"({"endpoint": "nvme0", "health_status_change": 65535})");
    expect_error(
        DriveBench().run({"nvme", "config", "get", "nvme0", "--port", "9"}), 1,
        "sideband-sim: nvme config get: nvme0: Configuration Get (MCTP Transmission Unit Size) of "
        "port 9 failed: status 0x04 (Invalid Parameter) at request byte 11, bit 0");
}

}  // namespace
