// SPDX-License-Identifier: Apache-2.0
// Whole messages through the bridge of a serial line: their packets both ways, what drives check,
// what a device under update asks for.
#include <algorithm>

#include "bridge_fixture.h"
#include "sim/nvme/drive.h"
#include "sim/pldm/firmware_fixture.h"

namespace {

using namespace sim_test;

/// Splits, sends and puts together messages of any size.
class SerialMessages : public SerialBridgeTest {
protected:
    /// @param message  from its type on
    void send_message(uint8_t eid, const sim::Bytes& message, uint8_t flags = 0x08) {
        constexpr size_t kUnit = 64;
        for (size_t at = 0; at < message.size(); at += kUnit) {
            const size_t chunk = std::min(kUnit, message.size() - at);
            const auto bits = static_cast<uint8_t>((at == 0 ? 0x80 : 0) |
                                                   (at + chunk == message.size() ? 0x40 : 0) |
                                                   (at / kUnit % 4) << 4 | flags);
            sim::Bytes packet{1, eid, 0x50, bits};
            sim::append(packet, sim::ByteView(message).subspan(at, chunk));
            bridge->receive(packet);
        }
    }

    /// The next message that goes out, from its type on; empty if none does.
    sim::Bytes receive_message() {
        for (int i = 0; i < 1000 && sent.empty(); ++i) {
            board->advance_us(1000);
            bridge->send_due();
        }
        sim::Bytes message;
        for (bool last = false; !last && !sent.empty(); sent.erase(sent.begin())) {
            const sim::Bytes packet = bytes(sent.front());
            EXPECT_LE(packet.size(), 68u);
            EXPECT_EQ((packet[3] & 0x80) != 0, message.empty());
            last = (packet[3] & 0x40) != 0;
            flags = packet[3];
            sim::append(message, sim::ByteView(packet).subspan(4));
        }
        return message;
    }

    /// An NVMe-MI request with its integrity check, and the answer without.
    std::string ask_drive(const sim::Bytes& body) {
        sim::Bytes message{0x84};
        sim::append(message, body);
        sim::append_le32(message, sim::crc32c(message));
        send_message(9, message);
        sim::Bytes answer = receive_message();
        if (answer.size() < 5) {
            return "nothing";
        }
        EXPECT_EQ(answer[0], 0x84);
        const size_t size = answer.size() - 4;
        EXPECT_EQ(sim::le32(answer, size), sim::crc32c(sim::ByteView(answer).first(size)));
        answer.resize(size);
        return hex(answer);
    }

    uint8_t flags = 0;
};

const std::string kDrive = R"(
    {"name": "d", "type": "nvme", "bus": 3, "address": "0x3a", "transmission_unit": 250,
     "drive": {}})";

TEST_F(SerialMessages, DrivesHealthWithItsIntegrityCheck) {
    open_bridge(kDrive);
    EXPECT_EQ(ask_drive(bytes("08 00 00 01 00 00 00 00 00 00 00 00 00 00 00")).substr(0, 26),
              "84 88 00 00 00 00 00 00 38");
    sim::Bytes spoilt{0x84, 0x08, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    sim::append_le32(spoilt, sim::crc32c(spoilt) ^ 1);
    send_message(9, spoilt);
    EXPECT_EQ(receive_message(), sim::Bytes{});
    EXPECT_EQ(board->nvme("d")->bad_checks(), 1u);
}

/// An admin command in the tunnel, from behind the message type on.
sim::Bytes admin_request(uint8_t opcode, uint32_t length, uint32_t dword10) {
    constexpr size_t kSize = 67;
    constexpr size_t kLengthAt = 31;
    constexpr size_t kDword10At = 43;
    sim::Bytes body(kSize);
    body[0] = 0x10;
    body[3] = opcode;
    body[4] = 0x01;  // the length is given
    sim::put_le(body, kLengthAt, length, 4);
    sim::put_le(body, kDword10At, dword10, 4);
    return body;
}

constexpr uint32_t kFourKibibytes = 4096;

TEST_F(SerialMessages, FourKibibytesComeInPacketsForTheLineWhateverTheDevicesUnit) {
    open_bridge(kDrive);
    constexpr uint8_t kIdentify = 0x06;
    const std::string answer = ask_drive(admin_request(kIdentify, kFourKibibytes, 1));
    EXPECT_EQ(answer.substr(0, 23), "84 90 00 00 00 00 00 00");
    EXPECT_EQ(bytes(answer).size(), 8u + 12 + kFourKibibytes);
    EXPECT_EQ(sent.size(), 0u);
}

TEST_F(SerialMessages, FourKibibytesGoToADevice) {
    open_bridge(kDrive);
    constexpr uint8_t kFirmwareDownload = 0x11;
    sim::Bytes request = admin_request(kFirmwareDownload, kFourKibibytes, kFourKibibytes / 4 - 1);
    for (size_t i = 0; i < kFourKibibytes; ++i) {
        request.push_back(static_cast<uint8_t>(0x7A + i % 7));
    }
    EXPECT_EQ(ask_drive(request), "84 90 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(SerialMessages, AMessageThatLosesAPacketIsNotAnswered) {
    open_bridge(kDrive);
    bridge->receive(bytes("01 09 50 88 84 08 00 00"));
    bridge->receive(bytes("01 09 50 68 01 00 00 00"));
    EXPECT_EQ(receive_message(), sim::Bytes{});
}

// ---- A firmware update
// ---------------------------------------------------------------------------

const std::string kUpdatable = R"(
    {"name": "f", "type": "pldm", "bus": 3, "address": "0x64", "response_us": 0, "firmware": {)" +
                               kTwoComponents + "}}";

class SerialUpdate : public SerialMessages {
protected:
    void SetUp() override { open_bridge(kUpdatable); }

    /// A PLDM request and its answer, both from the PLDM header on.
    std::string pldm(const std::string& request) {
        send_message(9, bytes("01 " + request));
        const std::string answer = hex(receive_message());
        return answer.substr(std::min<size_t>(answer.size(), 3));
    }

    void start_download() {
        ASSERT_EQ(pldm(kRequestUpdate), "00 05 10 00 00 00 00");
        ASSERT_EQ(pldm(kPassFirst), "00 05 13 00 00 00");
        ASSERT_EQ(pldm(kPassLast), "00 05 13 00 00 00");
        ASSERT_EQ(pldm(kUpdateFirst), "00 05 14 00 00 00 00 00 00 00 00 00");
    }

    /// Lets time pass as it does on a line. @return what went out meanwhile, in brackets
    std::string wait_ms(unsigned milliseconds) {
        constexpr unsigned kTurnMs = 100;
        std::string all;
        for (unsigned passed = 0; passed < milliseconds; passed += kTurnMs) {
            board->advance_us(kTurnMs * 1000);
            bridge->let_devices_act();
            bridge->send_due();
        }
        for (const std::string& packet : sent) {
            all += "[" + packet + "]";
        }
        sent.clear();
        return all;
    }
};

TEST_F(SerialUpdate, DeviceAsksTheEidThatRunsItWithTagsOfItsOwn) {
    start_download();
    EXPECT_EQ(hex(receive_message()), "01 80 05 15 00 00 00 00 20 00 00 00");
    EXPECT_EQ(flags, 0xC8) << "tag owner, tag 0";
    const sim::Bytes piece = image_of(32);
    send_message(9, bytes("01 00 05 15 00" + hex(piece)), 0x00);
    EXPECT_EQ(hex(receive_message()), "01 81 05 15 20 00 00 00 20 00 00 00");
    EXPECT_EQ(flags, 0xC9);
    // An answer with the tag owner bit is no answer.
    send_message(9, bytes("01 01 05 15 00" + hex(piece)), 0x09);
    EXPECT_EQ(sent_within(50'000), "");
    send_message(9, bytes("01 01 05 15 00" + hex(piece)), 0x01);
    EXPECT_EQ(hex(receive_message()), "01 82 05 15 40 00 00 00 20 00 00 00");
}

TEST_F(SerialUpdate, DeviceRepeatsARequestThatNobodyAnswers) {
    start_download();
    const std::string request = "[01 50 09 c8 01 80 05 15 00 00 00 00 20 00 00 00]";
    EXPECT_EQ(sent_within(1000), request);
    const uint64_t retry_us = board->firmware("f")->settings().retry_us;
    EXPECT_EQ(wait_ms(static_cast<unsigned>(retry_us / 1000) - 200), "");
    EXPECT_EQ(wait_ms(400), request);
    send_message(9, bytes("01 00 05 15 00" + hex(image_of(32))), 0x00);
    EXPECT_EQ(hex(receive_message()), "01 81 05 15 20 00 00 00 20 00 00 00");
}

TEST_F(SerialUpdate, AnotherRequesterIsServedMeanwhile) {
    start_download();
    receive_message();
    EXPECT_EQ(ask("01 09 51 cb 01 80 00 02"), "[01 51 09 c3 01 00 00 02 00 01]");
    send_message(9, bytes("01 00 05 15 00" + hex(image_of(32))), 0x00);
    EXPECT_EQ(sent_within(1000), "[01 50 09 c9 01 81 05 15 20 00 00 00 20 00 00 00]");
}

}  // namespace
