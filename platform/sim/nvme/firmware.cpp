// SPDX-License-Identifier: Apache-2.0
// Firmware of an NVMe drive: its slots, an image on its way in, what is active.
#include "sim/nvme/firmware.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace sim {

namespace {

constexpr uint64_t kLargestImage = 64u << 20;
constexpr size_t kImageHeaderSize = NvmeFirmware::kMagic.size() + NvmeFirmware::kRevisionSize;
constexpr size_t kLogSize = 512;
constexpr size_t kLogRevisions = 8;
/// Images travel in dwords; what fills the last one is zero.
constexpr uint64_t kMostPadding = 3;

/// Commit actions (NVMe, Firmware Commit, dword 10).
enum CommitAction : uint8_t {
    kReplaceOnly = 0,
    kReplaceAndActivateAtReset = 1,
    kActivateAtReset = 2,
    kActivateAtOnce = 3,
};

}  // namespace

NvmeFirmware::NvmeFirmware(NvmeFirmwareConfig config)
    : active_(config.active),
      first_read_only_(config.first_read_only),
      immediate_(config.immediate),
      expected_(std::move(config.expected)) {
    for (std::optional<std::string>& revision : config.slots) {
        slots_.push_back({std::move(revision), {}});
    }
    activate(active_);
}

const NvmeFirmware::Slot* NvmeFirmware::slot(uint8_t number) const {
    return number >= 1 && number <= slots_.size() ? &slots_[number - 1u] : nullptr;
}

uint8_t NvmeFirmware::capabilities() const {
    return static_cast<uint8_t>((first_read_only_ ? 1 : 0) | slots_.size() << 1 |
                                (immediate_ ? 1 << 4 : 0));
}

Bytes NvmeFirmware::log() const {
    Bytes page(kLogSize);
    page[0] = static_cast<uint8_t>(active_ | next_ << 4);
    for (size_t i = 0; i < slots_.size(); ++i) {
        if (slots_[i].revision) {
            put_text(page, kLogRevisions + i * kRevisionSize, *slots_[i].revision, kRevisionSize);
        }
    }
    return page;
}

/// Whether a piece is in the way of one that has come and had other bytes.
bool NvmeFirmware::overlaps(uint64_t offset, ByteView data) const {
    const uint64_t end = offset + data.size();
    return std::ranges::any_of(pieces_, [&](const auto& piece) {
        const auto [from, to] = piece;
        if (end <= from || offset >= to) {
            return false;
        }
        const bool inside = offset >= from && end <= to;
        // The same again is a repetition of a command whose response was lost.
        return !inside ||
               !std::ranges::equal(data, ByteView(download_).subspan(offset, data.size()));
    });
}

NvmeStatus NvmeFirmware::download(uint64_t offset, ByteView data) {
    if (offset + data.size() > kLargestImage) {
        return NvmeStatus::kInvalidField;
    }
    if (overlaps(offset, data)) {
        if (offset != 0) {
            return NvmeStatus::kOverlappingRange;
        }
        download_.clear();  // the host begins anew
        pieces_.clear();
    }
    const uint64_t end = offset + data.size();
    download_.resize(std::max<size_t>(download_.size(), end));
    std::ranges::copy(data, download_.begin() + static_cast<std::ptrdiff_t>(offset));
    auto after = pieces_.upper_bound(offset);
    if (after != pieces_.begin() && std::prev(after)->second >= offset) {
        after = std::prev(after);
    } else {
        after = pieces_.emplace_hint(after, offset, end);
    }
    after->second = std::max(after->second, end);
    for (auto next = std::next(after); next != pieces_.end() && next->first <= after->second;
         next = pieces_.erase(next)) {
        after->second = std::max(after->second, next->second);
    }
    return NvmeStatus::kSuccess;
}

/// Nothing if the download is not whole or is no image.
std::optional<std::string> NvmeFirmware::revision_of_download() {
    const bool whole = pieces_.size() == 1 && pieces_.begin()->first == 0;
    if (!whole || download_.size() < kImageHeaderSize ||
        !std::ranges::equal(kMagic, ByteView(download_).first(kMagic.size()))) {
        return std::nullopt;
    }
    if (expected_.given()) {
        expected_.look_again();
        const uint64_t size = expected_.size();
        const bool long_enough =
            download_.size() >= size && download_.size() <= size + kMostPadding;
        if (!long_enough || expected_.difference(0, ByteView(download_).first(size))) {
            return std::nullopt;
        }
    }
    std::string revision(download_.begin() + kMagic.size(), download_.begin() + kImageHeaderSize);
    auto printable = [](char c) { return c >= ' ' && c <= '~'; };
    if (!std::ranges::all_of(revision, printable)) {
        return std::nullopt;
    }
    revision.erase(revision.find_last_not_of(' ') + 1);
    return revision.empty() ? std::nullopt : std::optional(revision);
}

/// The slot for an image if the host leaves the choice to the drive.
uint8_t NvmeFirmware::choose_slot() const {
    for (size_t number = first_read_only_ ? 2 : 1; number <= slots_.size(); ++number) {
        if (number != active_) {
            return static_cast<uint8_t>(number);
        }
    }
    return active_;
}

NvmeStatus NvmeFirmware::replace(uint8_t number) {
    if (number == 1 && first_read_only_) {
        return NvmeStatus::kInvalidFirmwareSlot;
    }
    std::optional<std::string> revision = revision_of_download();
    pieces_.clear();
    Bytes image = std::exchange(download_, {});
    if (!revision) {
        return NvmeStatus::kInvalidFirmwareImage;
    }
    slots_[number - 1u] = {std::move(revision), std::move(image)};
    return NvmeStatus::kSuccess;
}

NvmeStatus NvmeFirmware::commit(uint8_t slot, uint8_t action) {
    if (action > kActivateAtOnce || (action == kActivateAtOnce && !immediate_)) {
        return NvmeStatus::kInvalidField;
    }
    if (slot > slots_.size()) {
        return NvmeStatus::kInvalidFirmwareSlot;
    }
    const bool replaces = action == kReplaceOnly || action == kReplaceAndActivateAtReset ||
                          (action == kActivateAtOnce && !download_.empty());
    const uint8_t number = slot != 0 ? slot : replaces ? choose_slot() : active_;
    if (replaces) {
        if (const NvmeStatus status = replace(number); status != NvmeStatus::kSuccess) {
            return status;
        }
    }
    if (!slots_[number - 1u].revision) {
        return NvmeStatus::kInvalidFirmwareImage;
    }
    if (action == kReplaceAndActivateAtReset || action == kActivateAtReset) {
        next_ = number;
    } else if (action == kActivateAtOnce) {
        activate(number);
    }
    return NvmeStatus::kSuccess;
}

bool NvmeFirmware::reset() {
    download_.clear();
    pieces_.clear();
    const std::string before = running_;
    activate(next_ != 0 ? next_ : active_);
    return running_ != before;
}

void NvmeFirmware::activate(uint8_t number) {
    active_ = number;
    next_ = 0;
    running_ = *slots_[number - 1u].revision;
}

}  // namespace sim
