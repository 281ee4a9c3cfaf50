// SPDX-License-Identifier: Apache-2.0
// Fuzzes the answers to the FRU commands, and FRU tables in front of the parser.
#include <sideband/pldm_fru.h>

#include <algorithm>
#include <memory>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

void require_result(int32_t result) {
    require(result <= 255, "an undocumented result");
}

void read_metadata(pldm_ctx& ctx, Input& /*input*/) {
    uint32_t length = 0xA5A5A5A5;
    const int32_t result = pldm_get_FRU_record_table_metadata(&ctx, &length);
    require_result(result);
    require(result == 0 || length == 0xA5A5A5A5, "a failed command changed the length");
}

/// Into a buffer that holds the expected length and no more.
void read_table(pldm_ctx& ctx, Input& input) {
    GuardedBuffer table(input.u16() % 1024 + 1u);
    require_result(
        pldm_get_FRU_record_table(&ctx, table.data(), static_cast<uint32_t>(table.size())));
    table.check();
}

/// Into a buffer that holds whatever a device may claim.
void read_any_table(pldm_ctx& ctx, Input& /*input*/) {
    static GuardedBuffer table(PLDM_FRU_TABLE_LENGTH_MAX);
    require_result(pldm_get_FRU_record_table(&ctx, table.data(), 0));
    table.check();
}

void read_fixed_table(pldm_ctx& ctx, Input& input) {
    GuardedBuffer table(input.u16() % 1024);
    require_result(
        pldm_get_FRU_record_table_MX(&ctx, table.data(), static_cast<int32_t>(table.size())));
    table.check();
}

void print_fields(pldm_ctx& ctx, Input& input) {
    require_result(pldm_get_FRU_fields(&ctx, input.u8() % 20));
}

void parse_table(pldm_ctx& /*ctx*/, Input& input) {
    const std::span<const uint8_t> bytes = input.take(input.u16());
    const auto table = std::make_unique<uint8_t[]>(bytes.size());  // an overread shows behind it
    std::copy(bytes.begin(), bytes.end(), table.get());
    pldm_fru_record record;
    const int32_t result =
        pldm_parse_record_table(table.get(), &record, static_cast<uint32_t>(bytes.size()));
    require(result == 0 || result == PLDM_ERROR_ARGUMENT, "an undocumented result");
    for (int i = 0; result == 0 && i < record.number_of_fields; ++i) {
        const pldm_fru_field& field = record.fields[i];
        require(field.value[field.length] == '\0', "a value without its end");
    }
    freeFRUdata(&record);
    require(record.fields == nullptr, "a released record has fields");
}

constexpr fuzz::TerminusCall kCalls[] = {
    read_metadata, read_table, read_any_table, read_fixed_table, print_fields, parse_table,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // Metadata, then the longest table in the smallest parts.
    constexpr unsigned kCallsMax = 2 + PLDM_FRU_TABLE_LENGTH_MAX / PLDM_FRU_PART_SIZE;
    fuzz::run_terminus(bytes, size, kCalls, kCallsMax);
    return 0;
}
