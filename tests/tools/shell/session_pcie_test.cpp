// SPDX-License-Identifier: Apache-2.0
// Tests of the tool on a board with PCIe: the MPIO, functions behind it, owners of the BMC's buses.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool;
using tool_test::TemporaryFile;

/// @param mpio_keys  further keys of the MPIO, a comma before each
std::string board_text(const std::string& mpio_keys = "") {
    return R"({
  "name": "rack", "buses": [{"bus": 1, "clock_hz": 400000}],
  "platform": {"mpio_state": "wanted"},
  "devices": [
    {"name": "own0", "type": "bus_owner", "bus": 1, "address": "0x42", "eid": 9, "assign": 32,
     "uuid": "00000000-0000-8000-8000-000000000001"},
    {"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0",
     "uuid": "00000000-0000-8000-8000-000000000002")" +
           mpio_keys + R"(},
    {"name": "gpu0", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "tid": 4,
     "uuid": "00000000-0000-8000-8000-000000000003",
     "sensors": [{"kind": "numeric", "id": 1, "name": "die", "unit": "degC", "data_size": 1,
                  "signed": true, "waveform": {"shape": "constant", "value": -7}}]},
    {"name": "own1", "type": "bus_owner", "transport": "pcie", "bdf": "80:00.0", "eid": 10,
     "assign": 40, "uuid": "00000000-0000-8000-8000-000000000004"}
  ]
})";
}

class PcieTool : public ::testing::Test {
protected:
    Outcome run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--board", board_.path()});
        return run_tool(arguments);
    }

private:
    TemporaryFile board_{board_text(R"(, "entries_per_part": 1)")};
};

std::vector<Json> steps_titled(const Json& document, const char* title) {
    std::vector<Json> found;
    for (const Json& step : document["steps"]) {
        if (step["title"] == title) {
            found.push_back(step);
        }
    }
    return found;
}

TEST_F(PcieTool, ScanShowsFunctionsWithTheirBdfAndEid) {
    const Outcome scan = run({"scan"});
    EXPECT_EQ(scan.err, "");
    EXPECT_EQ(scan.out,
              "ENDPOINT  WHERE         EID  UUID                                  SPEAKS  STATUS\n"
              "own0      i2c:1:0x42      9  00000000-0000-8000-8000-000000000001  -       ok\n"
              "mpio0     pcie:00:00.0   16  00000000-0000-8000-8000-000000000002  -       ok\n"
              "gpu0      pcie:47:00.0   64  00000000-0000-8000-8000-000000000003  pldm    ok\n"
              "own1      pcie:80:00.0   10  00000000-0000-8000-8000-000000000004  -       ok\n");
    const Json document = one_document(run({"scan", "--json"}).out);
    EXPECT_EQ(document["endpoints"][2]["bdf"], "47:00.0");
    EXPECT_EQ(document["endpoints"][2]["transport"], "pcie");
    EXPECT_EQ(document["endpoints"][1]["eid_assigned"], true);
    EXPECT_EQ(document["endpoints"][2]["eid_assigned"], false) << "that was the MPIO";
}

TEST_F(PcieTool, RoutesPrintsTheTableDecoded) {
    EXPECT_EQ(run({"mctp", "routes", "mpio0"}).out,
              "EIDS  ENTRY     PORT  BINDING   MEDIA  ADDRESS\n"
              "16    bridge       0  PCIe VDM  0x0c   00:00.0\n"
              "64    endpoint     0  PCIe VDM  0x0c   47:00.0\n");
    EXPECT_EQ(run({"mctp", "routes", "pcie:00:00.0"}).status, 0);
}

TEST_F(PcieTool, FunctionsAreFoundByTheirAddress) {
    EXPECT_EQ(run({"raw", "pcie:47:00.0", "pldm", "800002"}).out, "0000020004\n");
    expect_error(run({"mctp", "eid", "pcie:48:00.0"}), 1,
                 "sideband-sim: mctp eid: pcie:48:00.0: discovery failed: the MPIO's routing table "
                 "does not list it");
}

TEST_F(PcieTool, SensorsAreReadOverPcie) {
    EXPECT_EQ(run({"pldm", "sensors", "gpu0"}).out,
              "ID  NAME  ENTITY  KIND     RAW  READING  UNIT  THRESHOLDS  STATE\n"
              " 1  die   -       numeric   -7       -7  degC  Normal      enabled\n");
}

TEST_F(PcieTool, DemoShowsBringUpReadingsAndTheBmcsOwnEids) {
    const Outcome demo = run({"demo", "--json"});
    EXPECT_EQ(demo.status, 0) << demo.err;
    const Json document = one_document(demo.out);
    EXPECT_EQ(document["failed"], 0);
    EXPECT_GT(document["pcie"]["packets"].get<int>(), 0);

    const std::vector<Json> bring_up = steps_titled(document, "MPIO bring-up");
    ASSERT_EQ(bring_up.size(), 1U);
    EXPECT_EQ(bring_up[0]["details"]["eid"], 16);
    EXPECT_EQ(bring_up[0]["details"]["eid_pool_size"], 32);
    EXPECT_EQ(bring_up[0]["details"]["first_eid"], 64);
    EXPECT_GE(bring_up[0]["details"]["duration_us"].get<int>(), 3000000);

    const std::vector<Json> readings = steps_titled(document, "Numeric sensors");
    ASSERT_EQ(readings.size(), 1U);
    EXPECT_EQ(readings[0]["endpoint"], "gpu0");
    EXPECT_EQ(readings[0]["details"][0]["sensors"][0]["present_reading"], -7);

    const std::vector<Json> owners = steps_titled(document, "An EID for the BMC");
    ASSERT_EQ(owners.size(), 2U);
    EXPECT_EQ(owners[0]["details"]["bmc_eid"], 32);
    EXPECT_EQ(owners[0]["details"]["owner_eid"], 9);
    EXPECT_EQ(owners[1]["details"]["bmc_eid"], 40);
    EXPECT_EQ(owners[1]["details"]["owner_eid"], 10);
    for (const Json& owner : owners) {
        const Json& requests = owner["details"]["requests"];
        ASSERT_EQ(requests.size(), 8U);
        EXPECT_EQ(requests[0]["response"], "000b00000000");
        EXPECT_EQ(requests[2]["response"], nullptr) << "the second Endpoint Discovery";
        EXPECT_EQ(requests[4]["response"], "040600ff00031a0001");
    }
}

TEST(PcieToolRefused, BringUpFailsWithTheMpiosCode) {
    const TemporaryFile board(board_text(
        R"(, "steps": [{"command": "endpoint_discovery", "outcome": "refused",
                        "completion_code": 5}])"));
    expect_error(run_tool({"mctp", "eid", "gpu0", "--board", board.path()}), 1,
                 "sideband-sim: mctp eid: gpu0: the bring-up of the MPIO failed: completion code "
                 "0x05 (ERROR_UNSUPPORTED_CMD)");
}

}  // namespace
