// SPDX-License-Identifier: Apache-2.0
// Management commands (NVMe-MI, Management Interface Command Set).
#include <sideband/debug_log.h>
#include <sideband/nvme_mi.h>

#include <array>
#include <cstring>

#include "NVMeMI/message.h"
#include "common/memory.h"
#include "common/output.h"

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
constexpr size_t kManagementResponseSize = 3;
constexpr char kConfigurationFailure[] = "fail to get NVMe-MI config";

using ShortResponse = std::array<uint8_t, NVMEMI_RESPONSE_SIZE>;

/// Whether there is a context, and what else a command needs.
bool is_usable(nvmemi_ctx* ctx, bool has_arguments = true) {
    if (ctx == nullptr) {
        print_line("nvmemi ctx is null");
        return false;
    }
    if (!has_arguments) {
        nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    return has_arguments;
}

/// A command without data of whose response nothing but the status is wanted.
int32_t plain_command(nvmemi_ctx* ctx, const nvme::Command& command, const char* failure) {
    if (!is_usable(ctx)) {
        return -1;
    }
    ShortResponse room{};
    return finish(nvme::exchange(ctx, command, room), failure);
}

/// Dword 0 of the configuration commands.
uint32_t configuration(uint8_t identifier, uint8_t port = 0, uint8_t frequency = 0) {
    constexpr unsigned kFrequencyShift = 8;
    constexpr unsigned kPortShift = 24;
    return uint32_t{port} << kPortShift | uint32_t{frequency} << kFrequencyShift | identifier;
}

/// Configuration Get of a setting of a port, which is the beginning of the management response.
nvme::Answer get_setting(nvmemi_ctx* ctx, uint8_t identifier, uint8_t port, ShortResponse& room) {
    return nvme::exchange(
        ctx, {.opcode = kConfigurationGet, .nmd0 = configuration(identifier, port)}, room);
}

/// Whether a data structure has a size that its type allows. Says so if not.
bool is_structure(uint8_t type, uint16_t length) {
    constexpr int kFixedSize = 32;
    if (type > NVMEMI_DTYP_OPTIONAL_COMMANDS) {
        print_formatted("unsupported DTYP (%x)\n", type);
        return false;
    }
    const bool is_list =
        type == NVMEMI_DTYP_CONTROLLER_LIST || type == NVMEMI_DTYP_OPTIONAL_COMMANDS;
    if (!is_list && length != kFixedSize) {
        print_formatted("ds size missmatch (%d:%d)\n", length, kFixedSize);
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
    nvme::Area area;
    nvme::Answer answer =
        nvme::exchange(ctx, {.opcode = kReadDataStructure, .nmd0 = *nmd0}, {area, area.size()});
    const uint16_t size = answer.body.le16();
    answer.body.skip(1);
    const int32_t status = finish(answer, "fail to send nvmemi data structure command");
    if (status != 0) {
        return status;
    }
    if (!is_structure(static_cast<uint8_t>(*nmd0 >> kTypeShift), size)) {
        return nvme::fail_answer(answer);
    }
    if (size > answer.body.remaining() || size > capacity) {
        debug_log("%s, data structure of %d bytes: %zu came, room for %u\n", "nvmemi", size,
                  answer.body.remaining(), capacity);
        return nvme::fail_answer(answer);
    }
    answer.body.copy({data, size});
    *length = size;
    return 0;
}

int32_t nvmemi_nvm_subsystem_health_status_poll(nvmemi_ctx* ctx, const uint32_t* nmd1,
                                                nvme_subsystem_health* out) {
    if (!is_usable(ctx, nmd1 != nullptr && out != nullptr)) {
        return -1;
    }
    std::array<uint8_t, NVMEMI_RESPONSE_SIZE + sizeof(nvme_subsystem_health)> room{};
    nvme::Answer answer =
        nvme::exchange(ctx, {.opcode = kSubsystemHealthPoll, .nmd1 = *nmd1}, room);
    WireReader& body = answer.body;
    body.skip(kManagementResponseSize);
    // In this order: members of a braced list are evaluated as they stand.
    const nvme_subsystem_health health{body.u8(), body.u8(),   body.u8(),
                                       body.u8(), body.le16(), body.le16()};
    const int32_t status = finish(answer, "fail to poll NVM subsystem health");
    if (status == 0) {
        *out = health;
    }
    return status;
}

int32_t nvmemi_controller_health_status_poll(
    nvmemi_ctx* ctx, const uint32_t* nmd0, const uint32_t* nmd1, uint8_t* count,
    nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX]) {
    constexpr size_t kEntrySize = 16;
    constexpr size_t kEntryReserved = 7;
    if (!is_usable(ctx,
                   nmd0 != nullptr && nmd1 != nullptr && count != nullptr && entries != nullptr)) {
        return -1;
    }
    std::array<uint8_t, NVMEMI_RESPONSE_SIZE + NVMEMI_CONTROLLERS_MAX * kEntrySize> room{};
    nvme::Answer answer =
        nvme::exchange(ctx, {.opcode = kControllerHealthPoll, .nmd0 = *nmd0, .nmd1 = *nmd1}, room);
    WireReader& body = answer.body;
    body.skip(2);
    const uint8_t reported = body.u8();
    const int32_t status = finish(answer, "fail to poll controller health");
    if (status != 0) {
        return status;
    }
    if (reported > NVMEMI_CONTROLLERS_MAX) {
        print_formatted("Response entries (%d) should not greater than MAX_NVME_CONTROLLER=%d.\n",
                        reported, NVMEMI_CONTROLLERS_MAX);
        return nvme::fail_answer(answer);
    }
    if (body.remaining() < reported * kEntrySize) {
        debug_log("%s, %zu bytes do not hold %d controllers\n", "nvmemi", answer.message.size(),
                  reported);
        return nvme::fail_answer(answer);
    }
    for (nvme_controller_health& entry : std::span(entries, reported)) {
        entry = {body.le16(), body.le16(), body.le16(), body.u8(), body.u8(), body.u8()};
        body.skip(kEntryReserved);
    }
    *count = reported;
    return 0;
}

int32_t nvmemi_config_set_smbus_freq(nvmemi_ctx* ctx, uint8_t port, uint8_t frequency) {
    if (!is_usable(ctx)) {
        return -1;
    }
    if (frequency < NVMEMI_SMBUS_100_KHZ || frequency > NVMEMI_SMBUS_1_MHZ) {
        print_formatted("invalid freq (%x)\n", frequency);
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    return plain_command(
        ctx, {.opcode = kConfigurationSet, .nmd0 = configuration(kSmbusFrequency, port, frequency)},
        kConfigurationFailure);
}

int32_t nvmemi_config_set_health_status_change(nvmemi_ctx* ctx, const uint32_t* changes) {
    if (!is_usable(ctx, changes != nullptr)) {
        return -1;
    }
    return plain_command(
        ctx,
        {.opcode = kConfigurationSet, .nmd0 = configuration(kHealthStatusChange), .nmd1 = *changes},
        kConfigurationFailure);
}

int32_t nvmemi_config_set_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port, uint16_t size) {
    return plain_command(ctx,
                         {.opcode = kConfigurationSet,
                          .nmd0 = configuration(kTransmissionUnitSize, port),
                          .nmd1 = size},
                         kConfigurationFailure);
}

int32_t nvmemi_config_get_smbus_freq(nvmemi_ctx* ctx, uint8_t port, uint8_t* frequency) {
    if (!is_usable(ctx, frequency != nullptr)) {
        return -1;
    }
    ShortResponse room{};
    nvme::Answer answer = get_setting(ctx, kSmbusFrequency, port, room);
    const uint8_t value = answer.body.u8();
    const int32_t status = finish(answer, kConfigurationFailure);
    if (status == 0) {
        *frequency = value & kFrequencyMask;
    }
    return status;
}

int32_t nvmemi_config_get_health_status_change(nvmemi_ctx* ctx) {
    return plain_command(ctx,
                         {.opcode = kConfigurationGet, .nmd0 = configuration(kHealthStatusChange)},
                         kConfigurationFailure);
}

int32_t nvmemi_config_get_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port, uint16_t* size) {
    if (!is_usable(ctx, size != nullptr)) {
        return -1;
    }
    ShortResponse room{};
    nvme::Answer answer = get_setting(ctx, kTransmissionUnitSize, port, room);
    const uint16_t value = answer.body.le16();
    const int32_t status = finish(answer, kConfigurationFailure);
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
    const auto room = allocate_bytes(size);
    if (room == nullptr) {
        print_line("fail to allocate buffer");
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_MEMORY);
    }
    nvme::Answer answer = nvme::exchange(ctx, {.opcode = kVpdRead, .nmd0 = offset, .nmd1 = length},
                                         std::span(room.get(), size));
    answer.body.skip(kManagementResponseSize);
    const auto vpd = answer.body.bytes(length);
    const int32_t status = finish(answer, "fail to read VPD");
    if (status == 0) {
        std::memcpy(data, vpd.data(), length);
    }
    return status;
}

int32_t nvmemi_vpd_write(nvmemi_ctx* ctx, const uint8_t* data, uint16_t offset, uint16_t length) {
    if (!is_usable(ctx, data != nullptr)) {
        return -1;
    }
    if (length > NVMEMI_VPD_WRITE_MAX) {
        debug_log("%s, %d bytes are too many for a VPD write\n", "nvmemi", length);
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    const size_t size = NVMEMI_REQUEST_SIZE + size_t{length};
    const auto request = allocate_bytes(size);
    if (request == nullptr) {
        print_line("fail to allocate buffer");
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_MEMORY);
    }
    std::memcpy(request.get() + NVMEMI_REQUEST_SIZE, data, length);
    ShortResponse room{};
    const nvme::Command command{.opcode = kVpdWrite, .nmd0 = offset, .nmd1 = length};
    return finish(nvme::exchange(ctx, nvme::encode(command, {request.get(), size}), room),
                  "fail to write VPD");
}

int32_t nvmemi_reset(nvmemi_ctx* ctx) {
    return plain_command(ctx, {.opcode = kReset}, "send reset command; no response as expected");
}
