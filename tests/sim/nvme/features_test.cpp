// SPDX-License-Identifier: Apache-2.0
// Features through the admin tunnel: values, data, what can be done to them (NVMe, Get and Set
// Features).
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

using NvmeFeatures = NvmeAdmin;

TEST_F(NvmeFeatures, CurrentDefaultAndSaved) {
    open_drive(R"("features": [{"id": 4, "value": 343}, {"id": 7, "value": 9, "changeable": false},
        {"id": 8, "saveable": false}])");
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x304}), ended(0, 5)) << "what can be done to it";
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x307}), ended(0, 0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x308}), ended(0, 4));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04, .dword11 = 350}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x004}), ended(0, 350));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x104}), ended(0, 343));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x204}), ended(0, 343)) << "nothing saved";
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x80000004, .dword11 = 360}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04, .dword11 = 1}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x204}), ended(0, 360));
    manage(0x07);
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x004}), ended(0, 360)) << "after a reset";
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x07, .dword11 = 1}), failed(1, 0x0E));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x80000008}), failed(1, 0x0D));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x404}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x005}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x005}), failed(0, 0x02));
    EXPECT_EQ(drive->feature(4)->current.value, 360u);
    EXPECT_EQ(drive->feature(5), nullptr);
}

TEST_F(NvmeFeatures, Data) {
    open_drive(R"("features": [{"id": 14, "data": "0102030405060708"}])");
    EXPECT_EQ(hex(read_by({.opcode = 0x0A, .dword10 = 14, .length = 8})),
              "01 02 03 04 05 06 07 08");
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 14, .data = bytes("1111111122222222")}), ended(0));
    EXPECT_EQ(hex(read_by({.opcode = 0x0A, .dword10 = 14, .length = 4, .offset = 4})),
              "22 22 22 22");
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 14, .data = Bytes(4)}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 14, .length = 12}), "04 00 20 00");
}

TEST_F(NvmeFeatures, UsualOnesAreThere) {
    open_drive();
    for (const uint32_t id : {0x01, 0x02, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x0E, 0x81}) {
        EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = id}).substr(0, 2), "00") << id;
    }
}

}  // namespace
