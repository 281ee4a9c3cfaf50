// SPDX-License-Identifier: Apache-2.0
// The state machine of a firmware update (DSP0267, update agent states).
#include <sideband/pldm_fw_update.h>

#include <cstdio>

int32_t fw_update_state_fn(pldm_fw_update_ctx* ctx) {
    if (ctx != nullptr) {
        std::printf("ctx->state = 0x%x\n", ctx->state);
    }
    return 0;
}
