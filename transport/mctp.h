// SPDX-License-Identifier: Apache-2.0
// Endpoints that the library allocates for the contexts of the layers above.
#ifndef SIDEBAND_TRANSPORT_MCTP_H
#define SIDEBAND_TRANSPORT_MCTP_H

#include <sideband/mctp.h>

#include "common/memory.h"

namespace sideband {

using EndpointPtr = HeapPtr<mctp_ctx>;

/// A new endpoint with what the caller of a prototype configures; all else is zero.
/// @return null if the allocation failed
EndpointPtr create_endpoint(const mctp_ctx& config);

/// The endpoint that is owned, or null: also in a context that nobody has zeroed.
mctp_ctx* endpoint_of(const mctp_owned& owned);
/// @param endpoint  what create_endpoint() gave, to be freed by release()
void own(mctp_owned& owned, mctp_ctx* endpoint);
/// Frees the endpoint that is owned, if there is one.
void release(mctp_owned& owned);

}  // namespace sideband

#endif
