// SPDX-License-Identifier: Apache-2.0
// Structures of NVMe drives that more than one command reads.
#ifndef SIDEBAND_TOOLS_NVME_STRUCTURES_H
#define SIDEBAND_TOOLS_NVME_STRUCTURES_H

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/nvme/client.h"
#include "tools/nvme/fields.h"
#include "tools/shell/json.h"

namespace tool {

/// The namespace ID that stands for all of them.
inline constexpr uint32_t kEveryNamespace = 0xFFFFFFFF;

/// "namespace 1", "every namespace".
std::string namespace_name(uint32_t nsid);

// Controller or namespace structure (NVMe base specification, Identify).
inline constexpr uint32_t kIdentifyCnsNamespace = 0x00;
inline constexpr uint32_t kIdentifyCnsController = 0x01;
inline constexpr uint32_t kIdentifyCnsActive = 0x02;
inline constexpr uint32_t kIdentifyCnsAllocated = 0x10;
inline constexpr uint32_t kIdentifyCnsAllocatedNamespace = 0x11;
inline constexpr uint32_t kIdentifyCnsControllers = 0x13;

// Offsets in Identify Namespace.
inline constexpr size_t kNamespaceFormats = 25;  ///< number of formats less one

/// One of the formats of a namespace.
struct LbaFormat {
    uint16_t metadata = 0;    ///< bytes of metadata for each block
    uint8_t data_size = 0;    ///< bytes of a block, as a power of two
    uint8_t performance = 0;  ///< 0 best to 3 degraded

    uint64_t bytes() const { return data_size < 64 ? uint64_t{1} << data_size : 0; }
};

/// @param data  Identify Namespace, whole
size_t format_in_use(std::span<const uint8_t> data);
LbaFormat lba_format(std::span<const uint8_t> data, size_t index);

/// The list of namespace IDs behind one.
using NextList = std::function<std::vector<uint8_t>(uint32_t after)>;

/// All IDs of the lists, one list after the other. Throws Failure if they do not ascend or do not
/// end.
/// @param drive  its name
std::vector<uint32_t> joined_lists(const std::string& drive, const NextList& next);

/// @param attached  those attached to the controller; else all that are allocated
std::vector<uint32_t> namespace_list(NvmeClient& client, uint16_t controller, bool attached);

/// The revision of the firmware that runs, as Identify Controller tells it.
std::string firmware_revision(NvmeClient& client, uint16_t controller);

/// SMART / Health Information.
Fields read_smart(NvmeClient& client, uint16_t controller);

/// Sanitize Status.
struct SanitizeState {
    Fields fields;
    uint8_t status = 0;    ///< 0 never, 1 done, 2 in progress, 3 failed, 4 done
    unsigned percent = 0;  ///< of an operation that is in progress
};
SanitizeState read_sanitize(NvmeClient& client, uint16_t controller);

/// Firmware Slot Information.
struct FirmwareSlots {
    uint8_t active = 0;                    ///< from 1
    uint8_t next = 0;                      ///< active behind the next reset; 0: no other
    std::array<std::string, 7> revisions;  ///< of slots 1 to 7; empty: an empty slot
};
FirmwareSlots read_firmware_slots(NvmeClient& client, uint16_t controller);
std::string slots_text(const FirmwareSlots& slots, size_t indent = 0);
Json slots_json(const FirmwareSlots& slots);

}  // namespace tool

#endif
