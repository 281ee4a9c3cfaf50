// SPDX-License-Identifier: Apache-2.0
// Tests of mctp eid, uuid and routes.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::OwnBoard;
using tool_test::parse_json;

TEST_F(OwnBoard, MctpEidTellsAnAssignedEid) {
    expect_text(run({"mctp", "eid", "dev0"}),
                "EID            16 (assigned now)\n"
                "Endpoint type  simple endpoint\n"
                "EID type       dynamic\n");
    expect_json(run({"mctp", "eid", "rec0", "--json"}), R"({"endpoint": "rec0", "eid": 12,
        "eid_assigned": false, "endpoint_type": 0, "endpoint_id_type": 2})");
}

TEST_F(OwnBoard, MctpUuidPrintsTheUuid) {
    expect_text(run({"mctp", "uuid", "dev0"}), "00112233-4455-6677-8899-aabbccddeeff\n");
    expect_json(run({"mctp", "uuid", "dev0", "--json"}),
                R"({"endpoint": "dev0", "uuid": "00112233-4455-6677-8899-aabbccddeeff"})");
}

TEST_F(OwnBoard, MctpRoutesFollowsTheTableToItsEnd) {
    expect_text(run({"mctp", "routes", "rec0"}),
                "EIDS   ENTRY                      PORT  BINDING   MEDIA  ADDRESS\n"
                "16     endpoint                      3  SMBus     0x03   40\n"
                "32-35  endpoints behind a bridge     1  PCIe VDM  0x0a   01:00.2\n");
    const Json entries =
        one_document(run({"mctp", "routes", "rec0", "--json"}).out)["routing_table_entries"];
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0], parse_json(R"({"eid_range_size": 1, "starting_eid": 16,
        "entry_type": 0, "dynamic_entry": true, "port_number": 3,
        "physical_transport_binding_type_id": 1, "physical_media_type_id": 3,
        "physical_address": "40"})"));
}

}  // namespace
