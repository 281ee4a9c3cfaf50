// SPDX-License-Identifier: Apache-2.0
// What a record of a failure says, for tests to compare.
#ifndef SIDEBAND_TESTS_SUPPORT_ERRORS_H
#define SIDEBAND_TESTS_SUPPORT_ERRORS_H

#include <sideband/error.h>

#include <string>

namespace test {

/// The text of a record.
inline std::string said(const sideband_error& error) {
    std::string text(sideband_error_text(&error, nullptr, 0) + 1, '\0');
    sideband_error_text(&error, text.data(), text.size());
    text.pop_back();
    return text;
}

}  // namespace test

#endif
