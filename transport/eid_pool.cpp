// SPDX-License-Identifier: Apache-2.0
// The EIDs that this process knows to be in use, and the choice of one that is not.
#include "transport/eid_pool.h"

#include <span>

#include "transport/amd_mpio.h"

namespace sideband::eid_pool {
namespace {

/// Who has an EID: a hash of the endpoint's address, or one of these.
using Holder = uint32_t;
constexpr Holder kNobody = 0;
constexpr Holder kSomebody = 1;

constexpr unsigned kEids = 256;
constexpr uint8_t kBroadcastEid = 0xFF;

/// By EID. Read and written atomically each by itself: an entry that another thread changes between
/// two looks is as good as one that it changes behind them.
Holder holders[kEids];

Holder holder_of(unsigned eid) {
    return __atomic_load_n(&holders[eid], __ATOMIC_RELAXED);
}

void set_holder(unsigned eid, Holder holder) {
    __atomic_store_n(&holders[eid], holder, __ATOMIC_RELAXED);
}

/// FNV-1a.
Holder add(Holder hash, std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
        hash = (hash ^ byte) * 16777619U;
    }
    return hash;
}

Holder endpoint_at(const mctp_ctx& ctx) {
    constexpr Holder kStart = 2166136261U;
    Holder hash = 0;
    if (ctx.binding_kind == MCTP_BINDING_KIND_PCIE) {
        hash = add(kStart, ctx.pcie_bdf);
    } else {
        const uint8_t wire[] = {ctx.bus, ctx.slave_addr};
        hash = add(add(kStart, wire), ctx.mux);
    }
    return hash > kSomebody ? hash : kSomebody + 1;
}

/// Whether an endpoint can have an EID at all (DSP0236, table 2).
bool is_assignable(uint8_t eid) {
    return eid > kLastReservedEid && eid != kBroadcastEid;
}

bool may_give(const mctp_ctx& ctx, uint8_t eid) {
    const bool of_mpio =
        eid == mpio_state() || (eid >= kFirstMpioEid && eid < kFirstMpioEid + kMpioPoolSize);
    return is_assignable(eid) && !of_mpio && eid != ctx.src_eid && eid != kMpioSourceEid;
}

}  // namespace

void note(uint8_t first, unsigned count) {
    for (unsigned eid = first; eid < kEids && eid < first + count; ++eid) {
        if (holder_of(eid) == kNobody) {
            set_holder(eid, kSomebody);
        }
    }
}

void note_given(const mctp_ctx& ctx, uint8_t eid) {
    const Holder endpoint = endpoint_at(ctx);
    for (unsigned other = 0; other < kEids; ++other) {
        if (holder_of(other) == endpoint) {
            set_holder(other, kNobody);
        }
    }
    set_holder(eid, endpoint);
}

Choice choose(const mctp_ctx& ctx, uint8_t next) {
    const Holder endpoint = endpoint_at(ctx);
    for (unsigned eid = 0; eid < kEids; ++eid) {
        if (holder_of(eid) == endpoint && may_give(ctx, static_cast<uint8_t>(eid))) {
            return {static_cast<uint8_t>(eid), next};
        }
    }
    uint8_t eid = next;
    for (unsigned tries = 0; tries < kEids; ++tries) {
        if (eid < kFirstEid) {
            eid = kFirstEid;
        }
        const auto behind = static_cast<uint8_t>(eid + 1);
        if (holder_of(eid) == kNobody && may_give(ctx, eid)) {
            return {eid, behind};
        }
        eid = behind;
    }
    return {0, next};
}

}  // namespace sideband::eid_pool
