// SPDX-License-Identifier: Apache-2.0
// A network controller that speaks NC-SI: packages, channels, their settings (DSP0222, DSP0261).
#ifndef SIDEBAND_SIM_NCSI_CONTROLLER_H
#define SIDEBAND_SIM_NCSI_CONTROLLER_H

#include <optional>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/ncsi/config.h"

namespace sim {

/// A set command that has changed bits which it had to carry over as they were.
struct NcsiForeignChange {
    NcsiCommand command = NcsiCommand::kOther;
    uint8_t channel_id = 0;  ///< as in the request
    Bytes before;            ///< PrebootConfig or CardTlv
    Bytes after;
};

/**
 * What the device and the tests see of it. Nothing here is locked: tests call it between calls of
 * the platform interface.
 */
class NcsiController {
public:
    explicit NcsiController(NcsiConfig config);

    // ---- For tests --------------------------------------------------------------------------

    /// Null if there is none.
    NcsiPackage* package(uint8_t package_id);
    NcsiChannel* channel(uint8_t package_id, uint8_t channel);

    /// Requests of one command since the faults were set, those without an answer among them.
    uint64_t count(NcsiCommand command) const { return counts_[static_cast<size_t>(command)]; }
    /// Packets that were dropped: too short, not of revision 1, no request.
    uint64_t malformed() const { return malformed_; }
    /// Packets that were dropped because their checksum was neither right nor 0.
    uint64_t bad_checksums() const { return bad_checksums_; }
    /// Set commands that were done and have changed foreign bits, oldest first.
    const std::vector<NcsiForeignChange>& foreign_changes() const { return foreign_changes_; }

    NcsiSettings& settings() { return settings_; }
    /// Puts other faults in place, and counts requests from 1 again.
    void set_faults(std::vector<NcsiFault> faults);

    // ---- For the device ---------------------------------------------------------------------

    /// Answers a control packet. @param packet  from its header on
    /// @return likewise; nothing if nobody answers
    std::optional<Bytes> answer(ByteView packet, double seconds);

    /// Power was lost and is back: the channels are in their initial state.
    void reset();

private:
    /// A control packet that has been found whole.
    struct Request {
        uint8_t type = 0;
        uint8_t channel_id = 0;
        ByteView payload;
        NcsiCommand command = NcsiCommand::kOther;
        double seconds = 0;  ///< when it came

        uint8_t package_id() const { return channel_id >> 5; }
        uint8_t channel() const { return channel_id & 0x1F; }
    };
    /// The codes of a response, and what follows them.
    struct Response {
        uint16_t code = 0;
        uint16_t reason = 0;
        Bytes data;
    };

    static NcsiCommand identify(uint8_t type, ByteView payload);
    static NcsiCommand identify_oem(ByteView payload);

    std::optional<Request> take(ByteView packet);
    const NcsiFault* strike(NcsiFault::Kind kind, NcsiCommand command) const;
    Bytes compose(ByteView request, const Response& response) const;
    void spoil(NcsiCommand command, Bytes& packet) const;

    bool is_there(const Request& request);
    bool is_initialised(const Request& request);
    Response serve(const Request& request);
    Response serve_package(const Request& request);
    Response serve_channel(const Request& request, NcsiChannel& channel);

    Response serve_oem(const Request& request);
    Response serve_preboot(const Request& request);
    Response serve_card_tlv(const Request& request);
    Response get_pf_mac_address(const Request& request);
    Response get_temperature(const Request& request);
    void watch(const Request& request, ByteView before, ByteView after, ByteView carried_over);

    NcsiSettings settings_;
    std::map<uint8_t, NcsiPackage> packages_;
    std::array<uint64_t, kNcsiCommands> counts_{};
    uint64_t malformed_ = 0;
    uint64_t bad_checksums_ = 0;
    std::vector<NcsiForeignChange> foreign_changes_;
};

/// Response codes (DSP0222, table of response codes).
enum NcsiResponseCode : uint16_t {
    kNcsiCompleted = 0x0000,
    kNcsiFailed = 0x0001,
    kNcsiUnsupported = 0x0003,
};

/// Reason codes (DSP0222, table of reason codes).
enum NcsiReasonCode : uint16_t {
    kNcsiNoError = 0x0000,
    kNcsiInitialisationRequired = 0x0001,
    kNcsiInvalidParameter = 0x0002,
    kNcsiInvalidPayloadLength = 0x0005,
    kNcsiUnknownCommand = 0x7FFF,
};

}  // namespace sim

#endif
