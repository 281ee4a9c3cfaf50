// SPDX-License-Identifier: Apache-2.0
// Tables of the names that the standards give to numbers and to bits.
#ifndef SIDEBAND_TOOLS_SHELL_NAME_TABLE_H
#define SIDEBAND_TOOLS_SHELL_NAME_TABLE_H

#include <cstdint>
#include <span>
#include <string>

namespace tool {

struct Name {
    uint16_t value;
    const char* text;
};

inline std::string find_name(std::span<const Name> names, uint16_t value, const char* otherwise) {
    for (const Name& name : names) {
        if (name.value == value) {
            return name.text;
        }
    }
    return otherwise;
}

/// "ready, fatal": the names of the bits that are set, or what none of them means.
inline std::string bits_text(uint32_t value, std::span<const Name> bits, const char* none) {
    std::string text;
    for (const Name& bit : bits) {
        if ((value >> bit.value & 1) != 0) {
            text += (text.empty() ? "" : ", ") + std::string(bit.text);
        }
    }
    return text.empty() ? none : text;
}

}  // namespace tool

#endif
