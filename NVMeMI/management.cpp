// SPDX-License-Identifier: Apache-2.0
// Management commands (NVMe-MI, Management Interface Command Set).
#include <sideband/debug_log.h>
#include <sideband/nvme_mi.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "NVMeMI/message.h"
#include "common/memory.h"
#include "common/wire.h"

using namespace sideband;

namespace {

constexpr uint8_t kReadDataStructure = 0x00;
constexpr uint8_t kSubsystemHealthPoll = 0x01;
constexpr uint8_t kControllerHealthPoll = 0x02;
constexpr uint8_t kConfigurationSet = 0x03;
constexpr uint8_t kConfigurationGet = 0x04;
constexpr uint8_t kVpdRead = 0x05;
constexpr uint8_t kVpdWrite = 0x06;
constexpr uint8_t kReset = 0x07;

// Configuration identifiers.
constexpr uint8_t kSmbusFrequency = 1;
constexpr uint8_t kHealthStatusChange = 2;
constexpr uint8_t kTransmissionUnitSize = 3;

constexpr uint8_t kFrequencyMask = 0x0F;
/// Bytes in front of the management response.
constexpr size_t kManagementResponse = nvme::kStatus + 1;
constexpr char kConfigurationFailure[] = "fail to get NVMe-MI config";

using ShortResponse = std::array<uint8_t, NVMEMI_RESPONSE_SIZE>;

/// Whether there is a context, and what else a command needs.
bool is_usable(const nvmemi_ctx* ctx, bool has_arguments = true) {
    if (ctx == nullptr) {
        std::puts("nvmemi ctx is null");
        return false;
    }
    return has_arguments;
}

/// Exchanges a management command and looks at the response. Says what failed.
/// @param needed   bytes that a response has where its status is success
/// @param failure  what to print where the exchange failed
/// @param arrived  receives the bytes of the response
int32_t exchange(nvmemi_ctx* ctx, std::span<uint8_t> request, std::span<uint8_t> response,
                 size_t needed, const char* failure, size_t& arrived) {
    arrived = nvme::exchange(ctx, request, response);
    if (arrived == nvme::kNoResponse) {
        std::puts(failure);
        return -1;
    }
    const int32_t status = nvme::judge_status(response.first(arrived), nvme::Outlet::output);
    if (status == 0 && arrived < needed) {
        debug_log("%s, response of %zu bytes is too short\n", "nvmemi", arrived);
        return -1;
    }
    return status;
}

/// As above, for a request without data.
int32_t send(nvmemi_ctx* ctx, const nvme::Command& command, std::span<uint8_t> response,
             size_t needed, const char* failure, size_t& arrived) {
    std::array<uint8_t, NVMEMI_REQUEST_SIZE> request{};
    nvme::encode(command, request);
    return exchange(ctx, request, response, needed, failure, arrived);
}

/// As above, for a response of which nothing but the status is wanted.
int32_t send(nvmemi_ctx* ctx, const nvme::Command& command, const char* failure) {
    if (!is_usable(ctx)) {
        return -1;
    }
    ShortResponse response{};
    size_t arrived = 0;
    return send(ctx, command, response, 0, failure, arrived);
}

/// Dword 0 of the configuration commands.
uint32_t configuration(uint8_t identifier, uint8_t port = 0, uint8_t frequency = 0) {
    constexpr unsigned kFrequencyShift = 8;
    constexpr unsigned kPortShift = 24;
    return uint32_t{port} << kPortShift | uint32_t{frequency} << kFrequencyShift | identifier;
}

/// Reads a setting of a port, which is the beginning of the management response.
/// @param size  bytes of it
int32_t get_setting(nvmemi_ctx* ctx, uint8_t identifier, uint8_t port, size_t size,
                    uint16_t& value) {
    ShortResponse response{};
    size_t arrived = 0;
    const int32_t status =
        send(ctx, {.opcode = kConfigurationGet, .nmd0 = configuration(identifier, port)}, response,
             kManagementResponse + size, kConfigurationFailure, arrived);
    WireReader reader(response);
    reader.skip(kManagementResponse);
    value = reader.le16();
    return status;
}

/// Whether a data structure has a size that its type allows. Says so where not.
bool is_structure(uint8_t type, uint16_t length) {
    constexpr int kFixedSize = 32;
    if (type > NVMEMI_DTYP_OPTIONAL_COMMANDS) {
        std::printf("unsupported DTYP (%x)\n", type);
        return false;
    }
    const bool is_list =
        type == NVMEMI_DTYP_CONTROLLER_LIST || type == NVMEMI_DTYP_OPTIONAL_COMMANDS;
    if (!is_list && length != kFixedSize) {
        std::printf("ds size missmatch (%d:%d)\n", length, kFixedSize);
        return false;
    }
    return true;
}

}  // namespace

int32_t nvmemi_read_nvmemi_data_structure(nvmemi_ctx* ctx, const uint32_t* nmd0, uint8_t* data,
                                          uint32_t capacity, uint16_t* length) {
    constexpr unsigned kTypeShift = 24;
    if (!is_usable(ctx, nmd0 != nullptr && data != nullptr && length != nullptr)) {
        return -1;
    }
    std::array<uint8_t, NVMEMI_RESPONSE_MAX> response{};
    size_t arrived = 0;
    const int32_t status =
        send(ctx, {.opcode = kReadDataStructure, .nmd0 = *nmd0}, response, NVMEMI_RESPONSE_SIZE,
             "fail to send nvmemi data structure command", arrived);
    if (status != 0) {
        return status;
    }
    WireReader reader({response.data(), arrived});
    reader.skip(kManagementResponse);
    const uint16_t size = reader.le16();
    if (!is_structure(static_cast<uint8_t>(*nmd0 >> kTypeShift), size)) {
        return -1;
    }
    reader.skip(1);
    if (size > reader.remaining() || size > capacity) {
        debug_log("%s, data structure of %d bytes: %zu came, room for %u\n", "nvmemi", size,
                  reader.remaining(), capacity);
        return -1;
    }
    reader.copy({data, size});
    *length = size;
    return 0;
}

int32_t nvmemi_nvm_subsystem_health_status_poll(nvmemi_ctx* ctx, const uint32_t* nmd1,
                                                nvme_subsystem_health* out) {
    if (!is_usable(ctx, nmd1 != nullptr && out != nullptr)) {
        return -1;
    }
    std::array<uint8_t, NVMEMI_RESPONSE_SIZE + sizeof(nvme_subsystem_health)> response{};
    size_t arrived = 0;
    const int32_t status = send(ctx, {.opcode = kSubsystemHealthPoll, .nmd1 = *nmd1}, response,
                                response.size(), "fail to poll NVM subsystem health", arrived);
    if (status == 0) {
        WireReader reader(response);
        reader.skip(NVMEMI_RESPONSE_SIZE);
        // In this order: members of a braced list are evaluated as they stand.
        *out = {reader.u8(), reader.u8(), reader.u8(), reader.u8(), reader.le16(), reader.le16()};
    }
    return status;
}

int32_t nvmemi_controller_health_status_poll(
    nvmemi_ctx* ctx, const uint32_t* nmd0, const uint32_t* nmd1, uint8_t* count,
    nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX]) {
    constexpr size_t kEntrySize = 16;
    constexpr size_t kEntryReserved = 7;
    constexpr size_t kEntryCount = 6;
    if (!is_usable(ctx,
                   nmd0 != nullptr && nmd1 != nullptr && count != nullptr && entries != nullptr)) {
        return -1;
    }
    std::array<uint8_t, NVMEMI_RESPONSE_SIZE + NVMEMI_CONTROLLERS_MAX * kEntrySize> response{};
    size_t arrived = 0;
    const int32_t status =
        send(ctx, {.opcode = kControllerHealthPoll, .nmd0 = *nmd0, .nmd1 = *nmd1}, response,
             NVMEMI_RESPONSE_SIZE, "fail to poll controller health", arrived);
    if (status != 0) {
        return status;
    }
    const uint8_t reported = response[kEntryCount];
    if (reported > NVMEMI_CONTROLLERS_MAX) {
        std::printf("Response entries (%d) should not greater than MAX_NVME_CONTROLLER=%d.\n",
                    reported, NVMEMI_CONTROLLERS_MAX);
        return -1;
    }
    if (arrived < NVMEMI_RESPONSE_SIZE + reported * kEntrySize) {
        debug_log("%s, %zu bytes do not hold %d controllers\n", "nvmemi", arrived, reported);
        return -1;
    }
    WireReader reader(response);
    reader.skip(NVMEMI_RESPONSE_SIZE);
    for (nvme_controller_health& entry : std::span(entries, reported)) {
        entry = {reader.le16(), reader.le16(), reader.le16(),
                 reader.u8(),   reader.u8(),   reader.u8()};
        reader.skip(kEntryReserved);
    }
    *count = reported;
    return 0;
}

int32_t nvmemi_config_set_smbus_freq(nvmemi_ctx* ctx, uint8_t port, uint8_t frequency) {
    if (!is_usable(ctx)) {
        return -1;
    }
    if (frequency < NVMEMI_SMBUS_100_KHZ || frequency > NVMEMI_SMBUS_1_MHZ) {
        std::printf("invalid freq (%x)\n", frequency);
        return -1;
    }
    return send(
        ctx, {.opcode = kConfigurationSet, .nmd0 = configuration(kSmbusFrequency, port, frequency)},
        kConfigurationFailure);
}

int32_t nvmemi_config_set_health_status_change(nvmemi_ctx* ctx, const uint32_t* changes) {
    if (!is_usable(ctx, changes != nullptr)) {
        return -1;
    }
    return send(
        ctx,
        {.opcode = kConfigurationSet, .nmd0 = configuration(kHealthStatusChange), .nmd1 = *changes},
        kConfigurationFailure);
}

int32_t nvmemi_config_set_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port, uint16_t size) {
    return send(ctx,
                {.opcode = kConfigurationSet,
                 .nmd0 = configuration(kTransmissionUnitSize, port),
                 .nmd1 = size},
                kConfigurationFailure);
}

int32_t nvmemi_config_get_smbus_freq(nvmemi_ctx* ctx, uint8_t port, uint8_t* frequency) {
    if (!is_usable(ctx, frequency != nullptr)) {
        return -1;
    }
    uint16_t value = 0;
    const int32_t status = get_setting(ctx, kSmbusFrequency, port, sizeof(uint8_t), value);
    if (status == 0) {
        *frequency = value & kFrequencyMask;
    }
    return status;
}

int32_t nvmemi_config_get_health_status_change(nvmemi_ctx* ctx) {
    return send(ctx, {.opcode = kConfigurationGet, .nmd0 = configuration(kHealthStatusChange)},
                kConfigurationFailure);
}

int32_t nvmemi_config_get_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port, uint16_t* size) {
    if (!is_usable(ctx, size != nullptr)) {
        return -1;
    }
    uint16_t value = 0;
    const int32_t status = get_setting(ctx, kTransmissionUnitSize, port, sizeof(uint16_t), value);
    if (status == 0) {
        *size = value;
    }
    return status;
}

int32_t nvmemi_vpd_read(nvmemi_ctx* ctx, uint16_t offset, uint16_t length, uint8_t* data) {
    if (!is_usable(ctx, data != nullptr)) {
        return -1;
    }
    const size_t size = NVMEMI_RESPONSE_SIZE + size_t{length};
    const auto buffer = allocate_bytes(size);
    if (buffer == nullptr) {
        std::puts("fail to allocate buffer");
        return -1;
    }
    size_t arrived = 0;
    const int32_t status = send(ctx, {.opcode = kVpdRead, .nmd0 = offset, .nmd1 = length},
                                {buffer.get(), size}, size, "fail to read VPD", arrived);
    if (status == 0) {
        std::memcpy(data, buffer.get() + NVMEMI_RESPONSE_SIZE, length);
    }
    return status;
}

int32_t nvmemi_vpd_write(nvmemi_ctx* ctx, const uint8_t* data, uint16_t offset, uint16_t length) {
    if (!is_usable(ctx, data != nullptr)) {
        return -1;
    }
    if (length > NVMEMI_VPD_WRITE_MAX) {
        debug_log("%s, %d bytes are too many for a VPD write\n", "nvmemi", length);
        return -1;
    }
    const size_t size = NVMEMI_REQUEST_SIZE + size_t{length};
    const auto request = allocate_bytes(size);
    if (request == nullptr) {
        std::puts("fail to allocate buffer");
        return -1;
    }
    nvme::encode({.opcode = kVpdWrite, .nmd0 = offset, .nmd1 = length}, {request.get(), size});
    std::memcpy(request.get() + NVMEMI_REQUEST_SIZE, data, length);
    ShortResponse response{};
    size_t arrived = 0;
    return exchange(ctx, {request.get(), size}, response, 0, "fail to write VPD", arrived);
}

int32_t nvmemi_reset(nvmemi_ctx* ctx) {
    return send(ctx, {.opcode = kReset}, "send reset command; no response as expected");
}
