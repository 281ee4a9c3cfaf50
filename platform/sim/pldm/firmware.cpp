// SPDX-License-Identifier: Apache-2.0
// The firmware device of a PLDM terminus: what it answers the update agent (DSP0267).
#include "sim/pldm/firmware.h"

#include <algorithm>
#include <utility>

#include "sim/device/fault.h"
#include "sim/pldm/device.h"

namespace sim {

namespace {

// Completion codes of the firmware update commands (DSP0267, table of completion codes).
constexpr uint8_t kNotInUpdateMode = 0x80;
constexpr uint8_t kAlreadyInUpdateMode = 0x81;
constexpr uint8_t kInvalidState = 0x84;
constexpr uint8_t kIncompleteUpdate = 0x85;
constexpr uint8_t kActivationNotRequired = 0x8B;
constexpr uint8_t kSelfContainedNotPermitted = 0x8C;
constexpr uint8_t kNoDeviceMetadata = 0x8D;
constexpr uint8_t kInvalidDataHandle = 0x90;
constexpr uint8_t kInvalidDataFlag = 0x91;

// Response codes of PassComponentTable and UpdateComponent.
constexpr uint8_t kNoObjection = 0x00;
constexpr uint8_t kStampIdentical = 0x01;
constexpr uint8_t kStampLower = 0x02;
constexpr uint8_t kNotSupported = 0x06;
constexpr uint8_t kNoMatch = 0x09;

// TransferFlag of parts and of the component table.
constexpr uint8_t kStart = 1;
constexpr uint8_t kMiddle = 2;
constexpr uint8_t kEnd = 4;
constexpr uint8_t kStartAndEnd = 5;

constexpr uint8_t kForceUpdate = 0x01;    // UpdateOptionFlags
constexpr uint8_t kSelfContained = 0x02;  // activation methods
constexpr uint8_t kProgressUnknown = 0x65;

/// A version string at the end of a request: type, length and text from an offset on. Nothing if
/// the length is not that of the text.
std::optional<PldmFirmwareVersion> version_at(ByteView data, size_t offset, size_t text_at) {
    if (data.size() != text_at + data[offset + 1]) {
        return std::nullopt;
    }
    PldmFirmwareVersion version;
    version.type = data[offset];
    version.text.assign(data.begin() + static_cast<std::ptrdiff_t>(text_at), data.end());
    return version;
}

void append_text(Bytes& out, const std::string& text) {
    out.insert(out.end(), text.begin(), text.end());
}

/// Type and length of a version string; no version is an empty one of unknown type.
void append_string_head(Bytes& out, const std::optional<PldmFirmwareVersion>& version) {
    out.push_back(version ? version->type : 0);
    out.push_back(version ? static_cast<uint8_t>(version->text.size()) : 0);
}

/// A version in a component parameter table entry: stamp, head of the string, date.
void append_version(Bytes& out, const std::optional<PldmFirmwareVersion>& version) {
    append_le32(out, version ? version->stamp : 0);
    append_string_head(out, version);
    append_text(out, version ? version->date : std::string(8, '\0'));
}

/// Whether the device took the component.
bool applied(const PldmFirmwareTransfer& transfer) {
    return transfer.apply_result && *transfer.apply_result <= 1;
}

}  // namespace

PldmFirmware::PldmFirmware(PldmFirmwareConfig config)
    : settings_(std::move(config.settings)),
      active_(std::move(config.active)),
      pending_(std::move(config.pending)),
      components_(std::move(config.components)),
      transfers_(components_.size()),
      images_(components_.size()) {}

void PldmFirmware::set_faults(std::vector<PldmFirmwareFault> faults) {
    settings_.faults = std::move(faults);
    counts_ = {};
}

const PldmFirmwareFault* PldmFirmware::strike(Kind kind, uint8_t command) const {
    return striking(settings_.faults, count(command), [&](const PldmFirmwareFault& fault) {
        return fault.kind == kind && fault.command == command;
    });
}

void PldmFirmware::count_message(uint8_t command) {
    if (command < kCommands) {
        ++counts_[command];
    }
}

void PldmFirmware::enter(PldmFirmwareState state) {
    previous_ = std::exchange(state_, state);
    outstanding_.reset();
    failed_ = false;
}

void PldmFirmware::end_update(uint8_t reason) {
    enter(PldmFirmwareState::kIdle);
    reason_ = reason;
}

void PldmFirmware::check_idle(uint64_t now_us) {
    if (updating() && settings_.idle_us != 0 && now_us - last_heard_us_ >= settings_.idle_us) {
        end_update(static_cast<uint8_t>(kFwTimeoutLearn + static_cast<uint8_t>(state_) - 1));
    }
}

void PldmFirmware::reset() {
    end_update(kFwInitialized);
    previous_ = PldmFirmwareState::kIdle;
    dead_ = stalled_ = false;
    if (!settings_.activates_at_once) {
        activate();
    }
}

PldmFirmware::Verdict PldmFirmware::begin(uint8_t command, uint64_t now_us) {
    if (dead_) {
        return {true, {}};
    }
    check_idle(now_us);
    last_heard_us_ = now_us;
    count_message(command);
    if (strike(Kind::kDead, command) != nullptr) {
        dead_ = true;
        return {true, {}};
    }
    if (strike(Kind::kStall, command) != nullptr) {
        stalled_ = true;
    }
    if (strike(Kind::kReset, command) != nullptr) {
        end_update(kFwInitialized);
    }
    if (strike(Kind::kNoAnswer, command) != nullptr) {
        return {true, {}};
    }
    if (const PldmFirmwareFault* fault = strike(Kind::kCompletionCode, command)) {
        return {false, static_cast<uint8_t>(fault->value)};
    }
    return {};
}

void PldmFirmware::finish(uint8_t command, Bytes& answer) const {
    if (const PldmFirmwareFault* fault = strike(Kind::kOtherCommand, command)) {
        answer[2] = static_cast<uint8_t>(fault->value);
    }
    if (const PldmFirmwareFault* fault = strike(Kind::kTruncate, command)) {
        answer.resize(std::min<size_t>(answer.size(), fault->length));
    }
}

// ---- What the device is -------------------------------------------------------------------------

Bytes PldmFirmware::query_device_identifiers(ByteView) {
    return pldm_reply(kPldmSuccess, settings_.identifiers);
}

Bytes PldmFirmware::get_firmware_parameters(ByteView) {
    return pldm_reply(kPldmSuccess, settings_.parameters ? *settings_.parameters : parameters());
}

Bytes PldmFirmware::parameters() const {
    Bytes out;
    append_le32(out, settings_.capabilities);
    append_le16(out, static_cast<uint16_t>(components_.size()));
    append_string_head(out, active_);
    append_string_head(out, pending_);
    append_text(out, active_.text);
    append_text(out, pending_ ? pending_->text : "");
    for (const PldmFirmwareComponent& component : components_) {
        append_le16(out, component.classification);
        append_le16(out, component.identifier);
        out.push_back(component.index);
        append_version(out, component.active);
        append_version(out, component.pending);
        append_le16(out, component.activation_methods);
        append_le32(out, component.capabilities);
        append_text(out, component.active.text);
        append_text(out, component.pending ? component.pending->text : "");
    }
    return out;
}

// ---- The beginning of an update -----------------------------------------------------------------

Bytes PldmFirmware::request_update(ByteView data) {
    if (updating()) {
        return pldm_reply(kAlreadyInUpdateMode);
    }
    const std::optional<PldmFirmwareVersion> offered = version_at(data, 9, 11);
    if (!offered) {
        return pldm_reply(kPldmInvalidLength);
    }
    const uint32_t max_transfer = le32(data, 0);
    const uint8_t outstanding_requests = data[6];
    if (max_transfer < PiecePlan::kShortest || outstanding_requests == 0) {
        return pldm_reply(kPldmInvalidData);
    }
    enter(PldmFirmwareState::kLearnComponents);
    max_transfer_ = max_transfer;
    offered_ = *offered;
    table_begun_ = false;
    metadata_handle_ = 0;
    fetch_package_data_ = settings_.get_package_data && le16(data, 7) != 0;
    package_data_begun_ = false;
    package_handle_ = 0;
    package_data_.clear();
    transfers_.assign(components_.size(), {});

    const auto length = static_cast<uint16_t>(settings_.metadata.size());
    Bytes out;
    append_le16(out, settings_.claimed_metadata_length.value_or(length));
    out.push_back(fetch_package_data_ ? 1 : 0);
    return pldm_reply(kPldmSuccess, out);
}

Bytes PldmFirmware::get_device_meta_data(ByteView data) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (state_ != PldmFirmwareState::kLearnComponents) {
        return pldm_reply(kInvalidState);
    }
    if (settings_.metadata.empty()) {
        return pldm_reply(kNoDeviceMetadata);
    }
    const uint32_t handle = le32(data, 0);
    if (data[4] > kPldmGetFirstPart) {
        return pldm_reply(kInvalidDataFlag);
    }
    const bool first = data[4] == kPldmGetFirstPart;
    if (!first && handle != metadata_handle_) {
        return pldm_reply(kInvalidDataHandle);
    }
    return metadata_part(first ? 0 : handle, kFwGetDeviceMetaData);
}

// Agents exist that ask the device for metadata by this command too. They get the first part.
Bytes PldmFirmware::get_meta_data(ByteView) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (settings_.metadata.empty()) {
        return pldm_reply(kNoDeviceMetadata);
    }
    return metadata_part(0, kFwGetMetaData);
}

/// A part; its handle is where it stands in the metadata.
Bytes PldmFirmware::metadata_part(uint32_t handle, uint8_t command) {
    const bool endless = strike(Kind::kEndless, command) != nullptr;
    const ByteView all = settings_.metadata;
    const size_t at = endless ? handle % all.size() : std::min<size_t>(handle, all.size());
    size_t length = settings_.metadata_part_size != 0 ? settings_.metadata_part_size : ~0u;
    length = std::min({length, size_t{max_transfer_}, all.size() - at});
    const bool last = !endless && at + length == all.size();
    metadata_handle_ = handle + static_cast<uint32_t>(length);
    Bytes out;
    append_le32(out, last ? 0 : metadata_handle_);
    if (handle == 0) {
        out.push_back(last ? kStartAndEnd : kStart);
    } else {
        out.push_back(last ? kEnd : kMiddle);
    }
    append(out, all.subspan(at, length));
    return pldm_reply(kPldmSuccess, out);
}

// ---- Components ---------------------------------------------------------------------------------

std::optional<size_t> PldmFirmware::find_component(uint16_t classification, uint16_t identifier,
                                                   uint8_t index) const {
    for (size_t i = 0; i < components_.size(); ++i) {
        if (components_[i].classification == classification &&
            components_[i].identifier == identifier && components_[i].index == index) {
            return i;
        }
    }
    return std::nullopt;
}

/// Why a comparison stamp speaks against an update that is not forced.
uint8_t PldmFirmware::objection(size_t component, uint32_t stamp) const {
    const uint32_t mine = components_[component].active.stamp;
    if (!settings_.only_newer || stamp > mine) {
        return kNoObjection;
    }
    return stamp == mine ? kStampIdentical : kStampLower;
}

Bytes PldmFirmware::pass_component_table(ByteView data) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (state_ != PldmFirmwareState::kLearnComponents) {
        return pldm_reply(kInvalidState);
    }
    if (!version_at(data, 10, 12)) {
        return pldm_reply(kPldmInvalidLength);
    }
    const uint8_t flag = data[0];
    const bool begins = flag == kStart || flag == kStartAndEnd;
    if ((!begins && flag != kMiddle && flag != kEnd) || begins == table_begun_) {
        return pldm_reply(kPldmInvalidData);
    }

    table_begun_ = true;
    uint8_t code = kNotSupported;
    if (const std::optional<size_t> found = find_component(le16(data, 1), le16(data, 3), data[5])) {
        transfers_[*found].passed = true;
        code = objection(*found, le32(data, 6));
    }
    if (const PldmFirmwareFault* fault = strike(Kind::kRefuseComponent, kFwPassComponentTable)) {
        code = static_cast<uint8_t>(fault->value);
    }
    if (flag == kEnd || flag == kStartAndEnd) {
        enter(PldmFirmwareState::kReadyXfer);
    }
    return pldm_reply(kPldmSuccess, Bytes{static_cast<uint8_t>(code != kNoObjection), code});
}

Bytes PldmFirmware::update_component(ByteView data) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (state_ != PldmFirmwareState::kReadyXfer) {
        return pldm_reply(kInvalidState);
    }
    std::optional<PldmFirmwareVersion> version = version_at(data, 17, 19);
    if (!version) {
        return pldm_reply(kPldmInvalidLength);
    }
    version->stamp = le32(data, 5);
    const uint32_t flags = le32(data, 13);
    uint8_t code = kNotSupported;
    const std::optional<size_t> found = find_component(le16(data, 0), le16(data, 2), data[4]);
    if (found) {
        const bool forced = (flags & kForceUpdate) != 0;
        code = !transfers_[*found].passed ? kNoMatch
               : forced                   ? kNoObjection
                                          : objection(*found, version->stamp);
        transfers_[*found].tried = true;
    }
    bool refused = code != kNoObjection;
    if (const PldmFirmwareFault* fault = strike(Kind::kRefuseComponent, kFwUpdateComponent)) {
        refused = true;
        code = static_cast<uint8_t>(fault->value);
    }
    if (!refused) {
        transfers_[*found].version = *version;
        start_transfer(*found, data);
    }
    Bytes out{static_cast<uint8_t>(refused), code};
    append_le32(out, refused ? 0 : flags & kForceUpdate);
    append_le16(out, refused ? 0 : settings_.time_before_request);
    return pldm_reply(kPldmSuccess, out);
}

void PldmFirmware::start_transfer(size_t component, ByteView data) {
    current_ = component;
    PldmFirmwareTransfer& transfer = transfers_[component];
    transfer.image_size = le32(data, 9);
    transfer.option_flags = le32(data, 13);
    components_[component].expected.look_again();
    images_[component].start(transfer.image_size, settings_.keep_image);
    const uint32_t wish = settings_.transfer_size != 0 ? settings_.transfer_size : max_transfer_;
    plan_ = PiecePlan(transfer.image_size, std::min(wish, max_transfer_), settings_.order,
                      settings_.seed, settings_.full_last_piece);
    turn_ = refusals_ = 0;
    transfer_failure_.reset();
    enter(PldmFirmwareState::kDownload);
}

// ---- The end of an update -----------------------------------------------------------------------

bool PldmFirmware::self_contained() const {
    for (size_t i = 0; i < components_.size(); ++i) {
        if (applied(transfers_[i]) && (components_[i].activation_methods & kSelfContained) != 0) {
            return true;
        }
    }
    return false;
}

void PldmFirmware::activate() {
    for (PldmFirmwareComponent& component : components_) {
        if (component.pending) {
            component.active = *std::exchange(component.pending, std::nullopt);
        }
    }
    if (pending_) {
        active_ = *std::exchange(pending_, std::nullopt);
    }
}

Bytes PldmFirmware::activate_firmware(ByteView data) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (state_ != PldmFirmwareState::kReadyXfer) {
        return pldm_reply(kInvalidState);
    }
    // A boolean that some agents send as 2.
    if (data[0] > 2) {
        return pldm_reply(kPldmInvalidData);
    }
    auto left_out = [](const PldmFirmwareTransfer& each) { return each.passed && !each.tried; };
    if (std::ranges::any_of(transfers_, left_out)) {
        return pldm_reply(kIncompleteUpdate);
    }
    if (std::ranges::none_of(transfers_, applied)) {
        return pldm_reply(kActivationNotRequired);
    }
    if (data[0] != 0 && !self_contained()) {
        return pldm_reply(kSelfContainedNotPermitted);
    }
    enter(PldmFirmwareState::kActivate);
    if (data[0] != 0 || settings_.activates_at_once) {
        activate();
    }
    end_update(kFwActivated);
    Bytes out;
    append_le16(out, data[0] != 0 ? settings_.activation_time : 0);
    return pldm_reply(kPldmSuccess, out);
}

Bytes PldmFirmware::get_status(ByteView) {
    enum : uint8_t { kInProgress = 0, kFailed = 2, kNothing = 3 };
    const bool busy = state_ >= PldmFirmwareState::kDownload && state_ <= PldmFirmwareState::kApply;
    const uint8_t aux = !busy ? kNothing : failed_ ? kFailed : kInProgress;
    uint8_t percent = kProgressUnknown;
    uint32_t flags = 0;
    if (busy) {
        const PldmFirmwareTransfer& transfer = transfers_[current_];
        flags = transfer.option_flags & kForceUpdate;
        if (state_ == PldmFirmwareState::kDownload && transfer.image_size != 0) {
            percent = static_cast<uint8_t>(transfer.bytes * 100 / transfer.image_size);
        }
    }
    constexpr uint8_t kGenericError = 0x0A;
    Bytes out{static_cast<uint8_t>(state_),
              static_cast<uint8_t>(previous_),
              aux,
              aux == kFailed ? kGenericError : uint8_t{0},
              percent,
              reason_};
    append_le32(out, flags);
    return pldm_reply(kPldmSuccess, out);
}

Bytes PldmFirmware::cancel_update_component(ByteView) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    if (state_ != PldmFirmwareState::kDownload && state_ != PldmFirmwareState::kVerify &&
        state_ != PldmFirmwareState::kApply) {
        return pldm_reply(kInvalidState);
    }
    enter(PldmFirmwareState::kReadyXfer);
    return pldm_reply(kPldmSuccess);
}

Bytes PldmFirmware::cancel_update(ByteView) {
    if (!updating()) {
        return pldm_reply(kNotInUpdateMode);
    }
    end_update(kFwCancelled);
    // Every component works on: no indication, and a bitmap of 64 zeros.
    return pldm_reply(kPldmSuccess, Bytes(1 + 8));
}

}  // namespace sim
