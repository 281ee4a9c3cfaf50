// SPDX-License-Identifier: Apache-2.0
// What the library prints, made fit for a terminal and led to standard error.
#ifndef SIDEBAND_TOOLS_SHELL_LIBRARY_OUTPUT_H
#define SIDEBAND_TOOLS_SHELL_LIBRARY_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

/// Takes what the library prints for as long as it stands, and drops it until show(). Lines come
/// out in order with those that are written to standard error directly, if end_line() is called
/// before. One stands at a time.
class LibraryOutput {
public:
    LibraryOutput();
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    /// Shows from now on what is printed, control characters other than line ends as text.
    void show() { shown_ = true; }

    bool shown() const { return shown_; }

    /// Writes out what has been printed, and ends the line if the library has not.
    void end_line();

    /// As sideband_output_op, of this.
    static void take(void* self, uint32_t outlet, const char* text, size_t length);

private:
    void put(std::string_view text);
    static void write(std::string_view text);

    bool shown_ = false;
    std::string line_;  ///< as far as it has been printed
};

}  // namespace tool

#endif
