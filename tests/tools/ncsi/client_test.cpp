// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool makes of devices that are no controller, and of hostile controllers.
#include "tests/tools/ncsi/controller_bench.h"

namespace {

using tool_test::ControllerBench;
using tool_test::expect_error;
using tool_test::Outcome;

TEST(HostileNcsi, AnswersThatDoNotFitAreReported) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"kind": "no_answer", "command": "get_link_status"})", "no answer"},
        {R"({"kind": "other_command", "command": "get_link_status", "value": 10})",
         "only answers to something else came"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 3})",
         "the answer has 3 bytes only"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 19})",
         "the answer has 19 bytes only"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 23})",
         "the answer has 23 bytes only"},
    };
    for (const auto& [fault, reason] : cases) {
        SCOPED_TRACE(fault);
        ControllerBench bench;
        bench.fault(fault);
        const Outcome run = bench.run({"ncsi", "link", "nc0", "--channel", "0"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(
            run.err,
            std::string("sideband-sim: ncsi link: nc0: Get Link Status of channel 0 failed: ") +
                reason + "\n");
    }
}

TEST(HostileNcsi, AnAnswerOfAnotherChannelIsTakenAllTheSame) {
    const std::vector<std::string> link = {"ncsi", "link", "nc0", "--channel", "0"};
    ControllerBench bench;
    const Outcome honest = bench.run(link);
    bench.fault(R"({"kind": "other_channel", "command": "get_link_status", "value": 33})");
    const Outcome run = bench.run(link);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(honest.out, "");
    EXPECT_EQ(run.out, honest.out);
}

TEST(HostileNcsi, AMacAddressThatIsCutIsNoAddress) {
    ControllerBench bench;
    bench.fault(R"({"kind": "truncate", "command": "get_pf_mac_address", "length": 33})");
    expect_error(bench.run({"ncsi", "oem", "mlx-mac", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-mac: nc0: Get PF MAC Address of channel 0 failed: the "
                 "answer has 33 bytes only");
}

TEST(NcsiErrors, ADeviceThatIsNoControllerIsNotSearchedForChannels) {
    expect_error(ControllerBench().run({"ncsi", "discover", "gpu0"}), 1,
                 "sideband-sim: ncsi discover: gpu0: the discovery of NC-SI channels failed: the "
                 "device does not speak NC-SI");
    expect_error(
        ControllerBench().run({"ncsi", "link", "dead0"}), 1,
        "sideband-sim: ncsi link: dead0: Get Endpoint ID failed: no acknowledge from i2c:1:0x50");
}

TEST(NcsiErrors, AControllerWhoseChannelsDoNotAnswerIsReported) {
    ControllerBench silent;
    silent.fault(R"({"kind": "no_answer", "command": "clear_initial_state", "count": 0})");
    expect_error(silent.run({"ncsi", "discover", "nc0"}), 1,
                 "sideband-sim: ncsi discover: nc0: the discovery of NC-SI channels failed: no "
                 "answer");
    ControllerBench refusing;
    refusing.controller()["packages"][0]["id"] = 0;
    refusing.fault(R"({"kind": "codes", "command": "clear_initial_state", "count": 0,
                       "response": 2, "reason": 4})");
    expect_error(refusing.run({"ncsi", "discover", "nc0"}), 1,
                 "sideband-sim: ncsi discover: nc0: the discovery of NC-SI channels failed: "
                 "response code 0x0002 (Command Unavailable), reason code 0x0004 (Package Not "
                 "Ready)");
}

TEST(NcsiErrors, AChannelThatIsNotThereEndsWithOne) {
    const Outcome link = ControllerBench().run({"ncsi", "link", "nc0", "--channel", "1"});
    expect_error(link, 1,
                 "sideband-sim: ncsi link: nc0: no channel 1 has been found; it has: 0, 2");
    expect_error(ControllerBench().run({"ncsi", "oem", "mlx-temp", "nc0", "--channel", "7"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: no channel 7 has been found; it has: 0, 2");
}

}  // namespace
