// SPDX-License-Identifier: Apache-2.0
// The sensor commands of PLDM monitoring and control, in the order of their codes (DSP0248).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/memory.h"
#include "common/output.h"
#include "common/wire.h"
#include "pldm/message.h"

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

/// The result of SetStateSensorEnables, with its line for the console.
int32_t judge_enables(const PldmAnswer& answer) {
    switch (answer.header.completion) {
        case PLDM_CC_SUCCESS:
            print_on_console("pldm set state sensor enable success\n");
            return 0;
        case kInvalidSensorId:
            print_on_console("pldm set state sensor enable fail: PLDM_MONITOR_INVALID_SENSOR_ID\n");
            return -1;
        case kEventGenerationNotSupported:
            print_on_console(
                "pldm set state sensor enable fail: "
                "PLDM_MONITOR_EVENT_GENERATION_NOT_SUPPORTED\n");
            return -1;
        default:
            return answer.result;
    }
}

/// GetStateSensorReadings response: composite sensor count, then four bytes a sensor.
constexpr size_t kStateResponseSize =
    PLDM_RESPONSE_HEADER_SIZE + 1 + PLDM_COMPOSITE_SENSORS_MAX * sizeof(pldm_state_reading);

PldmAnswer exchange_state_readings(pldm_ctx& ctx, uint16_t sensor_id, std::span<uint8_t> room) {
    PldmRequest request(PLDM_TYPE_MONITOR, kGetStateSensorReadings);
    request.fields.le16(sensor_id).u8(0).u8(0);  // no rearm, reserved
    return exchange(ctx, request, room);
}

pldm_state_reading read_state(WireReader& body) {
    pldm_state_reading reading;
    reading.sensor_operational_state = body.u8();
    reading.present_state = body.u8();
    reading.previous_state = body.u8();
    reading.event_state = body.u8();
    return reading;
}

/// How many readings are looked at of those that an answer claims to have.
unsigned readings_among(uint8_t claimed) {
    return std::min<unsigned>(claimed, PLDM_COMPOSITE_SENSORS_MAX);
}

}  // namespace

void dump_packet(const uint8_t* buffer, int32_t length) {
    if (buffer != nullptr) {
        Output out;
        out.print_rows({buffer, static_cast<size_t>(std::max(length, 0))});
    }
}

int32_t pldm_set_numeric_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id, uint8_t operational_state,
                                       uint8_t event_enable) {
    if (!begin(ctx)) {
        return PLDM_ERROR_ARGUMENT;
    }
    PldmRequest request(PLDM_TYPE_MONITOR, kSetNumericSensorEnable);
    request.fields.le16(sensor_id).u8(operational_state).u8(event_enable);
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> room{};
    print_line("====== set numeric sensor enable Req =====");
    print_line(kRequestEnd);
    const PldmAnswer answer = exchange(*ctx, request, room);
    if (answer.result < 0) {
        return answer.result;
    }
    print_line("====== set numeric sensor enable Resp =====");
    print_line(kResponseEnd);
    if (finish(answer, "pldm_set_numeric_sensor_enable") < 0) {
        return -1;
    }
    if (answer.header.completion != PLDM_CC_SUCCESS) {
        return answer.result;
    }
    print_line("pldm set numeric sensor enable success");
    return 0;
}

int32_t pldm_get_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id, uint32_t* reading) {
    if (!begin(ctx) || reading == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    PldmRequest request(PLDM_TYPE_MONITOR, kGetSensorReading);
    request.fields.le16(sensor_id).u8(0);  // no rearm
    std::array<uint8_t, 14> room{};
    print_framed("====== get Sensor reading Req =====", request.bytes(), kRequestEnd);
    PldmAnswer answer = exchange(*ctx, request, room);
    if (answer.result < 0) {
        return answer.result;
    }
    print_framed("====== get Sensor reading Resp =====", room, kResponseEnd);

    const uint8_t data_size = answer.body.u8();
    const uint8_t operational_state = answer.body.u8();
    answer.body.skip(4);  // event message enable, present, previous and event state
    answer.body.skip(reading_width(data_size));
    if (finish(answer, "pldm_get_sensor_reading") < 0) {
        return -1;
    }
    if (!count_reading(operational_state)) {
        return fail_command(*ctx, SIDEBAND_CAUSE_REFUSED);
    }
    // What comes behind a narrow reading is a part of the result, zeros stand for what does not.
    *reading = WireReader(std::span(room).last(sizeof *reading)).le32();
    return 0;
}

int32_t pldm_set_state_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id, uint8_t count,
                                     uint8_t operational_state, uint8_t event_enable) {
    constexpr const char* kFunction = "pldm_set_state_sensor_enable";
    if (!begin(ctx)) {
        return PLDM_ERROR_ARGUMENT;
    }
    const size_t length = (size_t{count} + 3) * 2;
    print_on_console("%s req_len =%d\n", kFunction, static_cast<int>(length));
    // Deliberately never released: a transfer operation may hold on to the request.
    uint8_t* block = allocate_bytes(length).release();
    if (block == nullptr) {
        ctx->last_error = error_of(SIDEBAND_CAUSE_MEMORY);
        return PLDM_ERROR_ARGUMENT;
    }
    if (count > PLDM_COMPOSITE_SENSORS_MAX) {
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        print_on_console("invaild stats count: %d\n", count);
        return -1;
    }
    PldmRequest request(PLDM_TYPE_MONITOR, kSetStateSensorEnables);
    request.fields.le16(sensor_id).u8(count);
    for (unsigned i = 0; i < count; ++i) {
        request.fields.u8(operational_state).u8(event_enable);
    }
    const std::span<uint8_t> kept(block, length);
    std::memcpy(block, request.bytes().data(), length);
    print_formatted("====== set state sensor enable Req: len %d=====\n", static_cast<int>(length));
    dump_packet(block, static_cast<int32_t>(length));
    print_line(kRequestEnd);
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> room{};
    const PldmAnswer answer = exchange(*ctx, kept, room);
    if (answer.result < 0) {
        return answer.result;
    }
    print_framed("====== set state sensor enable Resp =====", room, kResponseEnd);
    return finish(answer, kFunction) < 0 ? -1 : judge_enables(answer);
}

int32_t pldm_get_state_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id, pldm_state_reading* out) {
    constexpr const char* kFunction = "pldm_get_state_sensor_reading";
    if (!begin(ctx) || out == nullptr) {
        return -1;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(kStateResponseSize);
    if (room == nullptr) {
        ctx->last_error = error_of(SIDEBAND_CAUSE_MEMORY);
        return -1;
    }
    print_line("====== get State reading Req =====");
    print_line(kRequestEnd);
    PldmAnswer answer = exchange_state_readings(*ctx, sensor_id, {room.get(), kStateResponseSize});
    if (answer.result != 0) {
        return answer.result;
    }
    const uint8_t count = answer.body.u8();
    if (finish(answer, kFunction) < 0) {
        return -1;
    }
    print_line("====== get State reading Resp =====");
    print_line(kResponseEnd);
    print_formatted("compositeSensorCount = %d\n", count);
    for (unsigned left = readings_among(count); left > 0; --left) {
        const pldm_state_reading reading = read_state(answer.body);
        if (finish(answer, kFunction) < 0) {
            return -1;
        }
        if (reading.sensor_operational_state == PLDM_SENSOR_ENABLED) {
            out->present_state = reading.present_state;
            out->previous_state = reading.previous_state;
            out->event_state = reading.event_state;
            return 0;
        }
    }
    return 0;
}

int32_t pldm_get_state_sensor_reading_from_HEALTH(pldm_ctx* ctx, uint16_t sensor_id,
                                                  pldm_state_reading* out, uint8_t index) {
    constexpr const char* kFunction = "pldm_get_state_sensor_reading_from_HEALTH";
    const bool usable = begin(ctx);
    if (out == nullptr || ctx == nullptr) {
        debug_log("%s, invalid parameters\n", kFunction);
        return PLDM_ERROR_ARGUMENT;
    }
    if (!usable) {
        return PLDM_ERROR_ARGUMENT;
    }
    const HeapPtr<uint8_t[]> room = allocate_bytes(kStateResponseSize);
    if (room == nullptr) {
        debug_log("%s, malloc() fail\n", kFunction);
        ctx->last_error = error_of(SIDEBAND_CAUSE_MEMORY);
        return PLDM_ERROR_ARGUMENT;
    }
    PldmAnswer answer = exchange_state_readings(*ctx, sensor_id, {room.get(), kStateResponseSize});
    if (answer.result < 0) {
        debug_log("%s, transfer() fail (%d)\n", kFunction, answer.result);
        return answer.result;
    }
    const unsigned count = readings_among(answer.body.u8());
    answer.body.skip(index * sizeof(pldm_state_reading));
    const pldm_state_reading reading = read_state(answer.body);
    // Quietly: an answer that ends in front of the reading does not have it.
    if (index >= count || !answer.body.ok() ||
        reading.sensor_operational_state != PLDM_SENSOR_ENABLED) {
        fail_command(*ctx, SIDEBAND_CAUSE_NOT_FOUND);
        return PLDM_SENSOR_NOT_FOUND;
    }
    *out = reading;
    return answer.header.completion;
}
