// SPDX-License-Identifier: Apache-2.0
// MCTP messages over the kernel's sockets: it gives tags out, splits, reassembles and matches.
#include "transport/socket_message.h"

#include <poll.h>
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <span>

#include "common/clock.h"
#include "common/crc.h"
#include "common/error.h"
#include "common/output.h"
#include "common/wire.h"
#include "transport/deadline.h"
#include "transport/mctp.h"
#include "transport/socket_failure.h"
#include "transport/socket_table.h"

namespace sideband {
namespace {

constexpr char kName[] = "mctp socket";

// ---- The kernel's interface: linux/mctp.h, which not every tool chain has ----

constexpr int kFamily = 45;  // AF_MCTP
constexpr uint8_t kAnyAddress = 0xFF;
constexpr uint8_t kTagMask = 0x07;
constexpr uint8_t kTagOwner = 0x08;
/// The tag has been allocated before, and stays so behind an answer: MCTP_TAG_PREALLOC.
constexpr uint8_t kTagKept = 0x10;
/// The network that requests for a tag mean where they name none, and the first default network.
constexpr uint32_t kFirstNetwork = 1;

/// sockaddr_mctp. The type byte of a message is here, with its bit 7, and not in the payload.
struct Address {
    uint16_t family;
    uint16_t padding_0;
    uint32_t network;
    uint8_t eid;
    uint8_t type;
    uint8_t tag;
    uint8_t padding_1;
};
static_assert(sizeof(Address) == 12 && offsetof(Address, eid) == 8);

/// mctp_ioc_tag_ctl
struct TagRequest {
    uint8_t peer;
    uint8_t tag;
    uint16_t flags;
};
static_assert(sizeof(TagRequest) == 4);
constexpr unsigned long kAllocateTag = 0x89E0;  // SIOCMCTPALLOCTAG

/// mctp_ioc_tag_ctl2, since Linux 6.11
struct NetworkTagRequest {
    uint32_t network;
    uint8_t peer;
    uint8_t local;
    uint16_t flags;
    uint8_t tag;
    uint8_t padding[3];
};
static_assert(sizeof(NetworkTagRequest) == 12);
constexpr unsigned long kAllocateNetworkTag = 0x89E2;  // SIOCMCTPALLOCTAG2

// ---- What is reported ----

/// Reports a call of the kernel that failed, by errno.
/// @return false
bool report(mctp_ctx& ctx, const char* call) {
    const int error = errno;
    fail_with(ctx.last_error, cause_of(error), static_cast<uint16_t>(error));
    print_on_console("[%s] EID %d of network %u, %s: %s%s\n", kName, ctx.dest_eid, ctx.pcie_param,
                     call, std::strerror(error), hint_for(error));
    return false;
}

bool open_socket(mctp_ctx& ctx, Socket& socket) {
    socket.descriptor = ::socket(kFamily, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return socket.descriptor >= 0 || report(ctx, "socket");
}

// ---- The listener ----

bool is_pldm(const mctp_ctx& ctx) {
    return (ctx.msg_type & ~MCTP_MSG_TYPE_INTEGRITY_CHECK) == MCTP_MSG_TYPE_PLDM;
}

/// Opens and binds the listener, unless it is. To any network and any of the BMC's EIDs: that is
/// what other programs bind to, and the kernel refuses only what somebody has bound to just so;
/// before the summer of 2025 not even that, and a request then goes to either.
bool open_listener(mctp_ctx& ctx, Socket& socket) {
    socket.owner = &ctx;
    if (socket.descriptor >= 0) {
        return true;
    }
    Address local{};
    local.family = kFamily;
    local.eid = kAnyAddress;
    local.type = MCTP_MSG_TYPE_PLDM;
    local.tag = kTagOwner;
    return open_socket(ctx, socket) &&
           (bind(socket.descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ||
            report(ctx, "bind"));
}

/// Makes the listener ready for a context, with a report where it cannot be had.
bool have_listener(mctp_ctx& ctx, Held& held) {
    if (!held) {
        fail(ctx.last_error, SIDEBAND_CAUSE_LOCK);
        print_on_console(
            "[%s] EID %d of network %u: another thread receives the requests of devices\n", kName,
            ctx.dest_eid, ctx.pcie_param);
        return false;
    }
    if (!open_listener(ctx, *held)) {
        return false;
    }
    held.keep();
    return true;
}

/// What a request is to the update of a device's firmware (DSP0267, command codes).
enum class Step { kNone, kBegin, kTransfer, kEnd };

Step step_of(const mctp_ctx& ctx, std::span<const uint8_t> body) {
    constexpr uint8_t kTypeMask = 0x3F;
    constexpr uint8_t kRequestUpdate = 0x10;
    constexpr uint8_t kUpdateComponent = 0x14;
    constexpr uint8_t kActivateFirmware = 0x1A;
    constexpr uint8_t kCancelUpdate = 0x1D;
    if (!is_pldm(ctx) || body.size() < PLDM_HEADER_SIZE ||
        (body[1] & kTypeMask) != PLDM_TYPE_FW_UPDATE) {
        return Step::kNone;
    }
    switch (body[2]) {
        case kRequestUpdate:
            return Step::kBegin;
        case kUpdateComponent:
            return Step::kTransfer;
        case kActivateFirmware:
        case kCancelUpdate:
            return Step::kEnd;
        default:
            return Step::kNone;
    }
}

/// Leaves the message type to others again.
void stop_listening() {
    const Held held(claim_listener());
}

/// Opens the listener in front of a request that lets the device ask: it may do so right behind its
/// answer. What earlier updates have left there goes when another one begins.
bool listen_from(mctp_ctx& ctx, Step step) {
    if (step == Step::kBegin) {
        stop_listening();
    }
    Held held(claim_listener());
    return have_listener(ctx, held);
}

// ---- Sending ----

bool has_check(uint8_t type) {
    return (type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
}

/// Never waits: where there is no room for a message in the kernel's queues, it fails.
bool transmit(const mctp_ctx& ctx, int descriptor, uint8_t tag, std::span<const uint8_t> body) {
    Address peer{};
    peer.family = kFamily;
    peer.network = ctx.pcie_param;
    peer.eid = ctx.dest_eid;
    peer.type = ctx.msg_type;
    peer.tag = tag;
    std::array<uint8_t, sizeof(uint32_t)> check;
    iovec parts[2] = {{const_cast<uint8_t*>(body.data()), body.size()}, {check.data(), 0}};
    if (has_check(ctx.msg_type)) {
        WireWriter(check).le32(integrity_check(ctx.msg_type, body));
        parts[1].iov_len = check.size();
    }
    msghdr message{};
    message.msg_name = &peer;
    message.msg_namelen = sizeof peer;
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    return sendmsg(descriptor, &message, MSG_DONTWAIT) >= 0;
}

/// Asks for a tag that stays with the socket: an answer may be late, or not the last one.
/// @return false with errno set
bool ask_for_tag(const mctp_ctx& ctx, Socket& socket) {
    if (ctx.pcie_param > kFirstNetwork) {
        NetworkTagRequest request{ctx.pcie_param, ctx.dest_eid, 0, 0, 0, {}};
        if (ioctl(socket.descriptor, kAllocateNetworkTag, &request) == 0) {
            socket.tag = request.tag;
            return true;
        }
        if (errno == EBUSY) {
            return false;  // The older call would give out a tag of the first network.
        }
    }
    TagRequest request{ctx.dest_eid, 0, 0};
    if (ioctl(socket.descriptor, kAllocateTag, &request) != 0) {
        return false;
    }
    socket.tag = request.tag;
    return true;
}

/// Has a tag for the socket, if need be that of a request which nobody has answered. Kernels before
/// 5.18 give none out beforehand; there it comes with the message.
bool allocate_tag(mctp_ctx& ctx, Socket& socket) {
    socket.tag = kTagOwner;
    while (!ask_for_tag(ctx, socket)) {
        if (errno != EBUSY) {
            return true;
        }
        if (!give_up_oldest(ctx)) {
            errno = EBUSY;
            return report(ctx, "tag");
        }
    }
    return true;
}

bool transmit_request(mctp_ctx& ctx, Socket& socket, std::span<const uint8_t> body) {
    bool sent = transmit(ctx, socket.descriptor, socket.tag, body);
    if (!sent && errno == ENOENT) {
        // The tag is of another network: the default one has been changed.
        socket.tag = kTagOwner;
        sent = transmit(ctx, socket.descriptor, socket.tag, body);
    }
    if ((socket.tag & kTagKept) != 0) {
        ctx.tag = socket.tag & kTagMask;
    }
    return sent || report(ctx, "send");
}

bool send_request(mctp_ctx& ctx, Socket& socket, std::span<const uint8_t> body) {
    if (is_over(ctx)) {
        fail(ctx.last_error, SIDEBAND_CAUSE_DEADLINE);
        return false;
    }
    const Step step = step_of(ctx, body);
    if ((step == Step::kBegin || step == Step::kTransfer) && !listen_from(ctx, step)) {
        return false;
    }
    socket.answered = false;
    socket.owner = &ctx;
    socket.network = ctx.pcie_param;
    socket.eid = ctx.dest_eid;
    if (!open_socket(ctx, socket) || !allocate_tag(ctx, socket)) {
        return false;
    }
    retire_earlier(ctx);
    if (!transmit_request(ctx, socket, body)) {
        return false;
    }
    if (step == Step::kEnd) {
        stop_listening();
    }
    return true;
}

/// Sends a request on a socket of its own, which is kept then.
/// @param held  a place in the table, if there is one
bool send_on(mctp_ctx& ctx, Held& held, uint32_t length, const uint8_t* body) {
    if (!held) {
        fail_with(ctx.last_error, SIDEBAND_CAUSE_SYSTEM, EBUSY);
        print_on_console("[%s] EID %d of network %u: %zu requests wait for their answers\n", kName,
                         ctx.dest_eid, ctx.pcie_param, kRequestsMax);
        return false;
    }
    if (!send_request(ctx, *held, {body, length})) {
        return false;
    }
    held.keep();
    return true;
}

/// Answers the request that was received last.
int32_t send_answer(mctp_ctx& ctx, std::span<const uint8_t> body) {
    if (!is_pldm(ctx)) {
        errno = EOPNOTSUPP;
        report(ctx, "answer");
        return -1;
    }
    if (is_over(ctx)) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    Held held(claim_listener());
    if (!have_listener(ctx, held)) {
        return -1;
    }
    // On Linux 6.1 each answer that finds the listener's queue full costs a reference for ever.
    pollfd room{(*held).descriptor, POLLOUT, 0};
    bool sent = poll(&room, 1, 0) == 1;
    errno = EAGAIN;
    sent = sent && transmit(ctx, room.fd, ctx.tag & kTagMask, body);
    return sent || report(ctx, "answer") ? 0 : -1;
}

// ---- Receiving ----

/// A message with an integrity check is looked at as a whole. No NVMe-MI message is larger (NVMe-MI
/// over MCTP, message size).
constexpr size_t kCheckedMax = 4224;

/// The low half of what other bindings hand to the platform's read, in milliseconds.
uint32_t wait_of(const mctp_ctx& ctx) {
    constexpr uint32_t kMask = 0xFFFF;
    const uint32_t named = ctx.route & kMask;
    return named != 0 ? named : MCTP_SOCKET_WAIT_DEFAULT_MS;
}

/// What is left of a wait in milliseconds, or up to the time limit of the context, which has a
/// clock of its own.
int64_t rest_of(int64_t left, const mctp_ctx& ctx) {
    return ctx.deadline_s == 0 ? left : std::min<int64_t>(left, time_left_ms(ctx.section));
}

/// The wait for one message.
class Reception {
public:
    /// @param last      the socket of the context's last request, or null
    /// @param requests  the listener, or null
    Reception(mctp_ctx& ctx, std::span<uint8_t> room, Socket* last, Socket* requests)
        : ctx_(ctx), room_(room), last_(last), requests_(requests) {}

    /// @return body bytes stored; -1
    int32_t run() {
        const int32_t result = wait();
        if (dropped_ > 1) {
            debug_log("[%s] %u more messages dropped\n", kName, dropped_ - 1);
        }
        return result;
    }

private:
    static constexpr int32_t kNothing = 0;

    int32_t wait();
    int32_t read_one(Socket& socket);
    const char* refuse(const Socket& socket, const Address& from, ssize_t length) const;
    int32_t store(int descriptor);
    int32_t store_checked(int descriptor, uint8_t type);
    void drop(const Address& from, ssize_t length, const char* why);
    void accept(Socket& socket, const Address& from);

    mctp_ctx& ctx_;
    std::span<uint8_t> room_;
    Socket* last_;
    Socket* requests_;
    uint32_t dropped_ = 0;
    uint8_t dropped_for_ = SIDEBAND_CAUSE_WRONG_TAG;
};

int32_t Reception::wait() {
    const uint32_t wait = wait_of(ctx_);
    const int64_t end = monotonic_ms() + wait;
    Socket* const from[] = {last_, requests_};
    pollfd polled[std::size(from)];
    for (size_t i = 0; i < std::size(from); ++i) {
        polled[i] = {from[i] != nullptr ? from[i]->descriptor : -1, POLLIN, 0};
    }
    for (int64_t left = rest_of(wait, ctx_); left > 0; left = rest_of(end - monotonic_ms(), ctx_)) {
        const int ready = poll(polled, std::size(polled), static_cast<int>(left));
        if (ready < 0 && errno != EINTR) {
            report(ctx_, "poll");
            return -1;
        }
        for (size_t i = 0; ready > 0 && i < std::size(from); ++i) {
            const bool speaks = from[i] != nullptr && polled[i].revents != 0;
            const int32_t result = speaks ? read_one(*from[i]) : kNothing;
            if (result != kNothing) {
                return result;
            }
        }
    }
    debug_log("[%s] EID %d of network %u: nothing within %u ms\n", kName, ctx_.dest_eid,
              ctx_.pcie_param, wait);
    if (is_over(ctx_)) {
        return fail(ctx_.last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    return fail(ctx_.last_error, dropped_ != 0 ? dropped_for_ : SIDEBAND_CAUSE_NO_ANSWER);
}

/// Looks at the next message, and takes it from its queue.
int32_t Reception::read_one(Socket& socket) {
    constexpr int kLook = MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT;
    const int descriptor = socket.descriptor;
    Address from{};
    socklen_t size = sizeof from;
    uint8_t nothing = 0;
    const ssize_t length =
        recvfrom(descriptor, &nothing, 0, kLook, reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0) {
        const bool passes = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        return passes || report(ctx_, "receive") ? kNothing : -1;
    }
    if (size != sizeof from) {
        from = {};
    }
    const char* why = refuse(socket, from, length);
    if (why != nullptr) {
        recvfrom(descriptor, &nothing, 0, MSG_DONTWAIT, nullptr, nullptr);
        drop(from, length, why);
        return kNothing;
    }
    const int32_t stored =
        has_check(from.type) ? store_checked(descriptor, from.type) : store(descriptor);
    if (stored > 0) {
        accept(socket, from);
    } else if (has_check(from.type)) {
        drop(from, length, "wrong integrity check");
        dropped_for_ = SIDEBAND_CAUSE_WRONG_CHECK;
    }
    return stored;
}

/// @return why a message is not what is waited for; null where it is
const char* Reception::refuse(const Socket& socket, const Address& from, ssize_t length) const {
    if (from.family != kFamily || from.eid != ctx_.dest_eid ||
        (ctx_.pcie_param != 0 && from.network != ctx_.pcie_param)) {
        return "another sender";
    }
    if (((from.type ^ ctx_.msg_type) & ~MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0) {
        return "another message type";
    }
    const bool is_known = &socket != requests_ && (socket.tag & kTagKept) != 0;
    const uint8_t differs = from.tag ^ (is_known ? socket.tag & kTagMask : from.tag & kTagMask);
    if (differs != (&socket == requests_ ? kTagOwner : 0)) {
        return "another tag";
    }
    if (has_check(ctx_.msg_type) && !has_check(from.type)) {
        return "no integrity check";
    }
    if (length == 0) {
        return "no body";
    }
    const bool fits = !has_check(from.type) || static_cast<size_t>(length) <= kCheckedMax;
    return fits ? nullptr : "too long for its integrity check";
}

int32_t Reception::store(int descriptor) {
    const ssize_t stored =
        recvfrom(descriptor, room_.data(), room_.size(), MSG_DONTWAIT, nullptr, nullptr);
    return static_cast<int32_t>(std::max<ssize_t>(stored, kNothing));
}

/// The check stays at the end of the body, as other bindings deliver it, unless a strict context
/// has none delivered.
int32_t Reception::store_checked(int descriptor, uint8_t type) {
    constexpr size_t kCheckSize = sizeof(uint32_t);
    std::array<uint8_t, kCheckedMax> whole;
    const ssize_t received =
        recvfrom(descriptor, whole.data(), whole.size(), MSG_DONTWAIT, nullptr, nullptr);
    if (received <= static_cast<ssize_t>(kCheckSize)) {
        return kNothing;
    }
    const auto message = std::span(whole).first(static_cast<size_t>(received));
    const auto body = message.first(message.size() - kCheckSize);
    if (WireReader(message.last(kCheckSize)).le32() != integrity_check(type, body)) {
        return kNothing;
    }
    const auto delivered = is_strict(ctx_, MCTP_STRICT_INTEGRITY) ? body : message;
    const size_t stored = std::min(delivered.size(), room_.size());
    std::copy_n(delivered.begin(), stored, room_.begin());
    return static_cast<int32_t>(stored);
}

/// The first of a wait is reported, the rest of them counted.
void Reception::drop(const Address& from, ssize_t length, const char* why) {
    dropped_for_ = SIDEBAND_CAUSE_WRONG_TAG;
    if (dropped_++ == 0) {
        debug_log("[%s] dropped %zd bytes from EID %d of network %u, type 0x%02x, tag 0x%02x: %s\n",
                  kName, length, from.eid, from.network, from.type, from.tag, why);
    }
}

void Reception::accept(Socket& socket, const Address& from) {
    socket.answered = true;
    ctx_.tag = from.tag & kTagMask;
    ctx_.binding_eids[0] = from.eid;
    // From now on the default network is the one that it was.
    ctx_.pcie_param = from.network;
    if (last_ != nullptr) {
        last_->network = from.network;
    }
}

}  // namespace

int32_t socket_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    ctx->last_error = kNoError;
    if (body == nullptr && length != 0) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (tag_owner == 0) {
        return send_answer(*ctx, {body, length});
    }
    Held held(claim_place());
    return send_on(*ctx, held, length, body) ? 0 : -1;
}

int32_t socket_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    ctx->last_error = kNoError;
    if (buffer == nullptr || length <= 0) {
        return 0;
    }
    const bool pldm = is_pldm(*ctx);
    Held last(claim_last(*ctx, !pldm));
    Held requests(pldm ? claim_listener(last ? ctx : nullptr) : nullptr);
    if (last) {
        last.keep();
    } else if (!pldm) {
        errno = ENOTCONN;
        report(*ctx, "receive");
        return -1;
    }
    if ((requests || !last) && !have_listener(*ctx, requests)) {
        // Who serves a device asks again at once, since the wait is here.
        poll(nullptr, 0, static_cast<int>(std::max<int64_t>(rest_of(wait_of(*ctx), *ctx), 0)));
        return -1;
    }
    const std::span<uint8_t> room(buffer, static_cast<size_t>(length));
    return Reception(*ctx, room, last.get(), requests.get()).run();
}

int32_t socket_recv_answer(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    Held last(claim_last(*ctx, true));
    last.keep();  // Another thread may have closed it for its tag: nothing comes then.
    return Reception(*ctx, {buffer, static_cast<size_t>(length)}, last.get(), nullptr).run();
}

int32_t socket_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                    const uint8_t* request, uint8_t* response) {
    ctx->last_error = kNoError;
    if (request == nullptr && request_length != 0) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    Held held(claim_place());
    if (!send_on(*ctx, held, request_length, request)) {
        return -1;
    }
    if (response == nullptr || response_length < 1) {
        return 0;
    }
    const std::span<uint8_t> room(response, static_cast<size_t>(response_length));
    const int32_t result = Reception(*ctx, room, held.get(), nullptr).run();
    if (result < 0) {
        (*held).owner = nullptr;  // Its answer is late, whatever comes.
    }
    return result;
}

}  // namespace sideband
