// SPDX-License-Identifier: Apache-2.0
// Text for standard output and console, or for whoever takes their place.
#ifndef SIDEBAND_COMMON_OUTPUT_H
#define SIDEBAND_COMMON_OUTPUT_H

#include <sideband/export.h>
#include <sideband/output.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// As printf() to standard output, or to who takes its place.
void print_formatted(const char* format, ...) SIDEBAND_PRINTF(1, 2);
/// The same for console_log(), which takes no va_list and so gets the whole text.
void print_on_console(const char* format, ...) SIDEBAND_PRINTF(1, 2);
/// Prints a line, as puts().
void print_line(const char* text);
/// Prints bytes of text.
void print_bytes(const char* text, size_t length);

/// Hands a text to who takes the place of an outlet.
void hand_over(uint32_t outlet, const char* format, va_list arguments) SIDEBAND_PRINTF(2, 0);
/// Whether somebody takes an outlet's place.
bool is_led(uint32_t outlet);
/// See sideband_set_output().
void lead_output(uint32_t outlets, sideband_output_op take, void* context);

/// Gathers text, for which printf() costs more than the work that it tells of, and hands it to
/// standard output in large pieces, the last one when this ends. What prints by other means
/// meanwhile comes in front of what is gathered.
class Output {
public:
    Output() = default;
    ~Output() { flush(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// As printf(), with %d, %u, %x and %s alone: no widths, no flags.
    void print(const char* format, ...) SIDEBAND_PRINTF(2, 3);
    void print_arguments(const char* format, va_list arguments) SIDEBAND_PRINTF(2, 0);

    /// " %x" for each byte, or " %02x".
    void print_hex(std::span<const uint8_t> bytes, bool two_digits = false);
    /// " %02x" for each byte, sixteen to a line; a line end is the last of it.
    void print_rows(std::span<const uint8_t> bytes);
    void print_line(const char* text);

private:
    void put(const char* text, size_t length);
    void end_line();
    void put_around(const char* text, size_t length);
    void put_number(unsigned value, unsigned base);
    void flush();

    size_t gathered_ = 0;
    char room_[256];
};

/// Output::print(), handed over at once.
void print(const char* format, ...) SIDEBAND_PRINTF(1, 2);

}  // namespace sideband

#endif
