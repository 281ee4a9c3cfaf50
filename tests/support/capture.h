// SPDX-License-Identifier: Apache-2.0
// Catches what is written to a file descriptor, whichever stdio of the process wrote it.
#ifndef SIDEBAND_TESTS_SUPPORT_CAPTURE_H
#define SIDEBAND_TESTS_SUPPORT_CAPTURE_H

#include <cstdio>
#include <string>

namespace test {

/// Redirects a descriptor to a temporary file from construction to text() or destruction.
class Capture {
public:
    /// @param descriptor  1 for standard output, 2 for standard error
    explicit Capture(int descriptor = 1);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Ends the capture and gives what was written.
    std::string text();

private:
    void restore();

    int descriptor_;
    int saved_ = -1;
    std::FILE* file_ = nullptr;
};

}  // namespace test

#endif
