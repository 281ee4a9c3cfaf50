// SPDX-License-Identifier: Apache-2.0
// Captures of a Linux machine: what the file holds, and why there is none.
#include "platform/linux/tap.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>

#include <cstring>

#include "fake_kernel.h"
#include "machine_test.h"

namespace {

using machine_test::Bytes;
using machine_test::FakeKernel;

sockaddr_ll from(int index, uint8_t type, const Bytes& address) {
    sockaddr_ll made{};
    made.sll_family = AF_PACKET;
    made.sll_protocol = htons(ETH_P_MCTP);
    made.sll_ifindex = index;
    made.sll_hatype = 290;
    made.sll_pkttype = type;
    made.sll_halen = static_cast<uint8_t>(address.size());
    std::copy(address.begin(), address.end(), made.sll_addr);
    return made;
}

uint32_t le32(const std::string& file, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(static_cast<uint8_t>(file.at(at + i))) << 8 * i;
    }
    return value;
}

struct Block {
    uint32_t type;
    std::string body;
};

/// The blocks of a pcapng file; one that does not fit fails the test.
std::vector<Block> blocks_of(const std::string& file) {
    std::vector<Block> blocks;
    size_t at = 0;
    while (at < file.size()) {
        const uint32_t length = le32(file, at + 4);
        EXPECT_EQ(length % 4, 0U);
        EXPECT_EQ(le32(file, at + length - 4), length);
        blocks.push_back({le32(file, at), file.substr(at + 8, length - 12)});
        at += length;
    }
    return blocks;
}

/// What an enhanced packet block carries.
std::string packet_of(const Block& block) {
    return block.body.substr(20, le32(block.body, 12));
}

class LinuxTap : public machine_test::MachineTest {
protected:
    FakeKernel kernel;
    machine::Tap tap;
    std::string error;
};

constexpr uint32_t kSection = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kPacket = 6;

TEST_F(LinuxTap, WritesWhatPasses) {
    const std::string path = folder.at("x.pcapng");
    ASSERT_TRUE(tap.start(path, error)) << error;
    kernel.pass(from(3, 4, {0x1D}), {0x01, 0x09, 0x08, 0xC8, 0x01, 0x80});
    kernel.pass(from(3, 0, {0x1D}), {0x01, 0x08, 0x09, 0xC0, 0x01, 0x00, 0x00});
    kernel.pass(from(5, 0, {}), {0x01, 0x08, 0x0A, 0xC0});
    ASSERT_TRUE(tap.stop(error)) << error;

    const std::vector<Block> blocks = blocks_of(machine_test::content_of(path));
    ASSERT_EQ(blocks.size(), 6U);
    EXPECT_EQ(blocks[0].type, kSection);
    EXPECT_EQ(blocks[1].type, kInterface);
    EXPECT_EQ(le32(blocks[1].body, 0), 276U) << "LINKTYPE_LINUX_SLL2";
    EXPECT_EQ(blocks[2].type, kPacket);
    EXPECT_EQ(packet_of(blocks[2]),
              std::string("\x00\xFA\x00\x00\x00\x00\x00\x03\x01\x22\x04\x01\x1D\x00\x00\x00\x00\x00"
                          "\x00\x00\x01\x09\x08\xC8\x01\x80",
                          26));
    EXPECT_EQ(packet_of(blocks[3]).substr(10, 2), std::string("\x00\x01", 2));
    EXPECT_EQ(blocks[4].type, kInterface);
    EXPECT_EQ(le32(blocks[5].body, 0), 1U) << "the second interface";
    EXPECT_EQ(packet_of(blocks[5]).substr(20), std::string("\x01\x08\x0A\xC0", 4));
    EXPECT_EQ(kernel.open_sockets(), 0U);
}

TEST_F(LinuxTap, KeepsUpWithMany) {
    const std::string path = folder.at("x.pcapng");
    ASSERT_TRUE(tap.start(path, error)) << error;
    for (int i = 0; i < 3000; ++i) {
        kernel.pass(from(3, 0, {0x1D}), Bytes(68, static_cast<uint8_t>(i)));
    }
    ASSERT_TRUE(tap.stop(error)) << error;
    EXPECT_EQ(blocks_of(machine_test::content_of(path)).size(), 3002U);
}

TEST_F(LinuxTap, SaysWhichRightIsMissing) {
    kernel.socket_errno[AF_PACKET] = EPERM;
    EXPECT_FALSE(tap.start(folder.at("x"), error));
    EXPECT_EQ(error, "a tap on the MCTP interfaces takes the capability CAP_NET_RAW");
    EXPECT_FALSE(std::filesystem::exists(folder.at("x"))) << "an earlier capture is kept";
}

TEST_F(LinuxTap, SaysWhyThereIsNone) {
    kernel.socket_errno[AF_PACKET] = EAFNOSUPPORT;
    EXPECT_FALSE(tap.start(folder.at("x"), error));
    EXPECT_EQ(error, "a tap on the MCTP interfaces: Address family not supported by protocol");
    kernel.socket_errno.clear();
    kernel.bind_errno = ENODEV;
    EXPECT_FALSE(tap.start(folder.at("x"), error));
    EXPECT_EQ(error, "a tap on the MCTP interfaces: No such device");
    kernel.bind_errno = 0;
    EXPECT_FALSE(tap.start(folder.at("none/x"), error));
    EXPECT_EQ(error, folder.at("none/x") + ": No such file or directory");
    EXPECT_EQ(kernel.open_sockets(), 0U);
}

TEST_F(LinuxTap, SaysWhatIsLost) {
    ASSERT_TRUE(tap.start(folder.at("x"), error)) << error;
    kernel.dropped = 3;
    EXPECT_FALSE(tap.stop(error));
    EXPECT_EQ(error, "3 packets came faster than they were written");
}

TEST_F(LinuxTap, SaysThatTheFileIsFull) {
    EXPECT_FALSE(tap.start("/dev/full", error));
    EXPECT_EQ(error, "/dev/full: No space left on device");
}

TEST_F(LinuxTap, EndsWithItsOwner) {
    {
        machine::Tap other;
        ASSERT_TRUE(other.start(folder.at("x"), error)) << error;
    }
    EXPECT_EQ(kernel.open_sockets(), 0U);
    EXPECT_TRUE(tap.stop(error)) << "one that was never begun";
}

}  // namespace
