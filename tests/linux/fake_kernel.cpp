// SPDX-License-Identifier: Apache-2.0
// Stands in front of libc's socket calls: a kernel with MCTP sockets, packet taps and rtnetlink of
// the test's own making.
#include "fake_kernel.h"

#include <dlfcn.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace machine_test {
namespace {

FakeKernel* standing = nullptr;

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int real_socketpair(int ends[2]) {
    return next<int (*)(int, int, int, int*)>("socketpair")(
        AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends);
}

/// A datagram of the kernel: an address in front of what it carries.
template <typename Address>
Bytes datagram(const Address& address, const Bytes& content) {
    Bytes bytes(sizeof address);
    std::memcpy(bytes.data(), &address, sizeof address);
    bytes.insert(bytes.end(), content.begin(), content.end());
    return bytes;
}

/// Waits for room for a moment: a socket pair holds ten datagrams.
void put(int fd, const Bytes& bytes) {
    pollfd writable{.fd = fd, .events = POLLOUT, .revents = 0};
    if (poll(&writable, 1, 5000) != 1 ||
        write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        std::perror("fake kernel");
        std::abort();
    }
}

FakeKernel::Socket* own(int fd) {
    if (standing == nullptr) {
        return nullptr;
    }
    const auto found = standing->sockets.find(fd);
    return found != standing->sockets.end() ? &found->second : nullptr;
}

/// Takes one datagram and splits it. @return its length without the address; -1 with errno set
ssize_t take(int fd, void* address, size_t address_size, void* room, size_t room_size,
             bool& truncated) {
    Bytes bytes(128 * 1024);
    const ssize_t length = read(fd, bytes.data(), bytes.size());
    if (length < 0) {
        return -1;
    }
    std::memcpy(address, bytes.data(), address_size);
    const size_t content = static_cast<size_t>(length) - address_size;
    std::memcpy(room, bytes.data() + address_size, std::min(content, room_size));
    truncated = content > room_size;
    return static_cast<ssize_t>(content);
}

/// As recvfrom() on an MCTP socket: one datagram is taken, or looked at only.
ssize_t receive_mctp(int fd, void* room, size_t size, int flags, sockaddr* from,
                     socklen_t* from_length) {
    Bytes bytes(128 * 1024);
    const ssize_t length = recv(fd, bytes.data(), bytes.size(), flags & (MSG_PEEK | MSG_DONTWAIT));
    if (length < 0) {
        return -1;
    }
    if (from != nullptr) {
        std::memcpy(from, bytes.data(), sizeof(sockaddr_mctp));
        *from_length = sizeof(sockaddr_mctp);
    }
    const size_t content = static_cast<size_t>(length) - sizeof(sockaddr_mctp);
    const size_t stored = std::min(content, size);
    std::memcpy(room, bytes.data() + sizeof(sockaddr_mctp), stored);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? content : stored);
}

/// What the kernel makes of a message that is sent.
ssize_t carry(int fd, const void* to, Bytes body) {
    FakeKernel& kernel = *standing;
    if (kernel.send_errno != 0) {
        errno = kernel.send_errno;
        return -1;
    }
    MctpMessage message{.address = {}, .body = std::move(body)};
    std::memcpy(&message.address, to, sizeof message.address);
    kernel.sent.push_back(message);
    if (kernel.on_send) {
        kernel.on_send(fd, message);
    }
    return static_cast<ssize_t>(message.body.size());
}

size_t address_size_of(const FakeKernel::Socket& socket) {
    return socket.family == AF_MCTP     ? sizeof(sockaddr_mctp)
           : socket.family == AF_PACKET ? sizeof(sockaddr_ll)
                                        : sizeof(sockaddr_nl);
}

}  // namespace

sockaddr_mctp mctp_address(uint32_t net, uint8_t eid, uint8_t type, uint8_t tag) {
    sockaddr_mctp address{};
    address.smctp_family = AF_MCTP;
    address.smctp_network = net;
    address.smctp_addr.s_addr = eid;
    address.smctp_type = type;
    address.smctp_tag = tag;
    return address;
}

FakeKernel::FakeKernel() {
    standing = this;
}

FakeKernel::~FakeKernel() {
    for (const auto& [fd, socket] : sockets) {
        ::close(socket.peer);
    }
    standing = nullptr;
}

FakeKernel* FakeKernel::current() {
    return standing;
}

void FakeKernel::deliver(int fd, const MctpMessage& message) {
    const std::lock_guard guard(mutex);
    put(sockets.at(fd).peer, datagram(message.address, message.body));
}

void FakeKernel::deliver_to_listener(const MctpMessage& message) {
    deliver(listener, message);
}

void FakeKernel::pass(const sockaddr_ll& from, const Bytes& packet) {
    const std::lock_guard guard(mutex);
    for (const auto& [fd, socket] : sockets) {
        if (socket.family == AF_PACKET && socket.bound) {
            put(socket.peer, datagram(from, packet));
        }
    }
}

size_t FakeKernel::open_sockets() const {
    const std::lock_guard guard(mutex);
    return static_cast<size_t>(std::count_if(sockets.begin(), sockets.end(), [](const auto& each) {
        // An end that was closed has no reader any more.
        const char probe = 0;
        return ::send(each.second.peer, &probe, 0, MSG_NOSIGNAL | MSG_DONTWAIT) == 0;
    }));
}

}  // namespace machine_test

using machine_test::FakeKernel;

extern "C" int socket(int family, int type, int protocol) noexcept {
    FakeKernel* const kernel = FakeKernel::current();
    const bool fake =
        kernel != nullptr && (family == AF_MCTP || family == AF_PACKET || family == AF_NETLINK);
    if (!fake) {
        return machine_test::next<int (*)(int, int, int)>("socket")(family, type, protocol);
    }
    const std::lock_guard guard(kernel->mutex);
    if (const auto failing = kernel->socket_errno.find(family);
        failing != kernel->socket_errno.end()) {
        errno = failing->second;
        return -1;
    }
    int ends[2];
    if (machine_test::real_socketpair(ends) != 0) {
        return -1;
    }
    if (const auto before = kernel->sockets.find(ends[0]); before != kernel->sockets.end()) {
        ::close(before->second.peer);
    }
    kernel->sockets[ends[0]] = {.family = family, .peer = ends[1]};
    return ends[0];
}

extern "C" int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    FakeKernel::Socket* const socket = machine_test::own(fd);
    if (socket == nullptr) {
        return machine_test::next<int (*)(int, const sockaddr*, socklen_t)>("bind")(fd, address,
                                                                                    length);
    }
    FakeKernel& kernel = *FakeKernel::current();
    const std::lock_guard guard(kernel.mutex);
    if (kernel.bind_errno != 0) {
        errno = kernel.bind_errno;
        return -1;
    }
    socket->bound = true;
    if (socket->family == AF_MCTP) {
        sockaddr_mctp bound{};
        std::memcpy(&bound, address, sizeof bound);
        kernel.bound.push_back(bound);
        kernel.listener = fd;
    }
    return 0;
}

extern "C" ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
                          socklen_t to_length) {
    FakeKernel::Socket* const socket = machine_test::own(fd);
    if (socket == nullptr) {
        return machine_test::next<ssize_t (*)(int, const void*, size_t, int, const sockaddr*,
                                              socklen_t)>("sendto")(fd, data, length, flags, to,
                                                                    to_length);
    }
    const auto* const bytes = static_cast<const uint8_t*>(data);
    return machine_test::carry(fd, to, {bytes, bytes + length});
}

extern "C" ssize_t sendmsg(int fd, const msghdr* header, int flags) {
    if (machine_test::own(fd) == nullptr) {
        return machine_test::next<ssize_t (*)(int, const msghdr*, int)>("sendmsg")(fd, header,
                                                                                   flags);
    }
    machine_test::Bytes body;
    for (size_t i = 0; i < header->msg_iovlen; ++i) {
        const auto* const bytes = static_cast<const uint8_t*>(header->msg_iov[i].iov_base);
        body.insert(body.end(), bytes, bytes + header->msg_iov[i].iov_len);
    }
    return machine_test::carry(fd, header->msg_name, std::move(body));
}

extern "C" ssize_t send(int fd, const void* data, size_t length, int flags) {
    const FakeKernel::Socket* const socket = machine_test::own(fd);
    if (socket == nullptr || socket->family != AF_NETLINK) {
        return machine_test::next<ssize_t (*)(int, const void*, size_t, int)>("send")(
            fd, data, length, flags);
    }
    FakeKernel& kernel = *FakeKernel::current();
    nlmsghdr head{};
    std::memcpy(&head, data, sizeof head);
    const auto* const bytes = static_cast<const uint8_t*>(data);
    kernel.questions.emplace_back(bytes, bytes + length);
    sockaddr_nl from{};
    from.nl_family = AF_NETLINK;
    from.nl_pid = kernel.netlink_sender;
    for (const machine_test::Bytes& answer : kernel.answers[head.nlmsg_type]) {
        machine_test::put(socket->peer, machine_test::datagram(from, answer));
    }
    return static_cast<ssize_t>(length);
}

extern "C" ssize_t recvmsg(int fd, msghdr* header, int flags) {
    const FakeKernel::Socket* const socket = machine_test::own(fd);
    if (socket == nullptr) {
        return machine_test::next<ssize_t (*)(int, msghdr*, int)>("recvmsg")(fd, header, flags);
    }
    bool truncated = false;
    const ssize_t length =
        machine_test::take(fd, header->msg_name, machine_test::address_size_of(*socket),
                           header->msg_iov[0].iov_base, header->msg_iov[0].iov_len, truncated);
    header->msg_flags = truncated ? MSG_TRUNC : 0;
    header->msg_controllen = 0;
    if (socket->family == AF_MCTP && FakeKernel::current()->on_receive) {
        FakeKernel::current()->on_receive(fd);
    }
    const auto room = static_cast<ssize_t>(header->msg_iov[0].iov_len);
    return std::min(length, room);
}

extern "C" ssize_t recvfrom(int fd, void* room, size_t size, int flags, sockaddr* from,
                            socklen_t* from_length) {
    const FakeKernel::Socket* const socket = machine_test::own(fd);
    if (socket == nullptr) {
        return machine_test::next<ssize_t (*)(int, void*, size_t, int, sockaddr*, socklen_t*)>(
            "recvfrom")(fd, room, size, flags, from, from_length);
    }
    if (socket->family == AF_MCTP) {
        return machine_test::receive_mctp(fd, room, size, flags, from, from_length);
    }
    bool truncated = false;
    return machine_test::take(fd, from, sizeof(sockaddr_nl), room, size, truncated);
}

extern "C" int setsockopt(int fd, int level, int option, const void* value,
                          socklen_t length) noexcept {
    if (machine_test::own(fd) != nullptr) {
        return 0;
    }
    return machine_test::next<int (*)(int, int, int, const void*, socklen_t)>("setsockopt")(
        fd, level, option, value, length);
}

extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* length) noexcept {
    if (machine_test::own(fd) == nullptr) {
        return machine_test::next<int (*)(int, int, int, void*, socklen_t*)>("getsockopt")(
            fd, level, option, value, length);
    }
    const tpacket_stats counts{.tp_packets = 0, .tp_drops = FakeKernel::current()->dropped};
    std::memcpy(value, &counts, sizeof counts);
    return 0;
}
