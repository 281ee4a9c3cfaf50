// SPDX-License-Identifier: Apache-2.0
// A device on the simulated board: its place, its MCTP stack, its faults.
#include "sim/device/device.h"
#include "sim/device/message.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

constexpr uint8_t kNotReady = 0x04;

/// Whether a message type has a "not ready" answer (DSP0236, DSP0240).
bool knows_not_ready(uint8_t type, ByteView request) {
    return (type == kControlType && request.size() >= 2) ||
           (type == kPldmType && request.size() >= 3);
}

Bytes not_ready_answer(uint8_t type, ByteView request) {
    ByteView header = request.first(type == kControlType ? 2 : 3);
    Bytes out(header.begin(), header.end());
    out[0] &= kInstanceBits;
    out.push_back(kNotReady);
    return out;
}

}  // namespace

Device::Device(const DeviceConfig& config, const Clock& clock, Bytes types)
    : config_(config),
      clock_(clock),
      endpoint_(config.eid, config.transmission_unit, config.lenient_eom),
      control_(endpoint_, config.eid, config.uuid, std::move(types), config.bus_owner) {
    for (const Fault& fault : config_.faults) {
        faults_.add(fault);
    }
}

std::vector<Outgoing> Device::receive(ByteView packet) {
    if (faults_.strike(FaultKind::kLostRequest) != nullptr) {
        return {};
    }
    std::optional<Message> message = endpoint_.receive(packet);
    return message ? handle(*message) : std::vector<Outgoing>{};
}

std::vector<Outgoing> Device::bmc_waits(bool& ended) {
    std::optional<Message> message = endpoint_.sender_waits();
    ended = message.has_value();
    return message ? handle(*message) : time_passes();
}

std::vector<Outgoing> Device::time_passes() {
    std::vector<Outgoing> out;
    idle();
    send_initiated(out);
    if (hostile_ && faults_.has(FaultKind::kHostile)) {
        for (Outgoing& unasked : hostile_->babble()) {
            send(std::move(unasked), out);
        }
    }
    return out;
}

void Device::reset() {
    ++power_losses_;
    endpoint_.reset();
    endpoint_.set_unit(config_.transmission_unit);
    control_.reset();
}

std::vector<Outgoing> Device::handle(const Message& message) {
    std::vector<Outgoing> out;
    if (message.tag_owner) {
        respond(message, out);
    } else {
        heard(message);
    }
    send_initiated(out);
    return out;
}

void Device::send_initiated(std::vector<Outgoing>& out) {
    for (Initiated& own : std::exchange(initiated_, {})) {
        own.message.source_eid = endpoint_.eid();
        own.message.tag_owner = true;
        send_message(own.message, own.delay_us, out);
    }
}

void Device::respond(const Message& request, std::vector<Outgoing>& out) {
    answer_delay_us_ = config_.response_us;
    requester_eid_ = request.source_eid;
    std::optional<Bytes> body;
    if (knows_not_ready(request.type, request.body) &&
        faults_.strike(FaultKind::kNotReady) != nullptr) {
        body = not_ready_answer(request.type, request.body);
    } else {
        body = answer(request.type, request.body);
    }
    Message response;
    response.type = request.type;
    response.source_eid = endpoint_.eid();
    response.destination_eid = request.source_eid;
    response.tag = request.tag;
    for (Early& early : std::exchange(early_, {})) {
        response.body = std::move(early.body);
        send_message(response, early.delay_us, out);
    }
    if (!body) {
        return;
    }
    response.body = std::move(*body);
    send_message(response, answer_delay_us_, out);
}

void Device::send_message(const Message& message, uint64_t delay_us, std::vector<Outgoing>& out) {
    const Fault* const fault = faults_.strike(FaultKind::kHostile);
    if (fault == nullptr) {
        send_packets(message, delay_us, nullptr, out);
        return;
    }
    if (!hostile_ || !hostile_->is(fault->seed, fault->rate)) {
        hostile_.emplace(fault->seed, fault->rate);
    }
    for (const Message& spoilt : hostile_->spoil(message)) {
        send_packets(spoilt, delay_us, &*hostile_, out);
    }
}

/// @param hostile  what else becomes of the packets, or null
void Device::send_packets(const Message& message, uint64_t delay_us, Hostile* hostile,
                          std::vector<Outgoing>& out) {
    std::vector<Outgoing> packets;
    for (Bytes& packet : endpoint_.split(message)) {
        packets.push_back({std::move(packet), delay_us * 1000});
    }
    if (hostile != nullptr) {
        hostile->spoil(packets);
    }
    for (size_t i = 0; i + 1 < packets.size(); ++i) {
        if (faults_.strike(FaultKind::kReorder) != nullptr) {
            std::swap(packets[i], packets[i + 1]);
        }
    }
    for (Outgoing& packet : packets) {
        send(std::move(packet), out);
    }
}

void Device::send(Outgoing outgoing, std::vector<Outgoing>& out) {
    if (faults_.strike(FaultKind::kLostResponse) != nullptr) {
        return;
    }
    Bytes& packet = outgoing.packet;
    if (const Fault* late = faults_.strike(FaultKind::kLate)) {
        outgoing.delay_ns += late->delay_us * 1000;
    }
    // A hostile device may have cut even the header.
    const bool has_header = packet.size() >= MctpEndpoint::kHeaderSize;
    if (faults_.strike(FaultKind::kWrongTag) != nullptr && has_header) {
        packet[3] = static_cast<uint8_t>((packet[3] & 0xF8) | ((packet[3] + 1) & 0x07));
    }
    if (faults_.strike(FaultKind::kWrongSequence) != nullptr && has_header) {
        packet[3] = static_cast<uint8_t>((packet[3] & 0xCF) | ((packet[3] + 0x10) & 0x30));
    }
    if (const Fault* truncate = faults_.strike(FaultKind::kTruncate)) {
        packet.resize(packet.size() - std::min<size_t>(packet.size(), truncate->bytes));
    }
    if (const Fault* over_long = faults_.strike(FaultKind::kOverLong)) {
        packet.resize(packet.size() + over_long->bytes, 0xEE);
    }
    if (faults_.strike(FaultKind::kBadPec) != nullptr) {
        outgoing.spoil_pec = true;
    }
    out.push_back(std::move(outgoing));
    if (faults_.strike(FaultKind::kDuplicate) != nullptr) {
        out.push_back(out.back());
    }
}

}  // namespace sim
