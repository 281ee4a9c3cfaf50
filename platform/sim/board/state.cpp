// SPDX-License-Identifier: Apache-2.0
// All that a board consists of, as the functions of the platform interface find it.
#include "sim/board/state.h"

#include <utility>

namespace sim {

namespace {
constexpr size_t kLogLines = 1000;
}

void LineLog::add(std::string line) {
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    lines_.push_back(std::move(line));
    if (lines_.size() > kLogLines) {
        lines_.pop_front();
    }
}

I2cBus* BoardState::find_bus(uint8_t number) const {
    for (const auto& bus : buses) {
        if (bus->number() == number) {
            return bus.get();
        }
    }
    return nullptr;
}

Device* BoardState::find_device(std::string_view device_name) const {
    for (const auto& device : devices) {
        if (device->info().name == device_name) {
            return device.get();
        }
    }
    return nullptr;
}

const Device* BoardState::find_card(uint8_t bus, uint8_t device) const {
    for (const auto& each : devices) {
        if (each->card() && each->card()->bus == bus && each->card()->device == device) {
            return each.get();
        }
    }
    return nullptr;
}

LockName BoardState::name_lock(const lx_mutex* mutex) const {
    if (mutex == &global_var.global_lock) {
        return {mutex, LockRank::kGlobal, "global lock"};
    }
    if (mutex == &global_var.ncsi_lock) {
        return {mutex, LockRank::kGlobal, "NC-SI lock"};
    }
    if (mutex == &global_sec_var.mpio_mutex) {
        return {mutex, LockRank::kMpio, "MPIO mutex"};
    }
    if (mutex == &global_sec_var.eid_mutex) {
        return {mutex, LockRank::kEidPool, "EID pool mutex"};
    }
    for (size_t bus = 0; bus < PLT_I2C_BUS_COUNT; ++bus) {
        if (mutex == &global_var.bus_mutex[bus]) {
            return {mutex, LockRank::kBus, "bus mutex " + std::to_string(bus)};
        }
    }
    return {mutex, LockRank::kOther, "unknown mutex"};
}

std::array<uint8_t, 48> encode_mux(const MuxPath& path) {
    std::array<uint8_t, 48> setting{};
    setting[0] = static_cast<uint8_t>(path.size());
    for (size_t i = 0; i < path.size(); ++i) {
        setting[1 + 2 * i] = path[i].address;
        setting[2 + 2 * i] = path[i].channel;
    }
    return setting;
}

std::optional<MuxPath> decode_mux(const uint8_t* setting) {
    if (setting[0] > kLongestMuxPath) {
        return std::nullopt;
    }
    MuxPath path;
    for (size_t i = 0; i < setting[0]; ++i) {
        path.push_back({setting[1 + 2 * i], setting[2 + 2 * i]});
    }
    return path;
}

}  // namespace sim
