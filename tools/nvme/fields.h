// SPDX-License-Identifier: Apache-2.0
// Fields of the structures of NVMe drives: named as the standards abbreviate them, for people and
// for programs alike.
#ifndef SIDEBAND_TOOLS_NVME_FIELDS_H
#define SIDEBAND_TOOLS_NVME_FIELDS_H

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tools/shell/json.h"

namespace tool {

/// How a field is shown.
enum class FieldLook : uint8_t {
    kNumber,   ///< of 1 to 8 or 16 bytes
    kHex,      ///< likewise
    kAscii,    ///< text that is filled up with blanks or zeros
    kBytes,    ///< in the order in which they came
    kKelvin,   ///< a temperature; 0 if there is none
    kPercent,  ///< a percentage
    kVersion,  ///< major, minor and tertiary number
};

/// Where a field lies in a structure.
struct FieldLayout {
    const char* name;
    uint16_t offset;
    uint16_t size;
    FieldLook look = FieldLook::kNumber;
};

/// Names, texts and values, one under the other.
class Fields {
public:
    void add(const std::string& name, const std::string& text, const Json& value);

    /// Takes the fields out of a structure; those that it is too short for are left out.
    void decode(std::span<const uint8_t> data, std::span<const FieldLayout> layouts);

    /// Adds words to the text of the last field.
    void explain(const std::string& words);

    /// @param indent  blanks before each line
    std::string text(size_t indent = 0) const;
    const Json& json() const { return json_; }

private:
    void take(std::span<const uint8_t> bytes, const FieldLayout& layout);

    std::vector<std::pair<std::string, std::string>> lines_;
    Json json_ = Json::object();
};

/// "36 degC (309 K)".
std::string kelvin_text(uint64_t kelvin);

/// Printable text without the blanks and zeros behind it.
std::string trimmed(std::span<const uint8_t> bytes);

}  // namespace tool

#endif
