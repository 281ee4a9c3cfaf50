// SPDX-License-Identifier: Apache-2.0
// What sensors tell about themselves in the PDR repository, and the keys for it (DSP0248).
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "sim/pldm/sensor.h"

namespace sim {

namespace {

/// sensorUnits (DSP0248) by the unit that is written for people.
const std::map<std::string, uint8_t> kBaseUnits = {
    {"", 0},      {"degC", 2},   {"degF", 3}, {"K", 4},    {"V", 5},   {"A", 6},
    {"W", 7},     {"J", 8},      {"VA", 10},  {"rpm", 19}, {"Hz", 20}, {"s", 21},
    {"bits", 60}, {"bytes", 61}, {"%", 65},   {"Pa", 66},
};
constexpr uint8_t kUnspecified = 1;

/// rangeFieldFormat.
const std::vector<std::string> kRangeFormats = {"uint8",  "sint8",  "uint16", "sint16",
                                                "uint32", "sint32", "real32"};
constexpr size_t kReal32 = 6;

/// Whether a format can express a number.
bool fits(double value, size_t format) {
    if (format == kReal32) {
        return std::abs(value) <= std::numeric_limits<float>::max();
    }
    const int bits = 8 << (format / 2);
    const bool is_signed = format % 2 != 0;
    const double highest = std::ldexp(1.0, bits - (is_signed ? 1 : 0)) - 1;
    const double lowest = is_signed ? -std::ldexp(1.0, bits - 1) : 0;
    return std::round(value) >= lowest && std::round(value) <= highest;
}

}  // namespace

Entity::Entity(ObjectReader& sensor) {
    sensor.within("entity", [&](const Place& place) {
        ObjectReader reader(place);
        type = static_cast<uint16_t>(reader.whole("type", 0, 0xFFFF));
        instance = static_cast<uint16_t>(reader.whole("instance", 0, 0xFFFF, instance));
        container = static_cast<uint16_t>(reader.whole("container", 0, 0xFFFF, container));
        reader.finish();
    });
}

void NumericSensor::read_units(ObjectReader& reader) {
    const auto known = kBaseUnits.find(info_.unit);
    base_unit_ = static_cast<uint8_t>(reader.whole(
        "base_unit", 0, 255, known != kBaseUnits.end() ? known->second : kUnspecified));
    unit_modifier_ = static_cast<int8_t>(reader.whole("unit_modifier", -30, 30, 0));
    const double resolution = range_value(info_.resolution);
    if (!fits(resolution, kReal32) || static_cast<float>(resolution) == 0) {
        reader.complain("resolution", "does not fit a real32");
    }
    if (!fits(range_value(offset_), kReal32)) {
        reader.complain("offset", "does not fit a real32");
    }
    hysteresis_ = reader.number("hysteresis", 0);
    const bool fits_counts = std::round(hysteresis_ / info_.resolution) <= highest_count();
    if (hysteresis_ < 0 || (reader.sound() && !fits_counts)) {
        reader.complain("hysteresis", "does not fit the sensor's data_size and resolution");
    }
}

void NumericSensor::read_range(ObjectReader& reader) {
    range_format_ = reader.choice("range_format", kRangeFormats, kReal32);
    static const char* const kNames[] = {"nominal", "max", "min"};
    reader.within("normal", [&](const Place& place) {
        ObjectReader values(place);
        for (size_t i = 0; i < normal_.size(); ++i) {
            if (std::optional<Place> value = values.find(kNames[i])) {
                normal_[i] = value->number();
            }
        }
        values.finish();
    });
    auto check_all = [&](const char* key, const auto& values) {
        for (const std::optional<double>& value : values) {
            if (value && !fits(range_value(*value), range_format_)) {
                reader.fail(key, "does not fit the sensor's range_format");
            }
        }
    };
    check_all("normal", normal_);
    check_all("thresholds", thresholds_);
}

double NumericSensor::range_value(double value) const {
    return value / std::pow(10.0, unit_modifier_);
}

void NumericSensor::append_range(Bytes& out, const std::optional<double>& value) const {
    const double number = value ? range_value(*value) : 0;
    if (range_format_ == kReal32) {
        append_real32(out, number);
    } else {
        append_whole(out, std::round(number), size_t{1} << (range_format_ / 2));
    }
}

Bytes NumericSensor::description() const {
    // baseUnit, unitModifier, rateUnit, baseOEMUnitHandle, auxUnit, auxUnitModifier, auxrateUnit,
    // rel, auxOEMUnitHandle, isLinear, sensorDataSize
    Bytes out{base_unit_,      static_cast<uint8_t>(unit_modifier_), 0, 0, 0, 0, 0, 0, 0, 1,
              data_size_code()};
    append_real32(out, range_value(info_.resolution));
    append_real32(out, range_value(offset_));
    append_le16(out, 0);  // accuracy
    append_le16(out, 0);  // tolerances
    append_count(out, std::round(hysteresis_ / info_.resolution));
    uint8_t supported = 0;
    for (size_t i = 0; i < thresholds_.size(); ++i) {
        supported |= static_cast<uint8_t>((thresholds_[i] ? 1u : 0u) << i);
    }
    out.push_back(supported);
    out.push_back(0);       // thresholds and hysteresis never change
    append_real32(out, 0);  // a change of state takes no time
    append_real32(out, 1);  // updated each second
    append_count(out, highest_count());
    append_count(out, lowest_count());

    // In the order of the record, with the bit of rangeFieldSupport; the warnings have none.
    const std::pair<const std::optional<double>*, uint8_t> range[] = {
        {&normal_[0], 0x01},     {&normal_[1], 0x02},     {&normal_[2], 0x04},
        {&thresholds_[0], 0x00}, {&thresholds_[3], 0x00}, {&thresholds_[1], 0x08},
        {&thresholds_[4], 0x10}, {&thresholds_[2], 0x20}, {&thresholds_[5], 0x40}};
    out.push_back(static_cast<uint8_t>(range_format_));
    uint8_t present = 0;
    for (const auto& [value, bit] : range) {
        present |= value->has_value() ? bit : uint8_t{0};
    }
    out.push_back(present);
    for (const auto& [value, bit] : range) {
        append_range(out, *value);
    }
    return out;
}

Bytes StateSensor::description() const {
    Bytes out{static_cast<uint8_t>(composites_.size())};
    for (const Composite& composite : composites_) {
        append_le16(out, composite.state_set);
        Bytes possible(*std::ranges::max_element(composite.states) / 8u + 1u);
        for (uint8_t state : composite.states) {
            possible[state / 8u] |= static_cast<uint8_t>(1u << state % 8u);
        }
        out.push_back(static_cast<uint8_t>(possible.size()));
        append(out, possible);
    }
    return out;
}

}  // namespace sim
