// SPDX-License-Identifier: Apache-2.0
// The FRU record table: its metadata and two ways to read it in parts (DSP0257).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fru.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/crc.h"
#include "common/memory.h"
#include "common/output.h"
#include "common/printable.h"
#include "common/wire.h"
#include "pldm/fru_record.h"
#include "pldm/message.h"
#include "pldm/strict.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetFruRecordTableMetadata = 0x01,
    kGetFruRecordTable = 0x02,
};

constexpr const char* kReader = "pldm_get_FRU_record_table";
constexpr const char* kFixedReader = "pldm_get_FRU_record_table_MX";

// ---- Metadata ----

/// Room for the answer.
using MetadataRoom = std::array<uint8_t, 22>;

/// @param announcement  printed before the exchange
PldmAnswer exchange_metadata(pldm_ctx& ctx, const char* announcement, MetadataRoom& room) {
    PldmRequest request(PLDM_TYPE_FRU, kGetFruRecordTableMetadata);
    print_line(announcement);
    const PldmAnswer answer = exchange(ctx, request, room);
    print_line("call get FRU record table metadata");
    return answer;
}

/// What the metadata tell of the table.
struct TableFacts {
    uint32_t length;
    uint32_t checksum;  ///< zero if it is not wanted
};

/// @param with_checksum  whether the answer must have it
/// @return 0 or a negative result, with which the facts are left alone
int32_t take_table_facts(PldmAnswer& answer, const char* function, bool with_checksum,
                         TableFacts& facts) {
    TableFacts told{};
    answer.body.skip(6);  // versions of the FRU data, the largest size of the table
    told.length = answer.body.le32();
    if (with_checksum) {
        answer.body.skip(4);  // numbers of record sets and of records
        told.checksum = answer.body.le32();
    }
    const int32_t result = finish(answer, function);
    if (result == 0) {
        facts = told;
    }
    return result;
}

// ---- Table ----

/// Records that there is no memory to read a table into. @return PLDM_ERROR_ARGUMENT
[[gnu::cold]] int32_t out_of_memory(pldm_ctx& ctx) {
    ctx.last_error = error_of(SIDEBAND_CAUSE_MEMORY, SIDEBAND_STEP_PLDM, kGetFruRecordTable);
    return PLDM_ERROR_ARGUMENT;
}

/// GetFRURecordTable response in front of its data.
constexpr size_t kPartHeaderSize = PLDM_RESPONSE_HEADER_SIZE + 5;

/// What is in front of the data of a part.
struct PartHeader {
    uint32_t next_handle;
    bool is_last;

    explicit PartHeader(WireReader& body) {
        next_handle = body.le32();
        is_last = is_last_part(body.u8());
    }
};

class TableRequest {
public:
    TableRequest() { request_.fields.le32(0).u8(kGetFirstPart); }

    void ask_next(uint32_t handle) { request_.clear_fields().le32(handle).u8(kGetNextPart); }

    PldmAnswer exchange_with(pldm_ctx& ctx, std::span<uint8_t> room) {
        return exchange(ctx, request_, room);
    }

private:
    PldmRequest request_{PLDM_TYPE_FRU, kGetFruRecordTable};
};

/// Bytes of data in a part, as the device has sent them.
int data_length(const PldmAnswer& answer) {
    return answer.length - static_cast<int>(kPartHeaderSize);
}

/// Says of the first part of a table that carries more than is taken of it that the table is wrong.
class SurplusReport {
public:
    explicit SurplusReport(const char* function) : function_(function) {}

    /// @param answer  with a part that is neither the last one nor completes the table: behind one
    ///                that does, there may be pad bytes and the checksum
    void look(const PldmAnswer& answer) {
        constexpr int32_t kTaken = kPartHeaderSize + PLDM_FRU_PART_SIZE;
        if (said_ || !answer.length_known || answer.length <= kTaken) {
            return;
        }
        said_ = true;
        debug_log("%s, part of %d bytes is not the last: those behind %d are lost\n", function_,
                  data_length(answer), PLDM_FRU_PART_SIZE);
    }

private:
    const char* function_;
    bool said_ = false;
};

/// The name of a completion code that ends the transfer; null for the other ones, which do not.
const char* ending_code_name(uint8_t code) {
    switch (code) {
        case PLDM_FRU_CC_INVALID_DATA_TRANSFER_HANDLE:
            return "PLDM_FRU_INVALID_DATA_TRANSFER_HANDLE";
        case PLDM_FRU_CC_INVALID_TRANSFER_OPERATION_FLAG:
            return "PLDM_FRU_INVALID_TRANSFER_OPERATION_FLAG";
        case PLDM_FRU_CC_TABLE_UNAVAILABLE:
            // Misspelt on the consoles of deployed firmware, and matched there.
            return "PLDM_FRU_DATA_STRUCT_TABLE_UNAVALIABLE";
        default:
            return nullptr;
    }
}

/// Asks for the metadata, and judges the length that they tell.
/// @param expected  length; 0: any
/// @return 0 or a negative result
int32_t learn_table_facts(pldm_ctx& ctx, uint32_t expected, TableFacts& facts) {
    MetadataRoom room{};
    PldmAnswer answer = exchange_metadata(ctx, "start to send get PLDM metadata message", room);
    if (answer.result < 0) {
        print_line("Fail - can't get the record table metadata");
    }
    // The completion code is deliberately not looked at.
    const int32_t result = take_table_facts(answer, kReader, is_strict(ctx), facts);
    if (result < 0) {
        return result;
    }
    const uint32_t length = facts.length;
    if (expected != 0 && expected != length) {
        fail_command(ctx, SIDEBAND_CAUSE_MALFORMED);
        return PLDM_ERROR_ARGUMENT;
    }
    print_formatted("recordTable_length = %d\n", static_cast<int>(length));
    if (length > PLDM_FRU_TABLE_LENGTH_MAX) {
        debug_log("%s, table of %u bytes is too long\n", kReader, length);
        fail_command(ctx, SIDEBAND_CAUSE_MALFORMED);
        return PLDM_ERROR_ARGUMENT;
    }
    return 0;
}

/// Takes the data of one part.
/// @param rest  the part of the table that is still to come; cut to what is to come after this
/// @return 0, PLDM_ERROR_ARGUMENT if the part is shorter than it must be
int32_t take_part(PldmAnswer& answer, bool last, std::span<uint8_t>& rest) {
    const auto remaining = static_cast<int>(rest.size());
    if (last) {
        print_formatted("dump tmp_buf1, tem_len = %d\n", remaining);
    } else {
        print_formatted("dump tmp_buf2, tem_len = %d, maxlen = %d\n", remaining,
                        PLDM_FRU_PART_SIZE);
    }
    const size_t size = last ? rest.size() : std::min<size_t>(rest.size(), PLDM_FRU_PART_SIZE);
    const std::span<const uint8_t> data = answer.body.bytes(size);
    if (finish(answer, kReader) < 0) {
        return PLDM_ERROR_ARGUMENT;
    }
    WireWriter(rest).bytes(data);
    if (!last && size != 0 && size < PLDM_FRU_PART_SIZE) {
        print_formatted("dump tmp_buf3, tem_len = %d, maxlen = %d\n", remaining,
                        PLDM_FRU_PART_SIZE);
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
        return out_of_memory(ctx);
    }
    print_formatted("buf size = %d, RECORD_TABLE_RESP_REMAINING_BYTE =%d\n", static_cast<int>(size),
                    kBehindHeader);
    const std::span<uint8_t> response(room.get(), size);
    TableRequest request;
    SurplusReport surplus(kReader);
    for (std::span<uint8_t> rest = table;;) {
        PldmAnswer answer = request.exchange_with(ctx, response);
        if (answer.result < 0) {
            print_formatted("%s-%d command fail\n", kReader, 216);
            return answer.result;
        }
        const uint8_t code = answer.header.completion;
        if (const char* name = ending_code_name(code)) {
            print_line(name);
            return code;
        }
        const PartHeader part(answer.body);
        if (finish(answer, kReader) < 0 || take_part(answer, part.is_last, rest) < 0) {
            return PLDM_ERROR_ARGUMENT;
        }
        // Each part takes some of the rest, so a device that never ends cannot keep this up.
        if (rest.empty()) {
            return code;
        }
        surplus.look(answer);
        request.ask_next(part.next_handle);
    }
}

// ---- Table in parts of any size, with its checksum ----

constexpr size_t kChecksumSize = 4;

/// Bytes of a table with the pad bytes behind it.
size_t padded(size_t size) {
    return (size + 3) / 4 * 4;
}

/// Reads table, pad bytes and checksum.
/// @param room   for answers
/// @param whole  as long as all three are together
/// @return 0, a negative result or the completion code that transfer_op passed through
int32_t collect_parts(pldm_ctx& ctx, const char* function, std::span<uint8_t> room,
                      std::span<uint8_t> whole) {
    TableRequest request;
    for (std::span<uint8_t> rest = whole;;) {
        PldmAnswer answer = request.exchange_with(ctx, room);
        if (answer.result < 0 || answer.header.completion != PLDM_CC_SUCCESS) {
            return answer.result < 0 ? answer.result : answer.header.completion;
        }
        const PartHeader part(answer.body);
        const std::span<const uint8_t> data = answer.body.rest();
        // Each part brings some of the rest, so that a device that never ends cannot keep this up.
        if (finish(answer, function) < 0) {
            return PLDM_ERROR_ARGUMENT;
        }
        if (data.empty() || data.size() > rest.size() ||
            part.is_last != (data.size() == rest.size())) {
            debug_log("%s, part of %d bytes: the table has %d more\n", function,
                      data_length(answer), static_cast<int>(rest.size()));
            fail_command(ctx, SIDEBAND_CAUSE_MALFORMED);
            return PLDM_ERROR_ARGUMENT;
        }
        WireWriter(rest).bytes(data);
        rest = rest.subspan(data.size());
        if (part.is_last) {
            return 0;
        }
        request.ask_next(part.next_handle);
    }
}

/// Reads a table as the standard has it.
/// @param told   checksum of the metadata, if there are any
/// @param table  at most PLDM_FRU_TABLE_LENGTH_MAX bytes; receives the table once its checksum is
///               seen to be right
/// @return as collect_parts()
int32_t read_checked(pldm_ctx& ctx, const char* function, const uint32_t* told,
                     std::span<uint8_t> table) {
    const size_t size = padded(table.size()) + kChecksumSize;
    const auto room = allocate_bytes(kPartHeaderSize + size);
    const auto whole = allocate_bytes(size);
    if (room == nullptr || whole == nullptr) {
        return out_of_memory(ctx);
    }
    const int32_t result =
        collect_parts(ctx, function, {room.get(), kPartHeaderSize + size}, {whole.get(), size});
    if (result != 0) {
        return result;
    }
    WireReader reader({whole.get(), size});
    const uint32_t computed = crc32(0, reader.bytes(padded(table.size())));
    if (reader.le32() != computed || (told != nullptr && *told != computed)) {
        debug_log("%s, the checksum of the table is wrong\n", function);
        fail_command(ctx, SIDEBAND_CAUSE_WRONG_CHECK);
        return PLDM_ERROR_ARGUMENT;
    }
    WireWriter(table).bytes({whole.get(), table.size()});
    return 0;
}

/// @param destination  room for a table of the length in the metadata
/// @return the last completion code, or a negative result
int32_t read_table(pldm_ctx& ctx, const TableFacts& facts, uint8_t* destination) {
    const std::span<uint8_t> table(destination, facts.length);
    return is_strict(ctx) ? read_checked(ctx, kReader, &facts.checksum, table)
                          : read_parts(ctx, table);
}

// ---- Table in answers of one size ----

constexpr const char* kRule = "===================================";

/// One exchange of the reader for answers of one size, framed by its lines.
/// @param ended  set if the transfer cannot go on
PldmAnswer exchange_fixed_part(pldm_ctx& ctx, TableRequest& request, std::span<uint8_t> room,
                               bool& ended) {
    ended = true;
    std::memset(room.data(), 0, room.size());
    print_line("====== pldm_get_FRU_record_table_M1 Req =====");
    print_line(kRule);
    const PldmAnswer answer = request.exchange_with(ctx, room);
    if (answer.result < 0) {
        print_on_console("%s command fail\n", kFixedReader);
        return answer;
    }
    const uint8_t code = answer.header.completion;
    if (const char* name = ending_code_name(code)) {
        print_on_console("%s\n", name);
        return answer;
    }
    print_line("====== pldm_get_FRU_record_table_M1 Resp =====");
    print_line(kRule);
    print_formatted("%s resp.h.completion =%d\n", kFixedReader, code);
    ended = false;
    return answer;
}

/// Copies what the last part brings.
void take_last_fixed_part(const PldmAnswer& answer, std::span<uint8_t> rest, size_t length) {
    if (rest.size() > PLDM_FRU_PART_SIZE) {
        print_on_console("len fail tmp_len =%d, data_len =%d\n", static_cast<int>(rest.size()),
                         static_cast<int>(length - rest.size()));
        return;
    }
    const std::span<const uint8_t> data = answer.body.rest();
    if (data.size() < rest.size()) {
        debug_log("%s, last part of %d bytes: %d are wanted\n", kFixedReader, data_length(answer),
                  static_cast<int>(rest.size()));
    }
    WireWriter(rest).bytes(data.first(std::min(data.size(), rest.size())));
    print_formatted("tmp_len =%d, data_len =%d\n", 0, static_cast<int>(length));
}

/// Copies a part that is not the last one, or what of it there is room for.
/// @param rest  empty afterwards if there will be no other part
void take_fixed_part(std::span<const uint8_t> data, std::span<uint8_t>& rest, size_t length) {
    WireWriter(rest).bytes(data);
    rest = rest.subspan(data.size());
    if (data.size() == PLDM_FRU_PART_SIZE) {
        print_formatted("tmp_len =%d, data_len =%d\n", static_cast<int>(rest.size()),
                        static_cast<int>(length - rest.size()));
        return;
    }
    print_line("=============Warning==============");
    print_formatted("dump tmp_buf3, tem_len = %d, maxlen = %d\n", static_cast<int>(data.size()),
                    PLDM_FRU_PART_SIZE);
}

/// Prints what pldm_get_FRU_fields() is asked for, or records why not. @return 0, a negative result
int32_t print_fields(pldm_ctx& ctx, std::span<const uint8_t> table, uint32_t field_id) {
    pldm_fru_record record;
    uint8_t cause = parse_fru_record(table, record);
    int32_t result = cause == SIDEBAND_CAUSE_NONE ? 0 : PLDM_ERROR_ARGUMENT;
    if (record.number_of_fields > PLDM_FRU_FIELDS_MAX) {
        print_formatted("%d field nums is too much, please check\n", record.number_of_fields);
        cause = SIDEBAND_CAUSE_MALFORMED;
        result = -3;
    } else {
        print_formatted("field_num = %d\n", record.number_of_fields);
    }
    for (int i = 0; result == 0 && i < record.number_of_fields; ++i) {
        if (record.fields[i].type == field_id) {
            print_formatted("FRUData.fields[%d].ctx = %s\n", i,
                            Printable(record.fields[i].value).text());
        }
    }
    freeFRUdata(&record);
    if (result != 0) {
        fail(ctx.last_error, cause);
        record_step(ctx.last_error, SIDEBAND_STEP_PLDM, kGetFruRecordTable);
    }
    return result;
}

}  // namespace

int32_t pldm_get_FRU_record_table_metadata(pldm_ctx* ctx, uint32_t* table_length) {
    if (!begin(ctx) || table_length == nullptr) {
        return -1;
    }
    MetadataRoom room{};
    PldmAnswer answer = exchange_metadata(*ctx, "start to send PLDM message", room);
    if (answer.result < 0) {
        print_line("failed to get record table metadata!!");
        return answer.result;
    }
    if (answer.header.completion != PLDM_CC_SUCCESS) {
        return answer.header.completion;
    }
    TableFacts facts{*table_length, 0};
    const int32_t result =
        take_table_facts(answer, "pldm_get_FRU_record_table_metadata", false, facts);
    *table_length = facts.length;
    return result;
}

int32_t pldm_get_FRU_record_table(pldm_ctx* ctx, uint8_t* destination, uint32_t expected_length) {
    if (!begin(ctx) || destination == nullptr) {
        return -1;
    }
    TableFacts facts{};
    const int32_t result = learn_table_facts(*ctx, expected_length, facts);
    return result < 0 ? result : read_table(*ctx, facts, destination);
}

int32_t pldm_get_FRU_record_table_MX(pldm_ctx* ctx, uint8_t* destination, int32_t length) {
    if (!begin(ctx) || destination == nullptr || length < 0) {
        return -1;
    }
    const auto size = static_cast<size_t>(length);
    std::span<uint8_t> rest(destination, size);
    std::memset(destination, 0, size);
    if (is_strict(*ctx)) {
        return size <= PLDM_FRU_TABLE_LENGTH_MAX ? read_checked(*ctx, kFixedReader, nullptr, rest)
                                                 : PLDM_ERROR_ARGUMENT;
    }
    std::array<uint8_t, 64> room;
    TableRequest request;
    SurplusReport surplus(kFixedReader);
    do {
        bool ended = false;
        PldmAnswer answer = exchange_fixed_part(*ctx, request, room, ended);
        if (ended) {
            return answer.result;
        }
        const PartHeader part(answer.body);
        const size_t wanted = part.is_last ? 0 : std::min<size_t>(rest.size(), PLDM_FRU_PART_SIZE);
        const std::span<const uint8_t> data = answer.body.bytes(wanted);
        if (finish(answer, kFixedReader) < 0) {
            return -1;
        }
        if (part.is_last) {
            take_last_fixed_part(answer, rest, size);
            return answer.result;
        }
        take_fixed_part(data, rest, size);
        if (rest.empty()) {
            return answer.result;
        }
        surplus.look(answer);
        request.ask_next(part.next_handle);
    } while (true);
}

int32_t pldm_get_FRU_fields(pldm_ctx* ctx, uint32_t field_id) {
    const bool can_ask = begin(ctx);
    if (field_id < PLDM_FRU_FIELD_TYPE_MIN || field_id > PLDM_FRU_FIELD_TYPE_MAX) {
        print_formatted("%d - error fieldId. can't get the fields\n", static_cast<int>(field_id));
        return -1;
    }
    TableFacts facts{};
    HeapPtr<uint8_t[]> table;
    int32_t result = can_ask ? learn_table_facts(*ctx, 0, facts) : -1;
    if (result == 0) {
        table = allocate_bytes(std::max<size_t>(facts.length, 1));
        result = table == nullptr ? out_of_memory(*ctx) : read_table(*ctx, facts, table.get());
    }
    if (result < 0) {
        print_line("Fail - get FRU record table fail");
        return -2;
    }
    const int32_t printed = print_fields(*ctx, {table.get(), facts.length}, field_id);
    return result != 0 && printed != -3 ? result : printed;
}
