// SPDX-License-Identifier: Apache-2.0
// Stands in front of libc's files: an I2C adapter and slave queues of the test's own making.
#ifndef SIDEBAND_TESTS_LINUX_FAKE_I2C_H
#define SIDEBAND_TESTS_LINUX_FAKE_I2C_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace machine_test {

/// A write as the adapter gets it.
struct I2cWrite {
    uint8_t address = 0;  ///< 8-bit form
    std::vector<uint8_t> bytes;
    bool operator==(const I2cWrite&) const = default;
};

/// While one lives, the paths that it knows are its own; all others are the machine's. One at a
/// time.
class FakeI2c {
public:
    /// How a queue shows itself: as a device, or as an attribute of sysfs.
    enum class Kind : uint8_t { kDevice, kAttribute };

    FakeI2c();
    ~FakeI2c();
    FakeI2c(const FakeI2c&) = delete;
    FakeI2c& operator=(const FakeI2c&) = delete;
    static FakeI2c* current();

    void add_adapter(const std::string& path) { paths[path] = {}; }
    void add_queue(const std::string& path, Kind kind = Kind::kDevice) {
        paths[path] = {.queue = true, .kind = kind};
    }
    void remove(const std::string& path) { paths.erase(path); }

    /// What a driver puts into the queue.
    void deliver(const std::vector<uint8_t>& message);
    size_t waiting() const;

    struct Path {
        bool queue = false;
        Kind kind = Kind::kDevice;
        int open_errno = 0;
    };
    std::map<std::string, Path> paths;
    size_t opened = 0;  ///< paths of its own, ever

    // The adapter.
    std::vector<I2cWrite> sent;     ///< what was tried, acknowledged or not
    std::deque<int> write_results;  ///< of the next ones: a result, or a negative errno value
    std::function<void(const I2cWrite&)> on_write;

    // The queue.
    std::deque<int> read_errnos;  ///< of the next read()s; 0: there is none, whatever waits
    bool told_always = false;     ///< poll() reports a message where there is none
    short hangup = 0;             ///< what poll() reports instead
    size_t polls = 0;

    // For the substituted calls only.
    mutable std::mutex mutex;
    std::condition_variable arrived;
    std::deque<std::vector<uint8_t>> messages;
    std::map<int, Path> descriptors;
};

}  // namespace machine_test

#endif
