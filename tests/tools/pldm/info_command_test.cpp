// SPDX-License-Identifier: Apache-2.0
// Tests of pldm info.
#include "tests/tools/tool_runner.h"

namespace {

using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::OwnBoard;

TEST_F(OwnBoard, PldmInfoTellsTidTypesVersionsAndCommands) {
    expect_text(run({"pldm", "info", "dev0"}),
                "TID 7\n"
                "\n"
                "TYPE  VERSION  NAME\n"
                "   0  1.1.0    Messaging Control and Discovery\n"
                "   2  1.2.1    Platform Monitoring and Control\n"
                "\n"
                "Commands of type 0\n"
                "COMMAND  NAME\n"
                "0x01     SetTID\n"
                "0x02     GetTID\n"
                "0x03     GetPLDMVersion\n"
                "0x04     GetPLDMTypes\n"
                "0x05     GetPLDMCommands\n");
    expect_json(run({"--json", "pldm", "info", "dev0"}), R"({"endpoint": "dev0", "tid": 7,
        "pldm_types": [
            {"pldm_type": 0, "name": "Messaging Control and Discovery", "version": "1.1.0"},
            {"pldm_type": 2, "name": "Platform Monitoring and Control", "version": "1.2.1"}],
        "pldm_commands": [1, 2, 3, 4, 5]})");
}

}  // namespace
