// SPDX-License-Identifier: Apache-2.0
// JSON in tests: the tool's own values, read from files, shown by the test runner.
#include "tests/support/json.h"

#include <fstream>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace tool {

void PrintTo(const Json& value, std::ostream* stream) {
    *stream << value.dump();
}

}  // namespace tool

namespace test {

tool::Json parse_json(std::string_view text) {
    tool::Json value = tool::Json::parse(text);
    if (value.is_null() && text != "null") {
        throw std::runtime_error("this is no JSON: " + std::string(text));
    }
    return value;
}

tool::Json read_json(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + " cannot be read");
    }
    std::ostringstream text;
    text << file.rdbuf();
    return parse_json(text.str());
}

}  // namespace test
