// SPDX-License-Identifier: Apache-2.0
// The progress of long work: a bar on a terminal, lines elsewhere, nothing beside JSON.
#include "tools/shell/progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

constexpr size_t kBarWidth = 24;

/// Minutes and seconds, and hours if there are any.
std::string duration_text(uint64_t seconds) {
    const std::string text = fmt::format("{:02}:{:02}", seconds / 60 % 60, seconds % 60);
    return seconds < 3600 ? text : fmt::format("{}:{}", seconds / 3600, text);
}

}  // namespace

std::string bytes_text(uint64_t bytes) {
    constexpr double kStep = 1024.0;
    const auto number = static_cast<double>(bytes);
    if (bytes < 10000) {
        return fmt::format("{} B", bytes);
    }
    return number < 1000 * kStep ? fmt::format("{:.1f} KiB", number / kStep)
                                 : fmt::format("{:.1f} MiB", number / kStep / kStep);
}

Progress::Progress(Output& output, const Port& port, const Look& look)
    : output_(output), port_(port), indent_(look.indent, ' ') {
    const Style elsewhere = look.lines ? Style::kLines : Style::kNone;
    style_ = output.json() ? Style::kNone : output.is_terminal() ? Style::kBar : elsewhere;
}

/// How much of how much, how fast, for how long still.
std::string Progress::amounts(uint64_t done, uint64_t total) const {
    if (total == 0) {
        return {};
    }
    std::string text = fmt::format("  {} of {}", bytes_text(done), bytes_text(total));
    const uint64_t elapsed = start_us_ ? port_.now_us() - *start_us_ : 0;
    if (done == 0 || elapsed == 0) {
        return text;
    }
    const double rate = static_cast<double>(done) * 1e6 / static_cast<double>(elapsed);
    const double left = static_cast<double>(total - std::min(done, total)) / rate;
    return fmt::format("{}, {}/s, {} left", text, bytes_text(static_cast<uint64_t>(rate)),
                       duration_text(static_cast<uint64_t>(std::llround(left))));
}

std::string Progress::bar_line(unsigned percent, const std::string& amounts) const {
    const size_t filled = std::min<size_t>(percent, 100) * kBarWidth / 100;
    const std::string line = fmt::format("{}[{}{}] {:3} %{}", indent_, std::string(filled, '#'),
                                         std::string(kBarWidth - filled, '-'), percent, amounts);
    // A line that is wrapped could not be drawn over.
    return line.substr(0, output_.columns() - 1);
}

/// Lines with each new percentage. The bar also some times a second, as rate and time move on.
bool Progress::is_due(unsigned percent) {
    constexpr std::chrono::milliseconds kPause(200);
    const bool changed = shown_percent_ != percent;
    if (style_ == Style::kLines) {
        return changed;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!changed && now - drawn_ < kPause) {
        return false;
    }
    drawn_ = now;
    return true;
}

void Progress::show(unsigned percent, uint64_t done, uint64_t total) {
    if (!start_us_ && total > 0) {
        start_us_ = port_.now_us();
    }
    if (style_ == Style::kNone || !is_due(percent)) {
        return;
    }
    shown_percent_ = percent;
    if (style_ == Style::kLines) {
        output_.text(fmt::format("{}{:3} %{}\n", indent_, percent, amounts(done, total)));
        return;
    }
    output_.redraw(bar_line(percent, amounts(done, total)));
    open_ = true;
}

void Progress::end() {
    if (open_) {
        output_.text("\n");
        open_ = false;
    }
}

}  // namespace tool
