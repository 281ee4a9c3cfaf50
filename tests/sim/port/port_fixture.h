// SPDX-License-Identifier: Apache-2.0
// Fixture of the platform interface's tests: a board with one terminus on standby, one on main
// power.
#ifndef SIDEBAND_TESTS_SIM_PORT_PORT_FIXTURE_H
#define SIDEBAND_TESTS_SIM_PORT_PORT_FIXTURE_H

#include "sim/board/board_fixture.h"

namespace sim_test {

class Port : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "s", "type": "pldm", "bus": 3, "address": "0x64"},
            {"name": "m", "type": "pldm", "bus": 3, "address": "0x66", "standby": false})"));
    }
};

}  // namespace sim_test

#endif
