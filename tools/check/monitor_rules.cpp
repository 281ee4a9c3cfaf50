// SPDX-License-Identifier: Apache-2.0
// Rules on the PDR repository (DSP0248).
#include <fmt/format.h>

#include <algorithm>

#include "tools/check/repository.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

// Completion codes of GetPDR.
constexpr uint8_t kInvalidTransferHandle = 0x80;
constexpr uint8_t kInvalidOperationFlag = 0x81;
constexpr uint8_t kInvalidRecordHandle = 0x82;

/// Few bytes, so that nearly every record takes several parts.
constexpr uint16_t kSmallPart = 16;
/// So many records are read in small parts.
constexpr size_t kTried = 8;

// ---- GetPDRRepositoryInfo -----------------------------------------------------------------------

struct Info {
    Exchange exchange;
    uint8_t state = 0;
    uint32_t records = 0;
    uint32_t size = 0;
    uint32_t largest = 0;
};

Exchange ask_info(Device& device) {
    need_pldm_command(device, kMonitoring, kGetPdrRepositoryInfo, "GetPDRRepositoryInfo");
    return recall_pldm(device, kMonitoring, kGetPdrRepositoryInfo);
}

Info info_of(Device& device) {
    Info info;
    info.exchange = ask_info(device);
    sideband::WireReader reader(pldm_data(info.exchange, "GetPDRRepositoryInfo"));
    constexpr size_t kTimestamps = 26;  // two, of 13 bytes each
    info.state = reader.u8();
    reader.skip(kTimestamps);
    info.records = reader.le32();
    info.size = reader.le32();
    info.largest = reader.le32();
    if (!reader.ok()) {
        not_applicable("GetPDRRepositoryInfo is too short");
    }
    return info;
}

void info_has_its_length(Device& device) {
    expect_pldm_success(ask_info(device), kPldmHeader + 1 + 40);
}

void info_has_a_state(Device& device) {
    const Info info = info_of(device);
    constexpr uint8_t kFailedState = 2;
    expect(info.state <= kFailedState, info.exchange, "a repository state from 0 to 2");
}

void info_counts_the_records(Device& device) {
    const Repository& all = whole_repository(device);
    const Info info = info_of(device);
    if (info.records != all.records.size()) {
        fail(info.exchange, fmt::format("{} records, as GetPDR gives", all.records.size()));
    }
}

/// Whether a size is told as it is, or as the standard lets it be rounded up.
bool fits(uint32_t told, size_t is, size_t rounded_to) {
    return told >= is && told <= (is + rounded_to - 1) / rounded_to * rounded_to;
}

void info_tells_the_size(Device& device) {
    const Repository& all = whole_repository(device);
    const Info info = info_of(device);
    if (!fits(info.size, all.bytes, 1024)) {
        fail(info.exchange,
             fmt::format("repository size {}, or that rounded up to 1024", all.bytes));
    }
}

void info_tells_the_largest(Device& device) {
    const Repository& all = whole_repository(device);
    const Info info = info_of(device);
    if (!fits(info.largest, all.largest, 64)) {
        fail(info.exchange,
             fmt::format("largest record {}, or that rounded up to 64", all.largest));
    }
}

// ---- GetPDR -------------------------------------------------------------------------------------

void walk_ends(Device& device) {
    const Repository& all = repository(device);
    if (all.trouble.empty()) {
        return;
    }
    const bool empty = all.records.empty() && pldm_code(all.where) == kInvalidRecordHandle &&
                       info_of(device).records == 0;
    if (empty) {
        not_applicable("the repository has no records");
    }
    fail(all.where, all.trouble);
}

/// Ends the rule unless something holds for each record.
template <typename Judge>
void each_record(Device& device, const char* expected, Judge judge) {
    for (const Record& record : whole_repository(device).records) {
        expect(judge(record), record.first, expected);
    }
}

void records_have_the_handle(Device& device) {
    each_record(device, "a record with the handle that was asked for", [](const Record& record) {
        return record.asked == 0 || record.handle() == record.asked;
    });
}

void records_have_a_handle(Device& device) {
    each_record(device, "a record handle other than 0",
                [](const Record& record) { return record.handle() != 0; });
}

void records_have_the_version(Device& device) {
    each_record(device, "PDR header version 1",
                [](const Record& record) { return record.version() == 1; });
}

void records_have_their_length(Device& device) {
    each_record(device, "a data length that is the record's without its header",
                [](const Record& record) {
                    return record.data_length() + kPdrHeader == record.bytes.size();
                });
}

void parts_are_marked(Device& device) {
    each_record(device, "StartAndEnd (5) in a record's only part", [](const Record& record) {
        const std::optional<PdrAnswer> answer = read_answer(record.first);
        return record.parts > 1 || (answer && answer->flag == kOnlyPart);
    });
}

/// The records that are read once more, in small parts: the first ones that are not too long.
std::vector<Record> tried(Device& device) {
    constexpr size_t kLongest = 1024;
    std::vector<Record> records;
    for (const Record& record : whole_repository(device).records) {
        if (record.bytes.size() <= kLongest && records.size() < kTried) {
            records.push_back(record);
        }
    }
    if (records.empty()) {
        not_applicable("all records are longer than 1024 bytes");
    }
    return records;
}

/// A record in small parts. The rule ends, for another one to judge, if it cannot be read.
Record reread(Device& device, const Record& record) {
    std::string trouble;
    Record again = read_record(device, record.handle(), kSmallPart, trouble);
    if (!trouble.empty()) {
        not_applicable("the records cannot be read in small parts");
    }
    return again;
}

void small_parts_can_be_read(Device& device) {
    for (const Record& record : tried(device)) {
        std::string trouble;
        const Record again = read_record(device, record.handle(), kSmallPart, trouble);
        if (!trouble.empty()) {
            fail(again.last, trouble);
        }
    }
}

void parts_are_as_long_as_asked(Device& device) {
    for (const Record& record : tried(device)) {
        const Record again = reread(device, record);
        if (!again.counts_right) {
            fail(again.first, fmt::format("at most {} bytes in a part", kSmallPart));
        }
    }
}

void parts_make_the_record(Device& device) {
    for (const Record& record : tried(device)) {
        const Record again = reread(device, record);
        if (again.bytes != record.bytes) {
            fail({record.first, again.first}, "the same record in small parts");
        }
    }
}

void parts_have_their_checksum(Device& device) {
    bool several = false;
    for (const Record& record : tried(device)) {
        const Record again = reread(device, record);
        if (again.parts > 1) {
            several = true;
            const uint8_t checksum = crc8_of(again.bytes);
            if (again.checksum != checksum) {
                fail(again.last,
                     fmt::format("the record's CRC-8 behind its last part, 0x{:02x}", checksum));
            }
        }
    }
    if (!several) {
        not_applicable("no record comes in parts");
    }
}

void transfer_can_begin_anew(Device& device) {
    const std::vector<Record> records = tried(device);
    const Record& first = records.front();
    const Record& other = records.back();
    ask_pdr(device, {.record = first.handle(), .count = kSmallPart});
    const Record between = reread(device, other);
    const Record again = reread(device, first);
    if (between.bytes != other.bytes || again.bytes != first.bytes) {
        fail({between.first, again.first}, "whole records behind a transfer that was given up");
    }
}

void part_can_be_repeated(Device& device) {
    const Record& record = whole_repository(device).records.front();
    const PdrPart wanted{.record = record.handle(), .count = kSmallPart};
    const Exchange once = ask_pdr(device, wanted);
    const Exchange twice = ask_pdr(device, wanted);
    if (!std::ranges::equal(pldm_data(once, "GetPDR"), pldm_data(twice, "GetPDR"))) {
        fail({once, twice}, "the same first part twice");
    }
}

void unknown_record_is_refused(Device& device) {
    const std::vector<Record>& all = whole_repository(device).records;
    uint32_t handle = 0xFFFFFFFE;
    while (std::ranges::any_of(all, [&](const Record& each) { return each.handle() == handle; })) {
        --handle;
    }
    expect_pldm_code(ask_pdr(device, {.record = handle, .count = kSmallPart}), kInvalidRecordHandle,
                     "INVALID_RECORD_HANDLE");
}

void unknown_operation_is_refused(Device& device) {
    const Record& record = whole_repository(device).records.front();
    expect_pldm_code(
        ask_pdr(device,
                {.record = record.handle(), .operation = kNoOperation, .count = kSmallPart}),
        kInvalidOperationFlag, "INVALID_TRANSFER_OPERATION_FLAG");
}

void unknown_transfer_is_refused(Device& device) {
    const Record& record = whole_repository(device).records.front();
    expect_pldm_code(ask_pdr(device, {.record = record.handle(),
                                      .transfer = 0xFFFFFFFE,
                                      .operation = kGetNextPart,
                                      .count = kSmallPart}),
                     kInvalidTransferHandle, "INVALID_DATA_TRANSFER_HANDLE");
}

void short_request_is_refused(Device& device) {
    need_pldm_command(device, kMonitoring, kGetPdr, "GetPDR");
    expect_pldm_code(ask_pldm(device, kMonitoring, kGetPdr, Bytes(12)), kInvalidLength,
                     "ERROR_INVALID_LENGTH");
}

// ---- GetPDRRepositorySignature ------------------------------------------------------------------

Exchange ask_signature(Device& device) {
    need_pldm_command(device, kMonitoring, kGetPdrRepositorySignature, "GetPDRRepositorySignature");
    return ask_pldm(device, kMonitoring, kGetPdrRepositorySignature);
}

void signature_has_its_length(Device& device) {
    expect_pldm_success(ask_signature(device), kPldmHeader + 1 + 4);
}

void signature_stays(Device& device) {
    const Exchange before = ask_signature(device);
    reread(device, tried(device).front());
    const Exchange after = ask_signature(device);
    if (!std::ranges::equal(pldm_data(before, "GetPDRRepositorySignature"),
                            pldm_data(after, "GetPDRRepositorySignature"))) {
        fail({before, after}, "the same signature while the records stay the same");
    }
}

constexpr Rule kRules[] = {
    {"monitor.info.length", "DSP0248, GetPDRRepositoryInfo",
     "GetPDRRepositoryInfo succeeds, with 40 bytes", info_has_its_length},
    {"monitor.info.state", "DSP0248, GetPDRRepositoryInfo", "the repository's state is defined",
     info_has_a_state},
    {"monitor.walk.end", "DSP0248, GetPDR", "the records lead from one to the next to an end",
     walk_ends},
    {"monitor.info.records", "DSP0248, GetPDRRepositoryInfo", "the number of records is right",
     info_counts_the_records},
    {"monitor.info.size", "DSP0248, GetPDRRepositoryInfo",
     "the size of the repository is right, or rounded up to 1024", info_tells_the_size},
    {"monitor.info.largest", "DSP0248, GetPDRRepositoryInfo",
     "the size of the largest record is right, or rounded up to 64", info_tells_the_largest},
    {"monitor.pdr.handle", "DSP0248, GetPDR", "a record has the handle that was asked for",
     records_have_the_handle},
    {"monitor.pdr.null-handle", "DSP0248, common PDR format", "no record has handle 0",
     records_have_a_handle},
    {"monitor.pdr.header-version", "DSP0248, common PDR format", "records have header version 1",
     records_have_the_version},
    {"monitor.pdr.data-length", "DSP0248, common PDR format", "a record is as long as it says",
     records_have_their_length},
    {"monitor.pdr.transfer-flag", "DSP0248, GetPDR", "a record in one part says so",
     parts_are_marked},
    {"monitor.pdr.parts", "DSP0248, GetPDR", "records can be read in parts of 16 bytes",
     small_parts_can_be_read},
    {"monitor.pdr.request-count", "DSP0248, GetPDR", "no part is longer than was asked for",
     parts_are_as_long_as_asked},
    {"monitor.pdr.same", "DSP0248, GetPDR", "parts make the same record", parts_make_the_record},
    {"monitor.pdr.checksum", "DSP0248, GetPDR", "the last of several parts has the CRC-8",
     parts_have_their_checksum},
    {"monitor.pdr.begin-anew", "DSP0248, GetPDR",
     "a transfer can be given up, and the record be read again", transfer_can_begin_anew},
    {"monitor.pdr.repeat", "DSP0248, GetPDR", "a first part can be asked for twice",
     part_can_be_repeated},
    {"monitor.pdr.unknown-record", "DSP0248, GetPDR",
     "a handle without record is refused with INVALID_RECORD_HANDLE", unknown_record_is_refused},
    {"monitor.pdr.operation", "DSP0248, GetPDR",
     "an unknown operation is refused with INVALID_TRANSFER_OPERATION_FLAG",
     unknown_operation_is_refused},
    {"monitor.pdr.unknown-transfer", "DSP0248, GetPDR",
     "another transfer handle is refused with INVALID_DATA_TRANSFER_HANDLE",
     unknown_transfer_is_refused},
    {"monitor.pdr.request-too-short", "DSP0240, completion codes",
     "GetPDR with a byte too few is answered with ERROR_INVALID_LENGTH", short_request_is_refused},
    {"monitor.signature.length", "DSP0248, GetPDRRepositorySignature",
     "GetPDRRepositorySignature succeeds, with four bytes", signature_has_its_length},
    {"monitor.signature.stable", "DSP0248, GetPDRRepositorySignature",
     "the signature stays while the records do", signature_stays},
};

}  // namespace

std::span<const Rule> monitor_rules() {
    return kRules;
}

}  // namespace tool::check
