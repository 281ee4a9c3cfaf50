// SPDX-License-Identifier: Apache-2.0
// A board file from its path to its parsed root, and the errors that come of it.
#ifndef SIDEBAND_BOARD_FILE_FILE_H
#define SIDEBAND_BOARD_FILE_FILE_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/board_file/json_tree.h"

namespace board_file {

/// Bytes that a board file may have.
inline constexpr size_t kLongestFile = 4u << 20;

/// Reads a regular file whole. Nothing is waited for: a FIFO is refused.
/// @return why the text could not be read whole; nothing if it was
std::optional<std::string> read_file(const std::string& path, std::string& text);

/// Parses a text and hands its root to a reader.
/// @return false with error filled where either found something wrong
bool read_text(std::string_view text, BoardError& error,
               const std::function<void(const Place& root)>& read);

}  // namespace board_file

#endif
