// SPDX-License-Identifier: Apache-2.0
// The NVMe drive's admin tunnel: requests and their parameters, lockdown, vendors' commands
// (NVMe-MI).
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

// ---- Requests ----

using NvmeTunnel = NvmeAdmin;

TEST_F(NvmeTunnel, RecordedRequestsAreAnswered) {
    open_drive();
    // Identify Controller, as an independent tool puts it.
    send_message(
        bytes("84 100000 06 01 0000 0000000000000000000000000000000000000000 00000000"
              "00100000 0000000000000000 01000000 0000000000000000000000000000000000000000"
              "d974b569"));
    const std::vector<uint8_t> answer = bytes(checked(receive_message()));
    ASSERT_EQ(answer.size(), 19 + 4096u);
    EXPECT_EQ(text(answer, 19 + 4, 20), "SIM0000000001       ");
    EXPECT_EQ(drive->bad_checks() + drive->malformed(), 0u);
}

TEST_F(NvmeTunnel, ShortRequestsAreAnsweredOrDropped) {
    open_drive();
    const Bytes body = encode({.opcode = 0x06, .dword10 = 1, .length = 16});
    ASSERT_EQ(body.size(), 67u);
    for (size_t length = 0; length < body.size(); ++length) {
        EXPECT_EQ(ask(Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(length))),
                  length < 4 ? kSilence : "90 00 00 05 00 00 00")
            << length;
    }
}

TEST_F(NvmeTunnel, EveryByteOfARequestMayBeAnything) {
    open_drive();
    for (const uint8_t opcode : bytes("02 06 09 0a 0d 10 11 15 24 80 84 c2")) {
        for (size_t at = 4; at < 67; ++at) {
            for (const uint8_t value : bytes("01 7f 80 ff")) {
                Bytes body = encode({.opcode = opcode, .id = 1, .dword10 = 1, .length = 8});
                body[at] = value;
                const std::string answer = ask(body);
                ASSERT_TRUE(answer.starts_with("90 00 00 0")) << answer;
            }
        }
    }
}

TEST_F(NvmeTunnel, InvalidParametersAreLocated) {
    open_drive();
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .controller = 1}), "04 00 06 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .offset = 2}), "04 00 1c 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 6}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4100}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 8, .offset = 4092}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .offset = 4100}), "04 00 1c 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .data = Bytes(4)}), "06 00 00 00")
        << "takes no data";
    Bytes body = encode({.opcode = 0x11, .data = Bytes(8)});
    body.pop_back();
    EXPECT_EQ(ask(body), "90 00 00 06 00 00 00") << "less data than announced";
    EXPECT_EQ(admin({.opcode = 0xFF}), failed(0, 0x01));
    EXPECT_EQ(admin({.opcode = 0x00}), failed(0, 0x01));
    EXPECT_EQ(admin({.opcode = 0x81, .data = Bytes(512)}), failed(0, 0x01))
        << "Security Send: with data it is as unknown as without";
}

TEST_F(NvmeTunnel, PartsOfWhatIsRead) {
    open_drive(R"("serial": "ABCDEFGH")");
    const Bytes part = read_by({.opcode = 0x06, .dword10 = 1, .length = 20, .offset = 4});
    EXPECT_EQ(text(part, 0, 20), "ABCDEFGH            ");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1}), ended(0)) << "nothing asked for";
}

// ---- Lockdown ----

class NvmeLockdown : public NvmeAdmin {
protected:
    std::string lockdown(uint32_t scope, bool prohibit, uint8_t id, uint32_t interface = 2) {
        return admin({.opcode = 0x24,
                      .dword10 = static_cast<uint32_t>(id) << 8 | interface << 5 |
                                 (prohibit ? 1u << 4 : 0) | scope});
    }
    const std::string prohibited = failed(0, 0x23);
};

TEST_F(NvmeLockdown, ProhibitsAndAllows) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x80), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), prohibited);
    EXPECT_EQ(lockdown(0, false, 0x80, 1), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(lockdown(2, true, 0x04), ended(0));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), prohibited);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x05}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x04}).substr(0, 2), "00") << "it may be read";
    EXPECT_EQ(lockdown(3, true, 0x07), ended(0));
    EXPECT_EQ(manage(0x07), "07 00 00 00");
    EXPECT_EQ(drive->resets(), 0u);
    EXPECT_EQ(lockdown(3, false, 0x07), ended(0));
    manage(0x07);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), prohibited) << "it outlasts a reset";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), ended(0)) << "but no loss of power";
}

TEST_F(NvmeLockdown, WhatBindsTheHostDoesNotBindTheTunnel) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x80, 0), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
}

TEST_F(NvmeLockdown, WrongRequests) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x24), failed(1, 0x28)) << "itself";
    EXPECT_EQ(lockdown(0, true, 0xF0), failed(1, 0x28)) << "an unknown command";
    EXPECT_EQ(lockdown(2, true, 0xF0), failed(1, 0x28));
    EXPECT_EQ(lockdown(3, true, 0x08), failed(1, 0x28));
    EXPECT_EQ(lockdown(1, true, 0x80), failed(0, 0x02)) << "no scope";
    EXPECT_EQ(lockdown(0, true, 0x80, 3), failed(0, 0x02)) << "no interface";
    EXPECT_EQ(admin({.opcode = 0x24, .dword10 = 0x8050, .dword14 = 1}), failed(0, 0x02));
}

// ---- Vendors' commands ----

using NvmeVendor = NvmeAdmin;

TEST_F(NvmeVendor, PassthroughOfIdentifyAndLogPages) {
    open_drive(R"("serial": "PASS")");
    const Bytes controller =
        read_by({.opcode = 0xC2, .dword10 = 1, .length = 4096, .dword9 = 4096});
    EXPECT_EQ(controller, identify(1));
    const Bytes page = read_by({.opcode = 0xC2,
                                .dword10 = 0x007F0002,
                                .length = 512,
                                .dword9 = 512,
                                .dword15 = 0xFFFFFFFF});
    EXPECT_EQ(page, log(0x02, 512));
    EXPECT_EQ(
        admin({.opcode = 0xC2, .dword10 = 0x007F0002, .length = 512, .dword9 = 512, .dword15 = 99}),
        failed(0, 0x0B))
        << "the namespace is in dword 15";
    EXPECT_EQ(admin({.opcode = 0xC2, .dword10 = 1, .length = 512}), failed(0, 0x02))
        << "the length is in dword 9 too";
    EXPECT_EQ(admin({.opcode = 0x24, .dword10 = 0x0650}), ended(0));
    EXPECT_EQ(admin({.opcode = 0xC2, .dword10 = 1, .length = 8, .dword9 = 8}), failed(0, 0x23));
}

TEST_F(NvmeVendor, CommandsOfTheBoardFile) {
    open_drive(R"("vendor_commands": [{"opcode": "0xd0", "data": "0102030405"}])");
    EXPECT_EQ(hex(read_by({.opcode = 0xD0, .length = 8})), "01 02 03 04 05 00 00 00");
    EXPECT_EQ(read_by({.opcode = 0xD0, .length = 4096}).size(), 4096u);
    EXPECT_EQ(admin({.opcode = 0xD1, .length = 8}), failed(0, 0x01));
    drive->settings().vendor[0xD1] = Bytes(4);
    EXPECT_EQ(read_by({.opcode = 0xD1, .length = 8}), Bytes(8));
}

}  // namespace
