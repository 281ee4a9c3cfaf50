// SPDX-License-Identifier: Apache-2.0
// One firmware update of one device: run by the library, watched message by message.
#ifndef SIDEBAND_TOOLS_UPDATE_UPDATE_H
#define SIDEBAND_TOOLS_UPDATE_UPDATE_H

#include <sideband/pldm_fw_update.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tools/shell/failure.h"
#include "tools/shell/port.h"
#include "tools/shell/progress.h"
#include "tools/shell/session.h"
#include "tools/update/package.h"

namespace tool {

/// What was seen of an update: enough to say how it ended, and which step stopped it.
struct UpdateRecord {
    /// A request of the agent that failed.
    struct Refusal {
        uint8_t command = 0;
        std::optional<uint8_t> code;  ///< completion code; none if no answer came
        std::string silence = {};     ///< why none came
    };

    bool exchanged = false;           ///< any request was sent
    bool accepted = false;            ///< the last RequestUpdate was
    bool activated = false;           ///< behind that, ActivateFirmware was
    uint16_t activation_s = 0;        ///< estimated time of self-contained activation
    unsigned components = 0;          ///< that the device records in use mark
    unsigned applied = 0;             ///< of these
    uint8_t last_request = 0;         ///< command code of the device's last request
    uint8_t mark = 0;                 ///< the first PLDM_FW_MARK_... that was left; 0 for none
    std::optional<Refusal> refusal;   ///< the first one behind the last RequestUpdate
    std::optional<Refusal> answered;  ///< a request of the device refused by the agent
    std::optional<uint8_t> component_refusal;  ///< ComponentCompatibilityResponseCode
    std::optional<uint8_t> result;             ///< of the first ...Complete that reports an error
    std::optional<size_t> component;           ///< index of the component that was refused
    std::optional<size_t> current;             ///< index of the last component that was offered
    uint8_t state = 0;                         ///< of the context, at the end
    sideband_error error{};                    ///< what the library has to say, at the end
    bool interrupted = false;
    bool out_of_time = false;
    bool cancelled = false;              ///< CancelUpdate was sent at the end
    std::optional<uint8_t> cancel_code;  ///< the device's answer to it; none if none came

    bool succeeded() const {
        return accepted && activated && applied == components && components > 0;
    }
    /// Whether the device may still wait for the rest of the update.
    bool unfinished() const { return accepted && !activated; }
};

/// Which step failed and why, from the marks and from what was seen.
/// @param endpoint  as the user has named it
Failure update_failure(const std::string& endpoint, const UpdateRecord& record);

class FirmwareUpdate {
public:
    /// @param session   discovered; outlives this
    /// @param progress  may be null
    FirmwareUpdate(Session& session, const Port& port, Progress* progress);
    ~FirmwareUpdate() { pldm_free_ua_resource(&link_.context); }
    FirmwareUpdate(const FirmwareUpdate&) = delete;
    FirmwareUpdate& operator=(const FirmwareUpdate&) = delete;

    /// Binds the terminus. Throws Failure, for a device that cannot be updated too.
    void bring_up();

    /// Updates once, behind bring_up(). If it is interrupted, or fails half way, the device is
    /// made to leave update mode before this returns.
    /// @param transfer_size  MaximumTransferSize in bytes
    /// @param flags          PLDM_FW_FLAG_...
    const UpdateRecord& run(const std::string& package, uint32_t transfer_size, uint32_t flags);

    /// Bytes of all components that the device has taken.
    uint64_t bytes() const { return finished_ + reached_; }

private:
    /// The library's operations get the address of the context's pldm member; of() finds the rest.
    struct Link {
        pldm_fw_update_ctx context;
        FirmwareUpdate* update;
    };

    static FirmwareUpdate& of(pldm_ctx* pldm);
    static int32_t receive(pldm_ctx* pldm, int32_t capacity, uint8_t* buffer);
    static int32_t send(pldm_ctx* pldm, uint32_t length, const uint8_t* message, uint8_t tag_owner);
    static int32_t transfer(pldm_ctx* pldm, uint32_t request_length, int32_t response_capacity,
                            uint8_t* request, uint8_t* response);

    bool stopped();
    void note_mark();
    void note_exchange(const uint8_t* request, int32_t result, std::span<const uint8_t> response);
    void note_accepted();
    void note_offer(std::span<const uint8_t> response);
    void note_request(const uint8_t* request);
    void note_answer(std::span<const uint8_t> answer);
    std::optional<size_t> component_index() const;
    uint32_t component_size() const;
    void leave_update_mode();
    void show();

    Session& session_;
    const Port& port_;
    Progress* progress_;
    Link link_{};
    pldm_ctx operations_{};  ///< the library's own
    UpdateRecord record_;
    std::array<uint8_t, PLDM_FW_UPDATE_REQUEST_SIZE> request_{};  ///< the device's last one
    uint64_t total_ = 0;                                          ///< bytes of all components
    uint64_t finished_ = 0;  ///< of those that have been transferred
    uint64_t reached_ = 0;   ///< of the one that is being transferred
};

}  // namespace tool

#endif
