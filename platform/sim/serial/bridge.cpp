// SPDX-License-Identifier: Apache-2.0
// The bridge between a serial line and a board: it routes packets by EID, and is an endpoint itself
// (DSP0236).
#include "sim/serial/bridge.h"
#include "sim/device/message.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/// Message bytes in a packet: the baseline transmission unit (DSP0236, clause 8.3.1). Longer
/// packets are not for every line.
constexpr size_t kUnit = 64;
/// Packets of devices that have not gone out; what comes then is lost.
constexpr size_t kMostWaiting = 16'384;
constexpr uint64_t kOwnAnswerNs = 100'000;
/// Entries of seven or eight bytes that fit one packet with what stands before them.
constexpr size_t kRoutesPerPart = 7;

constexpr const char* kOwnName = "bridge";
constexpr Uuid kOwnUuid{0x73, 0x65, 0x72, 0x69, 0x61, 0x6C, 0x4D, 0x43,
                        0x94, 0x50, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01};

constexpr uint8_t kRequestMask = 0xC0;

// Physical transport bindings and media, DSP0239.
constexpr uint8_t kSmbusBinding = 0x01;
constexpr uint8_t kSerialBinding = 0x05;
constexpr uint8_t kAsynchronousSerial = 0x24;

/// The medium that an I2C bus is, by its clock.
uint8_t i2c_medium(uint32_t clock_hz) {
    constexpr uint8_t kStandardMode = 0x03;
    constexpr uint8_t kFastMode = 0x04;
    constexpr uint8_t kFastModePlus = 0x05;
    if (clock_hz <= 100'000) {
        return kStandardMode;
    }
    return clock_hz <= 400'000 ? kFastMode : kFastModePlus;
}

}  // namespace

Bridge::Bridge(BoardState& board, uint8_t eid, Send send)
    : board_(board),
      send_(std::move(send)),
      endpoint_(eid, kUnit, false),
      control_(endpoint_, 0, kOwnUuid, {}, true) {
    unsigned next = eid;
    for (const auto& device : board_.devices) {
        ++next;
        device->set_eid(next <= kLastEid ? static_cast<uint8_t>(next) : 0);
        device->limit_packets(kUnit);
    }
}

bool Bridge::powered(const Device& device) const {
    return board_.main_power || device.standby();
}

/// By the EID that the device has now: a client may have given it another.
Device* Bridge::find_device(uint8_t eid) const {
    const auto found = std::ranges::find_if(board_.devices, [&](const auto& device) {
        return device->eid() == eid && powered(*device);
    });
    return found != board_.devices.end() ? found->get() : nullptr;
}

void Bridge::record(const std::string& device, Direction direction, ByteView packet, bool taken) {
    Passing passing;
    passing.device = device;
    passing.direction = direction;
    passing.packet = packet;
    passing.at_ns = board_.clock.now_ns();
    passing.transport = Transport::kSerial;
    passing.taken = taken;
    board_.tap.packet(passing);
}

void Bridge::receive(ByteView packet) {
    constexpr uint8_t kBroadcast = 0xFF;
    if (packet.size() < MctpEndpoint::kHeaderSize) {
        return;
    }
    // A broadcast is for one bus alone (DSP0236, clause 8.2), and without an EID it is the
    // neighbour that is meant.
    const uint8_t destination = packet[1];
    if (destination == eid() || destination == 0 || destination == kBroadcast) {
        record(kOwnName, Direction::kFromBmc, packet, true);
        if (const std::optional<Message> message = endpoint_.receive(packet)) {
            serve(*message);
        }
        return;
    }
    Device* device = find_device(destination);
    if (device == nullptr || !device->acknowledges()) {
        record("", Direction::kFromBmc, packet, false);
        return;
    }
    record(device->info().name, Direction::kFromBmc, packet, true);
    collect(*device, device->receive(packet));
}

void Bridge::let_devices_act() {
    for (const auto& device : board_.devices) {
        if (powered(*device)) {
            collect(*device, device->time_passes());
        }
    }
}

void Bridge::collect(const Device& device, const std::vector<Outgoing>& outgoing) {
    const bool has_pec = device.info().transport == Transport::kI2c;
    for (const Outgoing& each : outgoing) {
        // What reaches the bridge with a wrong PEC goes no further.
        if (!(has_pec && each.spoil_pec)) {
            wait_to_send(device.info().name, each.packet, each.delay_ns);
        }
    }
}

void Bridge::wait_to_send(const std::string& device, Bytes packet, uint64_t delay_ns) {
    if (waiting_.size() < kMostWaiting) {
        waiting_.emplace(board_.clock.now_ns() + delay_ns, Waiting{std::move(packet), device});
    }
}

std::optional<uint64_t> Bridge::next_due() const {
    return waiting_.empty() ? std::nullopt : std::optional<uint64_t>(waiting_.begin()->first);
}

void Bridge::send_due() {
    while (!waiting_.empty() && waiting_.begin()->first <= board_.clock.now_ns()) {
        const Waiting due = std::move(waiting_.extract(waiting_.begin()).mapped());
        record(due.device, Direction::kToBmc, due.packet, true);
        send_(due.packet);
    }
}

/// Answers a message to the bridge itself.
void Bridge::serve(const Message& request) {
    if (request.type != kControlType || !request.tag_owner) {
        return;
    }
    std::optional<Bytes> body = answer(request.body);
    if (!body) {
        return;
    }
    Message response;
    response.type = kControlType;
    response.body = std::move(*body);
    response.source_eid = eid();
    response.destination_eid = request.source_eid;
    response.tag = request.tag;
    for (Bytes& packet : endpoint_.split(response)) {
        wait_to_send(kOwnName, std::move(packet), kOwnAnswerNs);
    }
}

std::optional<Bytes> Bridge::answer(ByteView request) {
    const bool is_request = request.size() >= 2 && (request[0] & kRequestMask) == kRequestBit;
    const uint8_t command = is_request ? request[1] : 0;
    if (command != kControlAllocateEndpointIds && command != kControlGetRoutingTableEntries) {
        return pool_.with_wish(control_.answer(request), board_.devices.size());
    }
    Bytes out{static_cast<uint8_t>(request[0] & kInstanceBits), command};
    const ByteView data = request.subspan(2);
    if (command == kControlGetRoutingTableEntries) {
        append(out, routing_table_part(data, routes(), kRoutesPerPart));
        return out;
    }
    bool granted = false;
    append(out, pool_.allocate(data, granted));
    if (granted) {
        hand_out_pool();
    }
    return out;
}

/// Those for whom the pool has no EID left have none.
void Bridge::hand_out_pool() {
    unsigned next = pool_.first();
    const unsigned end = next + pool_.size();
    for (const auto& device : board_.devices) {
        next += next == eid() ? 1 : 0;
        device->set_eid(next < end ? static_cast<uint8_t>(next) : 0);
        ++next;
    }
}

std::vector<Bytes> Bridge::routes() const {
    std::vector<Bytes> entries{
        routing_entry(eid(), RouteType::kBridge, 0, kSerialBinding, kAsynchronousSerial, {})};
    for (const auto& device : board_.devices) {
        if (device->eid() != 0) {
            entries.push_back(route_to(*device));
        }
    }
    return entries;
}

Bytes Bridge::route_to(const Device& device) const {
    // The bridge's ports; the line is the first.
    constexpr uint8_t kI2cPort = 1;
    constexpr uint8_t kPciePort = 2;
    const RouteType type = device.owns_bus() ? RouteType::kBridge : RouteType::kEndpoint;
    const EndpointInfo& where = device.info();
    if (where.transport == Transport::kPcie) {
        return pcie_routing_entry(device.eid(), type, kPciePort, where.bdf);
    }
    const I2cBus* bus = board_.find_bus(where.bus);
    const uint8_t medium = i2c_medium(bus != nullptr ? bus->statistics().clock_hz : 0);
    return routing_entry(device.eid(), type, kI2cPort, kSmbusBinding, medium, Bytes{where.address});
}

}  // namespace sim
