// SPDX-License-Identifier: Apache-2.0
// The command demo: a tour of the whole board.
#include "tools/demo/demo.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/demo/commands.h"
#include "tools/mctp/survey.h"
#include "tools/pldm/codes.h"
#include "tools/pldm/fru_report.h"
#include "tools/pldm/info.h"
#include "tools/pldm/sensor_reading.h"
#include "tools/pldm/sensor_report.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr int kReadings = 5;
constexpr uint64_t kPauseUs = 2000000;

std::vector<Sensor> sensors_of(const Endpoint& endpoint, bool numeric) {
    std::vector<Sensor> sensors;
    std::copy_if(endpoint.sensors.begin(), endpoint.sensors.end(), std::back_inserter(sensors),
                 [numeric](const Sensor& sensor) { return sensor.numeric == numeric; });
    return sensors;
}

std::string sensor_title(const Sensor& sensor) {
    const std::string name =
        sensor.name.empty() ? fmt::format("sensor {}", sensor.id) : sensor.name;
    return sensor.unit.empty() ? name : fmt::format("{} [{}]", name, sensor.unit);
}

void show_control(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const EndpointId id = session.endpoint_id();
    const std::string uuid = uuid_text(session.uuid());
    step.say(fmt::format("EID   {}", id.eid));
    step.say(fmt::format("UUID  {}", uuid));
    step.details = {{"eid", id.eid}, {"uuid", uuid}};
    step.result = fmt::format("EID {}, UUID read", id.eid);
}

void show_terminus(Tour::Step& step, const Endpoint& endpoint, PldmInfo& info) {
    Session session(endpoint);
    session.discover();
    info = read_pldm_info(session);
    const Json types = pldm_types_json(info);
    for (const Json& type : types.items()) {
        step.say(fmt::format("type {}  version {}  {}", type["pldm_type"].unsigned_number(),
                             type["version"].text(), type["name"].text()));
    }
    step.details = {{"tid", info.tid}, {"pldm_types", types}};
    step.result = fmt::format("TID {}, {}", info.tid, counted(info.types.size(), "PLDM type"));
}

void show_repository(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const SensorList list = find_sensors(session);
    if (!list.sensors.empty() && !list.sensors.front().record &&
        !list.sensors.front().undecodable) {
        step.skip("the terminus has no PDR repository");
        return;
    }
    const SensorReport report = read_sensors(session, list.sensors);
    step.output.text(report.table.text(3));
    step.details = report.list;
    for (const std::vector<Failure>* failures : {&list.failures, &report.failures}) {
        if (!failures->empty()) {
            throw Failure(failures->front());
        }
    }
    step.result = counted(list.sensors.size(), "sensor") + " described and read";
}

void show_fru(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const FruData table = read_fru(session, false);
    step.output.text(fru_text(table, 3));
    step.details = fru_json(table);
    if (table.failure) {
        throw Failure(*table.failure);
    }
    step.result =
        fmt::format("{}, {} bytes", counted(table.records.size(), "record"), table.length);
}

/// Reads one sensor: what a table shows of it, and what a program gets.
std::pair<std::string, Json> read_sensor(Session& session, const Sensor& sensor) {
    if (sensor.numeric) {
        const NumericReading reading = read_numeric(session, sensor.id);
        const bool enabled = reading.operational_state == PLDM_SENSOR_ENABLED;
        return {enabled ? value_text(sensor, reading)
                        : operational_state_name(reading.operational_state),
                numeric_json(sensor, reading)};
    }
    const std::vector<pldm_state_reading> states = read_state(session, sensor.id);
    return {states_text(sensor, states), state_json(sensor, states)};
}

void show_sensors(Tour::Step& step, Port& port, const Endpoint& endpoint, bool numeric) {
    const std::vector<Sensor> sensors = sensors_of(endpoint, numeric);
    Session session(endpoint);
    session.discover();
    std::vector<Table::Column> columns{{"TIME", true}};
    for (const Sensor& sensor : sensors) {
        columns.push_back({sensor_title(sensor), numeric});
    }
    Table table(columns);
    step.details = Json::array();
    for (int i = 0; i < kReadings; ++i) {
        const uint64_t time = port.now_us();
        std::vector<std::string> row{seconds_text(time)};
        Json values = Json::array();
        for (const Sensor& sensor : sensors) {
            const auto [text, json] = read_sensor(session, sensor);
            row.push_back(text);
            values.push_back(json);
        }
        table.add(row);
        step.details.push_back({{"virtual_time_us", time}, {"sensors", values}});
        port.wait_us(kPauseUs);
    }
    step.output.text(table.text(3));
    step.result = fmt::format("{}, {} times", counted(sensors.size(), "sensor"), kReadings);
}

void show_raw(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const std::vector<uint8_t> request{0x80, PLDM_TYPE_BASE, 0x02};
    const std::vector<uint8_t> answer = session.exchange(MCTP_MSG_TYPE_PLDM, request);
    step.say(fmt::format("out  {}", hex(request)));
    step.say(fmt::format("in   {}", hex(answer)));
    step.details = {{"request", hex(request)}, {"response", hex(answer)}};
    if (answer.size() != 5 || answer[3] != PLDM_CC_SUCCESS) {
        throw Failure(endpoint.name, "GetTID", "unexpected answer " + hex(answer));
    }
    step.result = fmt::format("TID {}", answer[4]);
}

void tour_terminus(Tour& tour, Port& port, const Endpoint& endpoint) {
    PldmInfo info;
    tour.step("Who is there", "PLDM discovery: terminus ID, PLDM types and the version of each.",
              endpoint.name, [&](Tour::Step& step) { show_terminus(step, endpoint, info); });
    const bool speaks_fru =
        std::any_of(info.types.begin(), info.types.end(),
                    [](const PldmType& type) { return type.type == PLDM_TYPE_FRU; });
    if (speaks_fru) {
        tour.step("What it is made of", "The FRU record table: maker, part numbers, dates.",
                  endpoint.name, [&](Tour::Step& step) { show_fru(step, endpoint); });
    }
    tour.step("The PDR repository", "Its sensors as the terminus itself describes them.",
              endpoint.name, [&](Tour::Step& step) { show_repository(step, endpoint); });
    if (!sensors_of(endpoint, true).empty()) {
        tour.step("Numeric sensors", "GetSensorReading, every two seconds of the board's time.",
                  endpoint.name,
                  [&](Tour::Step& step) { show_sensors(step, port, endpoint, true); });
    }
    if (!sensors_of(endpoint, false).empty()) {
        tour.step("State sensors", "GetStateSensorReadings, every two seconds of the board's time.",
                  endpoint.name,
                  [&](Tour::Step& step) { show_sensors(step, port, endpoint, false); });
    }
}

}  // namespace

void show_discovery(Tour::Step& step, const Port& port, Transport transport,
                    std::vector<Finding>& findings) {
    const std::vector<Finding> seen = survey(port, transport);
    step.output.table(survey_table(seen), 3);
    step.details = survey_json(seen);
    findings.insert(findings.end(), seen.begin(), seen.end());
    size_t assigned = 0;
    for (const Finding& found : seen) {
        if (found.failure) {
            throw Failure(*found.failure);
        }
        if (found.eid_assigned) {
            step.say(fmt::format("{} had no EID and took {} from the BMC's pool.",
                                 found.endpoint.name, found.eid));
            ++assigned;
        }
    }
    step.result =
        fmt::format("{}, {} assigned", counted(seen.size(), "endpoint"), counted(assigned, "EID"));
}

namespace {

/// The endpoints that answered, by what the tour shows of them.
struct Cast {
    std::vector<Endpoint> speakers;     ///< of PLDM
    std::vector<Endpoint> termini;      ///< those of them that have sensors
    std::vector<Endpoint> controllers;  ///< of networks
    std::vector<Endpoint> drives;
};

Cast cast_from(const std::vector<Finding>& findings) {
    Cast cast;
    for (const Finding& found : findings) {
        if (found.failure) {
            continue;
        }
        if (found.speaks(MCTP_MSG_TYPE_NCSI)) {
            cast.controllers.push_back(found.endpoint);
        }
        if (found.speaks(MCTP_MSG_TYPE_NVME_MI)) {
            cast.drives.push_back(found.endpoint);
        }
        if (found.speaks(MCTP_MSG_TYPE_PLDM)) {
            cast.speakers.push_back(found.endpoint);
            if (!found.endpoint.sensors.empty()) {
                cast.termini.push_back(found.endpoint);
            }
        }
    }
    return cast;
}

Cast discover_board(Tour& tour, Port& port) {
    std::vector<Finding> findings;
    tour.step("Discovery",
              "Who answers on the buses? An endpoint without an EID gets one from the BMC's pool.",
              "all",
              [&](Tour::Step& step) { show_discovery(step, port, Transport::kI2c, findings); });
    show_pcie(tour, port, findings);
    return cast_from(findings);
}

/// MCTP control of the first terminus, then PLDM with each of them.
void tour_termini(Tour& tour, Port& port, const std::vector<Endpoint>& termini) {
    if (termini.empty()) {
        tour.step("PLDM", "Sensors and the rest of the tour need a PLDM terminus with sensors.",
                  "all", [](Tour::Step& step) {
                      step.skip("no PLDM terminus with sensors answers on this board");
                  });
        return;
    }
    const Endpoint& first = termini.front();
    tour.step("MCTP control", "What the endpoint says of itself: its EID and its UUID.", first.name,
              [&](Tour::Step& step) { show_control(step, first); });
    for (const Endpoint& endpoint : termini) {
        tour_terminus(tour, port, endpoint);
    }
}

/// The faults that the library gets over are those of an I2C bus.
void tour_trouble(Tour& tour, Port& port, const std::vector<Endpoint>& termini) {
    for (const Endpoint& endpoint : termini) {
        const std::vector<Sensor> numeric = sensors_of(endpoint, true);
        if (endpoint.transport == Transport::kI2c && !numeric.empty()) {
            show_trouble(tour, port, endpoint, numeric.front());
            return;
        }
    }
}

}  // namespace

void run_demo(Context& context) {
    Port& port = context.port;
    Tour tour(context);
    context.output.text(fmt::format(
        "A tour of the board {}. Time is the board's own: waiting costs none of yours.\n",
        printable(port.board_name())));
    const Cast cast = discover_board(tour, port);
    tour_termini(tour, port, cast.termini);
    show_updates(tour, port, cast.speakers);
    show_controllers(tour, cast.controllers);
    const Endpoint* const drive = show_drives(tour, port, cast.drives);
    if (!cast.termini.empty()) {
        const Endpoint& last = cast.speakers.back();
        tour.step("A raw message", "The same wire by hand: a PLDM GetTID, header first.", last.name,
                  [&](Tour::Step& step) { show_raw(step, last); });
    }
    show_owners(tour, port);
    tour_trouble(tour, port, cast.termini);
    if (drive != nullptr) {
        show_strictness(tour, port, *drive);
    }
    tour.finish();
}

}  // namespace tool
