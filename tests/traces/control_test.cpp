// SPDX-License-Identifier: Apache-2.0
// Recorded MCTP control messages: each recorded request as it was, then the library's command
// if it has one, compared with the reading of the bytes that came with the record.
//
// Some records hold one side alone. A response without its request answers the request that the
// library sends. A request without its response is one that the library must send in the same
// form: the device knows no other, and its answer is put together here.
#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <algorithm>
#include <map>

#include "traces/record.h"
#include "traces/replay.h"

namespace {

using test::Bytes;
using test::expect_number;
using test::quietly;
using test::Record;
using test::Replay;
using tool::Json;
using test::operator+;

constexpr test::Field kFields[] = {
    {"Set Endpoint ID", "assignment_status", 3, 4, 0x03},
    {"Set Endpoint ID", "allocation_status", 3, 0, 0x03},
    {"Set Endpoint ID", "eid", 4},
    {"Set Endpoint ID", "eid_pool_size", 5},
    {"Get Endpoint ID", "eid", 3},
    {"Get Endpoint ID", "endpoint_type", 4, 4, 0x03},
    {"Get Endpoint ID", "eid_type", 4, 0, 0x03},
    {"Get Endpoint ID", "medium_specific", 5},
};

/// What the record says of a whole response, beside what the library decodes.
void expect_reading(const Record& record, const Bytes& message) {
    const Json& says = record.response_says;
    expect_number(says, "completion_code", message.at(2));
    if (says.contains("command")) {  // A record may begin at the completion code.
        test::expect_first_byte(record, message.at(0));
        expect_number(says, "command", message.at(1));
    }
    test::expect_fields(record, message, kFields);
}

/// A request of this command and nothing else, for records without one.
Bytes bare_request(const Record& record) {
    return {0x80, record.response.at(1)};
}

/// The request through the context's own operation: the recorded one if there is one.
/// @return the response as it was delivered
Bytes exchange_as_recorded(const Record& record) {
    const Bytes request = record.request.empty() ? bare_request(record) : record.request;
    const Replay replay(MCTP_MSG_TYPE_CONTROL, {{request, record.response}});
    mctp_ctx ctx = replay.endpoint();
    test::Guarded room(record.response.size() + 8, 0xEE);
    const int32_t result = quietly([&] {
        return ctx.xfer(&ctx, static_cast<uint32_t>(request.size()),
                        static_cast<int32_t>(room.size()), request.data(), room.data());
    });
    EXPECT_EQ(result, static_cast<int32_t>(record.response.size()));
    Bytes expected = record.response;
    expected[0] = static_cast<uint8_t>((expected[0] & 0xE0) | (request[0] & 0x1F));
    const Bytes delivered = room.head(record.response.size());
    EXPECT_EQ(delivered, expected);
    EXPECT_TRUE(room.untouched_from(record.response.size()));
    EXPECT_TRUE(room.intact());
    EXPECT_TRUE(replay.locks_in_order());
    expect_reading(record, delivered);
    return delivered;
}

// ---- Commands that the library has a function for ----

/// The device answers this request, of the library, with the record's response.
struct Answering {
    Answering(const Bytes& request, const Bytes& response)
        : replay(MCTP_MSG_TYPE_CONTROL, {{request, response}}), ctx(replay.endpoint()) {}

    Replay replay;
    mctp_ctx ctx;
};

void set_endpoint_id(const Record& record) {
    if (record.response.empty()) {
        const uint8_t eid = record.request_says.at("eid").get<uint8_t>();
        Answering device(record.request, Bytes{0x00, 0x01, 0x00, 0x00, eid, 0x00});
        EXPECT_EQ(quietly([&] { return mctp_set_endpoint_id(&device.ctx, eid); }), 0);
        EXPECT_EQ(device.ctx.dest_eid, eid);
        return;
    }
    const uint8_t eid = record.response_says.at("eid").get<uint8_t>();
    Answering device(Bytes{0x80, 0x01, 0x00, eid}, record.response);
    EXPECT_EQ(quietly([&] { return mctp_set_endpoint_id(&device.ctx, eid); }), 0);
    EXPECT_EQ(device.ctx.dest_eid, eid);
    EXPECT_EQ(record.response.at(4), eid);
}

void get_endpoint_id(const Record& record) {
    Answering device(test::hex("80 02"), record.response);
    const int eid = record.response_says.at("eid").get<int>();
    EXPECT_EQ(quietly([&] { return mctp_get_endpoint_id(&device.ctx); }), eid);
    EXPECT_EQ(device.ctx.dest_eid, eid);
}

void get_endpoint_uuid(const Record& record) {
    Answering device(test::hex("80 03"), record.response);
    EXPECT_EQ(quietly([&] { return mctp_get_endpoint_uuid(&device.ctx); }), 0);
    EXPECT_EQ(Bytes(device.ctx.uuid, device.ctx.uuid + sizeof device.ctx.uuid),
              test::hex(record.response_says.at("uuid").get<std::string>()));
    EXPECT_EQ(device.ctx.uuid_end, 0);
}

/// The entries of a table as the library delivers it, against the record's.
void expect_entries(const Json& entries, const Bytes& table) {
    size_t at = 5;
    for (const Json& entry : entries) {
        const Bytes address = test::hex(entry.at("phys_addr").get<std::string>());
        expect_number(entry, "range_size", table.at(at));
        expect_number(entry, "first_eid", table.at(at + 1));
        expect_number(entry, "type_byte", table.at(at + 2));
        expect_number(entry, "transport_binding", table.at(at + 3));
        expect_number(entry, "media_type", table.at(at + 4));
        EXPECT_EQ(table.at(at + 5), address.size());
        EXPECT_EQ(Bytes(table.begin() + static_cast<long>(at) + 6,
                        table.begin() + static_cast<long>(at + 6 + address.size())),
                  address);
        at += 6 + address.size();
    }
}

/// Each entry of the table is found again by bus, device and function.
void expect_lookups(const Json& entries, mctp_ctx& owner) {
    for (const Json& entry : entries) {
        const Bytes address = test::hex(entry.at("phys_addr").get<std::string>());
        ASSERT_EQ(address.size(), 2u);
        mctp_ctx target{};
        target.pcie_bdf[0] = address[0];
        target.pcie_bdf[1] = address[1] >> 3;
        target.pcie_bdf[2] = address[1] & 7;
        EXPECT_EQ(quietly([&] { return get_eid_from_routing_table(&owner, &target); }), 0);
        EXPECT_EQ(target.dest_eid, entry.at("first_eid"));
    }
}

void get_routing_table_entries(const Record& record) {
    const uint8_t handle = record.request_says.at("entry_handle").get<uint8_t>();
    const Bytes response = record.response.empty() ? test::hex("00 0a 00 ff 00") : record.response;
    Answering device(record.request, response);
    test::Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE, 0xEE);
    EXPECT_EQ(
        quietly([&] { return mctp_get_routing_table_entries(&device.ctx, handle, table.data()); }),
        0);
    EXPECT_TRUE(table.intact());
    const Bytes delivered = table.head(table.size());
    EXPECT_TRUE(std::equal(response.begin() + 1, response.end(), delivered.begin() + 1));
    if (record.response.empty()) {
        return;
    }
    expect_number(record.response_says, "next_handle", delivered.at(3));
    expect_number(record.response_says, "count", delivered.at(4));
    const Json& entries = record.response_says.at("entries");
    EXPECT_EQ(entries.size(), delivered.at(4));
    expect_entries(entries, delivered);
    expect_lookups(entries, device.ctx);
}

void endpoint_discovery(const Record& record) {
    Answering device(test::hex("80 0c"), record.response);
    EXPECT_EQ(quietly([&] { return mctp_endpoint_discovery(&device.ctx); }), 0);
}

// ---- Commands whose answers the library hands over undecoded ----

void message_types(const Json& says, const Bytes& response) {
    expect_number(says, "count", response.at(3));
    const Json types = says.at("types");
    // One endpoint announces a type and leaves the list out.
    const Bytes expected = types.is_null() ? Bytes() : types.get<Bytes>();
    EXPECT_EQ(Bytes(response.begin() + 4, response.end()), expected);
}

void version_support(const Json& says, const Bytes& response) {
    expect_number(says, "count", response.at(3));
    Bytes expected;
    for (const Json& version : says.at("versions")) {
        expected = expected + test::hex(version.get<std::string>());
    }
    EXPECT_EQ(Bytes(response.begin() + 4, response.end()), expected);
}

void vendor_support(const Json& says, const Bytes& response) {
    if (says.at("completion_code") != 0) {
        EXPECT_EQ(response.size(), 3u);
        return;
    }
    expect_number(says, "next_selector", response.at(3));
    expect_number(says, "vendor_id_format", response.at(4));
    expect_number(says, "vendor_id_be", response.at(5) * 256u + response.at(6));
    EXPECT_EQ(Bytes(response.begin() + 7, response.end()),
              test::hex(says.at("vendor_data").get<std::string>()));
}

void nothing_more(const Json&, const Bytes& response) {
    EXPECT_EQ(response.size(), 3u);
}

using Command = void (*)(const Record&);
const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> kAll = {
        {"Set Endpoint ID", set_endpoint_id},
        {"Get Endpoint ID", get_endpoint_id},
        {"Get Endpoint UUID", get_endpoint_uuid},
        {"Get Routing Table Entries", get_routing_table_entries},
        {"Endpoint Discovery", endpoint_discovery},
    };
    return kAll;
}

using Reading = void (*)(const Json&, const Bytes&);
const std::map<std::string, Reading>& readings() {
    static const std::map<std::string, Reading> kAll = {
        {"Get Message Type Support", message_types},
        {"Get MCTP Version Support", version_support},
        {"Get Vendor Defined Message Support", vendor_support},
        {"Discovery Notify", nothing_more},
    };
    return kAll;
}

/// @return whether anything was compared
bool exercise(const Record& record) {
    Bytes delivered;
    if (!record.response.empty()) {
        delivered = exchange_as_recorded(record);
    }
    if (const auto command = commands().find(record.command); command != commands().end()) {
        command->second(record);
        return true;
    }
    const auto reading = readings().find(record.command);
    if (reading == readings().end() || delivered.empty()) {
        return false;
    }
    reading->second(record.response_says, delivered);
    return true;
}

class ControlTrace : public testing::TestWithParam<Record> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ControlTrace);

TEST_P(ControlTrace, IsDecodedAsTheRecordSays) {
    EXPECT_TRUE(exercise(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Recorded, ControlTrace,
                         testing::ValuesIn(test::records_of("MCTP control")), test::test_name);

TEST(ControlTraces, NoRecordOfACoveredCommandIsLeftOut) {
    if (!test::have_records()) {
        GTEST_SKIP() << test::absence();
    }
    test::Counts exercised;
    for (const Record& record : test::records_of("MCTP control")) {
        exercised[record.command] += exercise(record) ? 1 : 0;
    }
    test::expect_all_exercised("MCTP control", exercised,
                               {{"Discovery Notify", 1},
                                {"Endpoint Discovery", 1},
                                {"Get Endpoint ID", 3},
                                {"Get Endpoint UUID", 1},
                                {"Get MCTP Version Support", 3},
                                {"Get Message Type Support", 3},
                                {"Get Routing Table Entries", 2},
                                {"Get Vendor Defined Message Support", 2},
                                {"Set Endpoint ID", 2}});
}

}  // namespace
