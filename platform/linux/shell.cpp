// SPDX-License-Identifier: Apache-2.0
// Platform interface: the shell. Not system(), which would keep the caller's Ctrl-C from it.
#include "platform/linux/shell.h"

#include <fcntl.h>
#include <sideband/platform.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace machine {

namespace {

/// @param quiet  standard input, output and error are nobody's
int run(const std::string& command, bool quiet) {
    std::string shell = "sh";
    std::string option = "-c";
    std::string line = command;
    char* const arguments[] = {shell.data(), option.data(), line.data(), nullptr};
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return -1;
    }
    int failed = 0;
    for (int fd = STDIN_FILENO; quiet && fd <= STDERR_FILENO && failed == 0; ++fd) {
        failed = posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    }
    pid_t child = -1;
    if (failed == 0) {
        failed = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, environ);
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (failed != 0) {
        return -1;
    }
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int run_quietly(const std::string& command) {
    return run(command, true);
}

}  // namespace machine

int run_shellcmd(const char* command) {
    return command != nullptr ? machine::run(command, false) : -1;
}
