// SPDX-License-Identifier: Apache-2.0
// One firmware update of one device: run by the library, watched message by message.
#include "tools/update/update.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

/// The platform's task whose progress is reported: the tool runs one at a time.
constexpr uint32_t kTask = 1;

// Commands of firmware update (DSP0267) that mean something to the record.
constexpr uint8_t kRequestUpdate = 0x10;
constexpr uint8_t kPassComponentTable = 0x13;
constexpr uint8_t kUpdateComponent = 0x14;
constexpr uint8_t kRequestFirmwareData = 0x15;
constexpr uint8_t kTransferComplete = 0x16;
constexpr uint8_t kVerifyComplete = 0x17;
constexpr uint8_t kApplyComplete = 0x18;
constexpr uint8_t kActivateFirmware = 0x1A;
constexpr uint8_t kActivationNotRequired = 0x8B;

constexpr size_t kCommandOffset = 2;
constexpr size_t kCodeOffset = 3;
constexpr uint8_t kApplyState = 5;

bool is_mark(uint8_t code) {
    return code == PLDM_FW_MARK_PASS_COMPONENT_TABLE || code == PLDM_FW_MARK_UPDATE_COMPONENT ||
           (code >= PLDM_FW_MARK_TERMINUS && code <= PLDM_FW_MARK_TIMEOUT);
}

/// Whether a request belongs to the update itself; others may fail without harm.
bool is_step(uint8_t command) {
    return command == kRequestUpdate || command == kActivateFirmware ||
           command == kUpdateComponent || command == kPassComponentTable;
}

}  // namespace

FirmwareUpdate::FirmwareUpdate(Session& session, const Port& port, Progress* progress)
    : session_(session), port_(port), progress_(progress) {
    link_.update = this;
    link_.context.task_id = kTask;
}

/// Binds the terminus and puts the operations of this object before the library's.
void FirmwareUpdate::bring_up() {
    pldm_fw_update_ctx& context = link_.context;
    const mctp_ctx prototype = session_.prototype();
    context.pcie_session = prototype.pcie_session;
    if (pldm_fw_update_init(&context, &prototype) != 0) {
        record_.mark = context.pldm.completion_code;
        record_.out_of_time = TimeLimit::passed();
        record_.error = *pldm_fw_update_last_error(&context);
        throw update_failure(session_.endpoint().name, record_);
    }
    operations_ = context.pldm;
    context.pldm.recv_op = receive;
    context.pldm.send_op = send;
    context.pldm.transfer_op = transfer;
    context.pldm.completion_code = 0;
}

const UpdateRecord& FirmwareUpdate::run(const std::string& package, uint32_t transfer_size,
                                        uint32_t flags) {
    const InterruptGuard interrupt;
    link_.context.max_transfer_size = transfer_size;
    pldm_nic_update(package.c_str(), &link_.context, nullptr, flags);
    note_mark();
    record_.state = link_.context.state;
    record_.error = *pldm_fw_update_last_error(&link_.context);
    if (record_.unfinished()) {
        leave_update_mode();
    }
    if (progress_ != nullptr) {
        if (record_.succeeded()) {
            progress_->show(100, bytes(), total_);
        }
        progress_->end();
    }
    return record_;
}

/// CancelUpdate, over the session: the context has given up its terminus.
void FirmwareUpdate::leave_update_mode() {
    constexpr int kAttempts = 4;
    constexpr uint8_t kRequestBit = 0x80;
    const TimeLimitLifted lifted;
    record_.cancelled = true;
    for (int i = 0; i < kAttempts; ++i) {
        pldm_fw_update_ctx context{};
        context.pldm = session_.pldm();
        pldm_cancel_update(&context);
        const std::span<const uint8_t> answer = session_.last_answer();
        if (answer.size() > kCodeOffset && (answer[0] & kRequestBit) == 0) {
            record_.cancel_code = answer[kCodeOffset];
            return;
        }
        // Over SMBus a request of the device that lies in the queue is taken for the answer. It
        // is gone now.
    }
}

/// Whether nothing may pass any more: somebody wants the update to end, or its time is over.
bool FirmwareUpdate::stopped() {
    const bool done = record_.accepted && record_.activated;
    record_.interrupted |= !done && InterruptGuard::pending();
    record_.out_of_time |= !done && TimeLimit::passed();
    return record_.interrupted || record_.out_of_time;
}

/// A mark can be overwritten by a later step: the first one tells where it began.
void FirmwareUpdate::note_mark() {
    const uint8_t code = link_.context.pldm.completion_code;
    if (record_.mark == 0 && is_mark(code)) {
        record_.mark = code;
    }
}

// ---- The operations ----

FirmwareUpdate& FirmwareUpdate::of(pldm_ctx* pldm) {
    static_assert(std::is_standard_layout_v<Link> && offsetof(Link, context) == 0);
    auto* context = reinterpret_cast<std::byte*>(pldm) - offsetof(pldm_fw_update_ctx, pldm);
    return *reinterpret_cast<Link*>(context)->update;
}

int32_t FirmwareUpdate::receive(pldm_ctx* pldm, int32_t capacity, uint8_t* buffer) {
    FirmwareUpdate& self = of(pldm);
    self.note_mark();
    if (self.stopped()) {
        // The agent would wait out the device's silence after an error. A request that comes out
        // of turn ends its loop at once; the answer, if it wants to give one, is not sent.
        pldm_fw_update_request_init(buffer);
        buffer[kCommandOffset] = kVerifyComplete;
        return 0;
    }
    TimeLimit::put_on(*pldm->mctp);
    const int32_t result = self.operations_.recv_op(pldm, capacity, buffer);
    if (result >= 0) {
        self.note_request(buffer);
    }
    self.show();
    return result;
}

int32_t FirmwareUpdate::send(pldm_ctx* pldm, uint32_t length, const uint8_t* message,
                             uint8_t tag_owner) {
    FirmwareUpdate& self = of(pldm);
    if (self.stopped()) {
        return -1;
    }
    TimeLimit::put_on(*pldm->mctp);
    const int32_t result = self.operations_.send_op(pldm, length, message, tag_owner);
    if (result >= 0) {
        self.note_answer({message, length});
    }
    return result;
}

int32_t FirmwareUpdate::transfer(pldm_ctx* pldm, uint32_t request_length, int32_t response_capacity,
                                 uint8_t* request, uint8_t* response) {
    FirmwareUpdate& self = of(pldm);
    self.note_mark();
    if (self.stopped()) {
        return -1;
    }
    self.show();
    TimeLimit::put_on(*pldm->mctp);
    const int32_t result =
        self.operations_.transfer_op(pldm, request_length, response_capacity, request, response);
    const int32_t length = std::clamp<int32_t>(pldm->response_length, 0, response_capacity);
    self.note_exchange(request, result, {response, static_cast<size_t>(length)});
    return result;
}

// ---- What is seen ----

void FirmwareUpdate::note_exchange(const uint8_t* request, int32_t result,
                                   std::span<const uint8_t> response) {
    const uint8_t command = request[kCommandOffset];
    const bool answered = response.size() > kCodeOffset;
    const uint8_t code = answered ? response[kCodeOffset] : uint8_t{0};
    record_.exchanged = true;
    if (command == kRequestUpdate) {
        record_.accepted = false;
        record_.refusal.reset();
    }
    if (command == kUpdateComponent) {
        record_.current = component_index();
    }
    const bool harmless = command == kActivateFirmware && code == kActivationNotRequired;
    if (result != 0 && !harmless) {
        if (is_step(command) && !record_.refusal) {
            record_.refusal.emplace(UpdateRecord::Refusal{command, {}});
            if (answered) {
                record_.refusal->code = code;
            } else {
                record_.refusal->silence = silence(link_.context.pldm.last_error);
            }
            record_.component = command == kUpdateComponent ? record_.current : std::nullopt;
        }
        return;
    }
    if (command == kRequestUpdate) {
        note_accepted();
    } else if (command == kUpdateComponent) {
        note_offer(response);
    } else if (command == kActivateFirmware) {
        record_.activated = true;
        record_.activation_s =
            response.size() >= 6 ? static_cast<uint16_t>(little_endian(response.subspan(4, 2))) : 0;
    }
}

/// The device has taken the offer: what the record of the package marks is to come.
void FirmwareUpdate::note_accepted() {
    const pldm_fw_update_ctx& context = link_.context;
    record_.accepted = true;
    record_.activated = false;
    for (uint32_t i = 0; context.matched_record != nullptr && i < context.component_num; ++i) {
        if (is_applicable(*context.matched_record, i)) {
            ++record_.components;
            total_ += component_of(context.component_images[i]).size;
        }
    }
}

/// The device has answered UpdateComponent: what it has of the last component counts no more.
void FirmwareUpdate::note_offer(std::span<const uint8_t> response) {
    constexpr size_t kCompatibility = 4;
    constexpr size_t kCompatibilityCode = 5;
    reached_ = 0;
    if (response.size() > kCompatibilityCode && response[kCompatibility] != 0 &&
        !record_.component_refusal) {
        record_.component_refusal = response[kCompatibilityCode];
        record_.component = record_.current;
    }
}

void FirmwareUpdate::note_request(const uint8_t* request) {
    std::copy_n(request, request_.size(), request_.begin());
    record_.last_request = request[kCommandOffset];
}

/// The agent has answered the device's last request.
void FirmwareUpdate::note_answer(std::span<const uint8_t> answer) {
    const uint8_t command = record_.last_request;
    const uint8_t code = answer.size() > kCodeOffset ? answer[kCodeOffset] : 0;
    if (code != 0) {
        record_.answered = UpdateRecord::Refusal{command, code};
        return;
    }
    if (command == kRequestFirmwareData) {
        const uint64_t end = uint64_t{little_endian(std::span(request_).subspan(3, 4))} +
                             little_endian(std::span(request_).subspan(7, 4));
        reached_ = std::min<uint64_t>(std::max(reached_, end), component_size());
        return;
    }
    if (command < kTransferComplete || command > kApplyComplete) {
        return;
    }
    const uint8_t result = request_[kCodeOffset];
    const bool good = result == 0 || (command == kApplyComplete && result == 1);
    if (!good && !record_.result) {
        record_.result = result;
        record_.component = component_index();
    }
    if (good && command == kTransferComplete) {
        finished_ += component_size();
        reached_ = 0;
    }
    if (good && command == kApplyComplete && link_.context.state == kApplyState) {
        ++record_.applied;
    }
}

/// The place in the package of the component that the update is at.
std::optional<size_t> FirmwareUpdate::component_index() const {
    const pldm_fw_update_ctx& context = link_.context;
    if (context.update_list == nullptr || context.component_index >= context.component_num) {
        return std::nullopt;
    }
    const uint8_t* image = context.update_list[context.component_index].image;
    const std::span<uint8_t* const> images(context.component_images, context.component_num);
    const auto found = std::find(images.begin(), images.end(), image);
    return image != nullptr && found != images.end()
               ? std::optional<size_t>(static_cast<size_t>(found - images.begin()))
               : std::nullopt;
}

uint32_t FirmwareUpdate::component_size() const {
    const std::optional<size_t> index = component_index();
    return index ? component_of(link_.context.component_images[*index]).size : 0;
}

void FirmwareUpdate::show() {
    if (progress_ != nullptr) {
        progress_->show(port_.task_percentage(kTask), bytes(), total_);
    }
}

}  // namespace tool
