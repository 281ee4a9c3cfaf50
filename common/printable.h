// SPDX-License-Identifier: Apache-2.0
// Texts of devices and packages, made fit for an operator's terminal and log.
#ifndef SIDEBAND_COMMON_PRINTABLE_H
#define SIDEBAND_COMMON_PRINTABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// A text with each control character shown as \xNN, its bytes in lower-case hex: C0, DEL and C1,
/// the latter as a lone byte and in UTF-8. What is printable stays as it is, in UTF-8 and in
/// ISO 8859-1. Ends at the first NUL, as %s does.
class Printable {
public:
    /// The longest text: that of a field whose length is one byte.
    static constexpr size_t kTextMax = 255;

    /// @param text  bytes behind kTextMax are dropped: longer ones go through print_printable()
    explicit Printable(std::span<const uint8_t> text);
    /// @param text  ends with a NUL; null counts as empty
    explicit Printable(const char* text);

    /// For %s. Lives as long as this does.
    const char* text() const { return shown_.data(); }

private:
    static constexpr size_t kShownByteSize = 4;
    std::array<char, kTextMax * kShownByteSize + 1> shown_;
};

/// Prints a text of any length to standard output like that.
void print_printable(std::span<const uint8_t> text);

}  // namespace sideband

#endif
