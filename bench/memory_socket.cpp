// SPDX-License-Identifier: Apache-2.0
// The socket calls that an exchange makes, each reduced to a few instructions, in libc's place.
#include "bench/memory_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace {

constexpr int kDescriptor = 1 << 20;
constexpr unsigned long kAllocateTag = 0x89E0;
constexpr uint8_t kInstanceIdMask = 0x1F;
/// sockaddr_mctp, as the last request had it.
constexpr size_t kTag = 10;
uint8_t address[12];
uint8_t instance_id;
uint8_t next_tag;

const uint8_t* answer;
size_t answer_length;

}  // namespace

void bench::prepare_socket_answer(const uint8_t* body, size_t length) {
    answer = body;
    answer_length = length;
}

extern "C" {

int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
    return kDescriptor;
}

ssize_t sendmsg(int /*descriptor*/, const msghdr* message, int /*flags*/) {
    std::memcpy(address, message->msg_name, sizeof address);
    address[kTag] &= 0x07;
    instance_id = *static_cast<const uint8_t*>(message->msg_iov[0].iov_base) & kInstanceIdMask;
    return 0;
}

ssize_t recvfrom(int /*descriptor*/, void* buffer, size_t size, int flags, sockaddr* from,
                 socklen_t* /*from_size*/) {
    if (from != nullptr) {
        std::memcpy(from, address, sizeof address);
    }
    const size_t stored = std::min(size, answer_length);
    if (stored != 0) {
        std::memcpy(buffer, answer, stored);
        *static_cast<uint8_t*>(buffer) |= instance_id;
    }
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? answer_length : stored);
}

int poll(pollfd* polled, nfds_t count, int timeout) {
    // The library waits for answers and requests at once; who else is here waits for one thing.
    if (count != 2) {
        return static_cast<int>(syscall(SYS_poll, polled, count, timeout));
    }
    polled[0].revents = POLLIN;
    return 1;
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (descriptor != kDescriptor || request != kAllocateTag) {
        return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
    }
    next_tag ^= 1;
    static_cast<uint8_t*>(argument)[1] = static_cast<uint8_t>(0x18 | next_tag);
    return 0;
}

int close(int descriptor) {
    return descriptor == kDescriptor ? 0 : static_cast<int>(syscall(SYS_close, descriptor));
}

}  // extern "C"
