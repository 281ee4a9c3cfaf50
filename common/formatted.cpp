// SPDX-License-Identifier: Apache-2.0
// A printf-style text in memory.
#include "common/formatted.h"

#include <cerrno>
#include <cstdio>

namespace sideband {

Formatted::Formatted(int caller_errno, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    errno = caller_errno;
    const int length = std::vsnprintf(room_, sizeof room_, format, arguments);
    if (length >= static_cast<int>(sizeof room_)) {
        large_ = allocate_bytes(static_cast<size_t>(length) + 1);
        if (large_ != nullptr) {
            char* whole = reinterpret_cast<char*>(large_.get());
            errno = caller_errno;
            std::vsnprintf(whole, static_cast<size_t>(length) + 1, format, again);
            text_ = whole;
        }
    }
    va_end(again);
    ok_ = length >= 0;
}

}  // namespace sideband
