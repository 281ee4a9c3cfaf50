// SPDX-License-Identifier: Apache-2.0
// What requester and responder of MCTP control messages share (DSP0236, clauses 11 and 12).
#ifndef SIDEBAND_TRANSPORT_CONTROL_H
#define SIDEBAND_TRANSPORT_CONTROL_H

#include <sideband/mctp.h>

#include <cstdint>
#include <span>

#include "common/wire.h"

namespace sideband::control {

inline constexpr uint8_t kCompletionSuccess = 0x00;
inline constexpr uint8_t kCompletionInvalidData = 0x02;
inline constexpr uint8_t kCompletionNotReady = 0x04;

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

/// The header of a control message, behind the message type (DSP0236, clause 11.1).
struct Header {
    static constexpr size_t kSize = 2;

    bool is_request;
    uint8_t instance_id;  ///< 0 to 31
    uint8_t command;

    static Header read(WireReader& reader);
    void write(WireWriter& writer) const;

    /// The instance ID of the first byte, and of a counter.
    static uint8_t instance_of(uint8_t byte) { return byte & 0x1F; }
};

/// Bytes of a response in front of its data: header and completion code.
inline constexpr size_t kResponseSize = Header::kSize + 1;
inline constexpr size_t kCompletionOffset = Header::kSize;

/// What came back.
struct Answer {
    int32_t result;   ///< bytes received; -1 on failure
    WireReader data;  ///< what is behind the completion code
    mctp_ctx* ctx;    ///< who has asked, and for what
    Command command;
};

/// Sends a request, again if the endpoint is not ready, and takes the response to it.
/// @param data  of the request, three bytes at most
/// @param room  for the whole response, as much as is asked for; what does not come stays in it
Answer exchange(mctp_ctx* ctx, Command command, std::span<const uint8_t> data,
                std::span<uint8_t> room);

/// The end of a command. A context with a failure has it in its record.
/// @return 0; -1 for a failure, and if more was read than came
int32_t finish(const Answer& answer);

/// The EID that a request assigns with Set Endpoint ID: strict contexts take an answer from it,
/// since an endpoint has it by then.
/// @param request  any message's body
/// @return 0 if it assigns none, and to a context that does not look
uint8_t assigned_eid(const mctp_ctx& ctx, std::span<const uint8_t> request);

using RoutingTable = std::span<uint8_t, MCTP_ROUTING_TABLE_RESPONSE_SIZE>;

/// Get Routing Table Entries.
/// @param room  receives the whole response if the result is not -1, zeros behind what came
/// @return bytes received, or -1
int32_t read_routing_table(mctp_ctx* ctx, uint8_t entry_handle, RoutingTable room);

}  // namespace sideband::control

#endif
