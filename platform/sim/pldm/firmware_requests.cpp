// SPDX-License-Identifier: Apache-2.0
// The firmware device of a PLDM terminus: what it asks the update agent for (DSP0267).
#include <algorithm>
#include <utility>

#include "sim/device/message.h"
#include "sim/pldm/device.h"
#include "sim/pldm/firmware.h"

namespace sim {

namespace {

constexpr uint8_t kFirmwareUpdate = 0x05;
constexpr size_t kHeader = 3;
constexpr size_t kPackagePartHead = 5;  // NextDataTransferHandle and TransferFlag
constexpr uint8_t kLastPart = 0x04;     // in the TransferFlag of a part: End, StartAndEnd

constexpr uint8_t kRetryRequestFwData = 0x89;
constexpr uint8_t kVerifyError = 0x01;   // VerifyResult
constexpr uint8_t kGenericError = 0x0A;  // TransferResult
/// An agent that cannot give a piece so many times in a row never will.
constexpr uint32_t kMostRefusals = 10;
/// Package data have a 16-bit length; what comes behind it is counted and dropped.
constexpr size_t kMostPackageData = 0xFFFF;

}  // namespace

/// What the device would send now.
std::optional<uint8_t> PldmFirmware::wanted() {
    if (dead_ || stalled_ || failed_ || outstanding_) {
        return std::nullopt;
    }
    switch (state_) {
        case PldmFirmwareState::kLearnComponents:
            return fetch_package_data_ ? std::optional<uint8_t>(kFwGetPackageData) : std::nullopt;
        case PldmFirmwareState::kDownload:
            if (turn_ == plan_.count() && turn_ != 0 &&
                strike(Kind::kEndless, kFwRequestFirmwareData) != nullptr) {
                turn_ = 0;
            }
            return turn_ < plan_.count() && !transfer_failure_ ? kFwRequestFirmwareData
                                                               : kFwTransferComplete;
        case PldmFirmwareState::kVerify:
            return kFwVerifyComplete;
        case PldmFirmwareState::kApply:
            return kFwApplyComplete;
        default:
            return std::nullopt;
    }
}

std::optional<PldmFirmware::Request> PldmFirmware::next_request(uint64_t now_us) {
    const std::optional<uint8_t> command = wanted();
    if (!command) {
        return std::nullopt;
    }
    count_message(*command);
    dead_ = strike(Kind::kDead, *command) != nullptr;
    stalled_ = strike(Kind::kStall, *command) != nullptr;
    if (strike(Kind::kReset, *command) != nullptr) {
        end_update(kFwInitialized);
    }
    if (dead_ || stalled_ || !updating()) {
        return std::nullopt;
    }
    const PldmFirmwareFault* instead = strike(Kind::kSendInstead, *command);
    outstanding_ = instead != nullptr ? compose(static_cast<uint8_t>(instead->value), true)
                                      : compose(*command, false);
    outstanding_->sent_us = now_us;
    return Request{outstanding_->message, outstanding_->tag, settings_.request_us};
}

std::optional<PldmFirmware::Request> PldmFirmware::repetition(uint64_t now_us) {
    check_idle(now_us);
    if (dead_ || stalled_ || !outstanding_ || outstanding_->repetitions >= settings_.retries ||
        now_us - outstanding_->sent_us < settings_.retry_us + settings_.request_us) {
        return std::nullopt;
    }
    ++outstanding_->repetitions;
    ++repeated_;
    outstanding_->sent_us = now_us;
    return Request{outstanding_->message, outstanding_->tag, 0};
}

/// The result that the device reports by a command.
uint8_t PldmFirmware::result_of(uint8_t command) {
    if (const PldmFirmwareFault* fault = strike(Kind::kResult, command)) {
        return static_cast<uint8_t>(fault->value);
    }
    if (command == kFwTransferComplete) {
        return transfer_failure_.value_or(0);
    }
    if (command != kFwVerifyComplete) {
        return 0;
    }
    const PldmFirmwareComponent& component = components_[current_];
    const bool right = !component.expected.given() ||
                       (component.expected.size() == transfers_[current_].image_size &&
                        !images_[current_].first_difference());
    return right ? 0 : kVerifyError;
}

/// A request. @param extra  sent in between, by a fault
PldmFirmware::Outstanding PldmFirmware::compose(uint8_t command, bool extra) {
    Outstanding request;
    request.command = command;
    request.extra = extra;
    request.tag = tag_;
    Bytes& message = request.message;
    message = {static_cast<uint8_t>(kRequestBit | instance_), kFirmwareUpdate, command};
    if (command == kFwGetPackageData) {
        const PldmFirmwareFault* handle = strike(Kind::kHandle, command);
        const PldmFirmwareFault* flag = strike(Kind::kFlag, command);
        append_le32(message, handle != nullptr ? handle->value : package_handle_);
        const uint32_t proper = package_data_begun_ ? kPldmGetNextPart : kPldmGetFirstPart;
        message.push_back(static_cast<uint8_t>(flag != nullptr ? flag->value : proper));
    } else if (command == kFwRequestFirmwareData) {
        const PldmFirmwareFault* ask = strike(Kind::kAsk, command);
        if (ask != nullptr) {
            request.piece = {ask->offset, ask->length};
        } else if (turn_ < plan_.count()) {
            request.piece = plan_.at(turn_);
        }
        request.extra = extra || ask != nullptr;
        append_le32(message, request.piece.offset);
        append_le32(message, request.piece.length);
    } else {
        request.result = result_of(command);
        message.push_back(request.result);
        if (command == kFwApplyComplete) {
            append_le16(message, 0);  // ComponentActivationMethodsModification
        }
    }
    if (const PldmFirmwareFault* fault = strike(Kind::kTruncate, command)) {
        message.resize(std::min<size_t>(message.size(), fault->length));
    }
    instance_ = (instance_ + 1) & kInstanceBits;
    tag_ = (tag_ + 1) & 7;
    return request;
}

void PldmFirmware::heard(uint8_t tag, ByteView answer, uint64_t now_us) {
    if (dead_ || !outstanding_ || outstanding_->tag != tag || answer.size() <= kHeader) {
        return;
    }
    const Bytes& asked = outstanding_->message;
    const bool fits = asked.size() >= kHeader && (answer[0] ^ asked[0]) == kRequestBit &&
                      answer[1] == asked[1] && answer[2] == asked[2];
    if (!fits) {
        return;
    }
    last_heard_us_ = now_us;
    last_answer_ = answer[kHeader];
    const Outstanding request = *std::exchange(outstanding_, std::nullopt);
    if (request.extra) {
        return;
    }
    const ByteView data = answer.subspan(kHeader + 1);
    if (request.command == kFwGetPackageData) {
        heard_package_data(data);
    } else if (request.command == kFwRequestFirmwareData) {
        heard_piece(request, data);
    } else {
        heard_complete(request);
    }
}

void PldmFirmware::heard_package_data(ByteView data) {
    if (*last_answer_ != kPldmSuccess || data.size() < kPackagePartHead) {
        fetch_package_data_ = false;
        return;
    }
    package_data_begun_ = true;
    package_handle_ = le32(data, 0);
    const ByteView part = data.subspan(kPackagePartHead);
    append(package_data_,
           part.first(std::min(part.size(), kMostPackageData - package_data_.size())));
    const bool last = (data[4] & kLastPart) != 0;
    fetch_package_data_ = !last || strike(Kind::kEndless, kFwGetPackageData) != nullptr;
}

void PldmFirmware::heard_piece(const Outstanding& request, ByteView data) {
    const PiecePlan::Piece& piece = request.piece;
    const bool whole = *last_answer_ == kPldmSuccess && data.size() == piece.length;
    if (!whole) {
        // A piece of the wrong length is asked for again, like one that the agent is not ready for.
        const bool later = *last_answer_ == kPldmSuccess || *last_answer_ == kRetryRequestFwData;
        if (!later || ++refusals_ >= kMostRefusals) {
            transfer_failure_ = kGenericError;
        }
        return;
    }
    refusals_ = 0;
    images_[current_].take(piece.offset, data, components_[current_].expected);
    if (strike(Kind::kRepeat, kFwRequestFirmwareData) != nullptr) {
        return;
    }
    ++turn_;
    PldmFirmwareTransfer& transfer = transfers_[current_];
    if (transfer.bytes >= transfer.image_size) {
        return;  // it is asking for everything once more
    }
    ++transfer.pieces;
    transfer.bytes += std::min(piece.length, transfer.image_size - piece.offset);
}

/// The agent knows a result.
void PldmFirmware::heard_complete(const Outstanding& request) {
    PldmFirmwareTransfer& transfer = transfers_[current_];
    const bool success =
        request.result == 0 || (request.command == kFwApplyComplete && request.result == 1);
    if (request.command == kFwTransferComplete) {
        transfer.transfer_result = request.result;
    } else if (request.command == kFwVerifyComplete) {
        transfer.verify_result = request.result;
    } else {
        transfer.apply_result = request.result;
    }
    if (!success || *last_answer_ != kPldmSuccess) {
        failed_ = true;
    } else if (request.command == kFwTransferComplete) {
        enter(PldmFirmwareState::kVerify);
    } else if (request.command == kFwVerifyComplete) {
        enter(PldmFirmwareState::kApply);
    } else {
        components_[current_].pending = transfer.version;
        pending_ = offered_;
        enter(PldmFirmwareState::kReadyXfer);
    }
}

}  // namespace sim
