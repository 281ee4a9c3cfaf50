// SPDX-License-Identifier: Apache-2.0
// The file in which a driver queues the blocks that devices write to the BMC's slave address.
#ifndef SIDEBAND_LINUX_SLAVE_QUEUE_H
#define SIDEBAND_LINUX_SLAVE_QUEUE_H

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/descriptor.h"

namespace machine {

/// A message comes with each read(), whole; where there is none, read() gives nothing or EAGAIN.
class SlaveQueue {
public:
    /// @param paths  where it may be: the first that is there is taken
    explicit SlaveQueue(std::vector<std::string> paths) : paths_(std::move(paths)) {}

    /// Opens the file, unless it is open. From then on nothing is missed. @return 0 or an errno
    int open();
    /// Of the file that is open; without one, where it was looked for first.
    const std::string& path() const { return paths_[at_]; }

    /// Takes the oldest message. @return its length; 0 if there is none; negative: an errno value,
    /// and the file is closed
    ssize_t take(std::span<uint8_t> room);

    /// Waits until there may be a message. @return false when the time is over
    bool wait(int64_t deadline_ms);

private:
    ssize_t fail(int error);

    std::vector<std::string> paths_;
    size_t at_ = 0;
    Descriptor file_;
    bool attribute_ = false;  ///< of sysfs: read from its beginning, and told of by POLLPRI
    bool ended_ = false;      ///< nobody writes to it any more
    bool idle_ = false;       ///< what was told of was not there
};

}  // namespace machine

#endif
