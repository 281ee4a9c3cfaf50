// SPDX-License-Identifier: Apache-2.0
// Access to a terminus's PDR repository, in the order of the command codes (DSP0248).
#include <sideband/debug_log.h>
#include <sideband/pldm_monitor.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "common/memory.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "pldm/monitor.h"
#include "pldm/pdr.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetPdrRepositoryInfo = 0x50,
    kGetPdr = 0x51,
};

constexpr int kPartsMax = 7;
constexpr size_t kPartDataOffset = 15;
constexpr size_t kPartResponseSize = kPartDataOffset + PLDM_PDR_PART_SIZE;

/// What a request for a part needs to know of the part before.
struct Position {
    uint8_t operation = kGetFirstPart;
    uint32_t transfer_handle = 0;
    uint16_t change_number = 0;
};

/// The answer's fields before the record data.
struct Part {
    uint32_t next_record;
    uint32_t next_transfer;
    uint8_t flag;
    uint16_t count;

    bool is_last() const { return is_last_part(flag); }
};

/// Reports a completion code that the transfer operation has passed through. @return the code
int32_t refused(uint8_t code) {
    static constexpr char kNames[][46] = {
        "PLDM_MONITOR_INVALID_DATA_TRANSFER_HANDLE",
        "PLDM_MONITOR_INVALID_TRANSFER_OPERATION_FLAG",
        "PLDM_MONITOR_INVALID_RECORD_HANDLE",
        "PLDM_MONITOR_INVALID_RECORD_CHANGE_NUMBER",
        "PLDM_MONITOR_TRANSFER_TIMEOUT",
        "PLDM_MONITOR_REPOSITORY_UPDATE_IN_PROGRESS",
    };
    constexpr uint8_t kFirst = 0x80;
    if (code >= kFirst && code - kFirst < static_cast<int>(std::size(kNames))) {
        debug_log("%s\n", kNames[code - kFirst]);
    } else {
        debug_log("%s, rc=%d\n", "pldm_get_pdr", code);
    }
    return code;
}

/// One pass of GetPDR.
/// @return 0, a negative result or a completion code
int32_t get_part(pldm_ctx& ctx, uint32_t record_handle, const Position& at,
                 std::span<uint8_t> response, Part& part) {
    std::array<uint8_t, 16> request;
    monitor_request(request, kGetPdr)
        .le32(record_handle)
        .le32(at.transfer_handle)
        .u8(at.operation)
        .le16(PLDM_PDR_PART_SIZE)
        .le16(at.change_number);
    std::memset(response.data(), 0, response.size());
    const int32_t result = pldm_exchange(ctx, request, response);
    if (result < 0) {
        debug_log("%s, rc=%d\n", "pldm_get_pdr", result);
        return result;
    }
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return refused(response[kPldmCompletionCode]);
    }
    if (!pldm_response_has(ctx, kPartDataOffset)) {
        return too_short(ctx, "pldm_get_pdr");
    }
    WireReader reader(response);
    reader.skip(PLDM_RESPONSE_HEADER_SIZE);
    part.next_record = reader.le32();
    part.next_transfer = reader.le32();
    part.flag = reader.u8();
    part.count = reader.le16();
    return 0;
}

/// recordChangeNumber of the common header, with which the first part's data begin.
uint16_t change_number(std::span<const uint8_t> response) {
    WireReader reader(response.subspan(kPartDataOffset));
    reader.skip(offsetof(pldm_pdr_header, record_change_number));
    return reader.le16();
}

/// Room for the answers of one record; null if the allocation failed.
using PartRoom = HeapPtr<uint8_t[]>;

PartRoom allocate_part() {
    return allocate_bytes(kPartResponseSize);
}

/// A record as far as it came.
struct Record {
    std::span<uint8_t> room;
    size_t received = 0;
    bool whole = false;
};

/// pldm_get_pdr() without the checks of its arguments.
/// @param handle  of the record wanted; receives that of the next one once the record is whole
/// @param record  filled whatever the result
int32_t read_record(pldm_ctx& ctx, uint32_t& handle, const PartRoom& room, Record& record) {
    const std::span<uint8_t> response(room.get(), kPartResponseSize);
    Position at;
    for (int pass = 0; pass < kPartsMax; ++pass) {
        Part part{};
        const int32_t result = get_part(ctx, handle, at, response, part);
        if (result != 0) {
            return result;
        }
        if (pass == 0) {
            at.change_number = change_number(response);
        }
        // Quietly: services tell by the handle, which stays, that the record is not whole.
        const std::span<uint8_t> rest = record.room.subspan(record.received);
        if (part.count > PLDM_PDR_PART_SIZE || part.count > rest.size()) {
            return 0;
        }
        if (!pldm_response_has(ctx, kPartDataOffset + part.count)) {
            return too_short(ctx, "pldm_get_pdr");
        }
        std::memcpy(rest.data(), response.data() + kPartDataOffset, part.count);
        record.received += part.count;
        if (part.is_last()) {
            handle = part.next_record;
            record.whole = true;
            return 0;
        }
        at.transfer_handle = part.next_transfer;
        at.operation = kGetNextPart;
    }
    print_line("Get PDR Resp Timeout");
    return 0;
}

}  // namespace

int32_t pldm_get_pdr_repository_info(pldm_ctx* ctx, uint32_t* record_count) {
    constexpr const char* kFunction = "pldm_get_pdr_repository_info";
    constexpr size_t kRecordCountOffset = 31;
    if (!can_exchange(ctx) || record_count == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    std::array<uint8_t, PLDM_HEADER_SIZE> request;
    std::array<uint8_t, 44> response{};
    monitor_request(request, kGetPdrRepositoryInfo);
    print_line("====== get pdr repo Req =====");
    dump_packet(request.data(), static_cast<int32_t>(request.size()));
    print_line("=============================");
    const int32_t result = pldm_exchange(*ctx, request, response);
    if (result < 0) {
        debug_log("%s, PLDM_MONITOR_GET_PDR_REPOSITORY_INFO fail\n", kFunction);
        return result;
    }
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return response[kPldmCompletionCode];
    }
    // What follows the count is not needed.
    if (!pldm_response_has(*ctx, kRecordCountOffset + sizeof *record_count)) {
        return too_short(*ctx, kFunction);
    }
    WireReader reader(response);
    reader.skip(kRecordCountOffset);
    *record_count = reader.le32();
    std::printf("record_count = %d\n", static_cast<int>(*record_count));
    print_line("====== get pdr repo Resp =====");
    dump_packet(response.data(), static_cast<int32_t>(response.size()));
    print_line("==============================");
    return 0;
}

int32_t pldm_get_pdr(pldm_ctx* ctx, uint32_t* record_handle, uint8_t* buffer, uint32_t capacity) {
    if (buffer == nullptr || record_handle == nullptr || capacity == 0 || !can_exchange(ctx)) {
        return PLDM_PDR_NOT_FOUND;
    }
    const PartRoom part = allocate_part();
    Record record{{buffer, capacity}};
    return part == nullptr ? PLDM_PDR_NOT_FOUND : read_record(*ctx, *record_handle, part, record);
}

int32_t pldm_get_full_pdr(pldm_ctx* ctx, uint32_t record_handle, pldm_pdr* parsed) {
    if (ctx == nullptr || parsed == nullptr) {
        return -1;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(PLDM_PDR_PART_SIZE);
    if (room == nullptr) {
        return -1;
    }
    Record record{{room.get(), PLDM_PDR_PART_SIZE}};
    if (can_exchange(ctx)) {
        const PartRoom part = allocate_part();
        const int32_t result =
            part == nullptr ? -1 : read_record(*ctx, record_handle, part, record);
        if (result < 0) {
            return result;
        }
    }
    // If nothing came, the decoder refuses the zeros.
    if (record.received < pdr_size_demanded(record.room)) {
        debug_log("%s, record of %d bytes is too short\n", "pldm_get_full_pdr",
                  static_cast<int>(record.received));
        return -1;
    }
    return pldm_parse_pdr(room.get(), parsed);
}

int32_t pldm_PDR_traversal(pldm_ctx* ctx) {
    if (!can_exchange(ctx)) {
        return PLDM_PDR_NOT_USABLE;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(PLDM_PDR_PART_SIZE);
    if (room == nullptr) {
        return PLDM_PDR_NOT_USABLE;
    }
    uint32_t handle = 0;
    int records = 0;
    do {
        if (records == PLDM_PDR_RECORDS_MAX) {
            debug_log("%s, no last record among %d\n", "pldm_PDR_traversal", records);
            return PLDM_PDR_NOT_USABLE;
        }
        const PartRoom part = allocate_part();
        if (part == nullptr) {
            return PLDM_PDR_NOT_USABLE;
        }
        Record record{{room.get(), PLDM_PDR_PART_SIZE}};
        const int32_t result = read_record(*ctx, handle, part, record);
        if (result < 0) {
            return static_cast<uint8_t>(result);
        }
        // Deliberately not counted: a record that does not come whole is asked for without end.
        records += record.whole || result != PLDM_CC_SUCCESS ? 1 : 0;
    } while (handle != 0);
    return 0;
}
