// SPDX-License-Identifier: Apache-2.0
// Rules on update mode: what is refused outside it, and how it is entered and left (DSP0267).
#include <csignal>

#include "tools/check/rules.h"
#include "tools/check/update.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool::check {
namespace {

// Completion codes of the update commands.
constexpr uint8_t kNotInUpdateMode = 0x80;
constexpr uint8_t kAlreadyInUpdateMode = 0x81;
constexpr uint8_t kInvalidState = 0x84;

constexpr uint8_t kCancelled = 2;  // reason code

/// Nobody updates the device at the moment, as far as it says.
void need_idle(Device& device) {
    if (status_of(device).current != kIdle) {
        not_applicable("the device is being updated");
    }
}

/// Ends the rule unless a command is refused because the device is not in update mode.
void refused_when_idle(Device& device, uint8_t command, const char* name,
                       std::span<const uint8_t> data) {
    need_pldm_command(device, kUpdate, command, name);
    need_idle(device);
    expect_pldm_code(ask_pldm(device, kUpdate, command, data), kNotInUpdateMode,
                     "NOT_IN_UPDATE_MODE");
}

void metadata_needs_the_mode(Device& device) {
    refused_when_idle(device, kGetDeviceMetaData, "GetDeviceMetaData",
                      Bytes(Body().le32(0).u8(kGetFirstPart)));
}

void cancel_needs_the_mode(Device& device) {
    refused_when_idle(device, kCancelUpdate, "CancelUpdate", {});
}

void cancel_component_needs_the_mode(Device& device) {
    refused_when_idle(device, kCancelUpdateComponent, "CancelUpdateComponent", {});
}

void activation_needs_the_mode(Device& device) {
    refused_when_idle(device, kActivateFirmware, "ActivateFirmware", Bytes{0});
}

/// RequestUpdate without package data, of a version that is called "check".
Exchange request_update(Device& device) {
    constexpr uint8_t kVersion[] = {'c', 'h', 'e', 'c', 'k'};
    constexpr uint32_t kMaxTransfer = 64;
    constexpr uint8_t kAscii = 1;
    return ask_pldm(device, kUpdate, kRequestUpdate,
                    Bytes(Body()
                              .le32(kMaxTransfer)
                              .le16(1)  // components
                              .u8(1)    // outstanding requests
                              .le16(0)  // package data
                              .u8(kAscii)
                              .u8(sizeof kVersion)
                              .bytes(kVersion)));
}

/// A device in update mode, until the scope ends.
class UpdateMode {
public:
    /// The object exists as soon as nothing stands against the request: the device may have taken
    /// one of which no answer comes in time.
    explicit UpdateMode(Device& device) : UpdateMode(device, NotYet{}) {
        entered_ = request_update(device);
    }
    /// Whatever the rule has found, the device is not left in update mode. A signal waits for that.
    ~UpdateMode() {
        const int signal = SignalWatch::signal();
        if (!left_) {
            const InterruptGuard guard;
            const TimeLimitLifted lifted;
            try {
                leave();
            } catch (const Finding&) {  // too much time has passed
            }
        }
        if (signal != 0) {
            std::raise(signal);
        }
    }
    UpdateMode(const UpdateMode&) = delete;
    UpdateMode& operator=(const UpdateMode&) = delete;

    const Exchange& entered() const { return entered_; }

    /// Ends the rule, which does not apply, unless the device is in update mode.
    void need() const {
        if (pldm_code(entered_) != kSuccess) {
            not_applicable("RequestUpdate does not succeed");
        }
    }

    Exchange leave() {
        left_ = true;
        return ask_pldm(device_, kUpdate, kCancelUpdate);
    }

private:
    struct NotYet {};
    UpdateMode(Device& device, NotYet) : device_(device) {
        need_pldm_command(device, kUpdate, kRequestUpdate, "RequestUpdate");
        need_pldm_command(device, kUpdate, kCancelUpdate, "CancelUpdate");
        need_idle(device);
    }

    Device& device_;
    Exchange entered_;
    bool left_ = false;
};

void mode_can_be_entered(Device& device) {
    const UpdateMode mode(device);
    expect_pldm_success(mode.entered(), kPldmHeader + 1 + 3);
}

void mode_shows_in_the_status(Device& device) {
    const UpdateMode mode(device);
    mode.need();
    const Status status = status_of(device);
    expect(status.current == kLearnComponents && status.previous == kIdle, status.exchange,
           "state LEARN COMPONENTS behind IDLE");
}

void mode_cannot_be_entered_twice(Device& device) {
    const UpdateMode mode(device);
    mode.need();
    expect_pldm_code(request_update(device), kAlreadyInUpdateMode, "ALREADY_IN_UPDATE_MODE");
}

void activation_needs_components(Device& device) {
    need_pldm_command(device, kUpdate, kActivateFirmware, "ActivateFirmware");
    const UpdateMode mode(device);
    mode.need();
    expect_pldm_code(ask_pldm(device, kUpdate, kActivateFirmware, Bytes{0}), kInvalidState,
                     "INVALID_STATE_FOR_COMMAND");
}

void mode_can_be_left(Device& device) {
    UpdateMode mode(device);
    mode.need();
    expect_pldm_success(mode.leave(), kPldmHeader + 1 + 9);
    const Status status = status_of(device);
    expect(status.current == kIdle && status.previous == kLearnComponents, status.exchange,
           "state IDLE behind LEARN COMPONENTS");
    expect(status.reason == kCancelled, status.exchange, "reason code 2, CancelUpdate");
}

constexpr Rule kRules[] = {
    {"update.idle.metadata", "DSP0267, GetDeviceMetaData",
     "outside update mode it is refused with NOT_IN_UPDATE_MODE", metadata_needs_the_mode},
    {"update.idle.cancel", "DSP0267, CancelUpdate",
     "outside update mode it is refused with NOT_IN_UPDATE_MODE", cancel_needs_the_mode, true},
    {"update.idle.cancel-component", "DSP0267, CancelUpdateComponent",
     "outside update mode it is refused with NOT_IN_UPDATE_MODE", cancel_component_needs_the_mode,
     true},
    {"update.idle.activate", "DSP0267, ActivateFirmware",
     "outside update mode it is refused with NOT_IN_UPDATE_MODE", activation_needs_the_mode, true},
    {"update.mode.enter", "DSP0267, RequestUpdate", "RequestUpdate succeeds, with three bytes",
     mode_can_be_entered, true},
    {"update.mode.state", "DSP0267, GetStatus", "the state is then LEARN COMPONENTS",
     mode_shows_in_the_status, true},
    {"update.mode.twice", "DSP0267, RequestUpdate",
     "a second RequestUpdate is refused with ALREADY_IN_UPDATE_MODE", mode_cannot_be_entered_twice,
     true},
    {"update.mode.activate", "DSP0267, ActivateFirmware",
     "without components it is refused with INVALID_STATE_FOR_COMMAND", activation_needs_components,
     true},
    {"update.mode.cancel", "DSP0267, CancelUpdate", "an update that is cancelled ends in IDLE",
     mode_can_be_left, true},
};

}  // namespace

std::span<const Rule> update_mode_rules() {
    return kRules;
}

}  // namespace tool::check
