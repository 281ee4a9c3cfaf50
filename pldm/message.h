// SPDX-License-Identifier: Apache-2.0
// The one way in which PLDM commands exchange messages, and what they share.
#ifndef SIDEBAND_PLDM_MESSAGE_H
#define SIDEBAND_PLDM_MESSAGE_H

#include <sideband/pldm.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/error.h"
#include "common/output.h"
#include "common/wire.h"

namespace sideband {

/// What is read of the header of a message (DSP0240, table 1), and the completion code that a
/// response has behind it. What the message is too short for is 0.
struct PldmHeader {
    uint8_t instance_id = 0;
    uint8_t command = 0;
    uint8_t completion = 0;
};

PldmHeader header_of(std::span<const uint8_t> message);

/// TransferOperationFlag and TransferFlag of what comes or goes in parts, the same in DSP0240,
/// DSP0248, DSP0257 and DSP0267.
enum Transfer : uint8_t {
    kGetNextPart = 0,
    kGetFirstPart = 1,
    kTransferStart = 1,
    kTransferMiddle = 2,
    kTransferEnd = 4,
    kTransferStartAndEnd = 5,
};

/// Whether a part is the last one by its TransferFlag.
inline bool is_last_part(uint8_t transfer_flag) {
    return transfer_flag == kTransferEnd || transfer_flag == kTransferStartAndEnd;
}

/// A request: a header, and what is written into its fields.
class PldmRequest {
public:
    PldmRequest(uint8_t type, uint8_t command);
    PldmRequest(const PldmRequest&) = delete;
    PldmRequest& operator=(const PldmRequest&) = delete;

    /// Adds type, length and characters of a string.
    void add_string(uint8_t type, uint8_t length, const char* characters);

    /// Drops the fields. The header stays as the last exchange has left it.
    WireWriter& clear_fields();

    /// The request as far as it is written.
    std::span<uint8_t> bytes() { return std::span(room_).first(fields.written()); }

    WireWriter fields{room_};  ///< stands behind what has been written

private:
    /// The longest request is UpdateComponent with the longest string (DSP0267).
    std::array<uint8_t, 22 + 255> room_;
};

/// What came back.
struct PldmAnswer {
    int32_t result = -1;        ///< of transfer_op
    pldm_ctx* ctx = nullptr;    ///< who has asked
    int32_t length = 0;         ///< response_length as transfer_op has left it
    bool length_known = false;  ///< false: an operation that does not know it has left the capacity
    PldmHeader header;          ///< zeros if none came
    WireReader body{{}};        ///< what is behind the completion code, as far as it came
};

/// Begins a command over the context: if it ends in front of an exchange, an argument is wrong.
/// @return whether commands can be sent over the context
inline bool begin(pldm_ctx* ctx) {
    if (ctx == nullptr) {
        return false;
    }
    ctx->last_error = kArgumentError;
    return ctx->transfer_op != nullptr;
}

/// Calls the context's transfer_op, and records why it failed. The context must have one.
/// @param room  for the response; all of it is offered to the operation
PldmAnswer exchange(pldm_ctx& ctx, std::span<uint8_t> request, std::span<uint8_t> room);
PldmAnswer exchange(pldm_ctx& ctx, PldmRequest& request, std::span<uint8_t> room);

/// Tells how a command has ended whose answer has been read, and reports an answer that was too
/// short for that. transfer_op tells success, not length.
/// @param function  the exported function, for the report
/// @return 0; the negative result of transfer_op; -1 if the answer was too short
int32_t finish(const PldmAnswer& answer, const char* function);

/// Records why a command fails whose exchanges have not.
/// @param cause  SIDEBAND_CAUSE_..., in place of what was recorded
/// @return -1
[[gnu::cold]] int32_t fail_command(pldm_ctx& ctx, uint8_t cause);

/// Prints bytes to standard output as dump_packet() does, between two lines.
void print_framed(const char* first_line, std::span<const uint8_t> bytes, const char* last_line);

}  // namespace sideband

#endif
