// SPDX-License-Identifier: Apache-2.0
// Log pages through the admin tunnel: SMART, errors, what is no page (NVMe, Get Log Page command).
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

using NvmeLogs = NvmeAdmin;

TEST_F(NvmeLogs, Smart) {
    open_drive(R"("temperature": {"shape": "constant", "value": 71.9}, "smart": {
        "critical_warning": 4, "available_spare": 9, "spare_threshold": 10, "percentage_used": 3,
        "data_units_read": 4294967296, "data_units_written": 2, "host_reads": 3, "host_writes": 4,
        "busy_minutes": 5, "power_cycles": 6, "power_on_hours": 7, "unsafe_shutdowns": 8,
        "media_errors": 9})");
    admin({.opcode = 0xFF});
    const Bytes page = log(0x02, 512);
    EXPECT_EQ(hex({page.begin(), page.begin() + 6}), "07 58 01 09 0a 03");
    EXPECT_EQ(sim::le64(page, 32), 4294967296u);
    for (uint64_t i = 2; i <= 9; ++i) {
        EXPECT_EQ(sim::le64(page, 16 + 16 * i), i);
    }
    EXPECT_EQ(sim::le64(page, 176), 1u) << "entries of the error log";
    EXPECT_EQ(sim::le16(page, 200), 344) << "sensor 1";
    EXPECT_EQ(log(0x02, 32, 192).size(), 32u);
    EXPECT_EQ(log(0x02, 1024).size(), 1024u) << "zeros behind its end";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(log(0x02, 512)[112], 7) << "power cycles";
}

TEST_F(NvmeLogs, Errors) {
    open_drive();
    EXPECT_EQ(log(0x01, 64), Bytes(64));
    admin({.opcode = 0x06, .id = 5, .dword10 = 0x77});
    admin({.opcode = 0x10, .dword10 = 7});
    const Bytes page = log(0x01, 192);
    EXPECT_EQ(sim::le64(page, 0), 2u);
    EXPECT_EQ(sim::le16(page, 12), 0x0106 << 1);
    EXPECT_EQ(sim::le16(page, 14), 0xFFFF);
    EXPECT_EQ(sim::le64(page, 64), 1u);
    EXPECT_EQ(sim::le16(page, 76), 0x0002 << 1);
    EXPECT_EQ(sim::le16(page, 78), 40);
    EXPECT_EQ(sim::le32(page, 88), 5u);
    EXPECT_EQ(sim::le64(page, 128), 0u);
    for (int i = 0; i < 100; ++i) {
        admin({.opcode = 0xFF});
    }
    EXPECT_EQ(sim::le64(log(0x01, 4096), 0), 102u);
    EXPECT_EQ(sim::le64(log(0x01, 64, 4032), 0), 39u) << "64 are kept";
}

TEST_F(NvmeLogs, FarBehindTheEndThereAreZeros) {
    open_drive();
    EXPECT_EQ(read_by({.opcode = 0x02,
                       .dword10 = 0xFFFF0002,
                       .length = 8,
                       .dword11 = 0xFFFF,
                       .offset = 0xFFFFFFFC}),
              Bytes(8));
}

TEST_F(NvmeLogs, WrongRequests) {
    open_drive();
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0077, .length = 64}), failed(1, 0x09));
    EXPECT_EQ(admin({.opcode = 0x02, .id = 99, .dword10 = 0x000F0002, .length = 64}),
              failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 64, .dword12 = 2}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 64, .dword12 = 516}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 68}), "04 00 20 00")
        << "more than the number of dwords";
}

}  // namespace
