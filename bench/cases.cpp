// SPDX-License-Identifier: Apache-2.0
// The measured exchanges over both SMBus bindings and sockets, and what else is measured.
#include "bench/cases.h"

#include <sideband/mctp.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "bench/memory_platform.h"
#ifdef SIDEBAND_SOCKET
#include "bench/memory_socket.h"
#endif

namespace bench {
namespace {

constexpr size_t kLargeSize = 4096;
/// The message type of the large messages; nothing looks into them.
constexpr uint8_t kVendorDefined = 0x7E;

/// GetSensorReading (DSP0248, clause 18.2): sensor 1 reads 0x00001234.
constexpr std::array<uint8_t, 6> kSensorRequest{0x80, 0x02, 0x11, 0x01, 0x00, 0x00};
constexpr std::array<uint8_t, 14> kSensorResponse{0x00, 0x02, 0x11, 0x00, 0x04, 0x00, 0x00,
                                                  0x01, 0x01, 0x01, 0x34, 0x12, 0x00, 0x00};

mctp_ctx endpoint;
pldm_ctx terminus;
std::array<uint8_t, kSensorRequest.size()> sensor_request;
std::array<uint8_t, kSensorResponse.size()> sensor_response;
std::array<uint8_t, kLargeSize> sent;
std::array<uint8_t, kLargeSize> received;
uint64_t messages_out;

template <uint8_t kind>
void prepare_sensor() {
    prepare_endpoint(endpoint, kind);
    terminus = pldm_ctx{};
    mctp_pldm_register(&endpoint, &terminus);
    sensor_request = kSensorRequest;
    sensor_response.fill(0);
    prepare_answer(MCTP_MSG_TYPE_PLDM, kSensorResponse.data(), kSensorResponse.size(), kUnitSize);
}

bool run_sensor() {
    return terminus.transfer_op(&terminus, sensor_request.size(),
                                static_cast<int32_t>(sensor_response.size()), sensor_request.data(),
                                sensor_response.data()) == 0;
}

bool verify_sensor() {
    return std::equal(sensor_response.begin() + 1, sensor_response.end(),
                      kSensorResponse.begin() + 1) &&
           (sensor_response[0] & 0x1F) == ((terminus.instance_id - 1) & 0x1F);
}

template <uint8_t kind>
void prepare_large() {
    prepare_endpoint(endpoint, kind);
    endpoint.msg_type = kVendorDefined;
    for (size_t i = 0; i < kLargeSize; ++i) {
        sent[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    sent[0] &= 0xE0;  // where the device puts the instance ID
    received.fill(0);
    messages_out = 0;
    prepare_answer(kVendorDefined, sent.data(), sent.size(), kUnitSize);
}

bool run_large_exchange() {
    return endpoint.xfer(&endpoint, kLargeSize, kLargeSize, sent.data(), received.data()) ==
           kLargeSize;
}

bool run_large_out() {
    ++messages_out;
    return endpoint.send(&endpoint, kLargeSize, sent.data(), 1) == 0;
}

bool run_large_in() {
    return endpoint.recv(&endpoint, kLargeSize, received.data()) == kLargeSize;
}

bool verify_large() {
    return received == sent;
}

bool verify_large_out() {
    constexpr uint64_t kPackets = (1 + kLargeSize + kUnitSize - 1) / kUnitSize;
    return packets_written() == messages_out * kPackets;
}

bool run_small_in() {
    return endpoint.recv(&endpoint, static_cast<int32_t>(sensor_response.size()),
                         sensor_response.data()) == static_cast<int32_t>(sensor_response.size());
}

bool verify_small_in() {
    return std::equal(sensor_response.begin() + 1, sensor_response.end(),
                      kSensorResponse.begin() + 1);
}

#ifdef SIDEBAND_SOCKET
void prepare_socket_sensor() {
    prepare_sensor<MCTP_BINDING_KIND_SOCKET>();
    prepare_socket_answer(kSensorResponse.data(), kSensorResponse.size());
}

void prepare_socket_large() {
    prepare_large<MCTP_BINDING_KIND_SOCKET>();
    prepare_socket_answer(sent.data(), sent.size());
}
#endif

constexpr uint8_t kHardware = MCTP_BINDING_KIND_SMBUS;
constexpr uint8_t kSoftware = MCTP_BINDING_KIND_SL8_SMBUS;

constexpr Case kCases[] = {
    {"sensor/hardware-pec", prepare_sensor<kHardware>, run_sensor, verify_sensor},
    {"sensor/software-pec", prepare_sensor<kSoftware>, run_sensor, verify_sensor},
    {"message-4096/hardware-pec", prepare_large<kHardware>, run_large_exchange, verify_large},
    {"message-4096/software-pec", prepare_large<kSoftware>, run_large_exchange, verify_large},
    {"message-4096-out/hardware-pec", prepare_large<kHardware>, run_large_out, verify_large_out},
    {"message-4096-out/software-pec", prepare_large<kSoftware>, run_large_out, verify_large_out},
    {"message-4096-in/hardware-pec", prepare_large<kHardware>, run_large_in, verify_large},
    {"message-4096-in/software-pec", prepare_large<kSoftware>, run_large_in, verify_large},
    {"receive-packet/hardware-pec", prepare_sensor<kHardware>, run_small_in, verify_small_in},
    {"receive-packet/software-pec", prepare_sensor<kSoftware>, run_small_in, verify_small_in},
#ifdef SIDEBAND_SOCKET
    {"sensor/socket", prepare_socket_sensor, run_sensor, verify_sensor},
    {"message-4096/socket", prepare_socket_large, run_large_exchange, verify_large},
#endif
    {"reading/software-pec", prepare_reading, run_reading, verify_reading},
    {"identify/software-pec", prepare_identify, run_identify, verify_identify},
    {"health/software-pec", prepare_health, run_health, verify_health},
    {"fru-record", prepare_fru_record, run_fru_record, verify_fru_record, kFruRecordAllocations},
    {"package", prepare_package, run_package, verify_package, kPackageAllocations},
};

}  // namespace

void prepare_endpoint(mctp_ctx& endpoint, uint8_t binding_kind) {
    endpoint = mctp_ctx{};
    endpoint.src_eid = 0x08;
    endpoint.dest_eid = 0x1D;
    endpoint.bus = 3;
    endpoint.slave_addr = 0x64;
    endpoint.binding_kind = binding_kind;
    endpoint.skip_discovery = 1;
    endpoint.unit_size = kUnitSize;
    mctp_init2(&endpoint);
}

std::span<const Case> cases() {
    return kCases;
}

const Case* find_case(const char* name) {
    for (const Case& one : kCases) {
        if (std::strcmp(one.name, name) == 0) {
            return &one;
        }
    }
    return nullptr;
}

}  // namespace bench
