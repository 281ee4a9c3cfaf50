// SPDX-License-Identifier: Apache-2.0
// MCTP control messages, the BMC as requester (DSP0236, clause 12).
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <array>
#include <cstring>
#include <span>

#include "common/sleep.h"
#include "transport/control.h"

using namespace sideband;

namespace sideband {
namespace {

using namespace control;

constexpr int kTries = 3;
constexpr uint32_t kNotReadyPauseUs = 50000;

/// Sends until the endpoint is ready, three times at most.
/// @return bytes received, at least kResponseHeaderSize, or -1
int32_t exchange_until_ready(mctp_ctx& ctx, std::span<const uint8_t> request,
                             std::span<uint8_t> response) {
    int32_t received = 0;
    for (int tries = 0; tries < kTries; ++tries) {
        received = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()),
                            static_cast<int32_t>(response.size()), request.data(), response.data());
        if (received < kResponseHeaderSize) {
            return -1;
        }
        if (response[2] != kCompletionNotReady) {
            break;
        }
        sleep_us(kNotReadyPauseUs);
    }
    return received;
}

}  // namespace

int32_t control::control_request(mctp_ctx* ctx, std::span<uint8_t> request,
                                 std::span<uint8_t> response, int32_t minimum) {
    if (ctx == nullptr || ctx->xfer == nullptr) {
        return -1;
    }
    request[0] = static_cast<uint8_t>((request[0] & ~kInstanceIdMask) |
                                      (ctx->instance_id & kInstanceIdMask));
    ++ctx->instance_id;
    const int32_t received = exchange_until_ready(*ctx, request, response);
    if (received < 0) {
        return -1;
    }
    // After the last try "not ready" is deliberately taken for an answer: some endpoints never say
    // anything else.
    const uint8_t completion = response[2];
    if (completion == kCompletionSuccess ? received < minimum : completion != kCompletionNotReady) {
        return -1;
    }
    const bool same_instance = (response[0] & kInstanceIdMask) == (request[0] & kInstanceIdMask);
    return response[1] == request[1] && same_instance ? received : -1;
}

namespace {

/// A command without request data whose answer holds nothing but a completion code.
int32_t plain_request(mctp_ctx* ctx, Command command) {
    std::array<uint8_t, 2> request{kRequestBit, command};
    std::array<uint8_t, kResponseHeaderSize> response{};
    return control_request(ctx, request, response) < 0 ? -1 : 0;
}

}  // namespace

int32_t read_routing_table(mctp_ctx* ctx, uint8_t entry_handle, uint8_t* table) {
    constexpr int32_t kEntriesOffset = 5;
    std::array<uint8_t, 3> request{kRequestBit, kGetRoutingTableEntries, entry_handle};
    std::array<uint8_t, MCTP_ROUTING_TABLE_RESPONSE_SIZE> response{};
    const int32_t received = control_request(ctx, request, response, kEntriesOffset);
    if (received < 0) {
        console_log("[%s] failed\n", "mctp_get_routing_table_entries");
        return -1;
    }
    std::memcpy(table, response.data(), response.size());
    return received;
}

}  // namespace sideband

using namespace sideband::control;

int32_t mctp_set_endpoint_id(mctp_ctx* ctx, uint8_t eid) {
    constexpr uint8_t kOperationSetEid = 0;
    std::array<uint8_t, 4> request{kRequestBit, kSetEndpointId, kOperationSetEid, eid};
    std::array<uint8_t, 6> response;
    response.fill(0xFF);
    if (control_request(ctx, request, response) < 0) {
        return -1;
    }
    ctx->dest_eid = eid;  // what was asked for, not what the endpoint echoed
    return 0;
}

int32_t mctp_get_endpoint_id(mctp_ctx* ctx) {
    constexpr int32_t kEidEnd = 4;
    std::array<uint8_t, 2> request{kRequestBit, kGetEndpointId};
    std::array<uint8_t, 6> response{};
    if (control_request(ctx, request, response, kEidEnd) < 0) {
        return -1;
    }
    ctx->dest_eid = response[3];
    return ctx->dest_eid;
}

int32_t mctp_get_endpoint_uuid(mctp_ctx* ctx) {
    std::array<uint8_t, 2> request{kRequestBit, kGetEndpointUuid};
    std::array<uint8_t, kResponseHeaderSize + sizeof ctx->uuid> response{};
    if (control_request(ctx, request, response, static_cast<int32_t>(response.size())) < 0) {
        console_log("fail to get mctp UUID\n");
        return -1;
    }
    std::memcpy(ctx->uuid, response.data() + kResponseHeaderSize, sizeof ctx->uuid);
    ctx->uuid_end = 0;
    return 0;
}

int32_t mctp_allocate_endpoint_ids(mctp_ctx* ctx, uint8_t operation, uint8_t pool_size,
                                   uint8_t starting_eid) {
    std::array<uint8_t, 5> request{kRequestBit, kAllocateEndpointIds, operation, pool_size,
                                   starting_eid};
    std::array<uint8_t, 6> response{};
    if (control_request(ctx, request, response) < 0) {
        console_log("[%s] failed\n", "mctp_allocate_endpoint_ids");
        return -1;
    }
    return 0;
}

int32_t mctp_get_routing_table_entries(mctp_ctx* ctx, uint8_t entry_handle, uint8_t* table) {
    if (table == nullptr) {
        return -1;
    }
    return read_routing_table(ctx, entry_handle, table) < 0 ? -1 : 0;
}

int32_t mctp_prepare_for_endpoint_discovery(mctp_ctx* ctx) {
    return plain_request(ctx, kPrepareForEndpointDiscovery);
}

int32_t mctp_endpoint_discovery(mctp_ctx* ctx) {
    return plain_request(ctx, kEndpointDiscovery);
}
