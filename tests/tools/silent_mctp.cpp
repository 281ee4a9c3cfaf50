// SPDX-License-Identifier: Apache-2.0
// Preloaded into the tool: a kernel with MCTP behind which nobody answers.
#include <dlfcn.h>
#include <sys/socket.h>

extern "C" int socket(int family, int type, int protocol) noexcept {
    return reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"))(
        family == AF_MCTP ? AF_UNIX : family, type, protocol);
}

extern "C" int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
    if (address->sa_family == AF_MCTP) {
        return 0;
    }
    return reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(dlsym(RTLD_NEXT, "bind"))(
        descriptor, address, size);
}

extern "C" ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
    const auto* to = static_cast<const sockaddr*>(message->msg_name);
    if (to != nullptr && to->sa_family == AF_MCTP) {
        return static_cast<ssize_t>(message->msg_iov[0].iov_len);
    }
    return reinterpret_cast<ssize_t (*)(int, const msghdr*, int)>(dlsym(RTLD_NEXT, "sendmsg"))(
        descriptor, message, flags);
}
