// SPDX-License-Identifier: Apache-2.0
// Frames of a serial line, each with an MCTP packet (DSP0253): writing them, and finding them in a
// stream of bytes.
#ifndef SIDEBAND_SIM_SERIAL_FRAME_H
#define SIDEBAND_SIM_SERIAL_FRAME_H

#include <cstddef>
#include <cstdint>
#include <functional>

#include "sim/board/bytes.h"

namespace sim {

/// The longest packet that a frame's byte count can tell.
constexpr size_t kLongestFramedPacket = 255;

/// CRC-CCITT as RFC 1662, appendix C, has it, from 0xFFFF and without the complement at the end.
uint16_t frame_check(ByteView bytes);

/// A packet as it goes over the line: flag, revision, byte count, the packet with its flags and
/// escapes replaced, frame check, flag.
/// @param packet  at most kLongestFramedPacket bytes
Bytes frame_of(ByteView packet);

/// What came over a line so far.
struct FrameCounts {
    uint64_t good = 0;
    uint64_t refused = 0;  ///< a wrong revision or frame check, too few or too many bytes
    uint64_t stray = 0;    ///< bytes between frames
};

/// Finds frames in a stream. After anything that is no frame it goes on at the next flag.
class FrameReader {
public:
    using Sink = std::function<void(ByteView packet)>;

    /// Takes what has come, and gives each whole packet away.
    void take(ByteView bytes, const Sink& sink);

    /// Another stream begins.
    void reset();

    const FrameCounts& counts() const { return counts_; }

private:
    enum class State {
        kNoFrame,
        kRevision,
        kCount,
        kPacket,
        kEscaped,
        kCheckHigh,
        kCheckLow,
        kEnd
    };

    void take(uint8_t byte, const Sink& sink);
    void take_revision(uint8_t byte);
    void take_packet(uint8_t byte);
    void take_end(uint8_t byte, const Sink& sink);
    void refuse(State next);

    State state_ = State::kNoFrame;
    size_t wanted_ = 0;
    Bytes checked_;  ///< revision, byte count and packet
    uint16_t check_ = 0;
    FrameCounts counts_;
};

}  // namespace sim

#endif
