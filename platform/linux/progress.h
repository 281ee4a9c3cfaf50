// SPDX-License-Identifier: Apache-2.0
// The progress of tasks, which others read from a file.
#ifndef SIDEBAND_LINUX_PROGRESS_H
#define SIDEBAND_LINUX_PROGRESS_H

#include <cstdint>

namespace machine {

/// What this process has reported for a task last; 0 before the first time.
uint8_t task_percentage(uint32_t task_id);

}  // namespace machine

#endif
