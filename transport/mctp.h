// SPDX-License-Identifier: Apache-2.0
// Endpoints: what a binding kind has for them, how strict they are, and those that the library
// allocates for the contexts of the layers above.
#ifndef SIDEBAND_TRANSPORT_MCTP_H
#define SIDEBAND_TRANSPORT_MCTP_H

#include <sideband/mctp.h>

#include "common/memory.h"

namespace sideband {

/// Whether a context keeps to the standard in one respect.
/// @param bits  MCTP_STRICT_..., one of several
inline bool is_strict(const mctp_ctx& ctx, uint32_t bits) {
    return (ctx.strict & bits) != 0;
}

/// Installs operations and binding of the context's binding kind.
/// @return false for an unknown kind: nothing is installed
bool install_operations(mctp_ctx& ctx);

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
/// As release(), of a context that gets another endpoint in place of the current one. What is owned
/// but is not the current one is not the library's to free any more.
/// @param kept  not freed
void release_former(mctp_owned& owned, const mctp_ctx* current, const mctp_ctx* kept = nullptr);
/// Frees the current endpoint of a context, whoever allocated it.
void release_current(mctp_owned& owned, mctp_ctx*& current);

}  // namespace sideband

#endif
