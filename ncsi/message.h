// SPDX-License-Identifier: Apache-2.0
// How NC-SI commands are built and what is read out of their responses (DSP0222).
#ifndef SIDEBAND_NCSI_MESSAGE_H
#define SIDEBAND_NCSI_MESSAGE_H

#include <sideband/ncsi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband::ncsi {

// Offsets in a control packet.
inline constexpr size_t kIid = 3;
inline constexpr size_t kType = 4;
inline constexpr size_t kChannel = 5;
inline constexpr size_t kPayloadLength = 7;
inline constexpr size_t kResponseCode = 16;
inline constexpr size_t kReasonCode = 18;
/// Response and reason code end here.
inline constexpr size_t kResponsePayload = 20;

inline constexpr uint8_t kResponseBit = 0x80;
/// In place of an internal channel: the package itself.
inline constexpr uint8_t kWholePackage = 0x1F;
inline constexpr unsigned kPackageShift = 5;

/// Room for the longest request here, padding and checksum field included.
inline constexpr size_t kRequestRoom = 80;
/// Room for the longest response here, padded.
inline constexpr size_t kResponseRoom = 84;

/// A request under construction: header, then payload.
class Request {
public:
    Request(uint8_t type, uint8_t channel_id, uint8_t payload_length) {
        ncsi_request_init(bytes_.data());
        bytes_[kType] = type;
        bytes_[kChannel] = channel_id;
        bytes_[kPayloadLength] = payload_length;
    }

    uint8_t* data() { return bytes_.data(); }
    std::span<uint8_t> payload() {
        return std::span(bytes_).subspan(NCSI_HEADER_SIZE, bytes_[kPayloadLength]);
    }
    uint32_t size() const { return NCSI_HEADER_SIZE + uint32_t{bytes_[kPayloadLength]}; }

private:
    std::array<uint8_t, kRequestRoom> bytes_{};
};

using Response = std::array<uint8_t, kResponseRoom>;

/// Whether commands can be sent over the channel's context.
inline bool can_transfer(const ncsi_channel* channel) {
    return channel != nullptr && channel->ctx != nullptr && channel->ctx->transfer != nullptr;
}

/// Calls the transfer operation of the channel's context, which must have one.
/// @return its result; -1 also where the response has fewer bytes than are needed
int32_t transfer(ncsi_channel& channel, Request& request, int32_t capacity, Response& response,
                 size_t needed);

/// A big-endian number of 16 bits.
inline uint16_t be16_at(std::span<const uint8_t> bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

/// The operations that ncsi_init() and ncsi_oem_init() install. The last one leads the commands of
/// a channel to the context's exchange under locks.
int32_t exchange(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                 uint8_t* request, uint8_t* response);
int32_t exchange_locked(ncsi_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response);
int32_t exchange_by_oem(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response);

}  // namespace sideband::ncsi

#endif
