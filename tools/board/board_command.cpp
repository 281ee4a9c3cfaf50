// SPDX-License-Identifier: Apache-2.0
// The commands board check and board dump.
#include <fmt/format.h>

#include "tools/board/commands.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
void run_board_check(Context& context, const std::string& path) {
    const BoardSummary board = Port::check_board(path);
    context.output.text(fmt::format("{}: board {}, {}: good\n", printable(path),
                                    printable(board.name), counted(board.devices, "device")));
    context.output.document({{"file", path}, {"board", board.name}, {"devices", board.devices}});
}

void run_board_dump(Context& context) {
    const Json board = Json::parse(context.port.board_text());
    // The file itself in either format: it is one document.
    context.output.plain(printable_json_text(board.dump(context.output.json() ? -1 : 4)) + "\n");
}

}  // namespace tool
