// SPDX-License-Identifier: Apache-2.0
// Tables of the names that the standards give to numbers.
#ifndef SIDEBAND_TOOLS_NAME_TABLE_H
#define SIDEBAND_TOOLS_NAME_TABLE_H

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

}  // namespace tool

#endif
