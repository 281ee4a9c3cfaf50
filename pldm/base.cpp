// SPDX-License-Identifier: Apache-2.0
// The PLDM discovery commands, in the order of their codes (DSP0240, clause 9).
#include <sideband/debug_log.h>
#include <sideband/pldm.h>

#include <array>
#include <cstring>

#include "common/memory.h"
#include "common/output.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "pldm/strict.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetTid = 0x02,
    kGetPldmVersion = 0x03,
    kGetPldmTypes = 0x04,
    kGetPldmCommands = 0x05,
};

/// Sends a request that is nothing but a header. The answer's command must match.
/// @param function  the exported function, for its messages
/// @param call      its name in the mismatch message
PldmAnswer exchange_header(pldm_ctx* ctx, Command command, std::span<uint8_t> room,
                           const char* function, const char* call) {
    if (ctx == nullptr) {
        print_formatted("[%s] Null ptr error.\n", function);
    }
    if (!begin(ctx)) {
        return {};
    }
    PldmRequest request(PLDM_TYPE_BASE, command);
    PldmAnswer answer = exchange(*ctx, request, room);
    if (answer.result < 0) {
        debug_log("[%s] PLDM tx failed (%d)\n", function, answer.result);
    } else if (answer.header.command != command) {
        debug_log("call %s, reqCode[%d] respCode[%d]\n", call, command, answer.header.command);
        fail_command(*ctx, SIDEBAND_CAUSE_MALFORMED);
        answer.result = -1;
    }
    return answer;
}

const char* type_name(unsigned type) {
    // Misspelt on the consoles of deployed firmware, and matched there.
    static constexpr const char* kNames[] = {
        "PLDM control disvoery",           "PLDM SMBIOS",   "PLDM monitoring",
        "PLDM BIOS control configuration", "PLDM FRU data", "PLDM firmware update",
    };
    return type < std::size(kNames) ? kNames[type] : "Unknow PLDM type";
}

void print_types(uint8_t types) {
    for (unsigned type = 0; type < 8; ++type) {
        if ((types >> type & 1u) != 0) {
            print_formatted("%u: %s\n", type, type_name(type));
        }
    }
}

struct VersionPart {
    uint32_t next_handle;
    uint8_t transfer_flag;
    uint32_t version;
};

/// One pass of GetPLDMVersion.
/// @param room  25 bytes, of which the response takes 17
/// @return 0 or a negative result
int32_t get_version_part(pldm_ctx& ctx, uint8_t type, uint32_t handle, uint8_t operation,
                         std::span<uint8_t> room, VersionPart& part) {
    constexpr size_t kResponseSize = 17;
    PldmRequest request(PLDM_TYPE_BASE, kGetPldmVersion);
    request.fields.le32(handle).u8(operation).u8(type);
    std::memset(room.data(), 0, room.size());
    PldmAnswer answer = exchange(ctx, request, room.first(kResponseSize));
    part.next_handle = answer.body.le32();
    part.transfer_flag = answer.body.u8();
    part.version = answer.body.le32();  // the CRC-32 behind it is not needed
    return finish(answer, "pldm_get_version");
}

}  // namespace

int32_t pldm_get_tid(pldm_ctx* ctx) {
    constexpr const char* kFunction = "pldm_get_tid";
    std::array<uint8_t, 5> room{};
    PldmAnswer answer = exchange_header(ctx, kGetTid, room, kFunction, "get tid");
    if (answer.result >= 0 && answer.header.completion != PLDM_CC_SUCCESS) {
        return answer.header.completion;
    }
    const uint8_t tid = answer.body.u8();
    const int32_t result = finish(answer, kFunction);
    if (result < 0) {
        return result;
    }
    ctx->tid = tid;
    print_formatted("get tid: %d\n", ctx->tid);
    return 0;
}

int32_t pldm_get_version(pldm_ctx* ctx, uint8_t type) {
    constexpr size_t kRoom = 25;
    constexpr int kPassesMax = 7;
    if (!begin(ctx)) {
        return -1;
    }
    const auto room = allocate_bytes(kRoom);
    if (room == nullptr) {
        ctx->last_error = error_of(SIDEBAND_CAUSE_MEMORY);
        return -1;
    }
    print_formatted("verion len : %d\n", 17);
    uint32_t handle = 0;
    uint8_t operation = kGetFirstPart;
    for (int pass = 0; pass < kPassesMax; ++pass) {
        VersionPart part{};
        const int32_t result =
            get_version_part(*ctx, type, handle, operation, {room.get(), kRoom}, part);
        if (result < 0) {
            return result;
        }
        ctx->pldm_version = part.version;
        if (is_last_part(part.transfer_flag)) {
            return 0;
        }
        handle = part.next_handle;
        operation = kGetNextPart;
    }
    fail_command(*ctx, SIDEBAND_CAUSE_MALFORMED);
    print_formatted("Get Version Timeout\n");
    return -1;
}

int32_t pldm_get_type(pldm_ctx* ctx) {
    constexpr const char* kFunction = "pldm_get_type";
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE + sizeof ctx->pldm_types> room{};
    PldmAnswer answer = exchange_header(ctx, kGetPldmTypes, room, kFunction, "get type");
    std::array<uint8_t, sizeof ctx->pldm_types> types;
    for (uint8_t& eight : types) {
        eight = answer.body.u8();
    }
    const uint8_t completion = answer.header.completion;
    // An answer that is no success may end earlier; its types are shown nevertheless.
    const int32_t result =
        completion == PLDM_CC_SUCCESS ? finish(answer, kFunction) : answer.result;
    if (result < 0) {
        return result;
    }
    debug_log("%s, PLDM type support list: 0x%x\n", kFunction, types[0]);
    print_types(types[0]);
    if (completion != PLDM_CC_SUCCESS) {
        return completion;
    }
    std::memcpy(ctx->pldm_types, types.data(), types.size());
    return 0;
}

int32_t pldm_get_commands(pldm_ctx* ctx) {
    if (!begin(ctx)) {
        return -1;
    }
    uint32_t version = 0;  // any, which the standard does not know
    if (is_strict(*ctx)) {
        const int32_t result = pldm_get_version(ctx, PLDM_TYPE_BASE);
        if (result != 0) {
            return result;
        }
        version = ctx->pldm_version;
    }
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE + sizeof ctx->base_commands> room{};
    print_formatted("verion len : %d\n", static_cast<int>(room.size()));
    PldmRequest request(PLDM_TYPE_BASE, kGetPldmCommands);
    request.fields.u8(PLDM_TYPE_BASE).le32(version);
    PldmAnswer answer = exchange(*ctx, request, room);
    const std::span<const uint8_t> commands = answer.body.bytes(sizeof ctx->base_commands);
    const int32_t result = finish(answer, "pldm_get_commands");
    if (result == 0) {
        std::memcpy(ctx->base_commands, commands.data(), sizeof ctx->base_commands);
    }
    return result;
}

int32_t pldm_discovery(pldm_ctx* ctx) {
    if (ctx == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    const int32_t result = pldm_get_tid(ctx);
    return result != 0 ? result : pldm_get_type(ctx);
}
