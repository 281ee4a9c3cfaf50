// SPDX-License-Identifier: Apache-2.0
// Fixture of the network controller's tests: one controller at 0x64 on bus 3, whole control
// packets.
#ifndef SIDEBAND_TESTS_SIM_NCSI_CONTROLLER_FIXTURE_H
#define SIDEBAND_TESTS_SIM_NCSI_CONTROLLER_FIXTURE_H

#include <string>

#include "sim/board/board_fixture.h"
#include "sim/ncsi/controller.h"

namespace sim_test {

/// A board file of one network controller with more keys than its packages.
inline std::string controller_with(const std::string& packages, const std::string& keys = "") {
    return board_with(R"({"name": "n", "type": "ncsi", "bus": 3, "address": "0x64", "eid": 9,
        "response_us": 0, "transmission_unit": 250, "controller": {
        "packages": [)" +
                      packages + "]" + (keys.empty() ? "" : ",\n" + keys) + "}}");
}

/// Package 0 with two channels, package 5 with one, and every setting.
inline const std::string kPackages = R"(
    {"id": 0, "card_tlv": "ff2100abcd", "channels": [
        {"id": 0, "preboot_config": "5a007abc", "mac": "021122334455"},
        {"id": 3, "link": false, "speed": 15, "extended_speed": 17, "autoneg": false,
         "status_bits": "0x00100000"}]},
    {"id": 5, "channels": [{"id": 7}]})";
inline const std::string kTemperatures = R"("temperatures": [
    {"id": 1, "waveform": {"shape": "constant", "value": 61.4}},
    {"id": 2, "waveform": {"shape": "steps", "values": [20, 30], "period_s": 20}}])";

class Ncsi : public BoardTest {
protected:
    void open_controller(const std::string& packages = kPackages,
                         const std::string& keys = kTemperatures) {
        open(controller_with(packages, keys));
        ASSERT_TRUE(board);
        device = board->ncsi("n");
        ASSERT_NE(device, nullptr);
    }

    /// A control packet and its answer, both from their header on.
    std::string packet(const std::string& request) {
        const std::string answer = exchange(3, 0x64, "01 09 08 c9 02 " + request);
        const std::string head = "01 08 09 c1 02 ";
        return answer.starts_with(head) ? answer.substr(head.size()) : answer;
    }

    /// A command without a checksum.
    /// @return codes and data of its answer, without padding and checksum
    std::string command(uint8_t type, uint8_t channel, const std::string& payload = "") {
        std::vector<uint8_t> data = bytes(payload);
        const auto length = static_cast<uint8_t>(data.size());
        data.resize((data.size() + 3) / 4 * 4 + 4);
        const std::string answer = packet("00 01 00 07" + hex({type}) + hex({channel, 0, length}) +
                                          "00 00 00 00 00 00 00 00" + hex(data));
        const std::vector<uint8_t> all = bytes(answer);
        if (answer.starts_with("error") || all.size() < 24) {
            return answer;
        }
        EXPECT_EQ(hex({all.begin(), all.begin() + 7}),
                  "00 01 00 07 " + hex({static_cast<uint8_t>(type | 0x80), channel}) + " 00");
        return hex({all.begin() + 16, all.begin() + 16 + all[7]});
    }

    std::string clear(uint8_t channel) { return command(0x00, channel); }

    sim::NcsiChannel& channel(uint8_t package, uint8_t number) {
        sim::NcsiChannel* found = device->channel(package, number);
        EXPECT_NE(found, nullptr);
        return *found;
    }

    sim::NcsiController* device = nullptr;
};

inline const std::string kDone = "00 00 00 00";
inline const std::string kUninitialised = "00 01 00 01";
inline const std::string kInvalidParameter = "00 01 00 02";
inline const std::string kInvalidLength = "00 01 00 05";
inline const std::string kUnsupported = "00 03 7f ff";

// Payloads of the OEM commands.
inline const std::string kGetPreboot = "0000113d 001c0004 00000000 00000005";
inline const std::string kSetPreboot = "0000113d 001d0004 00000000 00000001 ";
inline const std::string kGetTlv = "00008119 00002300 00000000 03000221";
inline const std::string kSetTlv = "00008119 00012300 0000";
inline const std::string kGetMac = "00008119 00000000";
inline const std::string kGetTemperature = "00008119 001302";

}  // namespace sim_test

#endif
