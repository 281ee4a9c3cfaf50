// SPDX-License-Identifier: Apache-2.0
// Preloaded into the tool: a kernel without MCTP, whatever that of the machine has.
#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>

extern "C" int socket(int family, int type, int protocol) noexcept {
    if (family == AF_MCTP) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"))(family, type,
                                                                                protocol);
}
