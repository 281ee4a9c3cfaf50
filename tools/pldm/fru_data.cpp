// SPDX-License-Identifier: Apache-2.0
// The FRU record table of a terminus (DSP0257): all of its records, as far as they can be read.
#include "tools/pldm/fru_data.h"

#include <fmt/format.h>
#include <sideband/pldm_fru.h>

#include <algorithm>
#include <cstdlib>

#include "common/wire.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using sideband::WireReader;

constexpr uint8_t kGeneralRecord = 1;
constexpr uint8_t kOemRecord = 254;
constexpr uint8_t kManufactureDate = 6;
constexpr uint8_t kVendorIana = 15;
constexpr uint8_t kOemVendorIana = 1;
constexpr size_t kRecordHeader = 5;

/// A record of the library's, given back at the end of its scope.
class ParsedRecord {
public:
    ParsedRecord() = default;
    ~ParsedRecord() { freeFRUdata(&record); }
    ParsedRecord(const ParsedRecord&) = delete;
    ParsedRecord& operator=(const ParsedRecord&) = delete;

    pldm_fru_record record{};
};

/// The library parses the first record of what it is given.
/// @return its length; 0 if it cannot be parsed
size_t parse_first(std::span<const uint8_t> table, FruRecord& record) {
    ParsedRecord parsed;
    if (pldm_parse_record_table(table.data(), &parsed.record,
                                static_cast<uint32_t>(table.size())) != 0) {
        return 0;
    }
    const pldm_fru_record& first = parsed.record;
    record = {.set_identifier = first.set_identifier,
              .type = first.type,
              .encoding = first.encoding_type,
              .fields = {}};
    size_t length = kRecordHeader;
    for (size_t i = 0; i < first.number_of_fields; ++i) {
        const pldm_fru_field& field = first.fields[i];
        record.fields.push_back({.type = field.type, .value = {}});
        record.fields.back().value.assign(field.value, field.value + field.length);
        length += 2U + field.length;
    }
    return length;
}

/// All records; each takes some of the table, so that their number has a bound.
void parse_records(const Session& session, std::span<const uint8_t> table, FruData& result) {
    size_t at = 0;
    while (table.size() - at >= kRecordHeader) {
        FruRecord record;
        const size_t length = parse_first(table.subspan(at), record);
        if (length == 0) {
            break;
        }
        result.records.push_back(std::move(record));
        at += length;
    }
    const std::span<const uint8_t> rest = table.subspan(at);
    if (std::any_of(rest.begin(), rest.end(), [](uint8_t byte) { return byte != 0; })) {
        result.failure = Failure(
            session.endpoint().name, "parsing the FRU record table",
            fmt::format("no record in the last {} of its {} bytes", rest.size(), table.size()));
    }
}

/// What begins with a control character is a number in the place of a text. Behind the first one,
/// control characters are somebody's mischief or mistake, and what is around them can be read.
bool is_text(std::span<const uint8_t> bytes) {
    return bytes.empty() || (bytes[0] >= 0x20 && bytes[0] != 0x7F);
}

/// The bytes without the NULs that some devices fill their fields with.
std::span<const uint8_t> without_padding(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && bytes.back() == 0) {
        bytes = bytes.first(bytes.size() - 1);
    }
    return bytes;
}

/// Text in one of the encodings; hex if it is none.
std::string text_of(std::span<const uint8_t> bytes, uint8_t encoding) {
    enum : uint8_t { kUtf8 = 2, kUtf16 = 3, kUtf16Le = 4, kUtf16Be = 5 };
    constexpr uint8_t kMarkLe[] = {0xFF, 0xFE};
    if (encoding >= kUtf16 && encoding <= kUtf16Be) {
        const bool marked = encoding == kUtf16 && bytes.size() >= 2;
        const bool little =
            encoding == kUtf16Le || (marked && std::equal(kMarkLe, kMarkLe + 2, bytes.begin()));
        const bool big_mark = marked && bytes[0] == 0xFE && bytes[1] == 0xFF;
        const bool skip = encoding == kUtf16 && (little || big_mark);
        return printable(utf16_text(bytes.subspan(skip ? 2 : 0), !little));
    }
    const std::span<const uint8_t> text = without_padding(bytes);
    const bool ascii = std::all_of(text.begin(), text.end(), [](uint8_t b) { return b < 0x80; });
    if (!is_text(text) || (!ascii && encoding != kUtf8)) {
        return "0x" + hex(bytes);
    }
    return printable(std::string(text.begin(), text.end()));
}

}  // namespace

std::string timestamp_text(std::span<const uint8_t> bytes) {
    constexpr size_t kSize = 13;
    WireReader reader(bytes);
    const auto offset = static_cast<int16_t>(reader.le16());
    reader.skip(3);  // microseconds
    const uint8_t second = reader.u8();
    const uint8_t minute = reader.u8();
    const uint8_t hour = reader.u8();
    const uint8_t day = reader.u8();
    const uint8_t month = reader.u8();
    const uint16_t year = reader.le16();
    const bool date = bytes.size() == kSize && month >= 1 && month <= 12 && day >= 1 && day <= 31;
    if (!date || hour > 23 || minute > 59 || second > 60) {
        return "";
    }
    std::string text =
        fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", year, month, day, hour, minute, second);
    if (offset != 0) {
        const int minutes = std::abs(static_cast<int>(offset));
        text += fmt::format(" {}{:02}:{:02}", offset < 0 ? '-' : '+', minutes / 60, minutes % 60);
    }
    return text;
}

std::string fru_value_text(const FruRecord& record, const FruField& field) {
    const bool general = record.type == kGeneralRecord;
    const bool number = (general && field.type == kVendorIana) ||
                        (record.type == kOemRecord && field.type == kOemVendorIana);
    if (number && field.value.size() == sizeof(uint32_t)) {
        return std::to_string(WireReader(field.value).le32());
    }
    if (general && field.type == kManufactureDate) {
        const std::string date = timestamp_text(field.value);
        return date.empty() ? "0x" + hex(field.value) : date;
    }
    if (!general && !number) {
        // Nobody but its vendor knows what it is; many are text.
        return text_of(field.value, record.encoding);
    }
    return number ? "0x" + hex(field.value) : text_of(field.value, record.encoding);
}

FruData read_fru(Session& session, bool fixed_parts) {
    constexpr size_t kVersionsAt = 4;
    FruData table;
    session.check_pldm(pldm_get_FRU_record_table_metadata(&session.pldm(), &table.length),
                       "GetFRURecordTableMetadata");
    table.major_version = session.last_answer()[kVersionsAt];
    table.minor_version = session.last_answer()[kVersionsAt + 1];
    const std::string operation = "GetFRURecordTable";
    if (table.length == 0 || table.length > PLDM_FRU_TABLE_LENGTH_MAX) {
        throw Failure(session.endpoint().name, operation,
                      fmt::format("the table is said to have {} bytes", table.length));
    }
    std::vector<uint8_t> bytes(table.length);
    session.check_pldm(fixed_parts
                           ? pldm_get_FRU_record_table_MX(&session.pldm(), bytes.data(),
                                                          static_cast<int32_t>(bytes.size()))
                           : pldm_get_FRU_record_table(&session.pldm(), bytes.data(), table.length),
                       operation);
    parse_records(session, bytes, table);
    if (table.records.empty() && !table.failure) {
        throw Failure(session.endpoint().name, operation, "the table is empty");
    }
    return table;
}

}  // namespace tool
