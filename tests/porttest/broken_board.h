// SPDX-License-Identifier: Apache-2.0
// A board in memory for the port to copy, which breaks a rule of the slave queue on demand: two
// devices behind a multiplexer, with an answer of many packets.
#ifndef SIDEBAND_TESTS_PORTTEST_BROKEN_BOARD_H
#define SIDEBAND_TESTS_PORTTEST_BROKEN_BOARD_H

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <thread>
#include <vector>

enum { kBoardEid = 8, kBoardAddress = 0x20, kBoardReadWaitMs = 20 };

namespace broken {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

/// Whether the port is to break a rule.
inline bool breaks(std::string_view rule) {
    static const char* const kRule = std::getenv("SIDEBAND_BROKEN");
    return kRule != nullptr && rule == kRule;
}

inline void pause_ms(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

constexpr uint8_t kBus = 1;
constexpr uint8_t kAddress = 0x40;
constexpr size_t kPayload = 64;
constexpr size_t kTableSize = 500;

struct Arrived {
    Bytes block;
    Clock::time_point at;
};

inline std::deque<Arrived> queue;
inline uint8_t channel;  ///< of the multiplexer, and with it the device

inline size_t queue_room() {
    return breaks("read-queue") ? 1 : breaks("message") ? 4 : 64;
}

inline void send_block(const Bytes& packet) {
    Bytes frame{kBoardAddress, 0x0F, static_cast<uint8_t>(packet.size() + 1), kAddress | 1};
    frame.insert(frame.end(), packet.begin(), packet.end());
    frame.push_back(whole_CRC8Gen(frame.data(), static_cast<uint8_t>(frame.size())));
    if (queue.size() < queue_room()) {
        queue.push_back({Bytes(frame.begin() + 1, frame.end()), Clock::now()});
    }
}

/// What a device says to a message; both begin with the type byte.
inline Bytes answer_to(const Bytes& request) {
    Bytes answer(request.begin(), request.begin() + 3);
    answer[1] &= 0x1F;
    if (request[0] == 0x01) {  // PLDM: GetFRURecordTable, all of it at once
        answer.insert(answer.end(), {request[3], 0x00, 0, 0, 0, 0, 0x05});
        for (size_t i = 0; i < kTableSize; ++i) {
            answer.push_back(static_cast<uint8_t>(i * 5));
        }
        return answer;
    }
    switch (request[2]) {
        case 0x02:  // Get Endpoint ID
            answer.insert(answer.end(), {0x00, static_cast<uint8_t>(0x1D + channel), 0x00, 0x00});
            break;
        case 0x03:  // Get Endpoint UUID
            answer.push_back(0x00);
            answer.insert(answer.end(), 16, static_cast<uint8_t>(0xB0 + channel));
            break;
        case 0x05:  // Get MCTP Message Type Support
            answer.insert(answer.end(), {0x00, 0x01, 0x01});
            break;
        default:
            answer.push_back(0x05);
    }
    return answer;
}

inline void send_message(uint8_t to, uint8_t tag, const Bytes& message) {
    constexpr uint8_t kSom = 0x80;
    constexpr uint8_t kEom = 0x40;
    uint8_t sequence = 0;
    for (size_t at = 0; at < message.size(); at += kPayload, ++sequence) {
        const size_t size = std::min(kPayload, message.size() - at);
        const bool last = at + size == message.size();
        const auto flags = static_cast<uint8_t>((at == 0 ? kSom : 0) | (last ? kEom : 0) |
                                                (sequence & 3) << 4 | tag);
        Bytes packet{0x01, to, 0x1D, flags};
        packet.insert(packet.end(), message.begin() + static_cast<ptrdiff_t>(at),
                      message.begin() + static_cast<ptrdiff_t>(at + size));
        send_block(packet);
    }
}

}  // namespace broken

static int board_start() {
    return 0;
}

static const char* board_records_file() {
    const char* const path = std::getenv("SIDEBAND_RECORDS");
    return path != nullptr && !broken::breaks("processes-exclusive") ? path : "";
}

static int board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length) {
    if (bus != broken::kBus || address != broken::kAddress || broken::channel > 1) {
        return -ENXIO;
    }
    broken::Bytes frame{address};
    frame.insert(frame.end(), bytes, bytes + length);
    const uint8_t pec = whole_CRC8Gen(frame.data(), static_cast<uint8_t>(frame.size() - 1));
    constexpr size_t kPacketAt = 4;
    if (length < 11 || pec != frame.back() || frame.size() != kPacketAt + frame[2]) {
        return 0;
    }
    if (broken::breaks("exchange") && frame[kPacketAt + 1] != 0) {
        return -ENXIO;
    }
    const broken::Bytes message(frame.begin() + kPacketAt + 4, frame.end() - 1);
    broken::send_message(frame[kPacketAt + 2], frame[kPacketAt + 3] & 7,
                         broken::answer_to(message));
    return 0;
}

static int board_read(uint8_t bus, uint8_t* block, size_t room, int wait_ms) {
    constexpr auto kStale = std::chrono::milliseconds(280);
    while (broken::breaks("read-kept") && !broken::queue.empty() &&
           broken::Clock::now() - broken::queue.front().at > kStale) {
        broken::queue.pop_front();
    }
    if (bus != broken::kBus || broken::queue.empty()) {
        broken::pause_ms(broken::breaks("read-ends") ? 1000 : wait_ms);
        return -ETIMEDOUT;
    }
    const broken::Bytes next = broken::queue.front().block;
    broken::queue.pop_front();
    std::copy_n(next.begin(), std::min(next.size(), room), block);
    return static_cast<int>(next.size());
}

static int board_power() {
    return broken::breaks("power-allows") ? 0 : 1;
}

static void board_log(int, const char* line) {
    if (broken::breaks("log-long") && std::string_view(line).size() > 1000) {
        std::abort();
    }
    if (broken::breaks("log-under-locks")) {
        whole_lx_mutex_get(&at_p_St_GlobalVar->global_lock, LX_MUTEX_WAIT_FOREVER);
        whole_lx_mutex_put(&at_p_St_GlobalVar->global_lock);
    }
}

#endif
