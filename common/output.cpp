// SPDX-License-Identifier: Apache-2.0
// Text for standard output and console, or for whoever takes their place.
#include "common/output.h"

#include <sideband/platform.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/formatted.h"

namespace sideband {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

/// Who takes texts, and of which outlets.
struct Taker {
    uint32_t outlets;
    sideband_output_op take;
    void* context;
};
Taker taker;

}  // namespace

void hand_over(uint32_t outlet, const char* format, va_list arguments) {
    const int caller_errno = errno;
    const Formatted text(caller_errno, format, arguments);
    if (text) {
        taker.take(taker.context, outlet, text.text(), std::strlen(text.text()));
    }
    errno = caller_errno;
}

bool is_led(uint32_t outlet) {
    return (taker.outlets & outlet) != 0;
}

void lead_output(uint32_t outlets, sideband_output_op take, void* context) {
    taker = {outlets, take, context};
}

void print_formatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (is_led(SIDEBAND_OUTLET_PRINTED)) {
        hand_over(SIDEBAND_OUTLET_PRINTED, format, arguments);
    } else {
        // The analyzer does not see that va_start() has been there.
        std::vprintf(format, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
    }
    va_end(arguments);
}

void print_on_console(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (is_led(SIDEBAND_OUTLET_CONSOLE)) {
        hand_over(SIDEBAND_OUTLET_CONSOLE, format, arguments);
    } else if (const Formatted text(errno, format, arguments); text) {
        console_log("%s", text.text());
    }
    va_end(arguments);
}

void print_line(const char* text) {
    if (is_led(SIDEBAND_OUTLET_PRINTED)) {
        print_formatted("%s\n", text);
    } else {
        std::puts(text);
    }
}

void print_bytes(const char* text, size_t length) {
    if (length == 0) {
        return;
    }
    if (is_led(SIDEBAND_OUTLET_PRINTED)) {
        taker.take(taker.context, SIDEBAND_OUTLET_PRINTED, text, length);
    } else {
        std::fwrite(text, 1, length, stdout);
    }
}

void Output::print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_arguments(format, arguments);
    va_end(arguments);
}

// The analyzer does not see that whoever calls this has called va_start().
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
void Output::print_arguments(const char* format, va_list arguments) {
    for (;;) {
        const char* const conversion = strchrnul(format, '%');
        if (conversion != format) {
            put(format, static_cast<size_t>(conversion - format));
        }
        if (*conversion == '\0') {
            return;
        }
        switch (conversion[1]) {
            case 'd': {
                const int value = va_arg(arguments, int);
                const auto magnitude = static_cast<unsigned>(value);
                if (value < 0) {
                    put("-", 1);
                }
                put_number(value < 0 ? -magnitude : magnitude, 10);
                break;
            }
            case 'u':
                put_number(va_arg(arguments, unsigned), 10);
                break;
            case 'x':
                put_number(va_arg(arguments, unsigned), 16);
                break;
            default: {
                const char* const text = va_arg(arguments, const char*);
                put(text, std::strlen(text));
                break;
            }
        }
        format = conversion + 2;
    }
}
// NOLINTEND(clang-analyzer-valist.Uninitialized)

void Output::print_hex(std::span<const uint8_t> bytes, bool two_digits) {
    constexpr size_t kShownByteSize = 3;
    constexpr size_t kAtOnce = 16;
    while (!bytes.empty()) {
        const std::span<const uint8_t> some = bytes.first(std::min(bytes.size(), kAtOnce));
        char shown[kAtOnce * kShownByteSize];
        char* to = shown;
        for (const uint8_t byte : some) {
            *to++ = ' ';
            if (byte > 0x0F || two_digits) {
                *to++ = kDigits[byte >> 4];
            }
            *to++ = kDigits[byte & 0x0F];
        }
        put(shown, static_cast<size_t>(to - shown));
        bytes = bytes.subspan(some.size());
    }
}

void Output::print_rows(std::span<const uint8_t> bytes) {
    constexpr size_t kBytesPerLine = 16;
    for (; bytes.size() > kBytesPerLine; bytes = bytes.subspan(kBytesPerLine)) {
        print_hex(bytes.first(kBytesPerLine), true);
        end_line();
    }
    print_hex(bytes, true);
    end_line();
}

void Output::print_line(const char* text) {
    put(text, std::strlen(text));
    end_line();
}

void Output::end_line() {
    if (gathered_ == sizeof room_) {
        flush();
    }
    room_[gathered_++] = '\n';
}

void Output::put(const char* text, size_t length) {
    if (length > sizeof room_ - gathered_) {
        put_around(text, length);
        return;
    }
    std::memcpy(room_ + gathered_, text, length);
    gathered_ += length;
}

/// Puts what there is no room for behind what is gathered.
void Output::put_around(const char* text, size_t length) {
    flush();
    print_bytes(text, length);
}

void Output::put_number(unsigned value, unsigned base) {
    char digits[10];
    char* const end = digits + sizeof digits;
    char* first = end;
    do {
        // One division by a constant each: ARM calls a function for one by a variable.
        const unsigned rest = base == 10 ? value / 10 : value / 16;
        *--first = kDigits[value - rest * base];
        value = rest;
    } while (value != 0);
    put(first, static_cast<size_t>(end - first));
}

void Output::flush() {
    print_bytes(room_, gathered_);
    gathered_ = 0;
}

void print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Output out;
    out.print_arguments(format, arguments);
    va_end(arguments);
}

}  // namespace sideband
