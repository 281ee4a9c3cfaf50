// SPDX-License-Identifier: Apache-2.0
// Messages as the rules make and take them apart: MCTP control, PLDM, version numbers, checksums.
#ifndef SIDEBAND_TOOLS_CHECK_MESSAGES_H
#define SIDEBAND_TOOLS_CHECK_MESSAGES_H

#include "common/wire.h"
#include "tools/check/device.h"

namespace tool::check {

/// A message body under construction.
class Body {
public:
    Body& u8(uint8_t value) {
        bytes_.push_back(value);
        return *this;
    }
    Body& le16(uint16_t value) {
        writer(sizeof value).le16(value);
        return *this;
    }
    Body& le32(uint32_t value) {
        writer(sizeof value).le32(value);
        return *this;
    }
    Body& be16(uint16_t value) {
        writer(sizeof value).be16(value);
        return *this;
    }
    Body& be32(uint32_t value) {
        writer(sizeof value).be32(value);
        return *this;
    }
    Body& bytes(std::span<const uint8_t> more) {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }

    operator Bytes() const { return bytes_; }

private:
    /// Writes into room that is made at the end.
    sideband::WireWriter writer(size_t room) {
        const size_t at = bytes_.size();
        bytes_.resize(at + room);
        return sideband::WireWriter(std::span(bytes_).subspan(at));
    }

    Bytes bytes_;
};

// ---- Codes that MCTP control and PLDM share (DSP0236, table 13; DSP0240, completion codes) ------

inline constexpr uint8_t kSuccess = 0x00;
inline constexpr uint8_t kInvalidData = 0x02;
inline constexpr uint8_t kInvalidLength = 0x03;
inline constexpr uint8_t kUnsupportedCommand = 0x05;

/// First byte of both: request, datagram, reserved, instance ID.
inline constexpr uint8_t kRequestBit = 0x80;
inline constexpr uint8_t kDatagramBit = 0x40;
inline constexpr uint8_t kReservedBit = 0x20;
inline constexpr uint8_t kInstanceBits = 0x1F;
/// Instance IDs that are tried.
inline constexpr uint8_t kInstances[] = {0, 1, 21, 31};

// ---- MCTP control -------------------------------------------------------------------------------

inline constexpr size_t kControlHeader = 2;

/// Commands (DSP0236, table 12).
enum ControlCommand : uint8_t {
    kSetEndpointId = 0x01,
    kGetEndpointId = 0x02,
    kGetEndpointUuid = 0x03,
    kGetVersionSupport = 0x04,
    kGetMessageTypeSupport = 0x05,
    kGetRoutingTableEntries = 0x0A,
};

Bytes control_request(uint8_t command, std::span<const uint8_t> data = {});
Exchange ask_control(Device& device, uint8_t command, std::span<const uint8_t> data = {});
Exchange recall_control(Device& device, uint8_t command, std::span<const uint8_t> data = {});

/// The data behind the completion code of an answer that says success. Any other ends the rule,
/// which does not apply then: another rule is about the answer as such.
std::span<const uint8_t> control_data(const Exchange& exchange, const char* command);

/// The message types that the device names, control not among them; empty if it names none.
Bytes message_types(Device& device);

/// Ends the rule, which does not apply, unless the device names the message type.
void need_message_type(Device& device, uint8_t type, const char* name);

// ---- PLDM ---------------------------------------------------------------------------------------

inline constexpr size_t kPldmHeader = 3;

enum PldmType : uint8_t { kBase = 0, kMonitoring = 2, kFru = 4, kUpdate = 5 };

/// Commands of the base type (DSP0240).
enum BaseCommand : uint8_t {
    kSetTid = 0x01,
    kGetTid = 0x02,
    kGetPldmVersion = 0x03,
    kGetPldmTypes = 0x04,
    kGetPldmCommands = 0x05,
};

/// TransferOperationFlag of what is read in parts.
inline constexpr uint8_t kGetNextPart = 0;
inline constexpr uint8_t kGetFirstPart = 1;
/// A bit of the transfer flag that every table of its values has: the last part, or the only one.
inline constexpr uint8_t kLastPart = 0x04;
inline constexpr uint8_t kOnlyPart = 0x05;
/// No TransferOperationFlag of any command.
inline constexpr uint8_t kNoOperation = 0x7F;

Bytes pldm_request(uint8_t type, uint8_t command, std::span<const uint8_t> data = {});
Exchange ask_pldm(Device& device, uint8_t type, uint8_t command,
                  std::span<const uint8_t> data = {});
Exchange recall_pldm(Device& device, uint8_t type, uint8_t command,
                     std::span<const uint8_t> data = {});

/// As control_data().
std::span<const uint8_t> pldm_data(const Exchange& exchange, const char* command);

/// The PLDM types that the device names.
Bytes pldm_types(Device& device);
/// The bytes of the version of a type that the device names first, as GetPLDMCommands takes it.
std::optional<Bytes> pldm_version(Device& device, uint8_t type);
/// Whether the device names a command of a type.
bool has_pldm_command(Device& device, uint8_t type, uint8_t command);

/// End the rule, which does not apply, unless the device names the type or the command.
void need_pldm_type(Device& device, uint8_t type);
void need_pldm_command(Device& device, uint8_t type, uint8_t command, const char* name);

// ---- NVMe-MI ------------------------------------------------------------------------------------

/// First byte of a message, without its response bit: message type and command slot.
inline constexpr uint8_t kNvmeManagement = 0x08;
inline constexpr uint8_t kNvmeAdmin = 0x10;

/// A message with its integrity check, unless that is appended below.
Bytes nvme_message(Device& device, std::span<const uint8_t> message);
/// A command of the management interface.
Bytes nvme_command(Device& device, uint8_t opcode, uint32_t dword0, uint32_t dword1,
                   std::span<const uint8_t> data = {});
Exchange ask_nvme(Device& device, const Bytes& message);
Exchange recall_nvme(Device& device, const Bytes& message);

// ---- MCTP control and PLDM ----------------------------------------------------------------------

/// The completion code of an answer; empty if none came or it ends before its code.
std::optional<uint8_t> control_code(const Exchange& exchange);
std::optional<uint8_t> pldm_code(const Exchange& exchange);

/// End the rule unless the answer has the code. @param name  of the code
void expect_control_code(const Exchange& exchange, uint8_t code, const char* name);
void expect_pldm_code(const Exchange& exchange, uint8_t code, const char* name);

/// End the rule unless the answer says success and is as long as it has to be, header and
/// completion code among it.
void expect_control_success(const Exchange& exchange, size_t length);
void expect_pldm_success(const Exchange& exchange, size_t length);

/// Whether the bytes of a version number, major first, are ones that it can have (DSP0240, ver32):
/// BCD with 0xF for no digit, no update number, a letter or nothing.
bool is_version(uint8_t major, uint8_t minor, uint8_t update, uint8_t alpha);

/// CRC-32 of IEEE 802.3, CRC-32C, and the CRC-8 of the SMBus PEC. The check has its own, so that it
/// does not judge by what the library takes for right.
uint32_t crc32_of(std::span<const uint8_t> bytes);
uint32_t crc32c_of(std::span<const uint8_t> bytes);
uint8_t crc8_of(std::span<const uint8_t> bytes);

}  // namespace tool::check

#endif
