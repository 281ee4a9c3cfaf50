// SPDX-License-Identifier: Apache-2.0
// What the library prints, made fit for a terminal and led to standard error.
#ifndef SIDEBAND_TOOLS_SHELL_LIBRARY_OUTPUT_H
#define SIDEBAND_TOOLS_SHELL_LIBRARY_OUTPUT_H

#include <cstdio>
#include <string_view>

namespace tool {

/// Takes the place of the stream stdout, through which the library prints, from show() on. Lines
/// come out in order with those that are written to standard error directly, if end_line() is
/// called before.
class LibraryOutput {
public:
    LibraryOutput() = default;
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    /// Shows from now on what is printed, control characters other than line ends as text.
    void show();

    bool shown() const { return stream_ != nullptr; }

    /// Writes out what has been printed, and ends the line if the library has not.
    void end_line();

private:
    static ssize_t write(void* self, const char* text, size_t length);
    void put(std::string_view text);

    FILE* stream_ = nullptr;
    FILE* before_ = nullptr;
    bool in_line_ = false;
};

}  // namespace tool

#endif
