// SPDX-License-Identifier: Apache-2.0
// Tests of nvme log.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_document;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::Outcome;

TEST(NvmeLog, ShowsSmart) {
    const Outcome text = DriveBench().run({"nvme", "log", "smart", "nvme0"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(
        text.out.starts_with("critical_warning                          0x00 (none)\n"
                             "temperature                               36 degC (309 K)\n"
                             "available_spare                           100 %\n"
                             "available_spare_threshold                 10 %\n"
                             "percentage_used                           3 %\n"))
        << text.out;
    const Json document =
        expect_document(DriveBench().run({"--json", "nvme", "log", "smart", "nvme0"}));
    EXPECT_EQ(document["temperature"], 309);
    EXPECT_EQ(document["data_units_read"], 123456);
    EXPECT_EQ(document["power_on_hours"], 4711);
    EXPECT_EQ(document["temperature_sensor_1"], 309);
    EXPECT_FALSE(document.contains("temperature_sensor_2"));
}

TEST(NvmeLog, ShowsFirmwareSlots) {
    expect_text(DriveBench().run({"nvme", "log", "firmware", "nvme0"}),
                "SLOT  REVISION  STATE\n"
                "   1  EX10      active\n"
                "   2  EX09\n");
    const Json document =
        expect_document(DriveBench().run({"nvme", "log", "firmware", "nvme0", "--json"}));
    EXPECT_EQ(document["afi"], 1);
    EXPECT_EQ(document["frs2"], "EX09");
}

TEST(NvmeLog, ShowsErrorsAndTheStateOfSanitizing) {
    expect_text(DriveBench().run({"nvme", "log", "error", "nvme0"}), "no errors\n");
    expect_json(DriveBench().run({"nvme", "log", "error", "nvme0", "--entries", "64", "--json"}),
                R"({"endpoint": "nvme0", "errors": []})");
    const Outcome sanitize = DriveBench().run({"nvme", "log", "sanitize", "nvme0"});
    EXPECT_TRUE(contains(sanitize.out, "sstat   0x0000 (never sanitized)\n")) << sanitize.out;
}

}  // namespace
