// SPDX-License-Identifier: Apache-2.0
// Tests of the units of sensors as Prometheus wants them.
#include "tools/metrics/sensor_unit.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Case {
    const char* unit;
    double reading;
    const char* family;
    double value;
};

TEST(SensorUnit, BaseUnitsWithoutPrefix) {
    const Case cases[] = {
        {"degC", 40, "sideband_sensor_temperature_celsius", 40},
        {"degF", 212, "sideband_sensor_temperature_celsius", 100},
        {"K", 300, "sideband_sensor_temperature_celsius", 26.85},
        {"mK", 300000, "sideband_sensor_temperature_celsius", 26.85},
        {"mV", 851, "sideband_sensor_voltage_volts", 0.851},
        {"kW", 2, "sideband_sensor_power_watts", 2000},
        {"uA", 5, "sideband_sensor_current_amperes", 5e-6},
        {"MHz", 100, "sideband_sensor_frequency_hertz", 1e8},
        {"min", 2, "sideband_sensor_time_seconds", 120},
        {"ms", 2, "sideband_sensor_time_seconds", 0.002},
        {"kPa", 101, "sideband_sensor_pressure_pascals", 101000},
        {"%", 75, "sideband_sensor_proportion_ratio", 0.75},
        {"rpm", 9000, "sideband_sensor_speed_rpm", 9000},
    };
    for (const Case& one : cases) {
        const tool::SensorUnit unit = tool::sensor_unit(one.unit);
        EXPECT_STREQ(unit.family.name, one.family) << one.unit;
        EXPECT_TRUE(std::string(unit.family.name).ends_with(unit.family.unit)) << one.unit;
        EXPECT_NEAR(unit.convert(one.reading), one.value, 1e-9) << one.unit;
        EXPECT_TRUE(unit.known);
    }
}

TEST(SensorUnit, WhatPrometheusHasNoUnitForKeepsItsOwn) {
    for (const char* text : {"", "m", "mdegC", "W/s", "x10^9 W", "krpm", "dBA", "k", "kkV"}) {
        const tool::SensorUnit unit = tool::sensor_unit(text);
        EXPECT_FALSE(unit.known) << text;
        EXPECT_STREQ(unit.family.name, "sideband_sensor_reading") << text;
        EXPECT_EQ(unit.convert(7), 7) << text;
    }
}

}  // namespace
