// SPDX-License-Identifier: Apache-2.0
// Rules of the logs, the progress of tasks and the shell.
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "porttest/aside.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

constexpr int kLongMs = 3000;
constexpr int kShortMs = 100;
constexpr size_t kLongLine = 4000;

Verdict ends(const char* what, std::function<void()> work) {
    return duration_of(kLongMs, std::move(work))
               ? passed()
               : failed(text("%s has not ended after %d ms", what, kLongMs));
}

Verdict long_lines(const Subject& subject) {
    const std::string line(kLongLine, 'x');
    return ends("a line of 4000 characters", [&] {
        subject.port.syslog("%s\n", line.c_str());
        subject.port.console("%s%d%%\n", line.c_str(), 7);
        subject.port.console("%s", "");
    });
}

/// Takes all locks that the library may hold, logs, and looks whether they are held still.
/// @return which is not, none for success
std::string log_with_locks(const Subject& subject) {
    const Port& port = subject.port;
    plt_global_var& var = subject.global_var();
    plt_global_sec_var& sec_var = subject.global_sec_var();
    const std::pair<const char*, lx_mutex*> locks[] = {{"global_lock", &var.global_lock},
                                                       {"mpio_mutex", &sec_var.mpio_mutex},
                                                       {"eid_mutex", &sec_var.eid_mutex},
                                                       {"bus_mutex[200]", &var.bus_mutex[200]}};
    for (const auto& [name, lock] : locks) {
        port.mutex_get(lock, LX_MUTEX_WAIT_FOREVER);
    }
    port.syslog("sideband-porttest: %d\n", 1);
    port.console("sideband-porttest: %d\n", 1);
    std::string lost;
    for (const auto& [name, lock] : locks) {
        Aside other([&port, lock = lock] {
            const int result = port.mutex_get(lock, LX_MUTEX_WAIT_FOREVER);
            if (result == 0) {
                port.mutex_put(lock);
            }
            return result;
        });
        lost += other.wait(kShortMs) == 0 ? std::string(lost.empty() ? "" : ", ") + name : "";
        port.mutex_put(lock);
        other.wait(kLongMs);
    }
    return lost;
}

Verdict under_locks(const Subject& subject) {
    std::string lost;
    if (!duration_of(kLongMs, [&] { lost = log_with_locks(subject); })) {
        return failed(text("a line while locks are held has not ended after %d ms", kLongMs));
    }
    return lost.empty() ? passed() : failed(lost + " is free behind a line of the log");
}

Verdict progress(const Subject& subject) {
    return ends("TaskServiceUpdateTaskPercentage()", [&] {
        for (const uint32_t task : {0u, 0xFFFFFFFFu}) {
            for (const uint8_t percent : {0, 50, 100, 10, 95, 98}) {
                subject.port.progress(task, percent);
            }
        }
    });
}

Verdict shell(const Subject& subject) {
    if (!subject.options.shell) {
        return not_applicable("needs --shell");
    }
    const char* const folder = std::getenv("TMPDIR");
    const std::string file = std::string(folder != nullptr ? folder : "/tmp") +
                             "/sideband-porttest-" + std::to_string(getpid());
    subject.port.shell(("sleep 0.2; touch " + file).c_str());
    const bool made = unlink(file.c_str()) == 0;
    return made ? passed() : failed("a file that the command makes is not there when it returns");
}

constexpr Rule kRules[] = {
    {"log-long", "attach", "ipmi_syslog() and console_log() bear lines of any length",
     "vsprintf() into a fixed buffer: vsnprintf() cuts", long_lines},
    {"log-under-locks", "locks-nest locks-exclusive locks-handed-on",
     "the logs may be called with any lock held", "a log that takes one of the records' mutexes",
     under_locks},
    {"progress", "attach",
     "TaskServiceUpdateTaskPercentage() bears any task and a percentage that shrinks",
     "an assertion or a table of tasks in TaskServiceUpdateTaskPercentage()", progress},
    {"shell", "attach", "run_shellcmd() has the shell run a line, and waits for it",
     "run_shellcmd(): a command in the background is too early for what follows", shell},
};

}  // namespace

std::span<const Rule> log_rules() {
    return kRules;
}

}  // namespace porttest
