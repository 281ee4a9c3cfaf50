// SPDX-License-Identifier: Apache-2.0
// MCTP control messages as an endpoint answers them (DSP0236, clause 12).
#include "sim/mctp/control.h"
#include "sim/device/message.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/// Completion code of Get MCTP Version Support (DSP0236, clause 12.6).
constexpr uint8_t kTypeNotSupported = 0x80;

/// Bytes of request data behind the command code; nothing for a command that is not served.
std::optional<size_t> data_size(uint8_t command) {
    switch (command) {
        case kControlSetEndpointId:
            return 2;
        case kControlGetVersionSupport:
            return 1;
        case kControlGetEndpointId:
        case kControlGetEndpointUuid:
        case kControlGetMessageTypeSupport:
        case kControlPrepareForDiscovery:
        case kControlEndpointDiscovery:
            return 0;
        default:
            return std::nullopt;
    }
}

}  // namespace

ControlResponder::ControlResponder(MctpEndpoint& endpoint, uint8_t static_eid, const Uuid& uuid,
                                   Bytes types, bool bus_owner)
    : endpoint_(endpoint),
      static_eid_(static_eid),
      uuid_(uuid),
      types_(std::move(types)),
      bus_owner_(bus_owner) {}

std::optional<Bytes> ControlResponder::answer(ByteView request) {
    if (request.size() < 2 || (request[0] & (kRequestBit | kDatagramBit)) != kRequestBit) {
        return std::nullopt;
    }
    const uint8_t command = request[1];
    const ByteView data = request.subspan(2);
    Bytes out{static_cast<uint8_t>(request[0] & kInstanceBits), command};

    const std::optional<size_t> size = data_size(command);
    if (!size || *size != data.size()) {
        out.push_back(size ? kControlInvalidLength : kControlUnsupported);
        return out;
    }
    const std::optional<Bytes> result = execute(command, data);
    if (!result) {
        return std::nullopt;
    }
    append(out, *result);
    return out;
}

std::optional<Bytes> ControlResponder::execute(uint8_t command, ByteView data) {
    Bytes out{kControlSuccess};
    switch (command) {
        case kControlSetEndpointId:
            return set_endpoint_id(data);
        case kControlGetEndpointId:
            return get_endpoint_id();
        case kControlGetEndpointUuid:
            append(out, uuid_);
            break;
        case kControlGetVersionSupport:
            return get_version_support(data);
        case kControlGetMessageTypeSupport:
            out.push_back(static_cast<uint8_t>(types_.size()));
            append(out, types_);
            break;
        case kControlPrepareForDiscovery:
            discovered_ = false;
            break;
        default:  // Endpoint Discovery: an endpoint that has been discovered keeps silent.
            if (discovered_) {
                return std::nullopt;
            }
    }
    return out;
}

Bytes ControlResponder::set_endpoint_id(ByteView data) {
    enum Operation : uint8_t { kSet = 0, kForce = 1, kResetToStatic = 2, kSetDiscovered = 3 };
    const uint8_t operation = data[0] & 3;
    const uint8_t eid = data[1];
    if (operation == kSet || operation == kForce) {
        if (eid < 8 || eid == 0xFF) {
            return {kControlInvalidData};
        }
        endpoint_.set_eid(eid);
    } else if (operation == kResetToStatic) {
        if (static_eid_ == 0) {
            return {kControlInvalidData};
        }
        endpoint_.set_eid(static_eid_);
    }
    discovered_ = true;
    // Status: assignment accepted, no EID pool wanted.
    return {kControlSuccess, 0x00, endpoint_.eid(), 0x00};
}

Bytes ControlResponder::get_endpoint_id() const {
    // EID dynamic, or a static one in use, or a static one replaced.
    enum EidType : uint8_t { kDynamic = 0, kStatic = 2, kReplaced = 3 };
    EidType type = kDynamic;
    if (static_eid_ != 0) {
        type = endpoint_.eid() == static_eid_ ? kStatic : kReplaced;
    }
    constexpr uint8_t kBusOwnerOrBridge = 0x10;
    const uint8_t endpoint_type = bus_owner_ ? kBusOwnerOrBridge : 0;
    return {kControlSuccess, endpoint_.eid(), static_cast<uint8_t>(endpoint_type | type), 0x00};
}

Bytes ControlResponder::get_version_support(ByteView data) const {
    const uint8_t type = data[0];
    const bool known =
        type == 0xFF || type == 0x00 || std::ranges::find(types_, type) != types_.end();
    if (!known) {
        return {kTypeNotSupported};
    }
    if (type == 0xFF || type == 0x00) {
        return {kControlSuccess, 1, 0xF1, 0xF3, 0xF1, 0x00};  // 1.3.1
    }
    return {kControlSuccess, 1, 0xF1, 0xF1, 0xF0, 0x00};  // 1.1.0
}

void ControlResponder::reset() {
    endpoint_.set_eid(static_eid_);
    discovered_ = false;
}

}  // namespace sim
