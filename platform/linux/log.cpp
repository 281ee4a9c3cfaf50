// SPDX-License-Identifier: Apache-2.0
// Platform interface: the logs. The system log is syslog's, the operator's lines go to standard
// error or to whoever has asked for them.
#include <sideband/platform.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "platform/linux/state.h"

namespace {

constexpr size_t kLongestLine = 1024;

std::mutex sink_mutex;
std::function<void(std::string_view)> console_sink;

/// A line of a log, without the line ends behind it; cut where it is too long.
class Line {
public:
    Line(const char* format, va_list arguments) {
        const int length = std::vsnprintf(text_.data(), text_.size(), format, arguments);
        length_ = length < 0 ? 0 : std::min(static_cast<size_t>(length), text_.size() - 1);
        while (length_ > 0 && text_[length_ - 1] == '\n') {
            text_[--length_] = '\0';
        }
    }
    const char* c_str() const { return text_.data(); }
    std::string_view view() const { return {text_.data(), length_}; }

private:
    std::array<char, kLongestLine> text_{};
    size_t length_ = 0;
};

}  // namespace

void machine::lead_console(std::function<void(std::string_view)> sink) {
    const std::lock_guard guard(sink_mutex);
    console_sink = std::move(sink);
}

void ipmi_syslog(const char* format, ...) {
    if (format == nullptr) {
        return;
    }
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    const Line line(format, arguments);
    va_end(arguments);
    syslog(LOG_DAEMON | LOG_INFO, "%s", line.c_str());
    errno = error;
}

void console_log(const char* format, ...) {
    if (format == nullptr) {
        return;
    }
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    const Line line(format, arguments);
    va_end(arguments);
    {
        const std::lock_guard guard(sink_mutex);
        if (console_sink) {
            console_sink(line.view());
        } else {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
    }
    errno = error;
}
