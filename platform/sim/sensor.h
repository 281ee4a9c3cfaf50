// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: values that move over virtual time, and their state (DSP0248).
#ifndef SIDEBAND_PLATFORM_SIM_SENSOR_H
#define SIDEBAND_PLATFORM_SIM_SENSOR_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "board.h"
#include "bytes.h"
#include "json_tree.h"

namespace sim {

/// A value as a function of time.
class Waveform {
public:
    /// Reads a "waveform" object.
    explicit Waveform(const Place& place);

    double at(double seconds) const;
    double low() const { return low_; }
    double high() const { return high_; }

private:
    enum class Shape { constant, sine, ramp, steps };
    Shape shape_ = Shape::constant;
    double low_ = 0;
    double high_ = 0;
    double period_s_ = 1;
    double phase_ = 0;  ///< part of a period, 0 to 1
    std::vector<double> values_;
};

/// sensorOperationalState (DSP0248, GetSensorReading).
enum OperationalState : uint8_t { sensor_enabled = 0, sensor_disabled = 1, sensor_unavailable = 2 };
constexpr uint8_t kLastOperationalState = 7;

/// sensorEventMessageEnable in answers; in requests 0 means "no change" instead.
enum EventEnable : uint8_t { no_event_generation = 0, events_disabled = 1, events_enabled = 2 };

class NumericSensor {
public:
    explicit NumericSensor(ObjectReader& reader, SensorInfo info);

    const SensorInfo& info() const { return info_; }
    bool generates_events() const { return event_enable_ != no_event_generation; }
    void set_enable(uint8_t state, uint8_t event_enable);

    /// The fields of a GetSensorReading answer behind its completion code.
    Bytes reading(double seconds);
    /// The fields of a GetSensorThresholds answer behind its completion code.
    Bytes thresholds() const;
    void reset();

private:
    uint8_t data_size_code() const;
    uint8_t state_at(double value) const;
    void append_count(Bytes& out, double value) const;

    SensorInfo info_;
    std::optional<Waveform> waveform_;
    /// Upper warning, critical, fatal, then lower ones, as on the wire.
    std::array<std::optional<double>, 6> thresholds_;
    uint8_t initial_state_ = sensor_enabled;
    uint8_t operational_state_ = sensor_enabled;
    uint8_t event_enable_ = no_event_generation;
    uint8_t present_state_ = 0;   ///< as of the last reading, 0 = unknown
    uint8_t previous_state_ = 0;  ///< the one that it was entered from
};

class StateSensor {
public:
    explicit StateSensor(ObjectReader& reader, SensorInfo info);

    const SensorInfo& info() const { return info_; }
    size_t composites() const { return composites_.size(); }
    bool generates_events() const { return events_; }
    void set_enable(size_t index, uint8_t state) { composites_[index].operational_state = state; }

    /// The fields of a GetStateSensorReadings answer behind its completion code.
    Bytes reading(double seconds) const;
    void reset();

private:
    struct Composite {
        std::vector<uint8_t> states;
        double period_s = 60;
        uint8_t initial_state = sensor_enabled;
        uint8_t operational_state = sensor_enabled;
    };

    SensorInfo info_;
    bool events_ = false;
    std::vector<Composite> composites_;
};

/// Reads a "sensors" array into both kinds; identifiers are unique within a kind.
void read_sensors(ObjectReader& reader, std::vector<NumericSensor>& numeric,
                  std::vector<StateSensor>& state);

}  // namespace sim

#endif
