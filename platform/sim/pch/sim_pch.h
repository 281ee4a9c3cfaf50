// SPDX-License-Identifier: Apache-2.0
// What takes most of the compile time of nearly every file of the simulated board.
#ifndef SIDEBAND_SIM_PCH_SIM_PCH_H
#define SIDEBAND_SIM_PCH_SIM_PCH_H

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#endif
