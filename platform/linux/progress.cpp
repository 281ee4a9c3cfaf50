// SPDX-License-Identifier: Apache-2.0
// Platform interface: task progress. A file for each task holds its percentage and a line end.
#include "platform/linux/progress.h"

#include <fcntl.h>
#include <sideband/platform.h>

#include <cstdio>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/state.h"

namespace {

constexpr mode_t kFileMode = 0644;

/// Replaces a file as a whole, so that nobody reads a half of it.
void replace_file(const std::string& path, const std::string& content) {
    const std::string fresh = path + "." + std::to_string(getpid());
    bool written = false;
    unlink(fresh.c_str());  // of a process that was killed, or put there to be waited for
    {
        const machine::Descriptor file(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
        written = file && write(file.get(), content.data(), content.size()) ==
                              static_cast<ssize_t>(content.size());
        if (!file) {
            return;
        }
    }
    if (!written || rename(fresh.c_str(), path.c_str()) != 0) {
        unlink(fresh.c_str());
    }
}

}  // namespace

uint8_t machine::task_percentage(uint32_t task_id) {
    State* const state = in_use();
    if (state == nullptr) {
        return 0;
    }
    const std::lock_guard guard(state->progress_mutex);
    const auto found = state->task_percent.find(task_id);
    return found != state->task_percent.end() ? found->second : 0;
}

void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent) {
    machine::State* const state = machine::in_use();
    if (state == nullptr) {
        return;
    }
    const std::lock_guard guard(state->progress_mutex);
    state->task_percent[task_id] = percent;
    replace_file(state->board.run_folder + "/task-" + std::to_string(task_id),
                 std::to_string(percent) + "\n");
}
