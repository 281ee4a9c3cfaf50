// SPDX-License-Identifier: Apache-2.0
// What is measured: each case is one exchange, checked once and then repeated.
#ifndef SIDEBAND_BENCH_CASES_H
#define SIDEBAND_BENCH_CASES_H

#include <cstdint>
#include <span>

namespace bench {

struct Case {
    const char* name;
    void (*prepare)();  ///< sets the endpoint and the device's answer up
    bool (*run)();      ///< one exchange; false where its result is not the right one
    bool (*verify)();   ///< whether the bytes that arrived are those that the device sent
};

/// Every case, in the order of the documentation.
std::span<const Case> cases();

/// The case of that name, or null.
const Case* find_case(const char* name);

}  // namespace bench

#endif
