// SPDX-License-Identifier: Apache-2.0
// Asks the kernel which MCTP endpoints it has a way to.
#include "platform/linux/kernel_network.h"

#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/descriptor.h"
#include "platform/linux/mctp_socket.h"

namespace machine {

namespace {

using Progress = NetworkTables::Progress;

/// The kernel fills datagrams of 32 KiB at most.
constexpr size_t kDatagramSize = 65536;
constexpr timeval kPatience{.tv_sec = 5, .tv_usec = 0};
/// Datagrams of one answer; a machine with more entries than the tables hold needs no more.
constexpr int kMostDatagrams = 4096;

struct Question {
    uint16_t type;
    uint8_t family;
    size_t size;  ///< of the header that belongs to the type; its first byte is the family
};

constexpr std::array<Question, 4> kQuestions{{
    {RTM_GETLINK, AF_UNSPEC, sizeof(ifinfomsg)},
    {RTM_GETADDR, AF_MCTP, sizeof(ifaddrmsg)},
    {RTM_GETROUTE, AF_MCTP, sizeof(rtmsg)},
    {RTM_GETNEIGH, AF_MCTP, sizeof(ndmsg)},
}};

bool send(int socket, const Question& question, uint32_t sequence) {
    std::array<uint8_t, sizeof(nlmsghdr) + 16> message{};
    static_assert(sizeof(ifinfomsg) <= 16 && sizeof(rtmsg) <= 16 && sizeof(ndmsg) <= 16);
    const size_t length = sizeof(nlmsghdr) + question.size;
    const nlmsghdr head{.nlmsg_len = static_cast<uint32_t>(length),
                        .nlmsg_type = question.type,
                        .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP,
                        .nlmsg_seq = sequence,
                        .nlmsg_pid = 0};
    std::memcpy(message.data(), &head, sizeof head);
    message[sizeof head] = question.family;
    return ::send(socket, message.data(), length, 0) == static_cast<ssize_t>(length);
}

/// One datagram of the kernel's own; 0 where none comes, with errno set.
size_t receive(int socket, std::vector<uint8_t>& buffer) {
    for (;;) {
        sockaddr_nl from{};
        socklen_t length = sizeof from;
        const ssize_t got = recvfrom(socket, buffer.data(), buffer.size(), MSG_TRUNC,
                                     reinterpret_cast<sockaddr*>(&from), &length);
        if (got < 0) {
            return 0;
        }
        if (static_cast<size_t>(got) > buffer.size()) {
            errno = EMSGSIZE;
            return 0;
        }
        if (got > 0 && length >= sizeof from && from.nl_pid == 0) {
            return static_cast<size_t>(got);
        }
    }
}

/// @return why there is no answer; empty where there is
std::string ask(int socket, const Question& question, uint32_t sequence, NetworkTables& tables) {
    if (!send(socket, question, sequence)) {
        return std::strerror(errno);
    }
    std::vector<uint8_t> buffer(kDatagramSize);
    for (int datagrams = 0; datagrams < kMostDatagrams; ++datagrams) {
        const size_t length = receive(socket, buffer);
        if (length == 0) {
            return std::strerror(errno == EAGAIN ? ETIMEDOUT : errno);
        }
        switch (tables.read(std::span(buffer).first(length), sequence)) {
            case Progress::kMore:
                break;
            case Progress::kDone:
                return {};
            case Progress::kRefused:
                return std::strerror(tables.error());
            case Progress::kMalformed:
                return "a malformed answer";
        }
    }
    return "the answer has no end";
}

}  // namespace

std::optional<std::vector<Reachable>> ask_kernel(std::string& error) {
    // Without MCTP, the kernel would tell of the routes of other families.
    error = mctp_objection();
    if (!error.empty()) {
        return std::nullopt;
    }
    const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!socket ||
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience) != 0) {
        error = std::string("rtnetlink: ") + std::strerror(errno);
        return std::nullopt;
    }
    NetworkTables tables;
    uint32_t sequence = 0;
    for (const Question& question : kQuestions) {
        const std::string failed = ask(socket.get(), question, ++sequence, tables);
        if (!failed.empty()) {
            error = "rtnetlink: " + failed;
            return std::nullopt;
        }
    }
    if (tables.full()) {
        error = "rtnetlink: more than " + std::to_string(NetworkTables::kMostEntries) +
                " interfaces, addresses or routes";
        return std::nullopt;
    }
    return tables.reachable();
}

}  // namespace machine
