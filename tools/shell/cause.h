// SPDX-License-Identifier: Apache-2.0
// Why a call of the library failed, in the tool's words.
#ifndef SIDEBAND_TOOLS_SHELL_CAUSE_H
#define SIDEBAND_TOOLS_SHELL_CAUSE_H

#include <sideband/error.h>

#include <cstdint>
#include <string>

namespace tool {

/// A cause as a word for machines: "not-acknowledged". Empty if the call has not failed.
std::string cause_name(const sideband_error& error);

/// SIDEBAND_CAUSE_... as such a word.
std::string cause_word(uint8_t cause);

/// Why nothing came back. The packets on the bus tell the most, if they tell anything; the library
/// knows what nothing was sent for, and what the platform said.
std::string silence(const sideband_error& error);

/// Why the library has sent nothing at all.
std::string unsent(const sideband_error& error);

/// Why an answer that came, without a code of the device in it, was not taken.
std::string unfit(const sideband_error& error);

}  // namespace tool

#endif
