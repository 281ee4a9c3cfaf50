// SPDX-License-Identifier: Apache-2.0
// Namespaces of a drive: created, attached, detached, formatted, deleted.
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

class NvmeSpaces : public NvmeAdmin {
protected:
    static Bytes properties(uint64_t blocks, uint8_t format) {
        Bytes data(4096);
        sim::put_le(data, 0, blocks, 8);
        sim::put_le(data, 8, blocks, 8);
        data[26] = format;
        return data;
    }
    std::string create(const Bytes& data) { return admin({.opcode = 0x0D, .data = data}); }
    std::string remove(uint32_t id) { return admin({.opcode = 0x0D, .id = id, .dword10 = 1}); }
    std::string attach(uint32_t id, uint32_t select, const std::string& list = "") {
        Bytes data = bytes(list);
        data.resize(list.empty() ? 0 : 4096);
        return admin({.opcode = 0x15, .id = id, .dword10 = select, .data = data});
    }
};

TEST_F(NvmeSpaces, CreateAttachDetachDelete) {
    open_drive(R"("capacity": 1048576, "most_namespaces": 3,
        "namespaces": [{"id": 2, "blocks": 1024}])");
    EXPECT_EQ(create(properties(64, 1)), ended(0, 1));
    EXPECT_EQ(list(identify(2)), std::vector<uint32_t>{2}) << "not attached yet";
    EXPECT_EQ(manage(0x01, 0, 0x80000000).substr(24, 2), "01");
    EXPECT_EQ(attach(1, 0), ended(0)) << "without a list: to this controller";
    EXPECT_EQ(manage(0x01).substr(24, 5), "40 01") << "namespace attribute changed";
    EXPECT_EQ(list(identify(2)), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(sim::le64(identify(0, 1), 48), 262144u);
    EXPECT_EQ(sim::le64(identify(1), 296), 262144u) << "left";
    EXPECT_EQ(attach(1, 0), failed(1, 0x18));
    EXPECT_EQ(create(properties(513, 0)), failed(1, 0x15));
    EXPECT_EQ(create(properties(512, 0)), ended(0, 3));
    EXPECT_EQ(drive->namespaces().unallocated(), 0u);
    EXPECT_EQ(attach(1, 1), ended(0));
    EXPECT_EQ(attach(1, 1), failed(1, 0x1A));
    EXPECT_EQ(remove(1), ended(0));
    EXPECT_EQ(remove(1), failed(0, 0x02));
    EXPECT_EQ(remove(4), failed(0, 0x0B));
    EXPECT_EQ(create(properties(1, 0)), ended(0, 1));
    EXPECT_EQ(create(properties(1, 0)), failed(1, 0x16)) << "three at most";
    EXPECT_EQ(remove(0xFFFFFFFF), ended(0));
    EXPECT_TRUE(drive->namespaces().all().empty());
    EXPECT_EQ(admin({.opcode = 0x0D, .dword10 = 2}), failed(0, 0x02));
}

TEST_F(NvmeSpaces, ControllerLists) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}], "namespaces": [])");
    Bytes shared = properties(8, 0);
    shared[30] = 1;
    EXPECT_EQ(create(shared), ended(0, 1));
    EXPECT_EQ(attach(1, 0, "0200 0000 0100"), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->controllers, (std::set<uint16_t>{0, 1}));
    EXPECT_EQ(attach(1, 1, "0100 0100"), ended(0));
    EXPECT_EQ(attach(1, 1, "0200 0000 0100"), failed(1, 0x1A)) << "one of them is not attached";
    EXPECT_EQ(drive->namespaces().find(1)->controllers, std::set<uint16_t>{0});
    EXPECT_EQ(attach(1, 0, "0100 0200"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 0, "0000"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 0, "0008 0100"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 2, "0100 0100"), failed(0, 0x02));
    EXPECT_EQ(attach(2, 0, "0100 0100"), failed(0, 0x02));
    EXPECT_EQ(attach(0, 0, "0100 0100"), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x15, .id = 1, .data = Bytes(8)}), failed(0, 0x02));
}

TEST_F(NvmeSpaces, APrivateNamespaceHasOneController) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}], "namespaces": [])");
    EXPECT_EQ(create(properties(8, 0)), ended(0, 1));
    EXPECT_EQ(attach(1, 0, "0200 0000 0100"), failed(1, 0x19)) << "both at once";
    EXPECT_TRUE(drive->namespaces().find(1)->controllers.empty());
    EXPECT_EQ(attach(1, 0, "0100 0100"), ended(0));
    EXPECT_EQ(attach(1, 0, "0100 0000"), failed(1, 0x19));
    EXPECT_EQ(drive->namespaces().find(1)->controllers, std::set<uint16_t>{1});
    EXPECT_EQ(attach(1, 1, "0100 0100"), ended(0));
    EXPECT_EQ(attach(1, 0, "0100 0000"), ended(0)) << "free again";
}

TEST_F(NvmeSpaces, WrongProperties) {
    open_drive(R"("namespaces": [])");
    EXPECT_EQ(create(properties(0, 0)), failed(0, 0x02));
    EXPECT_EQ(create(properties(8, 2)), failed(1, 0x0A));
    EXPECT_EQ(create(properties(~0ull, 1)), failed(1, 0x15));
    Bytes thin = properties(8, 0);
    thin[8] = 7;
    EXPECT_EQ(create(thin), failed(1, 0x1B)) << "thin provisioning";
    thin[8] = 9;
    EXPECT_EQ(create(thin), failed(0, 0x02)) << "more than its size";
    Bytes upper = properties(8, 0x21);
    EXPECT_EQ(create(upper), failed(1, 0x0A)) << "format 17, upper bits of FLBAS";
    EXPECT_EQ(create(Bytes(64)), failed(0, 0x02));
    Bytes body = encode({.opcode = 0x0D, .data = properties(8, 0)});
    body[4] = 0;
    EXPECT_EQ(ask(body).substr(9, 23), "00 00 00 00 01 00 00 00") << "length not marked valid";
}

TEST_F(NvmeSpaces, Format) {
    open_drive(R"("namespaces": [{"id": 1, "blocks": 80, "used": 5},
        {"id": 2, "blocks": 80, "used": 6}])");
    auto format = [this](uint32_t id, uint32_t settings) {
        return admin({.opcode = 0x80, .id = id, .dword10 = settings});
    };
    EXPECT_EQ(format(1, 0x201), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->blocks, 10u);
    EXPECT_EQ(drive->namespaces().find(1)->used, 0u);
    EXPECT_EQ(drive->namespaces().find(2)->used, 6u);
    EXPECT_EQ(identify(0, 1)[26], 1);
    EXPECT_EQ(format(1, 2), failed(1, 0x0A));
    EXPECT_EQ(format(1, 0x1001), failed(1, 0x0A)) << "format 17";
    EXPECT_EQ(format(1, 0x2000), failed(1, 0x0A)) << "format 32";
    EXPECT_EQ(format(1, 0x20), failed(1, 0x0A)) << "protection information";
    EXPECT_EQ(format(1, 0x600), failed(0, 0x02)) << "secure erase";
    EXPECT_EQ(format(3, 0), failed(0, 0x02));
    EXPECT_EQ(format(0, 0), failed(0, 0x0B));
    EXPECT_EQ(format(0xFFFFFFFF, 0), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->blocks, 80u);
    EXPECT_EQ(drive->namespaces().find(2)->used, 0u);
}

// What is refused for the data that it asks for has not been done before.
TEST_F(NvmeSpaces, ACommandWithoutDataThatAsksForSomeIsNotCarriedOut) {
    open_drive(R"("namespaces": [{"id": 1, "blocks": 80, "used": 5}])");
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1, .dword10 = 1, .length = 4}), "04 00 20 00");
    EXPECT_EQ(drive->namespaces().find(1)->blocks, 80u);
    EXPECT_EQ(drive->namespaces().find(1)->used, 5u);
    EXPECT_EQ(admin({.opcode = 0x84, .dword10 = 2, .length = 4}), "04 00 20 00") << "Sanitize";
    EXPECT_EQ(log(0x81, 512)[2] & 7, 0) << "none was begun";
    EXPECT_EQ(admin({.opcode = 0x10, .dword10 = 2 << 3 | 1, .length = 4}), "04 00 20 00");
    EXPECT_EQ(drive->firmware().next(), 0);
    EXPECT_EQ(admin({.opcode = 0x24, .dword10 = 0x8010, .length = 4}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0)) << "not locked";
}

}  // namespace
