// SPDX-License-Identifier: Apache-2.0
// Fixture of the PLDM terminus's tests: one terminus at 0x64 on bus 3, and whole PLDM messages.
#ifndef SIDEBAND_TESTS_SIM_PLDM_TERMINUS_FIXTURE_H
#define SIDEBAND_TESTS_SIM_PLDM_TERMINUS_FIXTURE_H

#include <string>

#include "sim/board/board_fixture.h"

namespace sim_test {

/// A board file of one PLDM terminus with more keys than its place. They begin on line 12.
inline std::string terminus_with(const std::string& keys) {
    return board_with(R"({"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
        "response_us": 0, "transmission_unit": 250,
)" + keys + "}");
}

class TerminusTest : public BoardTest {
protected:
    void open_terminus(const std::string& keys) { open(terminus_with(keys)); }

    /// A PLDM request and its answer in one packet, both from the PLDM header on.
    std::string pldm(const std::string& request) {
        const std::string answer = exchange(3, 0x64, "01 09 08 c9 01 " + request);
        const std::string head = "01 08 09 c1 01 ";
        return answer.starts_with(head) ? answer.substr(head.size()) : answer;
    }
};

}  // namespace sim_test

#endif
