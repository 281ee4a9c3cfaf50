// SPDX-License-Identifier: Apache-2.0
// What an NVMe drive is, how it behaves and what it does wrong: its "drive" key.
#ifndef SIDEBAND_SIM_NVME_CONFIG_H
#define SIDEBAND_SIM_NVME_CONFIG_H

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"
#include "sim/pldm/firmware_image.h"
#include "sim/pldm/sensor.h"

namespace sim {

/// The sets that a command belongs to, as the NVMe-MI message type names them.
enum class NvmeCommandSet : uint8_t { kManagement = 1, kAdmin = 2 };

/// One thing that a drive does wrong. The requests of an opcode are counted from 1, those with a
/// wrong integrity check left out.
struct NvmeFault {
    enum class Kind {
        kStatus,          ///< answers with a response message status, and does not act
        kCompletion,      ///< answers an admin command with a status of NVMe, and does not act
        kNoAnswer,        ///< neither answers nor acts
        kBadCheck,        ///< the answer's message integrity check is wrong
        kTruncate,        ///< the answer is cut to `value` bytes, from behind the message type on
        kOverLong,        ///< the answer has `value` bytes more before its integrity check
        kMoreProcessing,  ///< `value` answers that ask for more time come before the answer
    };
    Kind kind = Kind::kStatus;
    NvmeCommandSet set = NvmeCommandSet::kManagement;
    uint8_t opcode = 0;
    uint32_t at = 1;     ///< the first request that is hit
    uint32_t count = 1;  ///< that many in a row are hit; 0: all from there on
    uint32_t value = 0;
    uint16_t byte = 0;  ///< status 4: where the invalid parameter is said to be
    uint8_t bit = 0;    ///< likewise
    uint8_t sct = 0;    ///< completion: status code type
};

enum class NvmePortType : uint8_t { kInactive = 0, kPcie = 1, kSmbus = 2 };

struct NvmePort {
    NvmePortType type = NvmePortType::kPcie;
    uint16_t largest_unit = 64;     ///< the largest MCTP transmission unit
    uint16_t unit = 64;             ///< the one in use
    uint8_t frequency = 1;          ///< SMBus: 1 100 kHz, 2 400 kHz, 3 1 MHz
    uint8_t highest_frequency = 3;  ///< SMBus
};

/// A controller, its changes since they were cleared among it (NVMe-MI, composite controller
/// status).
struct NvmeControllerState {
    uint16_t id = 0;
    uint8_t port = 0;
    uint16_t changed = 0;
};

/// What the SMART / health information log page has, besides the temperature.
struct NvmeSmart {
    uint8_t critical_warning = 0;  ///< more bits than those that follow from the values
    uint8_t available_spare = 100;
    uint8_t spare_threshold = 10;
    uint8_t percentage_used = 0;
    uint64_t data_units_read = 0;
    uint64_t data_units_written = 0;
    uint64_t host_reads = 0;
    uint64_t host_writes = 0;
    uint64_t busy_minutes = 0;
    uint64_t power_cycles = 1;
    uint64_t power_on_hours = 0;
    uint64_t unsafe_shutdowns = 0;
    uint64_t media_errors = 0;
};

/// The value of a feature: that of the command dword, or data.
struct NvmeFeatureValue {
    uint32_t value = 0;
    Bytes data;
};

struct NvmeFeature {
    NvmeFeatureValue initial;  ///< what it is out of the box
    NvmeFeatureValue current;
    std::optional<NvmeFeatureValue> saved;
    bool saveable = true;
    bool changeable = true;
};

/// Which formats a namespace can have: bytes of a block as a power of two.
constexpr std::array<uint8_t, 2> kNvmeFormats = {9, 12};

struct NvmeNamespace {
    uint64_t blocks = 0;
    uint64_t used = 0;
    uint8_t format = 0;  ///< of kNvmeFormats
    uint8_t sharing = 0;
    std::set<uint16_t> controllers;  ///< those that it is attached to

    uint64_t bytes() const { return blocks << kNvmeFormats[format]; }
};

struct NvmeFirmwareConfig {
    std::vector<std::optional<std::string>> slots;  ///< revisions, from slot 1 on
    uint8_t active = 1;
    bool first_read_only = false;
    bool immediate = true;  ///< it can activate without a reset
    ExpectedImage expected;
};

/// How a drive behaves.
struct NvmeSettings {
    uint32_t more_processing = 0;        ///< answers that ask for time before every answer
    uint64_t processing_us = 100'000;    ///< the time that each of them asks for
    uint8_t subsystem_status = 0x38;     ///< drive functional, no reset required, PCIe link
    double warning_temperature = 70;     ///< in degrees Celsius
    double critical_temperature = 80;    ///< likewise
    std::optional<double> temperature;   ///< instead of the waveform's
    double sanitize_seconds = 10;        ///< how long a sanitize operation takes
    bool sanitize_fails = false;         ///< it fails at the end
    std::optional<uint32_t> vpd_writes;  ///< so many are left; nothing: no limit
    std::map<uint8_t, Bytes> vendor;     ///< data of vendor specific commands, by opcode
    std::vector<NvmeFault> faults;
};

/// All of a "drive" object.
struct NvmeConfig {
    NvmeSettings settings;
    std::string model;
    std::string serial;
    std::string nqn;
    uint16_t vendor_id = 0;
    uint16_t subsystem_vendor_id = 0;
    uint16_t device_id = 0;
    std::array<uint8_t, 3> ieee{};
    uint64_t capacity = 0;  ///< in bytes
    uint32_t most_namespaces = 16;
    std::vector<NvmePort> ports;
    std::map<uint16_t, NvmeControllerState> controllers;
    std::optional<Waveform> temperature;
    NvmeSmart smart;
    std::map<uint8_t, NvmeFeature> features;
    std::map<uint32_t, NvmeNamespace> namespaces;
    NvmeFirmwareConfig firmware;
    Bytes vpd;
};

NvmeConfig read_nvme(const Place& place);

}  // namespace sim

#endif
