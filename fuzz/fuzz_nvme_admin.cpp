// SPDX-License-Identifier: Apache-2.0
// Fuzzes the responses to tunnelled NVMe admin commands, below and in place of the request
// operation, with the image download, and a drive's life over SMBus.
#include <sideband/nvme_mi.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/drive.h"
#include "fuzz/file.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;
using fuzz::world;

constexpr size_t kStatus = 3;
constexpr size_t kCommandFlags = 4;
constexpr size_t kDataOffset = 27;
constexpr size_t kDataLength = 31;
constexpr size_t kDword11 = 47;
constexpr uint8_t kImageDownload = 0x11;
constexpr uint32_t kUntouched = 0xEEEEEEEE;
constexpr uint8_t kNoStatus = 0xEE;

/// The image that is downloaded now.
struct Image {
    std::vector<uint8_t> bytes;
    const char* path = nullptr;
    bool whole_dwords = false;  ///< each piece begins where its offset says
    size_t sent = 0;            ///< end of what has gone out
    unsigned shrinks_at = 0;    ///< the request during which the file gets shorter; 0: none
};
Image image;

uint32_t le32(const uint8_t* at) {
    return at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

/// Data of a piece: those of the file at the offset that the command names.
void check_piece(const uint8_t* request, size_t length) {
    const size_t offset = size_t{le32(request + kDword11)} * 4;
    require(length <= NVME_ADMIN_REQUEST_SIZE + NVME_ADMIN_DATA_MAX + 4, "too long a piece");
    if (!image.whole_dwords) {
        return;
    }
    require(offset < image.bytes.size(), "a piece behind the end");
    require(length == NVME_ADMIN_REQUEST_SIZE + le32(request + kDataLength), "a wrong length");
    const size_t count = std::min(length - NVME_ADMIN_REQUEST_SIZE, image.bytes.size() - offset);
    require(std::memcmp(request + NVME_ADMIN_REQUEST_SIZE, image.bytes.data() + offset, count) == 0,
            "not the image");
    image.sent = std::max(image.sent, offset + count);
}

/// What goes out is a whole admin command whose flags are those of its fields.
void check_request(const uint8_t* request, size_t length) {
    require(length >= NVME_ADMIN_REQUEST_SIZE, "a request that is too short");
    require(request[0] == 0x10 && request[1] == 0 && request[2] == 0, "no admin command");
    const int flags =
        (le32(request + kDataLength) != 0 ? 1 : 0) | (le32(request + kDataOffset) != 0 ? 2 : 0);
    require(request[kCommandFlags] == flags, "wrong command flags");
    require(le32(request + kDataLength) <= NVME_ADMIN_DATA_MAX + 4, "more data than a message has");
    if (image.path != nullptr) {
        require(request[kStatus] == kImageDownload, "another command");
        check_piece(request, length);
    }
}

/// Does to the image file what somebody else does meanwhile.
void shrink_in_time() {
    if (image.path != nullptr && world().exchanges == image.shrinks_at) {
        require(truncate(image.path, static_cast<off_t>(image.bytes.size() / 2)) == 0, "no file");
    }
}

int32_t drive_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                   const uint8_t* request, uint8_t* response) {
    ++world().exchanges;
    require(ctx->msg_type == fuzz::kDriveMessageType, "a command without integrity check");
    check_request(request, request_length);
    shrink_in_time();
    return fuzz::drive_answer(response_length, response);
}

int32_t drive_recv(mctp_ctx* /*ctx*/, int32_t length, uint8_t* buffer) {
    ++world().reads;
    return fuzz::drive_answer(length, buffer);
}

/// A request operation as a caller may install one: the length is whatever it says.
int32_t own_request(nvmemi_ctx* /*ctx*/, uint32_t request_length, uint32_t response_capacity,
                    uint8_t* request, uint8_t* response) {
    ++world().exchanges;
    check_request(request, request_length);
    shrink_in_time();
    const uint32_t room = std::min<uint32_t>(response_capacity, NVMEMI_RESPONSE_MAX);
    return fuzz::drive_answer(static_cast<int32_t>(room), response);
}

/// 0, -1, the endpoint's status or the controller's completion.
void require_result(int32_t result) {
    const bool strict = (world().strict & MCTP_STRICT_NVME_MI) != 0;
    require((result >= -1 && result <= 255) || NVME_COMPLETION_SC(result) != 0 ||
                (strict && NVME_COMPLETION_SCT(result) != 0),
            "an undocumented result");
}

nvme_admin_req record(nvmemi_ctx* ctx, Input& input) {
    nvme_admin_req req{};
    req.ctx = ctx;
    req.opcode = input.u8();
    req.cntlid = req.opcode;
    req.nsid = input.u8();
    req.dofst = input.u8() % 2u * 4;
    req.dlen = req.cdw10 = req.cdw11 = req.cdw12 = req.cdw13 = req.cdw14 = req.cdw15 = input.u16();
    return req;
}

void feature(nvmemi_ctx& ctx, Input& input) {
    nvme_admin_req req = record(&ctx, input);
    const uint8_t which = input.u8();
    const uint8_t argument = input.u8();
    GuardedBuffer data(input.u8());
    nvme_feature_result result{kUntouched, static_cast<uint32_t>(data.size()), data.data()};
    int32_t status = -1;
    if (which % 3 == 0) {
        status = nvme_admin_get_feature(&req, which, argument, &result);
        require(argument < 4 || world().exchanges == 0, "a bad select was sent");
    } else if (which % 3 == 1) {
        status = nvme_admin_set_feature(&req, which, argument, &result);
        require(argument < 2 || world().exchanges == 0, "a bad save flag was sent");
    } else {
        status = nvme_admin_get_set_feature(&req, argument, &result);
    }
    require_result(status);
    require(req.dlen <= NVME_ADMIN_DATA_MAX || world().exchanges == 0, "too many data were sent");
    require(status == 0 || (result.dword0 == kUntouched && data.untouched_from(0)),
            "a failed command gave something");
    data.check();
}

/// Commands that give nothing but their result.
void plain(nvmemi_ctx& ctx, Input& input) {
    const uint8_t which = input.u8();
    const uint32_t value = input.u16();
    const nvme_sanitize_param sanitize{&ctx, 1, value, value, value};
    const nvme_lockdown_param lockdown{&ctx, 1, value, value, value};
    int32_t result = -1;
    switch (which % 6) {
        case 0:
            result = nvme_fw_image_commit(&ctx, 1, static_cast<uint8_t>(value), which);
            break;
        case 1:
            result = nvme_namespace_mgmt_attachment(&ctx, 1, value, which);
            break;
        case 2:
            result = nvme_namespace_mgmt_delete(&ctx, 1, value);
            break;
        case 3:
            result = nvme_format_nvm(&ctx, 1, value, &value);
            break;
        case 4:
            result = nvme_sanitize_set(&sanitize);
            break;
        default:
            result = nvme_lockdown_set(&lockdown);
            break;
    }
    require_result(result);
}

void create(nvmemi_ctx& ctx, Input& input) {
    uint8_t structure[NVME_ADMIN_DATA_MAX] = {};
    input.fill(std::span(structure).first(4));
    uint32_t nsid = kUntouched;
    const int32_t result = nvme_namespace_mgmt_create(&ctx, 1, structure, &nsid);
    require_result(result);
    require(result == 0 || nsid == kUntouched, "a failed command gave a namespace");
}

void read(nvmemi_ctx& ctx, Input& input) {
    nvme_admin_req req = record(&ctx, input);
    const uint8_t which = input.u8();
    const uint8_t passthrough = which & 0x80;
    const uint32_t length = input.u16() % (NVME_ADMIN_DATA_MAX + 2);
    GuardedBuffer data(length);
    uint32_t received = kUntouched;
    int32_t result = -1;
    if (which % 4 == 0) {
        result = nvme_get_log_page(&req, 1, length, passthrough, data.data(), &received);
    } else if (which % 4 == 1) {
        result = nvme_identify(&req, length, passthrough, data.data(), &received);
    } else if (which % 4 == 2) {
        result = nvme_get_pd_info(&req, length, data.data(), &received);
    } else {
        result = nvme_mrvl_read_cmd(&req, length, data.data(), &received);
    }
    require_result(result);
    require(length <= NVME_ADMIN_DATA_MAX || world().exchanges == 0, "too many data were sent");
    require(result == 0 ? received <= length : received == kUntouched, "a wrong count");
    require(data.untouched_from(result == 0 ? received : 0), "written behind the data");
    data.check();
}

/// The descriptor that would be opened next: a lower one that is still open shows in it.
int next_descriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

/// The outcome in the platform's record is the one of the result.
void require_outcome(int32_t result, uint8_t status) {
    require((result == 0) == (status == NVME_FW_DOWNLOAD_DONE), "a wrong outcome");
    const bool without_reason = status == NVME_FW_DOWNLOAD_UNREADABLE ||
                                status == NVME_FW_DOWNLOAD_EXCHANGE ||
                                status == NVME_FW_DOWNLOAD_COMMAND;
    require(result != -1 || without_reason, "a wrong outcome of a failure");
    require(status != NVME_FW_DOWNLOAD_RESPONSE_ERROR || (result > 0 && result < 256),
            "a wrong outcome of a refusal");
    require(result == 0 || result == -1 || status == NVME_FW_DOWNLOAD_COMMAND ||
                status == NVME_FW_DOWNLOAD_RESPONSE_ERROR,
            "a result without an outcome");
}

void download(nvmemi_ctx& ctx, Input& input) {
    constexpr size_t kSizeMax = 0x2400;
    const uint32_t chunk_size = input.u16();
    image = Image{};
    image.bytes.resize(input.u16() % kSizeMax);
    for (size_t i = 0; i < image.bytes.size(); ++i) {
        image.bytes[i] = static_cast<uint8_t>(1 + i % 251);
    }
    const fuzz::File file(image.bytes);
    image.path = file.path();
    image.whole_dwords = chunk_size % 4 == 0;
    image.shrinks_at = input.u8();
    world().global.nvme_fw_update_status = kNoStatus;
    const int descriptor = next_descriptor();
    const int32_t result = nvme_fw_image_download(&ctx, 1, image.path, chunk_size, 1);
    require(next_descriptor() == descriptor, "the file is still open");
    require_result(result);
    require_outcome(result, world().global.nvme_fw_update_status);
    require(result != 0 || !image.whole_dwords || image.sent == image.bytes.size(),
            "not the whole image");
    require((chunk_size != 0 && chunk_size <= NVME_ADMIN_DATA_MAX) || world().exchanges == 0,
            "a bad chunk size was sent");
    image = Image{};
}

/// The tunnel itself, with a request and room of any size.
void tunnel(nvmemi_ctx& ctx, Input& input) {
    const uint32_t length = input.u8();
    const uint32_t capacity = input.u16();
    GuardedBuffer request(length);
    GuardedBuffer response(capacity);
    std::fill_n(request.data(), length, uint8_t{0});
    input.fill({request.data(), length});
    // The rest of the request is the caller's: no promise of the library's is in it.
    if (length >= NVME_ADMIN_REQUEST_SIZE) {
        request.data()[1] = request.data()[2] = 0;
        request.data()[0] &= 0x7F & ~0x06;
        std::fill_n(request.data() + kDataLength + 2, 2, uint8_t{0});
        request.data()[kDataLength + 1] &= 0x0F;
    }
    const int32_t result = nvme_admin_cmd(&ctx, length, capacity, request.data(), response.data());
    require(result >= -1, "an undocumented result");
    require(length >= NVME_ADMIN_REQUEST_SIZE || result == -1, "a request without its fields");
    request.check();
    response.check();
}

/// The whole stack: a drive brought up over SMBus packets.
void life(nvmemi_ctx& /*ctx*/, Input& input) {
    nvmemi_ctx ctx{};
    if (fuzz::init_drive(ctx, input.u8())) {
        read(ctx, input);
        plain(ctx, input);
    }
    require(nvmemi_deinit(&ctx) == 0 && ctx.mctp == nullptr, "not released");
}

constexpr void (*kCalls[])(nvmemi_ctx&, Input&) = {
    feature, plain, create, read, download, tunnel, life,
};

/// Gives a context its operation. No binding has this number.
void bind(nvmemi_ctx& ctx, mctp_ctx& endpoint) {
    mctp_ctx nowhere{};
    nowhere.binding_kind = 0xFF;
    require(nvmemi_init(&ctx, &nowhere) == -1 && nvmemi_deinit(&ctx) == 0, "a binding");
    endpoint.xfer = drive_xfer;
    endpoint.recv = drive_recv;
    ctx.mctp = &endpoint;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsOfAnInput = 16;
    // A download of single bytes with every attempt and every wait; SMBus reads that are dropped.
    constexpr unsigned kPlatformCallsMax = 200000;
    mctp_ctx endpoint{};
    nvmemi_ctx ctx{};
    bind(ctx, endpoint);
    fuzz::begin(bytes, size);
    endpoint.strict = world().strict;
    Input& input = world().input;
    if ((input.u8() & 0x01) != 0) {
        ctx.mi_request = own_request;
    }
    for (int i = 0; i < kCallsOfAnInput && (i == 0 || !input.empty()); ++i) {
        kCalls[input.u8() % std::size(kCalls)](ctx, input);
        fuzz::end(kPlatformCallsMax);
    }
    fuzz::finish();
    return 0;
}
