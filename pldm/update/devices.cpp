// SPDX-License-Identifier: Apache-2.0
// The cards that can be updated, and whether a package is for one of them.
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <span>

#include "common/lock.h"
#include "common/output.h"
#include "pldm/update/message.h"

using namespace sideband;

const pldm_fw_device pldm_nic_fw_table[] = {
    {0x15B3, 100, 0, 128, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS},
    {0x14E4, 100, 0, 128, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS},
    {0x8086, 100, 0, 256, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS},
    {0x10DF, 100, 0, 128, MCTP_binding_PCIE, 0, nullptr},
};
const uint32_t pldm_nic_fw_table_num = std::size(pldm_nic_fw_table);

const pldm_fw_device pldm_gpu_fw_table[] = {
    {0x8086, 206, 0, 0, nullptr, 32, MCTP_binding_SMBUS},
};
const uint32_t pldm_gpu_fw_table_num = std::size(pldm_gpu_fw_table);

namespace {

using Table = std::span<const pldm_fw_device>;

int32_t find_vendor(Table table, uint16_t vendor_id) {
    for (size_t i = 0; i < table.size(); ++i) {
        if (table[i].vendor_id == vendor_id) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

// ---- Bindings ----

bool gpu_wants_smbus(uint32_t flags) {
    return (flags & PLT_CARD_GPU_SMBUS) != 0;
}

/// By bits 16 and 17; what is neither of both means PCIe.
bool nic_wants_smbus(uint32_t flags) {
    return (flags & (PLT_CARD_NIC_SMBUS | PLT_CARD_NIC_PCIE)) == PLT_CARD_NIC_SMBUS;
}

/// Reaches the card over the binding that it wants, or over the other one if it has only that.
void set_binding_up(const pldm_fw_device& device, bool wants_smbus, const plt_card_info& card,
                    pldm_fw_update_ctx& ctx, mctp_ctx& mctp) {
    const bool smbus =
        device.pcie_binding == nullptr || (wants_smbus && device.smbus_binding != nullptr);
    const pldm_binding_setup setup = smbus ? device.smbus_binding : device.pcie_binding;
    ctx.max_transfer_size = smbus ? device.smbus_transfer_size : device.pcie_transfer_size;
    if (setup != nullptr) {
        setup(&mctp, device.setup_parameter, &card);
    }
}

// ---- The check ----

/// Results of pldm_check_GPU_firmware_image().
enum CheckResult : int32_t {
    kMatches = 0,
    kNoPlatform = -1,
    kPowerOff = -2,
    kUnknownCard = -3,
    kUnknownBinding = -4,
    kInitFailed = -5,
    kBadImage = -6,
    kNoRecordMatches = -7,
};

/// Why a card could not be reached.
uint8_t cause_of(int32_t result) {
    switch (result) {
        case kNoPlatform:
            return SIDEBAND_CAUSE_SYSTEM;
        case kPowerOff:
            return SIDEBAND_CAUSE_NO_POWER;
        case kUnknownCard:
            return SIDEBAND_CAUSE_NOT_FOUND;
        default:
            return SIDEBAND_CAUSE_ARGUMENT;
    }
}

/// What tells a check of one kind of card from that of another.
struct Check {
    const char* function;
    Table table;
    bool (*wants_smbus)(uint32_t flags);
    const char* kind;         ///< what the card is called in front of "FW image"
    int32_t without_records;  ///< result for a package that has no device records
};

struct Target {
    pldm_fw_update_ctx& ctx;
    mctp_ctx& mctp;
    plt_card_info& card;
};

/// Selects the card's bus and fills the endpoint context for it.
int32_t reach_card(const Check& check, const pldm_card_location& location, Target& target) {
    plt_parameters parameters{};
    if (GlobalParaInit(&parameters) == 0) {
        debug_log("[%s:%d] fail GlobalParaInit\n", check.function, __LINE__);
        return kNoPlatform;
    }
    if (PltCHASSIS_PowerStatus() != 1) {
        debug_log("[%s:%d] power status should be on.\n", check.function, __LINE__);
        return kPowerOff;
    }
    const int32_t row = find_vendor(check.table, target.card.vendor_id);
    if (row < 0) {
        debug_log("[%s:%d] Can't find Card, Vendor ID = 0x%x\n", check.function, __LINE__,
                  target.card.vendor_id);
        return kUnknownCard;
    }
    // A card that could not be routed shows as one that does not answer.
    PCIEDeviceMux(location.bus, location.device, &target.card);
    target.mctp = mctp_ctx{};
    target.mctp.strict = target.ctx.strict;
    target.mctp.src_eid = parameters.bmc_eid;
    target.mctp.bus =
        parameters.i2c_channel != 0 ? parameters.i2c_channel : platform.default_i2c_channel;
    set_binding_up(check.table[static_cast<size_t>(row)], check.wants_smbus(target.card.flags),
                   target.card, target.ctx, target.mctp);
    const uint8_t kind = target.mctp.binding_kind;
    return kind == MCTP_BINDING_KIND_SMBUS || kind == MCTP_BINDING_KIND_PCIE ? kMatches
                                                                             : kUnknownBinding;
}

/// Tries the device records of the parsed package.
int32_t match_record(const Check& check, pldm_fw_update_ctx& ctx) {
    if (ctx.device_record_num == 0 && check.without_records == kMatches) {
        return kMatches;
    }
    for (unsigned i = 0; i < ctx.device_record_num; ++i) {
        if (pldm_query_device_identifiers(&ctx, &ctx.records[i]) == 0) {
            print_formatted("%uth Record pass\n", i + 1);
            return kMatches;
        }
    }
    debug_log("%dth record don't match\n", ctx.device_record_num);
    note_update_failure(ctx, SIDEBAND_CAUSE_FILE);
    return kNoRecordMatches;
}

/// With the bus locked.
int32_t check_package(const Check& check, const char* path, Target& target) {
    if (pldm_fw_update_init(&target.ctx, &target.mctp) != 0) {
        debug_log("[%s:%d] pldm fw init fail\n", check.function, __LINE__);
        return kInitFailed;
    }
    if (pldm_parse_file(path, &target.ctx) != 0) {
        debug_log("[%s:%d] %sFW image parse fail\n", check.function, __LINE__, check.kind);
        return kBadImage;
    }
    return match_record(check, target.ctx);
}

int32_t run_check(const Check& check, const char* path, const pldm_card_location& location,
                  Target target) {
    sideband_error& error = target.ctx.last_error;
    error = kNoError;
    target.ctx.pldm.last_error = kNoError;
    const int32_t reached = reach_card(check, location, target);
    if (reached != kMatches) {
        error = error_of(cause_of(reached), SIDEBAND_STEP_SET_UP);
        return reached;
    }
    const ChannelGuard channel(target.mctp.bus,
                               target.mctp.binding_kind == MCTP_BINDING_KIND_SMBUS);
    if (!channel) {
        debug_log("[%s:%d] I2C channel mutex refused\n", check.function, __LINE__);
        fail(error, SIDEBAND_CAUSE_LOCK);
        return kNoPlatform;
    }
    const MutexGuard global(at_p_St_GlobalVar->global_lock);
    if (!global) {
        debug_log("[%s:%d] global lock refused\n", check.function, __LINE__);
        fail(error, SIDEBAND_CAUSE_LOCK);
        return kNoPlatform;
    }
    return check_package(check, path, target);
}

}  // namespace

int32_t pldm_get_nic_fw_index(uint16_t vendor_id) {
    return find_vendor(pldm_nic_fw_table, vendor_id);
}

int32_t pldm_get_gpu_fw_index(uint16_t vendor_id) {
    return find_vendor(pldm_gpu_fw_table, vendor_id);
}

int32_t pldm_fw_update_init(pldm_fw_update_ctx* ctx, const mctp_ctx* mctp) {
    constexpr uint8_t kFirmwareUpdateType = 1 << PLDM_TYPE_FW_UPDATE;
    if (ctx == nullptr || mctp == nullptr) {
        debug_log("%s, invalid parameters\n", "pldm_fw_update_init");
        if (ctx != nullptr) {
            ctx->last_error = kArgumentError;
        }
        return PLDM_ERROR_ARGUMENT;
    }
    ctx->last_error = kNoError;
    ctx->state = kStateIdle;
    ctx->strict |= mctp->strict;
    int32_t result = pldm_terminus_init(&ctx->pldm, mctp);
    if (result < 0) {
        debug_log("%s, pldm_terminus_init() fail\n", "pldm_fw_update_init");
        leave_mark(*ctx, PLDM_FW_MARK_TERMINUS, SIDEBAND_CAUSE_NO_ANSWER);
        return result;
    }
    result = pldm_discovery(&ctx->pldm);
    if (result < 0) {
        debug_log("%s, pldm_discovery() fail\n", "pldm_fw_update_init");
        leave_mark(*ctx, PLDM_FW_MARK_TERMINUS, SIDEBAND_CAUSE_MALFORMED);
        return result;
    }
    if ((ctx->pldm.pldm_types[0] & kFirmwareUpdateType) == 0) {
        debug_log("%s, not support fw update\n", "pldm_fw_update_init");
        leave_mark(*ctx, PLDM_FW_MARK_NO_FW_UPDATE, SIDEBAND_CAUSE_REFUSED);
        return PLDM_ERROR_ARGUMENT;
    }
    return 0;
}

int32_t pldm_check_GPU_firmware_image(const char* path, pldm_fw_update_ctx* ctx,
                                      const pldm_card_location* location, mctp_ctx* mctp,
                                      plt_card_info* card) {
    constexpr Check kGpuCheck{"pldm_check_GPU_firmware_image", pldm_gpu_fw_table, gpu_wants_smbus,
                              "", kNoRecordMatches};
    if (path == nullptr || ctx == nullptr || location == nullptr || mctp == nullptr ||
        card == nullptr) {
        return -1;
    }
    return run_check(kGpuCheck, path, *location, {*ctx, *mctp, *card});
}

int32_t pldm_check_firmware_image(const char* path, pldm_fw_update_ctx* ctx,
                                  const pldm_card_location* location, mctp_ctx* mctp,
                                  plt_card_info* card) {
    constexpr Check kNicCheck{"pldm_check_firmware_image", pldm_nic_fw_table, nic_wants_smbus,
                              "NIC ", kMatches};
    if (path == nullptr || ctx == nullptr || location == nullptr || mctp == nullptr ||
        card == nullptr) {
        return -1;
    }
    return run_check(kNicCheck, path, *location, {*ctx, *mctp, *card}) == kMatches ? 0 : -1;
}
