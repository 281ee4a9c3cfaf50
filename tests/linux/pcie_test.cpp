// SPDX-License-Identifier: Apache-2.0
// PCIe operations of a Linux machine: what goes to the kernel's MCTP, and what comes back.
#include <chrono>
#include <cstring>
#include <thread>

#include "fake_kernel.h"
#include "machine_test.h"

namespace {

using machine_test::Bytes;
using machine_test::FakeKernel;
using machine_test::mctp_address;
using machine_test::MctpMessage;

constexpr int kSuccess = 1;
constexpr uint32_t kWaitMs = 50;
constexpr uint8_t kPeer = 9;
constexpr uint8_t kOwner = MCTP_TAG_OWNER;

class LinuxPcie : public machine_test::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        machine::Board described = board();
        described.pcie_net = 2;
        machine::use(std::move(described));
        ASSERT_EQ(libmctp_pcie_open(&session_), 0);
        ASSERT_NE(session_.handle, nullptr);
    }
    void TearDown() override {
        libmctp_pcie_close(&session_);
        EXPECT_EQ(session_.handle, nullptr);
        EXPECT_EQ(kernel.open_sockets(), 0U);
        MachineTest::TearDown();
    }

    plt_pcie_request request(uint32_t operation, const Bytes& message = {}) {
        plt_pcie_request made{};
        made.operation = operation;
        std::copy(message.begin(), message.end(), made.message);
        made.length = static_cast<uint32_t>(message.size());
        made.dest_eid = kPeer;
        made.src_eid = 8;
        made.routing = PLT_PCIE_ROUTE_BY_ID;
        made.tag = 0x55;
        made.param = kWaitMs;
        made.session = session_.handle;
        return made;
    }

    /// Has the kernel answer each request with this body, from this EID with this type.
    void answer(const Bytes& body, uint8_t eid = kPeer, uint8_t type = 1, uint8_t tag = 3) {
        kernel.on_send = [this, body, eid, type, tag](int fd, const MctpMessage& sent) {
            kernel.deliver(fd, {mctp_address(sent.address.smctp_network, eid, type, tag), body});
        };
    }

    FakeKernel kernel;
    plt_pcie_session session_{};
};

Bytes message_of(const plt_pcie_request& request) {
    return {request.message, request.message + request.length};
}

TEST_F(LinuxPcie, AnExchangeGoesToTheKernelAndBack) {
    answer({0x02, 0x11, 0x00, 0x05});
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x82, 0x02, 0x11, 0x0C});
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
    ASSERT_EQ(kernel.sent.size(), 1U);
    const sockaddr_mctp& to = kernel.sent[0].address;
    EXPECT_EQ(to.smctp_network, 2U);
    EXPECT_EQ(to.smctp_addr.s_addr, kPeer);
    EXPECT_EQ(to.smctp_type, 1);
    EXPECT_EQ(to.smctp_tag, kOwner);
    EXPECT_EQ(kernel.sent[0].body, (Bytes{0x82, 0x02, 0x11, 0x0C}));
    EXPECT_EQ(message_of(record), (Bytes{0x01, 0x02, 0x11, 0x00, 0x05}));
    EXPECT_EQ(record.src_eid, kPeer);
    EXPECT_EQ(record.dest_eid, 8U);
    EXPECT_EQ(record.tag, 0x55) << "as it was asked: the kernel has matched its own";
}

TEST_F(LinuxPcie, TheParameterNamesAnotherNetwork) {
    answer({0x00});
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
    record.param = 7U << 16 | kWaitMs;
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_EQ(kernel.sent.at(0).address.smctp_network, 7U);
}

TEST_F(LinuxPcie, ATypeWithItsIntegrityBitStaysWhole) {
    answer({0xAA}, kPeer, 0x84);
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x84, 0x08});
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_EQ(kernel.sent.at(0).address.smctp_type, 0x84);
    EXPECT_EQ(message_of(record), (Bytes{0x84, 0xAA}));
}

TEST_F(LinuxPcie, WhatIsNoAnswerIsPassedOver) {
    kernel.on_send = [this](int fd, const MctpMessage&) {
        kernel.deliver(fd, {mctp_address(2, 10, 1, 3), {0x01}});
        kernel.deliver(fd, {mctp_address(2, kPeer, 2, 3), {0x02}});
        kernel.deliver(fd, {mctp_address(2, kPeer, 1, 3 | kOwner), {0x03}});
        kernel.deliver(fd, {mctp_address(2, kPeer, 1, 3), Bytes(PLT_PCIE_MESSAGE_SIZE, 0x04)});
        kernel.deliver(fd, {mctp_address(2, kPeer, 1, 3), {0x05}});
    };
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_EQ(message_of(record), (Bytes{0x01, 0x05}));
}

TEST_F(LinuxPcie, TheLargestMessagesFit) {
    const Bytes body(PLT_PCIE_MESSAGE_SIZE - 1, 0x5A);
    answer(body);
    Bytes message = body;
    message.insert(message.begin(), 1);
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, message);
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_EQ(kernel.sent.at(0).body, body);
    EXPECT_EQ(message_of(record), message);
}

TEST_F(LinuxPcie, AWaitEnds) {
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kWaitMs));
    // The tag of a request without an answer stays taken, so that a late one is nobody else's.
    EXPECT_EQ(kernel.open_sockets(), 1U);
    for (int i = 0; i < 20; ++i) {
        plt_pcie_request next = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
        next.param = 1;
        EXPECT_NE(PltMCTP_WriteRead(&next), kSuccess);
    }
    EXPECT_LE(kernel.open_sockets(), 7U);
}

// Nothing in the queue is an answer, and there is always something in it.
TEST_F(LinuxPcie, AFloodOfForeignMessagesDoesNotProlongAWait) {
    constexpr std::chrono::milliseconds kFlood{40 * kWaitMs};
    const auto begin = std::chrono::steady_clock::now();
    size_t delivered = 0;
    const auto send_foreign = [&](int fd) {
        kernel.deliver(fd, {mctp_address(2, kPeer, 2, 3), {0x02}});
        ++delivered;
    };
    kernel.on_send = [&](int fd, const MctpMessage&) { send_foreign(fd); };
    kernel.on_receive = [&](int fd) {
        if (std::chrono::steady_clock::now() - begin < kFlood) {
            send_foreign(fd);
        }
    };
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, std::chrono::milliseconds(kWaitMs));
    EXPECT_LT(took, kFlood);
    EXPECT_GT(delivered, 2U);
}

TEST_F(LinuxPcie, WhatTheKernelRefusesIsALine) {
    kernel.send_errno = EHOSTUNREACH;
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x01, 0x80});
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    kernel.socket_errno[AF_MCTP] = EAFNOSUPPORT;
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_EQ(console,
              (std::vector<std::string>{
                  "MCTP over PCIe, EID 9 of network 2: sending: No route to host",
                  "MCTP over PCIe, EID 9 of network 2: socket: this kernel has no MCTP sockets "
                  "(CONFIG_MCTP)"}));
}

TEST_F(LinuxPcie, RecordsThatMakeNoSenseAreRefused) {
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ);
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess) << "no type byte";
    record = request(PLT_PCIE_WRITE_READ, {0x01});
    record.length = PLT_PCIE_MESSAGE_SIZE + 1;
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    record = request(PLT_PCIE_WRITE, {0x01});
    record.dest_eid = 256;
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    record = request(0, {0x01});
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
    EXPECT_NE(PltMCTP_WriteRead(nullptr), kSuccess);
    EXPECT_TRUE(kernel.sent.empty());
    machine::use_none();
    record = request(PLT_PCIE_WRITE, {0x01});
    EXPECT_NE(PltMCTP_WriteRead(&record), kSuccess);
}

TEST_F(LinuxPcie, ADeviceThatIsUpdatedMayAsk) {
    answer({0x02, 0x05, 0x10, 0x00});
    // RequestUpdate: from here on requests of PLDM are received.
    plt_pcie_request update = request(PLT_PCIE_WRITE_READ, {0x01, 0x82, 0x05, 0x10});
    EXPECT_EQ(PltMCTP_WriteRead(&update), kSuccess);
    ASSERT_EQ(kernel.bound.size(), 1U);
    EXPECT_EQ(kernel.bound[0].smctp_network, 0U) << "any: one process at a time has the type";
    EXPECT_EQ(kernel.bound[0].smctp_addr.s_addr, MCTP_ADDR_ANY);
    EXPECT_EQ(kernel.bound[0].smctp_type, 1);

    kernel.on_send = nullptr;
    kernel.deliver_to_listener({mctp_address(2, kPeer, 1, 5 | kOwner), {0x81, 0x05, 0x15}});
    plt_pcie_request asked = request(PLT_PCIE_READ);
    ASSERT_EQ(PltMCTP_WriteRead(&asked), kSuccess);
    EXPECT_EQ(message_of(asked), (Bytes{0x01, 0x81, 0x05, 0x15}));
    EXPECT_EQ(asked.src_eid, kPeer);
    EXPECT_EQ(asked.dest_eid, 8U);
    EXPECT_EQ(asked.tag, 5);

    // The answer carries the addressing as it was read, and the tag.
    plt_pcie_request reply = request(PLT_PCIE_WRITE, {0x01, 0x01, 0x05, 0x15, 0x00});
    reply.src_eid = asked.src_eid;
    reply.dest_eid = asked.dest_eid;
    reply.tag = asked.tag;
    EXPECT_EQ(PltMCTP_WriteRead(&reply), kSuccess);
    const MctpMessage& sent = kernel.sent.back();
    EXPECT_EQ(sent.address.smctp_addr.s_addr, kPeer);
    EXPECT_EQ(sent.address.smctp_tag, 5) << "without the tag owner bit";
    EXPECT_EQ(sent.body, (Bytes{0x01, 0x05, 0x15, 0x00}));

    // Once: what is written behind it is a request of the BMC's own.
    reply.dest_eid = kPeer;
    EXPECT_EQ(PltMCTP_WriteRead(&reply), kSuccess);
    EXPECT_EQ(kernel.sent.back().address.smctp_tag, kOwner);
    EXPECT_EQ(kernel.bound.size(), 1U);
}

TEST_F(LinuxPcie, WhatIsAskedOnAnotherNetworkIsPassedOver) {
    answer({0x02, 0x05, 0x10, 0x00});
    plt_pcie_request update = request(PLT_PCIE_WRITE_READ, {0x01, 0x82, 0x05, 0x10});
    EXPECT_EQ(PltMCTP_WriteRead(&update), kSuccess);
    kernel.deliver_to_listener({mctp_address(3, kPeer, 1, 4 | kOwner), {0x81, 0x05, 0x16}});
    kernel.deliver_to_listener({mctp_address(2, kPeer, 1, 5 | kOwner), {0x81, 0x05, 0x15}});
    plt_pcie_request asked = request(PLT_PCIE_READ);
    ASSERT_EQ(PltMCTP_WriteRead(&asked), kSuccess);
    EXPECT_EQ(message_of(asked), (Bytes{0x01, 0x81, 0x05, 0x15}));
}

TEST_F(LinuxPcie, AnAnswerThatTheSocketHasNoRoomForIsNotHandedOver) {
    answer({0x02, 0x05, 0x10, 0x00});
    plt_pcie_request update = request(PLT_PCIE_WRITE_READ, {0x01, 0x82, 0x05, 0x10});
    EXPECT_EQ(PltMCTP_WriteRead(&update), kSuccess);
    kernel.deliver_to_listener({mctp_address(2, kPeer, 1, 5 | kOwner), {0x81, 0x05, 0x15}});
    plt_pcie_request asked = request(PLT_PCIE_READ);
    ASSERT_EQ(PltMCTP_WriteRead(&asked), kSuccess);
    const Bytes filler(4096);
    while (write(kernel.listener, filler.data(), filler.size()) > 0) {
    }
    const size_t sent = kernel.sent.size();
    plt_pcie_request reply = request(PLT_PCIE_WRITE, {0x01, 0x01, 0x05, 0x15, 0x00});
    reply.src_eid = asked.src_eid;
    reply.dest_eid = asked.dest_eid;
    reply.tag = asked.tag;
    EXPECT_NE(PltMCTP_WriteRead(&reply), kSuccess);
    EXPECT_EQ(kernel.sent.size(), sent);
    EXPECT_EQ(console.size(), 1U);
}

TEST_F(LinuxPcie, OrdinaryRequestsTakeNoTypeAway) {
    answer({0x02, 0x02, 0x11, 0x00});
    plt_pcie_request reading = request(PLT_PCIE_WRITE_READ, {0x01, 0x82, 0x02, 0x11});
    EXPECT_EQ(PltMCTP_WriteRead(&reading), kSuccess);
    EXPECT_TRUE(kernel.bound.empty());
}

TEST_F(LinuxPcie, ATypeThatAnotherProcessHasIsALine) {
    kernel.bind_errno = EADDRINUSE;
    plt_pcie_request asked = request(PLT_PCIE_READ);
    EXPECT_NE(PltMCTP_WriteRead(&asked), kSuccess);
    EXPECT_EQ(console,
              std::vector<std::string>{"MCTP over PCIe: requests of message type 1 cannot be "
                                       "received: another process has that type"});
}

TEST_F(LinuxPcie, WithoutASessionThereIsACommonOne) {
    answer({0x00});
    plt_pcie_request record = request(PLT_PCIE_WRITE_READ, {0x00, 0x80, 0x02});
    record.session = nullptr;
    answer({0x00, 0x02}, kPeer, 0);
    EXPECT_EQ(PltMCTP_WriteRead(&record), kSuccess);
}

TEST_F(LinuxPcie, SessionsOpenAndClose) {
    EXPECT_NE(libmctp_pcie_open(nullptr), 0);
    libmctp_pcie_close(nullptr);
    plt_pcie_session closed{};
    libmctp_pcie_close(&closed);
    EXPECT_EQ(closed.handle, nullptr);
}

}  // namespace
