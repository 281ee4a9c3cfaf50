// SPDX-License-Identifier: Apache-2.0
// What requester and responder of MCTP control messages share (DSP0236, clauses 11 and 12).
#ifndef SIDEBAND_TRANSPORT_CONTROL_H
#define SIDEBAND_TRANSPORT_CONTROL_H

#include <sideband/mctp.h>

#include <cstdint>
#include <span>

namespace sideband::control {

inline constexpr uint8_t kRequestBit = 0x80;
inline constexpr uint8_t kInstanceIdMask = 0x1F;
inline constexpr uint8_t kCompletionSuccess = 0x00;
inline constexpr uint8_t kCompletionInvalidData = 0x02;
inline constexpr uint8_t kCompletionNotReady = 0x04;
/// Header and completion code.
inline constexpr int32_t kResponseHeaderSize = 3;

enum Command : uint8_t {
    kSetEndpointId = 0x01,
    kGetEndpointId = 0x02,
    kGetEndpointUuid = 0x03,
    kGetVendorDefinedMessageSupport = 0x06,
    kAllocateEndpointIds = 0x08,
    kGetRoutingTableEntries = 0x0A,
    kPrepareForEndpointDiscovery = 0x0B,
    kEndpointDiscovery = 0x0C,
    kDiscoveryNotify = 0x0D,
};

/// The request routine that all commands share: instance ID, exchange, checks.
/// @param request  bit 7 of byte 0 set, command in byte 1
/// @param minimum  bytes that a successful response must have
/// @return bytes received, or -1
int32_t control_request(mctp_ctx* ctx, std::span<uint8_t> request, std::span<uint8_t> response,
                        int32_t minimum = kResponseHeaderSize);

}  // namespace sideband::control

namespace sideband {

/// Get Routing Table Entries with the number of bytes that the endpoint really sent.
/// @param table  MCTP_ROUTING_TABLE_RESPONSE_SIZE bytes
/// @return bytes received, or -1
int32_t read_routing_table(mctp_ctx* ctx, uint8_t entry_handle, uint8_t* table);

}  // namespace sideband

#endif
