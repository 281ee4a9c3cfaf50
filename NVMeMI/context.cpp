// SPDX-License-Identifier: Apache-2.0
// The NVMe-MI context: its life, and its request operation (NVMe-MI over MCTP, DSP0235).
#include <sideband/nvme_mi.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "NVMeMI/message.h"
#include "common/lock.h"
#include "common/memory.h"
#include "common/sleep.h"
#include "transport/mctp.h"
#include "transport/pcie_message.h"

using namespace sideband;

namespace sideband::nvme {
namespace {

constexpr int kTries = 3;
constexpr uint32_t kProcessingTimeUs = 200000;

using Area = std::array<uint8_t, NVMEMI_RESPONSE_MAX>;

bool wants_time(const Area& area) {
    return area[kStatus] == NVMEMI_STATUS_MORE_PROCESSING_REQUIRED;
}

/// Reads over PCIe, whose stock receive does not say how much came. An integrity check that
/// there is no room for is left out, as over SMBus; what else is too long shows in the result.
int32_t receive_pcie(mctp_ctx& mctp, int32_t room, Area& area) {
    const int32_t received =
        mctp_pcie_recv_with_type(&mctp, static_cast<int32_t>(area.size()), area.data());
    if (received <= 1) {
        return -1;
    }
    const int32_t length = received - 1;
    std::memmove(area.data(), area.data() + 1, static_cast<size_t>(length));
    return length > room ? static_cast<int32_t>(body_length(area, length)) : length;
}

/// Reads what an endpoint sends of its own accord.
int32_t receive(mctp_ctx& mctp, int32_t room, Area& area) {
    if (mctp.recv == pcie_recv) {
        return receive_pcie(mctp, room, area);
    }
    if (mctp.binding_kind != MCTP_BINDING_KIND_SL8_SMBUS) {
        return mctp.recv(&mctp, room, area.data());
    }
    // The receive of this binding is one that its exchange calls with the bus locked.
    const MutexGuard bus(at_p_St_GlobalVar->bus_mutex[mctp.bus]);
    return bus ? mctp.recv(&mctp, room, area.data()) : -1;
}

/// Waits for the response that an endpoint has announced.
int32_t receive_later(mctp_ctx& mctp, int32_t room, Area& area) {
    int32_t result = -1;
    for (int i = 0; i < kTries && result < 0; ++i) {
        sleep_us(kProcessingTimeUs);
        result = receive(mctp, room, area);
    }
    return result;
}

bool is_usable(const nvmemi_ctx* ctx, const uint8_t* request, const uint8_t* response) {
    return ctx != nullptr && ctx->mctp != nullptr && ctx->mctp->xfer != nullptr &&
           ctx->mctp->recv != nullptr && request != nullptr && response != nullptr;
}

}  // namespace

int32_t request_with_retries(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                             uint8_t* request, uint8_t* response) {
    if (!is_usable(ctx, request, response)) {
        return -1;
    }
    mctp_ctx& mctp = *ctx->mctp;
    Area area;
    zero(area);
    const auto room =
        static_cast<int32_t>(std::min<uint32_t>(response_capacity, NVMEMI_RESPONSE_MAX));
    int32_t result = -1;
    for (int i = 0; i < kTries && result <= 0 && !wants_time(area); ++i) {
        result = mctp.xfer(&mctp, request_length, room, request, area.data());
    }
    if (wants_time(area)) {
        result = receive_later(mctp, room, area);
    } else if (result <= 0) {
        return -1;
    }
    // More than there is room for is nothing that an operation could have stored.
    if (result < 0 || result > room) {
        return -1;
    }
    std::memcpy(response, area.data(), static_cast<size_t>(result));
    return result;
}

}  // namespace sideband::nvme

namespace {

constexpr uint16_t kUnitSize = 64;
/// The last argument of the platform's slave read: its meaning is the platform's own.
constexpr uint32_t kReadParameter = 0x001203E8;

int32_t initialise(nvmemi_ctx* ctx, const mctp_ctx* config, uint32_t read_parameter,
                   int32_t (*bring_up)(mctp_ctx*)) {
    if (ctx == nullptr || config == nullptr) {
        return -1;
    }
    // First: the prototype may be the endpoint that is released.
    mctp_ctx* const endpoint = create_endpoint(*config).release();
    release_former(ctx->owned, ctx->mctp);
    own(ctx->owned, endpoint);
    ctx->mctp = endpoint;
    ctx->mi_request = nvme::request_with_retries;
    if (endpoint == nullptr) {
        std::puts("cannot alloc m_ctx");
        return -1;
    }
    endpoint->unit_size = kUnitSize;
    endpoint->msg_type = MCTP_MSG_TYPE_NVME_MI;
    endpoint->skip_discovery = 1;
    endpoint->route = read_parameter;
    return bring_up(endpoint);
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
