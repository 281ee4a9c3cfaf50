// SPDX-License-Identifier: Apache-2.0
// Platform interface: power. Whether it is on comes from a file, a command, or is taken for
// granted.
#include "platform/linux/power.h"

#include <fcntl.h>
#include <sideband/platform.h>

#include <array>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/linux/shell.h"
#include "platform/linux/state.h"

namespace machine {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos
               ? std::string_view{}
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Whether a file holds a text, and blanks around it at most.
bool file_holds(const std::string& path, std::string_view text) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    std::array<char, 256> content{};
    const ssize_t length = file ? read(file.get(), content.data(), content.size()) : -1;
    return length > 0 && trimmed({content.data(), static_cast<size_t>(length)}) == trimmed(text);
}

}  // namespace

bool Power::is_on() {
    if (source_.kind == PowerSource::Kind::kOn) {
        return true;
    }
    if (source_.kind == PowerSource::Kind::kFile) {
        return file_holds(source_.text, source_.on);
    }
    const std::lock_guard guard(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (!asked_ || now - *asked_ >= kCommandHolds) {
        last_ = run_quietly(source_.text, kCommandLimit) == 0;
        asked_ = std::chrono::steady_clock::now();
    }
    return last_;
}

}  // namespace machine

int PltCHASSIS_PowerStatus(void) {
    machine::State* const state = machine::in_use();
    return state != nullptr && state->power.is_on() ? 1 : 0;
}

int GetS5stByPwrConfig(void) {
    const machine::State* const state = machine::in_use();
    return state == nullptr || state->board.policy_off ? 1 : 0;
}

int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value) {
    if (value == nullptr || base != PLT_MAIN_POWER_REGISTER || group != 0 || offset != 0 ||
        machine::in_use() == nullptr) {
        return -1;
    }
    *value = PltCHASSIS_PowerStatus() == 1 ? 1 : 0;
    return 0;
}
