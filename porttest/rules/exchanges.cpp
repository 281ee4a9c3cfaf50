// SPDX-License-Identifier: Apache-2.0
// Rules that only whole exchanges show, made by the library over the port.
#include <algorithm>
#include <cstring>
#include <vector>

#include "porttest/aside.h"
#include "porttest/raw_bus.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

constexpr int kThreads = 8;
constexpr int kRepeats = 5;
constexpr int kMessageRoom = 4096;
constexpr uint8_t kPldm = 1;
constexpr uint8_t kNvmeMi = 4;

/// The library's endpoint contexts for the device.
class Endpoints {
public:
    explicit Endpoints(const Subject& subject) : subject_(subject) {
        trouble_ = load_library(subject.options.library, library_);
    }

    const std::string& trouble() const { return trouble_; }

    bool open(mctp_ctx& ctx, uint8_t binding_kind) const {
        const Place& place = *subject_.options.device;
        ctx = {};
        ctx.src_eid = subject_.eid();
        ctx.binding_kind = binding_kind;
        ctx.bus = place.bus;
        ctx.slave_addr = place.address;
        std::memcpy(ctx.mux, place.mux.data(), sizeof ctx.mux);
        ctx.skip_discovery = 1;
        return library_.init(&ctx) == 0;
    }

    /// Whether so many exchanges all tell one EID.
    bool agree(mctp_ctx& ctx, int count) const {
        const int32_t first = library_.get_endpoint_id(&ctx);
        for (int i = 1; i < count && first >= 0; ++i) {
            if (library_.get_endpoint_id(&ctx) != first) {
                return false;
            }
        }
        return first >= 0;
    }

private:
    const Subject& subject_;
    Library library_;
    std::string trouble_;
};

Verdict exchange(const Subject& subject) {
    const Endpoints endpoints(subject);
    if (!endpoints.trouble().empty()) {
        return failed(endpoints.trouble());
    }
    for (const uint8_t kind : {MCTP_BINDING_KIND_SL8_SMBUS, MCTP_BINDING_KIND_SMBUS}) {
        mctp_ctx ctx;
        if (!endpoints.open(ctx, kind) || !endpoints.agree(ctx, kRepeats)) {
            return failed(text("Get Endpoint ID has no answer, with the PEC by the %s",
                               kind == MCTP_BINDING_KIND_SMBUS ? "port" : "library"));
        }
    }
    return passed();
}

int32_t transfer(mctp_ctx& ctx, uint8_t type, const Bytes& request, Bytes& answer) {
    ctx.msg_type = type;
    answer.assign(kMessageRoom, 0);
    const int32_t length = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()), kMessageRoom,
                                    request.data(), answer.data());
    answer.resize(static_cast<size_t>(std::max(length, 0)));
    return length;
}

/// The message types of the device: Get MCTP Message Type Support (DSP0236, clause 12).
Bytes types_of(mctp_ctx& ctx) {
    constexpr size_t kCountAt = 3;
    Bytes answer;
    if (transfer(ctx, 0, {0x80, 0x05}, answer) <= static_cast<int32_t>(kCountAt)) {
        return {};
    }
    const size_t count = std::min<size_t>(answer[kCountAt], answer.size() - kCountAt - 1);
    return {answer.begin() + kCountAt + 1,
            answer.begin() + kCountAt + 1 + static_cast<ptrdiff_t>(count)};
}

/// A request whose answer takes more than one packet.
struct LongAnswer {
    uint8_t device_type;   ///< as the device tells it
    uint8_t message_type;  ///< as it goes on the wire
    Bytes request;
};

std::vector<LongAnswer> long_answers() {
    return {// GetFRURecordTable, first part (DSP0257).
            {kPldm, kPldm, {0x80, 0x04, 0x02, 0, 0, 0, 0, 0x01}},
            // VPD Read of 256 bytes (NVMe-MI, Management Interface Command Set), with its integrity
            // check by the library.
            {kNvmeMi,
             MCTP_MSG_TYPE_INTEGRITY_CHECK | kNvmeMi,
             {0x08, 0, 0, 0x05, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}}};
}

/// @return whether the answer had several packets and came whole each time; nothing if the device
///         has none that is so long
std::optional<bool> comes_whole(mctp_ctx& ctx, const LongAnswer& wanted) {
    Bytes first;
    transfer(ctx, wanted.message_type, wanted.request, first);
    for (int i = 1; i < kRepeats; ++i) {
        Bytes again;
        transfer(ctx, wanted.message_type, wanted.request, again);
        if (again != first) {
            return false;
        }
    }
    if (first.empty()) {
        return false;
    }
    return first.size() >= ctx.unit_size ? std::optional(true) : std::nullopt;
}

Verdict message(const Subject& subject) {
    const Endpoints endpoints(subject);
    mctp_ctx ctx;
    if (!endpoints.trouble().empty() || !endpoints.open(ctx, MCTP_BINDING_KIND_SMBUS)) {
        return failed("no exchange with the library");
    }
    const Bytes types = types_of(ctx);
    for (const LongAnswer& wanted : long_answers()) {
        if (std::ranges::find(types, wanted.device_type) == types.end()) {
            continue;
        }
        const std::optional<bool> whole = comes_whole(ctx, wanted);
        if (whole) {
            return *whole ? passed()
                          : failed(text("a long answer of message type %u does not come, or not "
                                        "the same each time",
                                        wanted.device_type));
        }
    }
    return not_applicable("the device has no answer of more than one packet (PLDM FRU, NVMe VPD)");
}

Verdict storm(const Subject& subject) {
    const Endpoints endpoints(subject);
    mctp_ctx ctx;
    return endpoints.open(ctx, MCTP_BINDING_KIND_SMBUS) &&
                   endpoints.agree(ctx, subject.options.rounds)
               ? passed()
               : failed(text("of %d exchanges in a row one fails", subject.options.rounds));
}

Verdict threads(const Subject& subject) {
    const Endpoints endpoints(subject);
    const int each = std::max(1, subject.options.rounds / kThreads);
    std::vector<Aside> callers;
    callers.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        callers.emplace_back([&] {
            mctp_ctx ctx;
            return endpoints.open(ctx, MCTP_BINDING_KIND_SMBUS) && endpoints.agree(ctx, each) ? 0
                                                                                              : 1;
        });
    }
    constexpr int kMsForRound = 1000;
    int failures = 0;
    for (Aside& caller : callers) {
        failures += caller.wait(subject.options.rounds * kMsForRound) == 0 ? 0 : 1;
    }
    return failures == 0
               ? passed()
               : failed(text("of %d threads %d have an exchange that fails", kThreads, failures));
}

constexpr Rule kRules[] = {
    {"exchange", "crc8 power-agrees power-allows write-with-pec write-as-given read-whole",
     "the library reads the device's endpoint ID, with either PEC",
     "what the port does with tag, EIDs or message type: all bytes of a packet are the library's",
     exchange},
    {"message", "exchange read-queue", "an answer of many packets comes whole, each time",
     "the room of the slave queue: 64 blocks are recommended", message},
    {"storm", "exchange", "exchanges in a row (--rounds) all succeed",
     "what each call takes and does not give back: descriptors, memory, places in a queue", storm},
    {"threads", "storm locks-contended", "eight threads exchange with the device in turns",
     "what belongs to a thread: a descriptor, a buffer that is not the caller's", threads},
};

}  // namespace

std::span<const Rule> exchange_rules() {
    return kRules;
}

}  // namespace porttest
