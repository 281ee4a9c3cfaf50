// SPDX-License-Identifier: Apache-2.0
// Bring-up of the AMD MPIO, the MCTP bus owner of the PCIe devices behind the CPU.
#include <sideband/debug_log.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <unistd.h>

#include "common/error.h"
#include "common/lock.h"
#include "common/sleep.h"
#include "transport/amd_mpio.h"
#include "transport/mctp.h"

using namespace sideband;

namespace {

/// Bit 7 keeps the PCIe exchange from advancing it.
constexpr uint8_t kMpioTag = 0x80;
constexpr uint32_t kSettleUs = 3000000;

void set_mpio_state(uint32_t value) {
    __atomic_store_n(&at_p_St_GlobalSecVar->mpio_state, value, __ATOMIC_RELEASE);
}

int32_t allocate_device_pool(mctp_ctx* mpio) {
    constexpr uint8_t kOperationAllocate = 0;
    return mctp_allocate_endpoint_ids(mpio, kOperationAllocate, kMpioPoolSize, kFirstMpioEid);
}

/// Before its marker file exists the MPIO can still be ready: the state word holds its EID then.
bool mpio_ready() {
    const uint32_t state = mpio_state();
    return access(MCTP_MPIO_READY_MARKER, F_OK) == 0 ||
           (state != PLT_MPIO_NONE && state != PLT_MPIO_WANTED);
}

}  // namespace

mctp_ctx sideband::mpio_for(const mctp_ctx& ctx) {
    mctp_ctx mpio{};
    _init_amd_mpio_ctx(&mpio);
    mpio.strict = ctx.strict;
    mpio.deadline_s = ctx.deadline_s;
    mpio.deadline_ms = ctx.deadline_ms;
    return mpio;
}

uint32_t sideband::mpio_state() {
    return __atomic_load_n(&at_p_St_GlobalSecVar->mpio_state, __ATOMIC_ACQUIRE);
}

void _init_amd_mpio_ctx(mctp_ctx* mpio) {
    mpio->src_eid = kMpioSourceEid;
    mpio->msg_type = MCTP_MSG_TYPE_CONTROL;
    mpio->tag = kMpioTag;
    mpio->pcie_bdf[0] = 0;
    mpio->pcie_bdf[1] = 0;
    mpio->pcie_bdf[2] = 0;
    mpio->binding_kind = MCTP_BINDING_KIND_PCIE;
    install_operations(*mpio);
}

int32_t init_amd_mpio_if_need(mctp_ctx* mpio) {
    debug_log("try do_init_amd_mpio\n");
    mpio->last_error = kNoError;
    const MutexGuard bring_up(at_p_St_GlobalSecVar->mpio_mutex);
    if (!bring_up) {
        mpio->last_error = error_of(SIDEBAND_CAUSE_LOCK);
        return -1;
    }
    if (mpio_state() != PLT_MPIO_WANTED) {
        return 0;
    }
    if (do_init_amd_mpio(mpio) != 0) {
        debug_log("do_init_amd_mpio fail\n");
        set_mpio_state(PLT_MPIO_NONE);
        return -1;
    }
    set_mpio_state(mpio->dest_eid);
    run_shellcmd("touch " MCTP_MPIO_READY_MARKER);
    return 0;
}

int32_t do_init_amd_mpio(mctp_ctx* mpio) {
    if (mctp_prepare_for_endpoint_discovery(mpio) != 0) {
        debug_log("[MCTP] Req PrepareForEndpointDiscovery to AMD MPIO faled.\n");
        return -1;
    }
    if (mctp_endpoint_discovery(mpio) != 0) {
        debug_log("[MCTP] Req mctp_endpoint_discovery to AMD MPIO faled.\n");
        return -1;
    }
    if (mctp_assign_eid(mpio) <= 0) {
        debug_log("[MCTP] Cannot assing EID to AMD MPIO.\n");
        return -1;
    }
    if (allocate_device_pool(mpio) != 0) {
        debug_log("[MCTP] Cannot allocate eid pool to AMD MPIO.\n");
        return -1;
    }
    sleep_us(kSettleUs);
    // No lock protects the flag: other services read it, and bring-ups may overlap.
    __atomic_store_n(&at_p_St_GlobalVar->mpio_bringup_pending, uint8_t{0}, __ATOMIC_RELEASE);
    return 0;
}

int32_t get_eid_from_mpio(mctp_ctx* ctx) {
    mctp_ctx mpio = mpio_for(*ctx);
    if (!mpio_ready()) {
        if (mpio_state() == PLT_MPIO_NONE && platform.identifier == PLT_IDENTIFIER_TURIN) {
            mctp_prepare_for_endpoint_discovery(&mpio);  // a nudge, whatever comes of it
        }
        debug_log("[Turin] MPIO not ready, skip the MCTP req.\n");
        ctx->last_error = error_of(SIDEBAND_CAUSE_NOT_FOUND, SIDEBAND_STEP_SET_UP);
        return -1;
    }
    if (get_eid_from_routing_table(&mpio, ctx) == 0) {
        return 0;
    }
    debug_log("fail get_eid_from_mpio\n");
    allocate_device_pool(&mpio);  // the MPIO may have lost its pool; the next lookup sees
    return -1;
}
