// SPDX-License-Identifier: Apache-2.0
// What a PLDM terminus has in figures: its sensors, and the versions of its firmware.
#include <fmt/format.h>

#include "tools/metrics/scrape.h"
#include "tools/metrics/sensor_unit.h"
#include "tools/pldm/pdr_names.h"
#include "tools/pldm/sensor_reading.h"
#include "tools/pldm/sensor_report.h"
#include "tools/shell/interrupt.h"
#include "tools/update/info.h"

namespace tool {
namespace {

constexpr uint8_t kMonitoring = 2;
constexpr uint8_t kFirmwareUpdate = 5;

constexpr MetricFamily kSensorUp{"sideband_sensor_up", "", "Whether the sensor could be read."};
constexpr MetricFamily kOperational{"sideband_sensor_operational_state", "",
                                    "sensorOperationalState of DSP0248: 0 enabled, 1 disabled, 2 "
                                    "unavailable, others that it cannot be used."};
constexpr MetricFamily kThreshold{"sideband_sensor_threshold_state", "",
                                  "presentState of DSP0248 of a numeric sensor: 0 unknown, 1 "
                                  "normal, from 2 on beyond a threshold."};
constexpr MetricFamily kState{"sideband_sensor_state", "",
                              "presentState of a state sensor, from its state set in DSP0249."};

MetricLabels with(MetricLabels labels, const char* name, const std::string& value) {
    labels.emplace_back(name, value);
    return labels;
}

void read_numeric_sensor(const Subject& subject, const Sensor& sensor, const MetricLabels& labels) {
    const NumericReading reading = read_numeric(subject.session, sensor.id);
    subject.add(kOperational, labels, reading.operational_state);
    if (!reading.enabled()) {
        return;
    }
    subject.add(kThreshold, labels, reading.present_state);
    const SensorUnit unit = sensor_unit(sensor.unit);
    subject.add(unit.family, unit.known ? labels : with(labels, "unit", sensor.unit),
                unit.convert(scaled(sensor, reading.present_reading)));
}

void read_state_sensor(const Subject& subject, const Sensor& sensor, const MetricLabels& labels) {
    const std::vector<pldm_state_reading> states = read_state(subject.session, sensor.id);
    for (size_t i = 0; i < states.size(); ++i) {
        MetricLabels of_state = with(labels, "composite", std::to_string(i));
        subject.add(kOperational, of_state, states[i].sensor_operational_state);
        if (i < sensor.state_sets.size()) {
            of_state = with(of_state, "state_set", state_set_name(sensor.state_sets[i]));
        }
        if (states[i].sensor_operational_state == PLDM_SENSOR_ENABLED) {
            subject.add(kState, of_state, states[i].present_state);
        }
    }
}

/// @return whether the terminus still answers
bool scrape_sensor(const Subject& subject, const KnownSensor& known) {
    const Sensor& sensor = known.sensor;
    const MetricLabels labels{{"sensor", std::to_string(sensor.id)},
                              {"type", sensor.numeric ? "numeric" : "state"},
                              {"name", sensor.name},
                              {"entity", sensor.entity}};
    bool read = false;
    const bool answers = known.undecodable || subject.attempt([&] {
        (sensor.numeric ? read_numeric_sensor : read_state_sensor)(subject, sensor, labels);
        read = true;
    });
    subject.add(kSensorUp, labels, read ? 1 : 0);
    return answers;
}

/// The sensors of a terminus; one without PDRs of which the board tells none either has none.
SensorList sensors_of(Session& session) {
    try {
        return find_sensors(session);
    } catch (const Failure& failure) {
        if (failure.status() != ExitStatus::kUsage) {
            throw;
        }
        return {};
    }
}

void scrape_sensors(const Subject& subject) {
    const SensorList list = sensors_of(subject.session);
    std::vector<Failure>& failures = subject.scrape.failures;
    failures.insert(failures.end(), list.failures.begin(), list.failures.end());
    for (const KnownSensor& known : list.sensors) {
        // From one that is silent the next sensor would only cost another time-out.
        if (InterruptGuard::pending() || !scrape_sensor(subject, known)) {
            break;
        }
    }
}

void scrape_firmware(const Subject& subject) {
    const FirmwareInfo info = read_firmware_versions(subject.session);
    subject.add_firmware("image set", info.active_version, info.pending_version);
    for (const FirmwareComponent& one : info.components) {
        subject.add_firmware(
            fmt::format("{}:{}:{}", one.classification, one.identifier, one.classification_index),
            one.active.version, one.pending.version);
    }
}

}  // namespace

void scrape_pldm(const Subject& subject) {
    pldm_ctx& pldm = subject.session.pldm();
    subject.session.check_pldm(pldm_get_type(&pldm), "GetPLDMTypes");
    const uint8_t types = pldm.pldm_types[0];
    bool answers = true;
    if ((types >> kMonitoring & 1) != 0) {
        answers = subject.attempt([&] { scrape_sensors(subject); });
    }
    if (answers && (types >> kFirmwareUpdate & 1) != 0) {
        subject.attempt([&] { scrape_firmware(subject); });
    }
}

}  // namespace tool
