// SPDX-License-Identifier: Apache-2.0
// The board of the soak test: a hundred endpoints with a sensor each, one of them a network card,
// and drives; and what a sensor may say at a time.
#include "soak_board.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace soak {

namespace {

constexpr size_t kBuses = 8;
constexpr size_t kOnPcie = 4;
constexpr uint32_t kRange = 900;
constexpr size_t kSteps = 10;

/// Below this sensor's values there are those of the sensors before it.
uint32_t lowest(size_t number) {
    return static_cast<uint32_t>(1000 * (number + 1));
}

double period_s(size_t number) {
    return 7.0 + static_cast<double>(number % 13) * 3.5;
}

bool is_ramp(size_t number) {
    return number % 2 == 0;
}

uint32_t step_value(size_t number, size_t step) {
    return lowest(number) + static_cast<uint32_t>(step * 97 % kRange);
}

/// How far a period has come, from 0 to below 1.
double part_at(size_t number, double second) {
    const double periods = second / period_s(number);
    return periods - std::floor(periods);
}

std::string waveform(size_t number) {
    const std::string period = "\"period_s\": " + std::to_string(period_s(number));
    if (is_ramp(number)) {
        return R"({"shape": "ramp", "min": )" + std::to_string(lowest(number)) +
               ", \"max\": " + std::to_string(lowest(number) + kRange) + ", " + period + "}";
    }
    std::string values;
    for (size_t step = 0; step < kSteps; ++step) {
        values += (step == 0 ? "" : ", ") + std::to_string(step_value(number, step));
    }
    return R"({"shape": "steps", "values": [)" + values + "], " + period + "}";
}

/// Bus and address by number; some of each bus behind a multiplexer, some with the PEC in software.
std::string place(size_t number) {
    if (number >= kSensors - kOnPcie) {
        return R"("transport": "pcie", "bdf": "47:0)" + std::to_string(number % 10) + R"(.0")";
    }
    const size_t on_bus = number / kBuses;
    std::string text = "\"bus\": " + std::to_string(number % kBuses) +
                       ", \"address\": " + std::to_string(0x40 + 2 * (on_bus / 2 * 2));
    text += R"(, "mux": {"address": "0xe0", "channel": )" + std::to_string(on_bus % 2) + "}";
    return text + (number % 3 == 1 ? R"(, "pec": "software")" : "");
}

/// A limit that lets a second go round although readings of it fail.
constexpr const char* kWait = R"(, "read_timeout_ms": 20)";

std::string firmware() {
    return R"(, "card": {"bdf": "81:00.0", "vendor_id": "0x15b3", "flags": "0x10000"},
        "firmware": {"descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
            {"type": "pci_device_id", "hex": "1d10"}], "active": "v0", "transfer_size": 512,
            "components": [{"identifier": 1, "active": {"text": "v0", "stamp": 1},
                            "activation_methods": 2}]})";
}

std::string sensor_device(size_t number) {
    return R"({"name": ")" + sensor_name(number) + R"(", "type": "pldm", )" + place(number) +
           (number == 0 ? firmware() : kWait) + ", \"tid\": " + std::to_string(number + 1) +
           R"(, "sensors": [{"kind": "numeric", "id": 1, "waveform": )" + waveform(number) + "}]}";
}

std::string drive_device(size_t number) {
    return R"({"name": ")" + drive_name(number) + R"(", "type": "nvme", "bus": )" +
           std::to_string(number % kBuses) + R"(, "address": "0xd4", "read_timeout_ms": 20,
        "drive": {"temperature": {"shape": "constant", "value": )" +
           std::to_string(drive_temperature(number)) +
           R"(}, "firmware": {"slots": ["v0", "", ""]}}})";
}

}  // namespace

std::string sensor_name(size_t number) {
    return "sensor" + std::to_string(number);
}

std::string drive_name(size_t number) {
    return "drive" + std::to_string(number);
}

std::string board_text() {
    std::string buses;
    for (size_t bus = 0; bus < kBuses; ++bus) {
        buses += (bus == 0 ? "" : ", ") + std::string("{\"bus\": ") + std::to_string(bus) +
                 R"(, "clock_hz": 1000000, "muxes": [{"address": "0xe0", "channels": 4}]})";
    }
    std::string devices;
    for (size_t number = 0; number < kSensors; ++number) {
        devices += sensor_device(number) + ", ";
    }
    for (size_t number = 0; number < kDrives; ++number) {
        devices += drive_device(number) + (number + 1 < kDrives ? ", " : "");
    }
    return R"({"name": "soak", "buses": [)" + buses + R"(], "devices": [)" + devices + "]}";
}

bool may_read(size_t number, uint32_t reading, double from_s, double to_s) {
    if (is_ramp(number)) {
        const auto at = [number](double second) {
            return lowest(number) + kRange * part_at(number, second);
        };
        // Rounded, and computed in another order.
        const bool behind = reading + 1.0 >= at(from_s);
        const bool before = reading - 1.0 <= at(to_s);
        const bool of_sensor = reading >= lowest(number) && reading <= lowest(number) + kRange;
        const bool new_period = at(to_s) < at(from_s) || to_s - from_s >= period_s(number);
        return of_sensor && (new_period ? behind || before : behind && before);
    }
    // A step lasts longer than this.
    constexpr double kPause = 0.2;
    for (double second = from_s;; second = std::min(second + kPause, to_s)) {
        const auto step = static_cast<size_t>(part_at(number, second) * kSteps);
        if (reading == step_value(number, std::min(step, kSteps - 1))) {
            return true;
        }
        if (second >= to_s) {
            return false;
        }
    }
}

int drive_temperature(size_t number) {
    return 31 + 7 * static_cast<int>(number);
}

}  // namespace soak
