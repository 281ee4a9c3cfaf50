// SPDX-License-Identifier: Apache-2.0
// Fields of the structures of NVMe drives: named as the standards abbreviate them, for people and
// for programs alike.
#include "tools/nvme/fields.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/nvme/client.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr size_t kWordSize = 8;

/// Highest byte first, as a number is read.
std::string number_hex(std::span<const uint8_t> bytes) {
    std::vector<uint8_t> turned(bytes.rbegin(), bytes.rend());
    return "0x" + hex(turned);
}

/// Whether a number is too large for those of the machine and of JSON.
bool is_huge(std::span<const uint8_t> bytes) {
    return bytes.size() > kWordSize && std::any_of(bytes.begin() + kWordSize, bytes.end(),
                                                   [](uint8_t byte) { return byte != 0; });
}

}  // namespace

std::string kelvin_text(uint64_t kelvin) {
    constexpr int64_t kZeroCelsius = 273;
    return kelvin == 0
               ? "-"
               : fmt::format("{} degC ({} K)", static_cast<int64_t>(kelvin) - kZeroCelsius, kelvin);
}

std::string trimmed(std::span<const uint8_t> bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), 0);
    const std::string text = printable(std::string(bytes.begin(), end));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

void Fields::add(const std::string& name, const std::string& text, const Json& value) {
    lines_.emplace_back(name, text);
    json_[name] = value;
}

void Fields::explain(const std::string& words) {
    lines_.back().second += " (" + words + ")";
}

void Fields::take(std::span<const uint8_t> bytes, const FieldLayout& layout) {
    const uint64_t value = little_endian_at(bytes, 0, std::min(bytes.size(), kWordSize));
    const Json json = is_huge(bytes) ? Json(number_hex(bytes)) : Json(value);
    switch (layout.look) {
        case FieldLook::kHex:
            add(layout.name, number_hex(bytes), json);
            break;
        case FieldLook::kAscii:
            add(layout.name, trimmed(bytes), trimmed(bytes));
            break;
        case FieldLook::kBytes:
            add(layout.name, hex(bytes), hex(bytes));
            break;
        case FieldLook::kKelvin:
            add(layout.name, kelvin_text(value), json);
            break;
        case FieldLook::kPercent:
            add(layout.name, fmt::format("{} %", value), json);
            break;
        case FieldLook::kVersion:
            add(layout.name, fmt::format("{}.{}.{}", value >> 16, value >> 8 & 0xFF, value & 0xFF),
                json);
            break;
        default:
            add(layout.name, is_huge(bytes) ? number_hex(bytes) : std::to_string(value), json);
            break;
    }
}

void Fields::decode(std::span<const uint8_t> data, std::span<const FieldLayout> layouts) {
    for (const FieldLayout& layout : layouts) {
        const size_t end = size_t{layout.offset} + layout.size;
        if (end <= data.size()) {
            take(data.subspan(layout.offset, layout.size), layout);
        }
    }
}

std::string Fields::text(size_t indent) const {
    size_t width = 0;
    for (const auto& [name, text] : lines_) {
        width = std::max(width, name.size());
    }
    std::string all;
    for (const auto& [name, text] : lines_) {
        std::string line = fmt::format("{}{:{}}  {}", std::string(indent, ' '), name, width, text);
        line.erase(line.find_last_not_of(' ') + 1);
        all += line + "\n";
    }
    return all;
}

}  // namespace tool
