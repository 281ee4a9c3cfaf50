// SPDX-License-Identifier: Apache-2.0
// The command line of the command check.
#include "tools/check/commands.h"

#include "tools/shell/commands.h"

namespace tool {

void add_check_commands(const Commands& commands) {
    const auto [check, wish] = commands.add<CheckWish>(
        commands.top(), "check", "a device against the standards, rule by rule",
        [](Context& c, const CheckWish& w) { run_check(c, w); });
    check.add_option("ENDPOINT", wish.endpoint, kEndpointHelp).endpoint();
    check.add_flag("--list", wish.list, "the rules, without a device");
    check.add_option("--rule", wish.rule, "only rules whose names begin so").type_name("NAME");
    check.add_flag("--write", wish.write, "also rules that change something in the device");
    check.add_option("--junit", wish.junit, "also a report as JUnit XML").type_name("FILE").file();
}

}  // namespace tool
