// SPDX-License-Identifier: Apache-2.0
// A character device that this process makes and serves, by the kernel's CUSE.
#include "sim/cuse/device.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace sim {

namespace {

constexpr size_t kLongestTransfer = 4096;
/// What an ioctl() brings along is the longest: as much as the kernel passes, and what is in front.
constexpr size_t kLongestRequest = (size_t{128} << 10) + 4096;
constexpr int kMakeWaitMs = 5000;
/// Ranges of a caller's memory that the kernel takes.
constexpr size_t kMostRanges = FUSE_IOCTL_MAX_IOV;

// The records of <linux/fuse.h> are the kernel's own, in its byte order and with its padding.
template <typename Record>
void append_record(Bytes& out, const Record& record) {
    const size_t at = out.size();
    out.resize(at + sizeof record);
    std::memcpy(out.data() + at, &record, sizeof record);
}

void append_ranges(Bytes& out, const std::vector<CallerMemory::Range>& ranges) {
    for (const CallerMemory::Range& range : ranges) {
        append_record(out, fuse_ioctl_iovec{.base = range.address, .len = range.size});
    }
}

}  // namespace

struct CuseDevice::Request {
    fuse_in_header head{};
    ByteView rest;

    /// Takes a record off the front. @return false where the request is too short
    template <typename Record>
    bool take(Record& record) {
        if (rest.size() < sizeof record) {
            return false;
        }
        std::memcpy(&record, rest.data(), sizeof record);
        rest = rest.subspan(sizeof record);
        return true;
    }
};

std::optional<ByteView> CallerMemory::read(uint64_t address, size_t size) {
    if (size != 0) {
        reads_.push_back({address, size});
    }
    if (missing_ || came_.size() < size) {
        missing_ = true;
        return std::nullopt;
    }
    const ByteView bytes = came_.first(size);
    came_ = came_.subspan(size);
    return bytes;
}

void CallerMemory::reserve(uint64_t address, size_t size) {
    if (size != 0) {
        writes_.push_back({address, size});
        reserved_ += size;
    }
}

int DeviceNode::read(size_t, Bytes&) {
    return -EINVAL;
}

int DeviceNode::write(uint64_t, ByteView) {
    return -EINVAL;
}

IoctlAnswer DeviceNode::ioctl(uint64_t, uint32_t, uint64_t, CallerMemory&) {
    return {.result = -ENOTTY, .bytes = {}};
}

uint32_t DeviceNode::events(bool) {
    return POLLIN | POLLOUT;
}

std::unique_ptr<CuseDevice> CuseDevice::make(const std::string& name, DeviceNode& node,
                                             std::string& error) {
    const std::string path = "/dev/" + name;
    if (access(path.c_str(), F_OK) == 0) {
        error = path + " is there already";
        return nullptr;
    }
    const int descriptor = ::open("/dev/cuse", O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        error = std::string("/dev/cuse: ") + std::strerror(errno);
        return nullptr;
    }
    auto device = std::make_unique<CuseDevice>(descriptor, name, node);
    pollfd kernel{.fd = descriptor, .events = POLLIN, .revents = 0};
    ::poll(&kernel, 1, kMakeWaitMs);
    if (!device->serve() || !device->is_made() || access(path.c_str(), F_OK) != 0) {
        error = "the kernel does not make " + path;
        return nullptr;
    }
    return device;
}

CuseDevice::CuseDevice(int descriptor, std::string name, DeviceNode& node)
    : descriptor_(descriptor), name_(std::move(name)), node_(node), room_(kLongestRequest) {}

CuseDevice::~CuseDevice() {
    close(descriptor_);
}

bool CuseDevice::serve() {
    // Who asks again and again must not keep the rest of the board waiting: the descriptor stays
    // readable.
    constexpr int kMostAtOnce = 64;
    for (int i = 0; i < kMostAtOnce; ++i) {
        const ssize_t length = ::read(descriptor_, room_.data(), room_.size());
        if (length > 0) {
            take(ByteView(room_).first(static_cast<size_t>(length)));
        } else if (length < 0 && errno == EAGAIN) {
            return true;
        } else if (length == 0 || (errno != EINTR && errno != ENOENT)) {
            return false;
        }
    }
    return true;
}

void CuseDevice::take(ByteView bytes) {
    Request request{.head = {}, .rest = bytes};
    if (!request.take(request.head)) {
        return;
    }
    switch (request.head.opcode) {
        case CUSE_INIT:
            return make_known(request);
        case FUSE_OPEN:
            return open(request);
        case FUSE_READ:
            return read(request);
        case FUSE_WRITE:
            return write(request);
        case FUSE_IOCTL:
            return ioctl(request);
        case FUSE_POLL:
            return poll(request);
        case FUSE_RELEASE:
            return release(request);
        case FUSE_INTERRUPT:
        case FUSE_FORGET:
            return;  // nothing takes long enough to be interrupted; neither has an answer
        default:
            return reply(request, -ENOSYS);
    }
}

void CuseDevice::make_known(const Request& request) {
    const std::string info = "DEVNAME=" + name_;
    cuse_init_out answer{};
    answer.major = FUSE_KERNEL_VERSION;
    answer.minor = FUSE_KERNEL_MINOR_VERSION;
    answer.flags = CUSE_UNRESTRICTED_IOCTL;
    answer.max_read = kLongestTransfer;
    answer.max_write = kLongestTransfer;
    Bytes bytes;
    append_record(bytes, answer);
    bytes.insert(bytes.end(), info.begin(), info.end());
    bytes.push_back(0);
    reply(request, 0, bytes);
    made_ = true;
}

void CuseDevice::open(const Request& request) {
    fuse_open_out answer{};
    answer.fh = ++openings_;
    answer.open_flags = FOPEN_DIRECT_IO | FOPEN_NONSEEKABLE;
    Bytes bytes;
    append_record(bytes, answer);
    reply(request, 0, bytes);
}

void CuseDevice::read(Request& request) {
    fuse_read_in wanted{};
    if (!request.take(wanted)) {
        return reply(request, -EINVAL);
    }
    Bytes bytes;
    const int result = node_.read(std::min<size_t>(wanted.size, kLongestTransfer), bytes);
    reply(request, result, bytes);
}

void CuseDevice::write(Request& request) {
    fuse_write_in given{};
    if (!request.take(given) || given.size > request.rest.size()) {
        return reply(request, -EINVAL);
    }
    const int result = node_.write(given.fh, request.rest.first(given.size));
    Bytes bytes;
    append_record(bytes, fuse_write_out{.size = given.size, .padding = 0});
    reply(request, result, bytes);
}

void CuseDevice::ioctl(Request& request) {
    fuse_ioctl_in call{};
    // A caller of another word size has other records than this process.
    if (!request.take(call) || (call.flags & FUSE_IOCTL_COMPAT) != 0) {
        return reply(request, -ENOTTY);
    }
    const size_t came = std::min<size_t>(call.in_size, request.rest.size());
    CallerMemory memory(request.rest.first(came), call.out_size);
    const IoctlAnswer answer = node_.ioctl(call.fh, call.cmd, call.arg, memory);
    fuse_ioctl_out head{};
    head.result = answer.result;
    Bytes bytes;
    if (memory.whole() || answer.result < 0) {
        append_record(bytes, head);
        append(bytes, answer.bytes);
        return reply(request, 0, bytes);
    }
    if (memory.reads().size() + memory.writes().size() > kMostRanges) {
        return reply(request, -EINVAL);
    }
    head.flags = FUSE_IOCTL_RETRY;
    head.in_iovs = static_cast<uint32_t>(memory.reads().size());
    head.out_iovs = static_cast<uint32_t>(memory.writes().size());
    append_record(bytes, head);
    append_ranges(bytes, memory.reads());
    append_ranges(bytes, memory.writes());
    reply(request, 0, bytes);
}

void CuseDevice::poll(Request& request) {
    fuse_poll_in asked{};
    if (!request.take(asked)) {
        return reply(request, -EINVAL);
    }
    const bool waits = (asked.flags & FUSE_POLL_SCHEDULE_NOTIFY) != 0;
    if (waits) {
        waiting_[asked.kh] = asked.fh;
    }
    Bytes bytes;
    append_record(bytes, fuse_poll_out{.revents = node_.events(waits), .padding = 0});
    reply(request, 0, bytes);
}

void CuseDevice::release(Request& request) {
    fuse_release_in closing{};
    if (request.take(closing)) {
        std::erase_if(waiting_, [&](const auto& each) { return each.second == closing.fh; });
        node_.closed(closing.fh);
    }
    reply(request, 0);
}

void CuseDevice::wake() {
    for (const auto& [handle, opening] : std::exchange(waiting_, {})) {
        Bytes bytes;
        append_record(bytes, fuse_notify_poll_wakeup_out{.kh = handle});
        send(0, FUSE_NOTIFY_POLL, bytes);
    }
}

void CuseDevice::reply(const Request& request, int result, ByteView bytes) const {
    send(request.head.unique, result, result < 0 ? ByteView{} : bytes);
}

/// Who has given up meanwhile takes no answer, and nobody misses it.
void CuseDevice::send(uint64_t unique, int error, ByteView bytes) const {
    Bytes whole;
    append_record(
        whole, fuse_out_header{.len = static_cast<uint32_t>(sizeof(fuse_out_header) + bytes.size()),
                               .error = error,
                               .unique = unique});
    append(whole, bytes);
    [[maybe_unused]] const ssize_t taken = ::write(descriptor_, whole.data(), whole.size());
}

}  // namespace sim
