// SPDX-License-Identifier: Apache-2.0
// What takes most of the compile time of nearly every file of the tool.
#ifndef SIDEBAND_TOOLS_PCH_TOOL_PCH_H
#define SIDEBAND_TOOLS_PCH_TOOL_PCH_H

#include <fmt/format.h>

#endif
