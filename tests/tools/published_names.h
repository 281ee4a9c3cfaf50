// SPDX-License-Identifier: Apache-2.0
// A list of the numbers and names of the standards, which lies beside the sources or does not.
#ifndef SIDEBAND_TESTS_TOOLS_PUBLISHED_NAMES_H
#define SIDEBAND_TESTS_TOOLS_PUBLISHED_NAMES_H

#include <map>
#include <string>

#include "tests/support/json.h"

namespace tool_test {

using tool::Json;

/// Where the list is looked for.
inline constexpr const char* kPublishedNamesFile = SIDEBAND_DATA_DIR "/codes.json";

bool has_published_names();

/// The rows of the list's tables by the names of the tables. A list that is there has to be
/// readable.
const std::map<std::string, Json>& published_names();

/// A number, or the first and last of a range, and its name.
struct PublishedName {
    unsigned first;
    unsigned last;
    std::string name;
};

PublishedName published_name(const Json& row);

/// Letters, digits and plus signs ("SFP+" is not "SFP"), in lower case.
std::string plain(const std::string& name);

/// A name without what stands in its parentheses: abbreviations, units, numbers of standards.
std::string without_parentheses(const std::string& name);

/// A name without the first such part of it.
std::string without(std::string name, const std::string& part);

}  // namespace tool_test

#endif
