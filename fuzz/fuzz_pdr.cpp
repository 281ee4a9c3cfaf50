// SPDX-License-Identifier: Apache-2.0
// Fuzzes the answers to the commands of the PDR repository, and the decoders, the conversion and
// the printing of PDRs with records from a device or straight from the input.
#include <sideband/mctp.h>
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

/// A record of a type, alone in its memory.
template <typename Record>
class Alone {
public:
    explicit Alone(const Record& record) : memory_(sizeof record) {
        std::memcpy(memory_.data(), &record, sizeof record);
    }
    Record* get() { return reinterpret_cast<Record*>(memory_.data()); }

private:
    GuardedBuffer memory_;
};

void use_numeric(const pldm_pdr& pdr, Input& input) {
    Alone record(pdr.numeric);
    const uint32_t reading = input.u32();
    const uint8_t value = pldm_numeric_reading_conversion(reading, record.get());
    require(pdr.numeric.sensor_data_size <= PLDM_DATA_SIZE_SINT32 || value == PLDM_PDR_NOT_USABLE,
            "a reading without an integer was converted");
    require(pldm_reading_conversion(reading, &pdr, 0) == static_cast<uint8_t>(reading),
            "an unconverted reading is not its low byte");
    if (pdr.header.type == PLDM_PDR_TYPE_NUMERIC_SENSOR) {
        require(pldm_reading_conversion(reading, &pdr, 1) == value, "two conversions differ");
    }
    pldm_print_numeric_PDR(record.get());
    dump_numeric_sensor_pdr(record.get());
}

void use_state(const pldm_pdr& pdr, Input& input) {
    Alone record(pdr.state);
    uint32_t index = UINT32_MAX;
    const int32_t result = pldm_find_ctrl_state_set_idx(input.u16(), record.get(), &index);
    require(result == 0 || result == PLDM_PDR_NOT_FOUND, "an undocumented result");
    require((result == 0) == (index < pdr.state.composite_sensor_count), "a wrong position");
    pldm_print_state_PDR(record.get());
}

void repository_info(pldm_ctx& ctx, Input& /*input*/) {
    constexpr uint32_t kUntouched = 0xA5A5A5A5;
    uint32_t count = kUntouched;
    const int32_t result = pldm_get_pdr_repository_info(&ctx, &count);
    require(result <= 255, "an undocumented result");
    require(result == 0 || count == kUntouched, "a failed command changed the count");
}

void get_record(pldm_ctx& ctx, Input& input) {
    uint32_t handle = input.u32();
    const uint32_t asked = handle;
    const uint32_t capacity = input.u16() % 1000;
    GuardedBuffer room(capacity);
    const int32_t result = pldm_get_pdr(&ctx, &handle, room.data(), capacity);
    room.check();
    require(result <= 255, "an undocumented result");
    require(result == 0 || handle == asked, "a failed command changed the handle");
    require(room.untouched_from(std::min<size_t>(capacity, 7 * PLDM_PDR_PART_SIZE)),
            "more than seven parts");
}

void get_decoded(pldm_ctx& ctx, Input& input) {
    pldm_pdr pdr{};
    const int32_t result = pldm_get_full_pdr(&ctx, input.u32(), &pdr);
    require(result <= 0, "an undocumented result");
    require(result < 0 || pdr.header.type == PLDM_PDR_TYPE_NUMERIC_SENSOR ||
                pdr.header.type == PLDM_PDR_TYPE_STATE_SENSOR,
            "a type without a decoder");
    use_numeric(pdr, input);
    use_state(pdr, input);
}

void traverse(pldm_ctx& ctx, Input& /*input*/) {
    // The walk has no end of its own: a device that always answers is not asked.
    fuzz::world().endless = false;
    const int32_t result = pldm_PDR_traversal(&ctx);
    require(result >= 0 && result <= 255, "an undocumented result");
}

void decode(pldm_ctx& /*ctx*/, Input& input) {
    // Of a record that is cut short the rest is zero, as callers have it.
    GuardedBuffer raw(sizeof(pldm_numeric_sensor_pdr));
    std::memset(raw.data(), 0, raw.size());
    input.fill({raw.data(), raw.size()});
    pldm_pdr pdr{};
    const int32_t result = pldm_parse_pdr(raw.data(), &pdr);
    require(result == 0 || result == -1, "an undocumented result");
    pldm_numeric_sensor_pdr numeric{};
    require((pldm_parse_numeric_sensor_pdr(raw.data(), &numeric) == 0) ==
                (pldm_get_data_size(numeric.sensor_data_size) != 0 &&
                 pldm_get_data_size(numeric.range_field_format) != 0),
            "formats and result do not agree");
    use_numeric(pdr, input);
    use_state(pdr, input);
}

constexpr fuzz::TerminusCall kCalls[] = {repository_info, get_record, get_decoded, traverse,
                                         decode};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // Seven parts, or as many answers as the input has.
    fuzz::run_terminus(bytes, size, kCalls, static_cast<unsigned>(8 + size));
    return 0;
}
