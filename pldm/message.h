// SPDX-License-Identifier: Apache-2.0
// The one way in which PLDM commands exchange messages, and what they share.
#ifndef SIDEBAND_PLDM_MESSAGE_H
#define SIDEBAND_PLDM_MESSAGE_H

#include <sideband/pldm.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// Offsets in a PLDM message (DSP0240, table 1).
inline constexpr size_t kPldmCommand = 2;
inline constexpr size_t kPldmCompletionCode = 3;

/// TransferOperationFlag and TransferFlag of what comes or goes in parts, the same in DSP0240,
/// DSP0248, DSP0257 and DSP0267.
enum Transfer : uint8_t {
    kGetNextPart = 0,
    kGetFirstPart = 1,
    kTransferStart = 1,
    kTransferMiddle = 2,
    kTransferEnd = 4,
    kTransferStartAndEnd = 5,
};

/// Whether a part is the last one by its TransferFlag.
inline bool is_last_part(uint8_t transfer_flag) {
    return transfer_flag == kTransferEnd || transfer_flag == kTransferStartAndEnd;
}

/// Calls the context's transfer_op. The context must have one.
/// @return its result
int32_t pldm_exchange(pldm_ctx& ctx, std::span<uint8_t> request, std::span<uint8_t> response);

/// Whether commands can be sent over the context.
inline bool can_exchange(const pldm_ctx* ctx) {
    return ctx != nullptr && ctx->transfer_op != nullptr;
}

/// Whether the last response had at least length bytes. transfer_op tells success, not length.
bool pldm_response_has(const pldm_ctx& ctx, size_t length);

/// Whether the length of the last response is known to go beyond this one. An operation other than
/// pldm_transfer that has left it at the capacity knows nothing.
/// @param capacity  room for the response
bool pldm_response_exceeds(const pldm_ctx& ctx, size_t length, size_t capacity);

/// Reports that the last response is too short. @return -1
int32_t too_short(const pldm_ctx& ctx, const char* function);

/// Prints a line to standard output.
void print_line(const char* text);

}  // namespace sideband

#endif
