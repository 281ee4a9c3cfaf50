// SPDX-License-Identifier: Apache-2.0
// Work on another thread that need not end.
#ifndef SIDEBAND_PORTTEST_ASIDE_H
#define SIDEBAND_PORTTEST_ASIDE_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace porttest {

/// Runs something on a thread of its own. One that never ends is left to the end of the process.
/// Not by std::future: C++ libraries for ARM processors of version 5 have none.
class Aside {
public:
    explicit Aside(std::function<int()> work) {
        std::thread([end = end_, work = std::move(work)] {
            const int value = work();
            const std::lock_guard guard(end->mutex);
            end->value = value;
            end->come.notify_all();
        }).detach();
    }

    /// @return its result; nothing if it has not ended after so many milliseconds
    std::optional<int> wait(int ms) {
        std::unique_lock lock(end_->mutex);
        end_->come.wait_for(lock, std::chrono::milliseconds(ms),
                            [this] { return end_->value.has_value(); });
        return end_->value;
    }

private:
    struct End {
        std::mutex mutex;
        std::condition_variable come;
        std::optional<int> value;
    };
    std::shared_ptr<End> end_ = std::make_shared<End>();
};

/// Milliseconds that something takes; nothing if it has not ended after so many.
inline std::optional<int> duration_of(int limit_ms, std::function<void()> work) {
    const auto start = std::chrono::steady_clock::now();
    Aside aside([work = std::move(work)] {
        work();
        return 0;
    });
    if (!aside.wait(limit_ms)) {
        return std::nullopt;
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
}

}  // namespace porttest

#endif
