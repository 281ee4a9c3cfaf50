// SPDX-License-Identifier: Apache-2.0
// Figures of devices as the text that Prometheus reads: OpenMetrics 1.0.
#ifndef SIDEBAND_TOOLS_METRICS_EXPOSITION_H
#define SIDEBAND_TOOLS_METRICS_EXPOSITION_H

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/shell/json.h"

namespace tool {

/// Figures of one kind. All are gauges: what a device counts goes back when the device is
/// exchanged, and a text of gauges alone means the same in OpenMetrics and in the older text format
/// of Prometheus.
struct MetricFamily {
    const char* name;  ///< ends with the unit, if there is one
    const char* unit;  ///< empty for none
    const char* help;
};

/// Names and values, in the order in which they are shown.
using MetricLabels = std::vector<std::pair<std::string, std::string>>;

/// A value of a label, between its quotes: control characters as the tool shows them everywhere,
/// what is no UTF-8 as U+FFFD, quotes and backslashes behind a backslash.
std::string label_text(std::string_view value);

/// Figures as they come in, shown family by family.
class Exposition {
public:
    /// Of two figures with the same labels the first one counts: a device may name two sensors
    /// alike.
    void add(const MetricFamily& family, const MetricLabels& labels, double value);

    /// Each family with its type, unit and help, and the end mark.
    std::string text() const;
    /// The same for programs that read JSON.
    Json json() const;

private:
    struct Sample {
        MetricLabels labels;
        double value;
    };
    struct Samples {
        MetricFamily family;
        std::vector<Sample> samples;
        std::set<std::string> seen;
    };

    std::vector<Samples> families_;
};

}  // namespace tool

#endif
