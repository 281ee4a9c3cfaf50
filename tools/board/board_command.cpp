// SPDX-License-Identifier: Apache-2.0
// The commands board check and board dump.
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "tools/board/commands.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// JSON whose texts have no character that a terminal obeys: DEL and C1, which JSON lets stand,
/// as \uNNNN. It means the same.
std::string harmless(std::string_view text) {
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        const auto next = static_cast<uint8_t>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte == 0x7F) {
            shown += "\\u007f";
        } else if (byte == 0xC2 && next >= 0x80 && next <= 0x9F) {
            shown += fmt::format("\\u00{:02x}", next);
            ++i;
        } else {
            shown += text[i];
        }
    }
    return shown;
}

}  // namespace

void run_board_check(Context& context, const std::string& path) {
    const BoardSummary board = Port::check_board(path);
    context.output.text(fmt::format("{}: board {}, {}: good\n", printable(path),
                                    printable(board.name), counted(board.devices, "device")));
    context.output.document({{"file", path}, {"board", board.name}, {"devices", board.devices}});
}

void run_board_dump(Context& context) {
    const Json board = Json::parse(context.port.board_text());
    // The file itself in either format: it is one document.
    context.output.plain(harmless(board.dump(context.output.json() ? -1 : 4)) + "\n");
}

}  // namespace tool
