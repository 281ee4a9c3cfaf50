// SPDX-License-Identifier: Apache-2.0
// A kernel with MCTP sockets, scripted by the fuzzer's input.
#include "fuzz/sockets.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace fuzz {
namespace {

constexpr size_t kAddressSize = 12;
constexpr uint8_t kFamily = 45;
/// No descriptor of the machine's.
constexpr int kFirstDescriptor = 1 << 20;
constexpr int kDescriptorsMax = 65;
/// No wait is for nothing: whoever looks at the clock sees it go on.
constexpr int64_t kWaitTime = 10;

Sockets kernel;
bool running;
int next_descriptor = kFirstDescriptor;

/// What a socket has to say.
struct Message {
    uint8_t address[kAddressSize] = {};
    size_t address_size = kAddressSize;
    std::vector<uint8_t> bytes;
    size_t claimed = 0;
    bool vanishes = false;
    bool checked = false;
    bool there = false;
};
Message message;

int result_of(int error) {
    errno = error;
    return -1;
}

bool call_fails() {
    return (kernel.failures >> (++kernel.calls % 8) & 1) != 0;
}

uint32_t crc_of(const std::vector<uint8_t>& bytes, uint8_t type) {
    uint32_t crc = 0xFFFFFFFF;
    const auto add = [&](uint8_t byte) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
        }
    };
    add(type);
    std::for_each(bytes.begin(), bytes.end(), add);
    return ~crc;
}

void put32(uint8_t* to, uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) {
        to[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

/// A message that is right for the context, unless the script says otherwise.
void next_message() {
    Input& input = world().input;
    const mctp_ctx& ctx = *kernel.expected;
    const uint8_t how = input.u8();
    message = Message{};
    message.there = true;
    message.vanishes = (how & kMessageVanishes) != 0;
    message.address[0] = kFamily;
    put32(message.address + 4, ctx.pcie_param != 0 ? ctx.pcie_param : 1);
    message.address[8] = ctx.dest_eid;
    message.address[9] = ctx.msg_type;
    message.address[10] = (how & kMessageRequest) != 0 ? (input.u8() & 7) | 8 : ctx.tag;
    if ((how & kMessageAddress) != 0) {
        message.address_size = input.u8();
        input.fill(message.address);
    }
    const uint32_t claimed = (how & kMessageClaims) != 0 ? input.u16() : 0;
    const size_t length = input.u8() * ((how & kMessageLarge) != 0 ? size_t{30} : size_t{1});
    const std::span<const uint8_t> bytes = input.take(length);
    message.bytes.assign(bytes.begin(), bytes.end());
    if ((how & kMessageChecked) != 0) {
        message.address[9] |= MCTP_MSG_TYPE_INTEGRITY_CHECK;
        uint8_t check[4];
        put32(check, crc_of(message.bytes, message.address[9]));
        message.bytes.insert(message.bytes.end(), check, check + sizeof check);
    }
    message.claimed = (how & kMessageClaims) != 0 ? claimed : message.bytes.size();
}

bool check_is_right() {
    if (message.bytes.size() < 5) {
        return false;
    }
    std::vector<uint8_t> body(message.bytes.begin(), message.bytes.end() - 4);
    uint8_t check[4];
    put32(check, crc_of(body, message.address[9]));
    return std::memcmp(check, message.bytes.data() + body.size(), sizeof check) == 0;
}

}  // namespace

Sockets& sockets() {
    return kernel;
}

void begin_sockets() {
    const int64_t now = kernel.now;
    std::vector<int> open = std::move(kernel.open);
    kernel = Sockets{};
    kernel.now = now;
    kernel.open = std::move(open);
    message = Message{};
    running = true;
}

void finish_sockets() {
    running = false;
}

bool must_not_pass(const mctp_ctx& ctx) {
    uint8_t network[4];
    put32(network, ctx.pcie_param);
    const uint8_t type = message.address[9];
    const bool checked = (type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
    return message.address_size != kAddressSize || message.address[0] != kFamily ||
           message.address[1] != 0 || std::memcmp(network, message.address + 4, 4) != 0 ||
           message.address[8] != ctx.dest_eid || ((type ^ ctx.msg_type) & 0x7F) != 0 ||
           (message.address[10] & 0xF0) != 0 || (message.address[10] & 7) != ctx.tag ||
           ((ctx.msg_type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0 && !checked) ||
           (checked && !check_is_right());
}

namespace {

int wait(pollfd* polled, nfds_t count, int timeout) {
    Input& input = world().input;
    require(timeout >= 0 && timeout <= 65535, "a wait of an undocumented time");
    ++kernel.calls;
    kernel.now += kWaitTime;
    const uint8_t how = input.empty() ? uint8_t{0} : input.u8();
    const bool silent = input.empty() && !message.there;
    if ((how & kWaitInterrupted) != 0) {
        kernel.now += input.u8();
        return result_of(EINTR);
    }
    if ((how & kWaitFails) != 0) {
        return result_of(ENOMEM);
    }
    int64_t takes = silent ? timeout : 0;
    takes += (how & kWaitTakes) != 0 ? input.u8() * int64_t{4} : 0;
    kernel.now += std::min<int64_t>(takes, timeout);
    if (silent || takes >= timeout || count == 0) {
        return 0;
    }
    const nfds_t first = (how & kWaitListener) != 0 || polled[0].fd < 0 ? 1 : 0;
    const nfds_t ready = polled[first].fd >= 0 ? first : 1 - first;
    require(polled[ready].fd >= kFirstDescriptor && polled[ready].events == POLLIN,
            "a wait for nothing");
    polled[0].revents = polled[1].revents = 0;
    polled[ready].revents = POLLIN;
    if ((how & kWaitIsEmpty) == 0 && !message.there) {
        next_message();
    }
    return 1;
}

ssize_t receive(int descriptor, void* buffer, size_t size, int flags, void* address,
                socklen_t* address_size) {
    require(std::count(kernel.open.begin(), kernel.open.end(), descriptor) == 1, "not open");
    require((flags & MSG_DONTWAIT) != 0, "a read without a bound");
    if (call_fails()) {
        return result_of((kernel.calls & 1) != 0 ? EINTR : ENETDOWN);
    }
    if (!message.there) {
        return result_of(EAGAIN);
    }
    const bool peeks = (flags & MSG_PEEK) != 0;
    if (address != nullptr) {
        std::memcpy(address, message.address,
                    std::min({size_t{*address_size}, message.address_size, kAddressSize}));
        *address_size = static_cast<socklen_t>(message.address_size);
    }
    if (!peeks) {
        message.there = false;
        if (message.vanishes) {
            return result_of(EAGAIN);
        }
    }
    const size_t stored = std::min(size, message.bytes.size());
    if (stored != 0) {
        std::memcpy(buffer, message.bytes.data(), stored);
    }
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? message.claimed : stored);
}

int allocate_tag(unsigned long request, uint8_t* bytes) {
    constexpr unsigned long kNetworkTag = 0x89E2;
    if (call_fails()) {
        return result_of((kernel.calls & 2) != 0 ? EBUSY : EINVAL);
    }
    bytes[request == kNetworkTag ? 8 : 1] = 0x18 | (kernel.calls & 7);
    return 0;
}

}  // namespace
}  // namespace fuzz

// The library's ways to the kernel; the linker routes them through here.

using fuzz::require;

extern "C" int __real_socket(int domain, int type, int protocol);
extern "C" int __real_bind(int descriptor, const sockaddr* address, socklen_t size);
extern "C" int __real_poll(pollfd* polled, nfds_t count, int timeout);
extern "C" int __real_close(int descriptor);
extern "C" int __real_clock_gettime(clockid_t clock, timespec* result);

extern "C" int __wrap_socket(int domain, int type, int protocol) {
    if (!fuzz::running) {
        return __real_socket(domain, type, protocol);
    }
    require(type == (SOCK_DGRAM | SOCK_CLOEXEC), "a descriptor that is inherited");
    if (fuzz::call_fails()) {
        return fuzz::result_of(EMFILE);
    }
    fuzz::kernel.open.push_back(fuzz::next_descriptor);
    require(fuzz::kernel.open.size() <= fuzz::kDescriptorsMax, "too many descriptors");
    return fuzz::next_descriptor++;
}

extern "C" int __wrap_bind(int descriptor, const sockaddr* address, socklen_t size) {
    if (!fuzz::running) {
        return __real_bind(descriptor, address, size);
    }
    return fuzz::call_fails() ? fuzz::result_of(EADDRINUSE) : 0;
}

extern "C" int __wrap_ioctl(int /*descriptor*/, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    auto* const bytes = static_cast<uint8_t*>(va_arg(arguments, void*));
    va_end(arguments);
    return fuzz::allocate_tag(request, bytes);
}

extern "C" ssize_t __wrap_sendmsg(int /*descriptor*/, const msghdr* message, int flags) {
    require((flags & MSG_DONTWAIT) != 0, "a write without a bound");
    if (fuzz::call_fails()) {
        return fuzz::result_of((fuzz::kernel.calls & 2) != 0 ? ENOENT : EHOSTUNREACH);
    }
    size_t length = 0;
    for (size_t i = 0; i < message->msg_iovlen; ++i) {
        length += message->msg_iov[i].iov_len;
    }
    return static_cast<ssize_t>(length);
}

extern "C" ssize_t __wrap_recvfrom(int descriptor, void* buffer, size_t size, int flags,
                                   sockaddr* address, socklen_t* address_size) {
    return fuzz::receive(descriptor, buffer, size, flags, address, address_size);
}

extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    return fuzz::running ? fuzz::wait(polled, count, timeout) : __real_poll(polled, count, timeout);
}

extern "C" int __wrap_close(int descriptor) {
    if (descriptor < fuzz::kFirstDescriptor) {
        return __real_close(descriptor);
    }
    require(std::erase(fuzz::kernel.open, descriptor) == 1, "closed twice");
    return 0;
}

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* result) {
    if (!fuzz::running) {
        return __real_clock_gettime(clock, result);
    }
    result->tv_sec = static_cast<time_t>(fuzz::kernel.now / 1000);
    result->tv_nsec = static_cast<decltype(result->tv_nsec)>(fuzz::kernel.now % 1000 * 1000000);
    return 0;
}
