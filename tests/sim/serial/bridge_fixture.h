// SPDX-License-Identifier: Apache-2.0
// Fixture of the tests of the serial line's bridge: packets in hex, virtual time.
#ifndef SIDEBAND_TESTS_SIM_SERIAL_BRIDGE_FIXTURE_H
#define SIDEBAND_TESTS_SIM_SERIAL_BRIDGE_FIXTURE_H

#include "sim/board/board_fixture.h"
#include "sim/serial/bridge.h"

namespace sim_test {

class SerialBridgeTest : public BoardTest {
protected:
    void open_bridge(const std::string& devices, uint8_t eid = 8) {
        open(board_with(devices));
        ASSERT_TRUE(board);
        bridge = std::make_unique<sim::Bridge>(board->state(), eid, [this](sim::ByteView packet) {
            sent.push_back(hex({packet.begin(), packet.end()}));
        });
    }

    void send(const std::string& packet) { bridge->receive(bytes(packet)); }

    /// Lets time pass in steps of a tenth of a millisecond. @return what went out, in brackets
    std::string sent_within(uint64_t microseconds) {
        constexpr uint64_t kStepUs = 100;
        for (uint64_t passed = 0; passed <= microseconds; passed += kStepUs) {
            bridge->send_due();
            board->advance_us(kStepUs);
        }
        std::string all;
        for (const std::string& packet : sent) {
            all += "[" + packet + "]";
        }
        sent.clear();
        return all;
    }

    /// What a packet brings within ten milliseconds.
    std::string ask(const std::string& packet) {
        send(packet);
        return sent_within(10'000);
    }

    /// A control request to the bridge and its answer, both from the control header on.
    std::string control(const std::string& request) {
        const std::string answer = ask("01 08 50 ca 00 " + request);
        const std::string head = "[01 50 08 c2 00 ";
        return answer.starts_with(head)
                   ? answer.substr(head.size(), answer.size() - head.size() - 1)
                   : answer;
    }

    std::unique_ptr<sim::Bridge> bridge;
    std::vector<std::string> sent;
};

}  // namespace sim_test

#endif
