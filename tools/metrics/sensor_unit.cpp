// SPDX-License-Identifier: Apache-2.0
// Sensor readings in the units that Prometheus wants: without prefix, degrees Celsius, ratios.
#include "tools/metrics/sensor_unit.h"

namespace tool {
namespace {

constexpr MetricFamily kTemperature{"sideband_sensor_temperature_celsius", "celsius",
                                    "Reading of a temperature sensor."};
constexpr MetricFamily kVoltage{"sideband_sensor_voltage_volts", "volts",
                                "Reading of a voltage sensor."};
constexpr MetricFamily kCurrent{"sideband_sensor_current_amperes", "amperes",
                                "Reading of a current sensor."};
constexpr MetricFamily kPower{"sideband_sensor_power_watts", "watts", "Reading of a power sensor."};
constexpr MetricFamily kEnergy{"sideband_sensor_energy_joules", "joules",
                               "Reading of an energy sensor."};
constexpr MetricFamily kFrequency{"sideband_sensor_frequency_hertz", "hertz",
                                  "Reading of a frequency sensor."};
constexpr MetricFamily kSpeed{"sideband_sensor_speed_rpm", "rpm",
                              "Reading of a sensor of revolutions in a minute."};
constexpr MetricFamily kTime{"sideband_sensor_time_seconds", "seconds",
                             "Reading of a sensor of time."};
constexpr MetricFamily kPressure{"sideband_sensor_pressure_pascals", "pascals",
                                 "Reading of a pressure sensor."};
constexpr MetricFamily kAmount{"sideband_sensor_amount_bytes", "bytes",
                               "Reading of a sensor of data."};
constexpr MetricFamily kRatio{"sideband_sensor_proportion_ratio", "ratio",
                              "Reading of a sensor of percentage."};
constexpr MetricFamily kReading{"sideband_sensor_reading", "",
                                "Reading of a sensor in the unit that the label names."};

struct KnownUnit {
    std::string_view symbol;
    const MetricFamily& family;
    double factor = 1;
    double offset = 0;
    bool prefix = false;
};

constexpr KnownUnit kUnits[] = {
    {"degC", kTemperature},
    {"degF", kTemperature, 5.0 / 9.0, -32.0 * 5.0 / 9.0},
    {"K", kTemperature, 1, -273.15, true},
    {"V", kVoltage, 1, 0, true},
    {"A", kCurrent, 1, 0, true},
    {"W", kPower, 1, 0, true},
    {"J", kEnergy, 1, 0, true},
    {"Hz", kFrequency, 1, 0, true},
    {"rpm", kSpeed},
    {"s", kTime, 1, 0, true},
    {"min", kTime, 60},
    {"h", kTime, 3600},
    {"days", kTime, 86400},
    {"kPa", kPressure, 1000},
    {"Pa", kPressure, 1, 0, true},
    {"byte", kAmount, 1, 0, true},
    {"%", kRatio, 0.01},
};

constexpr struct {
    char letter;
    double factor;
} kPrefixes[] = {{'p', 1e-12}, {'n', 1e-9}, {'u', 1e-6}, {'m', 1e-3},
                 {'k', 1e3},   {'M', 1e6},  {'G', 1e9},  {'T', 1e12}};

/// The factor of the prefix in front of a symbol; 0 if it is none.
double prefix_factor(std::string_view unit) {
    for (const auto& prefix : kPrefixes) {
        if (unit.starts_with(prefix.letter)) {
            return prefix.factor;
        }
    }
    return 0;
}

}  // namespace

SensorUnit sensor_unit(std::string_view unit) {
    for (const KnownUnit& known : kUnits) {
        if (unit == known.symbol) {
            return {.family = known.family, .factor = known.factor, .offset = known.offset};
        }
    }
    const double factor = prefix_factor(unit);
    for (const KnownUnit& known : kUnits) {
        if (factor != 0 && known.prefix && unit.substr(1) == known.symbol) {
            return {.family = known.family, .factor = factor, .offset = known.offset};
        }
    }
    return {.family = kReading, .known = false};
}

}  // namespace tool
