// SPDX-License-Identifier: Apache-2.0
// The command line of the command serve.
#include "tools/serve/commands.h"

#include "tools/shell/commands.h"

namespace tool {

void add_serve_commands(const Commands& commands) {
    if (!Port::is_simulated()) {
        return;
    }
    const auto [serve, wish] = commands.add<ServeWish>(
        commands.top(), "serve", "the board as a device for other software, until interrupted",
        [](Context& c, const ServeWish& w) { w.i2c ? run_serve_buses(c, w) : run_serve(c, w); });
    serve.add_option("--tty", wish.tty, "a serial line (default: a new pseudo-terminal)")
        .type_name("PATH")
        .file();
    serve.add_option("--eid", wish.eid, "of the bridge; the endpoints' follow it (default: 8)")
        .type_name("N")
        .range(8, 254);
    serve.add_flag("--i2c", wish.i2c, "its I2C buses as /dev/i2c-N, instead of a serial line");
}

}  // namespace tool
