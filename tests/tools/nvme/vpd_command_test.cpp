// SPDX-License-Identifier: Apache-2.0
// Tests of nvme vpd and nvme reset.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;

TEST(NvmeVpd, IsReadAndWritten) {
    expect_text(DriveBench().run({"nvme", "vpd", "read", "nvme0", "--length", "18"}),
                "0000  01 02 41 42 43 ff ff ff ff ff ff ff ff ff ff ff  ..ABC...........\n"
                "0010  ff ff                                            ..\n");
    expect_json(DriveBench().run(
                    {"nvme", "vpd", "read", "nvme0", "--offset", "2", "--length", "3", "--json"}),
                R"({"endpoint": "nvme0", "dofst": 2, "dlen": 3, "data": "414243"})");
    expect_text(DriveBench().run({"nvme", "vpd", "write", "nvme0", "2", "44 45"}),
                "2 bytes written at 2\n");
    expect_error(DriveBench().run({"nvme", "vpd", "read", "nvme0", "--offset", "512"}), 1,
                 "sideband-sim: nvme vpd read: nvme0: VPD Read of 256 bytes at 512 failed: status "
                 "0x04 (Invalid Parameter) at request byte 8, bit 0");
}

TEST(NvmeVpd, LongDataGoInSeveralWrites) {
    DriveBench bench;
    bench.drive()["vpd_size"] = 1024;
    bench.drive()["vpd_writes"] = 1;
    expect_error(bench.run({"nvme", "vpd", "write", "nvme0", "0", std::string(2 * 300, '7')}), 1,
                 "sideband-sim: nvme vpd write: nvme0: VPD Write of 44 bytes at 256 failed: status "
                 "0x20 (VPD Updates Exceeded)");
}

/// Whether the drive has so many bytes, the drive says.
TEST(NvmeVpd, TheLastByteThatCanBeNamedIsSent) {
    expect_error(DriveBench().run({"nvme", "vpd", "write", "nvme0", "65535", "2a"}), 1,
                 "sideband-sim: nvme vpd write: nvme0: VPD Write of 1 bytes at 65535 failed: "
                 "status 0x04 (Invalid Parameter) at request byte 8, bit 0");
}

TEST(NvmeReset, NeedsNoAnswer) {
    expect_text(DriveBench().run({"nvme", "reset", "nvme0"}),
                "the reset was sent; a drive that resets does not answer\n");
    DriveBench bench;
    bench.fault(R"({"kind": "status", "set": "management", "opcode": "0x07", "value": 7})");
    expect_error(bench.run({"nvme", "reset", "nvme0"}), 1,
                 "sideband-sim: nvme reset: nvme0: Reset failed: status 0x07 (Access Denied)");
}

}  // namespace
