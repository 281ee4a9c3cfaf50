// SPDX-License-Identifier: Apache-2.0
// Fuzzes the serial line of the simulated board: the bytes of a client that frames are found in,
// and its packets, which the bridge routes and the devices answer.
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/world.h"
#include "sim/board/board.h"
#include "sim/serial/bridge.h"
#include "sim/serial/frame.h"

namespace {

using fuzz::Input;
using fuzz::require;
using sim::Bytes;
using sim::ByteView;

/// A device of each kind; EIDs 9 to 14 behind the bridge, which has 8.
constexpr const char* kBoard = R"({"name": "fuzz", "buses": [{"bus": 1}], "devices": [
    {"name": "t", "type": "pldm", "bus": 1, "address": "0x40", "transmission_unit": 200,
     "auxiliary_names": true,
     "sensors": [{"kind": "numeric", "id": 1, "name": "n", "unit": "degC",
                  "waveform": {"shape": "constant", "value": 1}}],
     "fru": {"records": [{"set": 1, "fields": [{"type": "model", "text": "m"}]}]},
     "firmware": {"active": "1", "get_package_data": true, "metadata": "0102",
                  "components": [{"identifier": 1, "active": {"text": "1"}}]}},
    {"name": "d", "type": "nvme", "bus": 1, "address": "0x22", "drive": {}},
    {"name": "n", "type": "ncsi", "bus": 1, "address": "0x24", "controller": {
        "packages": [{"id": 0, "channels": [{"id": 0}]}]}},
    {"name": "r", "type": "replay", "bus": 1, "address": "0x26", "exchanges": [
        {"message_type": 1, "request": "800002", "response": "00000201"}]},
    {"name": "m", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"},
    {"name": "o", "type": "bus_owner", "transport": "pcie", "bdf": "80:00.0", "eid": 64,
     "assign": 40}]})";

constexpr size_t kLongestPacket = 68;

/// The board behind its line.
class Line {
public:
    Line() : board_(open()), bridge_(board_->state(), 8, &sent) {}

    void stream(ByteView bytes) {
        reader_.take(bytes, [this](ByteView packet) { bridge_.receive(packet); });
    }

    void packet(ByteView bytes) {
        if (!bytes.empty()) {
            stream(sim::frame_of(bytes));
        }
    }

    void message(uint8_t eid, uint8_t flags, ByteView body) {
        constexpr size_t kUnit = 64;
        for (size_t at = 0; at < body.size(); at += kUnit) {
            const size_t chunk = std::min(kUnit, body.size() - at);
            const auto bits =
                static_cast<uint8_t>((at == 0 ? 0x80 : 0) | (at + chunk == body.size() ? 0x40 : 0) |
                                     (at / kUnit % 4) << 4 | (flags & 0x0F));
            Bytes out{1, eid, 0x50, bits};
            sim::append(out, body.subspan(at, chunk));
            packet(out);
        }
    }

    void pass(uint64_t microseconds) {
        board_->advance_us(microseconds);
        bridge_.let_devices_act();
        bridge_.send_due();
    }

private:
    static std::unique_ptr<sim::Board> open() {
        sim::BoardError error;
        std::unique_ptr<sim::Board> board = sim::Board::parse(kBoard, error);
        if (board == nullptr) {
            fuzz::fail(error.message("board").c_str());
        }
        return board;
    }

    /// What goes out is a packet that the line takes, and a frame that a reader makes it of again.
    static void sent(ByteView packet) {
        require(packet.size() > 4 && packet.size() <= kLongestPacket, "a packet of a wrong size");
        require(packet[0] == 1, "a packet of a wrong version");
        sim::FrameReader reader;
        size_t packets = 0;
        reader.take(sim::frame_of(packet), [&](ByteView got) {
            ++packets;
            require(got.size() == packet.size() &&
                        std::memcmp(got.data(), packet.data(), got.size()) == 0,
                    "a frame holds another packet");
        });
        require(packets == 1, "a frame does not hold its packet");
    }

    std::unique_ptr<sim::Board> board_;
    sim::FrameReader reader_;
    sim::Bridge bridge_;
};

enum Operation : uint8_t { kStream, kPacket, kMessage, kDriveMessage, kTime, kOperations };

void take_operation(Line& line, Input& input) {
    switch (input.u8() % kOperations) {
        case kStream:
            line.stream(input.take(input.u8()));
            break;
        case kPacket:
            line.packet(input.take(input.u8()));
            break;
        case kMessage: {
            const uint8_t eid = input.u8();
            const uint8_t flags = input.u8();
            line.message(eid, flags, input.take(input.u16()));
            break;
        }
        case kDriveMessage: {
            Bytes message{0x84};
            sim::append(message, input.take(input.u16()));
            sim::append_le32(message, sim::crc32c(message));
            line.message(10, 0x08, message);
            break;
        }
        default:
            line.pass(uint64_t{input.u16()} * 100);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr uint64_t kLongestAnswerUs = 1'000'000;
    Input input(bytes, size);
    Line line;
    while (!input.empty()) {
        take_operation(line, input);
    }
    line.pass(kLongestAnswerUs);
    return 0;
}
