// SPDX-License-Identifier: Apache-2.0
// What the kernel answers about its MCTP network: good answers, and every way to spoil them.
#include "platform/linux/netlink.h"

#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>

#include "fake_kernel.h"
#include "platform/linux/kernel_network.h"

namespace {

using machine::NetworkTables;
using machine::Reachable;
using machine_test::Bytes;
using machine_test::FakeKernel;
using Progress = NetworkTables::Progress;

constexpr uint32_t kSequence = 7;

template <typename Record>
void append(Bytes& out, const Record& record) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
    out.insert(out.end(), bytes, bytes + sizeof record);
}

void pad(Bytes& out) {
    out.resize((out.size() + 3) / 4 * 4);
}

Bytes attribute(uint16_t type, const Bytes& value) {
    Bytes out;
    append(out, rtattr{.rta_len = static_cast<uint16_t>(sizeof(rtattr) + value.size()),
                       .rta_type = type});
    out.insert(out.end(), value.begin(), value.end());
    pad(out);
    return out;
}

template <typename Value>
Bytes attribute_of(uint16_t type, const Value& value) {
    Bytes bytes;
    append(bytes, value);
    return attribute(type, bytes);
}

template <typename Head>
Bytes message(uint16_t type, const Head& head, const std::vector<Bytes>& attributes,
              uint32_t sequence = kSequence) {
    Bytes body;
    append(body, head);
    pad(body);
    for (const Bytes& each : attributes) {
        body.insert(body.end(), each.begin(), each.end());
    }
    Bytes out;
    append(out, nlmsghdr{.nlmsg_len = static_cast<uint32_t>(sizeof(nlmsghdr) + body.size()),
                         .nlmsg_type = type,
                         .nlmsg_flags = NLM_F_MULTI,
                         .nlmsg_seq = sequence,
                         .nlmsg_pid = 0});
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

Bytes link(int index, uint32_t net, uint32_t sequence = kSequence) {
    ifinfomsg head{};
    head.ifi_type = 290;
    head.ifi_index = index;
    const Bytes mctp = attribute(AF_MCTP, attribute_of(1, net));
    return message(
        RTM_NEWLINK, head,
        {attribute(IFLA_IFNAME, {'m', '0', 0}), attribute(IFLA_AF_SPEC | NLA_F_NESTED, mctp)},
        sequence);
}

Bytes address(unsigned index, uint8_t eid, uint32_t sequence = kSequence) {
    ifaddrmsg head{};
    head.ifa_family = AF_MCTP;
    head.ifa_index = index;
    return message(RTM_NEWADDR, head, {attribute(IFA_LOCAL, {eid})}, sequence);
}

Bytes route(int index, uint8_t first, uint8_t extent, uint8_t type = RTN_UNICAST,
            uint32_t sequence = kSequence) {
    rtmsg head{};
    head.rtm_family = AF_MCTP;
    head.rtm_dst_len = extent;
    head.rtm_type = type;
    return message(RTM_NEWROUTE, head, {attribute(RTA_DST, {first}), attribute_of(RTA_OIF, index)},
                   sequence);
}

Bytes neighbour(int index, uint8_t eid, uint32_t sequence = kSequence) {
    ndmsg head{};
    head.ndm_family = AF_MCTP;
    head.ndm_ifindex = index;
    return message(RTM_NEWNEIGH, head, {attribute(NDA_DST, {eid}), attribute(NDA_LLADDR, {0x1D})},
                   sequence);
}

Bytes done(uint32_t sequence = kSequence) {
    return message(NLMSG_DONE, int32_t{0}, {}, sequence);
}

Bytes together(const std::vector<Bytes>& messages) {
    Bytes all;
    for (const Bytes& each : messages) {
        all.insert(all.end(), each.begin(), each.end());
    }
    return all;
}

using List = std::vector<Reachable>;

List reachable_by(const std::vector<Bytes>& messages) {
    NetworkTables tables;
    EXPECT_EQ(tables.read(together(messages), kSequence), Progress::kMore);
    return tables.reachable();
}

TEST(Netlink, RoutesLeadToEndpoints) {
    EXPECT_EQ(reachable_by({link(3, 1), route(3, 9, 0), route(3, 20, 2)}),
              (List{{1, 9}, {1, 20}, {1, 21}, {1, 22}}));
}

TEST(Netlink, NeighboursAreEndpoints) {
    EXPECT_EQ(reachable_by({link(3, 5), neighbour(3, 30)}), (List{{5, 30}}));
}

TEST(Netlink, EachNetworkHasItsOwnEids) {
    EXPECT_EQ(reachable_by({route(4, 9, 0), route(3, 9, 0), link(3, 1), link(4, 2)}),
              (List{{1, 9}, {2, 9}}));
}

TEST(Netlink, TheMachineItselfIsNone) {
    EXPECT_EQ(reachable_by({link(3, 1), address(3, 8), route(3, 8, 0, RTN_LOCAL), route(3, 8, 1),
                            neighbour(3, 8)}),
              (List{{1, 9}}));
}

TEST(Netlink, AnEndpointIsToldOnce) {
    EXPECT_EQ(reachable_by({link(3, 1), route(3, 9, 2), route(3, 10, 0), neighbour(3, 11)}),
              (List{{1, 9}, {1, 10}, {1, 11}}));
}

TEST(Netlink, ReservedEidsAreNone) {
    List all;
    for (int eid = 8; eid <= 254; ++eid) {
        all.push_back({1, static_cast<uint8_t>(eid)});
    }
    EXPECT_EQ(reachable_by({link(3, 1), route(3, 0, 255)}), all);
    EXPECT_EQ(reachable_by({link(3, 1), route(3, 250, 255)}),
              (List{{1, 250}, {1, 251}, {1, 252}, {1, 253}, {1, 254}}));
}

TEST(Netlink, AGatewayNamesItsNetwork) {
    rtmsg head{};
    head.rtm_family = AF_MCTP;
    head.rtm_dst_len = 1;
    head.rtm_type = RTN_UNICAST;
    const Bytes behind_bridge =
        message(RTM_NEWROUTE, head,
                {attribute(RTA_DST, {40}), attribute(RTA_GATEWAY, {6, 0, 0, 0, 9, 0, 0, 0})});
    EXPECT_EQ(reachable_by({behind_bridge}), (List{{6, 40}, {6, 41}}));
}

TEST(Netlink, WhatIsNotMctpIsPassedOver) {
    rtmsg inet{};
    inet.rtm_family = AF_INET;
    inet.rtm_type = RTN_UNICAST;
    EXPECT_EQ(reachable_by({link(3, 1), route(9, 9, 0), route(3, 9, 0, RTN_BLACKHOLE),
                            message(RTM_NEWROUTE, inet,
                                    {attribute(RTA_DST, {10, 0, 0, 1}), attribute_of(RTA_OIF, 3)}),
                            message(NLMSG_NOOP, int32_t{0}, {}), message(999, int32_t{0}, {})}),
              List{});
}

TEST(Netlink, AnswersToOtherQuestionsArePassedOver) {
    NetworkTables tables;
    EXPECT_EQ(tables.read(together({link(3, 1), route(3, 9, 0, RTN_UNICAST, kSequence + 1),
                                    done(kSequence + 1)}),
                          kSequence),
              Progress::kMore);
    EXPECT_EQ(tables.reachable(), List{});
}

TEST(Netlink, AnAnswerEndsWithDoneOrAnError) {
    NetworkTables tables;
    EXPECT_EQ(tables.read(together({link(3, 1), done()}), kSequence), Progress::kDone);
    EXPECT_EQ(tables.read(message(NLMSG_ERROR, int32_t{-1}, {}), kSequence), Progress::kRefused);
    EXPECT_EQ(tables.error(), 1);
    EXPECT_EQ(tables.read(message(NLMSG_ERROR, INT32_MIN, {}), kSequence), Progress::kRefused);
    EXPECT_EQ(tables.read(message(NLMSG_ERROR, int32_t{0}, {}), kSequence), Progress::kDone);
    EXPECT_EQ(tables.read(message(NLMSG_ERROR, int32_t{1}, {}), kSequence), Progress::kMalformed);
    EXPECT_EQ(tables.read(Bytes{}, kSequence), Progress::kMalformed);
}

// What a dump came to is in its last message: a table that was cut is not a whole one.
TEST(Netlink, ADumpThatFailedInTheMiddleIsNotComplete) {
    NetworkTables tables;
    EXPECT_EQ(tables.read(message(NLMSG_DONE, int32_t{0}, {}), kSequence), Progress::kDone);
    EXPECT_EQ(tables.read(message(NLMSG_DONE, int32_t{-EMSGSIZE}, {}), kSequence),
              Progress::kRefused);
    EXPECT_EQ(tables.error(), EMSGSIZE);
    EXPECT_EQ(tables.read(message(NLMSG_DONE, int32_t{1}, {}), kSequence), Progress::kMalformed);
    Bytes changed = link(3, 1);
    nlmsghdr head{};
    std::memcpy(&head, changed.data(), sizeof head);
    head.nlmsg_flags |= NLM_F_DUMP_INTR;
    std::memcpy(changed.data(), &head, sizeof head);
    EXPECT_EQ(tables.read(changed, kSequence), Progress::kRefused);
    EXPECT_EQ(tables.error(), EAGAIN);
    EXPECT_EQ(tables.read(changed, kSequence + 1), Progress::kMore) << "somebody else's";
}

TEST(Netlink, ALengthThatDoesNotFitIsMalformed) {
    for (const uint32_t length : {0U, 1U, 15U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        Bytes bytes = link(3, 1);
        std::memcpy(bytes.data(), &length, sizeof length);
        NetworkTables tables;
        EXPECT_EQ(tables.read(bytes, kSequence), Progress::kMalformed) << length;
    }
}

TEST(Netlink, TheTablesHaveABound) {
    NetworkTables tables;
    for (size_t i = 0; i < NetworkTables::kMostEntries; ++i) {
        tables.read(link(static_cast<int>(i), 1), kSequence);
        tables.read(neighbour(1, 9), kSequence);
    }
    EXPECT_FALSE(tables.full());
    tables.read(link(-1, 1), kSequence);
    EXPECT_TRUE(tables.full());
    tables.read(neighbour(1, 10), kSequence);
    EXPECT_EQ(tables.reachable(), (List{{1, 9}}));
}

/// Copies, so that a sanitizer sees where the bytes end.
void read_hostile(const Bytes& bytes) {
    const Bytes copy(bytes);
    NetworkTables tables;
    tables.read(copy, kSequence);
    for (const Reachable& one : tables.reachable()) {
        EXPECT_GE(one.eid, 8);
        EXPECT_LE(one.eid, 254);
    }
}

TEST(Netlink, AnyBytesAreRead) {
    const Bytes whole = together({link(3, 1), address(3, 8), route(3, 9, 1), neighbour(3, 20),
                                  message(NLMSG_ERROR, int32_t{-1}, {}), done()});
    for (size_t length = 0; length <= whole.size(); ++length) {
        read_hostile(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
    }
    for (size_t at = 0; at < whole.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            Bytes bytes = whole;
            bytes[at] ^= static_cast<uint8_t>(1 << bit);
            read_hostile(bytes);
        }
        for (const uint8_t value : {0x00, 0x01, 0xFE, 0xFF}) {
            Bytes bytes = whole;
            bytes[at] = value;
            read_hostile(bytes);
        }
    }
}

class AskKernel : public ::testing::Test {
protected:
    void SetUp() override {
        kernel.answers[RTM_GETLINK] = {link(3, 1, 1), done(1)};
        kernel.answers[RTM_GETADDR] = {together({address(3, 8, 2), done(2)})};
        kernel.answers[RTM_GETROUTE] = {together({route(3, 9, 0, RTN_UNICAST, 3), done(3)})};
        kernel.answers[RTM_GETNEIGH] = {together({neighbour(3, 12, 4), done(4)})};
    }
    std::string failure() {
        std::string error;
        EXPECT_FALSE(machine::ask_kernel(error));
        return error;
    }
    FakeKernel kernel;
};

TEST_F(AskKernel, FindsWhoIsThere) {
    std::string error;
    const auto found = machine::ask_kernel(error);
    ASSERT_TRUE(found) << error;
    EXPECT_EQ(*found, (List{{1, 9}, {1, 12}}));
    EXPECT_EQ(kernel.questions.size(), 4U);
    EXPECT_EQ(kernel.open_sockets(), 0U);
}

TEST_F(AskKernel, WithoutMctpAsksNothing) {
    kernel.socket_errno[AF_MCTP] = EAFNOSUPPORT;
    EXPECT_EQ(failure(), "this kernel has no MCTP sockets (CONFIG_MCTP)");
    EXPECT_TRUE(kernel.questions.empty());
}

TEST_F(AskKernel, SaysWhatTheKernelRefuses) {
    kernel.answers[RTM_GETROUTE] = {message(NLMSG_ERROR, int32_t{-EPERM}, {}, 3)};
    EXPECT_EQ(failure(), "rtnetlink: Operation not permitted");
}

TEST_F(AskKernel, RefusesRubbish) {
    kernel.answers[RTM_GETNEIGH] = {Bytes(100, 0xFF)};
    EXPECT_EQ(failure(), "rtnetlink: a malformed answer");
}

/// Some messages of one kind and the end of the answer, in datagrams that a socket takes all at
/// once: two small ones and a large one.
std::vector<Bytes> answer_of(size_t count, const Bytes& each, uint32_t sequence) {
    constexpr size_t kFew = 300;
    const Bytes few = together(std::vector<Bytes>(kFew, each));
    std::vector<Bytes> rest(count - 2 * kFew, each);
    rest.push_back(done(sequence));
    return {few, few, together(rest)};
}

// A list that is not whole must not pass for one.
TEST_F(AskKernel, SaysThatThereIsMoreThanItKeeps) {
    constexpr size_t kHalf = NetworkTables::kMostEntries / 2;
    kernel.answers[RTM_GETROUTE] = answer_of(kHalf, route(3, 9, 0, RTN_UNICAST, 3), 3);
    kernel.answers[RTM_GETNEIGH] = answer_of(kHalf, neighbour(3, 12, 4), 4);
    std::string error;
    EXPECT_TRUE(machine::ask_kernel(error)) << error;
    kernel.answers[RTM_GETNEIGH] = answer_of(kHalf + 1, neighbour(3, 12, 4), 4);
    EXPECT_EQ(failure(), "rtnetlink: more than 4096 interfaces, addresses or routes");
}

TEST_F(AskKernel, DoesNotWaitForEver) {
    kernel.answers[RTM_GETADDR] = {address(3, 8, 2)};
    EXPECT_EQ(failure(), "rtnetlink: Connection timed out");
    EXPECT_EQ(kernel.open_sockets(), 0U);
}

TEST_F(AskKernel, ListensToTheKernelOnly) {
    kernel.netlink_sender = 4711;
    EXPECT_EQ(failure(), "rtnetlink: Connection timed out");
}

TEST_F(AskKernel, SaysWhyThereIsNoSocket) {
    kernel.socket_errno[AF_NETLINK] = EMFILE;
    EXPECT_EQ(failure(), "rtnetlink: Too many open files");
}

}  // namespace
