// SPDX-License-Identifier: Apache-2.0
// The sockets that the process has open to the kernel's MCTP.
#ifndef SIDEBAND_TRANSPORT_SOCKET_TABLE_H
#define SIDEBAND_TRANSPORT_SOCKET_TABLE_H

#include <sideband/mctp.h>

#include <cstddef>
#include <cstdint>

namespace sideband {

/*
 * Who owns the sockets.
 *
 * Every request goes out on a socket of its own. A tag belongs to its socket, and the kernel gives
 * the lowest free one to the next request: if a socket were closed right behind its exchange, an
 * answer that comes late or twice would pass for that of the next request. So they are kept: one
 * that was answered until its context has sent the next request, which therefore has another tag;
 * one that was not, for as long as the kernel itself reserves a tag for an answer, or until the
 * endpoint has no other tag left: an answer would then be eight requests late.
 *
 * A context has no end that the library is told of. The sockets are the process's therefore, in a
 * table that does not grow, and whoever sends a request closes those whose time is over. A child of
 * fork() has its own table over the same sockets, and opens others for what it sends.
 *
 * One more socket receives what devices ask for while their firmware is updated: the listener. The
 * kernel gives a message type to one socket only, so that it is open no longer than that takes.
 */

struct Socket {
    enum class Use : uint8_t { kFree, kBusy, kKept };

    Use use;  ///< the table's own
    bool answered;
    uint8_t eid;
    uint8_t tag;     ///< as sent
    int descriptor;  ///< negative: not open
    uint32_t network;
    const mctp_ctx* owner;  ///< null: nobody is interested in an answer any more
    int64_t until;          ///< the table's own: closed after that, while it is kept
};

/// Requests that may wait for their answers at once.
inline constexpr size_t kRequestsMax = 64;

/// A socket in the hands of one thread, or none. It is closed with its scope, unless it is kept.
class Held {
public:
    explicit Held(Socket* socket) : socket_(socket) {}
    ~Held();
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    explicit operator bool() const { return socket_ != nullptr; }
    Socket& operator*() const { return *socket_; }
    Socket* get() const { return socket_; }

    void keep();

private:
    Socket* socket_;
    int64_t kept_for_ = 0;
};

// What these give is for a Held, and not open unless they say so.

/// A place in the table for a request: a free one, or that of the socket that was answered longest
/// ago.
/// @return null where all of them wait for answers
Socket* claim_place();

/// The open socket of a context's last request, if more may come on it; or null.
/// @param also_answered  an answer may announce another one, as those of NVMe-MI do
Socket* claim_last(const mctp_ctx& ctx, bool also_answered);

/// The listener, open or not.
/// @param opened_by  only if it is open, and for this context; null: in any case
/// @return null, also while another thread has it
Socket* claim_listener(const mctp_ctx* opened_by = nullptr);

/// Puts a context's earlier requests behind it, now that there is another one with a tag.
void retire_earlier(const mctp_ctx& ctx);

/// Closes the socket of the endpoint's oldest request that nobody has answered, for its tag.
/// @return false if there is none
bool give_up_oldest(const mctp_ctx& ctx);

}  // namespace sideband

#endif
