// SPDX-License-Identifier: Apache-2.0
// Firmware Image Download: an image file to a controller, piece by piece (NVMe base specification).
#include <fcntl.h>
#include <sideband/debug_log.h>
#include <sideband/nvme_mi.h>
#include <sideband/platform.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "NVMeMI/message.h"
#include "common/error.h"
#include "common/file.h"
#include "common/output.h"
#include "common/printable.h"

using namespace sideband;

namespace {

constexpr uint8_t kFirmwareImageDownload = 0x11;
constexpr uint32_t kDword = 4;

/// Room for the longest piece; the padding of one that is no multiple of four comes on top.
using Request = std::array<uint8_t, NVME_ADMIN_REQUEST_SIZE + NVME_ADMIN_DATA_MAX + kDword>;

/// How an image is sent, and to whom.
struct Transfer {
    nvmemi_ctx* ctx;
    uint16_t cntlid;
    int descriptor;
    const FileStamp& stamp;  ///< of the file when it was opened
    uint32_t chunk_size;
    uint32_t pieces;
};

/// One piece of the image.
struct Piece {
    uint32_t offset;
    uint32_t length;
    uint32_t padding;
    uint32_t dwords;
};

/// Puts the place of a message in front of it.
void log_place(int line = __builtin_LINE()) {
    print_on_console("[%s:%d]", "nvme_fw_image_download", line);
}

/// Sets the status that other threads and processes read meanwhile: there is one for all downloads.
void set_update_status(uint8_t update_status) {
    __atomic_store_n(&at_p_St_GlobalVar->nvme_fw_update_status, update_status, __ATOMIC_RELAXED);
}

int32_t conclude(uint8_t update_status, int32_t result) {
    set_update_status(update_status);
    return result;
}

/// Ends a download that no command has failed. @return -1
int32_t give_up(nvmemi_ctx* ctx, uint8_t update_status, uint8_t cause) {
    set_update_status(update_status);
    const int32_t result = nvme::fail_call(ctx, cause);
    if (ctx != nullptr) {
        record_step(ctx->last_error, SIDEBAND_STEP_FILE);
    }
    return result;
}

/// Whether a file is an image that can be read by position, and whose end has an offset.
bool is_image(const File& file, FileStamp& stamp) {
    struct stat status;
    return fstat(file.descriptor(), &status) == 0 && S_ISREG(status.st_mode) &&
           stamp_of(file.descriptor(), stamp) && stamp.size <= UINT32_MAX;
}

/// Reads a part of the image, which must still be the one that was opened: looked at behind the
/// read, so that nothing of another one goes out.
bool read_image(const Transfer& transfer, uint32_t offset, std::span<uint8_t> data) {
    if (read_file(transfer.descriptor, offset, data) != data.size()) {
        debug_log("%s, the image file has become shorter\n", "nvme_fw_image_download");
        return false;
    }
    FileStamp now;
    if (!stamp_of(transfer.descriptor, now) || now != transfer.stamp) {
        debug_log("%s, the image file has changed\n", "nvme_fw_image_download");
        return false;
    }
    return true;
}

/// Divides the image. A whole piece says how many whole dwords it has, whatever its size; the last
/// one is padded by what the image as a whole lacks of a dword.
Piece piece_of(const Transfer& transfer, uint32_t index) {
    const uint32_t offset = index * transfer.chunk_size;
    if (index + 1 < transfer.pieces) {
        return {offset, transfer.chunk_size, 0, transfer.chunk_size / kDword};
    }
    const auto size = static_cast<uint32_t>(transfer.stamp.size);
    const uint32_t length = size - offset;
    const uint32_t padding = (kDword - size % kDword) % kDword;
    log_place();
    print_on_console("append_bytes=%d, offset=%d\n", static_cast<int>(padding),
                     static_cast<int>(offset));
    return {offset, length, padding, length / kDword + (padding != 0 ? 1 : 0)};
}

/// Sends one piece, and leaves in the update status why it did not work.
int32_t send_piece(const Transfer& transfer, const Piece& piece) {
    Request bytes;
    const nvme::AdminCommand command{.opcode = kFirmwareImageDownload,
                                     .cntlid = transfer.cntlid,
                                     .dlen = piece.dwords * kDword,
                                     .cdw10 = piece.dwords - 1,
                                     .cdw11 = piece.offset / kDword};
    const auto data = std::span(bytes).subspan(NVME_ADMIN_REQUEST_SIZE, piece.length);
    std::fill_n(data.end(), piece.padding, uint8_t{0});
    if (!read_image(transfer, piece.offset, data)) {
        return give_up(transfer.ctx, NVME_FW_DOWNLOAD_UNREADABLE, SIDEBAND_CAUSE_FILE);
    }
    const uint32_t length = NVME_ADMIN_REQUEST_SIZE + piece.length + piece.padding;
    log_place();
    print_on_console("tx_size=%d, num_dw=%d offset=%d, DW10=%ld, dW11=%ld\n",
                     static_cast<int>(length), static_cast<int>(piece.dwords),
                     static_cast<int>(piece.offset), static_cast<long>(command.cdw10),
                     static_cast<long>(command.cdw11));
    std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE> room{};
    const nvme::AdminAnswer answer =
        nvme::exchange(transfer.ctx, nvme::encode(command, std::span(bytes).first(length)), room);
    if (answer.stage == nvme::Stage::kDone) {
        return 0;
    }
    log_place();
    const int32_t result = finish(answer);
    switch (answer.stage) {
        case nvme::Stage::kRefused:
            return conclude(NVME_FW_DOWNLOAD_RESPONSE_ERROR, result);
        case nvme::Stage::kFailed:
            return conclude(NVME_FW_DOWNLOAD_COMMAND, result);
        default:
            print_on_console("nvme_admin_cmd failed. resp.status=%d\n", room[nvme::kStatus]);
            return conclude(NVME_FW_DOWNLOAD_EXCHANGE, -1);
    }
}

int32_t send_all(const Transfer& transfer, uint32_t task_id) {
    for (uint32_t i = 0; i < transfer.pieces; ++i) {
        log_place();
        print_on_console("loop:%d/%d\n", static_cast<int>(i), static_cast<int>(transfer.pieces));
        const int32_t result = send_piece(transfer, piece_of(transfer, i));
        if (result != 0) {
            return result;
        }
        // Of the pieces in front of this one: the first reports 0 percent.
        const auto percent = static_cast<uint8_t>(uint64_t{100} * i / transfer.pieces);
        set_update_status(percent);
        TaskServiceUpdateTaskPercentage(task_id, percent);
        log_place();
        print_on_console("NVMe FW download percent done=%d\n", percent);
    }
    set_update_status(NVME_FW_DOWNLOAD_DONE);
    // Of an empty image the task has heard nothing so far.
    if (transfer.pieces != 0) {
        TaskServiceUpdateTaskPercentage(task_id, NVME_FW_DOWNLOAD_DONE);
    }
    return 0;
}

bool is_chunk_size(uint32_t chunk_size) {
    if (chunk_size == 0) {
        log_place();
        print_on_console("NVMe fw_download_chunk_size should not be 0\n");
    } else if (chunk_size > NVME_ADMIN_DATA_MAX) {
        log_place();
        print_on_console("NVMe fw_download_chunk_size should not be above %d\n",
                         NVME_ADMIN_DATA_MAX);
    }
    return chunk_size - 1 < NVME_ADMIN_DATA_MAX;
}

}  // namespace

int32_t nvme_fw_image_download(nvmemi_ctx* ctx, uint16_t cntlid, const char* path,
                               uint32_t chunk_size, uint32_t task_id) {
    if (path == nullptr) {
        return give_up(ctx, NVME_FW_DOWNLOAD_NO_PATH, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (!is_chunk_size(chunk_size)) {
        return give_up(ctx, NVME_FW_DOWNLOAD_COMMAND, SIDEBAND_CAUSE_ARGUMENT);
    }
    // Without waiting, as open_regular() does; what opens but is no file has an outcome of its own.
    const File file(open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        debug_log("%s, can't open %s\n", "nvme_fw_image_download", Printable(path).text());
        return give_up(ctx, NVME_FW_DOWNLOAD_NO_FILE, SIDEBAND_CAUSE_FILE);
    }
    FileStamp stamp;
    if (!is_image(file, stamp)) {
        debug_log("%s, %s is no image file\n", "nvme_fw_image_download", Printable(path).text());
        return give_up(ctx, NVME_FW_DOWNLOAD_UNREADABLE, SIDEBAND_CAUSE_FILE);
    }
    const auto size = static_cast<uint32_t>(stamp.size);
    log_place();
    print_on_console("st.st_size=%lu\n", static_cast<unsigned long>(size));
    // In 64 bits, where it cannot overflow.
    const auto pieces = static_cast<uint32_t>((uint64_t{size} + chunk_size - 1) / chunk_size);
    log_place();
    print_on_console("num_loop=%d, fw_download_chunk_size=%d\n", static_cast<int>(pieces),
                     static_cast<int>(chunk_size));
    return send_all({ctx, cntlid, file.descriptor(), stamp, chunk_size, pieces}, task_id);
}
