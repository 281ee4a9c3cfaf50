// SPDX-License-Identifier: Apache-2.0
// What a firmware device is and what runs on it: the inventory commands (DSP0267).
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstring>

#include "common/memory.h"
#include "common/output.h"
#include "common/printable.h"
#include "pldm/update/message.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

using Bytes = std::span<const uint8_t>;

/// Sends an inventory command.
/// @param room  receives a buffer of PLDM_FW_UPDATE_RESPONSE_SIZE bytes with the response
PldmAnswer exchange_inventory(pldm_fw_update_ctx* ctx, FwCommand command, const char* function,
                              HeapPtr<uint8_t[]>& room) {
    if (!begin(ctx)) {
        return {};
    }
    room = allocate_bytes(PLDM_FW_UPDATE_RESPONSE_SIZE);
    if (room == nullptr) {
        fail_command(ctx->pldm, SIDEBAND_CAUSE_MEMORY);
        return {};
    }
    PldmRequest request(PLDM_TYPE_FW_UPDATE, command);
    const PldmAnswer answer =
        exchange(ctx->pldm, request, {room.get(), PLDM_FW_UPDATE_RESPONSE_SIZE});
    if (answer.result < 0) {
        print_formatted("fail to call %s\n", function);
    }
    return answer;
}

// ---- QueryDeviceIdentifiers ----

/// Whether a descriptor is among those of a device. One that is not whole ends the list, whatever
/// the count says.
/// @param body  of the response
bool device_has(const Descriptor& wanted, WireReader body) {
    body.skip(4);  // bytes of all descriptors
    for (unsigned left = body.u8(); left > 0; --left) {
        const Descriptor found(body);
        if (!body.ok()) {
            return false;
        }
        if (compare(wanted, found) == 0) {
            return true;
        }
    }
    return false;
}

/// @param body  of the response
bool device_matches(const pldm_device_record& record, const WireReader& body) {
    const uint8_t* descriptors = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        if (descriptors == nullptr) {
            return false;  // left by a package that was refused
        }
        const Descriptor wanted(descriptors);
        if (!device_has(wanted, body)) {
            print_line("-------------non match desc----------");
            plds_show_descriptot(descriptors, nullptr, nullptr);
            return false;
        }
        descriptors += wanted.size();
    }
    return true;
}

// ---- GetFirmwareParameters ----

/// The string to print that begins here: at most length bytes, and none behind the end.
Printable shown(Bytes from, size_t length) {
    return Printable(from.first(std::min(length, from.size())));
}

/// An address to print; it may lie outside of the buffer, where no pointer may be made to point.
const void* address(const uint8_t* from, size_t distance) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(from) + distance);
}

/// Leaves in the context that what the device has told is not kept whole. @return false
bool run_out_of_memory(pldm_fw_update_ctx& ctx) {
    ctx.pldm.last_error =
        error_of(SIDEBAND_CAUSE_MEMORY, SIDEBAND_STEP_PLDM, kGetFirmwareParameters);
    return false;
}

/// Keeps a string in the place of an earlier one.
bool keep(pldm_fw_update_ctx& ctx, char*& kept, Bytes string) {
    auto copy = copy_bytes(string, 1);
    if (copy == nullptr) {
        return run_out_of_memory(ctx);
    }
    std::free(kept);
    kept = reinterpret_cast<char*>(copy.release());
    return true;
}

/// The response in front of the component parameter table.
struct Parameters {
    uint8_t capabilities[4];
    uint16_t component_count;
    uint8_t active_type;
    uint8_t active_length;
    uint8_t pending_type;
    uint8_t pending_length;
    Bytes active;
    Bytes behind_active;
    Bytes pending;

    /// @param body  of the response; stands in front of the table afterwards, or is not ok()
    explicit Parameters(WireReader& body) {
        body.copy(capabilities);
        component_count = body.le16();
        active_type = body.u8();
        active_length = body.u8();
        pending_type = body.u8();
        pending_length = body.u8();
        active = body.bytes(active_length);
        behind_active = body.rest();
        pending = body.bytes(pending_length);
    }
};

void print(const Parameters& parameters) {
    print_line("==========cap during update======");
    for (const uint8_t byte : parameters.capabilities) {
        print_formatted(" %x", byte);
    }
    print_formatted("component count: %d\n", parameters.component_count);
    print_formatted("active component image string type: %d\n", parameters.active_type);
    print_formatted("active component image string len: %d\n", parameters.active_length);
    print_formatted("active component image string : %s\n", Printable(parameters.active).text());
    print_formatted("pending component image string type: %d\n", parameters.pending_type);
    print_formatted("pending component image string len: %d\n", parameters.pending_length);
    // By the length of the active string: readers of the consoles know the line like that.
    print_formatted("pending component image string : %s\n",
                    shown(parameters.behind_active, parameters.active_length).text());
}

/// A component parameter table entry in front of its strings.
constexpr size_t kEntrySize = 39;

/// Prints the first entry of a table; its strings may not all be there.
/// @return bytes of the entry
size_t print_entry(Bytes table) {
    constexpr size_t kReleaseDateSize = 8;
    WireReader reader(table);
    print_line("=============CMD fw Parameter ================");
    print_formatted("classification          0x%x\n", reader.le16());
    print_formatted("identifier              0x%x\n", reader.le16());
    print_formatted("class_index             0x %x\n", reader.u8());
    print_formatted("active component stamp  0x%lx\n", static_cast<unsigned long>(reader.le32()));
    print_formatted("active component type   0x%x\n", reader.u8());
    const uint8_t active_length = reader.u8();
    print_formatted("active component len    %d\n", active_length);
    print_formatted("active component        %s\n",
                    shown(table.subspan(kEntrySize), active_length).text());
    reader.skip(kReleaseDateSize);
    print_formatted("pending component stamp 0x%lx\n", static_cast<unsigned long>(reader.le32()));
    print_formatted("pending component type  0x%x\n", reader.u8());
    const uint8_t pending_length = reader.u8();
    print_formatted("pending component len   %d\n", pending_length);
    return kEntrySize + active_length + pending_length;
}

/// Copies the entry at which the reader stands, and moves on behind it.
bool keep_entry(pldm_fw_update_ctx& ctx, WireReader& table, uint8_t*& kept) {
    // The numbers are part of the texts that log readers match.
    const Bytes rest = table.rest();
    const void* const buffer_end = address(rest.data(), rest.size());
    if (rest.size() < kEntrySize) {
        print_on_console(
            "[%s][%d] Buffer overfolow - buffer_end: %p and ptr + sizeof "
            "(pldm_component_parameter_table ): %d = %p\n",
            "pldm_parse_firmware_para", 249, buffer_end, static_cast<int>(kEntrySize),
            address(rest.data(), kEntrySize));
        return false;
    }
    const size_t size = print_entry(rest);
    kept = allocate_bytes(size).release();
    if (kept == nullptr) {
        return run_out_of_memory(ctx);
    }
    const Bytes entry = table.bytes(size);
    if (!table.ok()) {
        print_on_console("[%s][%d] Buffer overfolow - buffer_end: %p and ptr + len: %d = %p\n",
                         "pldm_parse_firmware_para", 270, buffer_end, static_cast<int>(size),
                         address(rest.data(), size));
        return false;
    }
    std::memcpy(kept, entry.data(), size);
    return true;
}

int32_t keep_entries(pldm_fw_update_ctx& ctx, WireReader& table, uint16_t count) {
    // Whatever an earlier answer left: its entries may be fewer and shorter.
    release_device_parameters(ctx);
    if (count == 0) {
        return 0;
    }
    ctx.fd_component_params = static_cast<uint8_t**>(std::calloc(count, sizeof(uint8_t*)));
    if (ctx.fd_component_params == nullptr) {
        run_out_of_memory(ctx);
        return -1;
    }
    ctx.fd_components_num = count;
    for (unsigned i = 0; i < count; ++i) {
        if (!keep_entry(ctx, table, ctx.fd_component_params[i])) {
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
    const PldmAnswer answer =
        exchange_inventory(ctx, kQueryDeviceIdentifiers, "pldm_query_device_identifiers", room);
    return answer.result < 0 || device_matches(*record, answer.body)
               ? answer.result
               : fail_command(ctx->pldm, SIDEBAND_CAUSE_FILE);
}

int32_t pldm_get_firmware_parameters(pldm_fw_update_ctx* ctx) {
    constexpr const char* kFunction = "pldm_get_firmware_parameters";
    HeapPtr<uint8_t[]> room;
    PldmAnswer answer = exchange_inventory(ctx, kGetFirmwareParameters, kFunction, room);
    if (answer.result < 0) {
        return answer.result;
    }
    if (answer.header.command != kGetFirmwareParameters) {
        debug_log("call get firmware parameter, reqCode[%d] respCode[%d]\n", kGetFirmwareParameters,
                  answer.header.command);
        return fail_command(ctx->pldm, SIDEBAND_CAUSE_MALFORMED);
    }
    [[maybe_unused]] const Parameters parameters(answer.body);
    if (finish(answer, kFunction) < 0) {
        return -1;
    }
    // A table that does not end inside the response is no reason to give the device up: the
    // components in front of the end are known.
    pldm_parse_firmware_para(ctx, room.get(), PLDM_FW_UPDATE_RESPONSE_SIZE);
    return answer.result;
}

int32_t pldm_parse_firmware_para(pldm_fw_update_ctx* ctx, const uint8_t* response, int32_t length) {
    if (ctx == nullptr || response == nullptr || length < 0) {
        return -1;
    }
    WireReader reader({response, static_cast<size_t>(length)});
    reader.skip(PLDM_RESPONSE_HEADER_SIZE);
    const Parameters parameters(reader);
    if (!reader.ok()) {
        debug_log("%s, response of %d bytes is too short\n", "pldm_parse_firmware_para", length);
        return -1;
    }
    print(parameters);
    if (!keep(*ctx, ctx->active_version_string, parameters.active) ||
        !keep(*ctx, ctx->pending_version_string, parameters.pending)) {
        return -1;
    }
    return keep_entries(*ctx, reader, parameters.component_count);
}
