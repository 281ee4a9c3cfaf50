// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a device, read as the rules need it: part by part, with an end in any case.
#include "tools/check/repository.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace tool::check {
namespace {

/// What GetPDR is asked for at once; the messages of every binding hold it.
constexpr uint16_t kUsualPart = 512;
/// A repository that takes more questions, or has more bytes, is not read to its end; nor is a
/// record of more parts.
constexpr size_t kMostQuestions = 8192;
constexpr size_t kMostBytes = 4u << 20;
constexpr size_t kMostParts = 1024;
/// The longest record that there can be.
constexpr size_t kLongestRecord = kPdrHeader + 0xFFFF;

uint32_t number_at(const Bytes& bytes, size_t place, size_t size) {
    sideband::WireReader reader(bytes);
    reader.skip(place);
    return size == 1 ? reader.u8() : size == 2 ? reader.le16() : reader.le32();
}

void read_records(Device& device, Repository& all) {
    std::set<uint32_t> seen;
    uint32_t handle = 0;
    size_t questions = 0;
    do {
        Record record = read_record(device, handle, kUsualPart, all.trouble);
        all.where = record.last;
        if (!all.trouble.empty()) {
            return;
        }
        if (!seen.insert(record.handle()).second) {
            all.trouble = fmt::format("a record that was not there before, not 0x{:08x} again",
                                      record.handle());
            return;
        }
        handle = record.next;
        questions += record.parts;
        all.bytes += record.bytes.size();
        all.largest = std::max(all.largest, record.bytes.size());
        all.records.push_back(std::move(record));
        if (questions >= kMostQuestions || all.bytes > kMostBytes) {
            all.trouble =
                fmt::format("an end within {} parts of {} bytes", kMostQuestions, kMostBytes);
            return;
        }
    } while (handle != 0);
}

Repository read_repository(Device& device) {
    Repository all;
    try {
        read_records(device, all);
    } catch (const Finding& finding) {
        all.trouble = finding.text;  // it took too long, and is not tried again
    }
    return all;
}

/// What is wrong with a part behind those that came; empty for nothing.
std::string trouble_with(const std::optional<PdrAnswer>& answer, const Record& record) {
    if (!answer) {
        return "a part of the record, as long as it says";
    }
    if (answer->data.empty()) {
        return "a part with data";
    }
    if (record.parts == kMostParts) {
        return fmt::format("a record in at most {} parts", kMostParts);
    }
    if (record.bytes.size() + answer->data.size() > kLongestRecord) {
        return "a record of at most 65545 bytes";
    }
    return {};
}

}  // namespace

Exchange ask_pdr(Device& device, const PdrPart& part) {
    return ask_pldm(device, kMonitoring, kGetPdr,
                    Bytes(Body()
                              .le32(part.record)
                              .le32(part.transfer)
                              .u8(part.operation)
                              .le16(part.count)
                              .le16(part.change)));
}

std::optional<PdrAnswer> read_answer(const Exchange& exchange) {
    if (pldm_code(exchange) != kSuccess) {
        return std::nullopt;
    }
    sideband::WireReader reader(pldm_data(exchange, "GetPDR"));
    PdrAnswer answer;
    answer.next_record = reader.le32();
    answer.next_transfer = reader.le32();
    answer.flag = reader.u8();
    answer.count = reader.le16();
    answer.data = reader.bytes(answer.count);
    if (!reader.ok() || reader.remaining() > 1) {
        return std::nullopt;
    }
    if (reader.remaining() == 1) {
        answer.checksum = reader.u8();
    }
    return answer;
}

uint32_t Record::handle() const {
    return number_at(bytes, 0, 4);
}
uint8_t Record::version() const {
    return static_cast<uint8_t>(number_at(bytes, 4, 1));
}
uint8_t Record::type() const {
    return static_cast<uint8_t>(number_at(bytes, 5, 1));
}
uint16_t Record::data_length() const {
    return static_cast<uint16_t>(number_at(bytes, 8, 2));
}

Record read_record(Device& device, uint32_t handle, uint16_t part, std::string& trouble) {
    Record record;
    record.asked = handle;
    PdrPart wanted{.record = handle, .count = part};
    for (bool last = false; !last;) {
        record.last = ask_pdr(device, wanted);
        if (record.parts == 0) {
            record.first = record.last;
        }
        const std::optional<PdrAnswer> answer = read_answer(record.last);
        trouble = trouble_with(answer, record);
        if (!trouble.empty()) {
            return record;
        }
        ++record.parts;
        record.counts_right &= answer->data.size() <= part;
        record.bytes.insert(record.bytes.end(), answer->data.begin(), answer->data.end());
        record.next = answer->next_record;
        record.checksum = answer->checksum;
        last = answer->last();
        wanted.operation = kGetNextPart;
        wanted.transfer = answer->next_transfer;
        wanted.change = static_cast<uint16_t>(number_at(record.bytes, 6, 2));
    }
    if (record.bytes.size() < kPdrHeader) {
        trouble = "a record of at least ten bytes, its header";
    }
    return record;
}

const Repository& repository(Device& device) {
    need_pldm_command(device, kMonitoring, kGetPdr, "GetPDR");
    return device.once(read_repository);
}

const Repository& whole_repository(Device& device) {
    const Repository& all = repository(device);
    if (!all.trouble.empty()) {
        not_applicable("the PDR repository cannot be read to its end");
    }
    return all;
}

}  // namespace tool::check
