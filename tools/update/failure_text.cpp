// SPDX-License-Identifier: Apache-2.0
// Says in words which step of a firmware update failed, and why.
#include <fmt/format.h>

#include "tools/shell/cause.h"
#include "tools/shell/codes.h"
#include "tools/shell/name_table.h"
#include "tools/shell/time_limit.h"
#include "tools/update/codes.h"
#include "tools/update/update.h"

namespace tool {
namespace {

constexpr uint8_t kRequestFirmwareData = 0x15;
constexpr uint8_t kActivateFirmware = 0x1A;
constexpr uint8_t kCancelUpdate = 0x1D;
constexpr uint8_t kNotInUpdateMode = 0x80;

/// Why UpdateComponent has not accepted a component.
std::string refusal_reason(uint8_t code) {
    const std::string text = component_refusal_text(code);
    const std::string number = fmt::format("code 0x{:02x}", code);
    return "the device refuses it: " + (text.empty() ? number : text + " (" + number + ")");
}

/// A result of one of the three reports, and its name if it has one.
std::string result_text(uint8_t result, const std::string& name) {
    return fmt::format("0x{:02x}{}", result, name.empty() ? "" : " (" + name + ")");
}

std::string component_text(const std::optional<size_t>& index) {
    return index ? fmt::format("component {}", *index) : "a component";
}

/// The words for one record; each function returns the failure of one kind.
class Words {
public:
    Words(const std::string& endpoint, const UpdateRecord& record)
        : endpoint_(endpoint), record_(record) {}

    Failure failure() const {
        if (record_.interrupted) {
            return {endpoint_, "the update", "cancelled, " + aftermath()};
        }
        if (record_.out_of_time) {
            return out_of_time(endpoint_, "the update", ", " + aftermath());
        }
        return record_.mark != 0 ? by_mark() : by_refusal();
    }

private:
    Failure by_mark() const {
        switch (record_.mark) {
            case PLDM_FW_MARK_TERMINUS:
                return plain("PLDM discovery", "the terminus could not be brought up");
            case PLDM_FW_MARK_NO_FW_UPDATE:
                return plain("the update", "the device does not speak PLDM firmware update");
            case PLDM_FW_MARK_PACKAGE:
                return {ExitStatus::kInput, endpoint_ + ": the package cannot be read any more"};
            case PLDM_FW_MARK_NO_RECORD:
                return plain("the update", "no device record of the package is for this device");
            case PLDM_FW_MARK_FW_PARAMETERS:
                return plain("GetFirmwareParameters", "no answer that can be used");
            case PLDM_FW_MARK_TRANSFER_COMPLETE:
                return completed("the transfer", "transfer result", transfer_result_name);
            case PLDM_FW_MARK_VERIFY_COMPLETE:
                return completed("the verification", "verify result", verify_result_name);
            case PLDM_FW_MARK_APPLY_COMPLETE:
                return completed("the application", "apply result", apply_result_name);
            case PLDM_FW_MARK_TIMEOUT:
                return silent();
            default:
                return by_refusal();
        }
    }

    Failure silent() const {
        const std::string last =
            record_.last_request != 0
                ? "behind its " + pldm_firmware_command_name(record_.last_request)
                : "and has not asked for anything";
        return plain("the transfer of " + component_text(record_.current),
                     "the device went silent " + last + ", or it asks without an end");
    }

    /// A ...Complete that reports an error, or whose answer did not reach the device.
    Failure completed(const std::string& what, const std::string& result,
                      std::string (*name)(uint8_t)) const {
        return plain(
            what + " of " + component_text(record_.result ? record_.component : record_.current),
            record_.result ? fmt::format("the device reports {} {}", result,
                                         result_text(*record_.result, name(*record_.result)))
                           : "the device's report could not be answered");
    }

    /// An update that ended without a mark of its own: what was refused tells.
    Failure by_refusal() const {
        const std::optional<UpdateRecord::Refusal>& refusal = record_.refusal;
        const bool only_activation = !refusal || refusal->command == kActivateFirmware;
        if (record_.component_refusal && only_activation) {
            return plain(component_text(record_.component),
                         refusal_reason(*record_.component_refusal));
        }
        if (refusal) {
            return refused(*refusal);
        }
        if (!record_.exchanged) {
            return plain("the update", "no session on PCIe");
        }
        if (record_.answered) {
            const UpdateRecord::Refusal& answer = *record_.answered;
            return plain(
                "the transfer of " + component_text(record_.current),
                fmt::format("the device's {} was out of order, and was answered with {}",
                            pldm_firmware_command_name(answer.command), code_text(named(answer))));
        }
        return stuck();
    }

    Failure refused(const UpdateRecord::Refusal& refusal) const {
        const std::string step =
            pldm_firmware_command_name(refusal.command) +
            (record_.component ? fmt::format(" of component {}", *record_.component)
                               : std::string());
        if (!refusal.code) {
            return plain(step, refusal.silence);
        }
        if (*refusal.code == PLDM_CC_SUCCESS) {
            return plain(step, unfit(record_.error));
        }
        const DeviceCode code = named(refusal);
        return {endpoint_, step, code_text(code) + suffix(), code, cause_name(record_.error)};
    }

    /// Neither a mark nor a refusal: the state in which it stands tells.
    Failure stuck() const {
        constexpr uint8_t kLearnComponents = 1;
        constexpr uint8_t kDownload = 3;
        constexpr uint8_t kVerify = 4;
        constexpr uint8_t kApply = 5;
        if (record_.state == kLearnComponents) {
            return plain("the update", "the device has no such component as the package is for");
        }
        if (record_.state == kDownload && record_.last_request == kRequestFirmwareData) {
            return plain("the transfer of " + component_text(record_.current),
                         "the package cannot be read any more, or the device cannot be answered");
        }
        if (record_.state >= kDownload && record_.state <= kApply) {
            static constexpr Name kNames[] = {{kDownload, "it was still to ask for data"},
                                              {kVerify, "it was still to be verified"},
                                              {kApply, "it was still to be applied"}};
            return plain(component_text(record_.current),
                         fmt::format("the device sent {} out of turn: {}",
                                     pldm_firmware_command_name(record_.last_request),
                                     find_name(kNames, record_.state, "")));
        }
        return plain("the update", fmt::format("{} of {} components have been applied",
                                               record_.applied, record_.components));
    }

    static DeviceCode named(const UpdateRecord::Refusal& refusal) {
        const uint8_t code = refusal.code.value_or(0);
        return {code, pldm_code_name(PLDM_TYPE_FW_UPDATE, refusal.command, code)};
    }

    Failure plain(const std::string& step, const std::string& reason) const {
        return {endpoint_, step, reason + suffix(), std::nullopt, cause_name(record_.error)};
    }

    /// The mark, for those who look for it in a log, and what else there is to know.
    std::string suffix() const {
        std::string text =
            record_.mark != 0 ? fmt::format(" (mark 0x{:02x})", record_.mark) : std::string();
        if (record_.cancelled && !has_left()) {
            text += "; " + aftermath();
        }
        return text;
    }

    bool has_left() const {
        return record_.cancel_code == PLDM_CC_SUCCESS || record_.cancel_code == kNotInUpdateMode;
    }

    /// How the device was left.
    std::string aftermath() const {
        if (!record_.cancelled) {
            return record_.accepted ? "behind the activation" : "before the device was changed";
        }
        if (has_left()) {
            return "the device has left update mode";
        }
        return "the device may still be in update mode: its answer to CancelUpdate was " +
               (record_.cancel_code ? code_text(named({kCancelUpdate, record_.cancel_code}))
                                    : std::string("none"));
    }

    const std::string& endpoint_;
    const UpdateRecord& record_;
};

}  // namespace

Failure update_failure(const std::string& endpoint, const UpdateRecord& record) {
    return Words(endpoint, record).failure();
}

}  // namespace tool
