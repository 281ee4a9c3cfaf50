// SPDX-License-Identifier: Apache-2.0
// MCTP control messages as an endpoint answers them (DSP0236, clause 12).
#ifndef SIDEBAND_SIM_MCTP_CONTROL_H
#define SIDEBAND_SIM_MCTP_CONTROL_H

#include <array>
#include <optional>

#include "sim/board/bytes.h"
#include "sim/mctp/endpoint.h"

namespace sim {

using Uuid = std::array<uint8_t, 16>;

/// Commands (DSP0236, table 12).
enum ControlCommand : uint8_t {
    kControlSetEndpointId = 0x01,
    kControlGetEndpointId = 0x02,
    kControlGetEndpointUuid = 0x03,
    kControlGetVersionSupport = 0x04,
    kControlGetMessageTypeSupport = 0x05,
    kControlAllocateEndpointIds = 0x08,
    kControlGetRoutingTableEntries = 0x0A,
    kControlPrepareForDiscovery = 0x0B,
    kControlEndpointDiscovery = 0x0C,
    kControlDiscoveryNotify = 0x0D,
};

/// Completion codes (DSP0236, table 13).
enum ControlCode : uint8_t {
    kControlSuccess = 0x00,
    kControlInvalidData = 0x02,
    kControlInvalidLength = 0x03,
    kControlNotReady = 0x04,
    kControlUnsupported = 0x05,
};

class ControlResponder {
public:
    /// @param static_eid  the EID that the endpoint has of its own, 0 = none
    /// @param types       message types besides control
    /// @param bus_owner   what Get Endpoint ID is to say: bus owner or bridge, or simple endpoint
    ControlResponder(MctpEndpoint& endpoint, uint8_t static_eid, const Uuid& uuid, Bytes types,
                     bool bus_owner);

    /// @param request  message body, the header first
    /// @return nothing for a message that gets no answer
    std::optional<Bytes> answer(ByteView request);

    /// Message types besides control.
    ByteView types() const { return types_; }

    /// As after power on: own EID again, not discovered.
    void reset();

private:
    /// @return what follows the command code; nothing if there is no answer
    std::optional<Bytes> execute(uint8_t command, ByteView data);
    Bytes set_endpoint_id(ByteView data);
    Bytes get_endpoint_id() const;
    Bytes get_version_support(ByteView data) const;

    MctpEndpoint& endpoint_;
    uint8_t static_eid_;
    Uuid uuid_;
    Bytes types_;
    bool bus_owner_;
    bool discovered_ = false;
};

}  // namespace sim

#endif
