// SPDX-License-Identifier: Apache-2.0
// New firmware for an NVMe drive: the download of an image, its commit, the reset behind it; the
// commands nvme fw-download and nvme fw-commit.
#include "tools/nvme/firmware.h"

#include <fmt/format.h>
#include <sideband/platform.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/nvme/commands.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// The platform's task whose progress is reported: the tool runs one at a time.
constexpr uint32_t kDownloadTask = 1;

/// What nvme_fw_image_download() has left in the update status.
std::string update_status_text(uint8_t status) {
    switch (status) {
        case NVME_FW_DOWNLOAD_EXCHANGE:
            return "an exchange failed";
        case NVME_FW_DOWNLOAD_COMMAND:
            return "the controller refused a piece";
        case NVME_FW_DOWNLOAD_RESPONSE_ERROR:
            return "the endpoint refused a piece";
        default:
            return "unknown";
    }
}

/// What a download has come to when it ends.
struct Reached {
    uint64_t done = 0;
    uint64_t total = 0;
    bool interrupted = false;
};

Failure download_failure(const NvmeDrive& drive, const std::string& path, const Reached& reached) {
    const uint8_t status = at_p_St_GlobalVar->nvme_fw_update_status;
    const std::string operation = "Firmware Image Download";
    if (status == NVME_FW_DOWNLOAD_NO_FILE) {
        return {ExitStatus::kInput, path + ": cannot be opened for reading and writing"};
    }
    if (status == NVME_FW_DOWNLOAD_UNREADABLE) {
        return {ExitStatus::kInput, path + ": is no regular file, or has changed meanwhile"};
    }
    const std::string place = fmt::format("at byte {} of {}", reached.done, reached.total);
    if (reached.interrupted) {
        return {drive.name(), operation, "interrupted " + place};
    }
    return drive.failure(operation, fmt::format(", {}; update status {}: {}", place, status,
                                                update_status_text(status)));
}

/// A status that says that the image was taken and what it waits for; empty for any other.
std::string activation_need(const Failure& failure) {
    constexpr uint16_t kCommandSpecific = 1;
    if (!failure.code() || failure.code()->kind != DeviceCode::Kind::kNvme ||
        failure.code()->reason != kCommandSpecific) {
        return {};
    }
    switch (failure.code()->code) {
        case 0x0B:
            return "a conventional reset";
        case 0x10:
            return "an NVM subsystem reset";
        case 0x11:
            return "a controller level reset";
        default:
            return {};
    }
}

uint64_t image_size_of(const std::string& path) {
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(path, error);
    if (!error && size == 0) {
        throw Failure(ExitStatus::kInput, path + ": the image is empty");
    }
    return error ? 0 : size;
}

/// Takes the gate away from the drive with its scope.
class ScopedGate {
public:
    ScopedGate(NvmeDrive& drive, NvmeDrive::Gate gate) : drive_(drive) {
        drive_.guard(std::move(gate));
    }
    ~ScopedGate() { drive_.guard({}); }
    ScopedGate(const ScopedGate&) = delete;
    ScopedGate& operator=(const ScopedGate&) = delete;

private:
    NvmeDrive& drive_;
};

}  // namespace

uint64_t download_image(NvmeDrive& drive, uint16_t controller, const std::string& path,
                        uint32_t chunk_size, Progress& progress) {
    constexpr size_t kOffsetDwords = 47;  // dword 11
    Reached reached{.total = image_size_of(path)};
    const InterruptGuard interrupt;
    const ScopedGate gate(drive, [&](std::span<const uint8_t> request) {
        reached.done = little_endian_at(request, kOffsetDwords, 4) * 4;
        reached.interrupted = InterruptGuard::pending();
        if (!reached.interrupted && reached.total > 0) {
            progress.show(static_cast<unsigned>(reached.done * 100 / reached.total), reached.done,
                          reached.total);
        }
        return !reached.interrupted;
    });
    const int32_t result = nvme_fw_image_download(drive.context(), controller, path.c_str(),
                                                  chunk_size, kDownloadTask);
    if (result == 0) {
        progress.show(100, reached.total, reached.total);
    }
    progress.end();
    if (result != 0) {
        throw download_failure(drive, path, reached);
    }
    return reached.total;
}

std::string commit_image(NvmeDrive& drive, uint16_t controller, uint8_t slot, uint8_t action) {
    constexpr uint8_t kReplacesOnly = 0;
    constexpr uint8_t kActivatesNow = 3;
    try {
        drive.call("Firmware Commit",
                   [&] { return nvme_fw_image_commit(drive.context(), controller, slot, action); });
    } catch (const Failure& failure) {
        std::string need = activation_need(failure);
        if (need.empty()) {
            throw;
        }
        return need;
    }
    return action == kReplacesOnly || action == kActivatesNow ? "" : "a reset";
}

FirmwareSlots reset_and_wait(Port& port, NvmeDrive& drive, uint16_t controller) {
    constexpr int kTries = 10;
    constexpr uint64_t kPauseUs = 1000000;
    drive.call_unanswered("Reset", [&] { return nvmemi_reset(drive.context()); });
    for (int i = 1;; ++i) {
        port.wait_us(kPauseUs);
        try {
            return read_firmware_slots(drive, controller);
        } catch (const Failure&) {
            if (i == kTries) {
                throw;
            }
        }
    }
}

namespace {

/// Commits what has come, resets where that is wished for, and shows the slots.
void finish_update(Context& context, NvmeDrive& drive, uint16_t controller,
                   const NvmeFirmwareWish& wish, Json& document) {
    const std::string need = commit_image(drive, controller, wish.slot, *wish.action);
    context.output.text("committed\n");
    const FirmwareSlots slots = wish.reset ? reset_and_wait(context.port, drive, controller)
                                           : read_firmware_slots(drive, controller);
    if (wish.reset) {
        context.output.text("reset\n");
    } else if (!need.empty()) {
        context.output.text("it becomes active by " + need + "\n");
    }
    context.output.text("\n" + slots_text(slots));
    document["activation_needs"] = wish.reset ? "" : need;
    document.update(slots_json(slots));
}

}  // namespace

void run_nvme_fw_download(Context& context, const NvmeTarget& target,
                          const NvmeFirmwareWish& wish) {
    if (wish.chunk_size % 4 != 0) {
        throw Failure(ExitStatus::kUsage, "--chunk-size must be a multiple of 4");
    }
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.drive.choose(target.controller);
    Progress progress(context.output, context.port, {});
    const uint64_t start = context.port.now_us();
    const uint64_t size =
        download_image(found.drive, controller, wish.path, wish.chunk_size, progress);
    const uint64_t duration = context.port.now_us() - start;
    context.output.text(fmt::format("{} bytes downloaded in {}\n", size, seconds_text(duration)));
    Json document{{"endpoint", target.endpoint},
                  {"image", wish.path},
                  {"bytes", size},
                  {"duration_us", duration}};
    if (wish.action) {
        finish_update(context, found.drive, controller, wish, document);
    }
    context.output.document(document);
}

void run_nvme_fw_commit(Context& context, const NvmeTarget& target, const NvmeFirmwareWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.drive.choose(target.controller);
    Json document{{"endpoint", target.endpoint}};
    finish_update(context, found.drive, controller, wish, document);
    context.output.document(document);
}

}  // namespace tool
