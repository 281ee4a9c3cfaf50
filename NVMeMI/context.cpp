// SPDX-License-Identifier: Apache-2.0
// The NVMe-MI context: its life, and its request operation (NVMe-MI over MCTP, DSP0235).
#include <sideband/nvme_mi.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "NVMeMI/message.h"
#include "common/error.h"
#include "common/lock.h"
#include "common/output.h"
#include "common/sleep.h"
#include "transport/deadline.h"
#include "transport/mctp.h"
#include "transport/pcie_message.h"

using namespace sideband;

namespace sideband::nvme {
namespace {

constexpr int kTries = 3;
constexpr uint32_t kProcessingTimeUs = 200000;

/// Most responses have a status or little more to say. Up to so many bytes they take little stack.
constexpr size_t kShortCapacity = 64;
using ShortArea = std::array<uint8_t, 2 * kShortCapacity>;

bool wants_time(const mctp_ctx& mctp, std::span<const uint8_t> request, const uint8_t* area) {
    return area[kStatus] == NVMEMI_STATUS_MORE_PROCESSING_REQUIRED &&
           is_response(mctp, request, {area, 1});
}

/// Reads over PCIe, whose stock receive does not say how much came. An integrity check that
/// there is no room for is left out, as over SMBus; what else is too long shows in the result.
int32_t receive_pcie(mctp_ctx& mctp, int32_t room, uint8_t* area) {
    std::array<uint8_t, PLT_PCIE_MESSAGE_SIZE> message;
    message[0] = area[0];
    const int32_t received = pcie_recv_typed(&mctp, message.size(), message.data());
    if (received <= 1) {
        return -1;
    }
    const auto body = std::span(message).subspan(1, static_cast<size_t>(received - 1));
    const auto capacity = static_cast<size_t>(room);
    std::memcpy(area, body.data(), std::min(body.size(), capacity));
    const size_t length =
        body.size() > capacity ? body_length(mctp, body, received - 1) : body.size();
    return static_cast<int32_t>(length);
}

/// Reads what an endpoint sends of its own accord.
int32_t receive(mctp_ctx& mctp, int32_t room, uint8_t* area) {
    if (mctp.recv == pcie_recv) {
        return receive_pcie(mctp, room, area);
    }
    if (mctp.binding_kind != MCTP_BINDING_KIND_SL8_SMBUS) {
        return mctp.recv(&mctp, room, area);
    }
    // The receive of this binding is one that its exchange calls with the bus locked.
    const MutexGuard bus(at_p_St_GlobalVar->bus_mutex[mctp.bus]);
    return bus ? mctp.recv(&mctp, room, area) : fail(mctp.last_error, SIDEBAND_CAUSE_LOCK);
}

/// Waits for the response that an endpoint has announced.
int32_t receive_later(mctp_ctx& mctp, int32_t room, uint8_t* area) {
    int32_t result = -1;
    for (int i = 0; i < kTries && result < 0 && !is_over(mctp); ++i) {
        sleep_us(kProcessingTimeUs);
        result = receive(mctp, room, area);
    }
    if (result < 0 && is_over(mctp)) {
        fail(mctp.last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    return result;
}

bool is_usable(const nvmemi_ctx* ctx, const uint8_t* request, const uint8_t* response) {
    return ctx != nullptr && ctx->mctp != nullptr && ctx->mctp->xfer != nullptr &&
           ctx->mctp->recv != nullptr && request != nullptr && response != nullptr;
}

/// Records why there is no response, as far as the endpoint knows. @return -1
[[gnu::cold]] int32_t fail_exchange(nvmemi_ctx& ctx, int32_t result) {
    ctx.last_error = ctx.mctp->last_error;
    return fail(ctx.last_error, result < 0 ? SIDEBAND_CAUSE_NO_ANSWER : SIDEBAND_CAUSE_MALFORMED);
}

/// Exchanges in an area that has more room than is asked for.
int32_t run(nvmemi_ctx& ctx, uint32_t request_length, uint32_t response_capacity,
            const uint8_t* request, uint8_t* area) {
    mctp_ctx& mctp = *ctx.mctp;
    const auto room =
        static_cast<int32_t>(std::min<uint32_t>(response_capacity, NVMEMI_RESPONSE_MAX));
    // The status is looked at even if it did not come.
    std::fill_n(area, NVMEMI_RESPONSE_SIZE, uint8_t{0});
    int32_t result = -1;
    bool busy = false;
    for (int i = 0; i < kTries && result <= 0 && !busy; ++i) {
        mctp.last_error = kNoError;
        result = mctp.xfer(&mctp, request_length, room, request, area);
        busy = wants_time(mctp, {request, request_length}, area);
        if (is_over(mctp)) {
            break;
        }
    }
    if (busy) {
        result = receive_later(mctp, room, area);
    }
    // More than there is room for is nothing that an operation could have stored.
    if (result < 0 || result > room || (result == 0 && !busy)) {
        return fail_exchange(ctx, result);
    }
    return result;
}

/// Exchanges aside, for a response that is left alone unless one came.
template <typename Aside>
int32_t run_aside(nvmemi_ctx& ctx, uint32_t request_length, uint32_t response_capacity,
                  const uint8_t* request, uint8_t* response) {
    Aside area;
    const int32_t result = run(ctx, request_length, response_capacity, request, area.data());
    if (result > 0) {
        std::memcpy(response, area.data(), static_cast<size_t>(result));
    }
    return result;
}

}  // namespace

int32_t request_with_retries(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                             uint8_t* request, uint8_t* response) {
    if (!is_usable(ctx, request, response)) {
        return fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    ctx->last_error = kNoError;
    const auto run_in =
        response_capacity <= kShortCapacity ? run_aside<ShortArea> : run_aside<Area>;
    return run_in(*ctx, request_length, response_capacity, request, response);
}

int32_t request_in_area(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (!is_usable(ctx, request, response)) {
        return fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    return run(*ctx, request_length, response_capacity, request, response);
}

}  // namespace sideband::nvme

namespace {

constexpr uint16_t kUnitSize = 64;
/// The last argument of the platform's slave read: its meaning is the platform's own.
constexpr uint32_t kReadParameter = 0x001203E8;

int32_t initialise(nvmemi_ctx* ctx, const mctp_ctx* config, uint32_t read_parameter,
                   int32_t (*bring_up)(mctp_ctx*)) {
    if (config == nullptr) {
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kNoError;
    // First: the prototype may be the endpoint that is released.
    mctp_ctx* const endpoint = create_endpoint(*config).release();
    release_former(ctx->owned, ctx->mctp);
    own(ctx->owned, endpoint);
    ctx->mctp = endpoint;
    ctx->mi_request = nvme::request_with_retries;
    if (endpoint == nullptr) {
        print_line("cannot alloc m_ctx");
        return fail_set_up(ctx->last_error, nullptr);
    }
    endpoint->unit_size = kUnitSize;
    endpoint->msg_type = MCTP_MSG_TYPE_NVME_MI;
    endpoint->skip_discovery = 1;
    endpoint->route = read_parameter;
    const int32_t result = bring_up(endpoint);
    if (result < 0) {
        fail_set_up(ctx->last_error, &endpoint->last_error);
    }
    return result;
}

}  // namespace

int32_t nvmemi_init(nvmemi_ctx* ctx, const mctp_ctx* config) {
    return initialise(ctx, config, kReadParameter, mctp_init2);
}

int32_t nvmemi_init_for_MARV(nvmemi_ctx* ctx, const mctp_ctx* config) {
    return initialise(ctx, config, 0, mctp_init2_with_i2c_delay);
}

int32_t nvmemi_deinit(nvmemi_ctx* ctx) {
    if (ctx != nullptr) {
        release_current(ctx->owned, ctx->mctp);
    }
    return 0;
}

const sideband_error* nvmemi_last_error(const nvmemi_ctx* ctx) {
    return ctx != nullptr ? &ctx->last_error : null_context_error();
}
