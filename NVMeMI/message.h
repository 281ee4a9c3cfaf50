// SPDX-License-Identifier: Apache-2.0
// How NVMe-MI messages are built, exchanged and judged.
#ifndef SIDEBAND_NVMEMI_MESSAGE_H
#define SIDEBAND_NVMEMI_MESSAGE_H

#include <sideband/nvme_mi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband::nvme {

// Offsets in a message body.
inline constexpr size_t kTypeBits = 0;
inline constexpr size_t kStatus = 3;

inline constexpr size_t kNoResponse = SIZE_MAX;

/// Bytes of a message body in front of its integrity check, where it has one: the transport
/// delivers it as part of the body, if there is room for it.
/// @param result  bytes received, not believed beyond the room
size_t body_length(std::span<const uint8_t> room, int32_t result);

/// Sets the message type of the context and sends a request over it.
/// @return bytes of the response, at most its size and without integrity check; kNoResponse where
///         the exchange failed
size_t exchange(nvmemi_ctx* ctx, std::span<uint8_t> request, std::span<uint8_t> response);

/// Where an error is reported: admin commands use the console, management commands the output.
enum class Outlet { console, output };

/// Looks at the status, and reports one that is not success.
/// @return 0; the status; -1 where the response has none
int32_t judge_status(std::span<const uint8_t> response, Outlet outlet);

/// A management command: a request without data.
struct Command {
    uint8_t opcode;
    uint32_t nmd0 = 0;
    uint32_t nmd1 = 0;
};

/// Writes a management command in front of its data.
void encode(const Command& command, std::span<uint8_t> request);

/// A tunnelled admin command.
struct AdminCommand {
    uint8_t opcode;
    uint16_t cntlid = 0;
    uint32_t nsid = 0;
    uint32_t dofst = 0;
    uint32_t dlen = 0;
    uint32_t cdw9 = 0;  ///< of Marvell's passthrough alone: in a reserved place
    uint32_t cdw10 = 0;
    uint32_t cdw11 = 0;
    uint32_t cdw12 = 0;
    uint32_t cdw13 = 0;
    uint32_t cdw14 = 0;
    uint32_t cdw15 = 0;
};

/// Writes an admin command in front of its data.
void encode(const AdminCommand& command, std::span<uint8_t> request);

/// What has come of an admin command.
enum class Stage {
    no_response,  ///< nothing, or not all that a response consists of
    refused,      ///< a status other than success: by the endpoint
    failed,       ///< a status code other than success: by the controller
    done,
};

/// The response to an admin command.
struct AdminResponse {
    std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE + NVME_ADMIN_DATA_MAX> bytes{};
    size_t length = 0;
    Stage stage = Stage::no_response;
    uint32_t dword0 = 0;  ///< completion queue entry: valid when failed or done
    uint32_t dword3 = 0;

    std::span<const uint8_t> data() const {
        return std::span(bytes).first(length).subspan(NVME_ADMIN_RESPONSE_SIZE);
    }
};

/// Sends an admin command, its data behind it, and looks at the response.
/// @param data_capacity  room for data, at most NVME_ADMIN_DATA_MAX
/// @return 0; the status; completion dword 3; -1
int32_t tunnel(nvmemi_ctx* ctx, std::span<uint8_t> request, size_t data_capacity,
               AdminResponse& response);

/// Reports to the console what the endpoint or the controller refused.
void report(const AdminResponse& response);

/// As tunnel(), and reports it.
int32_t exchange(nvmemi_ctx* ctx, std::span<uint8_t> request, size_t data_capacity,
                 AdminResponse& response);

/// The operation that nvmemi_init() installs.
int32_t request_with_retries(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                             uint8_t* request, uint8_t* response);

}  // namespace sideband::nvme

#endif
