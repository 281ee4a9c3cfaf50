// SPDX-License-Identifier: Apache-2.0
// What is measured: each case is one exchange or one parse, checked once and then repeated.
#ifndef SIDEBAND_BENCH_CASES_H
#define SIDEBAND_BENCH_CASES_H

#include <sideband/mctp.h>

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

/// A reading with all that it prints, and a FRU record: see pldm_cases.cpp.
void prepare_reading();
bool run_reading();
bool verify_reading();
void prepare_fru_record();
bool run_fru_record();
bool verify_fru_record();
inline constexpr uint64_t kFruRecordFields = 8;
/// The array, and a value for each field.
inline constexpr uint64_t kFruRecordAllocations = 1 + kFruRecordFields;

/// A drive's commands: see nvme_cases.cpp.
void prepare_identify();
bool run_identify();
bool verify_identify();
void prepare_health();
bool run_health();
bool verify_health();

/// An endpoint on the bus in memory, with packets of kUnitSize bytes.
void prepare_endpoint(mctp_ctx& endpoint, uint8_t binding_kind);
inline constexpr uint16_t kUnitSize = 64;

/// Every case, in the order of the documentation.
std::span<const Case> cases();

/// The case of that name, or null.
const Case* find_case(const char* name);

}  // namespace bench

#endif
