// SPDX-License-Identifier: Apache-2.0
// Identify through the admin tunnel: controller, namespaces, lists (NVMe, Identify command).
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

using NvmeIdentify = NvmeAdmin;

TEST_F(NvmeIdentify, Controller) {
    open_drive(R"("model": "Model X", "serial": "S1", "vendor_id": "0x1122",
        "subsystem_vendor_id": "0x3344", "ieee": "a1b2c3", "capacity": 1048576,
        "controllers": [{"id": 5}, {"id": 6}], "namespaces": [{"id": 2, "blocks": 1024}],
        "warning_temperature": 71, "critical_temperature": 81,
        "firmware": {"slots": ["1.25", "1.26", ""], "first_read_only": true})");
    const Bytes data = identify(1, 0, 6);
    ASSERT_EQ(data.size(), 4096u);
    EXPECT_EQ(hex({data.begin(), data.begin() + 4}), "22 11 44 33");
    EXPECT_EQ(text(data, 4, 20), "S1                  ");
    EXPECT_EQ(text(data, 24, 40), "Model X                                 ");
    EXPECT_EQ(text(data, 64, 8), "1.25    ");
    EXPECT_EQ(hex({data.begin() + 73, data.begin() + 84}), "c3 b2 a1 02 00 06 00 00 00 02 00");
    EXPECT_EQ(hex({data.begin() + 253, data.begin() + 263}), "01 00 03 0e 04 00 00 17 05 3f");
    EXPECT_EQ(sim::le16(data, 266), 344);
    EXPECT_EQ(sim::le16(data, 268), 354);
    EXPECT_EQ(sim::le64(data, 280), 1048576u);
    EXPECT_EQ(sim::le64(data, 296), 524288u);
    EXPECT_EQ(sim::le32(data, 328), 0x40000007u) << "sanitize, nothing modified behind it";
    EXPECT_EQ(hex({data.begin() + 524, data.begin() + 526}), "04 07") << "FNA, VWC";
    EXPECT_EQ(sim::le32(data, 516), 16u);
    EXPECT_EQ(text(data, 768, 34), "nqn.2014-08.org.nvmexpress:sim:S1" + std::string(1, '\0'));
}

TEST_F(NvmeIdentify, Namespaces) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}], "ieee": "a1b2c3", "namespaces": [
        {"id": 1, "blocks": 1000, "used": 7},
        {"id": 3, "blocks": 500, "format": 1, "controllers": [1]},
        {"id": 4, "blocks": 2, "controllers": []}])");
    const Bytes first = identify(0, 1);
    EXPECT_EQ(sim::le64(first, 0), 1000u);
    EXPECT_EQ(sim::le64(first, 8), 1000u);
    EXPECT_EQ(sim::le64(first, 16), 7u);
    EXPECT_EQ(hex({first.begin() + 25, first.begin() + 31}), "01 00 00 00 00 01");
    EXPECT_EQ(sim::le64(first, 48), 512000u);
    EXPECT_EQ(hex({first.begin() + 128, first.begin() + 140}),
              "00 00 09 00 00 00 0c 00 00 00 00 00");
    EXPECT_EQ(sim::le64(identify(0, 3), 0), 0u) << "not attached to this controller";
    EXPECT_EQ(sim::le64(identify(0, 3, 1), 48), 500 * 4096u);
    EXPECT_EQ(sim::le64(identify(0x11, 4), 0), 2u) << "it need not be attached";
    EXPECT_EQ(identify(0, 2), Bytes(4096)) << "there is none";
    EXPECT_EQ(identify(0, 0xFFFFFFFF)[130], 9) << "what all have in common";
    EXPECT_EQ(admin({.opcode = 0x06, .id = 17, .length = 4096}), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 0, .length = 4096}), failed(0, 0x0B));
    const Bytes names = identify(3, 1);
    EXPECT_EQ(hex({names.begin(), names.begin() + 7}), "01 08 00 00 a1 b2 c3");
    EXPECT_EQ(Bytes(names.begin() + 4, names.begin() + 12),
              Bytes(first.begin() + 120, first.begin() + 128));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 2, .dword10 = 3, .length = 4096}), failed(0, 0x02));
}

TEST_F(NvmeIdentify, Lists) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}, {"id": 258}], "namespaces": [
        {"id": 1, "blocks": 1000}, {"id": 3, "blocks": 500, "controllers": [1]}])");
    using Ids = std::vector<uint32_t>;
    EXPECT_EQ(list(identify(2)), Ids{1});
    EXPECT_EQ(list(identify(2, 0, 1)), (Ids{1, 3}));
    EXPECT_EQ(list(identify(2, 1, 1)), Ids{3}) << "above 1";
    EXPECT_EQ(list(identify(0x10)), (Ids{1, 3}));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 0xFFFFFFFE, .dword10 = 2, .length = 4096}),
              failed(0, 0x0B));
    auto head = [](const Bytes& data) { return hex({data.begin(), data.begin() + 8}); };
    EXPECT_EQ(head(identify(0x13)), "03 00 00 00 01 00 02 01");
    EXPECT_EQ(head(identify(0x00010013)), "02 00 01 00 02 01 00 00") << "from 1 on";
    EXPECT_EQ(head(identify(0x12, 3)), "01 00 01 00 00 00 00 00");
    EXPECT_EQ(head(identify(0x12, 2)), "00 00 00 00 00 00 00 00");
    EXPECT_EQ(admin({.opcode = 0x06, .id = 99, .dword10 = 0x12, .length = 8}), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 0x15, .length = 4096}), failed(0, 0x02));
}

}  // namespace
