// SPDX-License-Identifier: Apache-2.0
// The kernel's side of a CUSE device: puts requests, and takes the answers apart.
#ifndef SIDEBAND_TESTS_SIM_CUSE_FAKE_CUSE_H
#define SIDEBAND_TESTS_SIM_CUSE_FAKE_CUSE_H

#include <linux/fuse.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/cuse/device.h"

namespace cuse_test {

using sim::Bytes;
using Ranges = std::vector<std::pair<uint64_t, uint64_t>>;  ///< address and size

template <typename Record>
Bytes record(const Record& from) {
    Bytes bytes(sizeof from);
    std::memcpy(bytes.data(), &from, sizeof from);
    return bytes;
}

template <typename Record>
Record record_at(const Bytes& bytes, size_t at = 0) {
    Record to{};
    if (bytes.size() < at + sizeof to) {
        throw std::runtime_error("the answer is too short");
    }
    std::memcpy(&to, bytes.data() + at, sizeof to);
    return to;
}

/// What came of one call of ioctl().
struct Round {
    bool again = false;  ///< more of the caller's memory is wanted
    int result = 0;
    Ranges in;
    Ranges out;
    Bytes bytes;
};

class FakeCuse {
public:
    static constexpr uint64_t kUnique = 4711;

    FakeCuse() {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_) != 0) {
            throw std::runtime_error("no socket pair");
        }
        const int room = 1 << 20;
        setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }
    ~FakeCuse() { hang_up(); }
    FakeCuse(const FakeCuse&) = delete;
    FakeCuse& operator=(const FakeCuse&) = delete;

    /// What a device takes for /dev/cuse; the device closes it.
    int device_end() const { return ends_[1]; }
    void hang_up() {
        if (ends_[0] >= 0) {
            close(std::exchange(ends_[0], -1));
        }
    }

    void put(const Bytes& request) const {
        if (write(ends_[0], request.data(), request.size()) !=
            static_cast<ssize_t>(request.size())) {
            throw std::runtime_error("the request is not taken");
        }
    }
    /// The next answer; empty if there is none.
    Bytes next() const {
        Bytes answer(256 << 10);
        const ssize_t length = read(ends_[0], answer.data(), answer.size());
        answer.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return answer;
    }
    Bytes ask(sim::CuseDevice& device, uint32_t opcode, const Bytes& body) const {
        fuse_in_header head{};
        head.len = static_cast<uint32_t>(sizeof head + body.size());
        head.opcode = opcode;
        head.unique = kUnique;
        Bytes request = record(head);
        request.insert(request.end(), body.begin(), body.end());
        put(request);
        if (!device.serve()) {
            throw std::runtime_error("the device has ended");
        }
        return next();
    }
    /// @param came  what the kernel brings of the caller's memory
    Round ioctl(sim::CuseDevice& device, uint32_t command, uint64_t argument, const Bytes& came,
                size_t room, uint64_t opening = 1) const {
        fuse_ioctl_in call{};
        call.fh = opening;
        call.flags = FUSE_IOCTL_UNRESTRICTED;
        call.cmd = command;
        call.arg = argument;
        call.in_size = static_cast<uint32_t>(came.size());
        call.out_size = static_cast<uint32_t>(room);
        Bytes body = record(call);
        body.insert(body.end(), came.begin(), came.end());
        const Bytes answer = ask(device, FUSE_IOCTL, body);
        size_t at = sizeof(fuse_out_header);
        const auto head = record_at<fuse_ioctl_out>(answer, at);
        at += sizeof head;
        Round round{.again = (head.flags & FUSE_IOCTL_RETRY) != 0,
                    .result = head.result,
                    .in = {},
                    .out = {},
                    .bytes = {}};
        for (uint32_t i = 0; round.again && i < head.in_iovs + head.out_iovs; ++i) {
            const auto range = record_at<fuse_ioctl_iovec>(answer, at);
            at += sizeof range;
            (i < head.in_iovs ? round.in : round.out).emplace_back(range.base, range.len);
        }
        round.bytes.assign(answer.begin() + static_cast<ptrdiff_t>(at), answer.end());
        return round;
    }

private:
    int ends_[2] = {-1, -1};
};

}  // namespace cuse_test

#endif
