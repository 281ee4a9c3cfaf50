// SPDX-License-Identifier: Apache-2.0
// A rule of the platform interface: what it demands, and the function that looks whether a port
// keeps it.
#ifndef SIDEBAND_PORTTEST_RULE_H
#define SIDEBAND_PORTTEST_RULE_H

#include <span>
#include <string>
#include <vector>

#include "porttest/options.h"
#include "porttest/port.h"

namespace porttest {

enum class Outcome : char { kPassed = 'p', kFailed = 'f', kNotApplicable = 'n' };

struct Verdict {
    Outcome outcome;
    std::string why;
};

inline Verdict passed() {
    return {Outcome::kPassed, ""};
}
inline Verdict failed(std::string why) {
    return {Outcome::kFailed, std::move(why)};
}
inline Verdict not_applicable(std::string why) {
    return {Outcome::kNotApplicable, std::move(why)};
}

/// printf into a string.
std::string text(const char* format, ...) SIDEBAND_PRINTF(1, 2);

/// What a rule gets to see: a port that has been loaded and opened in this process, to which the
/// rule has attached, and nobody else.
struct Subject {
    const Port& port;
    const Options& options;
    plt_parameters parameters;  ///< of GlobalParaInit()
    int attached;               ///< what it has returned

    uint8_t eid() const { return options.eid.value_or(parameters.bmc_eid); }
    plt_global_var& global_var() const { return **port.global_var; }
    plt_global_sec_var& global_sec_var() const { return **port.global_sec_var; }
};

struct Rule {
    const char* name;
    const char* needs;   ///< rules without which nothing can be said, with blanks between them
    const char* demand;  ///< what a port has to do
    const char* look;    ///< at what to look if it does not
    Verdict (*run)(const Subject& subject);
};

/// The rules of a room.
struct Group {
    const char* name;
    std::span<const Rule> rules;
};

std::span<const Rule> record_rules();
std::span<const Rule> lock_rules();
std::span<const Rule> process_rules();
std::span<const Rule> power_rules();
std::span<const Rule> log_rules();
std::span<const Rule> bus_rules();
std::span<const Rule> device_rules();
std::span<const Rule> exchange_rules();
std::span<const Rule> card_rules();

/// All of them, in the order in which they are judged.
std::vector<Group> all_rules();

}  // namespace porttest

#endif
