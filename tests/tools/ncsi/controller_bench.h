// SPDX-License-Identifier: Apache-2.0
// A board with an NC-SI controller for the tests of its commands.
#ifndef SIDEBAND_TESTS_TOOLS_NCSI_CONTROLLER_BENCH_H
#define SIDEBAND_TESTS_TOOLS_NCSI_CONTROLLER_BENCH_H

#include "tests/tools/tool_runner.h"

namespace tool_test {

/// A board with a controller of two ports in package 1, a PLDM terminus and a silent device.
class ControllerBench {
public:
    ControllerBench();

    Json& controller() { return controller_; }
    Json& channel(size_t index) { return controller_["packages"][0]["channels"][index]; }
    ControllerBench& fault(const std::string& text);

    Outcome run(const std::vector<std::string>& arguments) const;

private:
    Json controller_;
};

}  // namespace tool_test

#endif
