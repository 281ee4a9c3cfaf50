// SPDX-License-Identifier: Apache-2.0
// Endpoint discovery, EID assignment from the shared pool, and the routing table lookup.
#include <sideband/debug_log.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <span>

#include "common/error.h"
#include "common/lock.h"
#include "common/wire.h"
#include "transport/amd_mpio.h"
#include "transport/control.h"
#include "transport/eid_pool.h"
#include "transport/mctp.h"

using namespace sideband;

namespace {

constexpr uint8_t kTableEnd = 0xFF;
/// Handles are 0 to 254, and a table that ends never gives one out twice.
constexpr int kTableRequestsMax = 255;

enum class Lookup { kFound, kNotHere, kMalformed };

struct RoutingEntry {
    uint8_t range_size;
    uint8_t starting_eid;
    uint8_t binding_type;
    uint8_t address_size;
    uint8_t address[2];
};

bool matches(const RoutingEntry& entry, const uint8_t (&bdf)[3]) {
    constexpr uint8_t kBindingPcie = 2;
    return entry.binding_type == kBindingPcie && entry.address_size >= 2 &&
           entry.address[0] == bdf[0] && (entry.address[1] >> 3) == bdf[1] &&
           (entry.address[1] & 0x07) == bdf[2];
}

void log_entry(const RoutingEntry& entry) {
    debug_log("    EID: 0x%02X, ", entry.starting_eid);
    if (entry.address_size == 1) {
        debug_log("Addr: 0x%02x\n", entry.address[0]);
    } else if (entry.address_size == 2) {
        debug_log("Addr: 0x%02x 0x%02x\n", entry.address[0], entry.address[1]);
    } else {
        debug_log("Addr: Unknown (%d)\n", entry.address_size);
    }
}

/// Reads one entry (DSP0236, table 26); the reader stays failed if the entry runs past its end.
RoutingEntry read_entry(WireReader& reader) {
    RoutingEntry entry{};
    entry.range_size = reader.u8();
    entry.starting_eid = reader.u8();
    reader.skip(1);  // entry type and port
    entry.binding_type = reader.u8();
    reader.skip(1);  // physical media type
    entry.address_size = reader.u8();
    const size_t kept =
        entry.address_size < sizeof entry.address ? entry.address_size : sizeof entry.address;
    reader.copy({entry.address, kept});
    reader.skip(entry.address_size - kept);
    return entry;
}

/// Looks through one response.
/// @param handle  receives that of the next entries
Lookup look_up(std::span<const uint8_t> response, mctp_ctx& target, uint8_t& handle) {
    WireReader reader(response);
    reader.skip(control::kResponseSize);
    handle = reader.u8();
    const unsigned count = reader.u8();
    if (!reader.ok()) {
        return Lookup::kMalformed;
    }
    for (unsigned i = 0; i < count; ++i) {
        const RoutingEntry entry = read_entry(reader);
        if (!reader.ok()) {
            return Lookup::kMalformed;
        }
        eid_pool::note(entry.starting_eid, entry.range_size);
        log_entry(entry);
        if (matches(entry, target.pcie_bdf)) {
            target.dest_eid = entry.starting_eid;
            debug_log("      -> EID: %d\n\n\n", entry.starting_eid);
            return Lookup::kFound;
        }
    }
    return Lookup::kNotHere;
}

/// Leaves with a context why an endpoint that was asked on its behalf did not help. @return -1
int32_t fail_as(mctp_ctx& ctx, const mctp_ctx& asked) {
    ctx.last_error = asked.last_error;
    return -1;
}

/// What the pool gives to an endpoint. A context that is not strict gets whatever comes next.
eid_pool::Choice choose(const mctp_ctx& ctx, uint8_t next) {
    if (!is_strict(ctx, MCTP_STRICT_ADDRESSES)) {
        return {next, static_cast<uint8_t>(next + 1)};
    }
    const eid_pool::Choice choice = eid_pool::choose(ctx, next);
    if (choice.eid == 0) {
        debug_log("[%s] every EID is in use\n", "mctp_assign_eid");
    }
    return choice;
}

/// Whether the MPIO is there to be asked: it has been brought up, or it answers now.
bool mpio_present(mctp_ctx& mpio) {
    return mpio_state() != PLT_MPIO_NONE || mctp_get_endpoint_id(&mpio) >= 0;
}

}  // namespace

int32_t mctp_discovery(mctp_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    if (ctx->binding_kind == MCTP_BINDING_KIND_PCIE) {
        mctp_ctx mpio = mpio_for(*ctx);
        if (mpio_present(mpio)) {
            return get_eid_from_mpio(ctx) == 0 ? 0 : -1;
        }
        debug_log("[AMD] CPU without MPIO.\n");
    }
    const int32_t eid = mctp_get_endpoint_id(ctx);
    if (eid < 0) {
        return -1;
    }
    if (eid > eid_pool::kLastReservedEid) {
        return 0;
    }
    return mctp_assign_eid(ctx) < 1 ? -1 : 0;
}

int32_t mctp_assign_eid(mctp_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    uint8_t eid = 0;
    {
        MutexGuard pool(at_p_St_GlobalSecVar->eid_mutex);
        ctx->last_error = kNoError;
        if (!pool) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
        }
        uint8_t& next = at_p_St_GlobalVar->next_eid;
        if (next == 0) {
            next = eid_pool::kFirstEid;
        }
        const eid_pool::Choice choice = choose(*ctx, next);
        eid = choice.eid;
        if (eid == 0 || mctp_set_endpoint_id(ctx, eid) < 0) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_NOT_FOUND);
        }
        next = choice.next;
        eid_pool::note_given(*ctx, eid);
    }
    // The number is part of the text that log readers match.
    debug_log("[%s][%d] successful, new eid: 0x%x\n", "mctp_assign_eid", 1371, eid);
    return eid;
}

int32_t get_eid_from_routing_table(mctp_ctx* owner, mctp_ctx* target) {
    if (owner == nullptr || target == nullptr) {
        if (target != nullptr) {
            target->last_error = kArgumentError;
        }
        return -1;
    }
    const uint8_t* bdf = target->pcie_bdf;
    // The number is part of the text that log readers match.
    debug_log("[%s:%d] B/D/F: %02X/%02X/%02X\n", "get_eid_from_routing_table", 1296, bdf[0], bdf[1],
              bdf[2]);
    uint8_t handle = 0;
    for (int requests = 0; requests < kTableRequestsMax && handle != kTableEnd; ++requests) {
        std::array<uint8_t, MCTP_ROUTING_TABLE_RESPONSE_SIZE> table;
        const int32_t received = control::read_routing_table(owner, handle, table);
        if (received < 0) {
            debug_log("fail in %s\n", "mctp_get_routing_table_entries");
            return fail_as(*target, *owner);
        }
        const size_t size = std::min(static_cast<size_t>(received), table.size());
        const Lookup result = look_up(std::span(table).first(size), *target, handle);
        if (result == Lookup::kFound) {
            target->last_error = kNoError;
            return 0;
        }
        if (result == Lookup::kMalformed) {
            fail(owner->last_error, SIDEBAND_CAUSE_MALFORMED);
            break;
        }
    }
    debug_log("[%s] B/D/F: %02X/%02X/%02X, EID not find\n", "get_eid_from_routing_table", bdf[0],
              bdf[1], bdf[2]);
    fail(owner->last_error, SIDEBAND_CAUSE_NOT_FOUND);
    record_step(owner->last_error, SIDEBAND_STEP_CONTROL, control::kGetRoutingTableEntries);
    return fail_as(*target, *owner);
}
