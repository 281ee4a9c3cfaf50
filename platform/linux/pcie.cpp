// SPDX-License-Identifier: Apache-2.0
// Platform interface: MCTP messages over PCIe, which the kernel's MCTP carries: it has the drivers,
// splits messages and gives tags out. Bus, device and function mean nothing to it, EIDs do.
#include <linux/mctp.h>
#include <sideband/platform.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>

#include "platform/linux/mctp_socket.h"
#include "platform/linux/state.h"

namespace {

using machine::MctpArrival;
using machine::MctpPeer;
using machine::MctpSocket;

constexpr int kSuccess = 1;
constexpr int kFailure = 0;
constexpr int kDefaultWaitMs = 1000;
/// The kernel has eight tags for a peer, and reserves one for six seconds (mctp_key_lifetime).
constexpr size_t kMostTags = 7;
constexpr int64_t kTagLifetimeMs = 6000;

// DSP0240, clause 7: type byte, instance ID, PLDM type.
constexpr uint8_t kTypeBits = 0x7F;
constexpr uint8_t kPldm = 1;
constexpr size_t kPldmTypeAt = 2;
constexpr uint8_t kPldmTypeBits = 0x3F;
constexpr uint8_t kFirmwareUpdate = 5;

/// What stays from one call to the next: who has asked the BMC something, and where such requests
/// arrive.
class Session {
public:
    int run(plt_pcie_request& request);

private:
    int exchange(plt_pcie_request& request);
    int write(const plt_pcie_request& request);
    int read(plt_pcie_request& request);
    bool listen(uint8_t type);

    /// A request that had no answer, and the time at which the kernel forgets it.
    struct Unanswered {
        MctpSocket socket;
        int64_t until;
    };

    std::mutex mutex_;
    std::deque<Unanswered> unanswered_;
    std::optional<MctpSocket> listener_;
    uint8_t listener_type_ = 0;
    uint8_t spoken_ = kPldm;  ///< type of the last request
    /// The request that was read last, and the EID that it was sent to as the record tells it.
    std::optional<MctpPeer> asker_;
};

/// Stands where a caller has no session.
Session& common_session() {
    static Session session;
    return session;
}

uint32_t net_of(const plt_pcie_request& request) {
    const uint32_t named = request.param >> 16;
    return named != 0 ? named : machine::in_use()->board.pcie_net;
}

int wait_of(const plt_pcie_request& request) {
    const int named = static_cast<int>(request.param & 0xFFFF);
    return named != 0 ? named : kDefaultWaitMs;
}

std::span<const uint8_t> message_of(const plt_pcie_request& request) {
    return {request.message, request.length};
}

int fail(const plt_pcie_request& request, const char* call) {
    const std::string why =
        errno == EAFNOSUPPORT ? machine::mctp_objection() : std::strerror(errno);
    console_log("MCTP over PCIe, EID %u of network %u: %s: %s\n", request.dest_eid, net_of(request),
                call, why.c_str());
    return kFailure;
}

/// A device whose firmware is being updated asks for its image.
bool will_be_asked(std::span<const uint8_t> message) {
    return message.size() > kPldmTypeAt && (message[0] & kTypeBits) == kPldm &&
           (message[kPldmTypeAt] & kPldmTypeBits) == kFirmwareUpdate;
}

void store(const MctpArrival& arrival, uint8_t own_eid, plt_pcie_request& request) {
    request.length = static_cast<uint32_t>(arrival.length);
    request.src_eid = arrival.peer.eid;
    request.dest_eid = own_eid;
    request.tag = arrival.peer.tag;
}

int Session::run(plt_pcie_request& request) {
    const std::lock_guard guard(mutex_);
    if (request.operation == PLT_PCIE_READ) {
        return read(request);
    }
    if (request.length < 1 || request.length > sizeof request.message || request.dest_eid > 0xFF) {
        return kFailure;
    }
    if (request.operation == PLT_PCIE_WRITE) {
        return write(request);
    }
    return request.operation == PLT_PCIE_WRITE_READ ? exchange(request) : kFailure;
}

/// A socket for each exchange. One that had no answer stays for as long as the kernel reserves its
/// tag: else the next request would have the same, and a late answer would pass for its own.
int Session::exchange(plt_pcie_request& request) {
    const std::span<const uint8_t> message = message_of(request);
    spoken_ = message[0] & kTypeBits;
    if (will_be_asked(message)) {
        listen(spoken_);
    }
    std::optional<MctpSocket> socket = MctpSocket::open();
    if (!socket) {
        return fail(request, "socket");
    }
    const MctpPeer peer{
        .net = net_of(request), .eid = static_cast<uint8_t>(request.dest_eid), .tag_owner = true};
    if (!socket->send(peer, message)) {
        return fail(request, "sending");
    }
    const uint8_t type = message[0];
    const auto answers = [&](const MctpPeer& from, uint8_t its_type) {
        return !from.tag_owner && from.eid == peer.eid && its_type == type;
    };
    const std::optional<MctpArrival> arrival =
        socket->receive(request.message, wait_of(request), answers);
    const int64_t now = machine::now_ms();
    while (!unanswered_.empty() &&
           (unanswered_.front().until <= now || unanswered_.size() >= kMostTags)) {
        unanswered_.pop_front();
    }
    if (!arrival) {
        unanswered_.push_back({std::move(*socket), now + kTagLifetimeMs});
        return kFailure;
    }
    // The kernel has matched the answer by a tag of its own; the caller compares it with what it
    // asked for.
    const uint8_t asked = request.tag;
    store(*arrival, request.src_eid, request);
    request.tag = asked;
    return kSuccess;
}

/// An answer goes to who asked, with the tag of the request; all else is a request of the BMC's own
/// that wants no answer. The addressing in the record is what read() has put there, or turned
/// round.
int Session::write(const plt_pcie_request& request) {
    const auto to = static_cast<uint8_t>(request.dest_eid);
    const bool answer = asker_ && request.tag == asker_->tag &&
                        (to == asker_->eid || request.src_eid == asker_->eid);
    if (answer && listener_) {
        const MctpPeer peer{.net = asker_->net, .eid = asker_->eid, .tag = asker_->tag};
        asker_.reset();
        return listener_->send(peer, message_of(request)) ? kSuccess : fail(request, "answering");
    }
    spoken_ = request.message[0] & kTypeBits;
    std::optional<MctpSocket> socket = MctpSocket::open();
    const MctpPeer peer{.net = net_of(request), .eid = to, .tag_owner = true};
    return socket && socket->send(peer, message_of(request)) ? kSuccess : fail(request, "sending");
}

int Session::read(plt_pcie_request& request) {
    if (!listen(spoken_)) {
        return kFailure;
    }
    const uint32_t net = net_of(request);
    const auto any = [net](const MctpPeer& from, uint8_t) {
        return from.tag_owner && (net == MCTP_NET_ANY || from.net == net);
    };
    const std::optional<MctpArrival> arrival =
        listener_->receive(request.message, wait_of(request), any);
    if (!arrival) {
        return kFailure;
    }
    asker_ = arrival->peer;
    store(*arrival, machine::in_use()->board.bmc_eid, request);
    return kSuccess;
}

bool Session::listen(uint8_t type) {
    if (listener_ && listener_type_ == type) {
        return true;
    }
    listener_ = MctpSocket::open();
    if (listener_ && listener_->listen(type)) {
        listener_type_ = type;
        return true;
    }
    const int error = errno;
    listener_.reset();
    console_log("MCTP over PCIe: requests of message type %u cannot be received: %s\n", type,
                error == EADDRINUSE ? "another process has that type" : std::strerror(error));
    return false;
}

}  // namespace

int PltMCTP_WriteRead(plt_pcie_request* request) {
    if (request == nullptr || machine::in_use() == nullptr) {
        return kFailure;
    }
    Session& session =
        request->session != nullptr ? *static_cast<Session*>(request->session) : common_session();
    return session.run(*request);
}

// Always: services open a session for whatever they update. Sockets are opened as they are needed.
int libmctp_pcie_open(plt_pcie_session* session) {
    if (session == nullptr) {
        return -EINVAL;
    }
    session->handle = new (std::nothrow) Session;
    return session->handle != nullptr ? 0 : -ENOMEM;
}

void libmctp_pcie_close(plt_pcie_session* session) {
    if (session != nullptr) {
        delete static_cast<Session*>(session->handle);
        session->handle = nullptr;
    }
}
