// SPDX-License-Identifier: Apache-2.0
// The other end of a board that is served: whoever attaches its serial line.
#ifndef SIDEBAND_TESTS_TOOLS_SERVE_SERIAL_CLIENT_H
#define SIDEBAND_TESTS_TOOLS_SERVE_SERIAL_CLIENT_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/serial/frame.h"

namespace tool_test {

/// Longer than anything takes, on a busy machine too.
constexpr int kLongestWaitMs = 20'000;
constexpr size_t kUnit = 64;

/// Bytes of hex digits; spaces are for the reader.
inline sim::Bytes bytes_of(const std::string& hex) {
    std::string digits = hex;
    std::erase(digits, ' ');
    return sim::from_hex(digits).value();
}

/// Whoever attaches the line: writes frames, and puts messages together.
class SerialClient {
public:
    explicit SerialClient(const std::string& tty)
        : line_(open(tty.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        if (line_ < 0) {
            throw std::runtime_error("cannot open " + tty);
        }
    }
    ~SerialClient() { close(line_); }
    SerialClient(const SerialClient&) = delete;
    SerialClient& operator=(const SerialClient&) = delete;

    /// Writes bytes as they are. @return how many the line has taken
    size_t write_raw(sim::ByteView data) const {
        const ssize_t taken = write(line_, data.data(), data.size());
        return taken > 0 ? static_cast<size_t>(taken) : 0;
    }

    /// Reads that many bytes as they are, or what comes until nothing more does.
    sim::Bytes read_raw(size_t size, int wait_ms = kLongestWaitMs) const {
        sim::Bytes got;
        while (got.size() < size && readable(wait_ms)) {
            uint8_t byte = 0;
            if (read(line_, &byte, 1) == 1) {
                got.push_back(byte);
            }
        }
        return got;
    }

    /// @param message  from its type on
    /// @param flags    tag owner and tag
    void send(uint8_t eid, const sim::Bytes& message, uint8_t flags = 0x08) const {
        for (size_t at = 0; at < message.size(); at += kUnit) {
            const size_t chunk = std::min(kUnit, message.size() - at);
            const auto bits = static_cast<uint8_t>((at == 0 ? 0x80 : 0) |
                                                   (at + chunk == message.size() ? 0x40 : 0) |
                                                   (at / kUnit % 4) << 4 | flags);
            sim::Bytes packet{1, eid, own_eid, bits};
            sim::append(packet, sim::ByteView(message).subspan(at, chunk));
            write_all(sim::frame_of(packet));
        }
    }

    /// The next message, from its type on; empty if none comes.
    sim::Bytes receive(int wait_ms = kLongestWaitMs) {
        while (messages_.empty() && readable(wait_ms)) {
            uint8_t block[4096];
            const ssize_t got = read(line_, block, sizeof block);
            const sim::ByteView came(block, got > 0 ? static_cast<size_t>(got) : 0);
            reader_.take(came, [this](sim::ByteView packet) { take(packet); });
        }
        if (messages_.empty()) {
            return {};
        }
        sim::Bytes message = messages_.front();
        messages_.erase(messages_.begin());
        return message;
    }

    /// One message out, one in, both in hex from their types on.
    std::string ask(uint8_t eid, const std::string& message) {
        send(eid, bytes_of(message));
        return sim::to_hex(receive());
    }

    /// The same for NVMe-MI, with the integrity check, which is not in the result.
    sim::Bytes ask_drive(uint8_t eid, const sim::Bytes& body) {
        sim::Bytes message{0x84};
        sim::append(message, body);
        sim::append_le32(message, sim::crc32c(message));
        send(eid, message);
        sim::Bytes answer = receive();
        if (answer.size() < 5) {
            return {};
        }
        const size_t size = answer.size() - 4;
        EXPECT_EQ(sim::le32(answer, size), sim::crc32c(sim::ByteView(answer).first(size)));
        answer.resize(size);
        return answer;
    }

    uint8_t own_eid = 0x50;
    size_t packets = 0;         ///< that have come
    size_t longest_packet = 0;  ///< of them

private:
    bool readable(int wait_ms) const {
        pollfd line{.fd = line_, .events = POLLIN, .revents = 0};
        return poll(&line, 1, wait_ms) > 0 && (line.revents & POLLIN) != 0;
    }

    void write_all(const sim::Bytes& data) const {
        for (size_t done = 0; done < data.size();) {
            pollfd line{.fd = line_, .events = POLLOUT, .revents = 0};
            if (poll(&line, 1, kLongestWaitMs) <= 0) {
                throw std::runtime_error("the line takes nothing");
            }
            done += write_raw(sim::ByteView(data).subspan(done));
        }
    }

    void take(sim::ByteView packet) {
        ++packets;
        longest_packet = std::max(longest_packet, packet.size());
        if ((packet[3] & 0x80) != 0) {
            message_.clear();
        }
        sim::append(message_, packet.subspan(4));
        if ((packet[3] & 0x40) != 0) {
            messages_.push_back(message_);
        }
    }

    int line_;
    sim::FrameReader reader_;
    sim::Bytes message_;
    std::vector<sim::Bytes> messages_;
};

}  // namespace tool_test

#endif
