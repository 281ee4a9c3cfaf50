// SPDX-License-Identifier: Apache-2.0
// Why a call of the library failed, in the tool's words.
#ifndef SIDEBAND_TOOLS_SHELL_CAUSE_H
#define SIDEBAND_TOOLS_SHELL_CAUSE_H

#include <sideband/error.h>

#include <string>

namespace tool {

/// A cause as a word for machines: "not-acknowledged". Empty if the call has not failed.
std::string cause_name(const sideband_error& error);

/// Why nothing came back. The packets on the bus tell the most, if they tell anything; the library
/// knows what nothing was sent for, and what the platform said.
std::string silence(const sideband_error& error);

/// Why the library has sent nothing at all.
std::string unsent(const sideband_error& error);

}  // namespace tool

#endif
