// SPDX-License-Identifier: Apache-2.0
// The diagnostic log: marker files, standard error, system log, rotated log file.
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "common/clock.h"
#include "common/file.h"
#include "common/formatted.h"
#include "common/output.h"

using namespace sideband;

namespace {

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

/// Any process that can open the log can keep the lock for ever, and the caller may hold a bus
/// mutex: after a while the message goes without it.
void lock_for_a_while(int descriptor) {
    constexpr timespec kPause{0, 1000000};
    const int64_t deadline = monotonic_ms() + DEBUG_LOG_LOCK_WAIT_MS;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR) &&
           monotonic_ms() < deadline) {
        nanosleep(&kPause, nullptr);
    }
}

/// Others may have put something else in the log's place: a link is not followed, a FIFO not
/// waited for.
std::FILE* open_log() {
    constexpr mode_t kOwnerOnly = 0600;
    File log(open_regular(DEBUG_LOG_FILE, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW, kOwnerOnly));
    std::FILE* stream = log ? fdopen(log.descriptor(), "a") : nullptr;
    if (stream != nullptr) {
        log.release();
        // One write for each message, however long: it stays in one piece without the lock too.
        std::setvbuf(stream, nullptr, _IONBF, 0);
    }
    return stream;
}

/// The size is taken after the write: the message that crossed the threshold goes with the old
/// generation.
void append_to_file(const char* text) {
    std::FILE* file = open_log();
    if (file == nullptr) {
        return;
    }
    const int descriptor = fileno(file);
    if (descriptor < 0) {
        return;  // The stream stays open on purpose: without a descriptor it is not ours to close.
    }
    lock_for_a_while(descriptor);
    std::fputs(text, file);
    std::fflush(file);

    struct stat status;
    const bool rotate = fstat(descriptor, &status) == 0 && status.st_size > DEBUG_LOG_ROTATE_SIZE;
    flock(descriptor, LOCK_UN);
    std::fclose(file);
    if (rotate) {
        unlink(DEBUG_LOG_FILE_ROTATED);
        std::rename(DEBUG_LOG_FILE, DEBUG_LOG_FILE_ROTATED);
    }
}

void report_to_system_and_file(int caller_errno, const char* format, va_list arguments) {
    const Formatted message(caller_errno, format, arguments);
    if (message) {
        ipmi_syslog("%s", message.text());
        append_to_file(message.text());
    }
}

}  // namespace

void debug_log(const char* format, ...) {
    const int saved_errno = errno;
    va_list arguments;
    if (is_led(SIDEBAND_OUTLET_DEBUG)) {
        va_start(arguments, format);
        hand_over(SIDEBAND_OUTLET_DEBUG, format, arguments);
        va_end(arguments);
        return;
    }
    if (exists(DEBUG_LOG_CONSOLE_MARKER)) {
        va_start(arguments, format);
        errno = saved_errno;
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
    if (exists(DEBUG_LOG_FILE_MARKER)) {
        va_start(arguments, format);
        report_to_system_and_file(saved_errno, format, arguments);
        va_end(arguments);
    }
    errno = saved_errno;
}
