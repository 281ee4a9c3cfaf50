// SPDX-License-Identifier: Apache-2.0
// The sensors of a terminus and what they read: a table for people, a list for programs.
#include "tools/pldm/sensor_report.h"

#include <fmt/format.h>

#include "tools/pldm/codes.h"
#include "tools/pldm/pdr_names.h"
#include "tools/pldm/sensor_reading.h"
#include "tools/shell/json.h"
#include "tools/shell/output.h"

namespace tool {
namespace {

std::string or_dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

const char* kind_of(const Sensor& sensor) {
    return sensor.numeric ? "numeric" : "state";
}

/// How grave a state is, by its name in DSP0248 or in the state set Health State (DSP0249).
Tone tone_of_state(std::string_view name) {
    if (name.ends_with("Warning") || name.ends_with("Non-Critical")) {
        return Tone::kWarning;
    }
    return name.ends_with("Critical") || name.ends_with("Fatal") ? Tone::kBad : Tone::kPlain;
}

/// The name that the board gives to a sensor; empty for none.
std::string board_name(const Endpoint& endpoint, const Sensor& sensor) {
    for (const Sensor& described : endpoint.sensors) {
        if (described.id == sensor.id && described.numeric == sensor.numeric) {
            return described.name;
        }
    }
    return "";
}

KnownSensor from_record(const Session& session, const PdrRecord& record, const SensorNames& names) {
    KnownSensor known;
    known.record = decode_sensor(session, record);
    known.sensor = described_by(*known.record);
    const auto named = names.find(known.sensor.id);
    known.sensor.name =
        named != names.end() ? named->second.front() : board_name(session.endpoint(), known.sensor);
    return known;
}

/// A sensor of which the record tells the ID at most.
KnownSensor without_record(const PdrRecord& record, const Failure& failure) {
    constexpr size_t kIdAt = offsetof(pldm_state_sensor_pdr, sensor_id);
    KnownSensor known;
    known.sensor.numeric = record.type() == PLDM_PDR_TYPE_NUMERIC_SENSOR;
    if (record.bytes.size() >= kIdAt + 2) {
        known.sensor.id = static_cast<uint16_t>(record.bytes[kIdAt] | record.bytes[kIdAt + 1] << 8);
    }
    known.undecodable = failure;
    return known;
}

/// What programs get of the record: the fields that give a reading its meaning.
void add_record(const SensorRecord& record, const Sensor& sensor, Json& json) {
    json["entity_type"] = record.entity_type();
    json["entity_instance_number"] = record.entity_instance();
    json["container_id"] = record.container_id();
    json["entity"] = sensor.entity;
    if (record.numeric()) {
        const pldm_numeric_sensor_pdr& numeric = record.pdr.numeric;
        json["base_unit"] = +numeric.base_unit;
        json["unit_modifier"] = +numeric.unit_modifier;
        json["rate_unit"] = +numeric.rate_unit;
    }
}

/// Rows and objects, sensor by sensor.
class Reader {
public:
    explicit Reader(Session& session) : session_(session) {}

    /// @return false if nothing answers any more
    bool read(const KnownSensor& known) {
        if (known.undecodable) {
            add_failed(known.sensor, "undecodable", *known.undecodable);
            return true;
        }
        try {
            known.sensor.numeric ? read_numeric_sensor(known) : read_state_sensor(known);
        } catch (const Failure& failure) {
            add_failed(known.sensor, "failed", failure);
            report.failures.push_back(failure);
            return failure.code().has_value();
        }
        return true;
    }

    SensorReport report{.table = Table({{"ID", true},
                                        {"NAME"},
                                        {"ENTITY"},
                                        {"KIND"},
                                        {"RAW", true},
                                        {"READING", true},
                                        {"UNIT"},
                                        {"THRESHOLDS"},
                                        {"STATE"}}),
                        .list = Json::array(),
                        .failures = {}};

private:
    static constexpr size_t kReadingColumn = 5;
    static constexpr size_t kThresholdsColumn = 7;
    static constexpr size_t kStateColumn = 8;
    static constexpr uint16_t kHealthStateSet = 1;

    void tint_operational_state(uint8_t state) {
        report.table.tint(kStateColumn,
                          operational_state_name(state) == "failed" ? Tone::kBad : Tone::kPlain);
    }

    void add_row(const Sensor& sensor, const std::string& id, std::vector<std::string> read) {
        std::vector<std::string> row{id, or_dash(sensor.name), or_dash(sensor.entity),
                                     kind_of(sensor)};
        row.insert(row.end(), read.begin(), read.end());
        report.table.add(std::move(row));
    }

    void add_failed(const Sensor& sensor, const char* state, const Failure& failure) {
        add_row(sensor, std::to_string(sensor.id), {"-", "-", "-", "-", state});
        report.table.tint(kStateColumn, Tone::kBad);
        report.list.push_back({{"sensor_id", sensor.id},
                               {"sensor_type", kind_of(sensor)},
                               {"name", sensor.name},
                               {"error", failure_json(failure)}});
    }

    void read_numeric_sensor(const KnownSensor& known) {
        const Sensor& sensor = known.sensor;
        const NumericReading reading = read_numeric(session_, sensor.id);
        const std::string raw = reading.enabled() ? std::to_string(reading.present_reading) : "-";
        add_row(
            sensor, std::to_string(sensor.id),
            {raw, value_text(sensor, reading), or_dash(sensor.unit),
             threshold_text(sensor, reading), operational_state_name(reading.operational_state)});
        if (reading.enabled()) {
            report.table.tint(kThresholdsColumn,
                              tone_of_state(numeric_state_name(reading.present_state)));
        }
        tint_operational_state(reading.operational_state);
        Json json = numeric_json(sensor, reading);
        if (known.record) {
            add_record(*known.record, sensor, json);
            json["converted_reading"] =
                reading.enabled()
                    ? Json(pldm_reading_conversion(reading.received_reading, &known.record->pdr, 1))
                    : Json();
        }
        report.list.push_back(std::move(json));
    }

    void read_state_sensor(const KnownSensor& known) {
        const Sensor& sensor = known.sensor;
        const std::vector<pldm_state_reading> states = read_state(session_, sensor.id);
        for (size_t i = 0; i < states.size(); ++i) {
            const std::string id = states.size() == 1 ? std::to_string(sensor.id)
                                                      : fmt::format("{}[{}]", sensor.id, i);
            const bool enabled = states[i].sensor_operational_state == PLDM_SENSOR_ENABLED;
            add_row(sensor, id,
                    {enabled ? std::to_string(states[i].present_state) : "-",
                     enabled ? present_state(sensor, i, states[i].present_state) : "-",
                     i < sensor.state_sets.size() ? state_set_name(sensor.state_sets[i]) : "-", "-",
                     operational_state_name(states[i].sensor_operational_state)});
            if (enabled && i < sensor.state_sets.size() &&
                sensor.state_sets[i] == kHealthStateSet) {
                report.table.tint(kReadingColumn,
                                  tone_of_state(present_state(sensor, i, states[i].present_state)));
            }
            tint_operational_state(states[i].sensor_operational_state);
        }
        if (states.empty()) {
            add_row(sensor, std::to_string(sensor.id), {"-", "-", "-", "-", "no composite sensor"});
        }
        Json json = state_json(sensor, states);
        if (known.record) {
            add_record(*known.record, sensor, json);
        }
        report.list.push_back(std::move(json));
    }

    static std::string present_state(const Sensor& sensor, size_t position, uint8_t state) {
        const std::string name = position < sensor.state_sets.size()
                                     ? state_name(sensor.state_sets[position], state)
                                     : "";
        return name.empty() ? std::to_string(state) : name;
    }

    Session& session_;
};

}  // namespace

SensorList find_sensors(Session& session) {
    const PdrWalk walk = walk_pdrs(session);
    SensorList list;
    list.failures = walk.failures;
    const SensorNames names = auxiliary_names(walk.records);
    for (const PdrRecord& record : walk.records) {
        if (!is_sensor(record)) {
            continue;
        }
        try {
            list.sensors.push_back(from_record(session, record, names));
        } catch (const Failure& failure) {
            list.sensors.push_back(without_record(record, failure));
            if (record.whole()) {  // else the walk has told it already
                list.failures.push_back(failure);
            }
        }
    }
    if (walk.records.empty() && walk.failures.empty()) {
        for (const Sensor& sensor : session.endpoint().sensors) {
            list.sensors.push_back({.sensor = sensor, .record = {}, .undecodable = {}});
        }
        if (list.sensors.empty()) {
            throw Failure(ExitStatus::kUsage,
                          fmt::format("{}: it has no PDRs and the board describes no sensors of "
                                      "it; give their numbers",
                                      session.endpoint().name));
        }
    }
    return list;
}

SensorReport read_sensors(Session& session, const std::vector<KnownSensor>& sensors) {
    Reader reader(session);
    for (const KnownSensor& known : sensors) {
        if (!reader.read(known)) {
            break;  // The next sensor would only cost another time-out.
        }
    }
    return std::move(reader.report);
}

}  // namespace tool
