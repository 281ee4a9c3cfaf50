// SPDX-License-Identifier: Apache-2.0
// Figures of devices as the text that Prometheus reads: OpenMetrics 1.0.
#include "tools/metrics/exposition.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "tools/shell/text.h"

namespace tool {
namespace {

std::string number_text(double value) {
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    return fmt::format("{}", value);
}

/// `{name="value",...}`; nothing without labels.
std::string labels_text(const MetricLabels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        text += fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", name, label_text(value));
    }
    return text.empty() ? text : "{" + text + "}";
}

}  // namespace

std::string label_text(std::string_view value) {
    std::string text;
    for (const char c : printable(valid_utf8(value))) {
        if (c == '\\' || c == '"') {
            text += '\\';
        }
        text += c;
    }
    return text;
}

void Exposition::add(const MetricFamily& family, const MetricLabels& labels, double value) {
    auto found = std::find_if(families_.begin(), families_.end(), [&](const Samples& known) {
        return std::string_view(known.family.name) == family.name;
    });
    if (found == families_.end()) {
        found = families_.insert(found, {.family = family, .samples = {}, .seen = {}});
    }
    if (found->seen.insert(labels_text(labels)).second) {
        found->samples.push_back({.labels = labels, .value = value});
    }
}

std::string Exposition::text() const {
    std::string text;
    for (const auto& [family, samples, seen] : families_) {
        text += fmt::format("# TYPE {} gauge\n", family.name);
        if (*family.unit != '\0') {
            text += fmt::format("# UNIT {} {}\n", family.name, family.unit);
        }
        text += fmt::format("# HELP {} {}\n", family.name, family.help);
        for (const Sample& sample : samples) {
            text += fmt::format("{}{} {}\n", family.name, labels_text(sample.labels),
                                number_text(sample.value));
        }
    }
    return text + "# EOF\n";
}

Json Exposition::json() const {
    Json list = Json::array();
    for (const auto& [family, all, seen] : families_) {
        Json samples = Json::array();
        for (const Sample& sample : all) {
            Json labels = Json::object();
            for (const auto& [name, value] : sample.labels) {
                labels[name] = value;
            }
            samples.push_back(
                {{"labels", labels},
                 {"value", std::isfinite(sample.value) ? Json(sample.value) : Json()}});
        }
        list.push_back({{"name", family.name},
                        {"type", "gauge"},
                        {"unit", family.unit},
                        {"help", family.help},
                        {"samples", samples}});
    }
    return list;
}

}  // namespace tool
