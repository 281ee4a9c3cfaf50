// SPDX-License-Identifier: Apache-2.0
// Stands in front of libc's socket calls: a kernel with MCTP sockets, packet taps and rtnetlink of
// the test's own making.
#ifndef SIDEBAND_TESTS_LINUX_FAKE_KERNEL_H
#define SIDEBAND_TESTS_LINUX_FAKE_KERNEL_H

#include <linux/if_packet.h>
#include <linux/mctp.h>
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace machine_test {

using Bytes = std::vector<uint8_t>;

/// An MCTP message as a socket sends or receives it: the type byte is in the address.
struct MctpMessage {
    sockaddr_mctp address{};
    Bytes body;
};

sockaddr_mctp mctp_address(uint32_t net, uint8_t eid, uint8_t type, uint8_t tag);

/// While one lives, sockets of AF_MCTP, AF_PACKET and AF_NETLINK are its own; all others are the
/// machine's. One at a time.
class FakeKernel {
public:
    FakeKernel();
    ~FakeKernel();
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;
    static FakeKernel* current();

    std::map<int, int> socket_errno;  ///< errno of socket(), by family; AF_MCTP has none at first
    int bind_errno = 0;
    int send_errno = 0;
    bool has_rights = true;  ///< for AF_PACKET

    // MCTP.
    /// Called for each message that is sent; deliver() is how it is answered.
    std::function<void(int fd, const MctpMessage&)> on_send;
    /// Called for each message that recvmsg() has taken.
    std::function<void(int fd)> on_receive;
    std::vector<MctpMessage> sent;
    std::vector<sockaddr_mctp> bound;
    void deliver(int fd, const MctpMessage& message);
    /// To the socket that was bound last.
    void deliver_to_listener(const MctpMessage& message);

    // rtnetlink: the datagrams of an answer, by the type of the question.
    std::map<uint16_t, std::vector<Bytes>> answers;
    std::vector<Bytes> questions;
    uint32_t netlink_sender = 0;  ///< port of who answers; the kernel's is 0

    // Packet tap.
    unsigned dropped = 0;
    /// Waits until a tap is bound, and hands it a packet.
    void pass(const sockaddr_ll& from, const Bytes& packet);

    size_t open_sockets() const;

    // For the substituted calls only.
    struct Socket {
        int family = 0;
        int peer = -1;  ///< the end that the kernel writes to
        bool bound = false;
    };
    mutable std::recursive_mutex mutex;
    std::map<int, Socket> sockets;
    int listener = -1;
};

}  // namespace machine_test

#endif
