// SPDX-License-Identifier: Apache-2.0
// Fixture of the NVMe drive's tests: one drive at 0x3a on bus 3, whole messages in and out.
#ifndef SIDEBAND_TESTS_SIM_NVME_DRIVE_FIXTURE_H
#define SIDEBAND_TESTS_SIM_NVME_DRIVE_FIXTURE_H

#include <algorithm>
#include <array>
#include <string>

#include "sim/board/board_fixture.h"
#include "sim/board/bytes.h"
#include "sim/nvme/drive.h"

namespace sim_test {

/// A board file of one drive. @param keys  of its "drive" object
inline std::string drive_with(const std::string& keys) {
    return board_with(R"({"name": "d", "type": "nvme", "bus": 3, "address": "0x3a", "eid": 9,
        "response_us": 0, "standby": false, "drive": {)" +
                      keys + "}}");
}

/// The status dword of a management command that succeeded and says no more.
inline const std::string kSuccess = "00 00 00 00";

class NvmeTest : public BoardTest {
protected:
    void open_drive(const std::string& keys = "") {
        open(drive_with(keys));
        ASSERT_TRUE(board);
        drive = board->nvme("d");
        ASSERT_NE(drive, nullptr);
    }

    /// Sends a message in packets of 64 bytes. @param message  from its type on
    void send_message(const sim::Bytes& message) {
        constexpr size_t kUnit = 64;
        for (size_t at = 0; at < message.size(); at += kUnit) {
            const size_t chunk = std::min(kUnit, message.size() - at);
            const auto flags = static_cast<uint8_t>((at == 0 ? 0x80 : 0) |
                                                    (at + chunk == message.size() ? 0x40 : 0) |
                                                    (at / kUnit % 4) << 4 | 0x09);
            sim::Bytes frame{address, 0x0F, static_cast<uint8_t>(chunk + 5), 0x21, 1, 9, 8, flags};
            sim::append(frame, sim::ByteView(message).subspan(at, chunk));
            plt_i2c_request request{};
            request.bus = 3;
            request.slave_addr = frame[0];
            request.write_length = static_cast<uint8_t>(frame.size());
            request.write_data = frame.data();
            ASSERT_EQ(PltMCTPI2C_MasterWriteWithPEC_NoMutex(request), 0);
        }
    }

    /// Waits for a message: all of it from its type on; empty if none comes.
    static sim::Bytes receive_message() {
        sim::Bytes message;
        for (bool last = false; !last;) {
            std::array<uint8_t, PLT_I2C_READ_BUFFER_SIZE> block{};
            plt_i2c_request request{};
            request.bus = 3;
            request.read_length = 255;
            request.read_buffer = block.data();
            const int result = PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, 0);
            if (result < 0) {
                return {};
            }
            const auto size = static_cast<size_t>(result);
            last = (block[6] & 0x40) != 0;
            message.insert(message.end(), block.begin() + 7,
                           block.begin() + static_cast<std::ptrdiff_t>(size - 1));
        }
        return message;
    }

    /// The body of a message whose type and integrity check are right.
    static std::string checked(const sim::Bytes& message) {
        if (message.empty()) {
            return kSilence;
        }
        if (message.size() < 9) {
            return "short: " + hex(message);
        }
        const size_t size = message.size() - 4;
        EXPECT_EQ(message[0], 0x84);
        EXPECT_EQ(sim::le32(message, size), sim::crc32c(sim::ByteView(message).first(size)));
        return hex({message.begin() + 1, message.begin() + static_cast<std::ptrdiff_t>(size)});
    }

    /// A request with its integrity check, and the body of its answer.
    std::string ask(const sim::Bytes& body) {
        sim::Bytes message{0x84};
        sim::append(message, body);
        sim::append_le32(message, sim::crc32c(message));
        send_message(message);
        return checked(receive_message());
    }
    std::string ask(const std::string& body) { return ask(bytes(body)); }

    /// A management command. @return its answer from the status on
    std::string manage(uint8_t opcode, uint32_t dword0 = 0, uint32_t dword1 = 0,
                       const std::string& data = "") {
        sim::Bytes body{0x08, 0, 0, opcode, 0, 0, 0};
        sim::append_le32(body, dword0);
        sim::append_le32(body, dword1);
        sim::append(body, bytes(data));
        return behind_head(ask(body), "88 00 00 ");
    }

    struct Admin {
        uint8_t opcode = 0;
        uint32_t id = 0;  ///< of a namespace
        uint32_t dword10 = 0;
        uint32_t length = 0;  ///< of what is wanted
        uint32_t dword11 = 0;
        uint32_t offset = 0;
        sim::Bytes data{};
        uint16_t controller = 0;
        uint32_t dword9 = 0;
        uint32_t dword12 = 0;
        uint32_t dword14 = 0;
        uint32_t dword15 = 0;
    };

    static sim::Bytes encode(const Admin& command) {
        const auto length =
            static_cast<uint32_t>(command.data.empty() ? command.length : command.data.size());
        const auto flags =
            static_cast<uint8_t>((length != 0 ? 1 : 0) | (command.offset != 0 ? 2 : 0));
        sim::Bytes body{0x10, 0, 0, command.opcode, flags};
        sim::append_le16(body, command.controller);
        sim::append_le32(body, command.id);
        body.resize(27);
        sim::append_le32(body, command.offset);
        sim::append_le32(body, length);
        for (uint32_t dword : {0u, command.dword9, command.dword10, command.dword11,
                               command.dword12, 0u, command.dword14, command.dword15}) {
            sim::append_le32(body, dword);
        }
        sim::append(body, command.data);
        return body;
    }

    /// An admin command. @return its answer from the status on
    std::string admin(const Admin& command) {
        return behind_head(ask(encode(command)), "90 00 00 ");
    }

    /// What an admin command read that was done.
    sim::Bytes read_by(const Admin& command) {
        const std::string answer = admin(command);
        const std::string head = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
        EXPECT_EQ(answer.substr(0, head.size()), head);
        return bytes(answer.size() > head.size() ? answer.substr(head.size()) : "");
    }

    /// An answer without data. @param completion  dword 3
    static std::string ended(uint32_t completion, uint32_t dword0 = 0) {
        sim::Bytes out(4);
        sim::append_le32(out, dword0);
        sim::append_le32(out, 0);
        sim::append_le32(out, completion);
        return hex(out);
    }
    /// Of a command that failed and would fail again.
    static std::string failed(uint32_t sct, uint32_t sc) {
        return ended(0xC0000000 | sct << 25 | sc << 17);
    }

    static std::string text(const sim::Bytes& data, size_t offset, size_t size) {
        return {data.begin() + static_cast<std::ptrdiff_t>(offset),
                data.begin() + static_cast<std::ptrdiff_t>(offset + size)};
    }

    sim::NvmeDrive* drive = nullptr;
    uint8_t address = 0x3A;  ///< where requests go

private:
    static std::string behind_head(const std::string& answer, const std::string& head) {
        return answer.starts_with(head) ? answer.substr(head.size()) : answer;
    }
};

}  // namespace sim_test

#endif
