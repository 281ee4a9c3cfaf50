// SPDX-License-Identifier: Apache-2.0
// Standard output turned away while a case that prints is measured.
#ifndef SIDEBAND_BENCH_SILENCE_H
#define SIDEBAND_BENCH_SILENCE_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace bench {

/// What is printed goes nowhere as long as this lives: standard output is the benchmark's own.
class Silence {
public:
    Silence() : saved_((std::fflush(stdout), dup(STDOUT_FILENO))) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int saved_;
};

}  // namespace bench

#endif
