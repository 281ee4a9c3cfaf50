// SPDX-License-Identifier: Apache-2.0
// What the judge is told: where the port is, and what is on the board.
#ifndef SIDEBAND_PORTTEST_OPTIONS_H
#define SIDEBAND_PORTTEST_OPTIONS_H

#include <sideband/mctp.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace porttest {

/// A place on an I2C bus.
struct Place {
    uint8_t bus = 0;
    uint8_t address = 0;                       ///< 8-bit form
    std::array<uint8_t, MCTP_MUX_SIZE> mux{};  ///< for SetI2CMux()
};

struct Options {
    std::string port;  ///< path; empty: the program has it
    std::string open;
    std::string library = "libsideband.so.0";
    std::optional<Place> device;
    std::optional<Place> other;   ///< behind another channel of the same bus
    std::optional<Place> absent;  ///< where nobody is
    std::optional<uint8_t> eid;   ///< the BMC's own; else what GlobalParaInit() tells
    int wait_limit_ms = 5000;     ///< what a slave read without a time limit of its own may take
    int rounds = 200;             ///< exchanges of the storm
    bool shared = false;          ///< the records lie in memory that services share
    bool shell = false;           ///< the port runs shell commands
    bool json = false;
    bool list = false;
    bool verbose = false;
    bool help = false;
    bool hold = false;  ///< the judge's own second process: takes a lock and keeps it
    std::vector<std::string> only;
};

extern const char* const kUsage;

/// @param[out] error  what is wrong with the command line
/// @return nothing if something is
std::optional<Options> parse(int count, char** arguments, std::string& error);

}  // namespace porttest

#endif
