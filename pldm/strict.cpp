// SPDX-License-Identifier: Apache-2.0
// What MCTP_STRICT_PLDM makes of an exchange: answers that are not those of the request are passed
// over (DSP0240, clause 8).
#include "pldm/strict.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/clock.h"
#include "common/error.h"
#include "common/lock.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "transport/packet.h"
#include "transport/pcie_message.h"
#include "transport/socket_message.h"

namespace sideband {
namespace {

constexpr uint8_t kRequestBit = 0x80;
constexpr uint8_t kReservedBit = 0x20;

/// An endpoint can owe as many answers to other requests: each has its instance ID.
constexpr int kPassedOverMax = 31;
/// Behind the longest PT2 nothing answers the request any more (DSP0240, timing specification).
constexpr int64_t kAnswerWaitMs = 4800;

/// Whether a message is the response to a request: Rq, D and instance ID, header version and type,
/// command.
bool is_answer(std::span<const uint8_t> request, std::span<const uint8_t> message) {
    WireReader asked(request);
    WireReader came(message);
    const int difference = came.u8() ^ asked.u8() ^ kRequestBit;
    return (difference & ~kReservedBit) == 0 && came.u8() == asked.u8() &&
           came.u8() == asked.u8() && came.ok();
}

/// What came of a message, which never is more than there is room for, whatever an operation says.
std::span<const uint8_t> arrived(std::span<const uint8_t> room, int32_t length) {
    return room.first(std::min(room.size(), static_cast<size_t>(std::max(length, 0))));
}

bool is_smbus(const mctp_ctx& mctp) {
    return mctp.binding_kind == MCTP_BINDING_KIND_SMBUS ||
           mctp.binding_kind == MCTP_BINDING_KIND_SL8_SMBUS;
}

/// mctp_ctx.recv tells no length there. By itself, so that no other exchange has the message on its
/// stack.
[[gnu::noinline]] int32_t receive_over_pcie(mctp_ctx& mctp, std::span<uint8_t> response) {
    std::array<uint8_t, PLT_PCIE_MESSAGE_SIZE> message;
    message[0] = MCTP_MSG_TYPE_PLDM;
    const int32_t length = pcie_recv_typed(&mctp, message.size(), message.data()) - 1;
    if (length < 0) {
        return -1;
    }
    const size_t taken = std::min(response.size(), static_cast<size_t>(length));
    WireWriter(response).bytes(std::span(message).subspan(1, taken));
    return static_cast<int32_t>(taken);
}

/// Receives what comes behind a message that was no answer.
/// @return bytes stored; -1 on failure
int32_t receive(mctp_ctx& mctp, std::span<uint8_t> response) {
    if (mctp.recv == nullptr) {
        return -1;
    }
    if (mctp.binding_kind == MCTP_BINDING_KIND_PCIE) {
        return receive_over_pcie(mctp, response);
    }
    response[0] = MCTP_MSG_TYPE_PLDM;  // as pldm_recv()
    const auto capacity = static_cast<int32_t>(response.size());
#ifdef SIDEBAND_SOCKET
    if (mctp.recv == socket_recv) {
        return socket_recv_answer(&mctp, capacity, response.data());
    }
#endif
    if (mctp.binding_kind != MCTP_BINDING_KIND_SL8_SMBUS) {
        return mctp.recv(&mctp, capacity, response.data());
    }
    // There the operation leaves the lock to its caller.
    const MutexGuard bus(at_p_St_GlobalVar->bus_mutex[mctp.bus]);
    return bus ? mctp.recv(&mctp, capacity, response.data())
               : fail(mctp.last_error, SIDEBAND_CAUSE_LOCK);
}

/// @param tag      of the request
/// @param length   of the message at response, which is no answer
/// @return as exchange_strictly()
int32_t pass_over(mctp_ctx& mctp, uint8_t tag, std::span<const uint8_t> request,
                  std::span<uint8_t> response) {
    const int64_t deadline = monotonic_ms() + kAnswerWaitMs;
    for (int passed = 1; passed <= kPassedOverMax && monotonic_ms() < deadline; ++passed) {
        if (is_smbus(mctp)) {
            // That of what was taken last, a request of the device perhaps, is there now.
            mctp.tag = tag;
        }
        // A longer message that is passed over leaves nothing behind the answer.
        std::memset(response.data(), 0, response.size());
        const int32_t length = receive(mctp, response);
        if (length < 0 || is_answer(request, arrived(response, length))) {
            return length;
        }
    }
    debug_log("%s, none of the messages that came answers command 0x%x\n", "pldm_transfer",
              header_of(request).command);
    return -1;
}

}  // namespace

int32_t exchange_strictly(mctp_ctx& mctp, std::span<const uint8_t> request,
                          std::span<uint8_t> response) {
    const auto tag = static_cast<uint8_t>((mctp.tag + 1) & PacketHeader::kTagMask);
    const int32_t length =
        mctp.xfer(&mctp, static_cast<uint32_t>(request.size()),
                  static_cast<int32_t>(response.size()), request.data(), response.data());
    // Without room for a header nothing can be told of what came.
    if (length < 0 || response.size() < PLDM_HEADER_SIZE ||
        is_answer(request, arrived(response, length))) {
        return length;
    }
    const int32_t answered = pass_over(mctp, tag, request, response);
    if (answered < 0) {
        const uint8_t cause = mctp.last_error.cause;
        if (cause == SIDEBAND_CAUSE_NONE || cause == SIDEBAND_CAUSE_NO_ANSWER) {
            mctp.last_error = error_of(SIDEBAND_CAUSE_WRONG_TAG);
        }
    }
    return answered;
}

bool is_request(const uint8_t* message, uint8_t type) {
    WireReader reader({message, PLDM_HEADER_SIZE});
    return (reader.u8() & kRequestBit) != 0 && reader.u8() == type;
}

}  // namespace sideband
