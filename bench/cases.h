// SPDX-License-Identifier: Apache-2.0
// What is measured: each case is one exchange or one parse, checked once and then repeated.
#ifndef SIDEBAND_BENCH_CASES_H
#define SIDEBAND_BENCH_CASES_H

#include <cstdint>
#include <span>

namespace bench {

struct Case {
    const char* name;
    void (*prepare)();         ///< sets the endpoint and the device's answer up
    bool (*run)();             ///< one exchange; false if its result is not the right one
    bool (*verify)();          ///< whether the bytes that arrived are those that the device sent
    uint64_t allocations = 0;  ///< heap blocks that it takes, and gives back
};

/// Firmware update packages: see package_case.cpp.
void prepare_package();
bool run_package();
bool verify_package();
inline constexpr uint64_t kPackageRecords = 64;
inline constexpr uint64_t kPackageDescriptors = 8;  ///< of each record
inline constexpr uint64_t kPackageComponents = 128;
/// The version, two arrays, three blocks a record, one a component.
inline constexpr uint64_t kPackageAllocations = 3 + 3 * kPackageRecords + kPackageComponents;

/// Every case, in the order of the documentation.
std::span<const Case> cases();

/// The case of that name, or null.
const Case* find_case(const char* name);

}  // namespace bench

#endif
