// SPDX-License-Identifier: Apache-2.0
// The update of one device with one package, from the file to the release of everything.
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>

#include "common/error.h"
#include "common/output.h"
#include "common/printable.h"
#include "pldm/update/message.h"
#include "transport/mctp.h"

using namespace sideband;

int pldm_force_update_flag = 0;
void* file_buf = nullptr;

namespace {

constexpr uint8_t kStartPercentage = 10;
constexpr unsigned kPercentageOfRecords = 90;

/// What of it each record has. By hand: it is the only division of 32 bits, which is a function of
/// half a kilobyte on ARM.
unsigned percentage_of_each(unsigned records) {
    unsigned share = 0;
    for (unsigned rest = kPercentageOfRecords; rest >= records; rest -= records) {
        ++share;
    }
    return share;
}

/// The PCIe session of the process, while an update has one open.
plt_pcie_session pcie_session;

void set_session(pldm_fw_update_ctx& ctx, void* session) {
    ctx.pcie_session = session;
    if (ctx.pldm.mctp != nullptr) {
        ctx.pldm.mctp->pcie_session = session;
    }
}

/// Opens the PCIe session unless the context has one; closes it again if it has opened it.
class SessionGuard {
public:
    explicit SessionGuard(pldm_fw_update_ctx& ctx) : ctx_(ctx), endpoint_(callers_endpoint(ctx)) {
        if (ctx.pcie_session != nullptr) {
            return;
        }
        pcie_session = {};
        if (libmctp_pcie_open(&pcie_session) != 0) {
            print_line("failed to open libmctp_qbex_ctx");
            ctx.last_error = error_of(SIDEBAND_CAUSE_SYSTEM, SIDEBAND_STEP_SET_UP);
            failed_ = true;
            return;
        }
        opened_ = true;
        debug_log("Try not to close sessions, %x\n",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(pcie_session.handle)));
        set_session(ctx, pcie_session.handle);
    }
    ~SessionGuard() {
        if (opened_) {
            libmctp_pcie_close(&pcie_session);
            ctx_.pcie_session = nullptr;
            if (endpoint_ != nullptr) {
                endpoint_->pcie_session = nullptr;
            }
        }
    }
    SessionGuard(const SessionGuard&) = delete;
    SessionGuard& operator=(const SessionGuard&) = delete;

    explicit operator bool() const { return !failed_; }

private:
    /// The endpoint if it is the caller's: one of the library's is gone when the session is closed.
    static mctp_ctx* callers_endpoint(const pldm_fw_update_ctx& ctx) {
        return ctx.pldm.mctp != endpoint_of(ctx.pldm.owned) ? ctx.pldm.mctp : nullptr;
    }

    pldm_fw_update_ctx& ctx_;
    mctp_ctx* endpoint_;
    bool opened_ = false;
    bool failed_ = false;
};

/// Parses the package and sees that an update can be made of it.
bool load_package(const char* path, pldm_fw_update_ctx& ctx) {
    if (ctx.pldm.mctp != nullptr) {
        ctx.strict |= ctx.pldm.mctp->strict;
    }
    if (pldm_parse_file(path, &ctx) != 0) {
        return false;
    }
    if (ctx.device_record_num == 0) {
        debug_log("%s, the package has no device record\n", "pldm_nic_update");
        return false;
    }
    if (ctx.component_num > PLDM_FW_COMPONENTS_MAX) {
        debug_log("%s, the package has %d components, more than %d\n", "pldm_nic_update",
                  ctx.component_num, PLDM_FW_COMPONENTS_MAX);
        return false;
    }
    return true;
}

void print_versions(const pldm_fw_update_ctx& ctx, uint32_t flags) {
    print_formatted("FD active component version : %s\n",
                    Printable(ctx.active_version_string).text());
    print_formatted("FD pending component version : %s\n",
                    Printable(ctx.pending_version_string).text());
    if ((flags & PLDM_FW_FLAG_SHOW_IMAGE) != 0) {
        print_formatted("Image component version : %s\n",
                        Printable(ctx.package_version_string).text());
    }
}

/// One update of one device, over all records of the package.
class Update {
public:
    Update(pldm_fw_update_ctx& ctx, uint32_t flags)
        : ctx_(ctx), flags_(flags), step_(percentage_of_each(ctx.device_record_num)) {}

    /// @return result of the last RequestUpdate, or of the CancelUpdate that failed; -1: none
    int32_t run() {
        announce();
        // A match does not end the walk: a package may have several records for one device.
        for (unsigned i = 0; i < ctx_.device_record_num; ++i) {
            use(ctx_.records[i]);
        }
        return result_;
    }

private:
    void announce() {
        ctx_.record_index = 0;
        report_percentage(ctx_, kStartPercentage);
        print_formatted("average percentage     = %u\n", step_);
        print_formatted("  device_record_num    = %d\n", ctx_.device_record_num);
        print_formatted("  component_num        = %d\n", ctx_.component_num);
        print_line("====================parsing file finishes==============");
    }

    void use(pldm_device_record& record) {
        if (pldm_query_device_identifiers(&ctx_, &record) != 0) {
            ++mismatches_;
            if (mismatches_ == ctx_.device_record_num) {
                leave_mark(ctx_, PLDM_FW_MARK_NO_RECORD, SIDEBAND_CAUSE_FILE);
            } else if (ctx_.pldm.last_error.cause == SIDEBAND_CAUSE_FILE) {
                ctx_.pldm.last_error = kNoError;  // Another record may be the device's.
            }
        } else if (pldm_get_firmware_parameters(&ctx_) != 0) {
            leave_mark(ctx_, PLDM_FW_MARK_FW_PARAMETERS, SIDEBAND_CAUSE_MALFORMED);
        } else if ((flags_ & PLDM_FW_FLAG_QUERY) != 0) {
            print_versions(ctx_, flags_);
        } else {
            const bool forgetful = ctx_.pldm.last_error.cause == SIDEBAND_CAUSE_MEMORY;
            ctx_.matched_record = &record;
            pldm_force_update_flag = (flags_ & PLDM_FW_FLAG_FORCE) != 0 ? 1 : 0;
            while (request_update()) {
            }
            if (forgetful && ctx_.last_error.cause == SIDEBAND_CAUSE_NOT_FOUND) {
                // The device does have the component: what it has told of it was not kept.
                ctx_.last_error.cause = SIDEBAND_CAUSE_MEMORY;
            }
        }
    }

    /// Requests the update once, and makes a device that is in update mode already leave it.
    /// @return whether to request it again
    bool request_update() {
        constexpr int32_t kInUpdateMode = -2;
        // A request that is repeated names the version string of the next record, as deployed
        // agents do; behind the last record, that of the last one.
        const auto last_record = static_cast<uint8_t>(ctx_.device_record_num - 1);
        const bool behind_last = ctx_.record_index > last_record;
        ctx_.record_index = std::min(ctx_.record_index, last_record);
        result_ = pldm_request_firmware_update(&ctx_);
        ++ctx_.record_index;
        if (result_ != kInUpdateMode || behind_last) {
            return false;
        }
        const int32_t cancelled = pldm_cancel_update(&ctx_);
        if (cancelled < 0) {
            result_ = cancelled;
            print_formatted("the error code of pldm_cancel_update is %x\n", cancelled);
            return false;
        }
        report_percentage(ctx_, static_cast<uint8_t>(step_ * ctx_.record_index + kStartPercentage));
        return true;
    }

    pldm_fw_update_ctx& ctx_;
    uint32_t flags_;
    unsigned step_;  ///< of the percentage, for each record
    unsigned mismatches_ = 0;
    int32_t result_ = -1;
};

int32_t run_update(const char* path, pldm_fw_update_ctx& ctx, uint32_t flags) {
    ctx.last_error = kNoError;
    ctx.pldm.last_error = kNoError;
    if (!load_package(path, ctx)) {
        leave_mark(ctx, PLDM_FW_MARK_PACKAGE, SIDEBAND_CAUSE_FILE);
        pldm_free_ua_resource(&ctx);
        return -1;
    }
    const SessionGuard session(ctx);
    const int32_t result = session ? Update(ctx, flags).run() : -1;
    pldm_free_ua_resource(&ctx);
    return result;
}

}  // namespace

int32_t pldm_nic_update(const char* path, pldm_fw_update_ctx* ctx, void*, uint32_t flags) {
    return ctx != nullptr ? run_update(path, *ctx, flags) : -1;
}

int32_t pldm_free_ua_resource(pldm_fw_update_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    pldm_free_ctx_resource(ctx);
    pldm_terminus_deinit(&ctx->pldm);
    return 0;
}
