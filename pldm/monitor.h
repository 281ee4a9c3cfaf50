// SPDX-License-Identifier: Apache-2.0
// How the commands of PLDM monitoring and control begin.
#ifndef SIDEBAND_PLDM_MONITOR_INTERNAL_H
#define SIDEBAND_PLDM_MONITOR_INTERNAL_H

#include <cstdint>
#include <span>

#include "common/wire.h"

namespace sideband {

/// Starts a request: header and command. The writer stands behind them.
WireWriter monitor_request(std::span<uint8_t> request, uint8_t command);

}  // namespace sideband

#endif
