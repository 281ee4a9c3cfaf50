// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a terminus (DSP0248): one record, or a walk over all of them that ends
// whatever the terminus answers.
#include "tools/pldm/pdr_walk.h"

#include <fmt/format.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <set>

#include "common/wire.h"
#include "tools/shell/interrupt.h"

namespace tool {
namespace {

using sideband::WireReader;

/// The library reads at most seven parts of a record.
constexpr size_t kPartsMax = 7;
constexpr size_t kCapacity = kPartsMax * PLDM_PDR_PART_SIZE;

/// Follows the parts of one GetPDR: how much came, whether it was the end, what is next. The
/// library tells none of that of a record that does not come whole.
class PartsObserver : public ExchangeObserver {
public:
    explicit PartsObserver(Session& session) : session_(session) { session.observe(this); }
    ~PartsObserver() override { session_.observe(nullptr); }
    PartsObserver(const PartsObserver&) = delete;
    PartsObserver& operator=(const PartsObserver&) = delete;

    void exchanged(std::span<const uint8_t>, std::span<const uint8_t> response) override {
        WireReader reader(response);
        reader.skip(PLDM_HEADER_SIZE);
        const uint8_t code = reader.u8();
        const uint32_t next = reader.le32();
        reader.skip(sizeof(uint32_t));
        const uint8_t flag = reader.u8();
        const uint16_t count = reader.le16();
        answered_ = reader.ok() && code == PLDM_CC_SUCCESS;
        if (!answered_) {
            return;
        }
        next_ = next;
        last_ = flag == kEnd || flag == kStartAndEnd;
        judge(count, reader.remaining());
    }

    bool answered() const { return answered_; }
    uint32_t next() const { return next_; }
    size_t received() const { return received_; }

    /// Why the record is not whole; empty if it is.
    std::string problem() const {
        return complaint_.empty() && !last_ ? fmt::format("it has no end in {} parts", kPartsMax)
                                            : complaint_;
    }

private:
    static constexpr uint8_t kEnd = 4;
    static constexpr uint8_t kStartAndEnd = 5;

    void judge(size_t count, size_t present) {
        if (count > PLDM_PDR_PART_SIZE) {
            complaint_ = fmt::format("a part of it claims {} bytes", count);
        } else if (count > present) {
            complaint_ = fmt::format("a part of it claims {} bytes and has {}", count, present);
        } else if (received_ + count > kCapacity) {
            complaint_ = fmt::format("it is longer than {} bytes", kCapacity);
        } else {
            received_ += count;
        }
    }

    Session& session_;
    bool answered_ = false;
    bool last_ = false;
    uint32_t next_ = 0;
    size_t received_ = 0;
    std::string complaint_;
};

pldm_pdr_header header_of(std::span<const uint8_t> bytes) {
    WireReader reader(bytes);
    return {.record_handle = reader.le32(),
            .header_version = reader.u8(),
            .type = reader.u8(),
            .record_change_number = reader.le16(),
            .data_length = reader.le16()};
}

/// What is wrong with a record that came to its end.
std::string header_problem(std::span<const uint8_t> bytes) {
    if (bytes.size() < sizeof(pldm_pdr_header)) {
        return fmt::format("it has {} bytes only", bytes.size());
    }
    const size_t claimed = sizeof(pldm_pdr_header) + header_of(bytes).data_length;
    if (claimed > bytes.size()) {
        return fmt::format("its header claims {} bytes and it has {}", claimed, bytes.size());
    }
    return "";
}

/// The number of records, or nothing if the terminus has no repository.
bool count_records(Session& session, uint32_t& count) {
    constexpr uint8_t kInvalidType = 0x20;
    if (pldm_get_pdr_repository_info(&session.pldm(), &count) == 0) {
        return true;
    }
    const Failure failure = session.pldm_failure("GetPDRRepositoryInfo");
    const uint8_t code = failure.code() ? failure.code()->code : 0;
    if (code == PLDM_CC_UNSUPPORTED_COMMAND || code == kInvalidType) {
        return false;
    }
    throw Failure(failure);
}

/// As many records as are read of a repository that says it has so many.
size_t walk_bound(uint32_t count) {
    // A repository may grow while it is read; its word is not taken for how far it may go on.
    constexpr size_t kMargin = 16;
    constexpr size_t kMost = 65536;
    return std::min<size_t>(count, kMost - kMargin) + kMargin;
}

/// Reads on from the first record until there is none left or a signal has come.
void walk(Session& session, uint32_t count, PdrWalk& result) {
    std::set<uint32_t> seen;
    const size_t bound = walk_bound(count);
    uint32_t handle = 0;
    do {
        if (result.records.size() == bound) {
            result.failures.push_back(pdr_failure(session, "the walk", handle,
                                                  fmt::format("{} records and no end", bound)));
            return;
        }
        seen.insert(handle);
        result.records.push_back(read_pdr(session, handle));
        const PdrRecord& record = result.records.back();
        if (!record.whole()) {
            result.failures.push_back(
                pdr_failure(session, "GetPDR", record.handle(), record.problem));
        }
        seen.insert(record.handle());
        handle = record.next;
        if (handle != 0 && seen.contains(handle)) {
            result.failures.push_back(
                pdr_failure(session, "the walk", handle, "the records go round in circles"));
            return;
        }
    } while (handle != 0 && !InterruptGuard::pending());
    SignalWatch::check();
}

}  // namespace

uint32_t PdrRecord::handle() const {
    return bytes.size() < sizeof(uint32_t) ? asked : header_of(bytes).record_handle;
}

uint8_t PdrRecord::type() const {
    return bytes.size() < sizeof(pldm_pdr_header) ? 0 : header_of(bytes).type;
}

Failure pdr_failure(const Session& session, const std::string& operation, uint32_t handle,
                    const std::string& reason) {
    return {session.endpoint().name, fmt::format("{} of record {}", operation, handle), reason};
}

PdrRecord read_pdr(Session& session, uint32_t handle) {
    PdrRecord record;
    record.asked = handle;
    record.bytes.resize(kCapacity);
    pldm_ctx& pldm = session.pldm();
    const PartsObserver parts(session);
    const int32_t result = pldm_get_pdr(&pldm, &handle, record.bytes.data(),
                                        static_cast<uint32_t>(record.bytes.size()));
    if (!parts.answered()) {
        throw session.pldm_failure(fmt::format("GetPDR of record {}", record.asked));
    }
    record.next = parts.next();
    record.bytes.resize(parts.received());
    record.problem = parts.problem();
    if (record.whole()) {
        record.problem = result == 0 ? header_problem(record.bytes) : "the library refuses it";
    }
    return record;
}

PdrWalk walk_pdrs(Session& session) {
    PdrWalk result;
    uint32_t count = 0;
    result.repository = count_records(session, count);
    if (!result.repository || count == 0) {
        return result;
    }
    try {
        walk(session, count, result);
    } catch (const Failure& failure) {
        result.failures.push_back(failure);
    }
    return result;
}

}  // namespace tool
