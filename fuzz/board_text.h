// SPDX-License-Identifier: Apache-2.0
// What every reader of board files and descriptions says of a text that it refuses.
#ifndef SIDEBAND_FUZZ_BOARD_TEXT_H
#define SIDEBAND_FUZZ_BOARD_TEXT_H

#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "platform/board_file/error_list.h"

namespace fuzz {

/// A message goes to a terminal: whole lines, and none of the text's control characters.
inline void require_shown(std::string_view message) {
    require(!message.empty() && message.back() != '\n', "a message that is no whole line");
    require(std::none_of(message.begin(), message.end(),
                         [](char c) {
                             const auto byte = static_cast<uint8_t>(c);
                             return (byte < 0x20 && c != '\n') || byte == 0x7F;
                         }),
            "a control character in a message");
}

/// A reader has either taken a text or said in which of its lines something is wrong.
inline void require_verdict(bool taken, const board_file::BoardError& error,
                            std::string_view text) {
    require(taken == error.text.empty(), "neither taken nor refused");
    if (taken) {
        return;
    }
    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    require(error.line >= 1 && error.line <= lines, "a line that the text does not have");
    int before = error.line;
    for (const board_file::BoardError& other : error.others) {
        require(other.line >= before && other.line <= lines, "errors out of order");
        before = other.line;
    }
    require_shown(error.message("board.json"));
}

}  // namespace fuzz

#endif
