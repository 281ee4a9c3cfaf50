// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on FRU data.
#include <algorithm>

#include "tests/tools/check/defects.h"

namespace check_test {
namespace {

using namespace tool::check;

// Where the table begins in an answer to GetFRURecordTable.
constexpr size_t kTable = 9;

Match metadata() {
    return pldm(kFru, 0x01);
}

Match table() {
    return sized(pldm(kFru, 0x02), 8);
}

Match first_part() {
    return with(table(), 7, kGetFirstPart);
}

/// A table that comes in one part, changed, and with its checksum made right again.
Change rewritten(void (*change)(Bytes& records)) {
    return [=](Exchange& exchange) {
        const Bytes& answer = *exchange.response;
        const Bytes head(answer.begin(), answer.begin() + kTable);
        Bytes records(answer.begin() + kTable, answer.end() - 4);
        change(records);
        exchange.response = Body().bytes(head).bytes(records).le32(crc32_of(records));
    };
}

/// Rewriting leaves the metadata with the old checksum.
const std::set<std::string> kRewritten = {"fru.metadata.checksum"};

void set_encoding(Bytes& records) {
    records[4] = 6;
}

void set_field_type(Bytes& records) {
    records[5] = 16;
}

void add_padding(Bytes& records) {
    records.resize(records.size() + 4);
}

void spoil_padding(Bytes& records) {
    records.back() ^= 0x01;
}

/// First parts are asked for by the rules on packets, for the table that all rules share, by
/// fru.table.repeat, and twice by fru.table.begin-anew.
constexpr int kRepeated = 3;
constexpr int kBegunAnew = 5;

}  // namespace

std::vector<Defect> fru_defects() {
    return {
        {"fru.metadata.length", "gpu0", metadata(), lengthen(1)},
        {"fru.metadata.version", "gpu0", metadata(), put(4, 2)},
        {"fru.table.end", "parts0", table(), put(8, 1)},
        {"fru.table.end", "gpu0", first_part(), code(0x01)},
        {"fru.table.transfer-flag", "gpu0", first_part(), put(8, 4)},
        {"fru.table.begin-anew", "parts0", from_on(first_part(), kBegunAnew),
         flip(kTable + 6, 0x01)},
        {"fru.table.repeat", "gpu0", from_on(first_part(), kRepeated), flip(kTable + 8, 0x01)},
        {"fru.table.checksum", "gpu0", first_part(), flip(kTable + 8, 0x01)},
        {"fru.metadata.checksum", "gpu0", metadata(), flip(18, 0x01)},
        {"fru.table.records", "gpu0", first_part(), rewritten(add_padding), kRewritten},
        {"fru.table.records", "gpu0", metadata(), put(16, 2)},
        {"fru.table.padding", "gpu0", first_part(), rewritten(spoil_padding), kRewritten},
        {"fru.metadata.table-length", "gpu0", metadata(), put(10, 0x01)},
        {"fru.metadata.sets", "gpu0", metadata(), put(14, 3)},
        {"fru.record.encoding", "gpu0", first_part(), rewritten(set_encoding), kRewritten},
        {"fru.record.field-type", "gpu0", first_part(), rewritten(set_field_type), kRewritten},
        {"fru.table.operation", "gpu0", with(table(), 7, 0x7F), code(0x02)},
        {"fru.table.unknown-transfer", "gpu0", with(table(), 3, 0xFE), code(0x00)},
        {"fru.table.request-too-short", "gpu0", sized(pldm(kFru, 0x02), 7), code(0x01)},
    };
}

}  // namespace check_test
