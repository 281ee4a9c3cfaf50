// SPDX-License-Identifier: Apache-2.0
// PCIe as MCTP sees it: vendor-defined messages between the BMC and functions (DSP0238).
#include "sim/mctp/pcie_bus.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/// A vendor-defined message of one packet takes far less; what counts is that none takes nothing.
constexpr uint64_t kPacketNs = 1000;
/// A request that has not been answered for so long will not be.
constexpr uint64_t kAnswerNs = 5'000'000'000;

}  // namespace

void PcieBus::attach(Device& device) {
    auto function = std::make_unique<Function>(Function{&device, MctpEndpoint(0, kUnit, false)});
    function->to_bmc.accept_all();
    functions_.push_back(std::move(function));
    devices_.push_back(&device);
    device.join(devices_);
}

PcieBus::Function* PcieBus::find_function(const Bdf& bdf) {
    for (const auto& function : functions_) {
        if (function->device->info().bdf == bdf) {
            return function.get();
        }
    }
    return nullptr;
}

const Device* PcieBus::find(const Bdf& bdf) const {
    for (const Device* device : devices_) {
        if (device->info().bdf == bdf) {
            return device;
        }
    }
    return nullptr;
}

bool PcieBus::powered(const Device& device) const {
    return main_power_ || device.standby();
}

void PcieBus::record(const Device& device, Direction direction, const Bytes& packet) {
    ++statistics_.packets;
    if (packet.size() > MctpEndpoint::kHeaderSize) {
        statistics_.payload_bytes += packet.size() - MctpEndpoint::kHeaderSize;
    }
    Passing passing;
    passing.device = device.info().name;
    passing.direction = direction;
    passing.packet = packet;
    passing.at_ns = clock_.now_ns();
    passing.transport = Transport::kPcie;
    passing.bdf = device.info().bdf;
    tap_.packet(passing);
}

/// A message to a function that is not there, has no power, or does not listen.
void PcieBus::tell_lost(const PcieMessage& outgoing) {
    for (const Bytes& packet : bmc_.split(outgoing.message)) {
        Passing lost;
        lost.packet = packet;
        lost.at_ns = clock_.now_ns();
        lost.transport = Transport::kPcie;
        lost.bdf = outgoing.bdf;
        lost.taken = false;
        tap_.packet(lost);
    }
}

bool PcieBus::answers_open_request(const PcieMessage& outgoing) {
    std::erase_if(open_,
                  [&](const Open& open) { return open.since_ns + kAnswerNs < clock_.now_ns(); });
    return std::erase_if(open_, [&](const Open& open) {
               return open.bdf == outgoing.bdf && open.tag == outgoing.message.tag;
           }) != 0;
}

void PcieBus::write(PcieMessage outgoing) {
    outgoing.message.tag &= 7;
    outgoing.message.tag_owner = !answers_open_request(outgoing);
    Function* function = find_function(outgoing.bdf);
    if (function == nullptr || !powered(*function->device) || !function->device->acknowledges()) {
        tell_lost(outgoing);
        return;
    }
    ++statistics_.messages;
    for (const Bytes& packet : bmc_.split(outgoing.message)) {
        clock_.advance_to(clock_.now_ns() + kPacketNs);
        record(*function->device, Direction::kFromBmc, packet);
        schedule(*function, function->device->receive(packet));
    }
}

std::optional<PcieMessage> PcieBus::read(uint64_t limit_ns) {
    std::optional<PcieMessage> got = wait(limit_ns, [](const PcieMessage&) { return true; });
    if (got && got->message.tag_owner) {
        open_.push_back({got->bdf, got->message.tag, clock_.now_ns()});
    }
    return got;
}

std::optional<PcieMessage> PcieBus::exchange(PcieMessage request, uint64_t limit_ns) {
    request.message.tag &= 7;
    auto is_answer = [&](const PcieMessage& received) {
        return !received.message.tag_owner && received.message.tag == request.message.tag &&
               received.bdf == request.bdf;
    };
    // An answer that nobody waited for is not taken for the one to this request.
    std::erase_if(queue_, is_answer);
    write(request);
    return wait(limit_ns, is_answer);
}

std::optional<PcieMessage> PcieBus::wait(uint64_t limit_ns, const Wanted& wanted) {
    const uint64_t deadline = clock_.now_ns() + limit_ns;
    if (std::ranges::none_of(queue_, wanted)) {
        for (const auto& function : functions_) {
            bool ended = false;  // every message has an end here
            schedule(*function, function->device->bmc_waits(ended));
        }
    }
    for (;;) {
        const auto found = std::ranges::find_if(queue_, wanted);
        if (found != queue_.end()) {
            PcieMessage message = std::move(*found);
            queue_.erase(found);
            return message;
        }
        const std::optional<uint64_t> due = clock_.next_due();
        if (!due || *due > deadline) {
            clock_.advance_to(deadline);
            return std::nullopt;
        }
        clock_.advance_to(*due);
    }
}

void PcieBus::schedule(Function& function, const std::vector<Outgoing>& outgoing) {
    uint64_t packets = 0;
    for (const Outgoing& each : outgoing) {
        const uint64_t at = clock_.now_ns() + each.delay_ns + ++packets * kPacketNs;
        clock_.schedule(
            at, [this, &function, packet = each.packet, losses = function.device->power_losses()] {
                arrive(function, packet, losses);
            });
    }
}

/// @param losses  how often the device had lost power when it made the packet
void PcieBus::arrive(Function& function, const Bytes& packet, uint32_t losses) {
    if (!powered(*function.device) || function.device->power_losses() != losses) {
        return;
    }
    record(*function.device, Direction::kToBmc, packet);
    std::optional<Message> message = function.to_bmc.receive(packet);
    if (!message || queue_.size() >= kQueueLimit) {
        return;
    }
    ++statistics_.messages;
    queue_.push_back({function.device->info().bdf, std::move(*message)});
}

}  // namespace sim
