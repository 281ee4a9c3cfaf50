// SPDX-License-Identifier: Apache-2.0
// The commands pldm info and pldm sensors.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "tools/codes.h"
#include "tools/command.h"
#include "tools/endpoint_name.h"
#include "tools/pldm_info.h"
#include "tools/sensors.h"
#include "tools/session.h"
#include "tools/text.h"

namespace tool {
namespace {

void show_info(Context& context, const std::string& endpoint, const PldmInfo& info) {
    Table types({{"TYPE", true}, {"VERSION"}, {"NAME"}});
    for (const PldmType& type : info.types) {
        types.add(
            {std::to_string(type.type), version_text(type.version), pldm_type_name(type.type)});
    }
    Table commands({{"COMMAND"}, {"NAME"}});
    Json command_list = Json::array();
    for (uint8_t command : info.base_commands) {
        commands.add({fmt::format("0x{:02x}", command), pldm_base_command_name(command)});
        command_list.push_back(command);
    }
    context.output.text(fmt::format("TID {}\n\n{}\nCommands of type 0\n{}", info.tid, types.text(),
                                    commands.text()));
    context.output.document({{"endpoint", endpoint},
                             {"tid", info.tid},
                             {"pldm_types", pldm_types_json(info)},
                             {"pldm_commands", command_list}});
}

/// "12", "numeric:12" or "state:5". A bare number is of the kind that the board says, else numeric.
Sensor parse_sensor(const Endpoint& endpoint, const std::string& text) {
    const size_t colon = text.find(':');
    const std::string kind = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::optional<uint32_t> id =
        parse_number(colon == std::string::npos ? text : text.substr(colon + 1), 0xFFFF);
    const bool known_kind = colon == std::string::npos || kind == "numeric" || kind == "state";
    if (!id || !known_kind) {
        throw Failure(ExitStatus::usage,
                      fmt::format("{}: a sensor is given as 12 or state:5, from 0 to 65535", text));
    }
    for (const Sensor& sensor : endpoint.sensors) {
        if (sensor.id == *id && (kind.empty() || sensor.numeric == (kind == "numeric"))) {
            return sensor;
        }
    }
    Sensor undescribed;
    undescribed.id = static_cast<uint16_t>(*id);
    undescribed.numeric = kind != "state";
    return undescribed;
}

std::vector<Sensor> wanted_sensors(const Endpoint& endpoint, const std::vector<std::string>& ids) {
    std::vector<Sensor> sensors;
    sensors.reserve(ids.size());
    for (const std::string& id : ids) {
        sensors.push_back(parse_sensor(endpoint, id));
    }
    if (ids.empty()) {
        sensors = endpoint.sensors;
    }
    if (sensors.empty()) {
        throw Failure(ExitStatus::usage,
                      fmt::format("{}: the board describes no sensors of it; give their numbers",
                                  endpoint.name));
    }
    return sensors;
}

/// Reads one sensor into a row and a JSON object.
Json read_sensor(Session& session, const Sensor& sensor, Table& table) {
    const std::string id = std::to_string(sensor.id);
    if (sensor.numeric) {
        const NumericReading reading = read_numeric(session, sensor.id);
        table.add({id, "numeric", sensor.name, value_text(sensor, reading), sensor.unit,
                   numeric_state_text(reading)});
        return numeric_json(sensor, reading);
    }
    const std::vector<pldm_state_reading> states = read_state(session, sensor.id);
    table.add({id, "state", sensor.name, "", "", states_text(sensor, states)});
    return state_json(sensor, states);
}

}  // namespace

void run_pldm_info(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    show_info(context, endpoint, read_pldm_info(session));
}

void run_pldm_sensors(Context& context, const std::string& endpoint,
                      const std::vector<std::string>& ids) {
    Session session(find_endpoint(context.port, endpoint));
    const std::vector<Sensor> sensors = wanted_sensors(session.endpoint(), ids);
    session.discover();
    Table table({{"ID", true}, {"KIND"}, {"NAME"}, {"READING", true}, {"UNIT"}, {"STATE"}});
    Json list = Json::array();
    std::vector<Failure> failures;
    for (const Sensor& sensor : sensors) {
        try {
            list.push_back(read_sensor(session, sensor, table));
        } catch (const Failure& failure) {
            const char* kind = sensor.numeric ? "numeric" : "state";
            table.add({std::to_string(sensor.id), kind, sensor.name, "", "", "failed"});
            list.push_back({{"sensor_id", sensor.id},
                            {"sensor_type", kind},
                            {"name", sensor.name},
                            {"error", failure_json(failure)}});
            failures.push_back(failure);
            if (!failure.code()) {
                break;  // No answer at all: the next sensor would only cost another time-out.
            }
        }
    }
    context.output.text(table.text());
    context.output.document({{"endpoint", endpoint}, {"sensors", list}});
    for (const Failure& failure : failures) {
        context.report(failure);
    }
}

}  // namespace tool
