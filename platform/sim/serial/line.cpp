// SPDX-License-Identifier: Apache-2.0
// One end of a serial line: a new pseudo-terminal, or a tty that is there already.
#include "sim/serial/line.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "sim/board/real_time.h"

namespace sim {

namespace {

/// Nothing tells of a pseudo-terminal that is opened again. It is looked at so often.
constexpr uint64_t kLookNs = 20'000'000;

int open_pseudo_terminal(std::string& path) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    char name[128];
    if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 &&
        ptsname_r(master, name, sizeof name) == 0) {
        path = name;
        return master;
    }
    if (master >= 0) {
        const int why = errno;
        close(master);
        errno = why;
    }
    return -1;
}

int open_tty(const std::string& path) {
    const int tty = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (tty >= 0 && isatty(tty) == 0) {
        close(tty);
        errno = ENOTTY;
        return -1;
    }
    return tty;
}

}  // namespace

std::unique_ptr<Line> Line::open(const std::string& tty, std::string& error) {
    const bool own = tty.empty();
    std::string path = tty;
    const int descriptor = own ? open_pseudo_terminal(path) : open_tty(path);
    if (descriptor < 0) {
        error = (own ? "a new pseudo-terminal" : tty) + ": " + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<Line>(new Line(descriptor, std::move(path), own));
}

Line::Line(int descriptor, std::string path, bool own)
    : descriptor_(descriptor), path_(std::move(path)), own_(own) {
    tcgetattr(descriptor_, &before_);
    make_raw();
}

Line::~Line() {
    if (!own_) {
        tcsetattr(descriptor_, TCSANOW, &before_);
    }
    close(descriptor_);
}

/// No echo, no signals, no line ends, all eight bits; the speed stays what it is.
void Line::make_raw() {
    termios raw = before_;
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(descriptor_, TCSANOW, &raw);
}

/// What was written for the one who left, and how they had set the line, is not for the next.
void Line::lose_peer() {
    if (own_) {
        tcflush(descriptor_, TCOFLUSH);
        make_raw();
    }
    idle_ = true;
}

void Line::look_for_peer(uint64_t limit_ns) {
    const timespec pause = timespec_of(std::min(limit_ns, kLookNs));
    ppoll(nullptr, 0, &pause, nullptr);
    pollfd line{.fd = descriptor_, .events = POLLIN, .revents = 0};
    hung_up_ = poll(&line, 1, 0) > 0 && (line.revents & POLLHUP) != 0;
    idle_ = hung_up_;
}

void Line::wait(bool reading, bool writing, uint64_t limit_ns) {
    if (idle_) {
        look_for_peer(limit_ns);
        return;
    }
    const int events = (reading ? POLLIN : 0) | (writing ? POLLOUT : 0);
    pollfd line{.fd = descriptor_, .events = static_cast<short>(events), .revents = 0};
    const timespec limit = timespec_of(limit_ns);
    hung_up_ = ppoll(&line, 1, &limit, nullptr) > 0 && (line.revents & POLLHUP) != 0;
}

Bytes Line::read(size_t most) {
    Bytes bytes(most);
    const ssize_t got = ::read(descriptor_, bytes.data(), bytes.size());
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    // A hang-up is the end of the file on one kind of line, and an error on the other.
    if (!idle_ && (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR))) {
        lose_peer();
    }
    return bytes;
}

size_t Line::write(ByteView bytes) {
    const ssize_t taken = ::write(descriptor_, bytes.data(), bytes.size());
    return taken > 0 ? static_cast<size_t>(taken) : 0;
}

}  // namespace sim
