// SPDX-License-Identifier: Apache-2.0
// How NVMe-MI messages are built, exchanged and judged.
#ifndef SIDEBAND_NVMEMI_MESSAGE_H
#define SIDEBAND_NVMEMI_MESSAGE_H

#include <sideband/nvme_mi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/error.h"
#include "common/wire.h"

namespace sideband::nvme {

// Offsets in a message body.
inline constexpr size_t kStatus = 3;

/// Bytes of a message body in front of its integrity check, if it has one: the transport
/// delivers it as part of the body, if there is room for it. With MCTP_STRICT_INTEGRITY it keeps
/// it, and what looks like one is data.
/// @param result  bytes received, not believed beyond the room
size_t body_length(const mctp_ctx& mctp, std::span<const uint8_t> room, int32_t result);

/// Whether a message can be the response to a request, by the first byte of both. All can without
/// MCTP_STRICT_NVME_MI.
bool is_response(const mctp_ctx& mctp, std::span<const uint8_t> request,
                 std::span<const uint8_t> message);

/// A management command: a request without data.
struct Command {
    uint8_t opcode;
    uint32_t nmd0 = 0;
    uint32_t nmd1 = 0;
};

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

/// Room for any response.
using Area = std::array<uint8_t, NVMEMI_RESPONSE_MAX>;

/// Where a response goes. What does not come of it stays as it was.
struct Room {
    Room(std::span<uint8_t> all) : bytes(all) {}
    template <size_t size>
    Room(std::array<uint8_t, size>& all) : bytes(all) {}
    /// As much of an area as is asked for, of which NVME_ADMIN_RESPONSE_SIZE bytes become zeros in
    /// front of the exchange. request_with_retries() works in the area itself.
    Room(Area& whole, size_t capacity) : bytes(std::span(whole).first(capacity)), is_area(true) {}

    std::span<uint8_t> bytes;
    bool is_area = false;
};

/// A request with data: the command in front of them.
struct Request {
    std::span<uint8_t> bytes;
};
struct AdminRequest {
    std::span<uint8_t> bytes;
};

/// Writes a command, all of its bytes, in front of its data.
Request encode(const Command& command, std::span<uint8_t> bytes);
AdminRequest encode(const AdminCommand& command, std::span<uint8_t> bytes);

/// What has come of a command.
enum class Stage {
    kFailedExchange,  ///< nothing
    kMalformed,       ///< not all that a response consists of, or none to this request
    kRefused,         ///< a status other than success: by the endpoint
    kFailed,          ///< a status code other than success: by the controller
    kDone,
};

/// What came back.
struct Answer {
    Stage stage;
    int32_t result;  ///< 0; the status; of an admin command completion dword 3; -1
    std::span<const uint8_t> message;
    /// What is behind the status; if there is a completion queue entry, what is behind that.
    WireReader body;
    nvmemi_ctx* ctx = nullptr;  ///< who has asked
    uint8_t opcode = 0;         ///< and for what
};

/// The answer to an admin command.
struct AdminAnswer : Answer {
    uint32_t dword0;  ///< completion queue entry: valid when failed or done
    uint32_t dword3;
};

/// Sets the message type of the context and sends a request over it.
Answer exchange(nvmemi_ctx* ctx, Request request, const Room& room);
Answer exchange(nvmemi_ctx* ctx, const Command& command, const Room& room);
AdminAnswer exchange(nvmemi_ctx* ctx, AdminRequest request, const Room& room);
AdminAnswer exchange(nvmemi_ctx* ctx, const AdminCommand& command, const Room& room);

/// The end of a management command. Says on standard output what failed.
/// @param failure  what to say of a failed exchange
/// @return 0; the status; -1, also if more was read than came
int32_t finish(const Answer& answer, const char* failure);
/// The end of an admin command. Says on the console what the endpoint or the controller refused.
/// @return the result
int32_t finish(const AdminAnswer& answer);

/// Records that what a management command was answered with success is malformed.
/// @return -1
[[gnu::cold]] int32_t fail_answer(const Answer& answer);

/// Records why a call sends nothing. What is recorded is of an earlier one.
/// @param ctx    null: nothing is recorded
/// @param cause  SIDEBAND_CAUSE_...
/// @return -1
[[gnu::cold]] int32_t fail_call(nvmemi_ctx* ctx, uint8_t cause);

/// The operation that nvmemi_init() installs.
int32_t request_with_retries(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                             uint8_t* request, uint8_t* response);
/// The same with a response that is an Area, of which nothing is promised if it fails.
int32_t request_in_area(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                        uint8_t* request, uint8_t* response);

}  // namespace sideband::nvme

#endif
