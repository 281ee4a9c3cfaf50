// SPDX-License-Identifier: Apache-2.0
// The state of the MPIO, as discovery looks at it, and which EIDs are taken on its account.
#ifndef SIDEBAND_TRANSPORT_AMD_MPIO_H
#define SIDEBAND_TRANSPORT_AMD_MPIO_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband {

/// The BMC's EID in front of the MPIO.
inline constexpr uint8_t kMpioSourceEid = 0x80;
/// The range that the MPIO gets for the devices behind it.
inline constexpr uint8_t kFirstMpioEid = 64;
inline constexpr uint8_t kMpioPoolSize = 32;

/// The MPIO state word, which another thread or process may be writing.
uint32_t mpio_state();

/// The MPIO's context for a context that asks it, and as strict.
mctp_ctx mpio_for(const mctp_ctx& ctx);

}  // namespace sideband

#endif
