// SPDX-License-Identifier: Apache-2.0
// Locks of the platform interface: real waits, and a record of every misuse.
#include "sim/board/locks.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace sim {

namespace {
constexpr size_t kMostViolations = 1000;
}

const LockTable::Held* LockTable::find(const void* key) const {
    for (const Held& held : held_) {
        if (held.lock.key == key) {
            return &held;
        }
    }
    return nullptr;
}

void LockTable::violation(std::string text) {
    if (violations_.size() < kMostViolations) {
        violations_.push_back(std::move(text));
    }
}

void LockTable::check_order(const LockName& lock) {
    for (const Held& held : held_) {
        if (held.owner == std::this_thread::get_id() && held.lock.rank >= lock.rank) {
            violation(lock.name + " taken while " + held.lock.name + " is held");
        }
    }
}

bool LockTable::take(const LockName& lock, int wait_ms) {
    std::unique_lock guard(mutex_);
    const Held* held = find(lock.key);
    if (held != nullptr && held->owner == std::this_thread::get_id()) {
        violation(lock.name + " taken twice by one thread");
        return false;
    }
    check_order(lock);
    auto is_free = [&] { return find(lock.key) == nullptr; };
    if (wait_ms < 0) {
        released_.wait(guard, is_free);
    } else if (!released_.wait_for(guard, std::chrono::milliseconds(wait_ms), is_free)) {
        return false;
    }
    held_.push_back({lock, std::this_thread::get_id()});
    return true;
}

bool LockTable::release(const LockName& lock) {
    std::lock_guard guard(mutex_);
    const std::thread::id self = std::this_thread::get_id();
    auto it = std::find_if(held_.begin(), held_.end(),
                           [&](const Held& held) { return held.lock.key == lock.key; });
    if (it == held_.end() || it->owner != self) {
        violation(lock.name + " released by a thread that does not hold it");
        return false;
    }
    for (auto later = it + 1; later != held_.end(); ++later) {
        if (later->owner == self) {
            violation(lock.name + " released before " + later->lock.name);
        }
    }
    held_.erase(it);
    released_.notify_all();
    return true;
}

LockReport LockTable::report() const {
    std::lock_guard guard(mutex_);
    LockReport report;
    report.violations = violations_;
    for (const Held& held : held_) {
        report.held.push_back(held.lock.name);
    }
    return report;
}

}  // namespace sim
