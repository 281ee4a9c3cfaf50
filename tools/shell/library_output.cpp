// SPDX-License-Identifier: Apache-2.0
// What the library prints, made fit for a terminal and led to standard error.
#include "tools/shell/library_output.h"

#include <sideband/output.h>

#include <cstdio>
#include <string>

#include "tools/shell/text.h"

namespace tool {

LibraryOutput::LibraryOutput() {
    sideband_set_output(SIDEBAND_OUTLET_PRINTED, take, this);
}

LibraryOutput::~LibraryOutput() {
    end_line();
    sideband_set_output(0, nullptr, nullptr);
}

void LibraryOutput::take(void* self, uint32_t /*outlet*/, const char* text, size_t length) {
    auto& output = *static_cast<LibraryOutput*>(self);
    if (output.shown_) {
        output.put({text, length});
    }
}

/// Whole lines at once, so that they stay whole among what others write there.
void LibraryOutput::put(std::string_view text) {
    line_ += text;
    const size_t end = line_.rfind('\n');
    if (end != std::string::npos) {
        write(std::string_view(line_).substr(0, end + 1));
        line_.erase(0, end + 1);
    }
}

void LibraryOutput::write(std::string_view text) {
    const std::string shown = printable_lines(text);
    std::fwrite(shown.data(), 1, shown.size(), stderr);
}

void LibraryOutput::end_line() {
    if (!line_.empty()) {
        write(line_ + "\n");
        line_.clear();
    }
}

}  // namespace tool
