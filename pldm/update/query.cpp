// SPDX-License-Identifier: Apache-2.0
// What a firmware device is and what runs on it: the inventory commands (DSP0267).
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/memory.h"
#include "common/printable.h"
#include "pldm/update/message.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

using Bytes = std::span<const uint8_t>;

/// Sends an inventory command.
/// @param room  receives a buffer of PLDM_FW_UPDATE_RESPONSE_SIZE bytes with the response
/// @return the result of the exchange; -1 where there can be none
int32_t ask(pldm_fw_update_ctx* ctx, FwCommand command, const char* function,
            HeapPtr<uint8_t[]>& room) {
    if (!can_exchange(ctx)) {
        return -1;
    }
    room = allocate_bytes(PLDM_FW_UPDATE_RESPONSE_SIZE);
    if (room == nullptr) {
        return -1;
    }
    const int32_t result =
        exchange_fw_command(*ctx, command, {room.get(), PLDM_FW_UPDATE_RESPONSE_SIZE});
    if (result < 0) {
        std::printf("fail to call %s\n", function);
    }
    return result;
}

/// The part of a buffer that the device has filled.
Bytes received(const pldm_fw_update_ctx& ctx, Bytes response) {
    const auto length = static_cast<size_t>(std::max(ctx.pldm.response_length, 0));
    return response.first(std::min(length, response.size()));
}

/// Whether a descriptor is among those of a QueryDeviceIdentifiers response. One that is not whole
/// ends the list, whatever the count says.
bool device_has(const uint8_t* wanted, Bytes response) {
    constexpr size_t kDescriptorCount = 8;
    if (response.size() <= kDescriptorCount) {
        return false;
    }
    Bytes rest = response.subspan(kDescriptorCount + 1);
    for (unsigned left = response[kDescriptorCount]; left > 0; --left) {
        if (rest.size() < PLDM_DESCRIPTOR_HEADER_SIZE ||
            rest.size() < Descriptor(rest.data()).size()) {
            return false;
        }
        if (pldm_compare_descriptors(wanted, rest.data()) == 0) {
            return true;
        }
        rest = rest.subspan(Descriptor(rest.data()).size());
    }
    return false;
}

bool device_matches(const pldm_device_record& record, Bytes response) {
    const uint8_t* wanted = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        if (wanted == nullptr) {
            return false;  // left by a package that was refused
        }
        if (!device_has(wanted, response)) {
            print_line("-------------non match desc----------");
            plds_show_descriptot(wanted, nullptr, nullptr);
            return false;
        }
        wanted += Descriptor(wanted).size();
    }
    return true;
}

// ---- GetFirmwareParameters ----

/// GetFirmwareParameters response in front of its strings.
constexpr size_t kParametersSize = 14;
/// A component parameter table entry in front of its strings, and the two lengths in it.
constexpr size_t kEntrySize = 39;
constexpr size_t kEntryActiveLength = 10;
constexpr size_t kEntryPendingLength = 24;

/// A string to print: at most length bytes, and none behind the end of the buffer.
Printable shown(Bytes buffer, size_t position, size_t length) {
    return Printable(buffer.subspan(position, std::min(length, buffer.size() - position)));
}

/// An address to print; it may lie outside of the buffer, where no pointer may be made to point.
const void* address(Bytes buffer, size_t position) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(buffer.data()) + position);
}

/// Keeps a string in the place of an earlier one.
bool keep(char*& kept, Bytes string) {
    auto copy = allocate_bytes(string.size() + 1);
    if (copy == nullptr) {
        return false;
    }
    std::memcpy(copy.get(), string.data(), string.size());
    std::free(kept);
    kept = reinterpret_cast<char*>(copy.release());
    return true;
}

/// The numbers in front of the strings.
struct Parameters {
    uint8_t capabilities[4];
    uint16_t component_count;
    uint8_t active_type;
    uint8_t active_length;
    uint8_t pending_type;
    uint8_t pending_length;

    explicit Parameters(Bytes buffer) {
        WireReader reader(buffer);
        reader.skip(PLDM_RESPONSE_HEADER_SIZE);
        reader.copy(capabilities);
        component_count = reader.le16();
        active_type = reader.u8();
        active_length = reader.u8();
        pending_type = reader.u8();
        pending_length = reader.u8();
    }

    size_t pending_position() const { return kParametersSize + active_length; }
    size_t size() const { return pending_position() + pending_length; }
};

void print(const Parameters& parameters, Bytes buffer) {
    print_line("==========cap during update======");
    for (const uint8_t byte : parameters.capabilities) {
        std::printf(" %x", byte);
    }
    std::printf("component count: %d\n", parameters.component_count);
    std::printf("active component image string type: %d\n", parameters.active_type);
    std::printf("active component image string len: %d\n", parameters.active_length);
    std::printf("active component image string : %s\n",
                shown(buffer, kParametersSize, parameters.active_length).text());
    std::printf("pending component image string type: %d\n", parameters.pending_type);
    std::printf("pending component image string len: %d\n", parameters.pending_length);
    // By the length of the active string: readers of the consoles know the line like that.
    std::printf("pending component image string : %s\n",
                shown(buffer, parameters.pending_position(), parameters.active_length).text());
}

void print_entry(Bytes buffer, size_t position) {
    constexpr size_t kReleaseDateSize = 8;
    WireReader reader(buffer.subspan(position));
    print_line("=============CMD fw Parameter ================");
    std::printf("classification          0x%x\n", reader.le16());
    std::printf("identifier              0x%x\n", reader.le16());
    std::printf("class_index             0x %x\n", reader.u8());
    std::printf("active component stamp  0x%lx\n", static_cast<unsigned long>(reader.le32()));
    std::printf("active component type   0x%x\n", reader.u8());
    const uint8_t length = reader.u8();
    std::printf("active component len    %d\n", length);
    std::printf("active component        %s\n",
                shown(buffer, position + kEntrySize, length).text());
    reader.skip(kReleaseDateSize);
    std::printf("pending component stamp 0x%lx\n", static_cast<unsigned long>(reader.le32()));
    std::printf("pending component type  0x%x\n", reader.u8());
    std::printf("pending component len   %d\n", reader.u8());
}

/// Copies the component parameter table entry at a position and moves the position behind it.
bool keep_entry(Bytes buffer, size_t& position, uint8_t*& kept) {
    // The numbers are part of the texts that log readers match.
    const void* const buffer_end = address(buffer, buffer.size());
    if (buffer.size() - position < kEntrySize) {
        console_log(
            "[%s][%d] Buffer overfolow - buffer_end: %p and ptr + sizeof "
            "(pldm_component_parameter_table ): %d = %p\n",
            "pldm_parse_firmware_para", 249, buffer_end, static_cast<int>(kEntrySize),
            address(buffer, position + kEntrySize));
        return false;
    }
    print_entry(buffer, position);
    const size_t size =
        kEntrySize + buffer[position + kEntryActiveLength] + buffer[position + kEntryPendingLength];
    kept = allocate_bytes(size).release();
    if (kept == nullptr) {
        return false;
    }
    if (buffer.size() - position < size) {
        console_log("[%s][%d] Buffer overfolow - buffer_end: %p and ptr + len: %d = %p\n",
                    "pldm_parse_firmware_para", 270, buffer_end, static_cast<int>(size),
                    address(buffer, position + size));
        return false;
    }
    std::memcpy(kept, buffer.data() + position, size);
    position += size;
    return true;
}

int32_t keep_entries(pldm_fw_update_ctx& ctx, Bytes buffer, size_t position, uint16_t count) {
    // Whatever an earlier answer left: its entries may be fewer and shorter.
    release_device_parameters(ctx);
    if (count == 0) {
        return 0;
    }
    ctx.fd_component_params = static_cast<uint8_t**>(std::calloc(count, sizeof(uint8_t*)));
    if (ctx.fd_component_params == nullptr) {
        return -1;
    }
    ctx.fd_components_num = count;
    for (unsigned i = 0; i < count; ++i) {
        if (!keep_entry(buffer, position, ctx.fd_component_params[i])) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

int32_t pldm_query_device_identifiers(pldm_fw_update_ctx* ctx, const pldm_device_record* record) {
    if (record == nullptr) {
        return -1;
    }
    HeapPtr<uint8_t[]> room;
    const int32_t result = ask(ctx, kQueryDeviceIdentifiers, "pldm_query_device_identifiers", room);
    if (result < 0) {
        return result;
    }
    const Bytes response(room.get(), PLDM_FW_UPDATE_RESPONSE_SIZE);
    return device_matches(*record, received(*ctx, response)) ? result : -1;
}

int32_t pldm_get_firmware_parameters(pldm_fw_update_ctx* ctx) {
    HeapPtr<uint8_t[]> room;
    const int32_t result = ask(ctx, kGetFirmwareParameters, "pldm_get_firmware_parameters", room);
    if (result < 0) {
        return result;
    }
    const Bytes response(room.get(), PLDM_FW_UPDATE_RESPONSE_SIZE);
    if (response[kPldmCommand] != kGetFirmwareParameters) {
        debug_log("call get firmware parameter, reqCode[%d] respCode[%d]\n", kGetFirmwareParameters,
                  response[kPldmCommand]);
        return -1;
    }
    if (!pldm_response_has(ctx->pldm, kParametersSize) ||
        !pldm_response_has(ctx->pldm, Parameters(response).size())) {
        return too_short(ctx->pldm, "pldm_get_firmware_parameters");
    }
    // A table that does not end inside the response is no reason to give the device up: the
    // components in front of the end are known.
    pldm_parse_firmware_para(ctx, response.data(), PLDM_FW_UPDATE_RESPONSE_SIZE);
    return result;
}

int32_t pldm_parse_firmware_para(pldm_fw_update_ctx* ctx, const uint8_t* response, int32_t length) {
    if (ctx == nullptr || response == nullptr || length < 0) {
        return -1;
    }
    const Bytes buffer(response, static_cast<size_t>(length));
    if (buffer.size() < kParametersSize || buffer.size() < Parameters(buffer).size()) {
        debug_log("%s, response of %d bytes is too short\n", "pldm_parse_firmware_para", length);
        return -1;
    }
    const Parameters parameters(buffer);
    print(parameters, buffer);
    if (!keep(ctx->active_version_string,
              buffer.subspan(kParametersSize, parameters.active_length)) ||
        !keep(ctx->pending_version_string,
              buffer.subspan(parameters.pending_position(), parameters.pending_length))) {
        return -1;
    }
    return keep_entries(*ctx, buffer, parameters.size(), parameters.component_count);
}
