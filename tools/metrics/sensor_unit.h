// SPDX-License-Identifier: Apache-2.0
// Sensor readings in the units that Prometheus wants: without prefix, degrees Celsius, ratios.
#ifndef SIDEBAND_TOOLS_METRICS_SENSOR_UNIT_H
#define SIDEBAND_TOOLS_METRICS_SENSOR_UNIT_H

#include <string_view>

#include "tools/metrics/exposition.h"

namespace tool {

/// The family of a sensor's reading, and what makes the family's unit of the sensor's.
struct SensorUnit {
    MetricFamily family;
    double factor = 1;
    double offset = 0;
    bool known = true;  ///< false: the family is the one for every other unit

    double convert(double reading) const { return reading * factor + offset; }
};

/// @param unit  as the tool shows it: "degC", "mW", "rpm"
SensorUnit sensor_unit(std::string_view unit);

}  // namespace tool

#endif
