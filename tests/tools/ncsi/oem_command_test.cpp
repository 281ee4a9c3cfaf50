// SPDX-License-Identifier: Apache-2.0
// Tests of ncsi oem.
#include "tests/tools/ncsi/controller_bench.h"

namespace {

using tool_test::ControllerBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;

const std::string kUnsupported =
    "response code 0x0003 (Command Unsupported), reason code 0x7fff (Unknown / Unsupported Command "
    "Type)";

TEST(NcsiOem, ReadsThePrebootServerConfig) {
    expect_text(ControllerBench().run({"ncsi", "oem", "brcm-preboot", "get", "nc0"}),
                "flag   1\n"
                "value  0x0123\n");
    expect_json(ControllerBench().run({"ncsi", "oem", "brcm-preboot", "get", "nc0", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32, "flag": 1, "value": 291})");
}

TEST(NcsiOem, WritesThePrebootServerConfig) {
    expect_text(ControllerBench().run({"ncsi", "oem", "brcm-preboot", "set", "nc0", "--flag", "0",
                                       "--value", "2748"}),
                "       BEFORE  AFTER\n"
                "flag   1       0\n"
                "value  0x0123  0x0abc\n");
}

TEST(NcsiOem, LeavesWhatIsNotAskedFor) {
    expect_json(ControllerBench().run(
                    {"ncsi", "oem", "brcm-preboot", "set", "nc0", "--value", "1", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "before": {"flag": 1, "value": 291}, "after": {"flag": 1, "value": 1}})");
    expect_json(
        ControllerBench().run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "0", "--json"}),
        R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "before": {"flag": 1, "value": 258}, "after": {"flag": 0, "value": 258}})");
}

TEST(NcsiOem, ReadsAndWritesTheCardTlv) {
    expect_text(ControllerBench().run({"ncsi", "oem", "mlx-tlv", "get", "nc0"}),
                "flag   1\n"
                "value  0x0102\n");
    expect_text(ControllerBench().run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--value", "65535"}),
                "       BEFORE  AFTER\n"
                "flag   1       1\n"
                "value  0x0102  0xffff\n");
}

TEST(NcsiOem, ReadsTheMacAddress) {
    expect_text(ControllerBench().run({"ncsi", "oem", "mlx-mac", "nc0"}), "02:00:5e:10:00:01\n");
    expect_json(ControllerBench().run({"ncsi", "oem", "mlx-mac", "nc0", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "mac_address": "02005e100001"})");
}

TEST(NcsiOem, ReadsTemperatures) {
    expect_text(ControllerBench().run({"ncsi", "oem", "mlx-temp", "nc0"}), "52 degC\n");
    expect_json(
        ControllerBench().run({"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "3", "--json"}),
        R"({"endpoint": "nc0", "channel": 0, "channel_id": 32, "sensor": 3,
                    "temperature": 255, "unit": "degC"})");
    expect_error(ControllerBench().run({"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "7"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: Get Temperature of sensor 7 of channel 0 "
                 "failed: response code 0x0001 (Command Failed), reason code 0x0002 (Parameter Is "
                 "Invalid, Unsupported, or Out-of-Range)");
}

TEST(NcsiOem, AnotherMakersCommandIsRefusedByTheController) {
    ControllerBench bench;
    bench.channel(0).erase("preboot_config");
    bench.channel(0).erase("mac");
    bench.controller()["packages"][0].erase("card_tlv");
    bench.controller().erase("temperatures");
    expect_error(bench.run({"ncsi", "oem", "brcm-preboot", "get", "nc0"}), 1,
                 "sideband-sim: ncsi oem brcm-preboot get: nc0: reading the preboot server config "
                 "of channel 0 failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "1"}), 1,
                 "sideband-sim: ncsi oem mlx-tlv set: nc0: reading the card TLV of channel 0 "
                 "failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-mac", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-mac: nc0: Get PF MAC Address of channel 0 failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-temp", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: Get Temperature of sensor 0 of channel 0 "
                 "failed: " +
                     kUnsupported);
}

TEST(NcsiOem, ASetThatIsRefusedNamesItself) {
    ControllerBench bench;
    bench.fault(R"({"kind": "codes", "command": "set_preboot_config", "response": 32769,
                    "reason": 32770})");
    expect_error(bench.run({"ncsi", "oem", "brcm-preboot", "set", "nc0", "--flag", "1"}), 1,
                 "sideband-sim: ncsi oem brcm-preboot set: nc0: writing the preboot server config "
                 "of channel 0 failed: response code 0x8001 (vendor specific), reason code 0x8002 "
                 "(vendor specific)");
}

}  // namespace
