// SPDX-License-Identifier: Apache-2.0
// Recorded exchanges, brought to one form: message bodies without the message type byte.
#include "traces/record.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <ostream>
#include <stdexcept>

namespace test {

namespace {

using tool::Json;

constexpr const char* kFile = SIDEBAND_DATA_DIR "/traces.json";

/// Command codes and, for PLDM, types: needed if a record starts behind them.
struct CommandCode {
    std::string_view protocol;
    std::string_view command;
    uint8_t pldm_type;
    uint8_t code;
};
constexpr CommandCode kCommands[] = {
    {"MCTP control", "Set Endpoint ID", 0, 0x01},
    {"MCTP control", "Get Endpoint ID", 0, 0x02},
    {"MCTP control", "Get Endpoint UUID", 0, 0x03},
    {"MCTP control", "Get MCTP Version Support", 0, 0x04},
    {"MCTP control", "Get Message Type Support", 0, 0x05},
    {"MCTP control", "Get Vendor Defined Message Support", 0, 0x06},
    {"MCTP control", "Get Routing Table Entries", 0, 0x0A},
    {"MCTP control", "Endpoint Discovery", 0, 0x0C},
    {"MCTP control", "Discovery Notify", 0, 0x0D},
    {"PLDM", "SetTID", 0, 0x01},
    {"PLDM", "GetTID", 0, 0x02},
    {"PLDM", "GetPLDMVersion", 0, 0x03},
    {"PLDM", "GetPLDMTypes", 0, 0x04},
    {"PLDM", "GetPLDMCommands", 0, 0x05},
    {"PLDM", "GetSensorReading", 2, 0x11},
    {"PLDM", "GetSensorThresholds", 2, 0x12},
    {"PLDM", "GetSensorHysteresis", 2, 0x15},
    {"PLDM", "GetStateSensorReadings", 2, 0x21},
    {"PLDM", "GetPDRRepositoryInfo", 2, 0x50},
    {"PLDM", "GetPDR", 2, 0x51},
    {"NVMe-MI", "Read NVMe-MI Data Structure", 0, 0x00},
    {"NVMe-MI", "NVM Subsystem Health Status Poll", 0, 0x01},
    {"NVMe-MI", "Configuration Set", 0, 0x03},
    {"NVMe-MI", "Configuration Get", 0, 0x04},
    {"NVMe-MI", "VPD Read", 0, 0x05},
    {"NVMe-MI", "Admin: Get Log Page", 0, 0x02},
    {"NVMe-MI", "Admin: Identify", 0, 0x06},
    {"NVMe-MI", "Admin: Namespace Management", 0, 0x0D},
    {"NVMe-MI", "Admin: Firmware Commit", 0, 0x10},
    {"NVMe-MI", "Admin: Firmware Image Download", 0, 0x11},
    {"NVMe-MI", "Admin: Namespace Attachment", 0, 0x15},
    {"NVMe-MI", "Admin: Format NVM", 0, 0x80},
    {"NVMe-MI", "Admin: Sanitize", 0, 0x84},
};

const CommandCode* find_command(std::string_view protocol, std::string_view command) {
    const auto* found =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const CommandCode& entry) {
            return entry.protocol == protocol && entry.command == command;
        });
    return found == std::end(kCommands) ? nullptr : found;
}

Bytes cut(const Bytes& bytes, size_t front, size_t back) {
    if (bytes.size() < front + back) {
        throw std::runtime_error("a record is shorter than its framing");
    }
    return Bytes(bytes.begin() + static_cast<long>(front), bytes.end() - static_cast<long>(back));
}

/// A FRU record table without any message around it.
bool is_table(std::string_view start) {
    return start.starts_with("fru_record_table");
}

/// The message body of one side. @param start  what its first byte is
Bytes body(const Bytes& bytes, std::string_view start, const CommandCode& command) {
    if (start == "mctp_message_type") {
        return cut(bytes, 1, 0);
    }
    if (start == "after_mctp_message_type" || start == "pldm_header" || is_table(start)) {
        return bytes;
    }
    if (start == "eid_then_mctp_message_type") {
        return cut(bytes, 2, 0);
    }
    if (start == "mctp_header") {
        return cut(bytes, 5, 0);
    }
    if (start == "mctp_header, last byte is the I3C PEC") {
        return cut(bytes, 5, 1);
    }
    if (start == "smbus_frame (destination address ... PEC)") {
        return cut(bytes, 9, 1);
    }
    if (start == "smbus_frame (destination address ...), MIC and PEC not printed by the source") {
        return cut(bytes, 9, 0);
    }
    // The header was not recorded. It is put back as the standards have it, instance ID 0.
    Bytes header{0x00};
    if (start == "pldm_type byte") {
        header[0] = 0x80;
    } else if (start == "mctp_control_completion_code") {
        header.push_back(command.code);
    } else if (start == "pldm_completion_code") {
        header.insert(header.end(), {command.pldm_type, command.code});
    } else {
        throw std::runtime_error("unknown start of a record: " + std::string(start));
    }
    header.insert(header.end(), bytes.begin(), bytes.end());
    return header;
}

/// "request: A; response: B", or one value for both sides.
std::string start_of(const std::string& starts_at, const std::string& side) {
    const size_t at = starts_at.find(side + ": ");
    if (at == std::string::npos) {
        return starts_at;
    }
    const size_t begin = at + side.size() + 2;
    return starts_at.substr(begin, starts_at.find(';', begin) - begin);
}

Record make_record(const Json& entry, const CommandCode& command) {
    const std::string starts_at = entry.at("starts_at").get<std::string>();
    const auto side = [&](const std::string& name) {
        const Bytes bytes = hex(entry.at(name + "_hex").get<std::string>());
        return bytes.empty() ? bytes : body(bytes, start_of(starts_at, name), command);
    };
    const Json& decoded = entry.at("decodes_to");
    return {entry.at("id").get<std::string>(),
            entry.at("protocol").get<std::string>(),
            entry.at("command").get<std::string>(),
            side("request"),
            side("response"),
            decoded.value("request", Json::object()),
            is_table(starts_at) ? decoded : decoded.value("response", Json::object())};
}

const Json& file() {
    static const Json kContents = have_records() ? read_json(kFile) : Json::array();
    return kContents;
}

}  // namespace

void PrintTo(const Record& record, std::ostream* stream) {
    *stream << record.id;
}

bool have_records() {
    return std::filesystem::exists(kFile);
}

std::string absence() {
    return "there is no recorded traffic at " + std::string(kFile);
}

std::vector<Record> records_of(std::string_view protocol) {
    std::vector<Record> records;
    for (const Json& entry : file()) {
        const std::string command = entry.at("command").get<std::string>();
        const CommandCode* known = find_command(protocol, command);
        if (entry.at("protocol") == protocol && known != nullptr) {
            records.push_back(make_record(entry, *known));
        }
    }
    return records;
}

std::vector<Record> records_of_command(std::string_view protocol, std::string_view command) {
    std::vector<Record> records;
    for (const Json& entry : file()) {
        if (entry.at("protocol") == protocol && entry.at("command") == command) {
            records.push_back(make_record(entry, {protocol, command, 0, 0}));
        }
    }
    return records;
}

void expect_all_exercised(std::string_view protocol, const Counts& exercised,
                          const Counts& expected) {
    EXPECT_EQ(exercised, expected);
    for (const auto& [command, count] : expected) {
        const auto in_file =
            std::count_if(file().begin(), file().end(), [&, name = command](const Json& entry) {
                return entry.at("protocol") == protocol && entry.at("command") == name;
            });
        EXPECT_EQ(in_file, count) << command;
    }
}

void expect_number(const Json& says, const char* field, unsigned value) {
    ASSERT_TRUE(says.contains(field)) << "the record does not tell " << field;
    EXPECT_EQ(value, says.at(field).get<unsigned>()) << field;
}

void expect_first_byte(const Record& record, uint8_t byte) {
    expect_number(record.response_says, "rq", byte >> 7u);
    expect_number(record.response_says, "datagram", byte >> 6u & 1u);
    if (!record.request.empty()) {
        expect_number(record.response_says, "instance_id", byte & 0x1Fu);
    }
}

void expect_fields(const Record& record, const Bytes& response, std::span<const Field> fields) {
    for (const Field& field : fields) {
        if (field.command == record.command) {
            expect_number(record.response_says, field.name,
                          response.at(field.offset) >> field.shift & field.mask);
        }
    }
}

std::string test_name(const testing::TestParamInfo<Record>& info) {
    std::string name = info.param.id;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

}  // namespace test
