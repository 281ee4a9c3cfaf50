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

constexpr void (*kOperations[])(pldm_ctx&, Input&) = {
    read_metadata, read_table, read_any_table, read_fixed_table, print_fields, parse_table,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsMax = 16;
    // Metadata, then the longest table in the smallest parts.
    constexpr unsigned kPlatformCallsMax = 2 + PLDM_FRU_TABLE_LENGTH_MAX / PLDM_FRU_PART_SIZE;
    fuzz::begin(bytes, size);
    Input& input = fuzz::world().input;
    mctp_ctx endpoint{};
    endpoint.xfer = fuzz::scripted_xfer;
    pldm_ctx ctx{};
    require(mctp_pldm_register(&endpoint, &ctx) == 0, "not registered");
    if ((input.u8() & 0x01) != 0) {
        ctx.transfer_op = fuzz::scripted_transfer;
    }
    for (int i = 0; i < kCallsMax && (i == 0 || !input.empty()); ++i) {
        kOperations[input.u8() % std::size(kOperations)](ctx, input);
        fuzz::end(kPlatformCallsMax);
    }
    fuzz::finish();
    return 0;
}
