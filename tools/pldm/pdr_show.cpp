// SPDX-License-Identifier: Apache-2.0
// One PDR, field by field: for people and for programs.
#include "tools/pldm/pdr_show.h"

#include <fmt/format.h>

#include <cmath>

#include "common/wire.h"
#include "tools/pldm/pdr_names.h"
#include "tools/pldm/sensor_pdr.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using sideband::WireReader;

/// A field by the standard's name, its value, and what that means if numbers do not say it.
struct Field {
    const char* name;
    Json value;
    std::string words;
};
using Fields = std::vector<Field>;

/// A number that JSON can hold: NaN and the infinities become null.
Json finite(double value) {
    return std::isfinite(value) ? Json(value) : Json();
}

/// A whole number as one, for formats that are integers.
Json slot_json(pldm_pdr_slot slot, uint8_t format) {
    const double value = slot_value(slot, format);
    return format == PLDM_DATA_SIZE_REAL32 ? finite(value) : Json(static_cast<int64_t>(value));
}

Json real(float value) {
    return finite(static_cast<double>(value));
}

/// The names of the set bits, "upperWarning upperCritical".
std::string bit_names(uint8_t bits, std::span<const char* const> names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        if ((bits >> i & 1) != 0) {
            text += (text.empty() ? "" : " ") + std::string(names[i]);
        }
    }
    return text.empty() ? "none" : text;
}

void add_header(const PdrRecord& record, Fields& fields) {
    WireReader reader(record.bytes);
    const uint32_t handle = reader.le32();
    const uint8_t version = reader.u8();
    const uint8_t type = reader.u8();
    const uint16_t change = reader.le16();
    const uint16_t length = reader.le16();
    fields.push_back({"record_handle", handle, ""});
    fields.push_back({"pdr_header_version", version, ""});
    fields.push_back({"pdr_type", type, pdr_type_name(type)});
    fields.push_back({"record_change_number", change, ""});
    fields.push_back({"data_length", length, "bytes"});
}

/// What numeric and state sensors have in common.
void add_sensor(const SensorRecord& record, Fields& fields) {
    const pldm_state_sensor_pdr& sensor = record.pdr.state;
    fields.push_back({"pldm_terminus_handle", +sensor.terminus_handle, ""});
    fields.push_back({"sensor_id", record.sensor_id(), ""});
    fields.push_back({"entity_type", record.entity_type(), entity_type_name(record.entity_type())});
    fields.push_back({"entity_instance_number", record.entity_instance(), ""});
    fields.push_back({"container_id", record.container_id(), ""});
    fields.push_back({"sensor_init", +sensor.sensor_init, sensor_init_name(sensor.sensor_init)});
    fields.push_back({"sensor_auxiliary_names_pdr", sensor.sensor_auxiliary_names_pdr != 0,
                      sensor.sensor_auxiliary_names_pdr != 0 ? "there is one" : "none"});
}

void add_units(const pldm_numeric_sensor_pdr& sensor, Fields& fields) {
    const auto modifier = [](int8_t power) {
        return power == 0 ? "" : fmt::format("x10^{}", power);
    };
    const auto rate = [](uint8_t unit) {
        const std::string symbol = rate_symbol(unit);
        return symbol.empty() ? "none" : symbol;
    };
    fields.push_back({"base_unit", +sensor.base_unit, unit_name(sensor.base_unit)});
    fields.push_back({"unit_modifier", +sensor.unit_modifier, modifier(sensor.unit_modifier)});
    fields.push_back({"rate_unit", +sensor.rate_unit, rate(sensor.rate_unit)});
    fields.push_back({"base_oem_unit_handle", +sensor.base_oem_unit_handle, ""});
    fields.push_back({"aux_unit", +sensor.aux_unit, unit_name(sensor.aux_unit)});
    fields.push_back(
        {"aux_unit_modifier", +sensor.aux_unit_modifier, modifier(sensor.aux_unit_modifier)});
    fields.push_back({"aux_rate_unit", +sensor.aux_rate_unit, rate(sensor.aux_rate_unit)});
    fields.push_back({"rel", +sensor.rel, sensor.rel == 0 ? "divided by" : "multiplied by"});
    fields.push_back({"aux_oem_unit_handle", +sensor.aux_oem_unit_handle, ""});
}

void add_conversion(const pldm_numeric_sensor_pdr& sensor, Fields& fields) {
    static constexpr const char* kThresholds[] = {"upperWarning", "upperCritical", "upperFatal",
                                                  "lowerWarning", "lowerCritical", "lowerFatal"};
    const uint8_t size = sensor.sensor_data_size;
    fields.push_back({"is_linear", sensor.is_linear != 0, ""});
    fields.push_back({"sensor_data_size", size, data_size_name(size)});
    fields.push_back({"resolution", real(sensor.resolution), "units a count"});
    fields.push_back({"offset", real(sensor.offset), "units"});
    fields.push_back({"accuracy", +sensor.accuracy, "1/100 %"});
    fields.push_back({"plus_tolerance", +sensor.plus_tolerance, "counts"});
    fields.push_back({"minus_tolerance", +sensor.minus_tolerance, "counts"});
    fields.push_back({"hysteresis", slot_json(sensor.hysteresis, size), "counts"});
    fields.push_back({"supported_thresholds", +sensor.supported_thresholds,
                      bit_names(sensor.supported_thresholds, kThresholds)});
    fields.push_back(
        {"threshold_and_hysteresis_volatility", +sensor.threshold_and_hysteresis_volatility, ""});
    fields.push_back({"state_transition_interval", real(sensor.state_transition_interval), "s"});
    fields.push_back({"update_interval", real(sensor.update_interval), "s"});
    fields.push_back({"max_readable", slot_json(sensor.max_readable, size), "counts"});
    fields.push_back({"min_readable", slot_json(sensor.min_readable, size), "counts"});
}

void add_range(const pldm_numeric_sensor_pdr& sensor, Fields& fields) {
    static constexpr const char* kSupported[] = {"nominalValue", "normalMax",   "normalMin",
                                                 "criticalHigh", "criticalLow", "fatalHigh",
                                                 "fatalLow"};
    const uint8_t format = sensor.range_field_format;
    fields.push_back({"range_field_format", format, data_size_name(format)});
    fields.push_back({"range_field_support", +sensor.range_field_support,
                      bit_names(sensor.range_field_support, kSupported)});
    const struct {
        const char* name;
        pldm_pdr_slot slot;
    } values[] = {
        {"nominal_value", sensor.nominal_value}, {"normal_max", sensor.normal_max},
        {"normal_min", sensor.normal_min},       {"warning_high", sensor.warning_high},
        {"warning_low", sensor.warning_low},     {"critical_high", sensor.critical_high},
        {"critical_low", sensor.critical_low},   {"fatal_high", sensor.fatal_high},
        {"fatal_low", sensor.fatal_low},
    };
    for (const auto& value : values) {
        fields.push_back({value.name, slot_json(value.slot, format), "units"});
    }
}

std::string states_words(const CompositeSensor& composite) {
    std::string text;
    for (const uint16_t state : possible_states(composite)) {
        const std::string name =
            state <= UINT8_MAX ? state_name(composite.state_set, static_cast<uint8_t>(state)) : "";
        text += (text.empty() ? "" : ", ") + std::to_string(state);
        text += name.empty() ? "" : " " + name;
    }
    return text.empty() ? "no states" : text;
}

void add_composites(const SensorRecord& record, Fields& fields) {
    Json list = Json::array();
    std::string words;
    for (const CompositeSensor& composite : record.composites) {
        list.push_back({{"state_set_id", composite.state_set},
                        {"state_set_name", state_set_name(composite.state_set)},
                        {"possible_states_size", composite.possible_states.size()},
                        {"possible_states", possible_states(composite)}});
        words += fmt::format("{}{} {}: {}", words.empty() ? "" : "\n", composite.state_set,
                             state_set_name(composite.state_set), states_words(composite));
    }
    fields.push_back({"composite_sensor_count", record.composites.size(), ""});
    fields.push_back({"composite_sensors", std::move(list), words});
}

Fields fields_of(const Session& session, const PdrRecord& record) {
    Fields fields;
    add_header(record, fields);
    if (!is_sensor(record)) {
        const std::span<const uint8_t> bytes(record.bytes);
        fields.push_back({"data", hex(bytes.subspan(sizeof(pldm_pdr_header))), ""});
        return fields;
    }
    const SensorRecord sensor = decode_sensor(session, record);
    add_sensor(sensor, fields);
    if (sensor.numeric()) {
        const pldm_numeric_sensor_pdr& numeric = sensor.pdr.numeric;
        add_units(numeric, fields);
        add_conversion(numeric, fields);
        add_range(numeric, fields);
    } else {
        add_composites(sensor, fields);
    }
    return fields;
}

std::string value_text(const Json& value) {
    if (value.is_text()) {
        return value.text();
    }
    if (value.is_real()) {
        return fmt::format("{:.6g}", value.real_number());
    }
    return value.is_null() ? "no number" : value.dump();
}

}  // namespace

std::string record_text(const Session& session, const PdrRecord& record) {
    Table table({{"FIELD"}, {"VALUE"}, {"MEANING"}});
    for (const Field& field : fields_of(session, record)) {
        if (!field.value.is_array()) {
            table.add({field.name, value_text(field.value), field.words});
            continue;
        }
        // One line each, for composite sensors.
        const std::string& lines = field.words;
        for (size_t at = 0, count = 0; at < lines.size(); ++count) {
            const size_t end = std::min(lines.find('\n', at), lines.size());
            table.add({fmt::format("composite sensor {}", count), "", lines.substr(at, end - at)});
            at = end + 1;
        }
    }
    return table.text();
}

Json record_fields(const Session& session, const PdrRecord& record) {
    Json json;
    for (const Field& field : fields_of(session, record)) {
        json[field.name] = field.value;
    }
    return json;
}

}  // namespace tool
