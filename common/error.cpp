// SPDX-License-Identifier: Apache-2.0
// The record of a failure: how it is filled, and its text.
#include "common/error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

namespace sideband {
namespace {

/// By number, each behind the NUL of the one in front: no table of addresses to be relocated.
constexpr char kCauses[] =
    "no failure\0"
    "wrong argument\0"
    "out of memory\0"
    "lock refused\0"
    "no power\0"
    "no such bus\0"
    "not acknowledged\0"
    "no answer\0"
    "only answers to something else came\0"
    "wrong checksum\0"
    "malformed answer\0"
    "refused by the device\0"
    "not done by the device\0"
    "not found\0"
    "bad file\0"
    "deadline passed\0"
    "refused by the system\0";

constexpr char kKinds[] =
    "\0"
    "MCTP completion code\0"
    "PLDM completion code\0"
    "NC-SI response code\0"
    "NVMe-MI status\0"
    "NVMe status\0"
    "result\0";

constexpr char kSteps[] =
    "\0"
    "MCTP control command\0"
    "PLDM command\0"
    "NC-SI command\0"
    "NVMe-MI command\0"
    "NVMe command\0"
    "the device's request\0"
    "the file\0"
    "setting up the endpoint\0";

/// The text of a number; "?" behind the last one.
const char* text_of(std::span<const char> texts, unsigned number) {
    const char* text = texts.data();
    const char* const end = text + texts.size() - 1;
    for (; number > 0 && text != end; --number) {
        text += std::strlen(text) + 1;
    }
    return text != end ? text : "?";
}

/// A text that may be longer than its room.
class Text {
public:
    Text(char* buffer, size_t size) : buffer_(buffer), size_(size) {
        if (size != 0) {
            buffer[0] = '\0';
        }
    }

    void add(const char* format, ...) SIDEBAND_PRINTF(2, 3) {
        va_list arguments;
        va_start(arguments, format);
        const bool has_room = length_ < size_;
        const int added = std::vsnprintf(has_room ? buffer_ + length_ : nullptr,
                                         has_room ? size_ - length_ : 0, format, arguments);
        va_end(arguments);
        length_ += added > 0 ? static_cast<size_t>(added) : 0;
    }

    size_t length() const { return length_; }

private:
    char* buffer_;
    size_t size_;
    size_t length_ = 0;
};

bool has_command(uint8_t step) {
    return step != SIDEBAND_STEP_NONE && step < SIDEBAND_STEP_FILE;
}

}  // namespace

int32_t fail(sideband_error& error, uint8_t cause) {
    return fail_with(error, cause, 0);
}

int32_t fail_with(sideband_error& error, uint8_t cause, uint16_t detail) {
    if (error.cause == SIDEBAND_CAUSE_NONE) {
        error = error_of(cause);
        error.detail = detail;
    }
    return -1;
}

int32_t fail_by_platform(sideband_error& error, int result, uint8_t otherwise) {
    uint8_t cause = otherwise;
    if (result == -ENODEV) {
        cause = SIDEBAND_CAUSE_NO_BUS;
    } else if (result == -ENXIO) {
        cause = SIDEBAND_CAUSE_NOT_ACKNOWLEDGED;
    } else if (result == -EBADMSG) {
        cause = SIDEBAND_CAUSE_WRONG_CHECK;
    }
    constexpr int kErrnoMax = 4095;
    const bool is_errno = result < 0 && result >= -kErrnoMax;
    return fail_with(error, cause, static_cast<uint16_t>(is_errno ? -result : 0));
}

void record_code(sideband_error& error, uint8_t kind, uint16_t code, uint16_t detail) {
    error.cause = SIDEBAND_CAUSE_DEVICE;
    error.kind = kind;
    error.code = code;
    error.detail = detail;
}

void record_step(sideband_error& error, uint8_t step, uint8_t command) {
    if (error.step == SIDEBAND_STEP_NONE) {
        error.step = step;
        error.command = command;
    }
}

int32_t fail_set_up(sideband_error& error, const sideband_error* why) {
    error = why != nullptr ? *why : error_of(SIDEBAND_CAUSE_MEMORY);
    record_step(error, SIDEBAND_STEP_SET_UP);
    return -1;
}

const sideband_error* null_context_error() {
    return &kArgumentError;
}

}  // namespace sideband

size_t sideband_error_text(const sideband_error* error, char* buffer, size_t size) {
    using namespace sideband;
    const sideband_error& shown = error != nullptr ? *error : kNoError;
    Text text(buffer, size);
    text.add("%s", text_of(kCauses, shown.cause));
    if (shown.cause == SIDEBAND_CAUSE_DEVICE) {
        text.add(": %s 0x%02x", text_of(kKinds, shown.kind), shown.code);
        if (shown.kind == SIDEBAND_CODE_NCSI) {
            text.add(", reason code 0x%04x", shown.detail);
        }
    }
    if (shown.step != SIDEBAND_STEP_NONE) {
        text.add(", in %s", text_of(kSteps, shown.step));
    }
    if (has_command(shown.step)) {
        text.add(" 0x%02x", shown.command);
    }
    return text.length();
}
