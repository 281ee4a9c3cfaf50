// SPDX-License-Identifier: Apache-2.0
// What sanitize operations do to an NVMe drive, and how far they are.
#include "sim/nvme/media.h"

#include <algorithm>

namespace sim {

namespace {

// Sanitize, dword 10.
constexpr uint32_t kAction = 0x07;
constexpr uint32_t kUnrestricted = 0x08;
constexpr uint32_t kPasses = 0xF0;
enum Action : uint32_t { kExitFailure = 1, kBlockErase = 2, kOverwrite = 3, kCryptoErase = 4 };

constexpr size_t kLogSize = 512;
constexpr uint16_t kComplete = 0xFFFF;
constexpr uint16_t kGlobalDataErased = 0x0100;

uint32_t passes_of(uint32_t command) {
    const uint32_t passes = (command & kPasses) >> 4;
    return passes != 0 ? passes : 16;
}

}  // namespace

/// From 0 to 1.
double NvmeMedia::progress(double seconds) const {
    return seconds - start_ >= duration_ ? 1 : (seconds - start_) / duration_;
}

NvmeMedia::State NvmeMedia::state(double seconds) const {
    if (!started_) {
        return State::kNever;
    }
    if (progress(seconds) < 1) {
        return State::kInProgress;
    }
    return fails_ ? State::kFailed : State::kDone;
}

NvmeStatus NvmeMedia::gate(double seconds) const {
    switch (state(seconds)) {
        case State::kInProgress:
            return NvmeStatus::kSanitizeInProgress;
        case State::kFailed:
            return NvmeStatus::kSanitizeFailed;
        default:
            return NvmeStatus::kSuccess;
    }
}

NvmeStatus NvmeMedia::sanitize(const NvmeAdminCommand& command, double seconds, double duration,
                               bool fails) {
    const uint32_t dword = command.dwords[10];
    const uint32_t action = dword & kAction;
    if (action < kExitFailure || action > kCryptoErase) {
        return NvmeStatus::kInvalidField;
    }
    const State now = state(seconds);
    if (now == State::kInProgress) {
        return NvmeStatus::kSanitizeInProgress;
    }
    // A failed operation in restricted mode is only made good by another one in that mode.
    const bool restricted = now == State::kFailed && (command_ & kUnrestricted) == 0;
    if (restricted && (action == kExitFailure || (dword & kUnrestricted) != 0)) {
        return NvmeStatus::kSanitizeFailed;
    }
    if (action == kExitFailure) {
        started_ = started_ && now != State::kFailed;
        return NvmeStatus::kSuccess;
    }
    started_ = true;
    command_ = dword;
    start_ = seconds;
    duration_ = duration;
    fails_ = fails;
    return NvmeStatus::kSuccess;
}

Bytes NvmeMedia::log(double seconds, double duration) const {
    constexpr size_t kFirstEstimate = 8;
    constexpr size_t kEstimates = 6;
    const State now = state(seconds);
    const double part = started_ ? progress(seconds) : 1;
    auto status = static_cast<uint16_t>(now);
    if ((command_ & kAction) == kOverwrite && started_) {
        status |= static_cast<uint16_t>(static_cast<uint32_t>(part * passes_of(command_)) << 3);
    }
    if (now == State::kDone) {
        status |= kGlobalDataErased;
    }
    Bytes page(kLogSize);
    const auto steps = static_cast<uint16_t>(std::min(part * 65536, 65535.0));
    put_le(page, 0, now == State::kInProgress ? steps : kComplete, 2);
    put_le(page, 2, status, 2);
    put_le(page, 4, started_ ? command_ : 0, 4);
    for (size_t i = 0; i < kEstimates; ++i) {
        put_le(page, kFirstEstimate + 4 * i, static_cast<uint32_t>(duration), 4);
    }
    return page;
}

}  // namespace sim
