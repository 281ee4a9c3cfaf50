// SPDX-License-Identifier: Apache-2.0
// JSON in tests: the tool's own values, read from files, shown by the test runner.
#ifndef SIDEBAND_TESTS_SUPPORT_JSON_H
#define SIDEBAND_TESTS_SUPPORT_JSON_H

#include <iosfwd>
#include <string>

#include "tools/shell/json.h"

namespace tool {

/// For the test runner's messages.
void PrintTo(const Json& value, std::ostream* stream);

}  // namespace tool

namespace test {

/// The value that a text stands for. A malformed text throws std::runtime_error.
tool::Json parse_json(std::string_view text);

/// The value in a file. One that is not there or malformed throws std::runtime_error.
tool::Json read_json(const std::string& path);

}  // namespace test

#endif
