// SPDX-License-Identifier: Apache-2.0
// The firmware device of a PLDM terminus: it walks through an update (DSP0267).
#ifndef SIDEBAND_SIM_PLDM_FIRMWARE_H
#define SIDEBAND_SIM_PLDM_FIRMWARE_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/pldm/firmware_config.h"
#include "sim/pldm/firmware_image.h"

namespace sim {

/// States of a firmware device, by their numbers in GetStatus (DSP0267).
enum class PldmFirmwareState : uint8_t {
    kIdle = 0,
    kLearnComponents = 1,
    kReadyXfer = 2,
    kDownload = 3,
    kVerify = 4,
    kApply = 5,
    kActivate = 6,
};

/// Why a firmware device is idle, by the numbers of GetStatus (DSP0267). A time-out is 3 and more.
enum PldmFirmwareReason : uint8_t {
    kFwInitialized = 0,
    kFwActivated = 1,
    kFwCancelled = 2,
    kFwTimeoutLearn = 3,
};

/// What became of a component in the last update that named it.
struct PldmFirmwareTransfer {
    bool passed = false;          ///< PassComponentTable named it, and it can be updated
    bool tried = false;           ///< UpdateComponent named it
    uint32_t image_size = 0;      ///< from UpdateComponent
    uint32_t option_flags = 0;    ///< from UpdateComponent
    uint32_t pieces = 0;          ///< that came, each place in the image counted once
    uint64_t bytes = 0;           ///< in them, without padding
    PldmFirmwareVersion version;  ///< from UpdateComponent
    /// What the device reported; nothing if it did not get so far.
    std::optional<uint8_t> transfer_result;
    std::optional<uint8_t> verify_result;
    std::optional<uint8_t> apply_result;
};

/**
 * What the terminus and the tests see of it. Nothing here is locked: tests call it between calls of
 * the platform interface. Components are numbered as in the board file, from 0.
 */
class PldmFirmware {
public:
    explicit PldmFirmware(PldmFirmwareConfig config);

    // ---- For tests --------------------------------------------------------------------------

    PldmFirmwareState state() const { return state_; }
    PldmFirmwareState previous_state() const { return previous_; }
    uint8_t reason() const { return reason_; }
    /// Of the image set.
    const PldmFirmwareVersion& active() const { return active_; }
    const std::optional<PldmFirmwareVersion>& pending() const { return pending_; }
    const std::vector<PldmFirmwareComponent>& components() const { return components_; }
    const PldmFirmwareTransfer& transfer(size_t component) const {
        return transfers_.at(component);
    }
    /// The image of a component as it came; empty if it is not kept.
    ByteView image(size_t component) const { return images_.at(component).bytes(); }
    /// Where it first differed from what was expected.
    std::optional<uint64_t> first_difference(size_t component) const {
        return images_.at(component).first_difference();
    }
    /// What the agent has sent in answer to GetPackageData.
    ByteView package_data() const { return package_data_; }
    /// Messages of one command since the faults were set, repetitions left out.
    uint64_t count(uint8_t command) const { return command < kCommands ? counts_[command] : 0; }
    /// Requests that were sent again because nobody answered.
    uint64_t repeated() const { return repeated_; }
    /// The completion code of the agent's last answer.
    std::optional<uint8_t> last_answer() const { return last_answer_; }

    PldmFirmwareSettings& settings() { return settings_; }
    void expect(size_t component, ExpectedImage image) {
        components_.at(component).expected = std::move(image);
    }
    /// Puts other faults in place, and counts messages from 1 again.
    void set_faults(std::vector<PldmFirmwareFault> faults);

    // ---- For the terminus -------------------------------------------------------------------

    /// What is to become of a request of the agent.
    struct Verdict {
        bool silent = false;          ///< no answer
        std::optional<uint8_t> code;  ///< this completion code, and nothing else
    };
    Verdict begin(uint8_t command, uint64_t now_us);
    /// Spoils the answer if a fault says so. @param answer  from its PLDM header on
    void finish(uint8_t command, Bytes& answer) const;

    /// The requests of the agent: data behind the header in, completion code and data out.
    Bytes query_device_identifiers(ByteView data);
    Bytes get_firmware_parameters(ByteView data);
    Bytes request_update(ByteView data);
    Bytes get_device_meta_data(ByteView data);
    Bytes pass_component_table(ByteView data);
    Bytes update_component(ByteView data);
    Bytes get_meta_data(ByteView data);
    Bytes activate_firmware(ByteView data);
    Bytes get_status(ByteView data);
    Bytes cancel_update_component(ByteView data);
    Bytes cancel_update(ByteView data);

    /// A request of the device, to be sent after a pause.
    struct Request {
        Bytes message;  ///< from the PLDM header on
        uint8_t tag = 0;
        uint64_t delay_us = 0;
    };
    /// The next one, if one is due and none is unanswered.
    std::optional<Request> next_request(uint64_t now_us);
    /// The unanswered one again, if the agent has been silent for too long.
    std::optional<Request> repetition(uint64_t now_us);
    /// Takes the agent's answer. @param answer  from its PLDM header on
    void heard(uint8_t tag, ByteView answer, uint64_t now_us);

    /// Power was lost and is back.
    void reset();

private:
    using Kind = PldmFirmwareFault::Kind;
    static constexpr size_t kCommands = 0x20;

    /// A request that the agent has not answered.
    struct Outstanding {
        uint8_t command = 0;
        bool extra = false;  ///< sent by a fault, in between: what comes of it does not matter
        Bytes message;
        PiecePlan::Piece piece;
        uint8_t result = 0;
        uint8_t tag = 0;
        uint64_t sent_us = 0;
        uint32_t repetitions = 0;
    };

    const PldmFirmwareFault* strike(Kind kind, uint8_t command) const;
    void count_message(uint8_t command);
    void enter(PldmFirmwareState state);
    void end_update(uint8_t reason);
    void check_idle(uint64_t now_us);
    bool updating() const { return state_ != PldmFirmwareState::kIdle; }

    Bytes parameters() const;
    Bytes metadata_part(uint32_t handle, uint8_t command);
    std::optional<size_t> find_component(uint16_t classification, uint16_t identifier,
                                         uint8_t index) const;
    uint8_t objection(size_t component, uint32_t stamp) const;
    void start_transfer(size_t component, ByteView data);
    bool self_contained() const;
    void activate();

    std::optional<uint8_t> wanted();
    Outstanding compose(uint8_t command, bool extra);
    uint8_t result_of(uint8_t command);
    void heard_package_data(ByteView data);
    void heard_piece(const Outstanding& request, ByteView data);
    void heard_complete(const Outstanding& request);

    PldmFirmwareSettings settings_;
    PldmFirmwareVersion active_;
    std::optional<PldmFirmwareVersion> pending_;
    std::vector<PldmFirmwareComponent> components_;
    std::vector<PldmFirmwareTransfer> transfers_;  ///< as components_
    std::vector<ReceivedImage> images_;            ///< as components_

    PldmFirmwareState state_ = PldmFirmwareState::kIdle;
    PldmFirmwareState previous_ = PldmFirmwareState::kIdle;
    uint8_t reason_ = kFwInitialized;
    bool dead_ = false;
    bool stalled_ = false;
    std::array<uint64_t, kCommands> counts_{};
    uint64_t last_heard_us_ = 0;

    // The update that is under way.
    uint32_t max_transfer_ = PiecePlan::kShortest;
    PldmFirmwareVersion offered_;   ///< image set
    bool table_begun_ = false;      ///< PassComponentTable has named a component
    uint32_t metadata_handle_ = 0;  ///< of the part that comes next
    bool fetch_package_data_ = false;
    bool package_data_begun_ = false;
    uint32_t package_handle_ = 0;  ///< of the part that comes next
    Bytes package_data_;
    size_t current_ = 0;  ///< component that is transferred
    PiecePlan plan_;
    uint32_t turn_ = 0;  ///< of the plan
    uint32_t refusals_ = 0;
    std::optional<uint8_t> transfer_failure_;
    bool failed_ = false;  ///< the component has failed and waits to be cancelled

    std::optional<Outstanding> outstanding_;
    uint8_t instance_ = 0;
    uint8_t tag_ = 0;
    uint64_t repeated_ = 0;
    std::optional<uint8_t> last_answer_;
};

}  // namespace sim

#endif
