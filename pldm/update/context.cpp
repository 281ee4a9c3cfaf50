// SPDX-License-Identifier: Apache-2.0
// The firmware update context: what it holds on the heap, and its release.
#include <sideband/pldm_fw_update.h>

#include <cstdlib>

#include "common/error.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

/// Frees a block and forgets it.
template <typename T>
void release(T*& block) {
    std::free(block);
    block = nullptr;
}

/// Frees an array of blocks and forgets it; it may be missing whatever its count says.
void release_all(uint8_t**& blocks, uint16_t& count) {
    for (unsigned i = 0; blocks != nullptr && i < count; ++i) {
        std::free(blocks[i]);
    }
    release(blocks);
    count = 0;
}

}  // namespace

void sideband::release_package(pldm_fw_update_ctx& ctx) {
    for (unsigned i = 0; ctx.records != nullptr && i < ctx.device_record_num; ++i) {
        pldm_device_record& record = ctx.records[i];
        std::free(record.image_version_string);
        std::free(record.package_data);
        std::free(record.descriptors);
    }
    release(ctx.records);
    ctx.device_record_num = 0;
    ctx.package_data_len = 0;
    release_all(ctx.component_images, ctx.component_num);
    release(ctx.package_version_string);
    // These two point into what is gone now.
    ctx.matched_record = nullptr;
    release(ctx.update_list);
}

void sideband::release_device_parameters(pldm_fw_update_ctx& ctx) {
    release_all(ctx.fd_component_params, ctx.fd_components_num);
}

int32_t pldm_free_ctx_resource(pldm_fw_update_ctx* ctx) {
    if (ctx == nullptr) {
        return 0;
    }
    release_package(*ctx);
    release_device_parameters(*ctx);
    release(ctx->active_version_string);
    release(ctx->pending_version_string);
    return 0;
}

const sideband_error* pldm_fw_update_last_error(const pldm_fw_update_ctx* ctx) {
    if (ctx == nullptr) {
        return null_context_error();
    }
    return ctx->last_error.cause != SIDEBAND_CAUSE_NONE ? &ctx->last_error : &ctx->pldm.last_error;
}
