// SPDX-License-Identifier: Apache-2.0
// The command pldm sensors: readings of a terminus's sensors, once or again and again.
#include <fmt/format.h>

#include <ctime>

#include "tools/pldm/commands.h"
#include "tools/pldm/sensor_report.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

/// "12", "numeric:12" or "state:5". A bare number is of the kind that the board says, else numeric.
Sensor parse_sensor(const Endpoint& endpoint, const std::string& text) {
    const size_t colon = text.find(':');
    const std::string kind = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::optional<uint32_t> id =
        parse_number(colon == std::string::npos ? text : text.substr(colon + 1), 0xFFFF);
    const bool known_kind = colon == std::string::npos || kind == "numeric" || kind == "state";
    if (!id || !known_kind) {
        throw Failure(ExitStatus::kUsage,
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

SensorList named_sensors(const Endpoint& endpoint, const std::vector<std::string>& ids) {
    SensorList list;
    for (const std::string& id : ids) {
        list.sensors.push_back(
            {.sensor = parse_sensor(endpoint, id), .record = {}, .undecodable = {}});
    }
    return list;
}

uint64_t own_clock_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

/// A pause on the board. If the board's clock runs ahead and somebody watches without an end in
/// sight, the rest of the pause is made up for here.
void pause(Port& port, const Watch& watch) {
    const auto length = static_cast<uint64_t>(watch.seconds * 1e6);
    const uint64_t begin = own_clock_us();
    port.wait_us(length);
    const uint64_t passed = own_clock_us() - begin;
    if (watch.count == 0 && passed < length) {
        constexpr uint64_t kUsPerMs = 1000;
        constexpr int kNoDescriptor = -1;
        InterruptGuard::wait_until_ready(
            kNoDescriptor, 0, static_cast<int>((length - passed + kUsPerMs - 1) / kUsPerMs));
    }
}

void show_once(Context& context, Session& session, const SensorList& list) {
    const SensorReport report = read_sensors(session, list.sensors);
    context.output.table(report.table);
    context.output.document({{"endpoint", session.endpoint().name}, {"sensors", report.list}});
    for (const Failure& failure : report.failures) {
        context.report(failure);
    }
}

void watch_sensors(Context& context, Session& session, const SensorList& list, const Watch& watch) {
    const InterruptGuard guard;
    context.output.print_documents_as_lines();
    for (uint32_t done = 0; !InterruptGuard::pending() && !context.output.broken();) {
        const uint64_t time = context.port.now_us();
        const SensorReport report = read_sensors(session, list.sensors);
        context.output.text(fmt::format("{}{}\n", done == 0 ? "" : "\n", seconds_text(time)));
        context.output.table(report.table);
        context.output.document(
            {{"endpoint", session.endpoint().name},
             {Port::is_simulated() ? "virtual_time_us" : "monotonic_time_us", time},
             {"sensors", report.list}});
        for (const Failure& failure : report.failures) {
            context.report(failure);
        }
        if (++done == watch.count || InterruptGuard::pending()) {
            break;
        }
        pause(context.port, watch);
        TimeLimit::begin_again();
    }
}

}  // namespace

void run_pldm_sensors(Context& context, const std::string& endpoint,
                      const std::vector<std::string>& ids, const Watch& watch) {
    Session session(find_endpoint(context.port, endpoint));
    SensorList list = named_sensors(session.endpoint(), ids);
    session.discover();
    if (ids.empty()) {
        list = find_sensors(session);
    }
    if (watch.seconds > 0) {
        watch_sensors(context, session, list, watch);
    } else {
        show_once(context, session, list);
    }
    for (const Failure& failure : list.failures) {
        context.report(failure);
    }
}

}  // namespace tool
