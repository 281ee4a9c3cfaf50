// SPDX-License-Identifier: Apache-2.0
// Why a call of the library failed, in the tool's words.
#include "tools/shell/cause.h"

#include <sideband/platform.h>

#include "tools/shell/name_table.h"
#include "tools/shell/time_limit.h"
#include "tools/shell/wire_watch.h"

namespace tool {
namespace {

/// Words for whoever reads the tool's JSON: they do not change.
constexpr Name kWords[] = {
    {SIDEBAND_CAUSE_NONE, ""},
    {SIDEBAND_CAUSE_ARGUMENT, "argument"},
    {SIDEBAND_CAUSE_MEMORY, "memory"},
    {SIDEBAND_CAUSE_LOCK, "lock-refused"},
    {SIDEBAND_CAUSE_NO_POWER, "no-power"},
    {SIDEBAND_CAUSE_NO_BUS, "no-bus"},
    {SIDEBAND_CAUSE_NOT_ACKNOWLEDGED, "not-acknowledged"},
    {SIDEBAND_CAUSE_NO_ANSWER, "no-answer"},
    {SIDEBAND_CAUSE_WRONG_TAG, "wrong-tag"},
    {SIDEBAND_CAUSE_WRONG_CHECK, "wrong-checksum"},
    {SIDEBAND_CAUSE_MALFORMED, "malformed-answer"},
    {SIDEBAND_CAUSE_DEVICE, "device-code"},
    {SIDEBAND_CAUSE_REFUSED, "refused"},
    {SIDEBAND_CAUSE_NOT_FOUND, "not-found"},
    {SIDEBAND_CAUSE_FILE, "file"},
    {SIDEBAND_CAUSE_DEADLINE, "deadline"},
    {SIDEBAND_CAUSE_SYSTEM, "system"},
};

/// For what the packets do not tell.
constexpr Name kReasons[] = {
    {SIDEBAND_CAUSE_ARGUMENT, "an argument or a setting is out of range"},
    {SIDEBAND_CAUSE_MEMORY, "out of memory"},
    {SIDEBAND_CAUSE_LOCK, "a lock was refused"},
    {SIDEBAND_CAUSE_NOT_ACKNOWLEDGED, "no acknowledge"},
    {SIDEBAND_CAUSE_WRONG_TAG, "only answers to something else came"},
    {SIDEBAND_CAUSE_WRONG_CHECK, "the answer came with a wrong checksum"},
    {SIDEBAND_CAUSE_MALFORMED, "what came is no answer"},
    {SIDEBAND_CAUSE_REFUSED, "the device has refused"},
    {SIDEBAND_CAUSE_NOT_FOUND, "nobody is there"},
    {SIDEBAND_CAUSE_SYSTEM, "the system has refused"},
};

constexpr const char* kTimeIsOver = "the time limit has passed";
constexpr const char* kPowerOff = "the host's main power is off";

/// Whether an exchange that failed was not tried again since the time was over.
bool ended_by_limit(const sideband_error& error) {
    switch (error.cause) {
        case SIDEBAND_CAUSE_DEADLINE:
            return true;
        case SIDEBAND_CAUSE_NOT_ACKNOWLEDGED:
        case SIDEBAND_CAUSE_NO_ANSWER:
        case SIDEBAND_CAUSE_WRONG_TAG:
        case SIDEBAND_CAUSE_WRONG_CHECK:
        case SIDEBAND_CAUSE_MALFORMED:
            return TimeLimit::passed();
        default:
            return false;
    }
}

}  // namespace

std::string cause_name(const sideband_error& error) {
    return cause_word(ended_by_limit(error) ? uint8_t{SIDEBAND_CAUSE_DEADLINE} : error.cause);
}

std::string cause_word(uint8_t cause) {
    return find_name(kWords, cause, "");
}

std::string silence(const sideband_error& error) {
    if (error.cause == SIDEBAND_CAUSE_DEADLINE) {
        return kTimeIsOver;
    }
    if (error.cause == SIDEBAND_CAUSE_NO_POWER) {
        return kPowerOff;
    }
    if (error.cause == SIDEBAND_CAUSE_NO_BUS) {
        const std::string seen = WireWatch::reason();
        return seen.empty() ? "no such bus" : seen;
    }
    uint8_t power = 0;
    _PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &power);
    const std::string seen = WireWatch::reason();
    std::string text = seen.empty() ? find_name(kReasons, error.cause, "no answer") : seen;
    if (power == 0) {
        text.append(", ").append(kPowerOff);
    }
    if (ended_by_limit(error)) {
        text.append(", ").append(kTimeIsOver);
    }
    return text;
}

std::string unsent(const sideband_error& error) {
    return error.cause == SIDEBAND_CAUSE_DEADLINE
               ? kTimeIsOver
               : find_name(kReasons, error.cause, "nothing was sent");
}

std::string unfit(const sideband_error& error) {
    const char* const ordinary = "the answer does not fit the request";
    return error.cause == SIDEBAND_CAUSE_MALFORMED ? ordinary
                                                   : find_name(kReasons, error.cause, ordinary);
}

}  // namespace tool
