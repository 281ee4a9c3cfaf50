// SPDX-License-Identifier: Apache-2.0
// The file in which a driver queues the blocks that devices write to the BMC's slave address.
#include "platform/linux/slave_queue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/linux/wait.h"

namespace machine {

namespace {

/// Where a message that poll() told of is not there, somebody else has read it, or the driver tells
/// of messages all the time.
constexpr int kIdlePauseMs = 1;

}  // namespace

int SlaveQueue::open() {
    if (file_) {
        return 0;
    }
    int error = ENOENT;
    for (size_t i = 0; i < paths_.size() && !file_ && error == ENOENT; ++i) {
        file_ = Descriptor(::open(paths_[i].c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        error = file_ ? 0 : errno;
        at_ = error == ENOENT ? 0 : i;
    }
    struct stat status {};
    if (file_ && fstat(file_.get(), &status) != 0) {
        error = errno;
        file_ = Descriptor();
    }
    attribute_ = S_ISREG(status.st_mode);
    ended_ = false;
    return error;
}

ssize_t SlaveQueue::take(std::span<uint8_t> room) {
    if (const int error = open(); error != 0) {
        return -error;
    }
    ssize_t length = 0;
    do {
        length = attribute_ ? pread(file_.get(), room.data(), room.size(), 0)
                            : read(file_.get(), room.data(), room.size());
    } while (length < 0 && errno == EINTR);
    if (length > 0) {
        idle_ = false;
        return length;
    }
    if (length < 0 && errno != EAGAIN) {
        return fail(errno);
    }
    return ended_ ? fail(EPIPE) : 0;
}

ssize_t SlaveQueue::fail(int error) {
    file_ = Descriptor();
    return -error;
}

/// sysfs has POLLERR with each message, and POLLIN always; elsewhere they mean what they say.
bool SlaveQueue::wait(int64_t deadline_ms) {
    if (idle_) {
        pause_ms(kIdlePauseMs);
        if (now_ms() >= deadline_ms) {
            return false;
        }
    }
    const short wanted = attribute_ ? POLLPRI : POLLIN;
    const short told = wait_for(file_.get(), wanted, deadline_ms);
    idle_ = told != 0;
    ended_ = !attribute_ && (told & POLLIN) == 0 && (told & (POLLHUP | POLLERR)) != 0;
    return told != 0;
}

}  // namespace machine
