// SPDX-License-Identifier: Apache-2.0
// The sensor commands of PLDM monitoring and control, in the order of their codes (DSP0248).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "common/memory.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "pldm/monitor.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kSetNumericSensorEnable = 0x10,
    kGetSensorReading = 0x11,
    kSetStateSensorEnables = 0x20,
    kGetStateSensorReadings = 0x21,
};

constexpr uint8_t kInvalidSensorId = 0x80;
constexpr uint8_t kEventGenerationNotSupported = 0x82;

/// Consecutive answers, over all sensors of the process, from a sensor that was not enabled.
/// Deliberately not per sensor.
int not_enabled_readings;
constexpr int kNotEnabledReadingsMax = 10;

/// Starts a request: header, command, sensor ID. The writer stands behind them.
WireWriter start_request(std::span<uint8_t> request, Command command, uint16_t sensor_id) {
    return monitor_request(request, command).le16(sensor_id);
}

constexpr const char* kRequestEnd = "===================================";
constexpr const char* kResponseEnd = "====================================";

/// Bytes of a presentReading by sensorDataSize (DSP0248, table 32): 8, 16 or 32 bits.
size_t reading_width(uint8_t data_size) {
    switch (data_size) {
        case 0:
        case 1:
            return 1;
        case 2:
        case 3:
            return 2;
        case 4:
        case 5:
            return 4;
        default:
            return 1;
    }
}

/// @return false from the eleventh consecutive reading on that was not enabled
bool count_reading(uint8_t operational_state) {
    if (operational_state == PLDM_SENSOR_ENABLED) {
        __atomic_store_n(&not_enabled_readings, 0, __ATOMIC_RELAXED);
        return true;
    }
    const int before = __atomic_load_n(&not_enabled_readings, __ATOMIC_RELAXED);
    if (before > kNotEnabledReadingsMax) {
        return false;  // and no further, lest the counter overflow
    }
    __atomic_store_n(&not_enabled_readings, before + 1, __ATOMIC_RELAXED);
    return before < kNotEnabledReadingsMax;
}

/// GetStateSensorReadings: completion code, composite sensor count, then four bytes a sensor.
constexpr size_t kStateFieldsOffset = 5;
constexpr size_t kStateResponseSize =
    kStateFieldsOffset + PLDM_COMPOSITE_SENSORS_MAX * sizeof(pldm_state_reading);

int32_t exchange_state_readings(pldm_ctx& ctx, uint16_t sensor_id, std::span<uint8_t> response) {
    std::array<uint8_t, 7> request;
    start_request(request, kGetStateSensorReadings, sensor_id).u8(0).u8(0);  // no rearm, reserved
    return pldm_exchange(ctx, request, response);
}

pldm_state_reading state_field(std::span<const uint8_t> response, size_t index) {
    WireReader reader(response);
    reader.skip(kStateFieldsOffset + index * sizeof(pldm_state_reading));
    pldm_state_reading reading{};
    reading.sensor_operational_state = reader.u8();
    reading.present_state = reader.u8();
    reading.previous_state = reader.u8();
    reading.event_state = reader.u8();
    return reading;
}

/// Fields that the answer claims and a response has room for.
size_t claimed_fields(std::span<const uint8_t> response) {
    return std::min<size_t>(response[kStateFieldsOffset - 1], PLDM_COMPOSITE_SENSORS_MAX);
}

bool has_field(const pldm_ctx& ctx, size_t index) {
    return pldm_response_has(ctx, kStateFieldsOffset + (index + 1) * sizeof(pldm_state_reading));
}

}  // namespace

namespace sideband {

WireWriter monitor_request(std::span<uint8_t> request, uint8_t command) {
    pldm_monitor_request_init(request.data());
    request[kPldmCommand] = command;
    WireWriter writer(request);
    writer.skip(PLDM_HEADER_SIZE);
    return writer;
}

}  // namespace sideband

void dump_packet(const uint8_t* buffer, int32_t length) {
    if (buffer == nullptr) {
        return;
    }
    for (int32_t i = 0; i < length; ++i) {
        if (i != 0 && i % 16 == 0) {
            std::printf("\n");
        }
        std::printf(" %02x", buffer[i]);
    }
    std::printf("\n");
}

int32_t pldm_set_numeric_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id, uint8_t operational_state,
                                       uint8_t event_enable) {
    if (!can_exchange(ctx)) {
        return PLDM_ERROR_ARGUMENT;
    }
    std::array<uint8_t, 7> request;
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> response{};
    start_request(request, kSetNumericSensorEnable, sensor_id)
        .u8(operational_state)
        .u8(event_enable);
    print_line("====== set numeric sensor enable Req =====");
    print_line(kRequestEnd);
    const int32_t result = pldm_exchange(*ctx, request, response);
    if (result < 0) {
        return result;
    }
    print_line("====== set numeric sensor enable Resp =====");
    print_line(kResponseEnd);
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return result;
    }
    print_line("pldm set numeric sensor enable success");
    return 0;
}

int32_t pldm_get_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id, uint32_t* reading) {
    constexpr size_t kReadingOffset = 10;
    if (!can_exchange(ctx) || reading == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    std::array<uint8_t, 6> request;
    std::array<uint8_t, 14> response{};
    start_request(request, kGetSensorReading, sensor_id).u8(0);  // no rearm
    print_line("====== get Sensor reading Req =====");
    dump_packet(request.data(), static_cast<int32_t>(request.size()));
    print_line(kRequestEnd);
    const int32_t result = pldm_exchange(*ctx, request, response);
    if (result < 0) {
        return result;
    }
    print_line("====== get Sensor reading Resp =====");
    dump_packet(response.data(), static_cast<int32_t>(response.size()));
    print_line(kResponseEnd);

    WireReader reader(response);
    reader.skip(PLDM_RESPONSE_HEADER_SIZE);
    const uint8_t data_size = reader.u8();
    const uint8_t operational_state = reader.u8();
    reader.skip(4);  // event message enable, present, previous and event state
    if (!pldm_response_has(*ctx, kReadingOffset + reading_width(data_size))) {
        return too_short(*ctx, "pldm_get_sensor_reading");
    }
    if (!count_reading(operational_state)) {
        return -1;
    }
    *reading = reader.le32();
    return 0;
}

int32_t pldm_set_state_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id, uint8_t count,
                                     uint8_t operational_state, uint8_t event_enable) {
    if (!can_exchange(ctx)) {
        return PLDM_ERROR_ARGUMENT;
    }
    const size_t length = (size_t{count} + 3) * 2;
    console_log("pldm_set_state_sensor_enable req_len =%d\n", static_cast<int>(length));
    // Deliberately never released: a transfer operation may hold on to the request.
    uint8_t* request = allocate_bytes(length).release();
    if (request == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    WireWriter writer =
        start_request({request, length}, kSetStateSensorEnables, sensor_id).u8(count);
    if (count > PLDM_COMPOSITE_SENSORS_MAX) {
        console_log("invaild stats count: %d\n", count);
        return -1;
    }
    for (unsigned i = 0; i < count; ++i) {
        writer.u8(operational_state).u8(event_enable);
    }
    std::printf("====== set state sensor enable Req: len %d=====\n", static_cast<int>(length));
    dump_packet(request, static_cast<int32_t>(length));
    print_line(kRequestEnd);
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> response{};
    const int32_t result = pldm_exchange(*ctx, {request, length}, response);
    if (result < 0) {
        return result;
    }
    print_line("====== set state sensor enable Resp =====");
    dump_packet(response.data(), static_cast<int32_t>(response.size()));
    print_line(kResponseEnd);
    switch (response[kPldmCompletionCode]) {
        case PLDM_CC_SUCCESS:
            console_log("pldm set state sensor enable success\n");
            return 0;
        case kInvalidSensorId:
            console_log("pldm set state sensor enable fail: PLDM_MONITOR_INVALID_SENSOR_ID\n");
            return -1;
        case kEventGenerationNotSupported:
            console_log(
                "pldm set state sensor enable fail: "
                "PLDM_MONITOR_EVENT_GENERATION_NOT_SUPPORTED\n");
            return -1;
        default:
            return result;
    }
}

int32_t pldm_get_state_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id, pldm_state_reading* out) {
    if (out == nullptr || !can_exchange(ctx)) {
        return -1;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(kStateResponseSize);
    if (room == nullptr) {
        return -1;
    }
    const std::span<uint8_t> response(room.get(), kStateResponseSize);
    print_line("====== get State reading Req =====");
    print_line(kRequestEnd);
    const int32_t result = exchange_state_readings(*ctx, sensor_id, response);
    if (result != 0) {
        return result;
    }
    if (!pldm_response_has(*ctx, kStateFieldsOffset)) {
        return too_short(*ctx, "pldm_get_state_sensor_reading");
    }
    print_line("====== get State reading Resp =====");
    print_line(kResponseEnd);
    std::printf("compositeSensorCount = %d\n", response[kStateFieldsOffset - 1]);
    for (size_t i = 0; i < claimed_fields(response); ++i) {
        if (!has_field(*ctx, i)) {
            return too_short(*ctx, "pldm_get_state_sensor_reading");
        }
        const pldm_state_reading field = state_field(response, i);
        if (field.sensor_operational_state == PLDM_SENSOR_ENABLED) {
            out->present_state = field.present_state;
            out->previous_state = field.previous_state;
            out->event_state = field.event_state;
            break;
        }
    }
    return result;
}

int32_t pldm_get_state_sensor_reading_from_HEALTH(pldm_ctx* ctx, uint16_t sensor_id,
                                                  pldm_state_reading* out, uint8_t index) {
    constexpr const char* kFunction = "pldm_get_state_sensor_reading_from_HEALTH";
    if (out == nullptr || ctx == nullptr) {
        debug_log("%s, invalid parameters\n", kFunction);
        return PLDM_ERROR_ARGUMENT;
    }
    if (ctx->transfer_op == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(kStateResponseSize);
    if (room == nullptr) {
        debug_log("%s, malloc() fail\n", kFunction);
        return PLDM_ERROR_ARGUMENT;
    }
    const std::span<uint8_t> response(room.get(), kStateResponseSize);
    const int32_t result = exchange_state_readings(*ctx, sensor_id, response);
    if (result < 0) {
        debug_log("%s, transfer() fail (%d)\n", kFunction, result);
        return result;
    }
    if (index >= claimed_fields(response) || !has_field(*ctx, index)) {
        return PLDM_SENSOR_NOT_FOUND;
    }
    const pldm_state_reading field = state_field(response, index);
    if (field.sensor_operational_state != PLDM_SENSOR_ENABLED) {
        return PLDM_SENSOR_NOT_FOUND;
    }
    *out = field;
    return response[kPldmCompletionCode];
}
