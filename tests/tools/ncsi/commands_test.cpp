// SPDX-License-Identifier: Apache-2.0
// Tests of the command line of the commands ncsi.
#include "tests/tools/ncsi/controller_bench.h"

namespace {

using tool_test::ControllerBench;
using tool_test::expect_error;

TEST(NcsiErrors, WrongUsageEndsWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"ncsi"}, "ncsi: a command is required"},
        {{"ncsi", "oem"}, "ncsi oem: a command is required"},
        {{"ncsi", "select", "nc0"}, "ncsi select: PACKAGE is required"},
        {{"ncsi", "select", "nc0", "8"}, "ncsi select: PACKAGE: Value 8 not in range 0 to 7"},
        {{"ncsi", "link", "nc0", "--channel", "8"},
         "ncsi link: --channel: Value 8 not in range 0 to 7"},
        {{"ncsi", "oem", "brcm-preboot", "set", "nc0"},
         "ncsi oem brcm-preboot set: --flag or --value is required"},
        {{"ncsi", "oem", "brcm-preboot", "set", "nc0", "--value", "4096"},
         "ncsi oem brcm-preboot set: --value: Value 4096 not in range 0 to 4095"},
        {{"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "2"},
         "ncsi oem mlx-tlv set: --flag: Value 2 not in range 0 to 1"},
        {{"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "256"},
         "ncsi oem mlx-temp: --sensor: Value 256 not in range 0 to 255"},
    };
    for (const auto& [arguments, text] : cases) {
        SCOPED_TRACE(text);
        expect_error(ControllerBench().run(arguments), 2,
                     std::string("sideband-sim: ") + text + " (try --help)");
    }
}

}  // namespace
