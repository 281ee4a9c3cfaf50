// SPDX-License-Identifier: Apache-2.0
// Control exchanges recorded from real devices: the same request, the record's own decoding.
#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using nlohmann::json;
using test::Bytes;
using test::hex;
using test::port;

/// Bytes of a record's message that come before the control message header.
std::optional<size_t> bytes_before_header(const json& record) {
    const std::string starts_at = record["starts_at"];
    const std::pair<const char*, size_t> offsets[] = {{"after_mctp_message_type", 0},
                                                      {"mctp_message_type", 1},
                                                      {"mctp_header", 5},
                                                      {"smbus_frame", 9}};
    for (const auto& [name, offset] : offsets) {
        if (starts_at.starts_with(name)) {
            return offset;
        }
    }
    return std::nullopt;
}

/// Bytes behind the message: the PEC.
size_t bytes_behind(const json& record) {
    return record["starts_at"].get<std::string>().find("PEC") == std::string::npos ? 0 : 1;
}

/// The control message of one side; empty where the record has none.
Bytes message(const json& record, const char* side) {
    Bytes bytes = hex(record[side].get<std::string>());
    const std::optional<size_t> before = bytes_before_header(record);
    if (!before || bytes.size() < *before + bytes_behind(record)) {
        return {};
    }
    return Bytes(bytes.begin() + static_cast<ptrdiff_t>(*before),
                 bytes.end() - static_cast<ptrdiff_t>(bytes_behind(record)));
}

class RecordedControl : public test::PlatformTest {
protected:
    void SetUp() override {
        std::ifstream file(std::string(SIDEBAND_DATA_DIR) + "/traces.json");
        if (!file) {
            GTEST_SKIP() << "no recorded traffic: " << SIDEBAND_DATA_DIR
                         << "/traces.json is absent";
        }
        traces_ = json::parse(file);
    }

    /// Every record of one command that has what is asked for.
    std::vector<json> records(const char* command, const char* side) const {
        std::vector<json> found;
        for (const json& record : traces_) {
            if (record["protocol"] == "MCTP control" && record["command"] == command &&
                !message(record, side).empty()) {
                found.push_back(record);
            }
        }
        return found;
    }

    /// Runs a command against the record's response; the request must be the record's.
    int32_t replay(const json& record, int32_t (*call)(mctp_ctx*, const json&)) {
        SCOPED_TRACE(record["id"].get<std::string>());
        const Bytes response = message(record, "response_hex");
        const Bytes request = message(record, "request_hex");
        ctx = test::ready_context();
        ctx.instance_id = response.empty() ? request[0] & 0x1F : response[0] & 0x1F;
        test::Endpoint endpoint(std::vector<Bytes>{response}, false);
        const int32_t result = call(&ctx, record["decodes_to"]);
        if (!request.empty()) {
            EXPECT_EQ(endpoint.requests, std::vector<Bytes>{request});
        }
        return result;
    }

    mctp_ctx ctx{};

private:
    json traces_;
};

int32_t get_eid(mctp_ctx* ctx, const json&) {
    return mctp_get_endpoint_id(ctx);
}
int32_t get_uuid(mctp_ctx* ctx, const json&) {
    return mctp_get_endpoint_uuid(ctx);
}

int32_t set_eid(mctp_ctx* ctx, const json& decoded) {
    const json& side = decoded.contains("request") ? decoded["request"] : decoded["response"];
    return mctp_set_endpoint_id(ctx, side["eid"].get<uint8_t>());
}

TEST_F(RecordedControl, GetEndpointIdGivesTheRecordedEid) {
    const std::vector<json> all = records("Get Endpoint ID", "response_hex");
    ASSERT_FALSE(all.empty());
    for (const json& record : all) {
        const int32_t eid = record["decodes_to"]["response"]["eid"];
        EXPECT_EQ(replay(record, get_eid), eid);
        EXPECT_EQ(ctx.dest_eid, eid);
    }
}

TEST_F(RecordedControl, SetEndpointIdIsAccepted) {
    const std::vector<json> all = records("Set Endpoint ID", "response_hex");
    ASSERT_FALSE(all.empty());
    for (const json& record : all) {
        EXPECT_EQ(replay(record, set_eid), 0);
        EXPECT_EQ(ctx.dest_eid, record["decodes_to"]["response"]["eid"].get<int>());
    }
}

TEST_F(RecordedControl, SetEndpointIdSendsTheRecordedRequest) {
    const std::vector<json> all = records("Set Endpoint ID", "request_hex");
    ASSERT_FALSE(all.empty());
    for (const json& record : all) {
        EXPECT_EQ(replay(record, set_eid), -1) << "the record has no answer";
    }
}

TEST_F(RecordedControl, GetEndpointUuidGivesTheRecordedUuid) {
    const std::vector<json> all = records("Get Endpoint UUID", "response_hex");
    ASSERT_FALSE(all.empty());
    for (const json& record : all) {
        EXPECT_EQ(replay(record, get_uuid), 0);
        const std::string uuid = record["decodes_to"]["response"]["uuid"];
        EXPECT_EQ(Bytes(std::begin(ctx.uuid), std::end(ctx.uuid)), hex(uuid));
    }
}

/// Finds each entry of a recorded table by its address, which is bus, then device and function.
TEST_F(RecordedControl, EveryRoutingTableEntryIsFoundByItsAddress) {
    const std::vector<json> all = records("Get Routing Table Entries", "response_hex");
    ASSERT_FALSE(all.empty());
    for (const json& record : all) {
        for (const json& entry : record["decodes_to"]["response"]["entries"]) {
            static mctp_ctx target;
            const Bytes address = hex(entry["phys_addr"].get<std::string>());
            ASSERT_EQ(address.size(), 2u);
            target.pcie_bdf[0] = address[0];
            target.pcie_bdf[1] = address[1] >> 3;
            target.pcie_bdf[2] = address[1] & 7;
            EXPECT_EQ(replay(record,
                             [](mctp_ctx* owner, const json&) {
                                 return get_eid_from_routing_table(owner, &target);
                             }),
                      0);
            EXPECT_EQ(target.dest_eid, entry["first_eid"].get<int>());
        }
    }
}

TEST_F(RecordedControl, AFrameAsRecordedOnTheBusIsRead) {
    for (const json& record : records("Set Endpoint ID", "response_hex")) {
        if (!record["starts_at"].get<std::string>().starts_with("smbus_frame")) {
            continue;
        }
        const Bytes frame = hex(record["response_hex"].get<std::string>());
        port().reads = {test::SlaveRead::of(Bytes(frame.begin() + 1, frame.end()))};
        test::Guarded buffer(64);
        ctx = test::ready_context();
        ctx.tag = frame[7] & 7;
        EXPECT_EQ(ctx.recv(&ctx, 64, buffer.data()), static_cast<int32_t>(frame.size()) - 10);
        const size_t length = frame.size() - 10;
        EXPECT_EQ(buffer.head(length), message(record, "response_hex"));
        EXPECT_EQ(ctx.binding_eids[0], record["decodes_to"]["mctp"]["src_eid"].get<int>());
        return;
    }
    FAIL() << "no record of a frame";
}

}  // namespace
