// SPDX-License-Identifier: Apache-2.0
// The progress of long work: a bar on a terminal, lines elsewhere, nothing beside JSON.
#ifndef SIDEBAND_TOOLS_SHELL_PROGRESS_H
#define SIDEBAND_TOOLS_SHELL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/shell/output.h"
#include "tools/shell/port.h"

namespace tool {

class Progress {
public:
    struct Look {
        size_t indent = 0;  ///< blanks before each line
        bool lines = true;  ///< lines if there is no terminal; else nothing there
    };

    Progress(Output& output, const Port& port, const Look& look);
    ~Progress() { end(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows how far the work is; to be called often. Lines come when the percentage has changed.
    /// @param done, total  bytes; 0 and 0 before it is known. The rate is that since it is
    void show(unsigned percent, uint64_t done, uint64_t total);

    /// Leaves the bar as it is and goes to the next line.
    void end();

private:
    enum class Style { kNone, kLines, kBar };

    std::string amounts(uint64_t done, uint64_t total) const;
    std::string bar_line(unsigned percent, const std::string& amounts) const;
    bool is_due(unsigned percent);

    Output& output_;
    const Port& port_;
    std::string indent_;
    Style style_;
    std::optional<unsigned> shown_percent_;
    std::optional<uint64_t> start_us_;  ///< by the board's clock
    std::chrono::steady_clock::time_point drawn_{};
    bool open_ = false;  ///< a bar stands in the last line
};

/// "980 B", "64.0 KiB", "16.0 MiB".
std::string bytes_text(uint64_t bytes);

}  // namespace tool

#endif
