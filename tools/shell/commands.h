// SPDX-License-Identifier: Apache-2.0
// The way of the rooms to the command line: nouns, commands, arguments. Only command_line.cpp knows
// the library that reads it.
#ifndef SIDEBAND_TOOLS_SHELL_COMMANDS_H
#define SIDEBAND_TOOLS_SHELL_COMMANDS_H

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/shell/command_line.h"
#include "tools/shell/endpoint_name.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tool {

/// An option or argument of a command. Each function says more of it and returns it.
class Option {
public:
    explicit Option(CLI::Option& option) : option_(&option) {}

    const Option& required() const;
    /// What help shows for its value.
    const Option& type_name(const std::string& name) const;
    /// The values that it takes, both ends among them. Help shows the type of the ends.
    const Option& range(int least, int most) const;
    const Option& range(unsigned least, unsigned most) const;
    const Option& range(double least, double most) const;
    const Option& one_of(const std::vector<unsigned>& values) const;
    /// What a shell may offer for its value: files, endpoints of the board, or some words. The
    /// words of add_choice(), and those that stand in type_name() with | between them, it offers
    /// anyway.
    const Option& file() const;
    const Option& endpoint() const;
    const Option& suggest(const std::string& words) const;
    const Option& needs(const Option& other) const;
    const Option& excludes(const Option& other) const;

private:
    CLI::Option* option_;
};

/// Words for the values of an argument.
using Choices = std::vector<std::pair<const char*, uint8_t>>;

/// A noun or a command as it stands on the command line.
class Command {
public:
    explicit Command(CLI::App& app) : app_(&app) {}

    /// @param name   with hyphens in front of an option's, without those of an argument
    /// @param value  must live until the command line has been read
    Option add_option(const char* name, std::string& value, const char* help) const;
    Option add_option(const char* name, std::vector<std::string>& value, const char* help) const;
    Option add_option(const char* name, uint8_t& value, const char* help) const;
    Option add_option(const char* name, uint32_t& value, const char* help) const;
    Option add_option(const char* name, uint64_t& value, const char* help) const;
    Option add_option(const char* name, double& value, const char* help) const;
    Option add_option(const char* name, std::optional<uint32_t>& value, const char* help) const;
    Option add_flag(const char* name, bool& value, const char* help) const;

    /// One that is one of some words.
    Option add_choice(const char* name, uint8_t& value, Choices choices, const char* help) const;
    Option add_choice(const char* name, std::optional<uint8_t>& value, Choices choices,
                      const char* help) const;

private:
    friend class Commands;
    CLI::App* app_;
};

/// A command on the command line, and what its arguments go into.
template <typename Arguments>
struct AddedCommand {
    Command command;
    Arguments& arguments;
};

/// What a room puts its commands on the command line with.
class Commands {
public:
    Commands(Command top, CommandLine& line) : top_(top), line_(line) {}

    /// Whatever has no noun of its own is put here.
    Command top() const { return top_; }

    /// A noun: one of the commands under it is required. Rooms may share one; the room to which it
    /// belongs says what it is.
    Command noun(const char* name, const char* help = "") const { return noun(top_, name, help); }

    /// A noun under another one.
    static Command noun(Command above, const char* name, const char* help = "");

    /// A command with its arguments. Those that have an endpoint get it as the first.
    template <typename Arguments>
    AddedCommand<Arguments> add(Command above, const char* name, const char* help,
                                std::function<void(Context&, const Arguments&)> run) const {
        const auto arguments = std::make_shared<Arguments>();
        const Command command = add_command(
            above, name, help,
            [arguments, run = std::move(run)](Context& context) { run(context, *arguments); });
        if constexpr (std::derived_from<Arguments, EndpointArguments>) {
            command.add_option("ENDPOINT", arguments->endpoint, kEndpointHelp)
                .required()
                .endpoint();
        }
        return {command, *arguments};
    }

    /// A command without arguments.
    void add(Command above, const char* name, const char* help, void (*run)(Context&)) const {
        add_command(above, name, help, run);
    }

    /// A command that needs to know nothing but its endpoint.
    void add(Command above, const char* name, const char* help,
             void (*run)(Context&, const std::string& endpoint)) const {
        add<EndpointArguments>(above, name, help,
                               [run](Context& context, const EndpointArguments& arguments) {
                                   run(context, arguments.endpoint);
                               });
    }

private:
    Command add_command(Command above, const char* name, const char* help,
                        std::function<void(Context&)> run) const;

    Command top_;
    CommandLine& line_;
};

}  // namespace tool

#endif
