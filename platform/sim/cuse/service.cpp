// SPDX-License-Identifier: Apache-2.0
// The I2C buses of a board as devices of this machine, in real time.
#include "sim/cuse/service.h"

#include <poll.h>

#include <mutex>
#include <utility>

#include "sim/board/state.h"

namespace sim {

std::unique_ptr<BusService> BusService::open(Board& board, std::string& error) {
    BoardState& state = board.state();
    const std::lock_guard guard(state.mutex);
    std::unique_ptr<BusService> service(new BusService(state));
    for (const auto& bus : state.buses) {
        if (!service->add(*bus, error)) {
            return nullptr;
        }
    }
    return service;
}

BusService::BusService(BoardState& board) : board_(board), time_(board.clock) {}

bool BusService::add(I2cBus& bus, std::string& error) {
    const std::string name = "i2c-" + std::to_string(bus.number());
    const std::string queue_name = name + "-slave-queue";
    auto served = std::make_unique<Served>(bus);
    served->adapter_device = CuseDevice::make(name, served->adapter, error);
    if (served->adapter_device == nullptr) {
        return false;
    }
    served->queue_device = CuseDevice::make(queue_name, served->queue, error);
    if (served->queue_device == nullptr) {
        return false;
    }
    served_.push_back(std::move(served));
    paths_.push_back(
        {.bus = bus.number(), .device = "/dev/" + name, .slave_queue = "/dev/" + queue_name});
    return true;
}

BusTraffic BusService::traffic() const {
    BusTraffic sum;
    for (const auto& served : served_) {
        sum.written += served->traffic.written;
        sum.refused += served->traffic.refused;
        sum.read += served->traffic.read;
        sum.dropped += served->traffic.dropped;
    }
    return sum;
}

void BusService::wait() const {
    std::vector<pollfd> devices;
    for (const auto& served : served_) {
        for (const int descriptor :
             {served->adapter_device->descriptor(), served->queue_device->descriptor()}) {
            devices.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
        }
    }
    uint64_t limit_ns = 0;
    {
        const std::lock_guard guard(board_.mutex);
        limit_ns = time_.time_to_wait();
    }
    const timespec limit = timespec_of(limit_ns);
    ppoll(devices.data(), devices.size(), &limit, nullptr);
}

bool BusService::serve_a_while() {
    wait();
    const std::lock_guard guard(board_.mutex);
    const bool turn = time_.follow();
    if (turn) {
        board_.tap.capture().flush();
    }
    for (const auto& served : served_) {
        if (turn) {
            served->bus.let_devices_act();
        }
        if (!served->adapter_device->serve() || !served->queue_device->serve()) {
            return false;
        }
        if (served->bus.has_block()) {
            served->queue_device->wake();
        }
    }
    return true;
}

}  // namespace sim
