// SPDX-License-Identifier: Apache-2.0
// Catches what is written to a file descriptor, whichever stdio of the process wrote it.
#include "support/capture.h"

#include <unistd.h>

#include <cstdlib>

namespace test {

Capture::Capture(int descriptor) : descriptor_(descriptor) {
    std::fflush(nullptr);
    file_ = std::tmpfile();
    saved_ = dup(descriptor);
    if (file_ == nullptr || saved_ < 0 || dup2(fileno(file_), descriptor) < 0) {
        std::perror("capture");
        std::abort();
    }
}

Capture::~Capture() {
    restore();
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

void Capture::restore() {
    if (saved_ < 0) {
        return;
    }
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    close(saved_);
    saved_ = -1;
}

std::string Capture::text() {
    restore();
    std::string text;
    if (file_ == nullptr) {
        return text;
    }
    std::rewind(file_);
    char buffer[4096];
    size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, file_)) > 0) {
        text.append(buffer, count);
    }
    std::fclose(file_);
    file_ = nullptr;
    return text;
}

}  // namespace test
