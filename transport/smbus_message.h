// SPDX-License-Identifier: Apache-2.0
// The operations of an SMBus context.
#ifndef SIDEBAND_TRANSPORT_SMBUS_MESSAGE_H
#define SIDEBAND_TRANSPORT_SMBUS_MESSAGE_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband {

// The locked ones take the bus mutex themselves.
int32_t smbus_send_locked(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t smbus_recv_locked(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                   const uint8_t* request, uint8_t* response);
int32_t smbus_xfer_delayed(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                           const uint8_t* request, uint8_t* response);
int32_t sl8_smbus_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t sl8_smbus_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t sl8_smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                       const uint8_t* request, uint8_t* response);

}  // namespace sideband

#endif
