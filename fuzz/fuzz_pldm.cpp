// SPDX-License-Identifier: Apache-2.0
// Fuzzes the answers to the PLDM discovery and sensor commands, below and in place of the transfer
// operation, and a terminus's life over SMBus.
#include <sideband/mctp.h>
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <cstring>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::GuardedBuffer;
using fuzz::Input;
using fuzz::require;

/// 0, a failure, or a completion code.
void require_result(int32_t result) {
    require(result <= 255, "an undocumented result");
}

void discovery_commands(pldm_ctx& ctx, Input& input) {
    const uint8_t tid = ctx.tid;
    uint8_t types[sizeof ctx.pldm_types];
    uint8_t commands[sizeof ctx.base_commands];
    std::memcpy(types, ctx.pldm_types, sizeof types);
    std::memcpy(commands, ctx.base_commands, sizeof commands);
    int32_t result = 0;
    switch (input.u8() % 5) {
        case 0:
            result = pldm_get_tid(&ctx);
            require(result == 0 || ctx.tid == tid, "a failed command changed the terminus ID");
            break;
        case 1:
            result = pldm_get_type(&ctx);
            require(result == 0 || std::memcmp(types, ctx.pldm_types, sizeof types) == 0,
                    "a failed command changed the types");
            break;
        case 2:
            result = pldm_get_version(&ctx, input.u8());
            break;
        case 3:
            result = pldm_get_commands(&ctx);
            require(result == 0 || std::memcmp(commands, ctx.base_commands, sizeof commands) == 0,
                    "a failed command changed the commands");
            break;
        default:
            result = pldm_discovery(&ctx);
            break;
    }
    require_result(result);
}

void enable_numeric(pldm_ctx& ctx, Input& input) {
    const uint16_t sensor = input.u16();
    require_result(pldm_set_numeric_sensor_enable(&ctx, sensor, input.u8(), 0));
}

void read_numeric(pldm_ctx& ctx, Input& input) {
    uint32_t reading = 0xA5A5A5A5;
    const int32_t result = pldm_get_sensor_reading(&ctx, input.u16(), &reading);
    require_result(result);
    require(result == 0 || reading == 0xA5A5A5A5, "a failed command changed the reading");
}

void enable_state(pldm_ctx& ctx, Input& input) {
    const uint16_t sensor = input.u16();
    const uint8_t count = input.u8();
    const int32_t result = pldm_set_state_sensor_enable(&ctx, sensor, count, input.u8(), 1);
    require_result(result);
    require(count <= PLDM_COMPOSITE_SENSORS_MAX || result < 0, "too many sensors were accepted");
    fuzz::free_kept_blocks();
}

void read_state(pldm_ctx& ctx, Input& input) {
    constexpr pldm_state_reading kUntouched{0xA5, 0xA5, 0xA5, 0xA5};
    pldm_state_reading reading = kUntouched;
    const int32_t result = pldm_get_state_sensor_reading(&ctx, input.u16(), &reading);
    require_result(result);
    require(reading.sensor_operational_state == 0xA5, "the operational state was written");
    require(result == 0 || std::memcmp(&reading, &kUntouched, sizeof reading) == 0,
            "a failed command changed the reading");
}

void read_state_at(pldm_ctx& ctx, Input& input) {
    constexpr pldm_state_reading kUntouched{0xA5, 0xA5, 0xA5, 0xA5};
    pldm_state_reading reading = kUntouched;
    const uint16_t sensor = input.u16();
    const int32_t result =
        pldm_get_state_sensor_reading_from_HEALTH(&ctx, sensor, &reading, input.u8());
    require_result(result);
    const bool untouched = std::memcmp(&reading, &kUntouched, sizeof reading) == 0;
    require(result >= 0 || untouched, "a failed command changed the reading");
    require(untouched || reading.sensor_operational_state == PLDM_SENSOR_ENABLED,
            "a reading that is not enabled");
}

void raw_operations(pldm_ctx& ctx, Input& input) {
    uint8_t message[8] = {0x80, 0x02, 0x11};
    const uint8_t which = input.u8();
    message[2] = (which & 0x10) != 0 ? 0x1A : input.u8();
    const int32_t capacity = input.u8();
    GuardedBuffer room(static_cast<size_t>(capacity));
    int32_t result = 0;
    switch (which % 3) {
        case 0:
            result = pldm_send(&ctx, sizeof message, message, which >> 7);
            break;
        case 1:
            result = pldm_recv(&ctx, capacity, room.data());
            break;
        default: {
            const uint8_t instance = ctx.instance_id;
            result = pldm_transfer(&ctx, sizeof message, capacity, message, room.data());
            require(ctx.instance_id == static_cast<uint8_t>(instance + 1),
                    "the instance ID did not advance by one");
            break;
        }
    }
    room.check();
    require(result == 0 || result == -1, "an undocumented result");
}

/// The whole stack: an endpoint of its own, brought up over SMBus packets.
void terminus_life(pldm_ctx& /*ctx*/, Input& input) {
    const uint8_t how = input.u8();
    const mctp_ctx config = fuzz::configuration(how);
    pldm_ctx terminus{};
    if ((how & 0x04) != 0) {
        require_result(discover_pldm_terminus(&terminus, &config));
        return;
    }
    if (pldm_terminus_init(&terminus, &config) != 0) {
        require(terminus.mctp == nullptr, "a failed terminus has an endpoint");
        return;
    }
    require_result(pldm_get_tid(&terminus));
    uint32_t reading = 0;
    require_result(pldm_get_sensor_reading(&terminus, 1, &reading));
    require(pldm_terminus_deinit(&terminus) == 0 && terminus.mctp == nullptr, "not released");
}

constexpr fuzz::TerminusCall kCalls[] = {
    discovery_commands, enable_numeric, read_numeric,   enable_state,
    read_state,         read_state_at,  raw_operations, terminus_life,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // Ten attempts, seven parts; over SMBus some exchanges, each with its dropped packets.
    constexpr unsigned kCallsMax = 12 * 1200;
    fuzz::run_terminus(bytes, size, kCalls, kCallsMax);
    return 0;
}
