// SPDX-License-Identifier: Apache-2.0
// What the library prints, made fit for a terminal and led to standard error.
#include "tools/shell/library_output.h"

#include <sys/types.h>

#include <string>

#include "tools/shell/text.h"

namespace tool {

LibraryOutput::~LibraryOutput() {
    if (stream_ != nullptr) {
        end_line();
        stdout = before_;
        std::fclose(stream_);
    }
}

void LibraryOutput::show() {
    if (stream_ != nullptr) {
        return;
    }
    cookie_io_functions_t functions{};
    functions.write = write;
    stream_ = fopencookie(this, "w", functions);
    if (stream_ == nullptr) {
        return;
    }
    // Line by line, so that dumps and errors stay in order.
    std::setvbuf(stream_, nullptr, _IOLBF, BUFSIZ);
    std::fflush(stdout);
    // A variable in glibc, which may be set.
    before_ = stdout;
    stdout = stream_;
}

ssize_t LibraryOutput::write(void* self, const char* text, size_t length) {
    static_cast<LibraryOutput*>(self)->put({text, length});
    return static_cast<ssize_t>(length);
}

void LibraryOutput::put(std::string_view text) {
    const std::string shown = printable_lines(text);
    in_line_ = !text.ends_with('\n');
    std::fwrite(shown.data(), 1, shown.size(), stderr);
}

void LibraryOutput::end_line() {
    std::fflush(stdout);
    if (in_line_) {
        std::fputc('\n', stderr);
        in_line_ = false;
    }
}

}  // namespace tool
