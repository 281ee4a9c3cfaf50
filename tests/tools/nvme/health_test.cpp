// SPDX-License-Identifier: Apache-2.0
// Tests of nvme health.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_document;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::Outcome;

TEST(NvmeHealth, ShowsTheDriveAndItsControllers) {
    expect_text(DriveBench().run({"nvme", "health", "nvme0"}),
                "nss    0x38 (drive functional, no reset required, PCIe link of port 0 active)\n"
                "sw     0xff (no warning)\n"
                "ctemp  36 degC\n"
                "pdlu   3 %\n"
                "ccs    0x0001 (ready)\n"
                "\n"
                "CONTROLLER      TEMPERATURE  USED  SPARE  WARNINGS  STATUS\n"
                "         1  36 degC (309 K)   3 %  100 %  none      ready\n"
                "         5  36 degC (309 K)   3 %  100 %  none      ready\n");
    expect_json(DriveBench().run({"nvme", "health", "nvme0", "--json"}), R"({"endpoint": "nvme0",
        "nss": 56, "sw": 255, "ctemp": 36, "pdlu": 3, "ccs": 1, "controllers": [
          {"ctlid": 1, "csts": 1, "ctemp": 309, "pdlu": 3, "spare": 100, "cwarn": 0},
          {"ctlid": 5, "csts": 1, "ctemp": 309, "pdlu": 3, "spare": 100, "cwarn": 0}]})");
}

TEST(NvmeHealth, NamesWhatWarns) {
    DriveBench bench;
    bench.drive()["temperature"]["value"] = 75;
    bench.drive()["smart"] = {{"available_spare", 5}, {"percentage_used", 255}};
    const Outcome run = bench.run({"nvme", "health", "nvme0"});
    EXPECT_TRUE(contains(run.out, "sw     0xfc (available spare, temperature)\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "pdlu   more than 254 %\n")) << run.out;
}

TEST(NvmeHealth, AsksForAllControllersOfADrive) {
    DriveBench bench;
    bench.drive()["controllers"] = Json::array();
    for (int id : {1, 2, 4, 5, 9}) {
        bench.drive()["controllers"].push_back({{"id", id}});
    }
    const Json document = expect_document(bench.run({"nvme", "health", "nvme0", "--json"}));
    ASSERT_EQ(document["controllers"].size(), 5U);
    EXPECT_EQ(document["controllers"][4]["ctlid"], 9);
}

}  // namespace
