// SPDX-License-Identifier: Apache-2.0
// Rules of the locks between threads.
#include <algorithm>
#include <array>
#include <vector>

#include "porttest/aside.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

/// In which a lock that is free has to be granted, and a wait that has a limit to have ended.
constexpr int kLongMs = 2000;
/// In which a thread that has to wait must not get on.
constexpr int kShortMs = 100;
/// By which a wait may be longer than it was to be: clocks tick, and threads are not run at once.
constexpr int kSlackMs = 100;
/// On a busy machine one wait or another is longer still, but hardly all of so many.
constexpr int kTries = 5;
constexpr int kBus = 200;
constexpr int kAttachBus = 254;
constexpr uint8_t kChannel = 200;
constexpr uint8_t kOtherChannel = 201;
constexpr int kThreads = 8;
constexpr int kTurns = 50;
/// Long enough for the others to queue up.
constexpr std::chrono::microseconds kInside{200};

/// A lock of either kind, by what takes and gives it.
struct Lock {
    std::string name;
    std::function<int(int)> get;
    std::function<int()> put;
};

Lock mutex_of(const Subject& subject, lx_mutex& mutex, std::string name) {
    const Port& port = subject.port;
    return {std::move(name), [&](int wait_ms) { return port.mutex_get(&mutex, wait_ms); },
            [&] { return port.mutex_put(&mutex); }};
}

Lock channel_of(const Subject& subject, uint8_t channel) {
    const Port& port = subject.port;
    return {text("I2C channel %u", channel),
            [&port, channel](int wait_ms) { return port.channel_get(channel, wait_ms); },
            [&port, channel] { return port.channel_put(channel); }};
}

/// One of each kind of mutex, in the order in which the library takes them.
std::vector<Lock> each_kind(const Subject& subject) {
    plt_global_var& var = subject.global_var();
    plt_global_sec_var& sec_var = subject.global_sec_var();
    return {mutex_of(subject, var.global_lock, "global_lock"),
            mutex_of(subject, var.ncsi_lock, "ncsi_lock"),
            mutex_of(subject, sec_var.mpio_mutex, "mpio_mutex"),
            mutex_of(subject, sec_var.eid_mutex, "eid_mutex"),
            mutex_of(subject, var.bus_mutex[kBus], "bus_mutex[200]")};
}

std::vector<Lock> every_mutex(const Subject& subject) {
    std::vector<Lock> locks = each_kind(subject);
    locks.pop_back();
    for (int i = 0; i < PLT_I2C_BUS_COUNT; ++i) {
        locks.push_back(
            mutex_of(subject, subject.global_var().bus_mutex[i], text("bus_mutex[%d]", i)));
    }
    return locks;
}

int take_and_give(const Lock& lock, int wait_ms) {
    const int result = lock.get(wait_ms);
    if (result == 0) {
        lock.put();
    }
    return result;
}

Aside taker(const Lock& lock, int wait_ms = LX_MUTEX_WAIT_FOREVER) {
    return Aside([lock, wait_ms] { return take_and_give(lock, wait_ms); });
}

/// Takes a lock that is free, on this thread.
bool take(const Lock& lock) {
    return lock.get(LX_MUTEX_WAIT_FOREVER) == 0;
}

Verdict all_granted(const std::vector<Lock>& locks) {
    for (const Lock& lock : locks) {
        const std::optional<int> result = taker(lock).wait(kLongMs);
        if (result != 0) {
            return failed(
                lock.name +
                (result ? text(": the call returns %d", *result)
                        : text(" is not granted within %d ms, and nobody holds it", kLongMs)));
        }
    }
    return passed();
}

Verdict granted(const Subject& subject) {
    return all_granted(every_mutex(subject));
}

Verdict channels_granted(const Subject& subject) {
    std::vector<Lock> locks;
    locks.reserve(PLT_I2C_BUS_COUNT);
    for (int i = 0; i < PLT_I2C_BUS_COUNT; ++i) {
        locks.push_back(channel_of(subject, static_cast<uint8_t>(i)));
    }
    return all_granted(locks);
}

/// All at once, on one thread.
Verdict apart(const std::vector<Lock>& locks) {
    size_t done = 0;
    Aside all([&] {
        for (; done < locks.size(); ++done) {
            if (!take(locks[done])) {
                return 1;
            }
        }
        for (auto lock = locks.rbegin(); lock != locks.rend(); ++lock) {
            lock->put();
        }
        return 0;
    });
    return all.wait(kLongMs) == 0
               ? passed()
               : failed(locks[done].name + " is not granted while others are held");
}

Verdict mutexes_apart(const Subject& subject) {
    return apart(every_mutex(subject));
}

Verdict channels_apart(const Subject& subject) {
    return apart({channel_of(subject, kChannel), channel_of(subject, kOtherChannel)});
}

/// As the library nests them; the channel mutex has the number of the bus.
Verdict order(const Subject& subject) {
    std::vector<Lock> locks = each_kind(subject);
    locks.erase(locks.begin() + 1);  // global_lock and ncsi_lock are never held together
    locks.insert(locks.begin(), channel_of(subject, kBus));
    return apart(locks);
}

Verdict exclusive(const std::vector<Lock>& locks) {
    for (const Lock& lock : locks) {
        if (!take(lock)) {
            return failed(lock.name + " cannot be taken");
        }
        Aside other = taker(lock);
        const bool both = other.wait(kShortMs) == 0;
        lock.put();
        other.wait(kLongMs);
        if (both) {
            return failed(lock.name + ": two threads hold it");
        }
    }
    return passed();
}

Verdict mutexes_exclusive(const Subject& subject) {
    return exclusive(each_kind(subject));
}

Verdict channels_exclusive(const Subject& subject) {
    return exclusive({channel_of(subject, kChannel)});
}

/// A thread that has a lock already asks for it.
Verdict not_recursive(const Subject& subject) {
    for (const Lock& lock : each_kind(subject)) {
        Aside twice([lock] {
            const bool once = take(lock);
            const bool again = once && lock.get(kShortMs) == 0;
            if (again) {
                lock.put();
            }
            lock.put();
            return again ? 1 : 0;
        });
        if (twice.wait(kLongMs) == 1) {
            return failed(lock.name + " is granted twice to one thread");
        }
    }
    return passed();
}

Verdict handed_on(const std::vector<Lock>& locks) {
    for (const Lock& lock : locks) {
        if (!take(lock)) {
            return failed(lock.name + " cannot be taken");
        }
        Aside other = taker(lock);
        other.wait(kShortMs);
        lock.put();
        if (other.wait(kLongMs) != 0) {
            return failed(lock.name + " is not granted to the thread that waited for it");
        }
    }
    return passed();
}

Verdict mutexes_handed_on(const Subject& subject) {
    return handed_on(each_kind(subject));
}

Verdict channels_handed_on(const Subject& subject) {
    return handed_on({channel_of(subject, kChannel)});
}

/// Many threads that want one lock all the time.
Verdict contention(const Subject& subject) {
    const Lock lock = each_kind(subject).back();
    int inside = 0;
    int counted = 0;
    bool together = false;
    std::vector<Aside> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                if (!take(lock)) {
                    return 1;
                }
                together = __atomic_add_fetch(&inside, 1, __ATOMIC_SEQ_CST) != 1 || together;
                ++counted;
                std::this_thread::sleep_for(kInside);
                __atomic_sub_fetch(&inside, 1, __ATOMIC_SEQ_CST);
                lock.put();
            }
            return 0;
        });
    }
    for (Aside& thread : threads) {
        if (thread.wait(5 * kLongMs) != 0) {
            return failed(
                text("of %d threads that take turns one is refused or starves", kThreads));
        }
    }
    return !together && counted == kThreads * kTurns ? passed() : failed("two threads hold it");
}

/// @return milliseconds that another thread waits for a lock that is held: the shortest of some
///         tries, if the first one is too long; nothing if one has not ended
std::optional<int> wait_for_held(const Lock& lock, int wait_ms) {
    int shortest = kLongMs;
    for (int i = 0; i < kTries && shortest > wait_ms + kSlackMs; ++i) {
        const std::optional<int> taken =
            duration_of(kLongMs, [lock, wait_ms] { take_and_give(lock, wait_ms); });
        if (!taken) {
            return std::nullopt;
        }
        shortest = std::min(shortest, *taken);
    }
    return shortest;
}

Verdict limited(const std::vector<Lock>& locks) {
    for (const Lock& lock : locks) {
        if (!take(lock)) {
            return failed(lock.name + " cannot be taken");
        }
        for (const int wait_ms : {0, kShortMs}) {
            const std::optional<int> taken = wait_for_held(lock, wait_ms);
            if (!taken) {
                return failed(text("%s: a wait of %d ms has not ended after %d ms",
                                   lock.name.c_str(), wait_ms, kLongMs));
            }
            if (*taken > wait_ms + kSlackMs) {
                return failed(text("%s: a wait of %d ms takes %d ms each time", lock.name.c_str(),
                                   wait_ms, *taken));
            }
        }
        lock.put();
    }
    return passed();
}

Verdict mutexes_limited(const Subject& subject) {
    return limited(each_kind(subject));
}

Verdict channels_limited(const Subject& subject) {
    return limited({channel_of(subject, kChannel)});
}

/// A firmware update attaches once more, while other threads may hold any lock.
Verdict attach_again(const Subject& subject) {
    const Port& port = subject.port;
    plt_global_var* const before = *port.global_var;
    plt_global_sec_var* const before_sec = *port.global_sec_var;
    const Lock lock = mutex_of(subject, before->bus_mutex[kAttachBus], "bus_mutex[254]");
    if (!take(lock)) {
        return failed(lock.name + " cannot be taken");
    }
    plt_parameters again{};
    const bool attached = port.attach(&again) != 0;
    Aside other = taker(lock);
    const bool taken_away = other.wait(kShortMs) == 0;
    lock.put();
    other.wait(kLongMs);
    if (!attached) {
        return failed("a second GlobalParaInit() returns 0");
    }
    if (*port.global_var != before || *port.global_sec_var != before_sec) {
        return failed("a second GlobalParaInit() moves the records");
    }
    if (taken_away) {
        return failed("a second GlobalParaInit() frees a lock that is held");
    }
    return again.bmc_eid == subject.parameters.bmc_eid
               ? passed()
               : failed("a second GlobalParaInit() tells another EID");
}

constexpr Rule kRules[] = {
    {"locks-granted", "attach", "each mutex of the records can be taken while nobody has it",
     "mutexes that were never initialised; lx_mutex_get() returns 0 for success", granted},
    {"locks-apart", "locks-granted",
     "one thread can hold all mutexes of the records at once: each is a lock of its own",
     "a table of locks that is smaller than the records, or looked up by part of the address",
     mutexes_apart},
    {"locks-exclusive", "locks-granted", "what one thread holds no other thread gets",
     "lx_mutex_get(), and who else gives the mutex back", mutexes_exclusive},
    {"locks-not-recursive", "locks-granted", "a thread does not get a mutex that it holds",
     "the mutex type: PTHREAD_MUTEX_RECURSIVE is wrong", not_recursive},
    {"locks-handed-on", "locks-granted", "lx_mutex_put() lets a waiting thread on",
     "lx_mutex_put(), and whether it wakes whoever waits", mutexes_handed_on},
    {"locks-contended", "locks-exclusive locks-handed-on",
     "eight threads take turns at a mutex, and each gets on",
     "a wait for ever that ends all the same; a spin lock that starves threads", contention},
    {"locks-wait", "locks-granted", "lx_mutex_get() waits no longer than wait_ms",
     "lx_mutex_get(): 0 is a try, a negative value waits for ever", mutexes_limited},
    {"channels-granted", "attach", "each I2C channel's mutex can be taken while nobody has it",
     "i2c_chnl_mutex_get(): all 256 numbers; 0 is success", channels_granted},
    {"channels-apart", "channels-granted", "each I2C channel has a mutex of its own",
     "i2c_chnl_mutex_get(): the number of the channel", channels_apart},
    {"channels-exclusive", "channels-granted", "what one thread holds no other thread gets",
     "i2c_chnl_mutex_get(), and who else gives the mutex back", channels_exclusive},
    {"channels-handed-on", "channels-granted", "i2c_chnl_mutex_put() lets a waiting thread on",
     "i2c_chnl_mutex_put(), and whether it wakes whoever waits", channels_handed_on},
    {"channels-wait", "channels-granted", "i2c_chnl_mutex_get() waits no longer than wait_ms",
     "i2c_chnl_mutex_get(): 0 is a try, a negative value waits for ever", channels_limited},
    {"locks-nest", "locks-granted channels-granted",
     "channel, global, MPIO, EID-pool and bus mutex can be held together, taken in that order",
     "an I2C channel's mutex that is the bus mutex: the library takes both", order},
    {"attach-again", "locks-exclusive locks-handed-on",
     "a second GlobalParaInit() of a process leaves the records and the locks as they are",
     "a GlobalParaInit() that initialises mutexes or maps records each time", attach_again},
};

}  // namespace

std::span<const Rule> lock_rules() {
    return kRules;
}

}  // namespace porttest
