// SPDX-License-Identifier: Apache-2.0
// Runs each rule in a process of its own, so that a port that crashes or hangs fails that rule
// alone.
#include "porttest/runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>

namespace porttest {

namespace {

/// No rule takes as long as this with a port that keeps it, whatever the options.
constexpr int kLeastLimitMs = 30'000;
constexpr int kMsForRound = 1000;

using Clock = std::chrono::steady_clock;

int limit_ms(const Options& options) {
    return std::max(kLeastLimitMs + 4 * options.wait_limit_ms, options.rounds * kMsForRound);
}

/// What port and library print goes nowhere, or to standard error.
void quieten(bool verbose) {
    const int to = verbose ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(to, STDOUT_FILENO);
    if (!verbose) {
        dup2(to, STDERR_FILENO);
    }
}

/// The child: loads the port, attaches to it and runs a rule.
Verdict run_rule(const Options& options, const Rule& rule) {
    Port port;
    if (const std::string trouble = load(options.port, options.open, port); !trouble.empty()) {
        return failed(trouble);
    }
    Subject subject{port, options, {}, 0};
    subject.attached = port.attach(&subject.parameters);
    return rule.run(subject);
}

void write_all(int to, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(to, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR) {
            return;
        }
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
}

/// Reads until the other side closes.
/// @return whether it has, in time
bool read_all(int from, int limit, std::string& bytes) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(limit);
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{from, POLLIN, 0};
        if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) == 0) {
            return false;
        }
        char part[1024];
        const ssize_t count = read(from, part, sizeof part);
        if (count == 0) {
            return true;
        }
        if (count > 0) {
            bytes.append(part, static_cast<size_t>(count));
        }
    }
}

/// What a child answers, or why it did not.
struct Answer {
    std::string bytes;
    std::string trouble;
};

Answer in_child(const Options& options, const std::function<std::string()>& work) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {"", std::string("pipe: ") + std::strerror(errno)};
    }
    std::fflush(nullptr);
    const pid_t judge = getpid();
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        // Ctrl-C reaches the judge alone; what a port hangs in must not outlive it, with its locks.
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != judge) {
            _exit(1);
        }
        quieten(options.verbose);
        write_all(ends[1], work());
        _exit(0);
    }
    close(ends[1]);
    Answer answer;
    const bool ended = child > 0 && read_all(ends[0], limit_ms(options), answer.bytes);
    close(ends[0]);
    if (child <= 0) {
        answer.trouble = std::string("fork: ") + std::strerror(errno);
        return answer;
    }
    kill(-child, SIGKILL);  // It and what it has started; one that has ended does not mind.
    int status = 0;
    waitpid(child, &status, 0);
    if (!ended) {
        answer.trouble = text("had not ended after %d ms", limit_ms(options));
    } else if (answer.bytes.empty()) {
        answer.trouble = WIFSIGNALED(status)
                             ? text("the process died of signal %d (%s)", WTERMSIG(status),
                                    strsignal(WTERMSIG(status)))
                             : text("the process ended with status %d", WEXITSTATUS(status));
    }
    return answer;
}

Verdict run_apart(const Options& options, const Rule& rule) {
    const Answer answer = in_child(options, [&] {
        const Verdict verdict = run_rule(options, rule);
        return static_cast<char>(verdict.outcome) + verdict.why;
    });
    return answer.trouble.empty()
               ? Verdict{static_cast<Outcome>(answer.bytes[0]), answer.bytes.substr(1)}
               : failed(answer.trouble);
}

std::vector<std::string> words(const char* line) {
    std::vector<std::string> found;
    std::istringstream in(line);
    for (std::string word; in >> word;) {
        found.push_back(word);
    }
    return found;
}

/// The rules asked for and those that they need; all if none was asked for.
std::set<std::string> wanted_rules(const Options& options) {
    std::set<std::string> wanted(options.only.begin(), options.only.end());
    const std::vector<Group> groups = all_rules();
    // Rules need such as come before them: from the last one to the first.
    for (auto group = groups.rbegin(); group != groups.rend(); ++group) {
        for (auto rule = group->rules.rbegin(); rule != group->rules.rend(); ++rule) {
            if (options.only.empty()) {
                wanted.insert(rule->name);
            }
            if (wanted.contains(rule->name)) {
                wanted.merge([&] {
                    const std::vector<std::string> needed = words(rule->needs);
                    return std::set<std::string>(needed.begin(), needed.end());
                }());
            }
        }
    }
    return wanted;
}

}  // namespace

std::string text(const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

std::vector<Group> all_rules() {
    return {
        {"records", record_rules()}, {"locks", lock_rules()},    {"processes", process_rules()},
        {"power", power_rules()},    {"log", log_rules()},       {"cards", card_rules()},
        {"bus", bus_rules()},        {"device", device_rules()}, {"exchanges", exchange_rules()}};
}

std::vector<Judged> judge(const Options& options, const std::function<void(const Judged&)>& told) {
    const std::set<std::string> wanted = wanted_rules(options);
    std::vector<Judged> judged;
    std::set<std::string> kept;
    for (const Group& group : all_rules()) {
        for (const Rule& rule : group.rules) {
            if (!wanted.contains(rule.name)) {
                continue;
            }
            Verdict verdict = passed();
            for (const std::string& needed : words(rule.needs)) {
                if (verdict.outcome == Outcome::kPassed && !kept.contains(needed)) {
                    verdict = not_applicable("needs the rule " + needed);
                }
            }
            if (verdict.outcome == Outcome::kPassed) {
                verdict = run_apart(options, rule);
            }
            if (verdict.outcome == Outcome::kPassed) {
                kept.insert(rule.name);
            }
            judged.push_back({group.name, &rule, verdict});
            told(judged.back());
        }
    }
    return judged;
}

std::string try_port(const Options& options) {
    const Answer answer = in_child(options, [&] {
        Port port;
        return "." + load(options.port, options.open, port);
    });
    return answer.trouble.empty() ? answer.bytes.substr(1) : answer.trouble;
}

}  // namespace porttest
