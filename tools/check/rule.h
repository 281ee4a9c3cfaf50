// SPDX-License-Identifier: Apache-2.0
// A rule that a device is judged by, and what came of it.
#ifndef SIDEBAND_TOOLS_CHECK_RULE_H
#define SIDEBAND_TOOLS_CHECK_RULE_H

#include <span>
#include <string>
#include <vector>

#include "tools/check/exchange.h"

namespace tool::check {

class Device;

/// One thing that a standard demands of a device.
struct Rule {
    const char* name;    ///< stays the same from version to version
    const char* clause;  ///< the standard, and where in it
    const char* text;    ///< what must hold
    /// Returns if it holds, and throws Finding if it does not or cannot be tried.
    void (*judge)(Device& device);
    /// Sends what changes something in a device: only if that is wanted.
    bool writes = false;
};

/// Ends a rule that does not hold, or that does not apply to the device.
struct Finding {
    bool applies = true;
    std::string text;                ///< what was expected, or why the rule does not apply
    std::vector<Exchange> evidence;  ///< of a rule that does not hold
};

enum class Outcome : uint8_t { kPassed, kFailed, kNotApplicable };

struct Result {
    const Rule* rule = nullptr;
    Outcome outcome = Outcome::kPassed;
    std::string text;
    std::vector<Exchange> evidence;
};

/// Tries rules on a device one after the other.
/// @param may_write  whether rules that change something may be tried
std::vector<Result> judge(Device& device, std::span<const Rule* const> rules, bool may_write);

}  // namespace tool::check

#endif
