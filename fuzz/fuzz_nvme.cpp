// SPDX-License-Identifier: Apache-2.0
// Fuzzes the responses to NVMe-MI management commands, below and in place of the request operation,
// and a context's life over SMBus.
#include <sideband/nvme_mi.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "fuzz/check.h"
#include "fuzz/drive.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;
using fuzz::world;

/// An endpoint's exchange: what goes out is a whole management command.
int32_t drive_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t room, const uint8_t* request,
                   uint8_t* response) {
    ++world().exchanges;
    require(ctx->msg_type == fuzz::kDriveMessageType, "a command without integrity check");
    require(request_length >= NVMEMI_REQUEST_SIZE &&
                request_length <= NVMEMI_REQUEST_SIZE + NVMEMI_VPD_WRITE_MAX,
            "a request of an undocumented size");
    constexpr uint8_t kReserved[3] = {};
    require(request[0] == 0x08 && std::memcmp(request + 1, kReserved, 2) == 0 &&
                std::memcmp(request + 4, kReserved, 3) == 0 && request[3] <= 7,
            "no management command");
    return fuzz::drive_answer(room, response);
}

int32_t drive_recv(mctp_ctx* /*ctx*/, int32_t room, uint8_t* buffer) {
    ++world().reads;
    return fuzz::drive_answer(room, buffer);
}

/// A request operation as a caller may install one: the length is whatever it says.
int32_t own_request(nvmemi_ctx* /*ctx*/, uint32_t /*request_length*/, uint32_t room,
                    uint8_t* /*request*/, uint8_t* response) {
    ++world().exchanges;
    return fuzz::drive_answer(static_cast<int32_t>(std::min<uint32_t>(room, NVMEMI_RESPONSE_MAX)),
                              response);
}

/// What the commands under test may be called with.
struct Target {
    nvmemi_ctx ctx{};
    nvmemi_request_op request = nullptr;  ///< the library's own, whatever ctx has
};

void require_result(int32_t result) {
    require(result >= -1 && result <= 255, "an undocumented result");
    require(world().exchanges <= 3 && world().reads <= 3, "too many attempts");
}

/// Checks a result, and that a buffer was left alone unless it is 0.
void require_result(int32_t result, GuardedBuffer& room) {
    require_result(result);
    room.check();
    require(result == 0 || room.untouched_from(0), "a failed command filled something");
}

void get_settings(Target& target, Input& input) {
    const uint8_t which = input.u8();
    const uint8_t port = input.u8();
    if (which % 3 == 0) {
        uint8_t frequency = 0xA5;
        const int32_t result = nvmemi_config_get_smbus_freq(&target.ctx, port, &frequency);
        require_result(result);
        require(result == 0 ? frequency <= 0x0F : frequency == 0xA5, "a wrong frequency");
    } else if (which % 3 == 1) {
        uint16_t size = 0xA5A5;
        const int32_t result = nvmemi_config_get_mctp_tx_unit_size(&target.ctx, port, &size);
        require_result(result);
        require(result == 0 || size == 0xA5A5, "a failed command gave a size");
    } else {
        require_result(nvmemi_config_get_health_status_change(&target.ctx));
    }
}

void change_settings(Target& target, Input& input) {
    const uint8_t which = input.u8();
    const uint8_t port = input.u8();
    if (which % 3 == 0) {
        const uint8_t frequency = input.u8();
        const int32_t result = nvmemi_config_set_smbus_freq(&target.ctx, port, frequency);
        require_result(result);
        require((frequency >= 1 && frequency <= 3) || (result == -1 && world().exchanges == 0),
                "no frequency was set");
    } else if (which % 3 == 1) {
        require_result(nvmemi_config_set_mctp_tx_unit_size(&target.ctx, port, input.u16()));
    } else {
        const uint32_t changes = input.u32();
        require_result(nvmemi_config_set_health_status_change(&target.ctx, &changes));
    }
}

void poll_subsystem(Target& target, Input& input) {
    const uint32_t nmd1 = input.u32();
    GuardedBuffer room(sizeof(nvme_subsystem_health));
    require_result(nvmemi_nvm_subsystem_health_status_poll(
                       &target.ctx, &nmd1, reinterpret_cast<nvme_subsystem_health*>(room.data())),
                   room);
}

void poll_controllers(Target& target, Input& input) {
    const uint32_t nmd0 = input.u32();
    const uint32_t nmd1 = input.u32();
    uint8_t count = 0xA5;
    GuardedBuffer room(sizeof(nvme_controller_health) * NVMEMI_CONTROLLERS_MAX);
    const int32_t result = nvmemi_controller_health_status_poll(
        &target.ctx, &nmd0, &nmd1, &count, reinterpret_cast<nvme_controller_health*>(room.data()));
    require_result(result, room);
    require(result == 0 ? count <= NVMEMI_CONTROLLERS_MAX : count == 0xA5, "a wrong count");
    require(result != 0 || room.untouched_from(count * sizeof(nvme_controller_health)),
            "entries behind the count");
}

void read_structure(Target& target, Input& input) {
    const uint8_t type = input.u8();
    const uint32_t nmd0 = NVMEMI_DS(type, input.u8(), 0);
    const uint32_t capacity = input.u16() % 6000;
    uint16_t length = 0xA5A5;
    GuardedBuffer room(capacity);
    const int32_t result =
        nvmemi_read_nvmemi_data_structure(&target.ctx, &nmd0, room.data(), capacity, &length);
    require_result(result, room);
    if (result != 0) {
        require(length == 0xA5A5, "a failed command gave a length");
        return;
    }
    require(length <= capacity && length <= NVMEMI_RESPONSE_MAX - NVMEMI_RESPONSE_SIZE &&
                room.untouched_from(length),
            "a length beyond the room");
    const bool is_list =
        type == NVMEMI_DTYP_CONTROLLER_LIST || type == NVMEMI_DTYP_OPTIONAL_COMMANDS;
    require(type <= NVMEMI_DTYP_OPTIONAL_COMMANDS && (is_list || length == 32),
            "a structure that there is none of");
}

void reset(Target& target, Input& /*input*/) {
    require_result(nvmemi_reset(&target.ctx));
}

void read_vpd(Target& target, Input& input) {
    const uint16_t offset = input.u16();
    const uint16_t length = input.u16();
    GuardedBuffer room(length);
    const int32_t result = nvmemi_vpd_read(&target.ctx, offset, length, room.data());
    require_result(result, room);
    // An operation of the caller's own may claim as much as there is room for.
    const bool is_own = target.ctx.mi_request != target.request;
    require(result != 0 || is_own || length <= NVMEMI_RESPONSE_MAX - NVMEMI_RESPONSE_SIZE,
            "bytes from nowhere");
}

void write_vpd(Target& target, Input& input) {
    const uint16_t offset = input.u16();
    const uint16_t length = input.u16() % 300;
    GuardedBuffer data(length);
    const int32_t result = nvmemi_vpd_write(&target.ctx, data.data(), offset, length);
    require_result(result, data);
    data.check();
    require(data.untouched_from(0), "a write changed its data");
    require(length <= NVMEMI_VPD_WRITE_MAX || (result == -1 && world().exchanges == 0),
            "too long a write");
}

/// The request operation itself, with room of any size.
void exchange(Target& target, Input& input) {
    const uint32_t capacity = input.u16() % 6000;
    GuardedBuffer response(capacity);
    uint8_t request[NVMEMI_REQUEST_SIZE] = {0x08};
    target.ctx.mctp->msg_type = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;
    const int32_t result =
        target.request(&target.ctx, sizeof request, capacity, request, response.data());
    response.check();
    require(result >= -1 &&
                result <= static_cast<int32_t>(std::min<uint32_t>(capacity, NVMEMI_RESPONSE_MAX)),
            "more than there is room for");
    require(response.untouched_from(static_cast<size_t>(std::max(result, 0))),
            "bytes behind the response");
    require(world().exchanges <= 3 && world().reads <= 3, "too many attempts");
}

/// The whole stack: a context of either form, over SMBus packets.
void life(Target& /*target*/, Input& input) {
    const uint8_t how = input.u8();
    nvmemi_ctx ctx{};
    const bool works = fuzz::init_drive(ctx, how);
    const uint32_t nmd0 = NVMEMI_DS(how >> 4, 0, 0);
    uint16_t length = 0;
    GuardedBuffer room(600);
    const int32_t read = nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, room.data(), 600, &length);
    room.check();
    require(read >= -1 && read <= 255 && length <= 600, "an undocumented result");
    require(works || read == -1, "a structure without an endpoint");
    require(nvmemi_deinit(&ctx) == 0 && ctx.mctp == nullptr, "not released");
}

constexpr void (*kCalls[])(Target&, Input&) = {
    get_settings, change_settings, poll_subsystem, poll_controllers, read_structure,
    reset,        read_vpd,        write_vpd,      exchange,         life,
};

/// Gives a context its operation and an endpoint. No binding has this number.
void bind(Target& target, mctp_ctx& endpoint) {
    mctp_ctx nowhere{};
    nowhere.binding_kind = 0xFF;
    require(nvmemi_init(&target.ctx, &nowhere) == -1 && nvmemi_deinit(&target.ctx) == 0,
            "a binding");
    endpoint.xfer = drive_xfer;
    endpoint.recv = drive_recv;
    target.ctx.mctp = &endpoint;
    target.request = target.ctx.mi_request;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsOfAnInput = 16;
    // Three tries and three reads, each with its dropped packets and packets of a single byte.
    constexpr unsigned kPlatformCallsMax = 6 * 6500;
    mctp_ctx endpoint{};
    Target target;
    bind(target, endpoint);
    fuzz::begin(bytes, size);
    endpoint.strict = world().strict;
    Input& input = world().input;
    const uint8_t mode = input.u8();
    if ((mode & 0x01) != 0) {
        target.ctx.mi_request = own_request;
    }
    for (int i = 0; i < kCallsOfAnInput && (i == 0 || !input.empty()); ++i) {
        kCalls[input.u8() % std::size(kCalls)](target, input);
        fuzz::end(kPlatformCallsMax);
    }
    fuzz::finish();
    return 0;
}
