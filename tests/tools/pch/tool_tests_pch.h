// SPDX-License-Identifier: Apache-2.0
// What takes most of the compile time of nearly every test of the tool.
#ifndef SIDEBAND_TESTS_TOOLS_PCH_TOOL_TESTS_PCH_H
#define SIDEBAND_TESTS_TOOLS_PCH_TOOL_TESTS_PCH_H

#include <gtest/gtest.h>

#include "tests/tools/tool_runner.h"

#endif
