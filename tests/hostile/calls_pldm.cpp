// SPDX-License-Identifier: Apache-2.0
// The calls of PLDM but for firmware updates: base, monitoring, PDRs, FRU data.
#include <sideband/pldm_fru.h>
#include <sideband/pldm_monitor.h>

#include <array>

#include "accounts.h"
#include "case.h"
#include "room.h"

namespace hostile {

namespace {

constexpr uint32_t kParts = 7;
/// A strict reader takes parts of a byte.
constexpr uint32_t kFruParts = PLDM_FRU_TABLE_LENGTH_MAX + 8;
constexpr int32_t kLongestTable = 2000;

uint16_t sensor_of(Case& at) {
    return static_cast<uint16_t>(at.random.one_of(16) ? at.random.byte() : 1 + at.random.below(6));
}

int32_t terminus(Case& at) {
    pldm_ctx made{};
    const int32_t result = pldm_terminus_init(&made, &at.config);
    if (result == 0) {
        at.error = made.last_error;
        pldm_terminus_deinit(&made);
    }
    // The context stays as it was, and the endpoint is gone.
    at.error.cause = result == 0 ? SIDEBAND_CAUSE_NONE : SIDEBAND_CAUSE_NO_ANSWER;
    return result;
}

int32_t temporary_terminus(Case& at) {
    pldm_ctx made{};
    const int32_t result = discover_pldm_terminus(&made, &at.config);
    pldm_terminus_deinit(&made);
    at.error = made.last_error;
    return result;
}

int32_t tid(Case& at) {
    const uint8_t before = at.pldm.tid;
    const int32_t result = pldm_get_tid(&at.pldm);
    at.expect(result == 0 || at.pldm.tid == before, "a TID of an answer that was refused");
    return result;
}

int32_t version(Case& at) {
    return pldm_get_version(&at.pldm, at.random.byte() & 7);
}

int32_t types(Case& at) {
    return pldm_get_type(&at.pldm);
}

int32_t commands(Case& at) {
    return pldm_get_commands(&at.pldm);
}

int32_t discovery(Case& at) {
    return pldm_discovery(&at.pldm);
}

int32_t enable_numeric(Case& at) {
    return pldm_set_numeric_sensor_enable(&at.pldm, sensor_of(at), 0, at.random.byte() & 3);
}

int32_t reading(Case& at) {
    uint32_t value = 0x5A5A5A5A;
    const int32_t result = pldm_get_sensor_reading(&at.pldm, sensor_of(at), &value);
    at.expect(result == 0 || value == 0x5A5A5A5A, "a reading of an answer that was refused");
    return result;
}

/// Its request is never freed: the one call that keeps a block.
int32_t enable_state(Case& at) {
    const size_t blocks = live_blocks();
    const int32_t result = pldm_set_state_sensor_enable(
        &at.pldm, sensor_of(at), static_cast<uint8_t>(at.random.below(10)), 0, 1);
    at.expect(live_blocks() <= blocks + 1, "more blocks than its request");
    free_blocks_above(blocks);
    return result;
}

int32_t state_reading(Case& at) {
    pldm_state_reading out{};
    return pldm_get_state_sensor_reading(&at.pldm, sensor_of(at), &out);
}

int32_t health(Case& at) {
    pldm_state_reading out{};
    return pldm_get_state_sensor_reading_from_HEALTH(&at.pldm, sensor_of(at), &out,
                                                     static_cast<uint8_t>(at.random.below(9)));
}

int32_t repository(Case& at) {
    uint32_t count = 77;
    const int32_t result = pldm_get_pdr_repository_info(&at.pldm, &count);
    at.expect(result == 0 || count == 77, "a count of an answer that was refused");
    return result;
}

uint32_t handle_of(Case& at) {
    return at.random.one_of(8) ? at.random.word() : at.random.below(8);
}

int32_t pdr(Case& at) {
    uint32_t handle = handle_of(at);
    const uint32_t before = handle;
    Room room(1 + at.random.below(300));
    const int32_t result =
        pldm_get_pdr(&at.pldm, &handle, room.data(), static_cast<uint32_t>(room.size()));
    at.expect(result == 0 || handle == before, "a handle of a record that is not whole");
    return result;
}

/// What was decoded is printed, converted and searched as well.
int32_t full_pdr(Case& at) {
    auto parsed = std::make_unique<pldm_pdr>();
    const int32_t result = pldm_get_full_pdr(&at.pldm, handle_of(at), parsed.get());
    if (result != 0) {
        return result;
    }
    pldm_reading_conversion(at.random.word(), parsed.get(), at.random.byte() & 1);
    if (parsed->header.type == PLDM_PDR_TYPE_STATE_SENSOR) {
        uint32_t index = 0;
        pldm_find_ctrl_state_set_idx(static_cast<uint16_t>(at.random.below(40)), &parsed->state,
                                     &index);
        pldm_print_state_PDR(&parsed->state);
    } else {
        dump_numeric_sensor_pdr(&parsed->numeric);
        pldm_print_numeric_PDR(&parsed->numeric);
    }
    return result;
}

/// A record that does not come whole is asked for without end.
int32_t traversal(Case& at) {
    at.limit(at.endpoint);
    const int32_t result = pldm_PDR_traversal(&at.pldm);
    mctp_set_deadline(&at.endpoint, 0);
    at.expect(result >= 0 && result <= 255, "a result of more than eight bits");
    return result == 0 ? 0 : -1;
}

int32_t metadata(Case& at) {
    uint32_t length = 77;
    const int32_t result = pldm_get_FRU_record_table_metadata(&at.pldm, &length);
    at.expect(result == 0 || length == 77, "a length of an answer that was refused");
    return result;
}

/// The table is parsed as a service does it.
void parse_table(Room& table) {
    pldm_fru_record record{};
    pldm_parse_record_table(table.data(), &record, static_cast<uint32_t>(table.size()));
    freeFRUdata(&record);
}

int32_t table(Case& at) {
    Room room(1 + at.random.below(kLongestTable));
    uint32_t length = 0;
    if (pldm_get_FRU_record_table_metadata(&at.pldm, &length) == 0 && length != 0 &&
        length <= kLongestTable) {
        room = Room(length);
    }
    const int32_t result =
        pldm_get_FRU_record_table(&at.pldm, room.data(), static_cast<uint32_t>(room.size()));
    if (result == 0) {
        parse_table(room);
    }
    return result;
}

int32_t fixed_table(Case& at) {
    Room room(1 + at.random.below(kLongestTable));
    const int32_t result =
        pldm_get_FRU_record_table_MX(&at.pldm, room.data(), static_cast<int32_t>(room.size()));
    if (result == 0) {
        parse_table(room);
    }
    return result;
}

int32_t fields(Case& at) {
    return pldm_get_FRU_fields(&at.pldm, 1 + at.random.below(16));
}

/// The receive operation by itself: what comes though nothing was asked.
int32_t receive(Case& at) {
    Room room(4 + at.random.below(60));
    const int32_t result =
        at.pldm.recv_op(&at.pldm, static_cast<int32_t>(room.size()), room.data());
    at.expect(result == 0 || result == -1, "neither 0 nor -1");
    at.error.cause = result == 0 ? SIDEBAND_CAUSE_NONE : SIDEBAND_CAUSE_NO_ANSWER;
    return result;
}

constexpr Call kCalls[] = {
    {"pldm_terminus_init", 2, 6 + 3 * 257, terminus},
    {"discover_pldm_terminus", 2, 8 + 3 * 257, temporary_terminus},
    {"pldm_get_tid", 8, 1, tid},
    {"pldm_get_version", 8, kParts, version},
    {"pldm_get_type", 8, 1, types},
    {"pldm_get_commands", 8, kParts + 1, commands},
    {"pldm_discovery", 4, 2, discovery},
    {"pldm_set_numeric_sensor_enable", 6, 1, enable_numeric},
    {"pldm_get_sensor_reading", 12, 1, reading},
    {"pldm_set_state_sensor_enable", 6, 1, enable_state},
    {"pldm_get_state_sensor_reading", 10, 1, state_reading},
    {"pldm_get_state_sensor_reading_from_HEALTH", 10, 1, health},
    {"pldm_get_pdr_repository_info", 8, 1, repository},
    {"pldm_get_pdr", 16, kParts, pdr},
    {"pldm_get_full_pdr", 20, kParts, full_pdr},
    {"pldm_get_FRU_record_table_metadata", 8, 1, metadata},
    {"pldm_get_FRU_record_table", 10, kFruParts + 2, table},
    {"pldm_get_FRU_record_table_MX", 10, kLongestTable + 1, fixed_table},
    {"pldm_get_FRU_fields", 5, kFruParts + 1, fields},
    {"pldm_recv", 1, 0, receive},
    {"pldm_PDR_traversal", 1, PLDM_PDR_RECORDS_MAX* kParts, traversal, kWithDeadline},
};

bool begin(Case& at) {
    at.endpoint = at.config;
    at.endpoint.skip_discovery = 1;
    return mctp_init2(&at.endpoint) == 0 && mctp_pldm_register(&at.endpoint, &at.pldm) == 0;
}

void end(Case& at) {
    pldm_terminus_deinit(&at.pldm);
}

const sideband_error& error_of_pldm(const Case& at) {
    return at.error.cause != SIDEBAND_CAUSE_NONE ? at.error : *pldm_last_error(&at.pldm);
}

}  // namespace

const Protocol kPldmProtocol{"pldm", "pldm", kCalls, begin, end, error_of_pldm};

}  // namespace hostile
