// SPDX-License-Identifier: Apache-2.0
// How NC-SI commands are built and what is read out of their responses (DSP0222).
#ifndef SIDEBAND_NCSI_MESSAGE_H
#define SIDEBAND_NCSI_MESSAGE_H

#include <sideband/ncsi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/error.h"
#include "common/wire.h"

namespace sideband::ncsi {

/// The header of a control packet (DSP0222, control packet header).
struct Header {
    uint8_t iid = 0;
    uint8_t type = 0;
    uint8_t channel_id = 0;
    uint16_t payload_length = 0;  ///< 12 bits

    static Header read(std::span<const uint8_t> packet);
    void write(std::span<uint8_t> packet) const;
};

/// Bytes of a response in front of its data: header, response and reason code.
inline constexpr size_t kResponseSize = NCSI_HEADER_SIZE + 4;

inline constexpr uint8_t kResponseBit = 0x80;
/// In place of an internal channel: the package itself.
inline constexpr uint8_t kWholePackage = 0x1F;
inline constexpr unsigned kPackageShift = 5;

/// A request under construction, header, then payload, and the room for its response. Both areas
/// have room for the longest one, padding and checksum included.
class Request {
public:
    Request(uint8_t type, uint8_t channel_id, uint8_t payload_length = 0);

    /// Writes the payload, which is zeros so far.
    WireWriter payload() { return WireWriter({bytes_.data() + NCSI_HEADER_SIZE, payload_length_}); }

    uint8_t* data() { return bytes_.data(); }
    uint32_t size() const { return NCSI_HEADER_SIZE + uint32_t{payload_length_}; }
    std::span<uint8_t> room() { return room_; }

private:
    uint8_t payload_length_;
    std::array<uint8_t, 80> bytes_{};
    std::array<uint8_t, 84> room_{};
};

/// What came back.
struct Answer {
    int32_t result;    ///< of the transfer operation
    int32_t length;    ///< bytes of the response, as the operation says
    bool unsupported;  ///< the controller does not know the command; the result is no success then
    WireReader body;   ///< what is behind the codes
    ncsi_ctx* ctx;     ///< who has asked, and for what
    uint8_t type;
};

/// Begins a command over a channel: if it ends in front of an exchange, an argument is wrong.
/// @return whether commands can be sent over the channel's context
inline bool begin(ncsi_channel* channel) {
    if (channel == nullptr || channel->ctx == nullptr) {
        return false;
    }
    channel->ctx->last_error = kArgumentError;
    return channel->ctx->transfer != nullptr;
}

/// Records that no response came, unless the operation has said why.
[[gnu::cold]] void note_failed_exchange(ncsi_ctx& ctx, uint8_t type);

/// Sends a command by the transfer operation of the channel's context, which must have one, and
/// records why it failed.
/// @param capacity  bytes that are asked for, a multiple of four
Answer exchange(ncsi_channel& channel, Request& request, int32_t capacity);

/// The end of a command. @return the result; -1 also if more was read than came
int32_t finish(const Answer& answer);

/// The operations that ncsi_init() and ncsi_oem_init() install. The last one leads the commands of
/// a channel to the context's transfer under locks.
int32_t transfer(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                 uint8_t* request, uint8_t* response);
int32_t transfer_locked(ncsi_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response);
int32_t transfer_by_oem(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response);

}  // namespace sideband::ncsi

#endif
