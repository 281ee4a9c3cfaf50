// SPDX-License-Identifier: Apache-2.0
// What came of the rules, for people and for programs.
#ifndef SIDEBAND_TOOLS_CHECK_REPORT_H
#define SIDEBAND_TOOLS_CHECK_REPORT_H

#include <string>

#include "tools/check/rule.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool::check {

/// Of so many results of a kind.
size_t count_of(std::span<const Result> results, Outcome outcome);

/// A row for each rule, or for a family that does not apply as a whole.
Table report_table(std::span<const Result> results);

/// What is known of the rules that failed, and the numbers.
std::string report_text(std::span<const Result> results);

Json report_json(const std::string& endpoint, uint8_t eid, std::span<const Result> results);

/// JUnit XML: a test suite for the endpoint, with a test case for each rule.
std::string report_junit(const std::string& endpoint, std::span<const Result> results);

/// The rules by themselves.
std::string list_text(std::span<const Rule* const> rules);
Json list_json(std::span<const Rule* const> rules);

}  // namespace tool::check

#endif
