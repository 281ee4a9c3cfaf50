// SPDX-License-Identifier: Apache-2.0
// Fixture of the end-to-end tests: the library as shipped on a simulated board.
#ifndef SIDEBAND_TESTS_BOARD_FIXTURE_H
#define SIDEBAND_TESTS_BOARD_FIXTURE_H

#include <gtest/gtest.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "support/capture.h"

namespace board_test {

/// A board around the keys and devices of one test: I2C bus 2 and whatever the devices name.
/// @param keys  further keys of the board, each with a comma behind it
std::string board_with(const std::string& keys, const std::string& devices);

/// An MPIO with its own keys, and behind it gpu0 at 47:00.0, gpu1 at 47:00.1 and nic0 at c1:1f.7.
std::string mpio_and_functions(const std::string& mpio_keys = "");

/// The library's debug log goes to standard error, as on a board that has the marker file.
class LoggedRun {
public:
    LoggedRun() : capture_(2) { run_shellcmd("touch /nv/ConsoleLogEn"); }
    std::string text() { return capture_.text(); }

private:
    test::Capture capture_;
};

/// Initialises a context for the MPIO and brings it up if that is needed. @return the result
int32_t bring_mpio_up(mctp_ctx& mpio);

class BoardRun : public ::testing::Test {
protected:
    void open(const std::string& text);
    /// Opens a board whose MPIO, with these further keys, is wanted and not up yet.
    void open_with_mpio(const std::string& mpio_keys = "");
    /// Expects that no lock is held and none was misused.
    void TearDown() override;

    /// A context of an endpoint of the board, as a service fills it in, before mctp_init2().
    mctp_ctx context_of(const std::string& name) const;

    bool has_marker() const { return board->has_file(MCTP_MPIO_READY_MARKER); }

    std::unique_ptr<sim::Board> board;
};

}  // namespace board_test

#endif
