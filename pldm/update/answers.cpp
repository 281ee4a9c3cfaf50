// SPDX-License-Identifier: Apache-2.0
// The update agent's answers to what a firmware device asks for, in the order of their codes
// (DSP0267).
#include <sideband/debug_log.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/file.h"
#include "common/memory.h"
#include "common/output.h"
#include "pldm/update/message.h"
#include "pldm/update/package.h"
#include "transport/pcie_message.h"

using namespace sideband;

namespace {

bool can_answer(const pldm_fw_update_ctx* ctx, const uint8_t* req) {
    return ctx != nullptr && req != nullptr && ctx->pldm.send_op != nullptr;
}

/// The fields of a request behind its header.
WireReader fields_of(const uint8_t* req) {
    WireReader reader({req, PLDM_FW_UPDATE_REQUEST_SIZE});
    reader.skip(PLDM_HEADER_SIZE);
    return reader;
}

/// Starts an answer: header and completion code. The writer stands behind them.
WireWriter start_answer(std::span<uint8_t> answer, const uint8_t* req, uint8_t completion) {
    pldm_fw_update_response_init(answer.data(), req);
    WireWriter writer(answer);
    writer.skip(PLDM_HEADER_SIZE).u8(completion);
    return writer;
}

int32_t send_answer(pldm_fw_update_ctx& ctx, std::span<const uint8_t> answer) {
    mctp_ctx* const endpoint = ctx.pldm.mctp;
    const AddressedTo device(endpoint, endpoint != nullptr ? endpoint->dest_eid : 0);
    return ctx.pldm.send_op(&ctx.pldm, static_cast<uint32_t>(answer.size()), answer.data(), 0);
}

// ---- GetPackageData ----

/// GetPackageData response in front of its data.
constexpr size_t kPackageDataHeaderSize = 9;

/// How far the device has got with the package data. Of the process, not of a context: there is
/// one update at a time.
struct PackageDataProgress {
    uint32_t requests;
    uint32_t expected_handle;
    uint32_t offset;
};
PackageDataProgress package_data_progress;

struct PackageDataRequest {
    uint32_t handle;
    uint8_t operation;
};

uint8_t refuse(uint8_t completion, const char* text) {
    print_line(text);
    return completion;
}

/// The completion code for a request.
uint8_t judge_package_data_request(const pldm_fw_update_ctx& ctx,
                                   const PackageDataRequest& request) {
    const PackageDataProgress& progress = package_data_progress;
    const bool first = progress.requests == 1;
    if (ctx.fd_will_send_pkg_data == 0) {
        return refuse(kCommandNotExpected, "PLDM_FW_UPDATE_COMMAND_NOT_EXPECTED FAIL");
    }
    if (ctx.package_data_len == 0 || ctx.records == nullptr || ctx.device_record_num == 0 ||
        ctx.records[0].package_data == nullptr) {
        return refuse(kNoPackageData, "PLDM_FW_UPDATE_NO_PACKAGE_DATA FAIL");
    }
    if (!first && request.handle != progress.expected_handle) {
        return refuse(kInvalidTransferHandle, "PLDM_FW_UPDATE_INVALID_DATA_TRANSFER_HANDLE FAIL");
    }
    if (request.operation != (first ? kGetFirstPart : kGetNextPart)) {
        return refuse(kInvalidTransferOperation,
                      "PLDM_FW_UPDATE_INVALID_TRANSFER_OPERATION_FLAG FAIL");
    }
    return PLDM_CC_SUCCESS;
}

int32_t refuse_package_data(pldm_fw_update_ctx& ctx, const uint8_t* req, uint32_t next_handle,
                            uint8_t completion) {
    std::array<uint8_t, kPackageDataHeaderSize> answer;
    start_answer(answer, req, completion).le32(next_handle).u8(kTransferEnd);
    package_data_progress = {};
    const int32_t result = send_answer(ctx, answer);
    if (result < 0) {
        print_formatted("error handling response fail, rc =%d\n", result);
    }
    return fail_request(ctx, kGetPackageData, SIDEBAND_CAUSE_MALFORMED);
}

/// Copies package data of the first record; behind its end the zeros of the target stay. The length
/// that the device was told is that of the record that was parsed last.
void copy_package_data(const pldm_device_record& record, size_t offset, std::span<uint8_t> target) {
    if (offset < record.package_data_len) {
        std::memcpy(target.data(), record.package_data + offset,
                    std::min<size_t>(target.size(), record.package_data_len - offset));
    }
}

int32_t send_package_data(pldm_fw_update_ctx& ctx, const uint8_t* req, uint32_t next_handle) {
    PackageDataProgress& progress = package_data_progress;
    // Another context may have left an offset behind the end of this one's data.
    const uint32_t offset = std::min<uint32_t>(progress.offset, ctx.package_data_len);
    const uint32_t part = std::min(ctx.package_data_len - offset, ctx.max_transfer_size);
    const bool last = offset + part == ctx.package_data_len;
    const size_t size = kPackageDataHeaderSize + part;
    const auto room = allocate_bytes(size);
    if (room == nullptr) {
        return fail_request(ctx, kGetPackageData, SIDEBAND_CAUSE_MEMORY);
    }
    const std::span<uint8_t> answer(room.get(), size);
    print_formatted("resp_len = %d, transfer_size = %d\n", static_cast<int>(size),
                    static_cast<int>(part));
    start_answer(answer, req, PLDM_CC_SUCCESS)
        .le32(next_handle)
        .u8(transfer_flag(progress.requests == 1, last));
    // Of the first record, whichever matched: packages in the field are made for that.
    copy_package_data(ctx.records[0], offset, answer.subspan(kPackageDataHeaderSize));
    progress.expected_handle = next_handle;
    progress.offset = offset + part;
    const int32_t result = send_answer(ctx, answer);
    if (result < 0) {
        print_line("get package data cmd write fail");
    }
    if (last) {
        progress = {};
    }
    print_formatted("pldm_get_package_data e rc = %d, last_part =%d\n", result, last ? 1 : 0);
    return last ? 1 : result;
}

// ---- RequestFirmwareData ----

/// What RequestFirmwareData may ask for at most: an answer has its header in front.
constexpr uint32_t kTransferSizeMax = UINT32_MAX - PLDM_RESPONSE_HEADER_SIZE;

/// Progress last printed. Of the process, not of a context: there is one update at a time.
uint8_t printed_percentage;

/// The package file, mapped for as long as this lives.
class PackageFile {
public:
    explicit PackageFile(const char* path) : is_open_(path != nullptr && map_file(path, file_)) {}
    ~PackageFile() {
        if (is_open_) {
            close_pldm_file(file_.descriptor, file_.address, file_.size);
        }
    }
    PackageFile(const PackageFile&) = delete;
    PackageFile& operator=(const PackageFile&) = delete;

    bool is_open() const { return is_open_; }
    size_t size() const { return file_.size; }

    /// Whether the context's package was parsed from this file as it is, or from none.
    bool is_package_of(const pldm_fw_update_ctx& ctx) const {
        return ctx.package_size == 0 ||
               std::memcmp(ctx.package_stamp, &file_.stamp, sizeof file_.stamp) == 0;
    }

    /// Whether nobody has touched the file since it was opened.
    bool is_untouched() const {
        FileStamp now;
        return stamp_of(file_.descriptor, now) && now == file_.stamp;
    }

    /// Copies bytes of the file; those behind its end are left as they are. By reading: if
    /// somebody cuts the file meanwhile, an access to the mapping would end the process.
    /// @return false if bytes that were there when the file was opened cannot be had
    bool copy(uint64_t position, std::span<uint8_t> target) const {
        if (position >= file_.size) {
            return true;
        }
        const auto there =
            static_cast<size_t>(std::min<uint64_t>(target.size(), file_.size - position));
        return read_file(file_.descriptor, position, target.first(there)) == there;
    }

private:
    MappedFile file_;
    bool is_open_;
};

/// A piece of the image that the device asks for.
struct Piece {
    uint32_t offset;
    uint32_t length;
    uint32_t copied;  ///< how much of it is taken from the file
};

/// In 64 bits, as the percentages are divided: one division in software is enough on ARM.
[[gnu::noinline]] uint32_t remainder(uint64_t dividend, uint32_t divisor) {
    return static_cast<uint32_t>(dividend % divisor);
}

/// The completion code for a piece; fills copied if that is 0. Deliberately measured against the
/// whole file, not against the component: devices ask for padding behind their component.
uint8_t judge_piece(const pldm_fw_update_ctx& ctx, size_t file_size, Piece& piece) {
    const uint64_t end = uint64_t{piece.offset} + piece.length;
    const bool in_range = end <= UINT32_MAX && end <= uint64_t{file_size} + ctx.max_transfer_size;
    uint8_t completion = PLDM_CC_SUCCESS;
    if (!in_range) {
        completion = refuse(kDataOutOfRange, "PLDM_FW_UPDATE_DATA_OUT_OF_RANGE");
    }
    if (piece.length < kTransferSizeMin ||
        piece.length > std::min(ctx.max_transfer_size, kTransferSizeMax)) {
        completion = refuse(kInvalidTransferLength, "PLDM_FW_UPDATE_INVALID_TRANSFER_LENGTH");
    }
    if (completion == PLDM_CC_SUCCESS) {
        piece.copied = end <= file_size ? piece.length : remainder(file_size, piece.length);
    }
    return completion;
}

/// Tells the console and, in steps of five, the platform how far the component is. Padding behind
/// the component is no progress to the platform, whose percentages end at 95 here; readers of the
/// consoles know the line with the padding in it, in eight bits.
void report_progress(pldm_fw_update_ctx& ctx, const Piece& piece, uint32_t component_size) {
    constexpr unsigned kStart = 10;
    constexpr unsigned kSpan = 85;
    constexpr int kStep = 5;
    if (component_size == 0) {
        return;
    }
    const auto percentage_of = [component_size](uint64_t done) {
        return static_cast<uint8_t>(kSpan * done / component_size + kStart);
    };
    const uint64_t end = uint64_t{piece.offset} + piece.copied;
    const uint8_t shown = percentage_of(end);
    if (shown != printed_percentage) {
        printed_percentage = shown;
        print_formatted("%d%%\n", shown);
    }
    const uint8_t percentage = percentage_of(std::min<uint64_t>(end, component_size));
    if (percentage >= ctx.last_percentage + kStep) {
        report_percentage(ctx, percentage);
    }
}

int32_t refuse_piece(pldm_fw_update_ctx& ctx, const uint8_t* req, uint8_t completion) {
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> answer;
    start_answer(answer, req, completion);
    send_answer(ctx, answer);
    return fail_request(ctx, kRequestFirmwareData, SIDEBAND_CAUSE_MALFORMED);
}

/// What the device has so far is of another image: with more bytes it would get a mixture. It is
/// told so, for it would wait for its data otherwise. ERROR, since the codes of the command itself
/// make a device ask again, ask for something else or wait for a cancel that is not sent.
int32_t refuse_changed(pldm_fw_update_ctx& ctx, const uint8_t* req) {
    debug_log("%s, %s has changed since it was parsed\n", "pldm_request_fw_data", ctx.package_file);
    refuse_piece(ctx, req, PLDM_CC_ERROR);
    return fail_request(ctx, kRequestFirmwareData, SIDEBAND_CAUSE_FILE);
}

int32_t send_piece(pldm_fw_update_ctx& ctx, const uint8_t* req, const PackageFile& file,
                   const Piece& piece, const Component& component) {
    const size_t size = PLDM_RESPONSE_HEADER_SIZE + size_t{piece.length};
    const auto room = allocate_bytes(size);
    if (room == nullptr) {
        return fail_request(ctx, kRequestFirmwareData, SIDEBAND_CAUSE_MEMORY);
    }
    const std::span<uint8_t> answer(room.get(), size);
    start_answer(answer, req, PLDM_CC_SUCCESS);
    if (!file.copy(uint64_t{component.location_offset} + piece.offset,
                   answer.subspan(PLDM_RESPONSE_HEADER_SIZE, piece.copied))) {
        debug_log("%s, can't read %s\n", "pldm_request_fw_data", ctx.package_file);
        refuse_piece(ctx, req, PLDM_CC_ERROR);
        return fail_request(ctx, kRequestFirmwareData, SIDEBAND_CAUSE_FILE);
    }
    if (!file.is_untouched()) {
        return refuse_changed(ctx, req);
    }
    report_progress(ctx, piece, component.size);
    return send_answer(ctx, answer);
}

// ---- TransferComplete, VerifyComplete, ApplyComplete ----

/// The result of a step whose answer could not be sent.
constexpr uint8_t kAnswerNotSent = 255;

/// Answers a report of the device.
/// @return the result that it reports, or kAnswerNotSent
uint8_t acknowledge(pldm_fw_update_ctx& ctx, const uint8_t* req) {
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> answer;
    start_answer(answer, req, PLDM_CC_SUCCESS);
    return send_answer(ctx, answer) < 0 ? kAnswerNotSent : fields_of(req).u8();
}

/// Whether it is one that a step behind a cancelled component leaves.
bool is_mark(uint8_t completion) {
    switch (completion) {
        case PLDM_FW_MARK_UPDATE_COMPONENT:
        case PLDM_FW_MARK_TRANSFER_COMPLETE:
        case PLDM_FW_MARK_VERIFY_COMPLETE:
        case PLDM_FW_MARK_APPLY_COMPLETE:
        case PLDM_FW_MARK_TIMEOUT:
            return true;
        default:
            return false;
    }
}

/// Cancels the component. The mark stands against the codes of the cancel, busy ones of one that
/// succeeds among them, and of what follows it, up to the mark of a later step.
/// @param result  of the step, as the device reports it, or kAnswerNotSent
int32_t give_component_up(pldm_fw_update_ctx& ctx, uint8_t mark, uint8_t result) {
    uint8_t& completion = ctx.pldm.completion_code;
    if (result != kAnswerNotSent) {
        record_code(ctx.pldm.last_error, SIDEBAND_CODE_PLDM_FW_RESULT, result);
        record_step(ctx.pldm.last_error, SIDEBAND_STEP_FW_UPDATE, ctx.pldm.last_command);
    }
    leave_mark(ctx, mark, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
    const bool cancelled = ctx.pldm.transfer_op != nullptr && exchange_cancel_component(ctx) >= 0;
    completion = mark;
    if (cancelled) {
        skip_component(ctx);
    }
    if (!is_mark(completion)) {
        completion = mark;
    }
    return -1;
}

/// Answers the report of a step, and goes to the next state or gives the component up.
/// @param name  of the step, for whoever reads the output
int32_t conclude_step(pldm_fw_update_ctx& ctx, const uint8_t* req, FwState next_state,
                      const char* name, uint8_t mark) {
    const uint8_t result = acknowledge(ctx, req);
    if (result == 0) {
        ctx.state = next_state;
        return 0;
    }
    print_formatted("%s complete with error %d\n", name, result);
    return give_component_up(ctx, mark, result);
}

}  // namespace

int32_t pldm_get_package_data(pldm_fw_update_ctx* ctx, const uint8_t* req) {
    if (!can_answer(ctx, req)) {
        return -1;
    }
    ++package_data_progress.requests;
    print_formatted("cmd_idx = %d\n", static_cast<int>(package_data_progress.requests));
    WireReader reader = fields_of(req);
    PackageDataRequest request;
    request.handle = reader.le32();
    request.operation = reader.u8();
    const uint32_t next_handle = request.handle + 1;
    const uint8_t completion = judge_package_data_request(*ctx, request);
    return completion == PLDM_CC_SUCCESS ? send_package_data(*ctx, req, next_handle)
                                         : refuse_package_data(*ctx, req, next_handle, completion);
}

int32_t pldm_request_fw_data(pldm_fw_update_ctx* ctx, const uint8_t* req) {
    constexpr uint32_t kShownBelow = 0x1000;
    if (!can_answer(ctx, req)) {
        return -1;
    }
    // Opened for each request: whoever removes the package stops the update.
    const PackageFile file(ctx->package_file);
    if (!file.is_open()) {
        return fail_request(*ctx, kRequestFirmwareData, SIDEBAND_CAUSE_FILE);
    }
    if (!file.is_package_of(*ctx)) {
        return refuse_changed(*ctx, req);
    }
    WireReader reader = fields_of(req);
    Piece piece{};
    piece.offset = reader.le32();
    piece.length = reader.le32();
    if (piece.offset < kShownBelow) {
        print_formatted("image length = 0x%x, offset = 0x%x\n", static_cast<unsigned>(file.size()),
                        piece.offset);
    }
    const pldm_update_component* element = update_element(*ctx, ctx->component_index);
    if (element == nullptr) {
        debug_log("%s, no component %d\n", "pldm_request_fw_data", ctx->component_index);
        return fail_request(*ctx, kRequestFirmwareData, SIDEBAND_CAUSE_NOT_FOUND);
    }
    const uint8_t completion = judge_piece(*ctx, file.size(), piece);
    return completion == PLDM_CC_SUCCESS
               ? send_piece(*ctx, req, file, piece, Component(element->image))
               : refuse_piece(*ctx, req, completion);
}

int32_t pldm_transfer_complete(pldm_fw_update_ctx* ctx, const uint8_t* req) {
    if (!can_answer(ctx, req)) {
        return -1;
    }
    print_formatted("TransferResult: 0x%x\n", fields_of(req).u8());
    if (ctx->state != kStateDownload) {
        // Reported only: devices that send it again get the same answer again.
        print_formatted("%s command not expected, state: 0x%x\n", "pldm_transfer_complete",
                        ctx->state);
    }
    return conclude_step(*ctx, req, kStateVerify, "transfer", PLDM_FW_MARK_TRANSFER_COMPLETE);
}

int32_t pldm_verify_complete(pldm_fw_update_ctx* ctx, const uint8_t* req) {
    if (!can_answer(ctx, req)) {
        return -1;
    }
    print_formatted("VerifyResult: %x\n", fields_of(req).u8());
    return conclude_step(*ctx, req, kStateApply, "verify", PLDM_FW_MARK_VERIFY_COMPLETE);
}

int32_t pldm_apply_complete(pldm_fw_update_ctx* ctx, const uint8_t* req) {
    // 1: applied, and the activation methods have changed, which do not matter here.
    constexpr uint8_t kAppliedWithModification = 1;
    if (!can_answer(ctx, req)) {
        return -1;
    }
    WireReader reader = fields_of(req);
    const uint8_t reported = reader.u8();
    const uint8_t modification_low = reader.u8();
    print_formatted("AppleResult: 0x%x - (%x,%x)\n", reported, modification_low, reader.u8());
    const uint8_t result = acknowledge(*ctx, req);
    if (result <= kAppliedWithModification) {
        print_formatted("Apply complete success ctx->component_index =%d\n", ctx->component_index);
        if (advance_component(*ctx)) {
            fw_update_state_fn(ctx);
        }
        return 0;
    }
    print_formatted("Apply complete with error %d\n", result);
    return give_component_up(*ctx, PLDM_FW_MARK_APPLY_COMPLETE, result);
}
