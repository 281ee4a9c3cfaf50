// SPDX-License-Identifier: Apache-2.0
// One socket of the kernel's MCTP: messages with their type byte in front, as the platform
// interface has them.
#include "platform/linux/mctp_socket.h"

#include <linux/mctp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

namespace machine {

namespace {

constexpr uint8_t kTypeBits = 0x7F;
/// A message of 4 KiB over a serial line at 115,200 baud takes 400 ms.
constexpr int kRoomWaitMs = 1000;

sockaddr_mctp address_of(uint32_t net, uint8_t eid, uint8_t type, uint8_t tag) {
    sockaddr_mctp address{};
    address.smctp_family = AF_MCTP;
    address.smctp_network = net;
    address.smctp_addr.s_addr = eid;
    address.smctp_type = type;
    address.smctp_tag = tag;
    return address;
}

}  // namespace

std::optional<MctpSocket> MctpSocket::open() {
    Descriptor made(socket(AF_MCTP, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return made ? std::optional(MctpSocket(std::move(made))) : std::nullopt;
}

bool MctpSocket::listen(uint8_t type) {
    const sockaddr_mctp address = address_of(MCTP_NET_ANY, MCTP_ADDR_ANY, type & kTypeBits, 0);
    return bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool MctpSocket::send(const MctpPeer& peer, std::span<const uint8_t> message) {
    // The kernel puts the type byte of the address, bit 7 included, in front of what it is given.
    const sockaddr_mctp address =
        address_of(peer.net, peer.eid, message[0], peer.tag_owner ? MCTP_TAG_OWNER : peer.tag);
    const std::span<const uint8_t> body = message.subspan(1);
    if (!wait_until(now_ms() + kRoomWaitMs, POLLOUT)) {
        errno = EAGAIN;
        return false;
    }
    return sendto(socket_.get(), body.data(), body.size(), 0,
                  reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) == static_cast<ssize_t>(body.size());
}

bool MctpSocket::wait_until(int64_t deadline, short events) const {
    return (wait_for(socket_.get(), events, deadline) & events) != 0;
}

std::optional<MctpArrival> MctpSocket::take(std::span<uint8_t> buffer) const {
    sockaddr_mctp address{};
    iovec room{.iov_base = buffer.data() + 1, .iov_len = buffer.size() - 1};
    msghdr header{};
    header.msg_name = &address;
    header.msg_namelen = sizeof address;
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    const ssize_t length = recvmsg(socket_.get(), &header, 0);
    if (length < 0 || (header.msg_flags & MSG_TRUNC) != 0 || header.msg_namelen < sizeof address ||
        address.smctp_family != AF_MCTP) {
        return std::nullopt;
    }
    buffer[0] = address.smctp_type;
    return MctpArrival{.peer = {.net = address.smctp_network,
                                .eid = address.smctp_addr.s_addr,
                                .tag = static_cast<uint8_t>(address.smctp_tag & MCTP_TAG_MASK),
                                .tag_owner = (address.smctp_tag & MCTP_TAG_OWNER) != 0},
                       .length = static_cast<size_t>(length) + 1};
}

std::string mctp_objection() {
    if (MctpSocket::open()) {
        return {};
    }
    return errno == EAFNOSUPPORT ? "this kernel has no MCTP sockets (CONFIG_MCTP)"
                                 : std::string("MCTP sockets: ") + std::strerror(errno);
}

}  // namespace machine
