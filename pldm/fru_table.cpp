// SPDX-License-Identifier: Apache-2.0
// The FRU record table: its metadata and two ways to read it in parts (DSP0257).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fru.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "common/memory.h"
#include "common/printable.h"
#include "common/wire.h"
#include "pldm/message.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetFruRecordTableMetadata = 0x01,
    kGetFruRecordTable = 0x02,
};

constexpr const char* kReader = "pldm_get_FRU_record_table";
constexpr const char* kFixedReader = "pldm_get_FRU_record_table_MX";

// ---- Metadata ----

using MetadataResponse = std::array<uint8_t, 22>;
constexpr size_t kTableLengthOffset = 10;
constexpr size_t kTableLengthEnd = 14;  // what is behind the length is not needed

/// @param announcement  printed before the exchange
/// @return the result of transfer_op
int32_t exchange_metadata(pldm_ctx& ctx, const char* announcement, MetadataResponse& response) {
    std::array<uint8_t, PLDM_HEADER_SIZE> request;
    pldm_FRU_request_init(request.data());
    request[kPldmCommand] = kGetFruRecordTableMetadata;
    print_line(announcement);
    const int32_t result = pldm_exchange(ctx, request, response);
    print_line("call get FRU record table metadata");
    return result;
}

/// @return false if the answer ends before the length
bool table_length_of(const pldm_ctx& ctx, const MetadataResponse& response, const char* function,
                     uint32_t& length) {
    if (!pldm_response_has(ctx, kTableLengthEnd)) {
        too_short(ctx, function);
        return false;
    }
    WireReader reader(response);
    reader.skip(kTableLengthOffset);
    length = reader.le32();
    return true;
}

// ---- Table ----

/// GetFRURecordTable: header, completion code, next handle and flag, then table data.
constexpr size_t kFlagEnd = 9;

class TableRequest {
public:
    TableRequest() {
        pldm_FRU_request_init(bytes_.data());
        bytes_[kPldmCommand] = kGetFruRecordTable;
        ask(0, kGetFirstPart);
    }

    /// Asks for the part behind the one in this response.
    void ask_next(std::span<const uint8_t> response) {
        WireReader reader(response);
        reader.skip(PLDM_RESPONSE_HEADER_SIZE);
        ask(reader.le32(), kGetNextPart);
    }

    std::span<uint8_t> bytes() { return bytes_; }

private:
    void ask(uint32_t handle, uint8_t operation) {
        WireWriter(bytes_).skip(PLDM_HEADER_SIZE).le32(handle).u8(operation);
    }

    std::array<uint8_t, 8> bytes_;
};

bool is_last(std::span<const uint8_t> response) {
    return is_last_part(response[kFlagEnd - 1]);
}

/// Says of the first part of a table that carries more than is taken of it that the table is wrong.
class SurplusReport {
public:
    explicit SurplusReport(const char* function) : function_(function) {}

    /// @param response   with a part that is not the last one, in all its room
    /// @param remaining  bytes of the table that are to come behind what is taken of the part
    void look(const pldm_ctx& ctx, std::span<const uint8_t> response, size_t remaining) {
        constexpr size_t kTaken = kFlagEnd + PLDM_FRU_PART_SIZE;
        // With nothing to come, pad bytes and the checksum are all that may be behind it.
        if (said_ || remaining == 0 || !pldm_response_exceeds(ctx, kTaken, response.size())) {
            return;
        }
        said_ = true;
        debug_log("%s, part of %d bytes is not the last: those behind %d are lost\n", function_,
                  ctx.response_length - static_cast<int>(kFlagEnd), PLDM_FRU_PART_SIZE);
    }

private:
    const char* function_;
    bool said_ = false;
};

/// Prints the name of a completion code that ends the transfer. The other ones do not.
bool ends_transfer(uint8_t code) {
    switch (code) {
        case PLDM_FRU_CC_INVALID_DATA_TRANSFER_HANDLE:
            print_line("PLDM_FRU_INVALID_DATA_TRANSFER_HANDLE");
            return true;
        case PLDM_FRU_CC_INVALID_TRANSFER_OPERATION_FLAG:
            print_line("PLDM_FRU_INVALID_TRANSFER_OPERATION_FLAG");
            return true;
        case PLDM_FRU_CC_TABLE_UNAVAILABLE:
            // Misspelt on the consoles of deployed firmware, and matched there.
            print_line("PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE");
            return true;
        default:
            return false;
    }
}

/// Asks for the metadata, and judges the length that they tell.
/// @return 0 or a negative result
int32_t learn_table_length(pldm_ctx& ctx, uint32_t expected, uint32_t& length) {
    MetadataResponse response{};
    const int32_t result =
        exchange_metadata(ctx, "start to send get PLDM metadata message", response);
    if (result < 0) {
        print_line("Fail - can't get the record table metadata");
        return result;
    }
    // The completion code is deliberately not looked at.
    if (!table_length_of(ctx, response, kReader, length)) {
        return -1;
    }
    if (expected != 0 && expected != length) {
        return PLDM_ERROR_ARGUMENT;
    }
    std::printf("recordTable_length = %d\n", static_cast<int>(length));
    if (length > PLDM_FRU_TABLE_LENGTH_MAX) {
        debug_log("%s, table of %u bytes is too long\n", kReader, length);
        return PLDM_ERROR_ARGUMENT;
    }
    return 0;
}

/// Takes the data of one part.
/// @param rest  the part of the table that is still to come; cut to what is to come after this
/// @return 0, PLDM_ERROR_ARGUMENT if the part is shorter than it must be
int32_t take_part(const pldm_ctx& ctx, std::span<const uint8_t> response,
                  std::span<uint8_t>& rest) {
    const auto remaining = static_cast<int>(rest.size());
    const bool last = is_last(response);
    if (last) {
        std::printf("dump tmp_buf1, tem_len = %d\n", remaining);
    } else {
        std::printf("dump tmp_buf2, tem_len = %d, maxlen = %d\n", remaining, PLDM_FRU_PART_SIZE);
    }
    const size_t size = last ? rest.size() : std::min<size_t>(rest.size(), PLDM_FRU_PART_SIZE);
    if (!pldm_response_has(ctx, kFlagEnd + size)) {
        too_short(ctx, kReader);
        return PLDM_ERROR_ARGUMENT;
    }
    // The response has room for the whole table.
    std::memcpy(rest.data(), response.data() + kFlagEnd, size);
    if (!last && size != 0 && size < PLDM_FRU_PART_SIZE) {
        std::printf("dump tmp_buf3, tem_len = %d, maxlen = %d\n", remaining, PLDM_FRU_PART_SIZE);
    }
    rest = rest.subspan(size);
    return 0;
}

/// Reads a table part by part, until it is whole or a part says that it is the last one.
/// @param table  as long as the metadata told
/// @return the last completion code, or a negative result
int32_t read_parts(pldm_ctx& ctx, std::span<uint8_t> table) {
    constexpr size_t kBehindTable = 16;  // the header in front, up to 3 pad bytes and the checksum
    constexpr int kBehindHeader = 7;
    const size_t size = table.size() + kBehindTable;
    const HeapPtr<uint8_t[]> room = allocate_bytes(size);
    if (room == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    std::printf("buf size = %d, RECORD_TABLE_RESP_REMAINING_BYTE =%d\n", static_cast<int>(size),
                kBehindHeader);
    const std::span<uint8_t> response(room.get(), size);
    TableRequest request;
    SurplusReport surplus(kReader);
    for (std::span<uint8_t> rest = table;;) {
        const int32_t result = pldm_exchange(ctx, request.bytes(), response);
        if (result < 0) {
            std::printf("%s-%d command fail\n", kReader, 216);
            return result;
        }
        const uint8_t code = response[kPldmCompletionCode];
        if (ends_transfer(code)) {
            return code;
        }
        if (!pldm_response_has(ctx, kFlagEnd)) {
            too_short(ctx, kReader);
            return PLDM_ERROR_ARGUMENT;
        }
        const int32_t taken = take_part(ctx, response, rest);
        if (taken < 0) {
            return taken;
        }
        // Each part takes some of the rest, so a device that never ends cannot keep this up.
        if (rest.empty()) {
            return code;
        }
        surplus.look(ctx, response, rest.size());
        request.ask_next(response);
    }
}

// ---- Table in answers of one size ----

constexpr const char* kRule = "===================================";

/// One exchange of the reader for answers of one size, framed by its lines.
/// @param ended  set if the transfer cannot go on
/// @return the result of transfer_op
int32_t exchange_fixed_part(pldm_ctx& ctx, TableRequest& request, std::span<uint8_t> response,
                            bool& ended) {
    ended = true;
    std::memset(response.data(), 0, response.size());
    print_line("====== pldm_get_FRU_record_table_M1 Req =====");
    print_line(kRule);
    const int32_t result = pldm_exchange(ctx, request.bytes(), response);
    if (result < 0) {
        console_log("%s command fail\n", kFixedReader);
        return result;
    }
    switch (response[kPldmCompletionCode]) {
        case PLDM_FRU_CC_INVALID_TRANSFER_OPERATION_FLAG:
            console_log("PLDM_FRU_INVALID_TRANSFER_OPERATION_FLAG\n");
            return result;
        case PLDM_FRU_CC_TABLE_UNAVAILABLE:
            console_log("PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE\n");
            return result;
        case PLDM_FRU_CC_INVALID_DATA_TRANSFER_HANDLE:
            console_log("PLDM_FRU_INVALID_DATA_TRANSFER_HANDLE\n");
            return result;
        default:
            break;
    }
    print_line("====== pldm_get_FRU_record_table_M1 Resp =====");
    print_line(kRule);
    std::printf("%s resp.h.completion =%d\n", kFixedReader, response[kPldmCompletionCode]);
    ended = false;
    return result;
}

/// Copies what the last part brings; the response is zero behind its end.
void take_last_fixed_part(const pldm_ctx& ctx, std::span<const uint8_t> response,
                          std::span<uint8_t> rest, size_t length) {
    if (rest.size() > PLDM_FRU_PART_SIZE) {
        console_log("len fail tmp_len =%d, data_len =%d\n", static_cast<int>(rest.size()),
                    static_cast<int>(length - rest.size()));
        return;
    }
    if (!pldm_response_has(ctx, kFlagEnd + rest.size())) {
        debug_log("%s, last part of %d bytes: %d are wanted\n", kFixedReader,
                  ctx.response_length - static_cast<int>(kFlagEnd), static_cast<int>(rest.size()));
    }
    std::memcpy(rest.data(), response.data() + kFlagEnd, rest.size());
    std::printf("tmp_len =%d, data_len =%d\n", 0, static_cast<int>(length));
}

/// Copies a part that is not the last one, or what of it there is room for.
/// @param rest  empty afterwards if there will be no other part
void take_fixed_part(std::span<const uint8_t> response, std::span<uint8_t>& rest, size_t length) {
    const size_t size = std::min<size_t>(rest.size(), PLDM_FRU_PART_SIZE);
    std::memcpy(rest.data(), response.data() + kFlagEnd, size);
    if (size < PLDM_FRU_PART_SIZE) {
        print_line("=============Warning==============");
        std::printf("dump tmp_buf3, tem_len = %d, maxlen = %d\n", static_cast<int>(size),
                    PLDM_FRU_PART_SIZE);
    }
    rest = rest.subspan(size);
    if (size == PLDM_FRU_PART_SIZE) {
        std::printf("tmp_len =%d, data_len =%d\n", static_cast<int>(rest.size()),
                    static_cast<int>(length - rest.size()));
    }
}

/// @return 0 or a negative result: what pldm_get_FRU_fields() prints, or why not
int32_t print_fields(std::span<const uint8_t> table, uint32_t field_id) {
    pldm_fru_record record;
    int32_t result =
        pldm_parse_record_table(table.data(), &record, static_cast<uint32_t>(table.size()));
    if (record.number_of_fields > PLDM_FRU_FIELDS_MAX) {
        std::printf("%d field nums is too much, please check\n", record.number_of_fields);
        result = -3;
    } else {
        std::printf("field_num = %d\n", record.number_of_fields);
    }
    for (int i = 0; result == 0 && i < record.number_of_fields; ++i) {
        if (record.fields[i].type == field_id) {
            std::printf("FRUData.fields[%d].ctx = %s\n", i,
                        Printable(record.fields[i].value).text());
        }
    }
    freeFRUdata(&record);
    return result;
}

}  // namespace

int32_t pldm_get_FRU_record_table_metadata(pldm_ctx* ctx, uint32_t* table_length) {
    if (!can_exchange(ctx) || table_length == nullptr) {
        return -1;
    }
    MetadataResponse response{};
    const int32_t result = exchange_metadata(*ctx, "start to send PLDM message", response);
    if (result < 0) {
        print_line("failed to get record table metadata!!");
        return result;
    }
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return response[kPldmCompletionCode];
    }
    return table_length_of(*ctx, response, "pldm_get_FRU_record_table_metadata", *table_length)
               ? 0
               : -1;
}

int32_t pldm_get_FRU_record_table(pldm_ctx* ctx, uint8_t* destination, uint32_t expected_length) {
    if (!can_exchange(ctx) || destination == nullptr) {
        return -1;
    }
    uint32_t length = 0;
    const int32_t result = learn_table_length(*ctx, expected_length, length);
    return result < 0 ? result : read_parts(*ctx, {destination, length});
}

int32_t pldm_get_FRU_record_table_MX(pldm_ctx* ctx, uint8_t* destination, int32_t length) {
    if (!can_exchange(ctx) || destination == nullptr || length < 0) {
        return -1;
    }
    const auto size = static_cast<size_t>(length);
    std::span<uint8_t> rest(destination, size);
    std::memset(destination, 0, size);
    std::array<uint8_t, 64> response;
    TableRequest request;
    SurplusReport surplus(kFixedReader);
    do {
        bool ended = false;
        const int32_t result = exchange_fixed_part(*ctx, request, response, ended);
        if (ended) {
            return result;
        }
        const bool last = is_last(response);
        const size_t needed = last ? 0 : std::min<size_t>(rest.size(), PLDM_FRU_PART_SIZE);
        if (!pldm_response_has(*ctx, kFlagEnd + needed)) {
            too_short(*ctx, kFixedReader);
            return -1;
        }
        if (last) {
            take_last_fixed_part(*ctx, response, rest, size);
            return result;
        }
        take_fixed_part(response, rest, size);
        if (rest.empty()) {
            return result;
        }
        surplus.look(*ctx, response, rest.size());
        request.ask_next(response);
    } while (true);
}

int32_t pldm_get_FRU_fields(pldm_ctx* ctx, uint32_t field_id) {
    if (field_id < PLDM_FRU_FIELD_TYPE_MIN || field_id > PLDM_FRU_FIELD_TYPE_MAX) {
        std::printf("%d - error fieldId. can't get the fields\n", static_cast<int>(field_id));
        return -1;
    }
    uint32_t length = 0;
    HeapPtr<uint8_t[]> table;
    int32_t result = can_exchange(ctx) ? learn_table_length(*ctx, 0, length) : -1;
    if (result == 0) {
        table = allocate_bytes(std::max<size_t>(length, 1));
        result = table == nullptr ? PLDM_ERROR_ARGUMENT : read_parts(*ctx, {table.get(), length});
    }
    if (result < 0) {
        print_line("Fail - get FRU record table fail");
        return -2;
    }
    const int32_t printed = print_fields({table.get(), length}, field_id);
    return result != 0 && printed != -3 ? result : printed;
}
