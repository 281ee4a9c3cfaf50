// SPDX-License-Identifier: Apache-2.0
// Repeats one exchange a given number of times, for an instruction counter to watch.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/allocations.h"
#include "bench/cases.h"
#include "bench/silence.h"

namespace {

int list_cases() {
    for (const bench::Case& one : bench::cases()) {
        std::printf("%s\n", one.name);
    }
    return 0;
}

/// @return allocations of count exchanges, or -1 if one failed
long long repeat(const bench::Case& one, unsigned long count) {
    const uint64_t before = bench::allocations();
    bool good = true;
    for (unsigned long i = 0; i < count; ++i) {
        good = one.run() && good;
    }
    return good ? static_cast<long long>(bench::allocations() - before) : -1;
}

int run(const char* name, unsigned long count) {
    const bench::Case* one = bench::find_case(name);
    if (one == nullptr) {
        std::fprintf(stderr, "bench-repeat: there is no case %s\n", name);
        return 2;
    }
    const bench::Silence silence;
    one->prepare();
    if (!one->run() || !one->verify()) {
        std::fprintf(stderr, "bench-repeat: %s does not work\n", name);
        return 1;
    }
    const long long taken = repeat(*one, count);
    const bool failed = taken < 0 || !one->verify();
    if (failed || static_cast<uint64_t>(taken) != count * one->allocations) {
        std::fprintf(stderr, "bench-repeat: %s %s\n", name,
                     failed ? "failed" : "takes other memory from the heap than it should");
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--cases") == 0) {
        return list_cases();
    }
    if (argc == 2 && std::strcmp(argv[1], "--check") == 0) {
        int result = 0;
        for (const bench::Case& one : bench::cases()) {
            result |= run(one.name, 1000);
        }
        return result;
    }
    if (argc == 4 && std::strcmp(argv[1], "--repeat") == 0) {
        return run(argv[2], std::strtoul(argv[3], nullptr, 10));
    }
    std::fprintf(stderr, "usage: bench-repeat --cases | --check | --repeat CASE COUNT\n");
    return 2;
}
