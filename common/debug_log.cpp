// SPDX-License-Identifier: Apache-2.0
// The diagnostic log: marker files, standard error, system log, rotated log file.
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "common/memory.h"

namespace {

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

void lock_exclusively(int descriptor) {
    while (flock(descriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
}

/// The size is taken after the write: the message that crossed the threshold goes with the old
/// generation.
void append_to_file(const char* text) {
    FILE* file = std::fopen(DEBUG_LOG_FILE, "a");
    if (file == nullptr) {
        return;
    }
    const int descriptor = fileno(file);
    if (descriptor < 0) {
        return;  // The stream stays open on purpose: without a descriptor it is not ours to close.
    }
    lock_exclusively(descriptor);
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

void report_to_system_and_file(const char* format, va_list arguments) {
    // Nearly every message fits; a longer one is cut only where the heap is exhausted.
    char room[256];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(room, sizeof room, format, arguments);
    sideband::HeapPtr<uint8_t[]> large;
    const char* text = room;
    if (length >= static_cast<int>(sizeof room)) {
        large = sideband::allocate_bytes(static_cast<size_t>(length) + 1);
        if (large != nullptr) {
            char* whole = reinterpret_cast<char*>(large.get());
            std::vsnprintf(whole, static_cast<size_t>(length) + 1, format, again);
            text = whole;
        }
    }
    va_end(again);
    if (length >= 0) {
        ipmi_syslog("%s", text);
        append_to_file(text);
    }
}

}  // namespace

void debug_log(const char* format, ...) {
    const int saved_errno = errno;
    va_list arguments;
    if (exists(DEBUG_LOG_CONSOLE_MARKER)) {
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
    if (exists(DEBUG_LOG_FILE_MARKER)) {
        va_start(arguments, format);
        report_to_system_and_file(format, arguments);
        va_end(arguments);
    }
    errno = saved_errno;
}
