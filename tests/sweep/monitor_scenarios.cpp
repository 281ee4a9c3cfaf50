// SPDX-License-Identifier: Apache-2.0
// PLDM monitoring and FRU data: sensors, PDRs, their printing, FRU tables and records.
#include "scenario.h"

namespace sweep {
namespace {

const std::string kSensors =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9, "tid": 5,
        "pdr_part_size": 40,
        "sensors": [{"kind": "numeric", "id": 1, "data_size": 2, "unit": "degC",
                     "waveform": {"shape": "constant", "value": 71}},
                    {"kind": "state", "id": 7, "composites": [
                        {"state_set": 1, "states": [1]}, {"state_set": 21, "states": [2]}]}]})";

void ready(World& world) {
    ready_terminus(world, kSensors);
}
void ready_strict(World& world) {
    ready(world);
    world.endpoint.strict = MCTP_STRICT_ALL;
}

pldm_pdr& pdr(World& world) {
    return *reinterpret_cast<pldm_pdr*>(world.room.data());
}
pldm_state_reading& reading(World& world) {
    return *reinterpret_cast<pldm_state_reading*>(world.room.data());
}
std::string stored_room(const World& world) {
    return shown(world.room.data(), 256);
}
std::string stored_number(const World& world) {
    return listed(world.numbers[0], world.numbers[1]);
}
void clear(World& world) {
    world.room = {};
    world.numbers = {};
}

/// A decoded numeric record, whose slots are narrow.
void fill_record(World& world) {
    pldm_pdr& record = pdr(world);
    record.header.type = PLDM_PDR_TYPE_NUMERIC_SENSOR;
    record.numeric.sensor_data_size = PLDM_DATA_SIZE_UINT16;
    record.numeric.resolution = 1;
}
void fill_state_record(World& world) {
    pldm_pdr& record = pdr(world);
    record.header.type = PLDM_PDR_TYPE_STATE_SENSOR;
    record.state.composite_sensor_count = 1;
    record.state.entries[0] = 1;
    record.state.entries[2] = 1;
}

std::vector<Scenario> sensors() {
    return {
        {.function = "pldm_set_numeric_sensor_enable",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_set_numeric_sensor_enable(&world.pldm, 1, 0, 0);
         },
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_get_sensor_reading",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_get_sensor_reading(&world.pldm, 1, &world.numbers[0]);
         },
         .stored = stored_number,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_set_state_sensor_enable",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_set_state_sensor_enable(&world.pldm, 7, 2, 0, 0);
         },
         .record = record_of_terminus,
         .failures = {-1, PLDM_ERROR_ARGUMENT},
         .never_freed = 1},
        {.function = "pldm_get_state_sensor_reading",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_get_state_sensor_reading(&world.pldm, 7, &reading(world));
         },
         .stored = stored_room,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_get_state_sensor_reading_from_HEALTH",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_get_state_sensor_reading_from_HEALTH(&world.pldm, 7, &reading(world), 1);
         },
         .stored = stored_room,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1, PLDM_ERROR_ARGUMENT}},
    };
}

int64_t get_pdr(World& world) {
    world.numbers[0] = 1;
    return pldm_get_pdr(&world.pldm, &world.numbers[0], world.room.data(), PLDM_PDR_PART_SIZE);
}

std::vector<Scenario> repository() {
    return {
        {.function = "pldm_get_pdr_repository_info",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_get_pdr_repository_info(&world.pldm, &world.numbers[0]);
         },
         .stored = stored_number,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_get_pdr",
         .set_up = ready,
         .call = get_pdr,
         .stored = stored_room,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1, PLDM_PDR_NOT_FOUND},
         .keeps_parts = true},
        {.function = "pldm_get_pdr",
         .way = "strict",
         .set_up = ready_strict,
         .call = get_pdr,
         .stored = stored_room,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1, PLDM_PDR_NOT_FOUND},
         .keeps_parts = true},
        {.function = "pldm_get_full_pdr",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_get_full_pdr(&world.pldm, 1, &pdr(world));
         },
         .stored = stored_room,
         .again = clear,
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_PDR_traversal",
         .set_up = ready,
         .call = [](World& world) -> int64_t { return pldm_PDR_traversal(&world.pldm); },
         .record = record_of_terminus,
         .failures = {PLDM_PDR_NOT_USABLE}},
    };
}

std::vector<Scenario> records() {
    return {
        {.function = "pldm_get_data_size",
         .call = [](World&) -> int64_t { return pldm_get_data_size(PLDM_DATA_SIZE_UINT16); }},
        {.function = "pldm_parse_pdr",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             pldm_pdr parsed{};
             return pldm_parse_pdr(world.room.data(), &parsed);
         }},
        {.function = "pldm_parse_numeric_sensor_pdr",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             pldm_numeric_sensor_pdr parsed{};
             return pldm_parse_numeric_sensor_pdr(world.room.data(), &parsed);
         }},
        {.function = "pldm_parse_state_sensor_pdr",
         .set_up = fill_state_record,
         .call = [](World& world) -> int64_t {
             pldm_state_sensor_pdr parsed{};
             return pldm_parse_state_sensor_pdr(world.room.data(), &parsed);
         }},
        {.function = "pldm_find_ctrl_state_set_idx",
         .set_up = fill_state_record,
         .call = [](World& world) -> int64_t {
             return pldm_find_ctrl_state_set_idx(1, &pdr(world).state, &world.numbers[0]);
         }},
        {.function = "pldm_numeric_reading_conversion",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             return pldm_numeric_reading_conversion(71, &pdr(world).numeric);
         }},
        {.function = "pldm_reading_conversion",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             return pldm_reading_conversion(71, &pdr(world), 1);
         }},
        {.function = "dump_numeric_sensor_pdr",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             dump_numeric_sensor_pdr(&pdr(world).numeric);
             return 0;
         }},
        {.function = "lookup_state_set_string",
         .call = [](World& world) -> int64_t {
             lookup_state_set_string(1, reinterpret_cast<char*>(world.room.data()));
             return 0;
         }},
        {.function = "pldm_print_numeric_PDR",
         .set_up = fill_record,
         .call = [](World& world) -> int64_t {
             pldm_print_numeric_PDR(&pdr(world).numeric);
             return 0;
         }},
        {.function = "pldm_print_state_PDR",
         .set_up = fill_state_record,
         .call = [](World& world) -> int64_t {
             pldm_print_state_PDR(&pdr(world).state);
             return 0;
         }},
        {.function = "dump_packet",
         .call = [](World& world) -> int64_t {
             dump_packet(world.room.data(), 40);
             return 0;
         }},
    };
}

// ---- FRU data ----

const std::string kFru =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9,
        "fru": {"part_size": 54, "fixed_size": true, "records": [
            {"set": 1, "fields": [{"type": "model", "text": "EG-40"},
                                  {"type": "part_number", "text": "900-EG40-0002"},
                                  {"type": "serial_number", "text": "EG1524009876"},
                                  {"type": "manufacturer", "text": "Example Graphics"}]}]}})";
const std::string kStrictFru =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9,
        "fru": {"part_size": 54, "records": [
            {"set": 1, "fields": [{"type": "model", "text": "EG-40"},
                                  {"type": "part_number", "text": "900-EG40-0002"},
                                  {"type": "serial_number", "text": "EG1524009876"},
                                  {"type": "manufacturer", "text": "Example Graphics"}]}]}})";
constexpr uint32_t kModel = 2;

void ready_fru(World& world) {
    ready_terminus(world, kFru);
    pldm_get_FRU_record_table_metadata(&world.pldm, &world.numbers[1]);
}
void ready_strict_fru(World& world) {
    ready_terminus(world, kStrictFru);
    pldm_get_FRU_record_table_metadata(&world.pldm, &world.numbers[1]);
    world.endpoint.strict = MCTP_STRICT_ALL;
}
void clear_room(World& world) {
    world.room = {};
}

int64_t read_table(World& world) {
    return pldm_get_FRU_record_table(&world.pldm, world.room.data(), world.numbers[1]);
}
int64_t read_fixed_table(World& world) {
    return pldm_get_FRU_record_table_MX(&world.pldm, world.room.data(),
                                        static_cast<int32_t>(world.numbers[1]));
}

/// A record of two fields.
constexpr std::array<uint8_t, 14> kRecord{1, 0, 1, 2, 1, 2, 3, 'a', 'b', 'c', 4, 2, 'd', 'e'};

std::string stored_fields(const World& world) {
    std::string text = listed(world.record.number_of_fields);
    for (int i = 0; world.record.fields != nullptr && i < world.record.number_of_fields; ++i) {
        const char* const value = world.record.fields[i].value;
        text += value != nullptr ? value : "none";
    }
    return text;
}
int64_t parse_record(World& world) {
    return pldm_parse_record_table(kRecord.data(), &world.record, kRecord.size());
}
void free_record(World& world) {
    freeFRUdata(&world.record);
}

std::vector<Scenario> tables() {
    std::vector<Scenario> all;
    const struct {
        const char* way;
        void (*set_up)(World&);
        bool strict;
    } ways[] = {{"", ready_fru, false}, {"strict", ready_strict_fru, true}};
    for (const auto& [way, set_up, strict] : ways) {
        all.push_back({.function = "pldm_get_FRU_record_table",
                       .way = way,
                       .set_up = set_up,
                       .call = read_table,
                       .stored = stored_room,
                       .again = clear_room,
                       .record = record_of_terminus,
                       .failures = {-1, PLDM_ERROR_ARGUMENT},
                       .keeps_parts = !strict});
        all.push_back({.function = "pldm_get_FRU_record_table_MX",
                       .way = way,
                       .set_up = set_up,
                       .call = read_fixed_table,
                       .stored = stored_room,
                       .again = clear_room,
                       .record = record_of_terminus,
                       .failures = {-1, PLDM_ERROR_ARGUMENT},
                       .keeps_parts = !strict});
        all.push_back({.function = "pldm_get_FRU_fields",
                       .way = way,
                       .set_up = set_up,
                       .call = [](World& world) -> int64_t {
                           return pldm_get_FRU_fields(&world.pldm, kModel);
                       },
                       .record = record_of_terminus,
                       .failures = {-2, PLDM_ERROR_ARGUMENT}});
    }
    return all;
}

}  // namespace

std::vector<Scenario> monitor_scenarios() {
    std::vector<Scenario> all;
    for (auto* part : {sensors, repository, records}) {
        const std::vector<Scenario> some = part();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::vector<Scenario> fru_scenarios() {
    std::vector<Scenario> all = tables();
    all.push_back({.function = "pldm_get_FRU_record_table_metadata",
                   .set_up = ready_fru,
                   .call = [](World& world) -> int64_t {
                       return pldm_get_FRU_record_table_metadata(&world.pldm, &world.numbers[0]);
                   },
                   .stored = stored_number,
                   .record = record_of_terminus,
                   .failures = {-1}});
    all.push_back({.function = "print_pldm_metadata", .call = [](World&) -> int64_t {
                       print_pldm_metadata({});
                       return 0;
                   }});
    all.push_back({.function = "pldm_parse_record_table",
                   .call = parse_record,
                   .stored = stored_fields,
                   .again = free_record,
                   .release = free_record,
                   .failures = {PLDM_ERROR_ARGUMENT},
                   .keeps_parts = true,
                   .owns = true});
    all.push_back({.function = "freeFRUdata",
                   .set_up = [](World& world) { parse_record(world); },
                   .call = [](World& world) -> int64_t {
                       freeFRUdata(&world.record);
                       return 0;
                   }});
    all.push_back({.function = "isBufOverFlow",
                   .call = [](World&) -> int64_t { return isBufOverFlow(1, 2); }});
    return all;
}

}  // namespace sweep
