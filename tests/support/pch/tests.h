// SPDX-License-Identifier: Apache-2.0
// What every test file reads first: compiled once for each test program.
#ifndef SIDEBAND_TESTS_SUPPORT_PCH_TESTS_H
#define SIDEBAND_TESTS_SUPPORT_PCH_TESTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#endif
