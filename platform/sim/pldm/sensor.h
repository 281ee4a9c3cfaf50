// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: values that move over virtual time, and their state (DSP0248).
#ifndef SIDEBAND_SIM_PLDM_SENSOR_H
#define SIDEBAND_SIM_PLDM_SENSOR_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"

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
    enum class Shape { kConstant, kSine, kRamp, kSteps };
    Shape shape_ = Shape::kConstant;
    double low_ = 0;
    double high_ = 0;
    double period_s_ = 1;
    double phase_ = 0;  ///< part of a period, 0 to 1
    std::vector<double> values_;
};

/// sensorOperationalState (DSP0248, GetSensorReading).
enum OperationalState : uint8_t { kSensorEnabled = 0, kSensorDisabled = 1, kSensorUnavailable = 2 };
constexpr uint8_t kLastOperationalState = 7;

/// sensorEventMessageEnable in answers; in requests 0 means "no change" instead.
enum EventEnable : uint8_t { kNoEventGeneration = 0, kEventsDisabled = 1, kEventsEnabled = 2 };

/// What a sensor monitors (DSP0249, entity identification).
struct Entity {
    uint16_t type = 0;
    uint16_t instance = 1;
    uint16_t container = 0;

    Entity() = default;
    /// Reads the "entity" object of a sensor.
    explicit Entity(ObjectReader& sensor);
};

class NumericSensor {
public:
    explicit NumericSensor(ObjectReader& reader, SensorInfo info);

    const SensorInfo& info() const { return info_; }
    const Entity& entity() const { return entity_; }
    /// Whether the sensor has a record in the PDR repository.
    bool has_record() const { return has_record_; }
    /// The fields of its record from baseUnit on.
    Bytes description() const;
    bool generates_events() const { return event_enable_ != kNoEventGeneration; }
    void set_enable(uint8_t state, uint8_t event_enable);

    /// The fields of a GetSensorReading answer behind its completion code.
    Bytes reading(double seconds);
    /// The fields of a GetSensorThresholds answer behind its completion code.
    Bytes thresholds() const;
    void reset();

private:
    void read_units(ObjectReader& reader);
    void read_thresholds(ObjectReader& reader);
    void read_range(ObjectReader& reader);
    /// Fails if a reading cannot express a value.
    void check(const ObjectReader& reader, const char* key, double value) const;
    double lowest_count() const;
    double highest_count() const;
    double count_of(double value) const;
    uint8_t data_size_code() const;
    uint8_t state_at(double value) const;
    void append_count(Bytes& out, double count) const;
    void append_range(Bytes& out, const std::optional<double>& value) const;
    double range_value(double value) const;

    SensorInfo info_;
    Entity entity_;
    bool has_record_ = true;
    std::optional<Waveform> waveform_;
    uint8_t base_unit_ = 0;
    int8_t unit_modifier_ = 0;
    double offset_ = 0;      ///< the value at count 0, in units
    double hysteresis_ = 0;  ///< in units
    size_t range_format_ = 0;
    /// Upper warning, critical, fatal, then lower ones, as on the wire.
    std::array<std::optional<double>, 6> thresholds_;
    std::array<std::optional<double>, 3> normal_;  ///< nominal, highest, lowest
    uint8_t initial_state_ = kSensorEnabled;
    uint8_t operational_state_ = kSensorEnabled;
    uint8_t event_enable_ = kNoEventGeneration;
    uint8_t present_state_ = 0;   ///< as of the last reading, 0 = unknown
    uint8_t previous_state_ = 0;  ///< the one that it was entered from
};

class StateSensor {
public:
    explicit StateSensor(ObjectReader& reader, SensorInfo info);

    const SensorInfo& info() const { return info_; }
    const Entity& entity() const { return entity_; }
    /// Whether the sensor has a record in the PDR repository.
    bool has_record() const { return has_record_; }
    /// The fields of its record from compositeSensorCount on.
    Bytes description() const;
    size_t composites() const { return composites_.size(); }
    bool generates_events() const { return events_; }
    void set_enable(size_t index, uint8_t state) { composites_[index].operational_state = state; }

    /// The fields of a GetStateSensorReadings answer behind its completion code.
    Bytes reading(double seconds) const;
    void reset();

private:
    struct Composite {
        uint16_t state_set = 0;
        std::vector<uint8_t> states;
        double period_s = 60;
        uint8_t initial_state = kSensorEnabled;
        uint8_t operational_state = kSensorEnabled;
    };

    SensorInfo info_;
    Entity entity_;
    bool has_record_ = true;
    bool events_ = false;
    std::vector<Composite> composites_;
};

/// Reads a "sensors" array into both kinds; identifiers are unique within a kind.
void read_sensors(ObjectReader& reader, std::vector<NumericSensor>& numeric,
                  std::vector<StateSensor>& state);

}  // namespace sim

#endif
