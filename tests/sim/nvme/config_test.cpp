// SPDX-License-Identifier: Apache-2.0
// The keys of a drive in a board file, and what is wrong with them.
#include "drive_fixture.h"
#include "sim/pldm/terminus_fixture.h"

namespace {

using namespace sim_test;

class NvmeBoardFile : public NvmeTest {
protected:
    /// What is wrong with the keys of a drive.
    static std::string refused(const std::string& keys) {
        const std::string text = refusal_of(drive_with(keys));
        return text.substr(text.find(' ') + 1);
    }
    const std::string at = "devices[0].drive.";
};

TEST_F(NvmeBoardFile, ErrorsNameLineAndKey) {
    EXPECT_EQ(refusal_of(board_with(R"({"name": "n", "type": "nvme", "bus": 3, "address": 100})")),
              "10: devices[0].drive: is missing");
    EXPECT_EQ(refused(R"("color": 1)"), at + "color: no such key");
    EXPECT_EQ(refused(R"("model": "caf\u00e9")"),
              at + "model: must have at most 40 ASCII characters");
    EXPECT_EQ(refused(R"("serial": "012345678901234567890")"),
              at + "serial: must have at most 20 ASCII characters");
    EXPECT_EQ(refused(R"("ieee": "0011")"), at + "ieee: must have 3 bytes");
    EXPECT_EQ(refused(R"("ports": [])"), at + "ports: must have 1 to 16 ports");
    EXPECT_EQ(refused(R"("ports": [{"type": "smbus", "highest_frequency": 2, "frequency": 3}])"),
              at + "ports[0].frequency: must be a whole number from 1 to 2");
    EXPECT_EQ(refused(R"("controllers": [])"), at + "controllers: must have 1 to 127 controllers");
    EXPECT_EQ(refused(R"("controllers": [{"id": 1}, {"id": 1}])"),
              at + "controllers[1].id: appears twice");
    EXPECT_EQ(refused(R"("controllers": [{"id": 1, "port": 2}])"),
              at + "controllers[0].port: must be a whole number from 0 to 1");
}

TEST_F(NvmeBoardFile, ErrorsOfWhatADriveHas) {
    EXPECT_EQ(refused(R"("temperature": {"shape": "constant", "value": 300})"),
              at + "temperature: must stay within -100 to 200");
    EXPECT_EQ(refused(R"("features": [{"id": 1}, {"id": 1}])"),
              at + "features[1].id: appears twice");
    EXPECT_EQ(refused(R"("features": [{"id": 1, "data": "00"}])"),
              at + "features[0].data: must have up to 4096 bytes, a multiple of 4");
    EXPECT_EQ(refused(R"("namespaces": [{"id": 17, "blocks": 1}])"),
              at + "namespaces[0].id: must be a whole number from 1 to 16");
    EXPECT_EQ(refused(R"("capacity": 8192, "namespaces": [{"id": 1, "blocks": 17}])"),
              at + "namespaces[0].blocks: must be a whole number from 1 to 16");
    EXPECT_EQ(refused(R"("capacity": 8192, "namespaces": [{"id": 1, "blocks": 9},
                      {"id": 2, "blocks": 1, "format": 1}])"),
              at + "namespaces[1].blocks: is more than what the drive has left");
    EXPECT_EQ(refused(R"("namespaces": [{"id": 1, "blocks": 1, "controllers": [3]}])"),
              at + "namespaces[0].controllers[0]: is not among the drive's controllers");
    EXPECT_EQ(refused(R"("firmware": {"slots": []})"),
              at + "firmware.slots: must have 1 to 7 slots");
    EXPECT_EQ(refused(R"("firmware": {"slots": ["1", ""], "active": 2})"),
              at + "firmware.active: is an empty slot");
    EXPECT_EQ(refused(R"("vpd": "0011", "vpd_size": 1)"),
              at + "vpd_size: must be a whole number from 2 to 65535");
    EXPECT_EQ(refused(R"("sanitize_s": -1)"), at + "sanitize_s: must be from 0 to 1000000 seconds");
    EXPECT_EQ(refused(R"("vendor_commands": [{"opcode": "0xc1", "data": ""},
                      {"opcode": "0xc1", "data": ""}])"),
              at + "vendor_commands[1].opcode: appears twice");
    EXPECT_EQ(refused(R"("vendor_commands": [{"opcode": "0xc2", "data": ""}])"),
              at + "vendor_commands[0].opcode: is a command that the drive has of itself");
    EXPECT_EQ(refused(R"("capacity": "0x200000000000000")"),
              at + "capacity: must be a whole number from 4096 to 72057594037927936");
    EXPECT_EQ(refused(R"("capacity": "0x1000000000000000")"),
              at + "capacity: must be a whole number from 4096 to 72057594037927936");
    EXPECT_EQ(refused(R"("faults": [{"kind": "completion", "set": "management", "opcode": 1,
                      "sct": 0, "sc": 1}])"),
              at + "faults[0].set: must be admin");
}

TEST_F(NvmeBoardFile, OtherDevicesAreNoDrives) {
    open(terminus_with("\"tid\": 1"));
    EXPECT_EQ(board->nvme("p"), nullptr);
    EXPECT_EQ(board->nvme("q"), nullptr);
}

}  // namespace
