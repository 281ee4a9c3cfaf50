// SPDX-License-Identifier: Apache-2.0
// Work on another thread that need not end.
#ifndef SIDEBAND_PORTTEST_ASIDE_H
#define SIDEBAND_PORTTEST_ASIDE_H

#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <thread>

namespace porttest {

/// Runs something on a thread of its own. One that never ends is left to the end of the process.
class Aside {
public:
    explicit Aside(std::function<int()> work) {
        std::packaged_task<int()> task(std::move(work));
        result_ = task.get_future();
        std::thread(std::move(task)).detach();
    }

    /// @return its result; nothing if it has not ended after so many milliseconds
    std::optional<int> wait(int ms) {
        if (!value_ &&
            result_.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready) {
            value_ = result_.get();
        }
        return value_;
    }

private:
    std::future<int> result_;
    std::optional<int> value_;
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
