// SPDX-License-Identifier: Apache-2.0
// The command line: which command is wanted, with which options.
#include "tools/shell/command_line.h"

#include <sstream>

#include "tools/shell/commands.h"

namespace tool {
namespace {

constexpr const char* kFooter =
    "Before or behind the command: --board FILE, --json, --capture FILE, --verbose\n"
    "Exit status: 0 done, 1 device or transport failed, 2 wrong usage, 3 an input file is bad";

void add_options(CLI::App& app, CommandLine& line) {
    app.add_option("--board", line.board,
                   "the board's description (default: " + std::string(Port::own_board()) + ")")
        ->type_name("FILE");
    app.add_flag("--json", line.json, "one JSON document on standard output, nothing else");
    app.add_option("--capture", line.capture, "write what passes over the buses as pcapng")
        ->type_name("FILE");
    app.add_flag("--verbose", line.verbose,
                 "every packet, and the library's own dumps and log, on standard error");
    app.set_version_flag("--version", std::string(Port::program_name()) + " " + SIDEBAND_VERSION);
    app.footer(kFooter);
}

/// The innermost command that the command line has named, and the words that lead to it.
const CLI::App& innermost(const CLI::App& app, std::string& words) {
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        words += (words.empty() ? "" : " ") + at->get_name();
    }
    return *at;
}

std::string usage_error(const CLI::App& app, const CLI::App& inner, const CLI::ParseError& error) {
    const bool command_missing = inner.get_require_subcommand_min() > 0;
    if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr || !command_missing) {
        return error.what();
    }
    // The word that stands where the command should is the first of the left-over ones.
    const std::vector<std::string> left = app.remaining(true);
    return left.empty() ? "a command is required" : left.front() + ": no such command";
}

}  // namespace

void parse_command_line(int argc, char** argv, std::span<const AddCommands> rooms,
                        CommandLine& line) {
    CLI::App app{"Talks to the devices of a server over MCTP: discovery, PLDM, NC-SI, NVMe-MI.",
                 std::string(Port::program_name())};
    app.fallthrough();
    app.require_subcommand(1);
    add_options(app, line);
    const Commands commands(app, line);
    for (const AddCommands add_commands : rooms) {
        add_commands(commands);
    }
    try {
        app.parse(argc, argv);
        innermost(app, line.command);
    } catch (const CLI::Success& wish) {
        std::ostringstream text;
        app.exit(wish, text, text);
        line.text = text.str();
    } catch (const CLI::ParseError& error) {
        const CLI::App& inner = innermost(app, line.command);
        throw Failure(ExitStatus::kUsage, usage_error(app, inner, error) + " (try --help)");
    }
}

}  // namespace tool
