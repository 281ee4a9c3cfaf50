// SPDX-License-Identifier: Apache-2.0
// The dynamic symbols of libsideband.so as it is loaded: what it offers, and what it calls.
#ifndef SIDEBAND_TESTS_SWEEP_SYMBOLS_H
#define SIDEBAND_TESTS_SWEEP_SYMBOLS_H

#include <set>
#include <string>

namespace sweep {

struct Symbols {
    std::set<std::string> functions;  ///< that the library exports
    std::set<std::string> imports;    ///< functions and records that it leaves undefined
};

/// Reads them from the file that the process has loaded. Ends the process if there is none.
Symbols library_symbols();

}  // namespace sweep

#endif
