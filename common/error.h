// SPDX-License-Identifier: Apache-2.0
// How a failure gets into the record of its context.
#ifndef SIDEBAND_COMMON_ERROR_H
#define SIDEBAND_COMMON_ERROR_H

#include <sideband/error.h>

#include <cstdint>

namespace sideband {

/// A record without a code.
/// @param cause  SIDEBAND_CAUSE_...
/// @param step   SIDEBAND_STEP_...
constexpr sideband_error error_of(uint8_t cause, uint8_t step = SIDEBAND_STEP_NONE,
                                  uint8_t command = 0) {
    return {cause, SIDEBAND_CODE_NONE, step, command, 0, 0};
}

/// What a call that is over has left behind.
inline constexpr sideband_error kNoError{};
/// What stands in a record while a command has not sent anything: then its arguments are at fault.
inline constexpr sideband_error kArgumentError = error_of(SIDEBAND_CAUSE_ARGUMENT);

/// Records a cause, unless one is there already.
/// @param cause   SIDEBAND_CAUSE_...
/// @return -1
[[gnu::cold]] int32_t fail(sideband_error& error, uint8_t cause);

/// As fail(), with what the platform said.
/// @param detail  a positive number of errno
[[gnu::cold]] int32_t fail_with(sideband_error& error, uint8_t cause, uint16_t detail);

/// As fail(), by what a call of the platform has returned, of which some values have a meaning.
/// @param otherwise  the cause that all other values have
[[gnu::cold]] int32_t fail_by_platform(sideband_error& error, int result, uint8_t otherwise);

/// Records the code of a device in place of what is there.
/// @param kind  SIDEBAND_CODE_...
[[gnu::cold]] void record_code(sideband_error& error, uint8_t kind, uint16_t code,
                               uint16_t detail = 0);

/// Says what was being done, unless that is said already.
/// @param step  SIDEBAND_STEP_...
[[gnu::cold]] void record_step(sideband_error& error, uint8_t step, uint8_t command = 0);

/// Records why there is no endpoint.
/// @param why  what the endpoint says of itself; null: there is no memory for one
/// @return -1
[[gnu::cold]] int32_t fail_set_up(sideband_error& error, const sideband_error* why);

/// What an accessor gives for a context that is null.
const sideband_error* null_context_error();

}  // namespace sideband

#endif
