// SPDX-License-Identifier: Apache-2.0
// A pcapng file of the MCTP packets that pass over the I2C buses, PCIe and a serial line.
#include "sim/board/capture.h"

#include <algorithm>

#include "sim/board/clock.h"

namespace sim {

namespace {

/// Interface index: an I2C bus has its number plus 1, which is at most 256.
constexpr unsigned kPcieInterface = 257;
constexpr unsigned kSerialInterface = 258;

// Virtual time 0 in a capture.
constexpr uint64_t kEpochNs = Clock::kStartOfTimeS * 1'000'000'000;

pcapng::Interface description_of(const CaptureBus& bus) {
    if (bus.transport == Transport::kPcie) {
        return {"pcie", "simulated PCIe vendor-defined messages"};
    }
    if (bus.transport == Transport::kSerial) {
        return {"serial", "serial line to the simulated board"};
    }
    return {"i2c-" + std::to_string(bus.bus), "simulated I2C bus " + std::to_string(bus.bus) +
                                                  " at " + std::to_string(bus.clock_hz / 1000) +
                                                  " kHz"};
}

unsigned interface_index(const Passing& passing) {
    switch (passing.transport) {
        case Transport::kPcie:
            return kPcieInterface;
        case Transport::kSerial:
            return kSerialInterface;
        default:
            return passing.bus + 1u;
    }
}

/// What stands for the address of the link layer; a serial line has none.
Bytes address_of(const Passing& passing) {
    if (passing.transport == Transport::kPcie) {
        const auto routing_id = static_cast<uint8_t>(passing.bdf[1] << 3 | passing.bdf[2]);
        return {passing.bdf[0], routing_id};
    }
    return passing.transport == Transport::kI2c ? Bytes{passing.address} : Bytes{};
}

std::string place_of(const Passing& passing) {
    switch (passing.transport) {
        case Transport::kPcie:
            return "PCIe " + bdf_text(passing.bdf);
        case Transport::kSerial:
            return "serial line";
        default:
            return "bus " + std::to_string(passing.bus) + ", address " + hex_byte(passing.address);
    }
}

std::string comment_of(const Passing& passing) {
    std::string text = place_of(passing) + " (" + passing.device + "), ";
    text += passing.direction == Direction::kFromBmc ? "BMC to device" : "device to BMC";
    return passing.pec_good ? text : text + ", bad PEC";
}

}  // namespace

bool Capture::start(const std::string& path, const std::vector<CaptureBus>& buses,
                    std::string& error) {
    std::vector<pcapng::Interface> interfaces;
    interfaces.reserve(buses.size());
    for (const CaptureBus& bus : buses) {
        interfaces.push_back(description_of(bus));
    }
    buses_ = buses;
    return writer_.start(path, "sideband simulated board", interfaces, error);
}

/// The number of a packet's interface. One that nobody has announced is described now.
uint32_t Capture::interface_of(const Passing& passing) {
    const auto found = std::ranges::find_if(buses_, [&](const CaptureBus& bus) {
        return bus.transport == passing.transport && bus.bus == passing.bus;
    });
    const auto number = static_cast<uint32_t>(found - buses_.begin());
    if (found == buses_.end()) {
        buses_.push_back({passing.bus, 0, passing.transport});
        writer_.add(description_of(buses_.back()));
    }
    return number;
}

void Capture::packet(const Passing& passing) {
    if (!writer_.is_open()) {
        return;
    }
    const uint32_t interface = interface_of(passing);
    const Bytes address = address_of(passing);
    writer_.packet(
        {.interface = interface,
         .at_ns = kEpochNs + passing.at_ns,
         .type = passing.direction == Direction::kFromBmc ? pcapng::kSent : pcapng::kReceived,
         .index = interface_index(passing),
         .address = address,
         .bytes = passing.packet,
         .comment = comment_of(passing)});
}

void Capture::flush() {
    writer_.flush();
}

bool Capture::stop() {
    return writer_.stop();
}

}  // namespace sim
