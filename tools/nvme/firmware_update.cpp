// SPDX-License-Identifier: Apache-2.0
// New firmware for an NVMe drive: the download of an image, its commit, the reset behind it.
#include "tools/nvme/firmware_update.h"

#include <fmt/format.h>
#include <sideband/platform.h>

#include <filesystem>

#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

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

Failure download_failure(const NvmeClient& client, const std::string& path,
                         const Reached& reached) {
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
        return {client.name(), operation, "interrupted " + place};
    }
    return client.failure(operation, fmt::format(", {}; update status {}: {}", place, status,
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
    if (!error && size > UINT32_MAX) {
        throw Failure(ExitStatus::kInput,
                      fmt::format("{}: the image has {} bytes, a drive is told of at most {}", path,
                                  size, UINT32_MAX));
    }
    return error ? 0 : size;
}

/// Takes the gate away from the drive with its scope.
class ScopedGate {
public:
    ScopedGate(NvmeClient& client, NvmeClient::Gate gate) : drive_(client) {
        drive_.guard(std::move(gate));
    }
    ~ScopedGate() { drive_.guard({}); }
    ScopedGate(const ScopedGate&) = delete;
    ScopedGate& operator=(const ScopedGate&) = delete;

private:
    NvmeClient& drive_;
};

}  // namespace

uint64_t download_image(NvmeClient& client, uint16_t controller, const std::string& path,
                        uint32_t chunk_size, Progress& progress) {
    constexpr size_t kOffsetDwords = 47;  // dword 11
    Reached reached{.total = image_size_of(path)};
    const InterruptGuard interrupt;
    const ScopedGate gate(client, [&](std::span<const uint8_t> request) {
        reached.done = little_endian_at(request, kOffsetDwords, 4) * 4;
        reached.interrupted = InterruptGuard::pending();
        if (!reached.interrupted && reached.total > 0) {
            progress.show(static_cast<unsigned>(reached.done * 100 / reached.total), reached.done,
                          reached.total);
        }
        return !reached.interrupted;
    });
    const int32_t result = nvme_fw_image_download(client.context(), controller, path.c_str(),
                                                  chunk_size, kDownloadTask);
    if (result == 0) {
        progress.show(100, reached.total, reached.total);
    }
    progress.end();
    if (result != 0) {
        throw download_failure(client, path, reached);
    }
    return reached.total;
}

std::string commit_image(NvmeClient& client, uint16_t controller, uint8_t slot, uint8_t action) {
    constexpr uint8_t kReplacesOnly = 0;
    constexpr uint8_t kActivatesNow = 3;
    try {
        client.call("Firmware Commit", [&] {
            return nvme_fw_image_commit(client.context(), controller, slot, action);
        });
    } catch (const Failure& failure) {
        std::string need = activation_need(failure);
        if (need.empty()) {
            throw;
        }
        return need;
    }
    return action == kReplacesOnly || action == kActivatesNow ? "" : "a reset";
}

FirmwareSlots reset_and_wait(Port& port, NvmeClient& client, uint16_t controller) {
    constexpr int kTries = 10;
    constexpr uint64_t kPauseUs = 1000000;
    client.call_unanswered("Reset", [&] { return nvmemi_reset(client.context()); });
    for (int i = 1;; ++i) {
        TimeLimit::wait_us(port, kPauseUs);
        try {
            return read_firmware_slots(client, controller);
        } catch (const Failure&) {
            if (i == kTries || TimeLimit::passed()) {
                throw;
            }
        }
    }
}

}  // namespace tool
