// SPDX-License-Identifier: Apache-2.0
// Frames of a serial line in hex: what is written, what is taken, and what comes of all the rest.
#include "sim/serial/frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/board/board_fixture.h"

namespace {

using sim_test::bytes;
using sim_test::hex;

/// A control request from EID 0x50 to EID 8, and the frame that carries it.
const std::string kPacket = "01 08 50 c8 00 80 02";
const std::string kFrame = "7e 01 07 01 08 50 c8 00 80 02 25 db 7e";

/// A frame reader and what it has given away.
class Reading {
public:
    /// @return the packets that these bytes have completed, each in brackets
    std::string take(sim::ByteView stream) {
        std::string packets;
        reader_.take(stream, [&](sim::ByteView packet) {
            packets += "[" + hex({packet.begin(), packet.end()}) + "]";
        });
        return packets;
    }
    std::string take(const std::string& stream) { return take(sim::ByteView(bytes(stream))); }

    /// "GOOD good, REFUSED refused, STRAY stray"
    std::string counts() const {
        const sim::FrameCounts& counts = reader_.counts();
        return std::to_string(counts.good) + " good, " + std::to_string(counts.refused) +
               " refused, " + std::to_string(counts.stray) + " stray";
    }
    sim::FrameReader& reader() { return reader_; }

private:
    sim::FrameReader reader_;
};

/// What a stream gives to a reader that has seen nothing before.
std::string read_all(const std::string& stream) {
    return Reading().take(stream);
}

const std::string kTaken = "[" + kPacket + "]";

TEST(FrameCheck, IsTheOneOfRfc1662WithoutComplement) {
    const std::string text = "123456789";
    const sim::Bytes digits(text.begin(), text.end());
    EXPECT_EQ(sim::frame_check(digits), 0x6F91);
    EXPECT_EQ(sim::frame_check({}), 0xFFFF);
}

TEST(FrameOf, HasRevisionCountPacketAndCheckHighByteFirst) {
    EXPECT_EQ(hex(sim::frame_of(bytes(kPacket))), kFrame);
    EXPECT_EQ(hex(sim::frame_of(bytes("01"))), "7e 01 01 01 6b be 7e");
}

TEST(FrameOf, EscapesFlagsAndEscapesOfThePacketAndCountsThemOnce) {
    EXPECT_EQ(hex(sim::frame_of(bytes("01 08 50 c8 01 7e 7d 5e"))),
              "7e 01 08 01 08 50 c8 01 7d 5e 7d 5d 5e b6 30 7e");
}

/// Packets whose checks have flags and escapes.
const std::vector<std::pair<std::string, std::string>> kOddChecks = {
    {"01 08 50 c8 00 18", "7e 01 06 01 08 50 c8 00 18 7e 72 7e"},
    {"01 08 50 c8 00 2b", "7e 01 06 01 08 50 c8 00 2b 7d 6a 7e"},
    {"01 08 50 c8 00 49", "7e 01 06 01 08 50 c8 00 49 3d 7e 7e"},
    {"01 08 50 c8 01 53", "7e 01 06 01 08 50 c8 01 53 9b 7d 7e"},
    {"01 08 50 c8 54 8a", "7e 01 06 01 08 50 c8 54 8a 7d 7e 7e"},
    {"01 08 50 c8 67 92", "7e 01 06 01 08 50 c8 67 92 7d 7d 7e"},
    {"01 08 50 c8 cc 78", "7e 01 06 01 08 50 c8 cc 78 7e 7e 7e"},
    {"01 08 50 c8 ff 60", "7e 01 06 01 08 50 c8 ff 60 7e 7d 7e"},
};

TEST(FrameOf, LeavesTheCheckAsItIs) {
    for (const auto& [packet, frame] : kOddChecks) {
        EXPECT_EQ(hex(sim::frame_of(bytes(packet))), frame);
    }
}

TEST(FrameReader, TakesChecksThatLookLikeFlags) {
    for (const auto& [packet, frame] : kOddChecks) {
        EXPECT_EQ(read_all(frame), "[" + packet + "]");
    }
}

TEST(FrameReader, TakesWhatFrameOfWritesWhateverThePacket) {
    sim::Bytes packet;
    for (size_t size = 1; size <= sim::kLongestFramedPacket; ++size) {
        packet.push_back(static_cast<uint8_t>(0x7A + size * 5 % 9));
        Reading reading;
        EXPECT_EQ(reading.take(sim::frame_of(packet)), "[" + hex(packet) + "]");
        EXPECT_EQ(reading.counts(), "1 good, 0 refused, 0 stray");
    }
}

TEST(FrameReader, TakesFramesThatShareAFlagOrHaveManyBetweenThem) {
    const std::string inner = kFrame.substr(3);
    EXPECT_EQ(read_all(kFrame + kFrame), kTaken + kTaken);
    EXPECT_EQ(read_all(kFrame + inner + inner), kTaken + kTaken + kTaken);
    EXPECT_EQ(read_all("7e 7e 7e" + kFrame + "7e 7e" + kFrame), kTaken + kTaken);
}

TEST(FrameReader, TakesAFrameInAnyPieces) {
    const std::vector<uint8_t> frame = bytes("7e 01 08 01 08 50 c8 01 7d 5e 7d 5d 5e b6 30 7e");
    for (size_t cut = 0; cut <= frame.size(); ++cut) {
        Reading reading;
        const std::string first = reading.take(sim::ByteView(frame).first(cut));
        const std::string second = reading.take(sim::ByteView(frame).subspan(cut));
        EXPECT_EQ(first + second, "[01 08 50 c8 01 7e 7d 5e]") << cut;
    }
}

TEST(FrameReader, CountsWhatStandsBetweenFrames) {
    Reading reading;
    EXPECT_EQ(reading.take("00 01 02" + kFrame), kTaken);
    EXPECT_EQ(reading.counts(), "1 good, 0 refused, 3 stray");
}

TEST(FrameReader, RefusesOtherRevisions) {
    for (const char* revision : {"00", "02", "21", "81", "ff"}) {
        Reading reading;
        EXPECT_EQ(reading.take("7e " + std::string(revision) + kFrame.substr(5) + kFrame), kTaken)
            << revision;
        EXPECT_TRUE(reading.counts().starts_with("1 good, 1 refused")) << reading.counts();
    }
}

TEST(FrameReader, RefusesAFrameWithoutAPacket) {
    Reading reading;
    EXPECT_EQ(reading.take("7e 01 00 b8 9f 7e" + kFrame), kTaken);
    EXPECT_TRUE(reading.counts().starts_with("1 good, 1 refused")) << reading.counts();
}

TEST(FrameReader, RefusesAWrongCheckAndGoesOnWithTheFlagBehindIt) {
    Reading reading;
    EXPECT_EQ(reading.take("7e 01 07 01 08 50 c8 00 80 02 25 dc" + kFrame), kTaken);
    EXPECT_EQ(reading.counts(), "1 good, 1 refused, 0 stray");
    EXPECT_EQ(read_all("7e 01 07 01 08 50 c8 00 80 02 db 25 7e"), "") << "low byte first";
    EXPECT_EQ(read_all("7e 01 07 01 08 50 c8 00 80 02 da 24 7e"), "") << "with complement";
}

TEST(FrameReader, RefusesAFrameThatIsCutShortAndTakesTheOneThatCutsIt) {
    const std::vector<uint8_t> frame = bytes(kFrame);
    constexpr size_t kCheckAt = 10;
    for (size_t size = 2; size <= kCheckAt; ++size) {
        std::vector<uint8_t> stream(frame.begin(),
                                    frame.begin() + static_cast<std::ptrdiff_t>(size));
        const bool cut_in_packet = size > 2;
        sim::append(stream, frame);
        sim::append(stream, frame);
        Reading reading;
        const std::string taken = reading.take(stream);
        // A flag in the place of the byte count, or of the check, is not seen to be one. What is
        // behind it is lost with it, but not the frame after the next flag.
        const bool unseen = !cut_in_packet || size == kCheckAt;
        EXPECT_TRUE(taken == kTaken + kTaken || (unseen && taken == kTaken)) << size << taken;
        EXPECT_TRUE(reading.counts().find(" 0 refused") == std::string::npos) << reading.counts();
    }
}

TEST(FrameReader, RefusesAFrameThatIsLongerThanItsCount) {
    for (const char* end : {"", "7e"}) {
        Reading reading;
        EXPECT_EQ(reading.take("7e 01 07 01 08 50 c8 00 80 02 02 25 db" + (end + kFrame)), kTaken);
        EXPECT_EQ(reading.counts(), "1 good, 1 refused, 0 stray");
    }
}

TEST(FrameReader, RefusesEscapesOfBytesThatNeedNone) {
    for (const char* escaped : {"7d 41", "7d 7d", "7d 00", "7d 20"}) {
        Reading reading;
        EXPECT_EQ(reading.take("7e 01 08 01 08 50 c8 00 80 02 " + std::string(escaped)), "");
        EXPECT_EQ(reading.counts(), "0 good, 1 refused, 0 stray") << escaped;
        EXPECT_EQ(reading.take(kFrame), kTaken);
    }
}

TEST(FrameReader, AFlagBehindAnEscapeBeginsAFrame) {
    EXPECT_EQ(read_all("7e 01 07 01 08 7d" + kFrame), kTaken);
}

TEST(FrameReader, EveryFlippedBitIsFoundAndTheNextFrameButOneIsTaken) {
    const std::vector<uint8_t> good = bytes(kFrame);
    for (size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::vector<uint8_t> stream = good;
        stream[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        // A byte count that has become too large takes what follows for its packet: as many bytes.
        for (size_t i = 0; i < 21; ++i) {
            sim::append(stream, good);
        }
        Reading reading;
        const std::string taken = reading.take(stream);
        EXPECT_TRUE(taken.ends_with(kTaken)) << bit;
        EXPECT_EQ(taken.size() % kTaken.size(), 0u) << bit << ": another packet: " << taken;
    }
}

TEST(FrameReader, RubbishIsNotKept) {
    Reading reading;
    std::vector<uint8_t> rubbish;
    for (unsigned i = 0, noise = 1; i < 100'000; ++i) {
        noise = noise * 1'103'515'245 + 12'345;
        rubbish.push_back(static_cast<uint8_t>(noise >> 16));
    }
    EXPECT_EQ(reading.take(rubbish), "");
    reading.reader().reset();
    EXPECT_EQ(reading.take(kFrame), kTaken);
}

TEST(FrameReader, ForgetsAHalfFrameWhenAnotherStreamBegins) {
    Reading reading;
    EXPECT_EQ(reading.take("7e 01 07 01 08 50 c8 00 80 02 25"), "");
    reading.reader().reset();
    EXPECT_EQ(reading.take("db 7e"), "");
    EXPECT_EQ(reading.take(kFrame), kTaken);
}

}  // namespace
