// SPDX-License-Identifier: Apache-2.0
// One end of a serial line: a new pseudo-terminal, or a tty that is there already.
#ifndef SIDEBAND_SIM_SERIAL_LINE_H
#define SIDEBAND_SIM_SERIAL_LINE_H

#include <termios.h>

#include <cstdint>
#include <memory>
#include <string>

#include "sim/board/bytes.h"

namespace sim {

/// Bytes go through as they are. Nothing here waits but wait().
class Line {
public:
    /// @param tty  its path; empty for a new pseudo-terminal
    /// @return null with error filled on failure
    static std::unique_ptr<Line> open(const std::string& tty, std::string& error);

    /// A tty gets back the settings that it had.
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// What the other end opens; the tty's own path if there was one.
    const std::string& path() const { return path_; }

    /// Waits until something can be done, a signal comes, or the time is over.
    /// @param reading  whether to wait for bytes
    /// @param writing  whether to wait for room
    void wait(bool reading, bool writing, uint64_t limit_ns);

    /// Whether the other end was closed when wait() ended; what it left may still be read.
    bool is_hung_up() const { return hung_up_; }
    /// Whether nobody is at the other end. Whether somebody comes is looked at by wait().
    bool is_idle() const { return idle_; }
    /// Whether nobody can come any more.
    bool is_dead() const { return idle_ && !own_; }

    /// What has come, at most so much; nothing if nothing has.
    Bytes read(size_t most);

    /// @return how much was taken
    size_t write(ByteView bytes);

private:
    Line(int descriptor, std::string path, bool own);
    void make_raw();
    void lose_peer();
    void look_for_peer(uint64_t limit_ns);

    int descriptor_;
    std::string path_;
    bool own_;  ///< the pseudo-terminal was made here
    bool hung_up_ = false;
    bool idle_ = false;
    termios before_{};
};

}  // namespace sim

#endif
