// SPDX-License-Identifier: Apache-2.0
// A printf-style text in memory.
#ifndef SIDEBAND_COMMON_FORMATTED_H
#define SIDEBAND_COMMON_FORMATTED_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "common/memory.h"

namespace sideband {

/// Nearly every text fits; a longer one is cut only if the heap is exhausted.
class Formatted {
public:
    /// @param caller_errno  what %m stands for, whatever was called meanwhile
    Formatted(int caller_errno, const char* format, va_list arguments);

    /// Whether there is a text.
    explicit operator bool() const { return ok_; }
    const char* text() const { return text_; }

private:
    char room_[256];
    HeapPtr<uint8_t[]> large_;
    const char* text_ = room_;
    bool ok_ = false;
};

}  // namespace sideband

#endif
