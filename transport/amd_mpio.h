// SPDX-License-Identifier: Apache-2.0
// The state of the MPIO, as discovery looks at it.
#ifndef SIDEBAND_TRANSPORT_AMD_MPIO_H
#define SIDEBAND_TRANSPORT_AMD_MPIO_H

#include <cstdint>

namespace sideband {

/// The MPIO state word, which another thread or process may be writing.
uint32_t mpio_state();

}  // namespace sideband

#endif
