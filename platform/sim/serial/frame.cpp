// SPDX-License-Identifier: Apache-2.0
// Frames of a serial line, each with an MCTP packet (DSP0253): writing them, and finding them in a
// stream of bytes.
#include "sim/serial/frame.h"

namespace sim {

namespace {

constexpr uint8_t kFlag = 0x7E;
constexpr uint8_t kEscape = 0x7D;
/// Behind an escape a byte lacks this bit.
constexpr uint8_t kEscapedBit = 0x20;
constexpr uint8_t kRevision = 0x01;
constexpr size_t kHeadSize = 2;  // revision and byte count
constexpr uint16_t kCheckBegin = 0xFFFF;
constexpr uint16_t kCheckPolynomial = 0x8408;  // x^16 + x^12 + x^5 + 1, lowest bit first

constexpr uint8_t escaped(uint8_t byte) {
    return byte & static_cast<uint8_t>(~kEscapedBit);
}

}  // namespace

uint16_t frame_check(ByteView bytes) {
    unsigned check = kCheckBegin;
    for (const uint8_t byte : bytes) {
        check ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            check = (check & 1) != 0 ? check >> 1 ^ kCheckPolynomial : check >> 1;
        }
    }
    return static_cast<uint16_t>(check);
}

Bytes frame_of(ByteView packet) {
    Bytes checked{kRevision, static_cast<uint8_t>(packet.size())};
    append(checked, packet);
    Bytes out{kFlag, checked[0], checked[1]};
    for (const uint8_t byte : packet) {
        if (byte == kFlag || byte == kEscape) {
            out.push_back(kEscape);
            out.push_back(escaped(byte));
        } else {
            out.push_back(byte);
        }
    }
    // The packet alone is escaped. A check byte that looks like a flag stands as it is: where the
    // check begins follows from the byte count.
    append_be16(out, frame_check(checked));
    out.push_back(kFlag);
    return out;
}

void FrameReader::take(ByteView bytes, const Sink& sink) {
    for (const uint8_t byte : bytes) {
        take(byte, sink);
    }
}

void FrameReader::reset() {
    state_ = State::kNoFrame;
}

void FrameReader::take(uint8_t byte, const Sink& sink) {
    switch (state_) {
        case State::kNoFrame:
            if (byte == kFlag) {
                state_ = State::kRevision;
            } else {
                ++counts_.stray;
            }
            break;
        case State::kRevision:
            take_revision(byte);
            break;
        case State::kCount:
            checked_.push_back(byte);
            wanted_ = kHeadSize + byte;
            state_ = State::kPacket;
            if (byte == 0) {
                refuse(State::kNoFrame);
            }
            break;
        case State::kPacket:
        case State::kEscaped:
            take_packet(byte);
            break;
        case State::kCheckHigh:
            check_ = static_cast<uint16_t>(byte << 8);
            state_ = State::kCheckLow;
            break;
        case State::kCheckLow:
            check_ |= byte;
            state_ = State::kEnd;
            break;
        case State::kEnd:
            take_end(byte, sink);
    }
}

/// A frame may begin with the flag that ended the last one, or with one of its own.
void FrameReader::take_revision(uint8_t byte) {
    if (byte == kFlag) {
        return;
    }
    checked_.clear();
    checked_.push_back(byte);
    state_ = State::kCount;
    if (byte != kRevision) {
        refuse(State::kNoFrame);
    }
}

void FrameReader::take_packet(uint8_t byte) {
    if (byte == kFlag) {
        refuse(State::kRevision);  // cut short, and this one begins the next
        return;
    }
    if (state_ == State::kPacket && byte == kEscape) {
        state_ = State::kEscaped;
        return;
    }
    if (state_ == State::kEscaped) {
        if (byte != escaped(kFlag) && byte != escaped(kEscape)) {
            refuse(State::kNoFrame);
            return;
        }
        byte |= kEscapedBit;
    }
    checked_.push_back(byte);
    state_ = checked_.size() < wanted_ ? State::kPacket : State::kCheckHigh;
}

void FrameReader::take_end(uint8_t byte, const Sink& sink) {
    if (byte != kFlag) {
        refuse(State::kNoFrame);  // longer than it said
    } else if (check_ != frame_check(checked_)) {
        refuse(State::kRevision);
    } else {
        ++counts_.good;
        state_ = State::kRevision;
        sink(ByteView(checked_).subspan(kHeadSize));
    }
}

void FrameReader::refuse(State next) {
    ++counts_.refused;
    state_ = next;
}

}  // namespace sim
