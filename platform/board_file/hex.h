// SPDX-License-Identifier: Apache-2.0
// Byte strings and the hex digits that stand for them in a board file.
#ifndef SIDEBAND_BOARD_FILE_HEX_H
#define SIDEBAND_BOARD_FILE_HEX_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace board_file {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// Hex digits, two a byte, no separators. Nothing if the text is anything else.
std::optional<Bytes> from_hex(std::string_view text);
std::string to_hex(ByteView bytes);

}  // namespace board_file

#endif
