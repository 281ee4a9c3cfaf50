// SPDX-License-Identifier: Apache-2.0
// One case of the campaign: a board with a hostile device, and calls of the library on it.
#include "case.h"

#include <sideband/output.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "accounts.h"
#include "sim/board/passing.h"
#include "sim/board/state.h"
#include "sockets.h"
#include "virtual_clock.h"

// There under AddressSanitizer: whether memory has been lost by now.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace hostile {

namespace {

constexpr uint64_t kUsPerS = 1'000'000;
/// When a case has had enough of one device.
constexpr uint64_t kEnoughMessages = 1000;
constexpr uint64_t kEnoughPackets = 10'000;
constexpr int kEnoughCalls = 300;
/// After so many calls the device loses its habits and gets others.
constexpr int kCallsOfAHabit = 100;
/// A leak check of the whole process takes longer than a case.
constexpr uint64_t kLeakCheckEvery = 200;

const Protocol* const kProtocols[] = {&kControlProtocol, &kOwnerProtocol, &kPldmProtocol,
                                      &kUpdateProtocol,  &kNcsiProtocol,  &kNvmeProtocol};
/// How often each is chosen.
constexpr unsigned kProtocolWeights[] = {5, 1, 9, 4, 5, 8};
constexpr unsigned kAllProtocols = 32;

template <typename Weights>
size_t choose(Random& random, unsigned all, const Weights& weight_of) {
    unsigned left = random.below(all);
    size_t chosen = 0;
    while (left >= weight_of(chosen)) {
        left -= weight_of(chosen++);
    }
    return chosen;
}

/// What a text of the library must not have: what a terminal would do something about.
struct Sink {
    size_t bytes = 0;
    bool has_controls = false;
};

void take_text(void* context, uint32_t /*outlet*/, const char* text, size_t length) {
    auto& sink = *static_cast<Sink*>(context);
    sink.bytes += length;
    for (size_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const bool known = c == '\n' || c == '\t' || c == '\r';
        sink.has_controls |= (c < 0x20 && !known) || c == 0x7F;
    }
}

/// A device's packets and the library's messages, as they pass.
struct Traffic {
    uint64_t messages = 0;
    uint64_t packets = 0;
    bool told = false;
};

void watch(Traffic& traffic, const sim::Passing& passing) {
    constexpr uint8_t kStart = 0x80;
    constexpr size_t kFlags = 3;
    const bool from_bmc = passing.direction == sim::Direction::kFromBmc;
    if (!from_bmc) {
        ++traffic.packets;
    } else if (passing.packet.size() > kFlags && (passing.packet[kFlags] & kStart) != 0) {
        ++traffic.messages;
    }
    if (traffic.told) {
        std::printf("  %8.3f %s %s\n", static_cast<double>(passing.at_ns) * 1e-9,
                    from_bmc ? ">" : "<", sim::to_hex(passing.packet).c_str());
    }
}

/// What a case is made of, from its random numbers.
class Run {
public:
    Run(Boards& boards, uint64_t seed, uint64_t index, Tally& tally, bool told)
        : at_{Random(seed, index), *boards.board, boards.files}, tally_(tally), index_(index) {
        traffic_.told = told;
    }

    bool run();

private:
    void choose_protocol();
    void choose_device();
    void address();
    void make_hostile(const std::string& device);
    void call_until_enough();
    void call(const Call& call);
    void check_bounds(const Call& call, uint64_t messages, uint64_t us);
    void check_locks();
    void note(const Call& call, int32_t result, uint64_t messages, uint64_t us);
    void check_what_is_left(size_t descriptors);
    uint64_t seconds_for(const Call& call) const;

    Case at_;
    Tally& tally_;
    uint64_t index_;
    const Protocol* protocol_ = nullptr;
    const sim::Device* here_ = nullptr;  ///< as the board has it
    size_t first_call_ = 0;              ///< of the protocol, in the tally
    Traffic traffic_;
    Sink sink_;
};

void Run::choose_protocol() {
    const size_t chosen =
        choose(at_.random, kAllProtocols, [](size_t i) { return kProtocolWeights[i]; });
    protocol_ = kProtocols[chosen];
    for (size_t i = 0; i < chosen; ++i) {
        first_call_ += kProtocols[i]->calls.size();
    }
    at_.way = static_cast<Way>(at_.random.below(3));
    // The operations that deliver a type byte are those of the buses.
    if (protocol_ == &kOwnerProtocol && at_.way == Way::kSocket) {
        at_.way = Way::kSmbus;
    }
}

void Run::choose_device() {
    const bool on_pcie = at_.way == Way::kPcie || (at_.way == Way::kSocket && at_.random.one_of(2));
    std::string type = protocol_->device_type;
    std::string name = std::string(on_pcie ? "pcie-" : "i2c-") + type;
    if (type.empty()) {
        name = on_pcie && at_.random.one_of(2) ? "mpio" : on_pcie ? "pcie-pldm" : "i2c-pldm";
    }
    const auto& all = at_.board.endpoints();
    const auto found =
        std::ranges::find_if(all, [&](const sim::EndpointInfo& info) { return info.name == name; });
    at_.device = &*found;
}

/// How the device is reached, in one of the ways in which a caller may fill a context.
void Run::address() {
    Random& random = at_.random;
    const sim::EndpointInfo& where = *at_.device;
    mctp_ctx& config = at_.config;
    const auto position = static_cast<uint8_t>(&where - at_.board.endpoints().data());
    config.src_eid = 8;
    config.strict = random.one_of(3) ? 0 : random.one_of(2) ? MCTP_STRICT_ALL : random.word();
    config.skip_discovery = random.one_of(3) ? 0 : 1;
    switch (at_.way) {
        case Way::kSmbus:
            config.binding_kind =
                random.one_of(2) ? MCTP_BINDING_KIND_SMBUS : MCTP_BINDING_KIND_SL8_SMBUS;
            config.bus = where.bus;
            config.slave_addr = where.address;
            std::ranges::copy(where.mux, config.mux);
            config.unit_size = static_cast<uint16_t>(random.one_of(2) ? 0 : 30 + random.below(91));
            config.i2c_delay_us = random.one_of(4) ? 5000 : 0;
            config.route = random.one_of(2) ? 0 : 50;
            break;
        case Way::kPcie:
            config.binding_kind = MCTP_BINDING_KIND_PCIE;
            std::ranges::copy(where.bdf, config.pcie_bdf);
            config.pcie_param = random.one_of(2) ? 0 : 50;
            break;
        case Way::kSocket:
            config.binding_kind = MCTP_BINDING_KIND_SOCKET;
            config.src_eid = 7;
            config.pcie_param = random.one_of(2) ? 0 : 1;
            config.route = random.one_of(2) ? 0 : 300;
            config.skip_discovery = 1;
            break;
    }
    here_ = at_.board.state().devices[position].get();
    config.dest_eid = here_->eid();
}

/// Makes the device hostile, and at times the owner of its bus as well.
void Run::make_hostile(const std::string& device) {
    static constexpr unsigned kRates[] = {50, 200, 400, 700, 1000};
    const bool owner_too = at_.way == Way::kPcie && device != "mpio" && at_.random.one_of(2);
    for (const std::string& each : {device, std::string(owner_too ? "mpio" : "")}) {
        if (each.empty()) {
            continue;
        }
        const std::string fault = R"({"kind": "hostile", "seed": )" +
                                  std::to_string(at_.random.word() & 0xFFFFFFFF) + R"(, "rate": )" +
                                  std::to_string(kRates[at_.random.below(5)]) + "}";
        sim::BoardError error;
        at_.board.clear_faults(each);
        at_.expect(at_.board.add_fault(each, fault, error), "a fault that the board refuses");
    }
}

/// Virtual seconds that a call may take by what its documentation says. Each packet that was
/// dropped may have come at the end of a wait, and 1024 of them may go before one that counts.
uint64_t Run::seconds_for(const Call& call) const {
    constexpr uint64_t kDropped = 1024;
    constexpr uint64_t kSlack = 10;
    uint64_t each = at_.way == Way::kSmbus ? kDropped + kSlack : kSlack;
    // Messages that are no answer are passed over for less than five seconds, and then for a wait.
    each = at_.strict(MCTP_STRICT_PLDM) ? 2 * each + 5 : each;
    if (call.deadline) {
        return at_.deadline_ms / 1000 + kSlack;
    }
    return (uint64_t{call.most_messages} + 1) * each;
}

void Run::check_bounds(const Call& call, uint64_t messages, uint64_t us) {
    at_.expect(messages <= call.most_messages, std::to_string(messages) +
                                                   " messages, of which there may be " +
                                                   std::to_string(call.most_messages));
    at_.expect(us <= seconds_for(call) * kUsPerS,
               std::to_string(us / kUsPerS) + " virtual seconds");
}

void Run::check_locks() {
    const sim::LockReport locks = at_.board.lock_report();
    at_.expect(locks.held.empty(), "a lock that is still held");
    at_.expect(locks.violations.empty(), locks.violations.empty() ? "" : locks.violations.front());
}

Outcome outcome_of(int32_t result, uint8_t cause) {
    if (result == 0) {
        return Outcome::kTaken;
    }
    switch (result > 0 ? SIDEBAND_CAUSE_DEVICE : cause) {
        case SIDEBAND_CAUSE_DEVICE:
            return Outcome::kCode;
        case SIDEBAND_CAUSE_NO_ANSWER:
        case SIDEBAND_CAUSE_NOT_ACKNOWLEDGED:
            return Outcome::kSilence;
        case SIDEBAND_CAUSE_DEADLINE:
            return Outcome::kDeadline;
        case SIDEBAND_CAUSE_WRONG_TAG:
        case SIDEBAND_CAUSE_WRONG_CHECK:
        case SIDEBAND_CAUSE_MALFORMED:
        case SIDEBAND_CAUSE_REFUSED:
        case SIDEBAND_CAUSE_NOT_FOUND:
            return Outcome::kRefused;
        default:
            return Outcome::kOther;
    }
}

void Run::note(const Call& call, int32_t result, uint64_t messages, uint64_t us) {
    const uint8_t cause = protocol_->error(at_).cause;
    at_.expect(result >= 0 || cause != SIDEBAND_CAUSE_NONE, "a failure without a cause");
    const auto number = static_cast<size_t>(&call - protocol_->calls.data());
    CallTally& sum = tally_.calls[first_call_ + number];
    ++sum.calls;
    sum.messages += messages;
    ++sum.outcomes[static_cast<size_t>(outcome_of(result, cause))];
    sum.most_messages = std::max(sum.most_messages, messages);
    sum.longest_us = std::max(sum.longest_us, us);
}

void Run::call(const Call& call) {
    std::snprintf(tally_.last_call, sizeof tally_.last_call, "%s", call.name);
    const uint64_t messages = traffic_.messages;
    const uint64_t start = at_.board.now_us();
    at_.error = {};
    // A call before this one may have given the device another EID, or the device said that it has.
    at_.config.dest_eid = here_->eid();
    at_.endpoint.dest_eid = here_->eid();
    if (traffic_.told) {
        std::printf("%s\n", call.name);
    }
    const int32_t result = call.run(at_);
    if (traffic_.told) {
        char text[128];
        sideband_error_text(&protocol_->error(at_), text, sizeof text);
        std::printf("  = %d: %s\n", result, text);
    }
    const uint64_t sent = traffic_.messages - messages;
    const uint64_t took = at_.board.now_us() - start;
    check_locks();
    check_bounds(call, sent, took);
    at_.expect(!sink_.has_controls, "a control character in a text");
    note(call, result, sent, took);
}

/// Nothing of what the library has taken is left, but for sockets that wait for late answers.
void Run::check_what_is_left(size_t descriptors) {
    at_.expect(live_blocks() == 0, std::to_string(live_blocks()) + " blocks of memory are left");
    at_.expect(open_descriptors() == descriptors, "descriptors are left open");
    at_.expect(!is_mapped(at_.files.folder), "a file is still mapped");
    const sim::PcieSessions sessions = at_.board.pcie_sessions();
    at_.expect(sessions.open == 0 && sessions.stray_closes == 0, "a session is left open");
    constexpr size_t kSocketsMax = 65;
    at_.expect(open_sockets() <= kSocketsMax, "too many sockets");
    if (index_ % kLeakCheckEvery == 0 && __lsan_do_recoverable_leak_check != nullptr) {
        at_.expect(__lsan_do_recoverable_leak_check() == 0, "memory is lost");
    }
}

/// One call after the other, as often as their weights say.
void Run::call_until_enough() {
    unsigned all = 0;
    for (const Call& each : protocol_->calls) {
        all += each.weight;
    }
    for (int i = 0; i < kEnoughCalls && traffic_.messages < kEnoughMessages &&
                    traffic_.packets < kEnoughPackets && at_.complaint.empty();
         ++i) {
        if (i % kCallsOfAHabit == kCallsOfAHabit - 1) {
            make_hostile(at_.device->name);
        }
        call(protocol_->calls[choose(
            at_.random, all, [this](size_t number) { return protocol_->calls[number].weight; })]);
    }
}

bool Run::run() {
    const size_t descriptors = open_descriptors();
    tally_.current = index_;
    choose_protocol();
    choose_device();
    sim::Board::use(&at_.board);
    count_blocks();
    tell_time_of(at_.board.state().clock);
    if (at_.way == Way::kSocket) {
        put_sockets_before(at_.board.state());
    }
    address();
    make_hostile(at_.device->name);
    at_.board.observe_packets([this](const sim::Passing& passing) { watch(traffic_, passing); });
    sideband_set_output(SIDEBAND_OUTLET_PRINTED | SIDEBAND_OUTLET_CONSOLE | SIDEBAND_OUTLET_DEBUG,
                        take_text, &sink_);
    if (protocol_->begin(at_)) {
        call_until_enough();
        protocol_->end(at_);
    }
    check_locks();
    check_what_is_left(descriptors);
    ++tally_.cases;
    ++tally_.ways[static_cast<size_t>(at_.way)];
    tally_.lax += at_.config.strict == 0 ? 1 : 0;
    tally_.packets += traffic_.packets;
    std::snprintf(tally_.complaint, sizeof tally_.complaint, "%s", at_.complaint.c_str());
    return at_.complaint.empty();
}

}  // namespace

std::span<const Protocol* const> protocols() {
    return kProtocols;
}

bool run_case(Boards& boards, uint64_t seed, uint64_t index, Tally& tally, bool told) {
    return Run(boards, seed, index, tally, told).run();
}

}  // namespace hostile
