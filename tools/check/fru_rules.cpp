// SPDX-License-Identifier: Apache-2.0
// Rules on the FRU record table (DSP0257).
#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

enum FruCommand : uint8_t { kGetMetadata = 0x01, kGetTable = 0x02 };

// Completion codes of the FRU commands.
constexpr uint8_t kInvalidTransferHandle = 0x80;
constexpr uint8_t kInvalidOperationFlag = 0x81;
constexpr uint8_t kNoTable = 0x85;

constexpr size_t kPartHead = 5;  // next transfer handle, transfer flag
constexpr size_t kChecksumSize = 4;
/// A table in more parts, or of more bytes, is not read to its end.
constexpr size_t kMostParts = 4096;
constexpr size_t kMostBytes = 4u << 20;

// ---- GetFRURecordTableMetadata ------------------------------------------------------------------

struct Metadata {
    Exchange exchange;
    uint8_t major = 0;
    uint32_t length = 0;
    uint16_t sets = 0;
    uint16_t records = 0;
    uint32_t checksum = 0;
};

Exchange ask_metadata(Device& device) {
    need_pldm_command(device, kFru, kGetMetadata, "GetFRURecordTableMetadata");
    return recall_pldm(device, kFru, kGetMetadata);
}

Metadata metadata_of(Device& device) {
    Metadata metadata;
    metadata.exchange = ask_metadata(device);
    sideband::WireReader reader(pldm_data(metadata.exchange, "GetFRURecordTableMetadata"));
    metadata.major = reader.u8();
    reader.skip(5);  // minor version, maximum size
    metadata.length = reader.le32();
    metadata.sets = reader.le16();
    metadata.records = reader.le16();
    metadata.checksum = reader.le32();
    if (!reader.ok()) {
        not_applicable("GetFRURecordTableMetadata is too short");
    }
    return metadata;
}

void metadata_has_its_length(Device& device) {
    expect_pldm_success(ask_metadata(device), kPldmHeader + 1 + 18);
}

void metadata_has_the_version(Device& device) {
    const Metadata metadata = metadata_of(device);
    expect(metadata.major == 1, metadata.exchange, "FRU data major version 1");
}

// ---- GetFRURecordTable --------------------------------------------------------------------------

Exchange ask_table(Device& device, uint32_t handle, uint8_t operation) {
    need_pldm_command(device, kFru, kGetTable, "GetFRURecordTable");
    return ask_pldm(device, kFru, kGetTable, Bytes(Body().le32(handle).u8(operation)));
}

/// The table as it was read.
struct Table {
    Bytes bytes;
    size_t parts = 0;
    std::string trouble;
    Exchange first;
    Exchange last;
};

void read_parts(Device& device, Table& table) {
    uint32_t handle = 0;
    for (bool last = false; !last;) {
        table.last = ask_table(device, handle, table.parts == 0 ? kGetFirstPart : kGetNextPart);
        if (table.parts++ == 0) {
            table.first = table.last;
        }
        const std::span<const uint8_t> answer = response_of(table.last);
        if (pldm_code(table.last) != kSuccess || answer.size() <= kPldmHeader + 1 + kPartHead) {
            table.trouble = "a part of the table";
            return;
        }
        sideband::WireReader reader(pldm_data(table.last, "GetFRURecordTable"));
        handle = reader.le32();
        last = (reader.u8() & kLastPart) != 0;
        table.bytes.insert(table.bytes.end(), reader.rest().begin(), reader.rest().end());
        if (table.parts > kMostParts || table.bytes.size() > kMostBytes) {
            table.trouble =
                fmt::format("an end within {} parts of {} bytes", kMostParts, kMostBytes);
            return;
        }
    }
}

Table read_table(Device& device) {
    Table table;
    try {
        read_parts(device, table);
    } catch (const Finding& finding) {
        table.trouble = finding.text;  // it took too long, and is not tried again
    }
    return table;
}

const Table& table_of(Device& device) {
    need_pldm_command(device, kFru, kGetTable, "GetFRURecordTable");
    return device.once(read_table);
}

const Table& whole_table(Device& device) {
    const Table& table = table_of(device);
    if (!table.trouble.empty() || table.bytes.size() < kChecksumSize) {
        not_applicable("the FRU record table cannot be read to its end");
    }
    return table;
}

void table_ends(Device& device) {
    const Table& table = table_of(device);
    if (pldm_code(table.last) == kNoTable) {
        not_applicable("the device says that it has no table now");
    }
    if (!table.trouble.empty()) {
        fail(table.last, table.trouble);
    }
}

void only_part_is_marked(Device& device) {
    const Table& table = whole_table(device);
    if (table.parts > 1) {
        not_applicable("the table comes in parts");
    }
    sideband::WireReader reader(pldm_data(table.first, "GetFRURecordTable"));
    reader.skip(4);
    expect(reader.u8() == kOnlyPart, table.first, "StartAndEnd (5) in the only part");
}

void table_can_be_repeated(Device& device) {
    const Table& table = whole_table(device);
    const Table again = read_table(device);
    if (again.bytes != table.bytes) {
        fail({table.last, again.last}, "the same table twice");
    }
}

void transfer_can_begin_anew(Device& device) {
    const Table& table = whole_table(device);
    if (table.parts == 1) {
        not_applicable("the table comes in one part");
    }
    ask_table(device, 0, kGetFirstPart);
    const Table again = read_table(device);
    if (again.bytes != table.bytes) {
        fail({table.last, again.last}, "the whole table behind a transfer that was given up");
    }
}

uint32_t checksum_of(const Table& table) {
    sideband::WireReader reader(std::span(table.bytes).last(kChecksumSize));
    return reader.le32();
}

void table_has_its_checksum(Device& device) {
    const Table& table = whole_table(device);
    const uint32_t checksum =
        crc32_of(std::span(table.bytes).first(table.bytes.size() - kChecksumSize));
    if (checksum_of(table) != checksum) {
        fail(table.last,
             fmt::format("the CRC-32 of records and padding at the end, 0x{:08x}", checksum));
    }
}

void metadata_has_the_checksum(Device& device) {
    const Table& table = whole_table(device);
    const Metadata metadata = metadata_of(device);
    if (metadata.checksum != checksum_of(table)) {
        fail({metadata.exchange, table.last}, "the checksum that ends the table");
    }
}

// ---- The records --------------------------------------------------------------------------------

/// What the records of a table say.
struct Records {
    std::set<uint16_t> sets;
    std::set<uint8_t> encodings;
    std::set<uint8_t> general_fields;  ///< types of the fields of general records
    bool whole = true;                 ///< every field is
    Bytes padding;                     ///< between the last record and the checksum
};

constexpr uint8_t kGeneralRecord = 1;

/// Reads as many records as the metadata count, in front of the checksum.
Records records_of(Device& device) {
    const Table& table = whole_table(device);
    sideband::WireReader reader(std::span(table.bytes).first(table.bytes.size() - kChecksumSize));
    Records records;
    for (size_t left = metadata_of(device).records; left > 0 && reader.ok(); --left) {
        records.sets.insert(reader.le16());
        const uint8_t type = reader.u8();
        size_t fields = reader.u8();
        records.encodings.insert(reader.u8());
        for (; fields > 0 && reader.ok(); --fields) {
            const uint8_t field = reader.u8();
            reader.skip(reader.u8());
            if (type == kGeneralRecord) {
                records.general_fields.insert(field);
            }
        }
    }
    records.whole = reader.ok();
    records.padding.assign(reader.rest().begin(), reader.rest().end());
    return records;
}

Records whole_records(Device& device) {
    Records records = records_of(device);
    if (!records.whole) {
        not_applicable("the records do not fit the table");
    }
    return records;
}

void records_fill_the_table(Device& device) {
    const Records records = records_of(device);
    constexpr size_t kMostPadding = 3;
    expect(records.whole && records.padding.size() <= kMostPadding, whole_table(device).last,
           "as many records as the metadata count, and at most three bytes of padding");
}

void padding_is_zero(Device& device) {
    const Records records = whole_records(device);
    const Table& table = whole_table(device);
    expect(std::ranges::all_of(records.padding, [](uint8_t byte) { return byte == 0; }), table.last,
           "padding of zeros");
    expect(table.bytes.size() % 4 == 0, table.last, "a table padded to a multiple of four bytes");
}

void metadata_tells_the_length(Device& device) {
    const Records records = whole_records(device);
    const Table& table = whole_table(device);
    const Metadata metadata = metadata_of(device);
    const size_t length = table.bytes.size() - kChecksumSize - records.padding.size();
    expect(metadata.length >= length && metadata.length <= table.bytes.size(), metadata.exchange,
           "the length of the table");
}

void metadata_counts_the_sets(Device& device) {
    const Records records = whole_records(device);
    const Metadata metadata = metadata_of(device);
    if (metadata.sets != records.sets.size()) {
        fail(metadata.exchange, fmt::format("{} record set identifiers", records.sets.size()));
    }
}

void encodings_are_defined(Device& device) {
    constexpr uint8_t kLastEncoding = 5;  // UTF16-BE
    for (const uint8_t encoding : whole_records(device).encodings) {
        expect(encoding <= kLastEncoding, whole_table(device).last, "field encodings from 0 to 5");
    }
}

void general_fields_are_defined(Device& device) {
    constexpr uint8_t kLastField = 15;  // vendor IANA
    for (const uint8_t field : whole_records(device).general_fields) {
        expect(field >= 1 && field <= kLastField, whole_table(device).last,
               "field types from 1 to 15 in general records");
    }
}

// ---- What is refused ----------------------------------------------------------------------------

void unknown_operation_is_refused(Device& device) {
    expect_pldm_code(ask_table(device, 0, kNoOperation), kInvalidOperationFlag,
                     "INVALID_TRANSFER_OPERATION_FLAG");
}

void unknown_transfer_is_refused(Device& device) {
    expect_pldm_code(ask_table(device, 0xFFFFFFFE, kGetNextPart), kInvalidTransferHandle,
                     "INVALID_DATA_TRANSFER_HANDLE");
}

void short_request_is_refused(Device& device) {
    need_pldm_command(device, kFru, kGetTable, "GetFRURecordTable");
    expect_pldm_code(ask_pldm(device, kFru, kGetTable, Bytes(4)), kInvalidLength,
                     "ERROR_INVALID_LENGTH");
}

constexpr Rule kRules[] = {
    {"fru.metadata.length", "DSP0257, GetFRURecordTableMetadata",
     "GetFRURecordTableMetadata succeeds, with 18 bytes", metadata_has_its_length},
    {"fru.metadata.version", "DSP0257, GetFRURecordTableMetadata", "the major version is 1",
     metadata_has_the_version},
    {"fru.table.end", "DSP0257, GetFRURecordTable", "the table comes to its end", table_ends},
    {"fru.table.transfer-flag", "DSP0257, GetFRURecordTable", "a table in one part says so",
     only_part_is_marked},
    {"fru.table.repeat", "DSP0257, GetFRURecordTable", "the table can be read twice",
     table_can_be_repeated},
    {"fru.table.begin-anew", "DSP0257, GetFRURecordTable",
     "a transfer can be given up, and the table be read again", transfer_can_begin_anew},
    {"fru.table.checksum", "DSP0257, GetFRURecordTable", "the table ends with its CRC-32",
     table_has_its_checksum},
    {"fru.metadata.checksum", "DSP0257, GetFRURecordTableMetadata",
     "the metadata have the same checksum", metadata_has_the_checksum},
    {"fru.table.records", "DSP0257, FRU record table", "the records fill the table",
     records_fill_the_table},
    {"fru.table.padding", "DSP0257, FRU record table",
     "the table is padded to a multiple of four bytes, with zeros", padding_is_zero},
    {"fru.metadata.table-length", "DSP0257, GetFRURecordTableMetadata",
     "the length of the table is right", metadata_tells_the_length},
    {"fru.metadata.sets", "DSP0257, GetFRURecordTableMetadata",
     "the number of record sets is right", metadata_counts_the_sets},
    {"fru.record.encoding", "DSP0257, FRU record format", "field encodings are defined",
     encodings_are_defined},
    {"fru.record.field-type", "DSP0257, general FRU record", "field types are defined",
     general_fields_are_defined},
    {"fru.table.operation", "DSP0257, GetFRURecordTable",
     "an unknown operation is refused with INVALID_TRANSFER_OPERATION_FLAG",
     unknown_operation_is_refused},
    {"fru.table.unknown-transfer", "DSP0257, GetFRURecordTable",
     "another transfer handle is refused with INVALID_DATA_TRANSFER_HANDLE",
     unknown_transfer_is_refused},
    {"fru.table.request-too-short", "DSP0240, completion codes",
     "GetFRURecordTable with a byte too few is answered with ERROR_INVALID_LENGTH",
     short_request_is_refused},
};

}  // namespace

std::span<const Rule> fru_rules() {
    return kRules;
}

}  // namespace tool::check
