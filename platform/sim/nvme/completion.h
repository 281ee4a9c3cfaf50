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
    kSuccess = 0x000,
    kInvalidOpcode = 0x001,
    kInvalidField = 0x002,
    kInvalidNamespace = 0x00B,
    kSanitizeFailed = 0x01C,
    kSanitizeInProgress = 0x01D,
    kProhibitedByLockdown = 0x023,
    kInvalidFirmwareSlot = 0x106,
    kInvalidFirmwareImage = 0x107,
    kInvalidLogPage = 0x109,
    kInvalidFormat = 0x10A,
    kFeatureNotSaveable = 0x10D,
    kFeatureNotChangeable = 0x10E,
    kOverlappingRange = 0x114,
    kInsufficientCapacity = 0x115,
    kNamespaceIdUnavailable = 0x116,
    kAlreadyAttached = 0x118,
    kNamespaceIsPrivate = 0x119,
    kNotAttached = 0x11A,
    kThinProvisioningNotSupported = 0x11B,
    kControllerListInvalid = 0x11C,
    kProhibitionNotSupported = 0x128,
};

/// What a command comes to.
struct NvmeCompletion {
    NvmeStatus status = NvmeStatus::kSuccess;
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

/// The drive's command by which vendors' tools reach Identify and Get Log Page.
constexpr uint8_t kNvmePassthrough = 0xC2;

/// All namespaces at once.
constexpr uint32_t kNvmeEveryNamespace = 0xFFFFFFFF;

}  // namespace sim

#endif
