// SPDX-License-Identifier: Apache-2.0
// What a network controller is, how it behaves and what it does wrong: its "controller" key.
#ifndef SIDEBAND_SIM_NCSI_CONFIG_H
#define SIDEBAND_SIM_NCSI_CONFIG_H

#include <array>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"
#include "sim/pldm/sensor.h"

namespace sim {

/// The commands of NC-SI (DSP0222) and of two makers that a network controller knows.
enum class NcsiCommand : uint8_t {
    kClearInitialState,
    kSelectPackage,
    kDeselectPackage,
    kGetLinkStatus,
    kGetPrebootConfig,  ///< Broadcom
    kSetPrebootConfig,  ///< Broadcom
    kGetCardTlv,        ///< Mellanox
    kSetCardTlv,        ///< Mellanox
    kGetPfMacAddress,   ///< Mellanox
    kGetTemperature,    ///< Mellanox
    kOther,             ///< whatever else is sent
};
constexpr size_t kNcsiCommands = static_cast<size_t>(NcsiCommand::kOther) + 1;

/// In place of an internal channel: the package itself (DSP0222, channel ID).
constexpr uint8_t kNcsiWholePackage = 0x1F;

/// One thing that a network controller does wrong. The requests of a command are counted from 1,
/// those to a package or channel that is not there among them.
struct NcsiFault {
    enum class Kind {
        kCodes,         ///< answers with response code and reason code, and does not act
        kNoAnswer,      ///< neither answers nor acts
        kOtherCommand,  ///< the answer carries the control packet type `value`
        kOtherChannel,  ///< the answer carries the channel ID `value`
        kTruncate,      ///< the answer is cut to `value` bytes from its header on
        kOverLong,      ///< the answer has `value` bytes more behind its checksum
    };
    Kind kind = Kind::kCodes;
    NcsiCommand command = NcsiCommand::kOther;
    uint32_t at = 1;     ///< the first request that is hit
    uint32_t count = 1;  ///< that many in a row are hit; 0: all from there on
    uint32_t value = 0;
    uint16_t response = 0;  ///< of codes
    uint16_t reason = 0;    ///< of codes
};

/// What the Broadcom configuration commands read and write: bytes 32 to 35 of the get response.
using PrebootConfig = std::array<uint8_t, 4>;
/// What those of Mellanox do: bytes 30 and 36 to 39.
using CardTlv = std::array<uint8_t, 5>;
using MacAddress = std::array<uint8_t, 6>;

struct NcsiChannel {
    bool initial_state = true;  ///< until Clear Initial State
    bool link_up = true;
    uint8_t speed = 7;           ///< speed and duplex, bits 1 to 4 of the link status
    uint8_t extended_speed = 0;  ///< bits 24 to 31
    bool autoneg = true;         ///< auto-negotiation is enabled: bit 5
    bool autoneg_done = true;    ///< and complete: bit 6
    uint32_t status_bits = 0;    ///< further bits of the link status
    std::optional<PrebootConfig> preboot;
    std::optional<MacAddress> mac;

    uint32_t link_status() const;
};

struct NcsiPackage {
    bool selected = false;
    std::map<uint8_t, NcsiChannel> channels;  ///< by internal channel ID
    std::optional<CardTlv> card_tlv;
};

/// How a network controller behaves.
struct NcsiSettings {
    bool checksums = true;  ///< of its answers; without: 0, which says that there is none
    std::set<NcsiCommand> unsupported;
    std::map<uint8_t, Waveform> temperatures;  ///< in degrees Celsius, by sensor index
    std::vector<NcsiFault> faults;
};

/// All of a "controller" object.
struct NcsiConfig {
    NcsiSettings settings;
    std::map<uint8_t, NcsiPackage> packages;  ///< by package ID
};

NcsiConfig read_ncsi(const Place& place);

}  // namespace sim

#endif
