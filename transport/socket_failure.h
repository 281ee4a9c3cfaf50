// SPDX-License-Identifier: Apache-2.0
// What it means for an endpoint, and for whoever looks after the machine, if a call of the kernel's
// sockets fails.
#ifndef SIDEBAND_TRANSPORT_SOCKET_FAILURE_H
#define SIDEBAND_TRANSPORT_SOCKET_FAILURE_H

#include <sideband/error.h>

#include <cerrno>
#include <cstdint>

namespace sideband {

/// What may help, in brackets; empty if nothing is known.
inline const char* hint_for(int error) {
    switch (error) {
        case EAFNOSUPPORT:
            return " (this kernel has no MCTP sockets)";
        case EACCES:
        case EPERM:
            return " (it takes CAP_NET_RAW, and CAP_NET_BIND_SERVICE to update firmware)";
        case EADDRINUSE:
            return " (another process receives the requests of PLDM devices)";
        case EBUSY:
            return " (no message tag is free)";
        default:
            return "";
    }
}

/// What a failure of the kernel's says of the endpoint.
inline uint8_t cause_of(int error) {
    switch (error) {
        case EHOSTUNREACH:
        case ENETUNREACH:
        case ENODEV:
            return SIDEBAND_CAUSE_NO_BUS;
        case EOPNOTSUPP:
        case ENOTCONN:
            return SIDEBAND_CAUSE_ARGUMENT;
        case ENOMEM:
            return SIDEBAND_CAUSE_MEMORY;
        default:
            return SIDEBAND_CAUSE_SYSTEM;
    }
}

}  // namespace sideband

#endif
