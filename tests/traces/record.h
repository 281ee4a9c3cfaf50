// SPDX-License-Identifier: Apache-2.0
// Recorded exchanges, brought to one form: message bodies without the message type byte.
#ifndef SIDEBAND_TESTS_TRACES_RECORD_H
#define SIDEBAND_TESTS_TRACES_RECORD_H

#include <gtest/gtest.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes.h"
#include "support/json.h"

namespace test {

struct Record {
    std::string id;
    std::string protocol;
    std::string command;
    Bytes request;  ///< empty if only the other side was recorded
    Bytes response;
    tool::Json request_says;   ///< the reading of the bytes that came with the record
    tool::Json response_says;  ///< of a FRU record table: of the table
};

/// For the test runner's messages.
void PrintTo(const Record& record, std::ostream* stream);

/// Whether the folder with recorded traffic is there. If it is not, tests skip and say so.
bool have_records();
/// What a skipped test says.
std::string absence();

/// The recorded exchanges of a protocol, "PLDM", "MCTP control" or "NVMe-MI", whose command is in
/// the table of commands that the tests cover. Empty if there is no folder.
std::vector<Record> records_of(std::string_view protocol);

/// The records of one command that is not in that table: those that begin with their message, and
/// FRU record tables.
std::vector<Record> records_of_command(std::string_view protocol, std::string_view command);

using Counts = std::map<std::string, int>;

/// Expects that the file holds as many records of each command as were exercised, and no others
/// of these commands.
void expect_all_exercised(std::string_view protocol, const Counts& exercised,
                          const Counts& expected);

/// Expects a number that the record must have read from the bytes.
void expect_number(const tool::Json& says, const char* field, unsigned value);

/// Expects Rq, D and instance ID as the record read them. A response whose request was not recorded
/// has the instance ID of another request now.
void expect_first_byte(const Record& record, uint8_t byte);

/// Where a command's response has a field that the records tell: some bits of one byte.
struct Field {
    std::string_view command;
    const char* name;
    size_t offset;  ///< from the header's first byte
    unsigned shift = 0;
    unsigned mask = 0xFF;
};

/// Expects the fields of the record's command.
void expect_fields(const Record& record, const Bytes& response, std::span<const Field> fields);

/// A record's name as a test's.
std::string test_name(const testing::TestParamInfo<Record>& info);

}  // namespace test

#endif
