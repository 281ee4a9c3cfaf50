// SPDX-License-Identifier: Apache-2.0
// One socket of the kernel's MCTP: messages with their type byte in front, as the platform
// interface has them.
#ifndef SIDEBAND_LINUX_MCTP_SOCKET_H
#define SIDEBAND_LINUX_MCTP_SOCKET_H

#include <poll.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/wait.h"

namespace machine {

/// Where a message goes to or comes from.
struct MctpPeer {
    uint32_t net = 0;
    uint8_t eid = 0;
    uint8_t tag = 0;         ///< 3 bits
    bool tag_owner = false;  ///< a request
};

/// A message that was received: its peer, and how many bytes of it are in the buffer.
struct MctpArrival {
    MctpPeer peer;
    size_t length = 0;
};

class MctpSocket {
public:
    /// errno tells why where this gives none; see mctp_objection().
    static std::optional<MctpSocket> open();

    /// Receives what others ask of the BMC in messages of one type, on every network: else a
    /// process that listens on all of them would not see this one. @return false with errno set
    bool listen(uint8_t type);

    /// Waits for room, if messages of this socket fill its queue: Linux 6.1 loses a reference with
    /// each message that it refuses for want of room.
    /// @param message  type byte first, at least that. With peer.tag_owner the kernel chooses a tag
    bool send(const MctpPeer& peer, std::span<const uint8_t> message);

    /// Waits for a message and takes it. One that is longer than the buffer is none.
    /// @param wait_ms  at most, from now on
    /// @param wanted   whether a message from this peer, with this type byte, is the one
    template <typename Wanted>
    std::optional<MctpArrival> receive(std::span<uint8_t> buffer, int wait_ms, Wanted wanted) {
        const int64_t deadline = now_ms() + wait_ms;
        while (wait_until(deadline)) {
            std::optional<MctpArrival> arrival = take(buffer);
            if (arrival && wanted(arrival->peer, buffer[0])) {
                return arrival;
            }
            // Whoever sends faster than this reads must not keep it here for ever.
            if (now_ms() > deadline) {
                break;
            }
        }
        return std::nullopt;
    }

private:
    explicit MctpSocket(Descriptor socket) : socket_(std::move(socket)) {}

    /// @param events  of poll()
    bool wait_until(int64_t deadline, short events = POLLIN) const;
    std::optional<MctpArrival> take(std::span<uint8_t> buffer) const;

    Descriptor socket_;
};

/// Why this machine has no MCTP sockets; empty where it has.
std::string mctp_objection();

}  // namespace machine

#endif
