// SPDX-License-Identifier: Apache-2.0
// What a firmware device tells of itself: descriptors, versions, components (DSP0267).
#ifndef SIDEBAND_TOOLS_UPDATE_INFO_H
#define SIDEBAND_TOOLS_UPDATE_INFO_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/update/package.h"

namespace tool {

/// One version of a component.
struct FirmwareVersion {
    uint32_t comparison_stamp = 0;
    std::string version;
    std::string release_date;  ///< as the device wrote it: YYYYMMDD; empty if it has none
};

/// An entry of the component parameter table.
struct FirmwareComponent {
    uint16_t classification = 0;
    uint16_t identifier = 0;
    uint8_t classification_index = 0;
    FirmwareVersion active;
    FirmwareVersion pending;
    uint16_t activation_methods = 0;
    uint32_t capabilities = 0;
};

struct FirmwareInfo {
    std::vector<Descriptor> descriptors;
    uint32_t capabilities = 0;
    std::string active_version;   ///< of the image set
    std::string pending_version;  ///< of the image set; empty if none is pending
    std::vector<FirmwareComponent> components;

    /// The value of the PCI vendor descriptor.
    std::optional<uint16_t> pci_vendor() const;
    /// Whether each descriptor of a package's record is one of the device's.
    bool matches(const pldm_device_record& record) const;
};

/// QueryDeviceIdentifiers and GetFirmwareParameters. Throws Failure.
FirmwareInfo read_firmware_info(Session& session);

/// GetFirmwareParameters alone: all but the descriptors.
FirmwareInfo read_firmware_versions(Session& session);

/// Tables for people, each line behind some blanks.
std::string firmware_text(const FirmwareInfo& info, size_t indent = 0);
/// The members of the JSON document of pldm fw-info.
Json firmware_json(const FirmwareInfo& info);
/// The versions alone.
Json firmware_versions_json(const FirmwareInfo& info);

/// How a component becomes active, in words: "self-contained, AC power cycle".
std::string activation_text(uint16_t methods);

/// A version for people: what a terminal can show of it, "-" if there is none.
std::string version_or_dash(const std::string& version);

}  // namespace tool

#endif
