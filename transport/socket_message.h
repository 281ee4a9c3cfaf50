// SPDX-License-Identifier: Apache-2.0
// The operations of a context that is reached through the kernel's MCTP sockets.
#ifndef SIDEBAND_TRANSPORT_SOCKET_MESSAGE_H
#define SIDEBAND_TRANSPORT_SOCKET_MESSAGE_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband {

int32_t socket_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t socket_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
/// Receives another answer to the last request; of what devices ask nothing is taken.
int32_t socket_recv_answer(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t socket_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                    const uint8_t* request, uint8_t* response);

}  // namespace sideband

#endif
