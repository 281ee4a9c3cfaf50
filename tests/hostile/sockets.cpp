// SPDX-License-Identifier: Apache-2.0
// The kernel's MCTP sockets underneath the library, with a simulated board behind them.
#include "sockets.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>
#include <memory>

#include "sim/mctp/endpoint.h"
#include "sim/serial/bridge.h"
#include "support/offset_table.h"

namespace hostile {

namespace {

using sim::Bytes;
using sim::Message;

constexpr uint8_t kFamily = 45;
constexpr uint8_t kOwnEid = 7;  // the machine's; the bridge behind the line has the next one
constexpr uint8_t kBridgeEid = 8;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagKept = 0x10;
constexpr size_t kAddressSize = 12;
constexpr size_t kUnit = 64;
constexpr size_t kMostWaiting = 256;
constexpr int kFirstDescriptor = 1 << 20;
constexpr unsigned long kAllocateTag = 0x89E0;
constexpr uint64_t kNsPerMs = 1'000'000;
/// How often devices act by themselves.
constexpr uint64_t kTurnNs = 100 * kNsPerMs;

struct Socket {
    int bound_type = -1;
    unsigned tags[256] = {};  ///< that it has of each endpoint, a bit each
    std::deque<Message> queue;
};

struct Kernel {
    explicit Kernel(sim::BoardState& served)
        : board(served),
          own(kOwnEid, kUnit, false),
          bridge(served, kBridgeEid, [this](sim::ByteView packet) { take(packet); }) {
        own.accept_all();
    }
    void take(sim::ByteView packet);

    sim::BoardState& board;
    sim::MctpEndpoint own;
    sim::Bridge bridge;
    std::map<int, Socket> sockets;
    int next_descriptor = kFirstDescriptor;
};

std::unique_ptr<Kernel> kernel;

int refuse(int error) {
    errno = error;
    return -1;
}

/// A packet of the line; a whole message goes to its socket, or nowhere.
void Kernel::take(sim::ByteView packet) {
    std::optional<Message> message = own.receive(packet);
    if (!message) {
        return;
    }
    for (auto& [descriptor, socket] : sockets) {
        const bool wanted = message->tag_owner
                                ? socket.bound_type == (message->type & 0x7F)
                                : (socket.tags[message->source_eid] >> message->tag & 1) != 0;
        if (wanted) {
            if (socket.queue.size() < kMostWaiting) {
                socket.queue.push_back(std::move(*message));
            }
            return;
        }
    }
}

Socket* find(int descriptor) {
    const auto found = kernel->sockets.find(descriptor);
    return found != kernel->sockets.end() ? &found->second : nullptr;
}

int make_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
    kernel->sockets[kernel->next_descriptor];
    return kernel->next_descriptor++;
}

int bind_socket(int descriptor, const sockaddr* address, socklen_t /*size*/) {
    Socket* const socket = find(descriptor);
    if (socket == nullptr) {
        return refuse(EBADF);
    }
    socket->bound_type = reinterpret_cast<const uint8_t*>(address)[9] & 0x7F;
    return 0;
}

int allocate(Socket& socket, uint8_t eid) {
    unsigned used = 0;
    for (const auto& [descriptor, other] : kernel->sockets) {
        used |= other.tags[eid];
    }
    for (int tag = 0; tag < 8; ++tag) {
        if ((used >> tag & 1) == 0) {
            socket.tags[eid] |= 1u << tag;
            return tag;
        }
    }
    return refuse(EBUSY);
}

int allocate_tag(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    auto* const bytes = static_cast<uint8_t*>(va_arg(arguments, void*));
    va_end(arguments);
    Socket* const socket = find(descriptor);
    if (socket == nullptr || request != kAllocateTag) {
        return refuse(socket == nullptr ? EBADF : EINVAL);
    }
    const int tag = allocate(*socket, bytes[0]);
    if (tag < 0) {
        return -1;
    }
    bytes[1] = static_cast<uint8_t>(tag | kTagOwner | kTagKept);
    return 0;
}

ssize_t send_message(int descriptor, const msghdr* header, int /*flags*/) {
    Socket* const socket = find(descriptor);
    if (socket == nullptr) {
        return refuse(EBADF);
    }
    const auto* const address = static_cast<const uint8_t*>(header->msg_name);
    Message message;
    message.source_eid = kOwnEid;
    message.destination_eid = address[8];
    message.type = address[9];
    message.tag = address[10] & 7;
    message.tag_owner = (address[10] & kTagOwner) != 0;
    for (size_t i = 0; i < header->msg_iovlen; ++i) {
        const auto* const part = static_cast<const uint8_t*>(header->msg_iov[i].iov_base);
        sim::append(message.body, {part, header->msg_iov[i].iov_len});
    }
    for (const Bytes& packet : kernel->own.split(message)) {
        kernel->bridge.receive(packet);
    }
    return static_cast<ssize_t>(message.body.size());
}

ssize_t receive_message(int descriptor, void* buffer, size_t size, int flags, sockaddr* address,
                        socklen_t* address_size) {
    Socket* const socket = find(descriptor);
    if (socket == nullptr || socket->queue.empty()) {
        return refuse(socket == nullptr ? EBADF : EAGAIN);
    }
    const Message message = socket->queue.front();
    if ((flags & MSG_PEEK) == 0) {
        socket->queue.pop_front();
    }
    if (address != nullptr) {
        const uint8_t from[kAddressSize] = {
            kFamily,
            0,
            0,
            0,
            1,
            0,
            0,
            0,
            message.source_eid,
            message.type,
            static_cast<uint8_t>(message.tag | (message.tag_owner ? kTagOwner : 0)),
            0};
        std::memcpy(address, from, std::min<size_t>(*address_size, sizeof from));
        *address_size = kAddressSize;
    }
    const size_t stored = std::min(size, message.body.size());
    std::copy_n(message.body.begin(), stored, static_cast<uint8_t*>(buffer));
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? message.body.size() : stored);
}

ssize_t receive_checked(int descriptor, void* buffer, size_t size, size_t /*room*/, int flags,
                        sockaddr* address, socklen_t* address_size) {
    return receive_message(descriptor, buffer, size, flags, address, address_size);
}

int ready_of(pollfd* polled, nfds_t count) {
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        const Socket* const socket = polled[i].fd >= 0 ? find(polled[i].fd) : nullptr;
        polled[i].revents = socket != nullptr && !socket->queue.empty() ? POLLIN : 0;
        ready += polled[i].revents != 0 ? 1 : 0;
    }
    return ready;
}

int wait_for(pollfd* polled, nfds_t count, int timeout_ms) {
    sim::Clock& clock = kernel->board.clock;
    const uint64_t end = clock.now_ns() + static_cast<uint64_t>(timeout_ms) * kNsPerMs;
    uint64_t turn = clock.now_ns();
    for (;;) {
        if (turn <= clock.now_ns()) {
            kernel->bridge.let_devices_act();
            turn = clock.now_ns() + kTurnNs;
        }
        kernel->bridge.send_due();
        const int ready = ready_of(polled, count);
        if (ready > 0 || clock.now_ns() >= end) {
            return ready;
        }
        clock.advance_to(std::min({end, turn, kernel->bridge.next_due().value_or(end)}));
    }
}

int close_one(int descriptor) {
    if (descriptor < kFirstDescriptor) {
        return ::close(descriptor);
    }
    return kernel->sockets.erase(descriptor) == 1 ? 0 : refuse(EBADF);
}

}  // namespace

void put_sockets_before(sim::BoardState& board) {
    static test::Substitute substitutes[] = {
        {"socket", test::address_of(make_socket)},
        {"bind", test::address_of(bind_socket)},
        {"ioctl", test::address_of(allocate_tag)},
        {"sendmsg", test::address_of(send_message)},
        {"recvfrom", test::address_of(receive_message)},
        {"__recvfrom_chk", test::address_of(receive_checked)},
        {"poll", test::address_of(wait_for)},
        {"__poll_chk", test::address_of(wait_for)},
        {"close", test::address_of(close_one)},
    };
    kernel = std::make_unique<Kernel>(board);
    test::patch_offsets(substitutes);
}

size_t open_sockets() {
    return kernel != nullptr ? kernel->sockets.size() : 0;
}

}  // namespace hostile
