// SPDX-License-Identifier: Apache-2.0
// What the commands of PLDM monitoring and control have in common.
#ifndef SIDEBAND_PLDM_MONITOR_EXCHANGE_H
#define SIDEBAND_PLDM_MONITOR_EXCHANGE_H

#include <sideband/pldm.h>

#include <cstdint>
#include <span>

#include "common/wire.h"

namespace sideband {

/// Whether commands can be sent over the context.
inline bool can_exchange(const pldm_ctx* ctx) {
    return ctx != nullptr && ctx->transfer_op != nullptr;
}

/// Starts a request: header and command. The writer stands behind them.
WireWriter monitor_request(std::span<uint8_t> request, uint8_t command);

/// Reports that the last response is too short. @return -1
int32_t too_short(const pldm_ctx& ctx, const char* function);

/// Prints a line to standard output.
void print_line(const char* text);

}  // namespace sideband

#endif
