// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool makes of devices that are no drive, and of drives that do not answer well.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool::Json;
using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;

TEST(NvmeErrors, ADeviceThatIsNoDriveIsNotAsked) {
    expect_error(DriveBench().run({"nvme", "health", "gpu0"}), 1,
                 "sideband-sim: nvme health: gpu0: the bring-up of NVMe-MI failed: the device does "
                 "not speak NVMe-MI");
    expect_error(
        DriveBench().run({"nvme", "health", "dead0"}), 1,
        "sideband-sim: nvme health: dead0: Get Endpoint ID failed: no acknowledge from i2c:1:0x50");
}

TEST(NvmeErrors, AControllerThatIsNotThereIsAnInvalidParameter) {
    const Outcome run =
        DriveBench().run({"nvme", "log", "smart", "nvme0", "--controller", "2", "--json"});
    EXPECT_EQ(run.status, 1);
    const Json error = one_document(run.out)["error"];
    EXPECT_EQ(error["message"],
              "nvme0: Get Log Page (0x02) failed: status 0x04 (Invalid Parameter) at request byte "
              "6, bit 0");
    EXPECT_EQ(error["status"], 4);
    EXPECT_EQ(error["status_name"], "Invalid Parameter");
    EXPECT_EQ(error["parameter_error_location"].dump(), R"({"byte":6,"bit":0})");
}

TEST(HostileNvme, AnswersThatAreCutAreReported) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"kind": "no_answer", "set": "management", "opcode": "0x01", "count": 0})",
         "no answer"},
        {R"({"kind": "truncate", "set": "management", "opcode": "0x01", "count": 0, "length": 3})",
         "the answer has 3 bytes only"},
        {R"({"kind": "truncate", "set": "management", "opcode": "0x01", "count": 0, "length": 12})",
         "the answer does not fit the request"},
        {R"({"kind": "status", "set": "management", "opcode": "0x01", "value": 224})",
         "status 0xe0 (vendor specific)"},
    };
    for (const auto& [fault, reason] : cases) {
        SCOPED_TRACE(fault);
        DriveBench bench;
        bench.fault(fault);
        expect_error(bench.run({"nvme", "health", "nvme0"}), 1,
                     std::string("sideband-sim: nvme health: nvme0: NVM Subsystem Health Status "
                                 "Poll failed: ") +
                         reason);
    }
}

TEST(HostileNvme, ALogPageThatIsCutIsNoLogPage) {
    DriveBench bench;
    bench.fault(R"({"kind": "truncate", "set": "admin", "opcode": "0x02", "length": 500})");
    const Outcome run = bench.run({"nvme", "log", "smart", "nvme0"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              "sideband-sim: nvme log smart: nvme0: Get Log Page (0x02) failed: 481 of 512 bytes "
              "came\n");
}

}  // namespace
