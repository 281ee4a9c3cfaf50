// SPDX-License-Identifier: Apache-2.0
// Access to a terminus's PDR repository, in the order of the command codes (DSP0248).
#include <sideband/debug_log.h>
#include <sideband/pldm_monitor.h>

#include <array>
#include <cstring>

#include "common/crc.h"
#include "common/memory.h"
#include "common/output.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "pldm/pdr.h"
#include "pldm/strict.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetPdrRepositoryInfo = 0x50,
    kGetPdr = 0x51,
};

constexpr const char* kReader = "pldm_get_pdr";
constexpr int kPartsMax = 7;
constexpr size_t kPartDataOffset = PLDM_RESPONSE_HEADER_SIZE + 11;
constexpr size_t kPartResponseSize = kPartDataOffset + PLDM_PDR_PART_SIZE;
constexpr size_t kTransferCrcSize = 1;

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
    bool is_last;
    bool has_crc;  ///< behind the data: transferCRC
    uint16_t count;

    explicit Part(WireReader& body) {
        next_record = body.le32();
        next_transfer = body.le32();
        const uint8_t flag = body.u8();
        is_last = is_last_part(flag);
        has_crc = flag == kTransferEnd;
        count = body.le16();
    }
};

/// Reports a completion code that the transfer operation has passed through. @return the code
int32_t refused(uint8_t code) {
    static constexpr char kNames[][32] = {
        "INVALID_DATA_TRANSFER_HANDLE",
        "INVALID_TRANSFER_OPERATION_FLAG",
        "INVALID_RECORD_HANDLE",
        "INVALID_RECORD_CHANGE_NUMBER",
        "TRANSFER_TIMEOUT",
        "REPOSITORY_UPDATE_IN_PROGRESS",
    };
    constexpr uint8_t kFirst = 0x80;
    if (code >= kFirst && code - kFirst < static_cast<int>(std::size(kNames))) {
        debug_log("PLDM_MONITOR_%s\n", kNames[code - kFirst]);
    } else {
        debug_log("%s, rc=%d\n", kReader, code);
    }
    return code;
}

/// One pass of GetPDR.
PldmAnswer exchange_part(pldm_ctx& ctx, uint32_t record_handle, const Position& at,
                         std::span<uint8_t> room) {
    PldmRequest request(PLDM_TYPE_MONITOR, kGetPdr);
    request.fields.le32(record_handle)
        .le32(at.transfer_handle)
        .u8(at.operation)
        .le16(PLDM_PDR_PART_SIZE)
        .le16(at.change_number);
    std::memset(room.data(), 0, room.size());
    return exchange(ctx, request, room);
}

/// @return 0, a negative result or a completion code
int32_t judge(const PldmAnswer& answer) {
    if (answer.result < 0) {
        debug_log("%s, rc=%d\n", kReader, answer.result);
        return answer.result;
    }
    return answer.header.completion == PLDM_CC_SUCCESS ? 0 : refused(answer.header.completion);
}

/// recordChangeNumber of the common header, with which the first part's data begin. Zeros stand for
/// what did not come of it.
/// @param room  of the first part, zeros behind what came
uint16_t change_number(std::span<const uint8_t> room) {
    WireReader reader(room.subspan(kPartDataOffset));
    reader.skip(offsetof(pldm_pdr_header, record_change_number));
    return reader.le16();
}

/// Room for the answers of one record; null if the allocation failed.
using PartRoom = HeapPtr<uint8_t[]>;

PartRoom allocate_part() {
    return allocate_bytes(kPartResponseSize + kTransferCrcSize);
}

/// A record as far as it came.
struct Record {
    std::span<uint8_t> room;
    size_t received = 0;
    bool whole = false;
};

/// Compares the transferCRC, at which the body of the last part stands.
bool crc_holds(const Record& record, PldmAnswer& answer) {
    const uint8_t crc = answer.body.u8();
    if (finish(answer, kReader) < 0) {
        return false;
    }
    if (crc != crc8(record.room.first(record.received))) {
        debug_log("%s, the transfer CRC is wrong\n", kReader);
        fail_command(*answer.ctx, SIDEBAND_CAUSE_WRONG_CHECK);
        return false;
    }
    return true;
}

/// pldm_get_pdr() without the checks of its arguments.
/// @param handle  of the record wanted; receives that of the next one once the record is whole
/// @param record  filled whatever the result
int32_t read_record(pldm_ctx& ctx, uint32_t& handle, const PartRoom& room, Record& record) {
    const bool strict = is_strict(ctx);
    const std::span<uint8_t> response(room.get(),
                                      kPartResponseSize + (strict ? kTransferCrcSize : 0));
    Position at;
    for (int pass = 0; pass < kPartsMax; ++pass) {
        PldmAnswer answer = exchange_part(ctx, handle, at, response);
        const int32_t result = judge(answer);
        if (result != 0) {
            return result;
        }
        const Part part(answer.body);
        if (finish(answer, kReader) < 0) {
            return -1;
        }
        if (pass == 0) {
            at.change_number = change_number(response);
        }
        // Quietly: services tell by the handle, which stays, that the record is not whole.
        const std::span<uint8_t> rest = record.room.subspan(record.received);
        if (part.count > PLDM_PDR_PART_SIZE || part.count > rest.size()) {
            fail_command(ctx, SIDEBAND_CAUSE_MALFORMED);
            return 0;
        }
        WireWriter(rest).bytes(answer.body.bytes(part.count));
        if (finish(answer, kReader) < 0) {
            return -1;
        }
        record.received += part.count;
        if (part.is_last) {
            if (strict && part.has_crc && !crc_holds(record, answer)) {
                return -1;
            }
            handle = part.next_record;
            record.whole = true;
            return 0;
        }
        at.transfer_handle = part.next_transfer;
        at.operation = kGetNextPart;
    }
    fail_command(ctx, SIDEBAND_CAUSE_MALFORMED);
    print_line("Get PDR Resp Timeout");
    return 0;
}

}  // namespace

int32_t pldm_get_pdr_repository_info(pldm_ctx* ctx, uint32_t* record_count) {
    constexpr const char* kFunction = "pldm_get_pdr_repository_info";
    if (!begin(ctx) || record_count == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    PldmRequest request(PLDM_TYPE_MONITOR, kGetPdrRepositoryInfo);
    std::array<uint8_t, 44> room{};
    print_framed("====== get pdr repo Req =====", request.bytes(), "=============================");
    PldmAnswer answer = exchange(*ctx, request, room);
    if (answer.result < 0) {
        debug_log("%s, PLDM_MONITOR_GET_PDR_REPOSITORY_INFO fail\n", kFunction);
        return answer.result;
    }
    if (answer.header.completion != PLDM_CC_SUCCESS) {
        return answer.header.completion;
    }
    answer.body.skip(27);                       // state, times of update
    const uint32_t count = answer.body.le32();  // what is behind it is not needed
    if (finish(answer, kFunction) < 0) {
        return -1;
    }
    *record_count = count;
    print_formatted("record_count = %d\n", static_cast<int>(count));
    print_framed("====== get pdr repo Resp =====", room, "==============================");
    return 0;
}

int32_t pldm_get_pdr(pldm_ctx* ctx, uint32_t* record_handle, uint8_t* buffer, uint32_t capacity) {
    if (!begin(ctx) || buffer == nullptr || record_handle == nullptr || capacity == 0) {
        return PLDM_PDR_NOT_FOUND;
    }
    const PartRoom part = allocate_part();
    Record record{{buffer, capacity}};
    if (part == nullptr) {
        fail_command(*ctx, SIDEBAND_CAUSE_MEMORY);
        return PLDM_PDR_NOT_FOUND;
    }
    return read_record(*ctx, *record_handle, part, record);
}

int32_t pldm_get_full_pdr(pldm_ctx* ctx, uint32_t record_handle, pldm_pdr* parsed) {
    const bool can_ask = begin(ctx);
    if (ctx == nullptr || parsed == nullptr) {
        return -1;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(PLDM_PDR_PART_SIZE);
    if (room == nullptr) {
        return fail_command(*ctx, SIDEBAND_CAUSE_MEMORY);
    }
    Record record{{room.get(), PLDM_PDR_PART_SIZE}};
    if (can_ask) {
        const PartRoom part = allocate_part();
        const int32_t result = part == nullptr ? fail_command(*ctx, SIDEBAND_CAUSE_MEMORY)
                                               : read_record(*ctx, record_handle, part, record);
        if (result < 0) {
            return result;
        }
    }
    // If nothing came, the decoder refuses the zeros.
    if ((record.whole || is_strict(*ctx)) && record.received < pdr_size_demanded(record.room)) {
        debug_log("%s, record of %d bytes is too short\n", "pldm_get_full_pdr",
                  static_cast<int>(record.received));
        fail(ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
        return -1;
    }
    const int32_t result = pldm_parse_pdr(room.get(), parsed);
    if (result != 0) {
        fail(ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
    }
    return result;
}

int32_t pldm_PDR_traversal(pldm_ctx* ctx) {
    if (!begin(ctx)) {
        return PLDM_PDR_NOT_USABLE;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(PLDM_PDR_PART_SIZE);
    if (room == nullptr) {
        fail_command(*ctx, SIDEBAND_CAUSE_MEMORY);
        return PLDM_PDR_NOT_USABLE;
    }
    uint32_t handle = 0;
    int records = 0;
    do {
        if (records == PLDM_PDR_RECORDS_MAX) {
            debug_log("%s, no last record among %d\n", "pldm_PDR_traversal", records);
            fail_command(*ctx, SIDEBAND_CAUSE_MALFORMED);
            return PLDM_PDR_NOT_USABLE;
        }
        const PartRoom part = allocate_part();
        if (part == nullptr) {
            fail_command(*ctx, SIDEBAND_CAUSE_MEMORY);
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
