// SPDX-License-Identifier: Apache-2.0
// The command line: which command is wanted, with which options. Only this file knows the library
// that reads it.
#include "tools/shell/command_line.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "tools/shell/command_tree.h"
#include "tools/shell/commands.h"
#include "tools/shell/text.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

// What a shell may offer for a value is kept as the name of a check that lets everything through.
constexpr const char* kFiles = "file";
constexpr const char* kEndpoints = "endpoint";
constexpr const char* kEndpointsBeforeEquals = "endpoint=";
constexpr std::string_view kWordsPrefix = "words:";

void mark(CLI::Option& option, const std::string& offer) {
    option.check(CLI::Validator([](const std::string&) { return std::string(); }, "", offer));
}

/// An empty value, of a script's variable that is not set perhaps, is not taken for an option that
/// is not given.
CLI::Option& filled(CLI::Option& option) {
    return *option.check(CLI::Validator(
        [](const std::string& text) { return text.empty() ? "the value is empty" : ""; }, ""));
}

constexpr const char* kDescription =
    "Talks to the devices of a server over MCTP: discovery, PLDM, NC-SI, NVMe-MI.";
constexpr const char* kFooter =
    "Before or behind the command: --board FILE, --json, --capture FILE, --timeout SECONDS,\n"
    "--color auto|always|never, --verbose,\n"
    "--strict, --lax\n"
    "Exit status: 0 done, 1 device or transport failed, 2 wrong usage, 3 an input file is bad";

/// What add_choice() does, whatever the value goes into.
template <typename Value>
CLI::Option& put_choice(CLI::App& app, const std::string& name, Value& value, Choices choices,
                        const char* help) {
    std::string words;
    for (const auto& [word, number] : choices) {
        words += (words.empty() ? "" : "|") + std::string(word);
    }
    const auto choose = [name, words, &value, choices = std::move(choices)](const std::string& in) {
        for (const auto& [word, number] : choices) {
            if (in == word) {
                value = number;
                return;
            }
        }
        throw CLI::ValidationError(name, in + " is none of " + words);
    };
    return *app.add_option_function<std::string>(name, choose, help)->type_name(words);
}

/// A number in the one form that the tool reads. What stands for the kind of value, and what is
/// wrong with one, is told as the library that reads the command line does.
template <typename Number, typename Value>
CLI::Option& put_number(CLI::App& app, const char* name, Value& value, const char* help) {
    const auto take = [&value](const CLI::results_t& given) {
        const std::optional<uint64_t> number = parse_long_number(given.front());
        if (!number || *number > std::numeric_limits<Number>::max()) {
            return false;
        }
        value = static_cast<Number>(*number);
        return true;
    };
    return *app.add_option(name, CLI::callback_t(take), help)
                ->type_name(CLI::detail::type_name<Number>());
}

/// @param type  what help shows for the ends
void check_range(CLI::Option& option, const char* type, uint64_t least, uint64_t most) {
    const auto check = [least, most](const std::string& text) {
        const std::optional<uint64_t> number = parse_long_number(text);
        const bool good = number && *number >= least && *number <= most;
        return good ? "" : fmt::format("Value {} not in range {} to {}", text, least, most);
    };
    option.check(CLI::Validator(check, fmt::format("{} in [{} - {}]", type, least, most)));
}

void add_options(CLI::App& app, CommandLine& line, bool& lax) {
    filled(*app.add_option(
               "--board", line.board,
               "the board's description (default: " + std::string(Port::own_board()) + ")"))
        .type_name("FILE");
    mark(*app.get_option("--board"), kFiles);
    app.add_flag("--json", line.json, "one JSON document on standard output, nothing else");
    filled(*app.add_option("--capture", line.capture, "write what passes over the buses as pcapng"))
        .type_name("FILE");
    mark(*app.get_option("--capture"), kFiles);
    if (Port::is_simulated()) {
        // One value each time: else the command behind it would be a second one.
        app.add_option("--fault", line.faults, "make a device misbehave, e.g. nic0=no_ack")
            ->type_name("ENDPOINT=KIND")
            ->expected(1)
            ->take_all();
        mark(*app.get_option("--fault"), kEndpointsBeforeEquals);
    }
    Option(*app.add_option("--timeout", line.timeout,
                           "end, as failed, what has not ended after so many seconds"))
        .type_name("SECONDS")
        .range(TimeLimit::kLeast, TimeLimit::kMost);
    put_choice(app, "--color", line.colours,
               {{"auto", static_cast<uint8_t>(Output::Colours::kAuto)},
                {"always", static_cast<uint8_t>(Output::Colours::kAlways)},
                {"never", static_cast<uint8_t>(Output::Colours::kNever)}},
               "colours in tables (default: auto, on a terminal and without NO_COLOR)");
    app.add_flag("--verbose", line.verbose,
                 "every packet, and the library's own dumps and log, on standard error");
    const std::string standing = Port::is_strict() ? "--strict" : "--lax";
    CLI::Option* strict = app.add_flag(
        "--strict", line.strict,
        "hold devices to the standards in all that they send (default: " + standing + ")");
    app.add_flag("--lax", lax, "put up with what deployed devices get wrong")->excludes(strict);
    app.set_version_flag("--version", std::string(Port::program_name()) + " " + SIDEBAND_VERSION);
    app.footer(kFooter);
}

/// All that can stand on the command line.
void add_all(CLI::App& app, std::span<const AddCommands> rooms, CommandLine& line, bool& lax) {
    app.fallthrough();
    app.require_subcommand(1);
    add_options(app, line, lax);
    const Commands commands(Command(app), line);
    for (const AddCommands add_commands : rooms) {
        add_commands(commands);
    }
}

/// The words of a list that has | between them; of one word none.
std::vector<std::string> alternatives(const std::string& list) {
    std::vector<std::string> words = CLI::detail::split(list, '|');
    if (words.size() < 2) {
        words.clear();
    }
    return words;
}

/// What mark() has noted of an option. What checks have to say of its value is cut off there.
void read_marks(CLI::Option& option, OptionNode& node) {
    try {
        for (int i = 0;; ++i) {
            const CLI::Validator& check = *option.get_validator(i);
            const std::string said = check.get_description();
            if (const size_t at = node.value.rfind(":" + said); !said.empty() && at > 0) {
                node.value.resize(std::min(at, node.value.size()));
                node.limits = said;
            }
            const std::string& name = check.get_name();
            if (name == kFiles) {
                node.offer = OptionNode::Offer::kFiles;
            } else if (name == kEndpoints) {
                node.offer = OptionNode::Offer::kEndpoints;
            } else if (name == kEndpointsBeforeEquals) {
                node.offer = OptionNode::Offer::kEndpointsBeforeEquals;
            } else if (name.starts_with(kWordsPrefix)) {
                node.words = alternatives(name.substr(kWordsPrefix.size()));
            }
        }
    } catch (const CLI::OptionNotFound&) {  // there are no more
    }
}

OptionNode node_of(CLI::Option& option) {
    OptionNode node;
    node.argument = option.get_positional();
    node.required = option.get_required();
    if (node.argument) {
        node.names = {option.get_single_name()};
    } else {
        for (const std::string& name : option.get_lnames()) {
            node.names.push_back("--" + name);
        }
        for (const std::string& name : option.get_snames()) {
            node.names.push_back("-" + name);
        }
    }
    node.takes_value = option.get_items_expected_max() > 0;
    node.many = option.get_items_expected_max() > 1;
    node.again = option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    node.value = node.takes_value ? option.get_type_name() : "";
    node.help = option.get_description();
    read_marks(option, node);
    if (node.words.empty()) {
        node.words = alternatives(node.value);
    }
    return node;
}

CommandNode node_of(CLI::App& app) {
    CommandNode node{
        .name = app.get_name(), .help = app.get_description(), .options = {}, .commands = {}};
    for (CLI::Option* option : app.get_options(nullptr)) {
        node.options.push_back(node_of(*option));
    }
    for (CLI::App* command : app.get_subcommands(nullptr)) {
        node.commands.push_back(node_of(*command));
    }
    return node;
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

/// Whether there is a document must be known without what reads the command line, which takes a
/// value for any flag.
void refuse_json_value(int argc, char** argv) {
    const bool has_one = std::any_of(argv + 1, argv + argc, [](const char* word) {
        return std::string_view(word).starts_with("--json=");
    });
    if (has_one) {
        throw Failure(ExitStatus::kUsage, "--json takes no value (try --help)");
    }
}

}  // namespace

const Option& Option::required() const {
    option_->required();
    return *this;
}

const Option& Option::type_name(const std::string& name) const {
    option_->type_name(name);
    return *this;
}

const Option& Option::range(int least, int most) const {
    check_range(*option_, "INT", static_cast<uint64_t>(least), static_cast<uint64_t>(most));
    return *this;
}

const Option& Option::range(unsigned least, unsigned most) const {
    check_range(*option_, "UINT", least, most);
    return *this;
}

const Option& Option::range(double least, double most) const {
    option_->check(CLI::Range(least, most));
    // Which lets through what is no number: that is neither too small nor too large.
    option_->check([](const std::string& text) {
        return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : "";
    });
    return *this;
}

const Option& Option::one_of(const std::vector<unsigned>& values) const {
    const std::string set = CLI::detail::generate_set(values);
    const auto check = [values, set](const std::string& text) {
        const std::optional<uint64_t> number = parse_long_number(text);
        const bool good =
            number && std::find(values.begin(), values.end(), *number) != values.end();
        return good ? "" : text + " not in " + set;
    };
    option_->check(CLI::Validator(check, set));
    return *this;
}

const Option& Option::file() const {
    mark(*option_, kFiles);
    return *this;
}

const Option& Option::endpoint() const {
    mark(*option_, kEndpoints);
    return *this;
}

const Option& Option::suggest(const std::string& words) const {
    mark(*option_, std::string(kWordsPrefix) + words);
    return *this;
}

const Option& Option::needs(const Option& other) const {
    option_->needs(other.option_);
    return *this;
}

const Option& Option::excludes(const Option& other) const {
    option_->excludes(other.option_);
    return *this;
}

Option Command::add_option(const char* name, std::string& value, const char* help) const {
    CLI::Option& option = *app_->add_option(name, value, help);
    return Option(option.get_positional() ? option : filled(option));
}

Option Command::add_option(const char* name, std::vector<std::string>& value,
                           const char* help) const {
    return Option(*app_->add_option(name, value, help));
}

Option Command::add_option(const char* name, uint8_t& value, const char* help) const {
    return Option(put_number<uint8_t>(*app_, name, value, help));
}

Option Command::add_option(const char* name, uint32_t& value, const char* help) const {
    return Option(put_number<uint32_t>(*app_, name, value, help));
}

Option Command::add_option(const char* name, uint64_t& value, const char* help) const {
    return Option(put_number<uint64_t>(*app_, name, value, help));
}

Option Command::add_option(const char* name, double& value, const char* help) const {
    return Option(*app_->add_option(name, value, help));
}

Option Command::add_option(const char* name, std::optional<uint32_t>& value,
                           const char* help) const {
    return Option(put_number<uint32_t>(*app_, name, value, help));
}

Option Command::add_flag(const char* name, bool& value, const char* help) const {
    return Option(*app_->add_flag(name, value, help));
}

Option Command::add_choice(const char* name, uint8_t& value, Choices choices,
                           const char* help) const {
    return Option(put_choice(*app_, name, value, std::move(choices), help));
}

Option Command::add_choice(const char* name, std::optional<uint8_t>& value, Choices choices,
                           const char* help) const {
    return Option(put_choice(*app_, name, value, std::move(choices), help));
}

Command Commands::noun(Command above, const char* name, const char* help) {
    const auto known = above.app_->get_subcommands(
        [name](const CLI::App* command) { return command->get_name() == name; });
    CLI::App* noun = known.empty() ? above.app_->add_subcommand(name) : known.front();
    noun->require_subcommand(1);
    if (*help != '\0') {
        noun->description(help);
    }
    return Command(*noun);
}

Command Commands::add_command(Command above, const char* name, const char* help,
                              std::function<void(Context&)> run) const {
    CLI::App* command = above.app_->add_subcommand(name, help);
    command->callback([&line = line_, run = std::move(run)] { line.run = run; });
    return Command(*command);
}

CommandNode command_tree(std::span<const AddCommands> rooms) {
    CLI::App app(kDescription, std::string(Port::program_name()));
    CommandLine line;
    bool lax = false;
    add_all(app, rooms, line, lax);
    return node_of(app);
}

void parse_command_line(int argc, char** argv, std::span<const AddCommands> rooms,
                        CommandLine& line) {
    CLI::App app(kDescription, std::string(Port::program_name()));
    bool lax = false;
    add_all(app, rooms, line, lax);
    refuse_json_value(argc, argv);
    try {
        app.parse(argc, argv);
        line.strict |= Port::is_strict() && !lax;
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
