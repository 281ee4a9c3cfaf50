// SPDX-License-Identifier: Apache-2.0
// MCTP sockets of a kernel that there is not, underneath libsideband.so as shipped.
#ifndef SIDEBAND_TESTS_SUPPORT_SOCKET_PATCH_H
#define SIDEBAND_TESTS_SUPPORT_SOCKET_PATCH_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace test {

/// A message that an endpoint sends to the BMC.
struct Datagram {
    uint8_t eid = 9;
    uint8_t type = 1;
    uint8_t tag = 0;  ///< with 0x08, the tag owner bit, in a request
    Bytes body;
    uint32_t network = 1;
    uint16_t family = 45;
    size_t address_size = 12;
};

/// A message that the library has sent.
struct SentDatagram {
    int descriptor = -1;
    Bytes address;  ///< as handed to the kernel: 12 bytes, little-endian
    Bytes body;

    uint32_t network() const { return address.at(4); }
    uint8_t eid() const { return address.at(8); }
    uint8_t type() const { return address.at(9); }
    uint8_t tag() const { return address.at(10); }
};

/**
 * While one lives, the socket calls of the shared library end up here, and so does its monotonic
 * clock; it lives within the life of a LibcPatch. The kernel behaves as Linux 6.1 does: tags, their
 * lifetimes, bindings. One at a time. Time is virtual, and goes on from one to the next; poll()
 * lets it pass.
 */
class SocketPatch {
public:
    SocketPatch();
    ~SocketPatch();
    SocketPatch(const SocketPatch&) = delete;
    SocketPatch& operator=(const SocketPatch&) = delete;

    int64_t now;                                       ///< milliseconds
    std::vector<SentDatagram> sent;                    ///< what reached the bus
    std::function<void(const SentDatagram&)> on_send;  ///< the endpoints
    std::vector<std::string> trace;                 ///< "socket", "bind 01", "tag 9", "send", ...
    std::map<std::string, std::deque<int>> errors;  ///< of the next calls; 0: none
    std::map<std::string, std::function<void()>> before;  ///< right before a call
    int64_t interrupted_after = 0;    ///< milliseconds that an interrupted poll() takes
    bool knows_tag_requests = true;   ///< Linux 5.18
    bool knows_network_tags = false;  ///< Linux 6.11
    bool full = false;                ///< nothing can be sent without waiting
    uint32_t default_network = 1;
    std::set<uint8_t> foreign_bindings;  ///< message types of other processes
    size_t lost = 0;                     ///< messages that no socket wanted
    size_t references_lost = 0;          ///< with a message that found its queue full
    int gives = -1;  ///< the descriptor that the next socket has; -1: one that nobody else has

    /// Arrives at the BMC after a while, at the socket that the kernel finds for it.
    void deliver(Datagram message, int64_t after_ms = 0);
    /// Arrives at the socket of the request that was sent last, whatever it is.
    void misdeliver(Datagram message, int64_t after_ms = 0);
    /// An answer to a request, as an endpoint makes it.
    static Datagram answer_to(const SentDatagram& request, Bytes body);
    /// Endpoints answer each request with these in turn.
    void answer_with(std::vector<Bytes> bodies, int64_t after_ms = 0);

    size_t open_sockets() const { return sockets_.size(); }
    /// Whether a socket is bound to the message type.
    bool is_bound(uint8_t type) const;
    /// Tags that the sockets hold.
    size_t held_tags() const;

    // ---- The substituted calls only ----
    int64_t clock() const;
    int open(int domain, int type, int protocol);
    int bind(int descriptor, const void* address, size_t size);
    int control(int descriptor, unsigned long request, void* argument);
    ssize_t send(int descriptor, const Bytes& address, const Bytes& body, int flags);
    ssize_t receive(int descriptor, void* buffer, size_t size, int flags, void* address,
                    uint32_t* address_size);
    int wait(void* polled, size_t count, int timeout_ms);
    bool close(int descriptor);

private:
    struct Tag {
        uint8_t eid;
        uint8_t value;
        bool kept;
        int64_t expiry;
        uint32_t network;
    };
    struct Socket {
        std::vector<Tag> tags;
        std::deque<Datagram> queue;
        int bound_type = -1;
    };
    struct Arrival {
        int64_t time;
        Datagram message;
        int descriptor;  ///< -1: the kernel finds it
    };

    bool fails(const char* name);
    Socket* socket_of(int descriptor);
    int allocate(Socket& socket, uint8_t eid, bool kept, uint32_t network);
    void arrive();
    void route(const Datagram& message);
    bool is_ready(int descriptor);

    mutable std::recursive_mutex mutex_;
    std::map<int, Socket> sockets_;
    std::deque<Arrival> arrivals_;
};

}  // namespace test

#endif
