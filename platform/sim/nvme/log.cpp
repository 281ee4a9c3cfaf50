// SPDX-License-Identifier: Apache-2.0
// The log pages of an NVMe drive (NVMe, Get Log Page).
#include "sim/nvme/drive.h"

namespace sim {

namespace {

enum LogPage : uint8_t {
    kErrorPage = 0x01,
    kSmartPage = 0x02,
    kFirmwarePage = 0x03,
    kSanitizePage = 0x81,
};

constexpr size_t kErrorSize = 64;
constexpr size_t kMostErrors = 64;
constexpr size_t kSmartSize = 512;

}  // namespace

/// Keeps an entry of the error log (NVMe, error information log entry).
void NvmeDrive::note_error(const NvmeAdminCommand& command, NvmeStatus status) {
    constexpr uint16_t kNoLocation = 0xFFFF;
    constexpr uint16_t kDword10 = 40;
    Bytes entry(kErrorSize);
    put_le(entry, 0, ++error_count_, 8);
    put_le(entry, 12, static_cast<uint64_t>(status) << 1, 2);
    put_le(entry, 14, status == NvmeStatus::kInvalidField ? kDword10 : kNoLocation, 2);
    put_le(entry, 24, command.namespace_id(), 4);
    errors_.push_front(std::move(entry));
    if (errors_.size() > kMostErrors) {
        errors_.pop_back();
    }
}

Bytes NvmeDrive::error_log() const {
    Bytes page;
    for (const Bytes& entry : errors_) {
        append(page, entry);
    }
    page.resize(kErrorSize * kMostErrors);
    return page;
}

Bytes NvmeDrive::smart_log() const {
    constexpr size_t kFirstCount = 32;
    constexpr size_t kCountSize = 16;
    constexpr size_t kSensors = 200;
    const NvmeSmart& smart = config_.smart;
    const Health now = health();
    Bytes page(kSmartSize);
    page[0] = now.warning;
    put_le(page, 1, now.kelvin, 2);
    page[3] = smart.available_spare;
    page[4] = smart.spare_threshold;
    page[5] = smart.percentage_used;
    const uint64_t counts[] = {smart.data_units_read, smart.data_units_written, smart.host_reads,
                               smart.host_writes,     smart.busy_minutes,       smart.power_cycles,
                               smart.power_on_hours,  smart.unsafe_shutdowns,   smart.media_errors,
                               error_count_};
    size_t at = kFirstCount;
    for (uint64_t count : counts) {
        put_le(page, at, count, 8);
        at += kCountSize;
    }
    put_le(page, kSensors, now.kelvin, 2);
    return page;
}

/// Nothing for a page that there is not.
std::optional<Bytes> NvmeDrive::log_page(uint8_t id) const {
    switch (id) {
        case kErrorPage:
            return error_log();
        case kSmartPage:
            return smart_log();
        case kFirmwarePage:
            return firmware_.log();
        case kSanitizePage:
            return media_.log(now_, settings_.sanitize_seconds);
        default:
            return std::nullopt;
    }
}

NvmeCompletion NvmeDrive::get_log_page(const NvmeAdminCommand& command) const {
    constexpr uint32_t kUpperCount = 0xFFFF;
    const uint32_t id = command.namespace_id();
    if (id != 0 && id != kNvmeEveryNamespace && !namespaces_.names(id)) {
        return NvmeStatus::kInvalidNamespace;
    }
    const std::optional<Bytes> page = log_page(static_cast<uint8_t>(command.dwords[10]));
    if (!page) {
        return NvmeStatus::kInvalidLogPage;
    }
    const uint64_t from = command.dwords[12] | static_cast<uint64_t>(command.dwords[13]) << 32;
    if (from % 4 != 0 || from > page->size()) {
        return NvmeStatus::kInvalidField;
    }
    const uint64_t dwords = uint64_t{1} + (command.dwords[10] >> 16) +
                            (static_cast<uint64_t>(command.dwords[11] & kUpperCount) << 16);
    return {Bytes(page->begin() + static_cast<std::ptrdiff_t>(from), page->end()), dwords * 4};
}

}  // namespace sim
