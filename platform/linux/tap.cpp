// SPDX-License-Identifier: Apache-2.0
// A capture of what passes over the machine's MCTP interfaces.
#include "platform/linux/tap.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <vector>

namespace machine {

namespace {

constexpr size_t kLargestPacket = 65536;
constexpr int kBufferSize = 4 << 20;
constexpr uint64_t kNsPerS = 1'000'000'000;

/// Lets MCTP interfaces through, and nothing else: all that the machine sends is seen by those
/// sockets only that ask for every protocol.
bool attach_filter(int socket) {
    constexpr uint32_t kHardwareType = static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_HATYPE);
    std::array<sock_filter, 4> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kHardwareType),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, pcapng::kHardwareMctp, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, kLargestPacket),
        BPF_STMT(BPF_RET | BPF_K, 0),
    }};
    const sock_fprog filter{.len = program.size(), .filter = program.data()};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

bool listen_to_all(int socket) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// When the kernel saw a packet; now where it does not say.
uint64_t time_of(msghdr& header) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr;
         each = CMSG_NXTHDR(&header, each)) {
        if (each->cmsg_level == SOL_SOCKET && each->cmsg_type == SO_TIMESTAMPNS &&
            each->cmsg_len >= CMSG_LEN(sizeof time)) {
            std::memcpy(&time, CMSG_DATA(each), sizeof time);
        }
    }
    return static_cast<uint64_t>(time.tv_sec) * kNsPerS + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

Tap::~Tap() {
    std::string ignored;
    stop(ignored);
}

bool Tap::open(std::string& error) {
    // No protocol yet: nothing is received before the filter stands.
    socket_ = Descriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_) {
        error = errno == EPERM || errno == EACCES
                    ? "a tap on the MCTP interfaces takes the capability CAP_NET_RAW"
                    : std::string("a tap on the MCTP interfaces: ") + std::strerror(errno);
        return false;
    }
    const int fd = socket_.get();
    const int on = 1;
    // As large as the machine's limits let it be: what goes beyond it is lost, and counted.
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferSize, sizeof kBufferSize);
    wake_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_ || !attach_filter(fd) ||
        setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 || !listen_to_all(fd)) {
        error = std::string("a tap on the MCTP interfaces: ") + std::strerror(errno);
        return false;
    }
    return true;
}

bool Tap::start(const std::string& path, std::string& error) {
    if (!open(error) || !writer_.start(path, "sideband", {}, error)) {
        socket_ = {};
        return false;
    }
    interfaces_.clear();
    cut_ = false;
    // Signals are for the thread that runs the command.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return true;
}

/// The kernel has handed over what an exchange sent and received before the exchange returned.
bool Tap::stop(std::string& error) {
    if (!thread_.joinable()) {
        return true;
    }
    const uint64_t once = 1;
    while (write(wake_.get(), &once, sizeof once) < 0 && errno == EINTR) {
    }
    thread_.join();
    drain();
    tpacket_stats counts{};
    socklen_t length = sizeof counts;
    const bool counted =
        getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &counts, &length) == 0;
    socket_ = {};
    wake_ = {};
    if (!writer_.stop()) {
        error = "it could not be written";
    } else if (counted && counts.tp_drops != 0) {
        error = std::to_string(counts.tp_drops) + " packets came faster than they were written";
    } else if (cut_) {
        error = "a packet was too long";
    }
    return error.empty();
}

void Tap::run() {
    std::array<pollfd, 2> waited{{{.fd = socket_.get(), .events = POLLIN, .revents = 0},
                                  {.fd = wake_.get(), .events = POLLIN, .revents = 0}}};
    while ((waited[1].revents & POLLIN) == 0) {
        if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        drain();
    }
}

void Tap::drain() {
    while (take()) {
    }
}

bool Tap::take() {
    sockaddr_ll from{};
    std::vector<uint8_t> bytes(kLargestPacket);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timespec))> control{};
    iovec room{.iov_base = bytes.data(), .iov_len = bytes.size()};
    msghdr header{};
    header.msg_name = &from;
    header.msg_namelen = sizeof from;
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket_.get(), &header, 0);
    if (length < 0) {
        // An interface that went down leaves its error behind, once.
        return errno == EINTR || errno == ENETDOWN;
    }
    cut_ |= (header.msg_flags & MSG_TRUNC) != 0;
    const size_t address_length = std::min<size_t>(from.sll_halen, sizeof from.sll_addr);
    const uint64_t at = time_of(header);
    writer_.packet({.interface = interface_of(from.sll_ifindex),
                    .at_ns = at,
                    .type = from.sll_pkttype,
                    .index = static_cast<uint32_t>(from.sll_ifindex),
                    .address = std::span<const uint8_t>(from.sll_addr, address_length),
                    .bytes = std::span<const uint8_t>(bytes).first(static_cast<size_t>(length)),
                    .comment = {}});
    return true;
}

/// Interfaces are described in the file as they appear.
uint32_t Tap::interface_of(int index) {
    const auto [found, is_new] =
        interfaces_.emplace(index, static_cast<uint32_t>(interfaces_.size()));
    if (is_new) {
        std::array<char, IF_NAMESIZE> name{};
        if_indextoname(static_cast<unsigned>(index), name.data());
        writer_.add({.name = name[0] != '\0' ? name.data() : "interface " + std::to_string(index),
                     .description = {}});
    }
    return found->second;
}

}  // namespace machine
