// SPDX-License-Identifier: Apache-2.0
// The management commands of an NVMe drive: configuration, health, structures, VPD, reset
// (NVMe-MI).
#include "drive_fixture.h"

namespace {

using namespace sim_test;

constexpr uint32_t kAllFunctions = 0x81FF0000;
constexpr uint32_t kClear = 0x80000000;

// ---- Configuration ----

using NvmeConfiguration = NvmeTest;

TEST_F(NvmeConfiguration, SmbusFrequency) {
    open_drive(R"("ports": [{"type": "pcie"}, {"type": "smbus", "highest_frequency": 2}])");
    EXPECT_EQ(manage(0x04, 0x01000001), "00 01 00 00");
    EXPECT_EQ(manage(0x03, 0x01000201), kSuccess);
    EXPECT_EQ(manage(0x04, 0x01000001), "00 02 00 00");
    EXPECT_EQ(manage(0x03, 0x01000301), "04 00 09 00") << "above what the port can";
    EXPECT_EQ(manage(0x03, 0x01000001), "04 00 09 00");
    EXPECT_EQ(manage(0x04, 0x00000001), "04 00 0b 00") << "no SMBus port";
    EXPECT_EQ(manage(0x03, 0x00000101), "04 00 0b 00");
    EXPECT_EQ(manage(0x04, 0x02000001), "04 00 0b 00") << "no port";
    EXPECT_EQ(manage(0x04, 0x00000000), "04 00 08 00") << "no configuration";
    EXPECT_EQ(manage(0x03, 0x00000004), "04 00 08 00");
    EXPECT_EQ(drive->ports()[1].frequency, 2);
}

TEST_F(NvmeConfiguration, TransmissionUnitTakesEffectOnTheOwnPort) {
    open_drive();
    EXPECT_EQ(manage(0x04, 0x01000003), "00 40 00 00");
    EXPECT_EQ(manage(0x03, 0x01000003, 63), "04 00 0c 00");
    EXPECT_EQ(manage(0x03, 0x01000003, 251), "04 00 0c 00");
    EXPECT_EQ(manage(0x03, 0x00000003, 65), "04 00 0c 00") << "the other port";
    EXPECT_EQ(manage(0x03, 0x02000003, 64), "04 00 0b 00");
    const uint64_t before = statistics(3).packets;
    manage(0x05, 0, 220);
    EXPECT_EQ(statistics(3).packets - before, 5u) << "1 and 232 bytes in 64 each";
    EXPECT_EQ(manage(0x03, 0x01000003, 250), kSuccess);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 fa 00 00");
    EXPECT_EQ(manage(0x05, 0, 220).size(), 224 * 3 - 1u);
    EXPECT_EQ(statistics(3).packets - before, 5u + 2 + 2 + 2);
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 40 00 00");
}

// The board file's unit is that of the drive's own port at power on, and gives way like any other.
TEST_F(NvmeConfiguration, TransmissionUnitOfTheBoardFileIsThatOfTheOwnPort) {
    std::string file = drive_with("");
    file.replace(file.find(R"("eid": 9)"), 8, R"("eid": 9, "transmission_unit": 128)");
    open(file);
    drive = board->nvme("d");
    ASSERT_NE(drive, nullptr);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 80 00 00");
    EXPECT_EQ(manage(0x04, 0x00000003), "00 40 00 00") << "the other port";
    const uint64_t before = statistics(3).packets;
    manage(0x05, 0, 220);
    EXPECT_EQ(statistics(3).packets - before, 1u + 2) << "232 bytes in 128 each";
    EXPECT_EQ(manage(0x03, 0x01000003, 64), kSuccess);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 40 00 00");
    const uint64_t between = statistics(3).packets;
    manage(0x05, 0, 220);
    EXPECT_EQ(statistics(3).packets - between, 1u + 4) << "and in 64 each";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 80 00 00");
}

TEST_F(NvmeConfiguration, HealthStatusChangeIsCleared) {
    open_drive();
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 01 00 00 00");
    drive->smart().percentage_used = 3;
    drive->smart().available_spare = 90;
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 03 01 0c 00 00");
    EXPECT_EQ(manage(0x03, 2, 0x0401), kSuccess);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 03 00 08 00 00");
    EXPECT_EQ(manage(0x04, 2), kSuccess) << "nothing to read back";
}

// ---- Health ----

using NvmeHealth = NvmeTest;

TEST_F(NvmeHealth, SubsystemPollReadsAndClears) {
    open_drive(R"("smart": {"critical_warning": 8, "available_spare": 5, "percentage_used": 120},
        "temperature": {"shape": "steps", "values": [-5, 80], "period_s": 20})");
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 f6 fb 78 01 00 00 00");
    board->advance_us(10'000'000);
    EXPECT_EQ(manage(0x01, 0, kClear), "00 00 00 00 38 f4 50 78 01 12 00 00");
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 f4 50 78 00 00 00 00");
    drive->settings().temperature = 130;
    EXPECT_EQ(manage(0x01).substr(18, 2), "7f");
    drive->settings().temperature = -80;
    EXPECT_EQ(manage(0x01).substr(18, 2), "c4");
    drive->settings().subsystem_status = 0x18;
    EXPECT_EQ(manage(0x01).substr(12, 2), "18");
}

TEST_F(NvmeHealth, ControllerPollSelects) {
    open_drive(R"("controllers": [{"id": 1}, {"id": 2, "port": 1}, {"id": 7}],
        "temperature": {"shape": "constant", "value": 40.7},
        "smart": {"available_spare": 99, "percentage_used": 2})");
    auto entry = [](const std::string& id, const std::string& status) {
        return " " + id + " 00 " + status + " 00 39 01 02 63 00 00 00 00 00 00 00 00";
    };
    EXPECT_EQ(manage(0x02, kAllFunctions),
              "00 00 00 03" + entry("01", "01") + entry("02", "01") + entry("07", "01"));
    EXPECT_EQ(manage(0x02, kAllFunctions | 3), "00 00 00 01" + entry("07", "01"));
    EXPECT_EQ(manage(0x02, 0x81010000), "00 00 00 02" + entry("01", "01") + entry("02", "01"));
    EXPECT_EQ(manage(0x02, 0x80FF0000), kSuccess) << "no functions included";
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x1F), kSuccess) << "nothing has changed";
    drive->smart().media_errors = 1;
    drive->settings().temperature = 40;
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x1F), kSuccess) << "the same in whole degrees";
    drive->settings().temperature = 70;
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x0D), kSuccess) << "neither of these";
    EXPECT_EQ(manage(0x02, 0x01000002, 0x80000002),
              "00 00 00 01 02 00 01 00 57 01 02 63 02 00 00 00 00 00 00 00")
        << "and clears them";
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x10).substr(0, 14), "00 00 00 02 01");
    EXPECT_EQ(manage(0x02, 0x01FF0002, 0x10).substr(0, 14), "00 00 00 01 07");
}

// ---- Data structures ----

using NvmeStructures = NvmeTest;

std::string zeros(size_t count) {
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        out += " 00";
    }
    return out;
}

TEST_F(NvmeStructures, PortSaysWhichAddressTheDriveHas) {
    std::string file = drive_with("");
    file.replace(file.find("0x3a"), 4, "0x50");
    open(file);
    address = 0x50;
    EXPECT_EQ(manage(0x00, 0x01010000),
              "00 20 00 00 02 00 fa 00 00 00 00 00 a6 03 50 03" + zeros(20));
}

TEST_F(NvmeStructures, SubsystemAndPorts) {
    open_drive();
    EXPECT_EQ(manage(0x00, 0x00000000), "00 20 00 00 01 01 02" + zeros(29));
    EXPECT_EQ(manage(0x00, 0x01000000),
              "00 20 00 00 01 00 40 00 00 00 00 00 01 0f 04 04 04" + zeros(19));
    EXPECT_EQ(manage(0x00, 0x01010000),
              "00 20 00 00 02 00 fa 00 00 00 00 00 a6 03 3a 03" + zeros(20));
    EXPECT_EQ(manage(0x00, 0x01020000), "04 00 0a 00");
    EXPECT_EQ(manage(0x00, 0x05000000), "04 00 0b 00");
}

TEST_F(NvmeStructures, Controllers) {
    open_drive(R"("controllers": [{"id": 513}, {"id": 2, "port": 1}],
        "vendor_id": "0x1122", "subsystem_vendor_id": "0x3344", "device_id": "0x5566")");
    EXPECT_EQ(manage(0x00, 0x02000000), "00 06 00 00 02 00 02 00 01 02");
    EXPECT_EQ(manage(0x00, 0x02000003), "00 04 00 00 01 00 01 02");
    EXPECT_EQ(manage(0x00, 0x02000202), "00 02 00 00 00 00");
    EXPECT_EQ(manage(0x00, 0x03000002),
              "00 20 00 00 01" + zeros(7) + " 22 11 66 55 44 33 66 55" + zeros(16));
    EXPECT_EQ(manage(0x00, 0x03000003), "04 00 08 00");
}

TEST_F(NvmeStructures, OptionalCommandsAreThere) {
    open_drive();
    const std::vector<uint8_t> answer = bytes(manage(0x00, 0x04000000));
    ASSERT_EQ(answer.size(), 4 + 2 + 9 * 2u);
    EXPECT_EQ(hex({answer.begin(), answer.begin() + 8}), "00 14 00 00 09 00 08 06");
    for (size_t at = 8; at < answer.size(); at += 2) {
        EXPECT_EQ(answer[at], 0x10);
        EXPECT_NE(admin({.opcode = answer[at + 1], .id = 1, .dword10 = 0xFF}), failed(0, 0x01));
    }
}

// ---- VPD and reset ----

using NvmeVpd = NvmeTest;

TEST_F(NvmeVpd, IsReadAndWritten) {
    open_drive(R"("vpd": "0102030405", "vpd_size": 512)");
    EXPECT_EQ(manage(0x05, 1, 6), kSuccess + " 02 03 04 05 ff ff");
    EXPECT_EQ(manage(0x05, 512, 1), "04 00 08 00");
    EXPECT_EQ(manage(0x05, 510, 3), "04 00 0c 00");
    EXPECT_EQ(manage(0x05, 0, 0), kSuccess);
    EXPECT_EQ(manage(0x06, 2, 3, "aabbcc"), kSuccess);
    EXPECT_EQ(manage(0x05, 0, 6), kSuccess + " 01 02 aa bb cc ff");
    EXPECT_EQ(manage(0x06, 2, 4, "aabbcc"), "06 00 00 00");
    EXPECT_EQ(manage(0x06, 2, 2, "aabbcc"), "06 00 00 00");
    EXPECT_EQ(manage(0x06, 512, 1, "aa"), "04 00 08 00");
    EXPECT_EQ(manage(0x06, 511, 2, "aabb"), "04 00 0c 00");
    EXPECT_EQ(hex({drive->vpd().begin() + 509, drive->vpd().end()}), "ff ff ff");
    std::string all;
    for (int i = 0; i < 256; ++i) {
        all += "5a";
    }
    EXPECT_EQ(manage(0x06, 256, 256, all), kSuccess);
    EXPECT_EQ(manage(0x05, 511, 1), kSuccess + " 5a");
}

TEST_F(NvmeVpd, WritesCanRunOut) {
    open_drive(R"("vpd_writes": 1)");
    EXPECT_EQ(drive->vpd().size(), 256u);
    EXPECT_EQ(manage(0x06, 0, 1, "01"), kSuccess);
    EXPECT_EQ(manage(0x06, 0, 1, "02"), "20 00 00 00");
    EXPECT_EQ(manage(0x05, 0, 1), kSuccess + " 01");
}

using NvmeReset = NvmeTest;

TEST_F(NvmeReset, IsNotAnswered) {
    open_drive();
    manage(0x01, 0, kClear);
    EXPECT_EQ(manage(0x07), kSilence);
    EXPECT_EQ(drive->resets(), 1u);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 11 01 00 00");
    EXPECT_EQ(manage(0x02, kAllFunctions).substr(18, 2), "11") << "subsystem reset occurred";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 01 00 00 00");
    EXPECT_EQ(drive->resets(), 1u);
}

}  // namespace
