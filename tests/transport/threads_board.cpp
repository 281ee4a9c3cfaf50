// SPDX-License-Identifier: Apache-2.0
// A board whose transfers take real time, below the port to copy; processes share its endpoints.
#include "threads_board.h"

#include <sideband/platform.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "support/bytes.h"

namespace test {

namespace {

constexpr uint8_t kBmcAddress = 0x20;

/// What waits at the BMC's address, by bus: the bus mutex is all that guards it.
std::array<Bytes, kSlowBuses> blocks;

/// A transfer, for as long as it takes.
class Transfer {
public:
    explicit Transfer(uint8_t bus) : under_way_(slow_board().under_way[bus]) {
        if (under_way_.fetch_add(1) != 0) {
            ++slow_board().collisions;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(slow_board().transfer_us.load()));
    }
    ~Transfer() { --under_way_; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

private:
    std::atomic<int>& under_way_;
};

SlowBoard& make_board() {
    void* const memory =
        mmap(nullptr, sizeof(SlowBoard), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    return *new (memory) SlowBoard();
}

void get_stuck_if_wanted(uint8_t bus) {
    if (slow_board().stuck_bus == bus) {
        ++slow_board().stuck;
        for (;;) {
            pause();
        }
    }
}

Bytes control_answer(const Bytes& request, std::atomic<uint8_t>& eid) {
    const uint8_t command = request.at(2);
    Bytes answer{0, static_cast<uint8_t>(request[1] & 0x1F), command, 0};
    if (command == 1) {  // Set Endpoint ID (DSP0236, clause 12.3)
        eid = request.at(4);
        answer.insert(answer.end(), {0, eid, 0});
    } else if (command == 2) {  // Get Endpoint ID
        answer.insert(answer.end(), {eid, 0, 0});
    } else {
        answer[3] = 5;
    }
    return answer;
}

/// GetSensorReading (DSP0248, clause 18.2): four bytes, enabled, normal.
Bytes sensor_answer(const Bytes& request, uint8_t bus, uint8_t address) {
    const auto sensor = static_cast<uint16_t>(request.at(4) | request.at(5) << 8);
    const uint32_t reading = slow_reading(bus, address, sensor);
    Bytes answer{1, static_cast<uint8_t>(request[1] & 0x1F), 2, 0x11, 0, 4, 0, 0, 1, 1, 1};
    for (int shift = 0; shift < 32; shift += 8) {
        answer.push_back(static_cast<uint8_t>(reading >> shift));
    }
    return answer;
}

}  // namespace

SlowBoard& slow_board() {
    static SlowBoard& board = make_board();
    return board;
}

mctp_ctx slow_context(size_t bus, size_t endpoint) {
    mctp_ctx context{};
    context.src_eid = 8;
    context.binding_kind = MCTP_BINDING_KIND_SMBUS;
    context.bus = static_cast<uint8_t>(bus);
    context.slave_addr = slow_address(endpoint);
    return context;
}

}  // namespace test

extern "C" int slow_board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length) {
    using namespace test;
    const size_t endpoint = (address - slow_address(0)) / 2U;
    if (bus >= kSlowBuses || address < slow_address(0) || endpoint >= kSlowEndpoints) {
        return -ENXIO;
    }
    get_stuck_if_wanted(bus);
    const Transfer transfer(bus);
    // Command code, byte count, source address, the packet's header of four bytes, message, PEC.
    const Bytes request(bytes + 7, bytes + length - 1);
    std::atomic<uint8_t>& eid = slow_board().eids[bus][endpoint];
    const Bytes answer =
        request.at(0) == 0 ? control_answer(request, eid) : sensor_answer(request, bus, address);
    Bytes block{0x0F,
                static_cast<uint8_t>(answer.size() + 5),
                static_cast<uint8_t>(address | 1),
                0x01,
                bytes[5],
                eid,
                static_cast<uint8_t>(0xC0 | (bytes[6] & 7))};
    block.insert(block.end(), answer.begin(), answer.end());
    Bytes covered{kBmcAddress};
    covered.insert(covered.end(), block.begin(), block.end());
    block.push_back(CRC8Gen(covered.data(), static_cast<uint8_t>(covered.size())));
    blocks[bus] = block;
    return 0;
}

extern "C" int slow_board_read(uint8_t bus, uint8_t* block, size_t room) {
    using namespace test;
    const Transfer transfer(bus);
    const Bytes found = std::exchange(blocks[bus], {});
    if (found.empty() || found.size() > room) {
        return -ETIMEDOUT;
    }
    std::copy(found.begin(), found.end(), block);
    return static_cast<int>(found.size());
}
