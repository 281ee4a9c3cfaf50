// SPDX-License-Identifier: Apache-2.0
// The command line of the command batch.
#include "tools/batch/commands.h"

#include "tools/shell/commands.h"

namespace tool {

void add_batch_commands(const Commands& commands) {
    const auto [batch, wish] = commands.add<BatchWish>(
        commands.top(), "batch", "commands from a file, one a line, on one board",
        [](Context& c, const BatchWish& w) { run_batch(c, w); });
    batch.add_option("FILE", wish.file, "the commands; - for standard input").required().file();
    batch.add_flag("--keep-going", wish.keep_going, "go on behind a command that fails");
}

}  // namespace tool
