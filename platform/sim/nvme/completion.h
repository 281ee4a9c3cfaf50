// SPDX-License-Identifier: Apache-2.0
// How an NVMe admin command ends, and the requests that end so.
#ifndef SIDEBAND_SIM_NVME_COMPLETION_H
#define SIDEBAND_SIM_NVME_COMPLETION_H

#include <array>

#include "sim/board/bytes.h"

namespace sim {

/// Status field of a completion queue entry: status code type in bits 15 to 8, status code below
/// (NVMe, status code definitions).
enum class NvmeStatus : uint16_t {
    success = 0x000,
    invalid_opcode = 0x001,
    invalid_field = 0x002,
    invalid_namespace = 0x00B,
    sanitize_failed = 0x01C,
    sanitize_in_progress = 0x01D,
    prohibited_by_lockdown = 0x023,
    invalid_firmware_slot = 0x106,
    invalid_firmware_image = 0x107,
    invalid_log_page = 0x109,
    invalid_format = 0x10A,
    feature_not_saveable = 0x10D,
    feature_not_changeable = 0x10E,
    overlapping_range = 0x114,
    insufficient_capacity = 0x115,
    namespace_id_unavailable = 0x116,
    already_attached = 0x118,
    not_attached = 0x11A,
    controller_list_invalid = 0x11C,
    prohibition_not_supported = 0x128,
};

/// What a command comes to.
struct NvmeCompletion {
    NvmeStatus status = NvmeStatus::success;
    uint32_t dword0 = 0;
    Bytes data;          ///< what it reads, as far as it is not zeros
    uint64_t total = 0;  ///< bytes of what it reads

    NvmeCompletion() = default;
    NvmeCompletion(NvmeStatus result) : status(result) {}
    /// A command that reads so many bytes.
    NvmeCompletion(Bytes read, uint64_t size) : data(std::move(read)), total(size) {}
};

/// A command as the tunnel brought it.
struct NvmeAdminCommand {
    uint8_t opcode = 0;
    uint16_t controller = 0;
    std::array<uint32_t, 16> dwords{};  ///< of the submission queue entry; 2 to 9 as they came
    uint32_t offset = 0;                ///< of what is wanted in what the command reads
    uint32_t length = 0;                ///< of what is wanted
    ByteView data;                      ///< what the command writes

    uint32_t namespace_id() const { return dwords[1]; }
};

/// All namespaces at once.
constexpr uint32_t kNvmeEveryNamespace = 0xFFFFFFFF;

}  // namespace sim

#endif
