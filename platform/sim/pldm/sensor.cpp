// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: values that move over virtual time, and their state (DSP0248).
#include "sim/pldm/sensor.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <set>
#include <utility>

namespace sim {

namespace {

/// presentState of a numeric sensor.
enum NumericState : uint8_t {
    kNormal = 1,
    kLowerWarning = 5,
    kLowerCritical = 6,
    kLowerFatal = 7,
    kUpperWarning = 8,
    kUpperCritical = 9,
    kUpperFatal = 10,
};

const std::vector<std::string> kOperationalStates = {"enabled",        "disabled", "unavailable",
                                                     "status_unknown", "failed",   "initializing",
                                                     "shutting_down",  "in_test"};

uint8_t read_operational_state(ObjectReader& reader) {
    return static_cast<uint8_t>(reader.choice("operational_state", kOperationalStates, 0));
}

/// Whole periods and the part of the current one.
std::pair<double, double> split_time(double seconds, double period_s) {
    const double periods = seconds / period_s;
    return {std::floor(periods), periods - std::floor(periods)};
}

double read_period(ObjectReader& reader, std::optional<double> absent) {
    const double period = absent ? reader.number("period_s", *absent) : reader.number("period_s");
    if (period < 0.001 || period > 1e9) {
        reader.complain("period_s", "must be from 0.001 to 1000000000 seconds");
    }
    return period;
}

}  // namespace

Waveform::Waveform(const Place& place) {
    ObjectReader reader(place);
    shape_ = static_cast<Shape>(reader.choice("shape", {"constant", "sine", "ramp", "steps"}));
    if (shape_ == Shape::kConstant) {
        low_ = high_ = reader.number("value");
    } else if (shape_ == Shape::kSteps) {
        const Place values = reader.require("values");
        values.each([&](const Place& value) { values_.push_back(value.number()); });
        if (values_.empty()) {
            values.fail("must have at least one value");
        }
        low_ = *std::ranges::min_element(values_);
        high_ = *std::ranges::max_element(values_);
    } else {
        low_ = reader.number("min");
        high_ = reader.number("max");
        if (low_ > high_) {
            reader.complain("max", "must not be below min");
        }
    }
    if (shape_ != Shape::kConstant) {
        period_s_ = read_period(reader, std::nullopt);
        phase_ = reader.number("phase", 0);
        if (phase_ < 0 || phase_ > 1) {
            reader.complain("phase", "must be from 0 to 1");
        }
    }
    reader.finish();
}

double Waveform::at(double seconds) const {
    const double part = split_time(seconds + phase_ * period_s_, period_s_).second;
    switch (shape_) {
        case Shape::kSine:
            return low_ + (high_ - low_) * (1 + std::sin(2 * std::numbers::pi * part)) / 2;
        case Shape::kRamp:
            return low_ + (high_ - low_) * part;
        case Shape::kSteps: {
            const auto step = static_cast<size_t>(part * static_cast<double>(values_.size()));
            return values_[std::min(step, values_.size() - 1)];
        }
        default:
            return low_;
    }
}

NumericSensor::NumericSensor(ObjectReader& reader, SensorInfo info)
    : info_(std::move(info)), entity_(reader), has_record_(reader.flag("pdr", true)) {
    info_.unit = reader.text("unit", "");
    info_.is_signed = reader.flag("signed", false);
    info_.data_size = static_cast<uint8_t>(reader.whole("data_size", 1, 4, 4));
    if (info_.data_size == 3) {
        reader.complain("data_size", "must be 1, 2 or 4");
    }
    info_.resolution = reader.number("resolution", 1);
    if (info_.resolution <= 0) {
        reader.complain("resolution", "must be above 0");
        info_.resolution = 1;
    }
    offset_ = reader.number("offset", 0);
    const Place waveform = reader.require("waveform");
    attempt([&] { waveform_.emplace(waveform); });
    initial_state_ = operational_state_ = read_operational_state(reader);
    event_enable_ = reader.flag("events", false) ? kEventsDisabled : kNoEventGeneration;
    if (waveform_) {
        check(reader, "waveform", waveform_->low());
        check(reader, "waveform", waveform_->high());
    }
    read_units(reader);
    read_thresholds(reader);
    read_range(reader);
}

double NumericSensor::highest_count() const {
    return std::ldexp(1.0, 8 * info_.data_size - (info_.is_signed ? 1 : 0)) - 1;
}

double NumericSensor::lowest_count() const {
    return info_.is_signed ? -std::ldexp(1.0, 8 * info_.data_size - 1) : 0;
}

double NumericSensor::count_of(double value) const {
    return std::round((value - offset_) / info_.resolution);
}

void NumericSensor::check(const ObjectReader& reader, const char* key, double value) const {
    const double count = count_of(value);
    // A size or a resolution that is wrong itself is nothing to measure by.
    if (reader.sound() && (count < lowest_count() || count > highest_count())) {
        reader.complain(key, "does not fit the sensor's data_size and resolution");
    }
}

void NumericSensor::read_thresholds(ObjectReader& reader) {
    static const char* const kNames[] = {"upper_warning", "upper_critical", "upper_fatal",
                                         "lower_warning", "lower_critical", "lower_fatal"};
    reader.within("thresholds", [&](const Place& place) {
        ObjectReader limits(place);
        for (size_t i = 0; i < thresholds_.size(); ++i) {
            if (std::optional<Place> limit = limits.find(kNames[i])) {
                thresholds_[i] = limit->number();
                check(reader, "thresholds", *thresholds_[i]);
            }
        }
        limits.finish();
    });
}

void NumericSensor::set_enable(uint8_t state, uint8_t event_enable) {
    operational_state_ = state;
    if (generates_events() && event_enable != 0) {
        event_enable_ = event_enable;
    }
}

uint8_t NumericSensor::data_size_code() const {
    // uint8, sint8, uint16, sint16, uint32, sint32
    const int width = info_.data_size == 1 ? 0 : info_.data_size;
    return static_cast<uint8_t>(width + (info_.is_signed ? 1 : 0));
}

uint8_t NumericSensor::state_at(double value) const {
    static const NumericState kUpper[] = {kUpperWarning, kUpperCritical, kUpperFatal};
    static const NumericState kLower[] = {kLowerWarning, kLowerCritical, kLowerFatal};
    for (size_t i = 3; i-- > 0;) {
        if (thresholds_[i] && value >= *thresholds_[i]) {
            return kUpper[i];
        }
        if (thresholds_[i + 3] && value <= *thresholds_[i + 3]) {
            return kLower[i];
        }
    }
    return kNormal;
}

void NumericSensor::append_count(Bytes& out, double count) const {
    append_whole(out, count, info_.data_size);
}

Bytes NumericSensor::reading(double seconds) {
    const double value = waveform_->at(seconds);
    const uint8_t state = state_at(value);
    if (state != present_state_) {
        previous_state_ = std::exchange(present_state_, state);
    }
    Bytes out{data_size_code(), operational_state_, event_enable_, state, previous_state_, state};
    append_count(out, count_of(value));
    return out;
}

Bytes NumericSensor::thresholds() const {
    Bytes out{data_size_code()};
    for (const std::optional<double>& threshold : thresholds_) {
        append_count(out, threshold ? count_of(*threshold) : 0);
    }
    return out;
}

void NumericSensor::reset() {
    operational_state_ = initial_state_;
    if (generates_events()) {
        event_enable_ = kEventsDisabled;
    }
    present_state_ = previous_state_ = 0;
}

StateSensor::StateSensor(ObjectReader& reader, SensorInfo info)
    : info_(std::move(info)), entity_(reader), has_record_(reader.flag("pdr", true)) {
    events_ = reader.flag("events", false);
    const Place list = reader.require("composites");
    list.each([&](const Place& place) {
        ObjectReader one(place);
        Composite composite;
        composite.state_set = static_cast<uint16_t>(one.whole("state_set", 1, 0xFFFF));
        if (composites_.empty()) {
            info_.state_set = composite.state_set;
        }
        one.require("states").each([&](const Place& state) {
            composite.states.push_back(static_cast<uint8_t>(state.whole(0, 255)));
        });
        if (composite.states.empty()) {
            one.complain("states", "must have at least one state");
        }
        composite.period_s = read_period(one, 60.0);
        composite.initial_state = composite.operational_state = read_operational_state(one);
        one.finish();
        composites_.push_back(std::move(composite));
    });
    if (composites_.empty() || composites_.size() > 8) {
        list.complain("must have 1 to 8 composite sensors");
    }
    info_.composite_count = static_cast<uint8_t>(composites_.size());
}

Bytes StateSensor::reading(double seconds) const {
    Bytes out{static_cast<uint8_t>(composites_.size())};
    for (const Composite& composite : composites_) {
        // The states take turns, all of them once a period.
        const auto count = static_cast<double>(composite.states.size());
        const auto step = static_cast<uint64_t>(seconds / composite.period_s * count);
        auto state = [&](uint64_t i) { return composite.states[i % composite.states.size()]; };
        const uint8_t present = state(step);
        out.push_back(composite.operational_state);
        out.push_back(present);
        out.push_back(step == 0 ? present : state(step - 1));
        out.push_back(present);
    }
    return out;
}

void StateSensor::reset() {
    for (Composite& composite : composites_) {
        composite.operational_state = composite.initial_state;
    }
}

void read_sensors(ObjectReader& reader, std::vector<NumericSensor>& numeric,
                  std::vector<StateSensor>& state) {
    std::set<std::pair<SensorInfo::Kind, uint16_t>> taken;
    reader.each("sensors", [&](const Place& place) {
        ObjectReader one(place);
        SensorInfo info;
        info.kind = one.choice("kind", {"numeric", "state"}) == 0 ? SensorInfo::Kind::kNumeric
                                                                  : SensorInfo::Kind::kState;
        info.id = static_cast<uint16_t>(one.whole("id", 0, 0xFFFF));
        if (!taken.insert({info.kind, info.id}).second) {
            one.complain("id", "is the identifier of another sensor");
        }
        info.name = one.text("name", "");
        if (info.kind == SensorInfo::Kind::kNumeric) {
            numeric.emplace_back(one, info);
        } else {
            state.emplace_back(one, info);
        }
        one.finish();
    });
}

}  // namespace sim
