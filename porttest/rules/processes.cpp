// SPDX-License-Identifier: Apache-2.0
// Rules of records that several services share.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "porttest/aside.h"
#include "porttest/rule.h"
#include "porttest/runner.h"

namespace porttest {

namespace {

constexpr int kBus = PLT_I2C_BUS_COUNT - 1;
constexpr int kStartMs = 10'000;
constexpr int kShortMs = 100;
constexpr int kLongMs = 5000;

/// A second process, which has loaded the port by itself and holds a lock.
class Holder {
public:
    explicit Holder(const Options& options) {
        int ends[2];
        if (pipe(ends) != 0) {
            return;
        }
        std::vector<std::string> words{"sideband-porttest", "--hold"};
        if (!options.open.empty()) {
            words.insert(words.end(), {"--open", options.open});
        }
        if (!options.port.empty()) {
            words.push_back(options.port);
        }
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        child_ = fork();
        if (child_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execv("/proc/self/exe", arguments.data());
            _exit(1);
        }
        close(ends[1]);
        from_ = ends[0];
    }
    ~Holder() {
        end();
        if (from_ >= 0) {
            close(from_);
        }
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    /// Whether it has taken the lock.
    bool holds() const {
        pollfd waiting{from_, POLLIN, 0};
        char byte = 0;
        return child_ > 0 && poll(&waiting, 1, kStartMs) == 1 && read(from_, &byte, 1) == 1;
    }

    void end() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
            child_ = -1;
        }
    }

private:
    pid_t child_ = -1;
    int from_ = -1;
};

lx_mutex* lock_of(const Subject& subject) {
    return &subject.global_var().bus_mutex[kBus];
}

Aside taker(const Subject& subject) {
    const Port& port = subject.port;
    lx_mutex* const lock = lock_of(subject);
    return Aside([&port, lock] {
        const int result = port.mutex_get(lock, LX_MUTEX_WAIT_FOREVER);
        if (result == 0) {
            port.mutex_put(lock);
        }
        return result;
    });
}

/// Judges beside a second process that holds the lock.
Verdict with_holder(const Subject& subject, const std::function<Verdict(Holder&)>& rule) {
    if (!subject.options.shared) {
        return not_applicable("needs --shared");
    }
    Holder holder(subject.options);
    return holder.holds() ? rule(holder) : failed("a second process cannot take bus_mutex[255]");
}

Verdict exclusive(const Subject& subject, Holder&) {
    return taker(subject).wait(kShortMs) == 0 ? failed("two processes hold bus_mutex[255]")
                                              : passed();
}

Verdict free_after_kill(const Subject& subject, Holder& holder) {
    Aside other = taker(subject);
    other.wait(kShortMs);
    holder.end();
    const std::optional<int> result = other.wait(kLongMs);
    if (!result) {
        return failed(text("%d ms after its holder was killed the mutex is not granted", kLongMs));
    }
    return *result == 0 ? passed() : failed(text("the mutex is refused with %d", *result));
}

Verdict between_processes(const Subject& subject) {
    return with_holder(subject, [&](Holder& holder) { return exclusive(subject, holder); });
}

Verdict after_a_kill(const Subject& subject) {
    return with_holder(subject, [&](Holder& holder) { return free_after_kill(subject, holder); });
}

constexpr Rule kRules[] = {
    {"processes-exclusive", "locks-exclusive locks-handed-on",
     "what one process holds no other process gets",
     "records that are not in shared memory; mutexes without PTHREAD_PROCESS_SHARED",
     between_processes},
    {"processes-killed", "processes-exclusive",
     "a mutex whose holder was killed is granted to the next process",
     "PTHREAD_MUTEX_ROBUST, and pthread_mutex_consistent() after EOWNERDEAD", after_a_kill},
};

}  // namespace

int hold_lock(const Options& options) {
    const pid_t judge = getppid();
    Port port;
    plt_parameters parameters{};
    if (!load(options.port, options.open, port).empty() || port.attach(&parameters) == 0 ||
        port.mutex_get(&(*port.global_var)->bus_mutex[kBus], LX_MUTEX_WAIT_FOREVER) != 0) {
        return 1;
    }
    const ssize_t told = write(STDOUT_FILENO, ".", 1);
    while (told == 1 && getppid() == judge) {
        usleep(kShortMs * 1000);
    }
    return 0;
}

std::span<const Rule> process_rules() {
    return kRules;
}

}  // namespace porttest
