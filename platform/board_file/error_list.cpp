// SPDX-License-Identifier: Apache-2.0
// The errors of one board file, gathered while it is read.
#include "platform/board_file/error_list.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/board_file/hex.h"

namespace board_file {

namespace {

constexpr size_t kLongestText = 400;
constexpr size_t kLongestName = 1000;

/// Bytes of the UTF-8 character in front; one where there is none.
size_t character_size(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text[0]);
    size_t size = 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
    }
    auto continues = [](char byte) { return (static_cast<uint8_t>(byte) & 0xC0) == 0x80; };
    const bool whole =
        size <= text.size() && std::ranges::all_of(text.substr(1, size - 1), continues);
    return whole ? size : 1;
}

bool is_control(std::string_view character) {
    const auto first = static_cast<uint8_t>(character[0]);
    if (character.size() == 1) {
        return first < 0x20 || (first >= 0x7F && first <= 0x9F);
    }
    return first == 0xC2 && static_cast<uint8_t>(character[1]) <= 0x9F;
}

std::string line_of(const BoardError& error, const std::string& file) {
    std::string out = file;
    if (error.line > 0) {
        out += ":" + std::to_string(error.line);
    }
    if (!error.key.empty()) {
        out += ": " + error.key;
    }
    return out + ": " + error.text;
}

}  // namespace

std::string BoardError::message(std::string_view file) const {
    const std::string name = shown(file, kLongestName);
    std::string out = line_of(*this, name);
    for (const BoardError& other : others) {
        out += "\n" + line_of(other, name);
    }
    if (left_out > 0) {
        out += "\n" + name + ": " + "at least " + std::to_string(left_out) + " more errors";
    }
    return out;
}

std::string shown(std::string_view text, size_t longest) {
    std::string out;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, character_size(text));
        if (out.size() + character.size() > longest) {
            return out + "...";
        }
        text.remove_prefix(character.size());
        if (!is_control(character)) {
            out += character;
            continue;
        }
        for (char byte : character) {
            out += "\\x" + to_hex(Bytes{static_cast<uint8_t>(byte)});
        }
    }
    return out;
}

void ErrorList::add(const BoardError& error) {
    if (!knows(error.key)) {
        tell(error);
    }
}

bool ErrorList::expect(const std::string& key) {
    return !knows(key) && known_.insert(key).second;
}

void ErrorList::tell(const BoardError& error) {
    known_.insert(error.key);
    const auto behind = std::ranges::upper_bound(told_, error.line, {}, &BoardError::line);
    if (told_.size() == kMostTold) {
        ++left_out_;
        if (behind == told_.end()) {
            return;
        }
        told_.pop_back();
    }
    told_.insert(behind, {error.key, error.line, shown(error.text, kLongestText)});
}

BoardError ErrorList::take() {
    BoardError first = std::move(told_.front());
    told_.erase(told_.begin());
    first.others = std::move(told_);
    first.left_out = left_out_;
    *this = {};
    return first;
}

bool ErrorList::knows(const std::string& key) const {
    auto any_begins_with = [&](const std::string& text) {
        const auto found = known_.lower_bound(text);
        return found != known_.end() && found->starts_with(text);
    };
    return known_.contains(key) || any_begins_with(key + ".") || any_begins_with(key + "[");
}

}  // namespace board_file
