// SPDX-License-Identifier: Apache-2.0
// PLDM over a line of one's own: a transfer operation in place of MCTP, and a device in this
// process at the other end. No board is opened: the line is all that the commands use.
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <type_traits>

namespace {

constexpr uint8_t kRequestBit = 0x80;
constexpr uint8_t kInstanceBits = 0x1F;
constexpr uint8_t kGetTid = 0x02;
constexpr uint8_t kGetSensorReading = 0x11;
constexpr uint16_t kSensor = 7;
constexpr uint8_t kInvalidSensor = 0x80;  // DSP0248, GetSensorReading

/// The device: a thermometer that answers two commands. It keeps the header but for the request
/// bit.
size_t thermometer(std::span<const uint8_t> request, std::span<uint8_t, 64> answer) {
    const auto reply = [&](std::initializer_list<uint8_t> body) {
        std::copy_n(request.begin(), PLDM_HEADER_SIZE, answer.begin());
        answer[0] &= static_cast<uint8_t>(~kRequestBit);
        std::copy(body.begin(), body.end(), answer.begin() + PLDM_HEADER_SIZE);
        return PLDM_HEADER_SIZE + body.size();
    };
    switch (request[2]) {
        case kGetTid:
            return reply({PLDM_CC_SUCCESS, 42});
        case kGetSensorReading:
            if (request.size() < 6 || (request[3] | request[4] << 8) != kSensor) {
                return reply({kInvalidSensor});
            }
            // sint8, enabled, no events, normal three times, 23 degrees
            return reply(
                {PLDM_CC_SUCCESS, PLDM_DATA_SIZE_SINT8, PLDM_SENSOR_ENABLED, 0, 1, 1, 1, 23});
        default:
            return reply({PLDM_CC_UNSUPPORTED_COMMAND});
    }
}

/// A terminus on such a line. The context comes first: its operations are handed nothing else.
struct Line {
    pldm_ctx pldm;
    unsigned exchanges;
};
static_assert(std::is_standard_layout_v<Line>);

/// A pldm_transfer_op: stamps the instance ID, sends, and takes the answer to this very request.
int32_t transfer(pldm_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                 uint8_t* request, uint8_t* response) {
    Line& line = *reinterpret_cast<Line*>(ctx);
    ++line.exchanges;
    const auto instance = static_cast<uint8_t>(ctx->instance_id++ & kInstanceBits);
    request[0] = static_cast<uint8_t>(kRequestBit | instance);

    std::array<uint8_t, 64> answer{};
    const size_t length = thermometer({request, request_length}, answer);
    if (length < PLDM_RESPONSE_HEADER_SIZE || answer[0] != instance || answer[1] != request[1] ||
        answer[2] != request[2]) {
        return -1;
    }
    ctx->response_length = std::min(static_cast<int32_t>(length), response_capacity);
    std::copy_n(answer.begin(), ctx->response_length, response);
    ctx->completion_code = answer[3];
    return ctx->completion_code == PLDM_CC_SUCCESS ? 0 : -1;
}

}  // namespace

int main() {
    Line line{};
    if (pldm_init(&line.pldm) != 0) {
        return 1;
    }
    line.pldm.transfer_op = transfer;

    uint32_t reading = 0;
    if (pldm_get_tid(&line.pldm) != 0 ||
        pldm_get_sensor_reading(&line.pldm, kSensor, &reading) != 0) {
        std::fprintf(stderr, "the thermometer does not answer\n");
        return 1;
    }
    std::printf("TID %d: %d degC\n", line.pldm.tid, static_cast<int8_t>(reading));
    if (pldm_get_sensor_reading(&line.pldm, kSensor + 1, &reading) == 0) {
        return 1;
    }
    std::printf("no sensor %d: completion code 0x%02x, after %u exchanges\n", kSensor + 1,
                line.pldm.completion_code, line.exchanges);
    return 0;
}
