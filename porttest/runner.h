// SPDX-License-Identifier: Apache-2.0
// Runs each rule in a process of its own, so that a port that crashes or hangs fails that rule
// alone.
#ifndef SIDEBAND_PORTTEST_RUNNER_H
#define SIDEBAND_PORTTEST_RUNNER_H

#include <functional>
#include <vector>

#include "porttest/rule.h"

namespace porttest {

struct Judged {
    const char* group;
    const Rule* rule;
    Verdict verdict;
};

/// @param told  called after each rule
std::vector<Judged> judge(const Options& options, const std::function<void(const Judged&)>& told);

/// The judge's second process: takes the lock that process_rules() look at, says so with a byte on
/// standard output, and keeps it.
int hold_lock(const Options& options);

/// Whether a port can be loaded and opened, in a process that ends with it.
/// @return nothing, or what is wrong
std::string try_port(const Options& options);

}  // namespace porttest

#endif
