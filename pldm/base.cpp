// SPDX-License-Identifier: Apache-2.0
// The PLDM discovery commands, in the order of their codes (DSP0240, clause 9).
#include <sideband/debug_log.h>
#include <sideband/pldm.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "common/memory.h"
#include "common/wire.h"
#include "pldm/message.h"

using namespace sideband;

namespace {

enum Command : uint8_t {
    kGetTid = 0x02,
    kGetPldmVersion = 0x03,
    kGetPldmTypes = 0x04,
    kGetPldmCommands = 0x05,
};

/// A request that is nothing but a header, and its answer; the answer's command must match.
/// @param function  the exported function, for its messages
/// @param call      its name in the mismatch message
int32_t query(pldm_ctx* ctx, Command command, std::span<uint8_t> response, const char* function,
              const char* call) {
    if (ctx == nullptr) {
        std::printf("[%s] Null ptr error.\n", function);
        return -1;
    }
    if (ctx->transfer_op == nullptr) {
        return -1;
    }
    std::array<uint8_t, PLDM_HEADER_SIZE> request;
    pldm_request_init(request.data());
    request[kPldmCommand] = command;
    const int32_t result = pldm_exchange(*ctx, request, response);
    if (result < 0) {
        debug_log("[%s] PLDM tx failed (%d)\n", function, result);
        return result;
    }
    if (response[kPldmCommand] != command) {
        debug_log("call %s, reqCode[%d] respCode[%d]\n", call, command, response[kPldmCommand]);
        return -1;
    }
    if (response[kPldmCompletionCode] == PLDM_CC_SUCCESS &&
        !pldm_response_has(*ctx, response.size())) {
        return too_short(*ctx, function);
    }
    return 0;
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
            std::printf("%u: %s\n", type, type_name(type));
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
    constexpr size_t kVersionEnd = 13;  // the CRC-32 behind it is not needed
    std::array<uint8_t, 9> request;
    pldm_request_init(request.data());
    request[kPldmCommand] = kGetPldmVersion;
    WireWriter(request).skip(PLDM_HEADER_SIZE).le32(handle).u8(operation).u8(type);
    std::memset(room.data(), 0, room.size());
    const int32_t result = pldm_exchange(ctx, request, room.first(kResponseSize));
    if (result < 0) {
        return result;
    }
    if (!pldm_response_has(ctx, kVersionEnd)) {
        return too_short(ctx, "pldm_get_version");
    }
    WireReader reader(room);
    reader.skip(PLDM_RESPONSE_HEADER_SIZE);
    part.next_handle = reader.le32();
    part.transfer_flag = reader.u8();
    part.version = reader.le32();
    return 0;
}

}  // namespace

int32_t pldm_get_tid(pldm_ctx* ctx) {
    std::array<uint8_t, 5> response{};
    const int32_t result = query(ctx, kGetTid, response, "pldm_get_tid", "get tid");
    if (result < 0) {
        return result;
    }
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return response[kPldmCompletionCode];
    }
    ctx->tid = response[PLDM_RESPONSE_HEADER_SIZE];
    std::printf("get tid: %d\n", ctx->tid);
    return 0;
}

int32_t pldm_get_version(pldm_ctx* ctx, uint8_t type) {
    constexpr size_t kRoom = 25;
    constexpr int kPassesMax = 7;
    if (ctx == nullptr || ctx->transfer_op == nullptr) {
        return -1;
    }
    const auto room = allocate_bytes(kRoom);
    if (room == nullptr) {
        return -1;
    }
    std::printf("verion len : %d\n", 17);
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
    std::printf("Get Version Timeout\n");
    return -1;
}

int32_t pldm_get_type(pldm_ctx* ctx) {
    std::array<uint8_t, 12> response{};
    const int32_t result = query(ctx, kGetPldmTypes, response, "pldm_get_type", "get type");
    if (result < 0) {
        return result;
    }
    const uint8_t first = response[PLDM_RESPONSE_HEADER_SIZE];
    debug_log("%s, PLDM type support list: 0x%x\n", "pldm_get_type", first);
    print_types(first);
    if (response[kPldmCompletionCode] != PLDM_CC_SUCCESS) {
        return response[kPldmCompletionCode];
    }
    std::memcpy(ctx->pldm_types, response.data() + PLDM_RESPONSE_HEADER_SIZE,
                sizeof ctx->pldm_types);
    return 0;
}

int32_t pldm_get_commands(pldm_ctx* ctx) {
    if (ctx == nullptr || ctx->transfer_op == nullptr) {
        return -1;
    }
    std::array<uint8_t, 8> request{};  // PLDM type 0 at version 0
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE + sizeof ctx->base_commands> response{};
    pldm_request_init(request.data());
    request[kPldmCommand] = kGetPldmCommands;
    std::printf("verion len : %d\n", static_cast<int>(response.size()));
    const int32_t result = pldm_exchange(*ctx, request, response);
    if (result < 0) {
        return result;
    }
    if (!pldm_response_has(*ctx, response.size())) {
        return too_short(*ctx, "pldm_get_commands");
    }
    std::memcpy(ctx->base_commands, response.data() + PLDM_RESPONSE_HEADER_SIZE,
                sizeof ctx->base_commands);
    return 0;
}

int32_t pldm_discovery(pldm_ctx* ctx) {
    if (ctx == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    const int32_t result = pldm_get_tid(ctx);
    return result != 0 ? result : pldm_get_type(ctx);
}
