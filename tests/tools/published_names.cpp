// SPDX-License-Identifier: Apache-2.0
// A list of the numbers and names of the standards, which lies beside the sources or does not.
#include "tests/tools/published_names.h"

#include <cctype>
#include <filesystem>
#include <fstream>

namespace tool_test {
bool has_published_names() {
    return std::filesystem::exists(kPublishedNamesFile);
}

const std::map<std::string, Json>& published_names() {
    static const std::map<std::string, Json> kTables = [] {
        const Json list = test::read_json(kPublishedNamesFile);
        std::map<std::string, Json> by_name;
        for (const Json& table : list["tables"]) {
            by_name[table["name"].get<std::string>()] = table["entries"];
        }
        return by_name;
    }();
    return kTables;
}

PublishedName published_name(const Json& row) {
    const std::string value = row["value"].get<std::string>();
    const size_t dash = value.find('-');
    const std::string last = dash == std::string::npos ? value : value.substr(dash + 1);
    return {static_cast<unsigned>(std::stoul(value, nullptr, 0)),
            static_cast<unsigned>(std::stoul(last, nullptr, 0)), row["name"].get<std::string>()};
}

std::string plain(const std::string& name) {
    std::string text;
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+') {
            text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return text;
}

std::string without_parentheses(const std::string& name) {
    const size_t open = name.find('(');
    const size_t close = name.find(')');
    return open == std::string::npos || close == std::string::npos
               ? name
               : name.substr(0, open) + name.substr(close + 1);
}

std::string without(std::string name, const std::string& part) {
    const size_t at = name.find(part);
    return at == std::string::npos ? name : name.erase(at, part.size());
}

}  // namespace tool_test
