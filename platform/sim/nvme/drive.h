// SPDX-License-Identifier: Apache-2.0
// An NVMe drive behind its management endpoint: NVMe-MI commands and the admin tunnel.
#ifndef SIDEBAND_SIM_NVME_DRIVE_H
#define SIDEBAND_SIM_NVME_DRIVE_H

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "sim/nvme/completion.h"
#include "sim/nvme/config.h"
#include "sim/nvme/firmware.h"
#include "sim/nvme/media.h"
#include "sim/nvme/namespaces.h"

namespace sim {

/// Where a request has its opcode, from behind the message type on.
inline constexpr size_t kNvmeOpcodePlace = 3;

/// What a drive sends for one request.
struct NvmeAnswer {
    std::vector<Bytes> in_advance;  ///< answers that ask for more time
    Bytes body;                     ///< from behind the message type on
};

/// Response message status (NVMe-MI, response message status values).
enum NvmeMessageStatus : uint8_t {
    kNvmeSuccess = 0x00,
    kNvmeMoreProcessing = 0x01,
    kNvmeInvalidOpcode = 0x03,
    kNvmeInvalidParameter = 0x04,
    kNvmeInvalidCommandSize = 0x05,
    kNvmeInvalidDataSize = 0x06,
    kNvmeAccessDenied = 0x07,
    kNvmeVpdUpdatesExceeded = 0x20,
};

/**
 * What the device and the tests see of it. Nothing here is locked: tests call it between calls of
 * the platform interface.
 */
class NvmeDrive {
public:
    /// How the drive is reached.
    struct Place {
        NvmePortType port = NvmePortType::kSmbus;
        size_t unit = NvmePort{}.unit;  ///< message bytes in each packet at power on
        uint8_t address = 0;            ///< 8-bit slave address over SMBus
    };

    NvmeDrive(NvmeConfig config, const Place& place);

    // ---- For tests --------------------------------------------------------------------------

    NvmeSettings& settings() { return settings_; }
    NvmeSmart& smart() { return config_.smart; }
    NvmeFirmware& firmware() { return firmware_; }
    NvmeNamespaces& namespaces() { return namespaces_; }
    NvmeMedia& media() { return media_; }
    ByteView vpd() const { return config_.vpd; }
    std::vector<NvmePort>& ports() { return config_.ports; }
    /// Null if there is none.
    const NvmeFeature* feature(uint8_t id) const;

    /// Requests of an opcode since the faults were set, those without an answer among them.
    uint64_t count(NvmeCommandSet set, uint8_t opcode) const;
    /// Messages that were dropped: too short, too long, no request.
    uint64_t malformed() const { return malformed_; }
    /// Messages that were dropped because their integrity check was wrong.
    uint64_t bad_checks() const { return bad_checks_; }
    /// Resets by command.
    uint64_t resets() const { return resets_; }
    /// Puts other faults in place, and counts requests from 1 again.
    void set_faults(std::vector<NvmeFault> faults);

    // ---- For the device ---------------------------------------------------------------------

    /// Answers a message of type 4 with an integrity check. @param body  from behind its type on
    /// @return nothing if nobody answers
    std::optional<NvmeAnswer> answer(ByteView body, double seconds);

    /// Power was lost and is back.
    void power_cycle();
    /// Message bytes in a packet on the port that it is reached by.
    size_t transmission_unit() const;

private:
    /// A management command that has been found whole.
    struct Request {
        uint8_t opcode = 0;
        uint32_t dword0 = 0;
        uint32_t dword1 = 0;
        ByteView data;
    };
    /// Response message status, management response and data.
    struct Response {
        NvmeMessageStatus status = kNvmeSuccess;
        uint32_t management = 0;  ///< 24 bits
        Bytes data;
        bool silent = false;
    };
    /// What the controller health data structures and change flags go by.
    struct Health {
        uint16_t kelvin = 0;
        uint8_t used = 0;
        uint8_t spare = 0;
        uint8_t warning = 0;
    };
    /// Admin opcodes, features and management opcodes that lockdown prohibits.
    struct Lockdown {
        std::set<uint8_t> admin;
        std::set<uint8_t> features;
        std::set<uint8_t> management;
    };

    static Response invalid_parameter(uint16_t byte, uint8_t bit = 0);

    std::optional<ByteView> take(ByteView body);
    const NvmeFault* strike(NvmeFault::Kind kind, NvmeCommandSet set, uint8_t opcode) const;
    std::optional<Response> faulty(NvmeCommandSet set, uint8_t opcode) const;
    /// What becomes of a request that is answered, faults of its status included.
    Response respond(NvmeCommandSet set, ByteView request);
    void subsystem_reset();
    void begin_anew();
    /// Null if the board file gives the drive none of that type.
    const NvmePort* own_port() const;
    void reset_units();

    // Management commands (NVMe-MI, Management Interface command set).
    Response manage(ByteView body);
    Response serve(const Request& request);
    Response read_data_structure(const Request& request) const;
    Bytes subsystem_information() const;
    Bytes port_information(const NvmePort& port) const;
    Bytes controller_information(const NvmeControllerState& controller) const;
    Response poll_subsystem_health(const Request& request);
    Response poll_controller_health(const Request& request);
    Response configuration_set(const Request& request);
    Response configuration_get(const Request& request) const;
    Response vpd_read(const Request& request) const;
    Response vpd_write(const Request& request);

    double temperature() const;
    Health health() const;
    void watch_health();
    void mark(uint16_t change);

    // The tunnel (NVMe-MI, NVM Express Admin command set).
    Response admin(ByteView body);
    /// What is wrong with a request's fields; nothing if it can be executed.
    std::optional<Response> objection(const NvmeAdminCommand& command, bool sized) const;
    NvmeCompletion execute(const NvmeAdminCommand& command);
    bool has_command(uint8_t opcode) const;
    NvmeStatus gate(const NvmeAdminCommand& command) const;
    NvmeCompletion download(const NvmeAdminCommand& command);
    NvmeCompletion vendor_command(uint8_t opcode) const;
    NvmeCompletion passthrough(NvmeAdminCommand command);
    NvmeCompletion lockdown(const NvmeAdminCommand& command);
    NvmeCompletion sanitize(const NvmeAdminCommand& command);
    NvmeCompletion get_features(const NvmeAdminCommand& command) const;
    NvmeCompletion set_features(const NvmeAdminCommand& command);

    NvmeCompletion identify(const NvmeAdminCommand& command);
    NvmeCompletion identify_namespace(const NvmeAdminCommand& command, bool allocated);
    Bytes identify_controller(uint16_t controller) const;
    Bytes describe(uint32_t id, const NvmeNamespace& space) const;
    Bytes list_controllers(uint16_t from, uint32_t attached_to) const;

    NvmeCompletion get_log_page(const NvmeAdminCommand& command) const;
    std::optional<Bytes> log_page(uint8_t id) const;
    Bytes smart_log() const;
    Bytes error_log() const;
    void note_error(const NvmeAdminCommand& command, NvmeStatus status);

    NvmeConfig config_;
    NvmeSettings settings_;
    Place place_;
    NvmeFirmware firmware_;
    NvmeNamespaces namespaces_;
    NvmeMedia media_;
    Lockdown lockdown_;
    Health last_health_;
    double now_ = 0;  ///< seconds

    std::deque<Bytes> errors_;  ///< entries of the error log, newest first
    uint64_t error_count_ = 0;
    std::map<std::pair<NvmeCommandSet, uint8_t>, uint64_t> counts_;
    uint64_t malformed_ = 0;
    uint64_t bad_checks_ = 0;
    uint64_t resets_ = 0;
};

/// Bits of the composite controller status and, from 4 to 7, of a controller's (NVMe-MI).
enum NvmeChange : uint16_t {
    kNvmeReady = 1u << 0,
    kNvmeSubsystemReset = 1u << 4,
    kNvmeNamespacesChanged = 1u << 6,
    kNvmeFirmwareActivated = 1u << 7,
    kNvmeStatusChanged = 1u << 8,
    kNvmeTemperatureChanged = 1u << 9,
    kNvmeUsedChanged = 1u << 10,
    kNvmeSpareChanged = 1u << 11,
    kNvmeWarningChanged = 1u << 12,
};

}  // namespace sim

#endif
