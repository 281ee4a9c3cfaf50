// SPDX-License-Identifier: Apache-2.0
// Platform interface: the shell. Not system(), which would keep the caller's Ctrl-C from it.
#include "platform/linux/shell.h"

#include <fcntl.h>
#include <sideband/platform.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace machine {

namespace {

/// Starts a command line. @param quiet  standard input, output and error are nobody's, and the
///                                  process group is its own
/// @return its process; -1 where it cannot be started
pid_t start(const std::string& command, bool quiet) {
    std::string shell = "sh";
    std::string option = "-c";
    std::string line = command;
    char* const arguments[] = {shell.data(), option.data(), line.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return -1;
    }
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return -1;
    }
    int failed = quiet ? posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP) : 0;
    for (int fd = STDIN_FILENO; quiet && fd <= STDERR_FILENO && failed == 0; ++fd) {
        failed = posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    }
    pid_t child = -1;
    if (failed == 0) {
        failed = posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments, environ);
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return failed == 0 ? child : -1;
}

int result_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/// @param options  of waitpid()
/// @return the child; 0 where it runs on; -1 where nobody can say how it ended
pid_t await(pid_t child, int& status, int options) {
    pid_t ended = -1;
    do {
        ended = waitpid(child, &status, options);
    } while (ended < 0 && errno == EINTR);
    if (ended < 0 && errno == ECHILD) {
        console_log("sh: how it ended is not known: this process ignores SIGCHLD, or reaps all\n");
    }
    return ended;
}

}  // namespace

int run_quietly(const std::string& command, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestPause{20};
    const pid_t child = start(command, true);
    if (child < 0) {
        return -1;
    }
    const Clock::time_point deadline = Clock::now() + limit;
    std::chrono::milliseconds rest{1};
    int status = 0;
    pid_t ended = 0;
    while ((ended = await(child, status, WNOHANG)) == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(rest);
        rest = std::min(2 * rest, kLongestPause);
    }
    if (ended == 0) {
        kill(-child, SIGKILL);
        ended = await(child, status, 0);
    }
    return ended < 0 ? -1 : result_of(status);
}

}  // namespace machine

int run_shellcmd(const char* command) {
    const pid_t child = command != nullptr ? machine::start(command, false) : -1;
    int status = 0;
    return child >= 0 && machine::await(child, status, 0) >= 0 ? machine::result_of(status) : -1;
}
