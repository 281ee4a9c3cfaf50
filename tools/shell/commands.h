// SPDX-License-Identifier: Apache-2.0
// The way of the rooms to the command line: nouns, commands, arguments.
#ifndef SIDEBAND_TOOLS_SHELL_COMMANDS_H
#define SIDEBAND_TOOLS_SHELL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <concepts>
#include <functional>
#include <memory>
#include <utility>

#include "tools/shell/command_line.h"
#include "tools/shell/endpoint_name.h"

namespace tool {

/// A command on the command line, and what its arguments go into.
template <typename Arguments>
struct AddedCommand {
    CLI::App& command;
    Arguments& arguments;
};

/// What a room puts its commands on the command line with.
class Commands {
public:
    Commands(CLI::App& app, CommandLine& line) : app_(app), line_(line) {}

    /// Whatever has no noun of its own is put here.
    CLI::App& top() const { return app_; }

    /// A noun: one of the commands under it is required. Rooms may share one; the room to which it
    /// belongs says what it is.
    CLI::App& noun(const char* name, const char* help = "") const { return noun(app_, name, help); }

    /// A noun under another one.
    static CLI::App& noun(CLI::App& above, const char* name, const char* help = "") {
        const auto known = above.get_subcommands(
            [name](const CLI::App* command) { return command->get_name() == name; });
        CLI::App* noun = known.empty() ? above.add_subcommand(name) : known.front();
        noun->require_subcommand(1);
        if (*help != '\0') {
            noun->description(help);
        }
        return *noun;
    }

    /// A command with its arguments. Those that have an endpoint get it as the first.
    template <typename Arguments>
    AddedCommand<Arguments> add(CLI::App& above, const char* name, const char* help,
                                std::function<void(Context&, const Arguments&)> run) const {
        CLI::App* command = above.add_subcommand(name, help);
        const auto arguments = std::make_shared<Arguments>();
        command->callback([&line = line_, arguments, run = std::move(run)] {
            line.run = [arguments, run](Context& context) { run(context, *arguments); };
        });
        if constexpr (std::derived_from<Arguments, EndpointArguments>) {
            command->add_option("ENDPOINT", arguments->endpoint, kEndpointHelp)->required();
        }
        return {*command, *arguments};
    }

    /// A command without arguments.
    void add(CLI::App& above, const char* name, const char* help, void (*run)(Context&)) const {
        add<None>(above, name, help, [run](Context& context, const None&) { run(context); });
    }

    /// A command that needs to know nothing but its endpoint.
    void add(CLI::App& above, const char* name, const char* help,
             void (*run)(Context&, const std::string& endpoint)) const {
        add<EndpointArguments>(above, name, help,
                               [run](Context& context, const EndpointArguments& arguments) {
                                   run(context, arguments.endpoint);
                               });
    }

private:
    struct None {};

    CLI::App& app_;
    CommandLine& line_;
};

}  // namespace tool

#endif
