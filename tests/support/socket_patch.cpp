// SPDX-License-Identifier: Apache-2.0
// MCTP sockets of a kernel that there is not, underneath libsideband.so as shipped.
#include "support/socket_patch.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <span>
#include <utility>

#include "support/offset_table.h"

namespace test {
namespace {

constexpr int kFamily = 45;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagKept = 0x10;
constexpr unsigned long kAllocateTag = 0x89E0;
constexpr unsigned long kAllocateNetworkTag = 0x89E2;
constexpr size_t kAddressSize = 12;
constexpr int64_t kTagLifetime = 6000;

SocketPatch* active = nullptr;
/// Descriptors never come twice, and no file of the process has one of them.
int next_descriptor = 1 << 20;
int64_t next_start = 1000;

int result_of(int error) {
    errno = error;
    return -1;
}

/// A number of the kernel's, from this machine's order to little-endian, in which tests name it, or
/// back.
void turn_round(std::span<uint8_t> number) {
    if constexpr (std::endian::native == std::endian::big) {
        std::ranges::reverse(number);
    }
}

/// The numbers of an address: its family, and its network.
void turn_address_round(std::span<uint8_t> address) {
    if (address.size() == kAddressSize) {
        turn_round(address.first(2));
        turn_round(address.subspan(4, 4));
    }
}

// ---- The substitutes ----

int patched_socket(int domain, int type, int protocol) {
    return active->open(domain, type, protocol);
}

int patched_bind(int descriptor, const sockaddr* address, socklen_t size) {
    return active->bind(descriptor, address, size);
}

int patched_ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return active->control(descriptor, request, argument);
}

ssize_t patched_sendmsg(int descriptor, const msghdr* message, int flags) {
    const auto* const name = static_cast<const uint8_t*>(message->msg_name);
    Bytes body;
    for (size_t i = 0; i < message->msg_iovlen; ++i) {
        const auto* const part = static_cast<const uint8_t*>(message->msg_iov[i].iov_base);
        body.insert(body.end(), part, part + message->msg_iov[i].iov_len);
    }
    Bytes address(name, name + message->msg_namelen);
    turn_address_round(address);
    return active->send(descriptor, address, body, flags);
}

ssize_t patched_recvfrom(int descriptor, void* buffer, size_t size, int flags, sockaddr* address,
                         socklen_t* address_size) {
    return active->receive(descriptor, buffer, size, flags, address, address_size);
}

ssize_t patched_recvfrom_chk(int descriptor, void* buffer, size_t size, size_t /*room*/, int flags,
                             sockaddr* address, socklen_t* address_size) {
    return active->receive(descriptor, buffer, size, flags, address, address_size);
}

int patched_poll(pollfd* polled, nfds_t count, int timeout) {
    return active->wait(polled, count, timeout);
}

int patched_clock_gettime(clockid_t /*clock*/, timespec* result) {
    const int64_t now = active->clock();
    result->tv_sec = static_cast<time_t>(now / 1000);
    result->tv_nsec = static_cast<decltype(result->tv_nsec)>(now % 1000 * 1000000);
    return 0;
}

int patched_close(int descriptor);

Substitute substitutes[] = {
    {"socket", address_of(patched_socket)},
    {"bind", address_of(patched_bind)},
    {"ioctl", address_of(patched_ioctl)},
    {"sendmsg", address_of(patched_sendmsg)},
    {"recvfrom", address_of(patched_recvfrom)},
    {"__recvfrom_chk", address_of(patched_recvfrom_chk)},
    {"poll", address_of(patched_poll)},
    {"clock_gettime", address_of(patched_clock_gettime)},
    {"__clock_gettime64", address_of(patched_clock_gettime)},
    {"close", address_of(patched_close)},
};

int patched_close(int descriptor) {
    if (active->close(descriptor)) {
        return 0;
    }
    const Substitute& files = substitutes[std::size(substitutes) - 1];
    return reinterpret_cast<int (*)(int)>(files.original)(descriptor);
}

}  // namespace

SocketPatch::SocketPatch() : now(next_start) {
    if (active != nullptr) {
        std::abort();
    }
    active = this;
    patch_offsets(substitutes);
}

SocketPatch::~SocketPatch() {
    restore_offsets(substitutes);
    next_start = now + 1000;
    active = nullptr;
}

void SocketPatch::deliver(Datagram message, int64_t after_ms) {
    const std::scoped_lock guard(mutex_);
    arrivals_.push_back({now + after_ms, std::move(message), -1});
}

void SocketPatch::misdeliver(Datagram message, int64_t after_ms) {
    const std::scoped_lock guard(mutex_);
    arrivals_.push_back({now + after_ms, std::move(message), sent.back().descriptor});
}

Datagram SocketPatch::answer_to(const SentDatagram& request, Bytes body) {
    return {request.eid(), request.type(), static_cast<uint8_t>(request.tag() & 7),
            std::move(body)};
}

void SocketPatch::answer_with(std::vector<Bytes> bodies, int64_t after_ms) {
    auto queue = std::make_shared<std::deque<Bytes>>(bodies.begin(), bodies.end());
    on_send = [this, queue, after_ms](const SentDatagram& request) {
        if (!queue->empty()) {
            deliver(answer_to(request, queue->front()), after_ms);
            queue->pop_front();
        }
    };
}

int64_t SocketPatch::clock() const {
    const std::scoped_lock guard(mutex_);
    return now;
}

bool SocketPatch::is_bound(uint8_t type) const {
    const std::scoped_lock guard(mutex_);
    return std::any_of(sockets_.begin(), sockets_.end(),
                       [type](const auto& entry) { return entry.second.bound_type == type; });
}

size_t SocketPatch::held_tags() const {
    const std::scoped_lock guard(mutex_);
    size_t count = 0;
    for (const auto& [descriptor, socket] : sockets_) {
        count += socket.tags.size();
    }
    return count;
}

bool SocketPatch::fails(const char* name) {
    if (const auto hook = before.find(name); hook != before.end()) {
        hook->second();
    }
    std::deque<int>& next = errors[name];
    const int error = next.empty() ? 0 : next.front();
    if (!next.empty()) {
        next.pop_front();
    }
    errno = error;
    return error != 0;
}

SocketPatch::Socket* SocketPatch::socket_of(int descriptor) {
    const auto found = sockets_.find(descriptor);
    if (found == sockets_.end()) {
        errno = EBADF;
        return nullptr;
    }
    return &found->second;
}

int SocketPatch::open(int domain, int type, int protocol) {
    const std::scoped_lock guard(mutex_);
    trace.emplace_back("socket");
    if (fails("socket")) {
        return -1;
    }
    if (domain != kFamily || type != (SOCK_DGRAM | SOCK_CLOEXEC) || protocol != 0) {
        return result_of(EINVAL);
    }
    const int descriptor = gives >= 0 ? std::exchange(gives, -1) : next_descriptor++;
    sockets_[descriptor];
    return descriptor;
}

int SocketPatch::bind(int descriptor, const void* address, size_t size) {
    const std::scoped_lock guard(mutex_);
    const auto* const name = static_cast<const uint8_t*>(address);
    Bytes bytes(name, name + size);
    turn_address_round(bytes);
    trace.push_back("bind " + to_hex(bytes));
    Socket* const socket = socket_of(descriptor);
    if (socket == nullptr || fails("bind")) {
        return -1;
    }
    if (size != kAddressSize || bytes[0] != kFamily) {
        return result_of(EINVAL);
    }
    const uint8_t type = bytes[9] & 0x7F;
    if (foreign_bindings.contains(type) || is_bound(type)) {
        return result_of(EADDRINUSE);
    }
    socket->bound_type = type;
    return 0;
}

/// @return the tag; -1 with errno where none is free
int SocketPatch::allocate(Socket& socket, uint8_t eid, bool kept, uint32_t network) {
    unsigned used = 0;
    for (const auto& [descriptor, other] : sockets_) {
        for (const Tag& tag : other.tags) {
            const bool same = tag.eid == eid && (!knows_network_tags || tag.network == network);
            used |= same ? 1u << tag.value : 0;
        }
    }
    for (uint8_t value = 0; value < 8; ++value) {
        if ((used >> value & 1) == 0) {
            socket.tags.push_back({eid, value, kept, now + kTagLifetime, network});
            return value;
        }
    }
    return result_of(EBUSY);
}

int SocketPatch::control(int descriptor, unsigned long request, void* argument) {
    const std::scoped_lock guard(mutex_);
    auto* const asked = static_cast<uint8_t*>(argument);
    Socket* const socket = socket_of(descriptor);
    const bool with_network = request == kAllocateNetworkTag;
    if (socket == nullptr) {
        return -1;
    }
    Bytes bytes(asked, asked + (with_network ? 12 : 4));
    if (with_network) {
        turn_round(std::span(bytes).first(4));
    }
    trace.push_back("tag " + to_hex(bytes));
    if (fails("ioctl")) {
        return -1;
    }
    const bool known = with_network ? knows_network_tags : knows_tag_requests;
    uint8_t* const tag = asked + (with_network ? 8 : 1);
    if (!known || (!with_network && request != kAllocateTag) || *tag != 0) {
        return result_of(EINVAL);
    }
    const int value =
        allocate(*socket, bytes[with_network ? 4 : 0], true, with_network ? bytes[0] : 1);
    if (value >= 0) {
        *tag = static_cast<uint8_t>(value | kTagOwner | kTagKept);
    }
    return value >= 0 ? 0 : -1;
}

ssize_t SocketPatch::send(int descriptor, const Bytes& address, const Bytes& body, int flags) {
    const std::scoped_lock guard(mutex_);
    trace.emplace_back("send");
    Socket* const socket = socket_of(descriptor);
    if (socket == nullptr || fails("sendmsg")) {
        return -1;
    }
    if (full) {
        ++references_lost;
        return result_of(EAGAIN);
    }
    if (address.size() != kAddressSize || address[0] != kFamily || (flags & MSG_DONTWAIT) == 0) {
        return result_of(EINVAL);
    }
    SentDatagram message{descriptor, address, body};
    const uint32_t network = message.network() != 0 ? message.network() : default_network;
    if ((message.tag() & kTagKept) != 0) {
        const bool found =
            std::any_of(socket->tags.begin(), socket->tags.end(), [&](const Tag& tag) {
                return tag.kept && tag.eid == message.eid() && tag.value == (message.tag() & 7) &&
                       (!knows_network_tags || tag.network == network);
            });
        if (!found) {
            return result_of(ENOENT);
        }
    } else if ((message.tag() & kTagOwner) != 0) {
        const int value = allocate(*socket, message.eid(), false, network);
        if (value < 0) {
            return -1;
        }
        message.address[10] |= static_cast<uint8_t>(value);
    }
    sent.push_back(message);
    if (on_send) {
        on_send(message);
    }
    return static_cast<ssize_t>(body.size());
}

void SocketPatch::route(const Datagram& message) {
    for (auto& [descriptor, socket] : sockets_) {
        if ((message.tag & kTagOwner) != 0) {
            if (socket.bound_type == (message.type & 0x7F)) {
                socket.queue.push_back(message);
                return;
            }
            continue;
        }
        for (size_t i = 0; i < socket.tags.size(); ++i) {
            const Tag tag = socket.tags[i];
            if (tag.eid == message.eid && tag.value == message.tag &&
                (!knows_network_tags || tag.network == message.network)) {
                socket.queue.push_back(message);
                if (!tag.kept) {
                    socket.tags.erase(socket.tags.begin() + static_cast<ptrdiff_t>(i));
                }
                return;
            }
        }
    }
    ++lost;
}

/// What has arrived by now gets to its socket; tags that nobody answered are free again.
void SocketPatch::arrive() {
    for (auto& [descriptor, socket] : sockets_) {
        std::erase_if(socket.tags,
                      [this](const Tag& tag) { return !tag.kept && tag.expiry <= now; });
    }
    std::deque<Arrival> due;
    std::erase_if(arrivals_, [&](const Arrival& arrival) {
        const bool is_due = arrival.time <= now;
        if (is_due) {
            due.push_back(arrival);
        }
        return is_due;
    });
    for (const Arrival& arrival : due) {
        if (arrival.descriptor < 0) {
            route(arrival.message);
        } else if (Socket* const socket = socket_of(arrival.descriptor)) {
            socket->queue.push_back(arrival.message);
        }
    }
}

ssize_t SocketPatch::receive(int descriptor, void* buffer, size_t size, int flags, void* address,
                             uint32_t* address_size) {
    const std::scoped_lock guard(mutex_);
    arrive();
    Socket* const socket = socket_of(descriptor);
    if (socket == nullptr || fails("recvfrom")) {
        return -1;
    }
    if ((flags & ~(MSG_DONTWAIT | MSG_TRUNC | MSG_PEEK)) != 0 || (flags & MSG_DONTWAIT) == 0) {
        return result_of(EOPNOTSUPP);
    }
    if (socket->queue.empty()) {
        return result_of(EAGAIN);
    }
    const Datagram message = socket->queue.front();
    if ((flags & MSG_PEEK) == 0) {
        socket->queue.pop_front();
    }
    const size_t stored = std::min(size, message.body.size());
    std::copy_n(message.body.begin(), stored, static_cast<uint8_t*>(buffer));
    if (address != nullptr) {
        uint8_t bytes[kAddressSize] = {static_cast<uint8_t>(message.family),
                                       0,
                                       0,
                                       0,
                                       static_cast<uint8_t>(message.network),
                                       0,
                                       0,
                                       0,
                                       message.eid,
                                       message.type,
                                       message.tag,
                                       0};
        turn_address_round(bytes);
        std::memcpy(address, bytes,
                    std::min<size_t>({kAddressSize, message.address_size, *address_size}));
        *address_size = static_cast<uint32_t>(message.address_size);
    }
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? message.body.size() : stored);
}

bool SocketPatch::is_ready(int descriptor) {
    const auto found = sockets_.find(descriptor);
    return found == sockets_.end() || !found->second.queue.empty();
}

int SocketPatch::wait(void* polled, size_t count, int timeout_ms) {
    const std::scoped_lock guard(mutex_);
    const int64_t deadline = now + timeout_ms;
    trace.emplace_back("poll");
    if (fails("poll")) {
        now += errno == EINTR ? interrupted_after : 0;
        return -1;
    }
    auto* const entries = static_cast<pollfd*>(polled);
    for (;;) {
        arrive();
        int ready = 0;
        for (size_t i = 0; i < count; ++i) {
            const bool arrived = entries[i].fd >= 0 && is_ready(entries[i].fd);
            const int wanted = (arrived ? POLLIN : 0) | (full ? 0 : POLLOUT);
            entries[i].revents = static_cast<short>(entries[i].events & wanted);
            ready += entries[i].revents != 0 ? 1 : 0;
        }
        int64_t next = deadline;
        for (const Arrival& arrival : arrivals_) {
            next = std::min(next, arrival.time);
        }
        if (ready > 0 || now >= deadline) {
            return ready;
        }
        now = std::max(now, next);
    }
}

bool SocketPatch::close(int descriptor) {
    const std::scoped_lock guard(mutex_);
    const bool is_ours = descriptor >= 1 << 20 || sockets_.contains(descriptor);
    if (is_ours) {
        trace.emplace_back("close");
        if (sockets_.erase(descriptor) == 0) {
            trace.emplace_back("closed twice");
        }
    }
    return is_ours;
}

}  // namespace test
