// SPDX-License-Identifier: Apache-2.0
// Texts that want to be more than read, and what has to be true of output that shows them.
#ifndef SIDEBAND_TESTS_TOOLS_HOSTILE_TEXT_H
#define SIDEBAND_TESTS_TOOLS_HOSTILE_TEXT_H

#include <string>
#include <vector>

#include "tests/tools/tool_runner.h"

namespace tool_test {

/// In UTF-8: what clears a screen, fills a clipboard, overwrites, begins a line, turns a text
/// around, ends a text, is long.
const std::vector<std::string>& hostile_texts();

/// The same in bytes that are no UTF-8, or not all of it: C1 alone and in forms that are too long,
/// surrogates, characters that are cut.
const std::vector<std::string>& hostile_bytes();

/// Nothing on standard output and standard error to obey, and no line that only a name can have
/// begun, as "forged:" does in the texts.
void expect_harmless(const Outcome& run);

/// Expects a text to be OpenMetrics in UTF-8, line by line, with one end mark.
void expect_openmetrics(const std::string& text);

}  // namespace tool_test

#endif
