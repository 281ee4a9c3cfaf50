// SPDX-License-Identifier: Apache-2.0
// A board with an NC-SI controller for the tests of its commands.
#include "tests/tools/ncsi/controller_bench.h"

namespace tool_test {
ControllerBench::ControllerBench()
    : controller_(parse_json(R"({
            "packages": [{"id": 1, "card_tlv": "f167a50102", "channels": [
              {"id": 0, "speed": 10, "preboot_config": "5a00f123", "mac": "02005e100001"},
              {"id": 2, "link": false, "speed": 0, "autoneg_done": false}]}],
            "temperatures": [
              {"id": 0, "waveform": {"shape": "constant", "value": 52}},
              {"id": 3, "waveform": {"shape": "constant", "value": 255}}]})")) {}

ControllerBench& ControllerBench::fault(const std::string& text) {
    controller_["faults"].push_back(parse_json(text));
    return *this;
}

Outcome ControllerBench::run(const std::vector<std::string>& arguments) const {
    Json board = parse_json(R"({"name": "bench", "buses": [{"bus": 1, "clock_hz": 400000}],
        "devices": [{"name": "nc0", "type": "ncsi", "bus": 1, "address": "0x62"},
                    {"name": "gpu0", "type": "pldm", "bus": 1, "address": "0x9e"},
                    {"name": "dead0", "type": "pldm", "bus": 1, "address": "0x50",
                     "faults": [{"kind": "no_ack"}]}]})");
    board["devices"][0]["controller"] = controller_;
    return run_on(board.dump(1), arguments);
}

}  // namespace tool_test
