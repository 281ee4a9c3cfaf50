// SPDX-License-Identifier: Apache-2.0
// The sockets that the process has open to the kernel's MCTP.
#include "transport/socket_table.h"

#include <pthread.h>
#include <unistd.h>

#include "common/clock.h"

namespace sideband {
namespace {

using Use = Socket::Use;

/// As long as Linux keeps a tag for an answer.
constexpr int64_t kKeptMs = 6000;
/// Between two messages of a device that is being updated, at most.
constexpr int64_t kListenerKeptMs = 60000;

// What follows is guarded by the mutex, but for the sockets that are busy: they belong to who uses
// them, apart from the member that says so.
pthread_mutex_t table_mutex = PTHREAD_MUTEX_INITIALIZER;
Socket sockets[kRequestsMax];
Socket listener;

class TableLock {
public:
    TableLock() { pthread_mutex_lock(&table_mutex); }
    ~TableLock() { pthread_mutex_unlock(&table_mutex); }
    TableLock(const TableLock&) = delete;
    TableLock& operator=(const TableLock&) = delete;
};

void close_socket(Socket& socket) {
    if (socket.descriptor >= 0) {
        close(socket.descriptor);
    }
    socket.use = Use::kFree;
}

void close_if_over(Socket& socket, int64_t now) {
    if (socket.use == Use::kKept && socket.until <= now) {
        close_socket(socket);
    }
}

Socket* claim(Socket& socket) {
    if (socket.use == Use::kFree) {
        socket.descriptor = -1;
    }
    socket.use = Use::kBusy;
    return &socket;
}

}  // namespace

Held::~Held() {
    if (socket_ == nullptr) {
        return;
    }
    const TableLock lock;
    if (kept_for_ == 0) {
        close_socket(*socket_);
    } else {
        socket_->until = monotonic_ms() + kept_for_;
        socket_->use = Use::kKept;
    }
}

void Held::keep() {
    kept_for_ = socket_ == &listener ? kListenerKeptMs : kKeptMs;
}

Socket* claim_place() {
    const int64_t now = monotonic_ms();
    const TableLock lock;
    Socket* oldest = nullptr;
    Socket* place = nullptr;
    close_if_over(listener, now);
    for (Socket& socket : sockets) {
        close_if_over(socket, now);
        if (socket.use == Use::kFree) {
            place = &socket;
        } else if (socket.use == Use::kKept && socket.answered &&
                   (oldest == nullptr || socket.until < oldest->until)) {
            oldest = &socket;
        }
    }
    if (place == nullptr && oldest != nullptr) {
        close_socket(*oldest);
        place = oldest;
    }
    return place != nullptr ? claim(*place) : nullptr;
}

Socket* claim_last(const mctp_ctx& ctx, bool also_answered) {
    const TableLock lock;
    for (Socket& socket : sockets) {
        if (socket.use == Use::kKept && socket.owner == &ctx && socket.eid == ctx.dest_eid &&
            socket.network == ctx.pcie_param && (also_answered || !socket.answered)) {
            return claim(socket);
        }
    }
    return nullptr;
}

Socket* claim_listener(const mctp_ctx* opened_by) {
    const TableLock lock;
    const bool wanted =
        opened_by == nullptr || (listener.use == Use::kKept && listener.owner == opened_by);
    return wanted && listener.use != Use::kBusy ? claim(listener) : nullptr;
}

bool give_up_oldest(const mctp_ctx& ctx) {
    const TableLock lock;
    Socket* oldest = nullptr;
    for (Socket& socket : sockets) {
        if (socket.use == Use::kKept && socket.eid == ctx.dest_eid &&
            socket.network == ctx.pcie_param &&
            (oldest == nullptr || socket.until < oldest->until)) {
            oldest = &socket;
        }
    }
    if (oldest != nullptr) {
        close_socket(*oldest);
    }
    return oldest != nullptr;
}

void retire_earlier(const mctp_ctx& ctx) {
    const TableLock lock;
    for (Socket& socket : sockets) {
        if (socket.use == Use::kKept && socket.owner == &ctx) {
            socket.owner = nullptr;
            if (socket.answered) {
                close_socket(socket);
            }
        }
    }
}

}  // namespace sideband
