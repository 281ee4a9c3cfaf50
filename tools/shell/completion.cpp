// SPDX-License-Identifier: Apache-2.0
// What a shell offers behind the words that stand on the command line already.
#include "tools/shell/completion.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "tools/shell/endpoint_name.h"
#include "tools/shell/port.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr std::string_view kBoardOption = "--board";

bool is_option(std::string_view word) {
    return word.size() > 1 && word.starts_with('-');
}

/// Reads the words in front of the one that is typed: which command it is, and what comes next.
class Reader {
public:
    explicit Reader(const CommandNode& tree) : path_{&tree} {}

    void read(const std::string& word) {
        const bool value = pending_ != nullptr && !(pending_->many && is_option(word));
        if (value && !only_arguments_) {
            read_value(word);
        } else if (word == "--") {
            pending_ = nullptr;
            only_arguments_ = true;
        } else if (is_option(word) && !only_arguments_) {
            read_option(word);
        } else if (const CommandNode* command = find_command(word); command != nullptr) {
            path_.push_back(command);
            arguments_ = 0;
        } else {
            ++arguments_;
        }
    }

    /// The option whose value is due; null for none.
    const OptionNode* pending() const { return pending_; }
    bool only_arguments() const { return only_arguments_; }
    const std::string& board() const { return board_; }
    const CommandNode& command() const { return *path_.back(); }

    /// The argument that comes next; null for none.
    const OptionNode* argument() const {
        size_t left = arguments_;
        for (const OptionNode& option : command().options) {
            if (option.argument && (left == 0 || option.many)) {
                return &option;
            }
            left -= option.argument ? 1 : 0;
        }
        return nullptr;
    }

    /// An option of the command, or of what it is under; null if there is none of that name.
    const OptionNode* find_option(std::string_view name) const {
        for (const CommandNode* node : path_) {
            for (const OptionNode& option : node->options) {
                if (!option.argument && std::find(option.names.begin(), option.names.end(), name) !=
                                            option.names.end()) {
                    return &option;
                }
            }
        }
        return nullptr;
    }

    /// Those that may still be given, the command's own first.
    std::vector<const OptionNode*> options_left() const {
        std::vector<const OptionNode*> left;
        for (auto node = path_.rbegin(); node != path_.rend(); ++node) {
            for (const OptionNode& option : (*node)->options) {
                const bool known = std::any_of(left.begin(), left.end(), [&](const auto* other) {
                    return other->names == option.names;  // --help is everywhere
                });
                if (!option.argument && !known && (option.again || !given_.contains(&option))) {
                    left.push_back(&option);
                }
            }
        }
        return left;
    }

private:
    void read_option(const std::string& word) {
        const size_t equals = word.find('=');
        pending_ = find_option(word.substr(0, equals));
        given_.insert(pending_);
        if (pending_ == nullptr || !pending_->takes_value) {
            pending_ = nullptr;
        } else if (equals != std::string::npos) {
            read_value(word.substr(equals + 1));
        }
    }

    void read_value(const std::string& value) {
        const auto& names = pending_->names;
        if (std::find(names.begin(), names.end(), kBoardOption) != names.end()) {
            board_ = value;
        }
        if (!pending_->many) {
            pending_ = nullptr;
        }
    }

    const CommandNode* find_command(std::string_view name) const {
        const auto& commands = command().commands;
        const auto found = std::find_if(commands.begin(), commands.end(),
                                        [name](const auto& one) { return one.name == name; });
        return found == commands.end() ? nullptr : &*found;
    }

    std::vector<const CommandNode*> path_;
    std::set<const OptionNode*> given_;
    const OptionNode* pending_ = nullptr;
    size_t arguments_ = 0;
    bool only_arguments_ = false;
    std::string board_;
};

/// Adds what the value of an option or argument may be.
/// @param before  stands in front of the value in the word that is typed
void offer_values(const OptionNode& option, const std::string& before, const std::string& board,
                  const EndpointWords& endpoints, Completion& completion) {
    for (const std::string& word : option.words) {
        completion.words.push_back({before + word, ""});
    }
    completion.files |= option.offer == OptionNode::Offer::kFiles;
    const bool equals = option.offer == OptionNode::Offer::kEndpointsBeforeEquals;
    if (equals || option.offer == OptionNode::Offer::kEndpoints) {
        for (const OfferedWord& name : endpoints(board)) {
            completion.words.push_back({before + name.word + (equals ? "=" : ""), name.help});
        }
    }
}

void offer_options(const Reader& reader, Completion& completion) {
    for (const OptionNode* option : reader.options_left()) {
        for (const std::string& name : option->names) {
            if (name.starts_with("--")) {
                completion.words.push_back({name, option->help});
            }
        }
    }
}

/// All that fits in the place, whatever its beginning.
Completion offers(const Reader& reader, const std::string& typed, const EndpointWords& endpoints) {
    Completion completion;
    const auto offer = [&](const OptionNode* option, const std::string& before) {
        if (option != nullptr) {
            offer_values(*option, before, reader.board(), endpoints, completion);
        }
    };
    const bool option_typed = typed.starts_with('-') && !reader.only_arguments();
    const OptionNode* const pending = reader.pending();
    if (pending != nullptr && !(pending->many && option_typed)) {
        offer(pending, "");
        if (!pending->many) {
            return completion;
        }
    }
    if (const size_t equals = typed.find('='); option_typed && equals != std::string::npos) {
        offer(reader.find_option(typed.substr(0, equals)), typed.substr(0, equals + 1));
        return completion;
    }
    if (option_typed) {
        offer_options(reader, completion);
        return completion;
    }
    for (const CommandNode& command : reader.command().commands) {
        completion.words.push_back({command.name, command.help});
    }
    offer(reader.argument(), "");
    if (reader.command().commands.empty() && reader.argument() == nullptr &&
        !reader.only_arguments() && pending == nullptr) {
        offer_options(reader, completion);
    }
    return completion;
}

bool means_nothing_to_a_shell(std::string_view word) {
    constexpr std::string_view kOthers = "_.,:/@%+-";
    return !word.empty() && word.front() != '-' &&
           std::all_of(word.begin(), word.end(), [&](char character) {
               return (character >= '0' && character <= '9') ||
                      (character >= 'A' && character <= 'Z') ||
                      (character >= 'a' && character <= 'z') ||
                      kOthers.find(character) != std::string_view::npos;
           });
}

std::string completion_text(const Completion& completion) {
    std::string text = completion.files ? "files\n" : "words\n";
    for (const OfferedWord& offered : completion.words) {
        text += offered.word + "\t" + printable(one_line(offered.help)) + "\n";
    }
    return text;
}

}  // namespace

Completion complete(const CommandNode& tree, std::span<const std::string> words,
                    const EndpointWords& endpoints) {
    const std::string typed = words.empty() ? "" : words.back();
    Reader reader(tree);
    for (const std::string& word : words.first(words.empty() ? 0 : words.size() - 1)) {
        reader.read(word);
    }
    Completion completion = offers(reader, typed, endpoints);
    std::erase_if(completion.words, [&typed](const OfferedWord& offered) {
        return !offered.word.starts_with(typed);
    });
    return completion;
}

std::vector<OfferedWord> endpoint_words(const std::string& board) {
    std::vector<OfferedWord> words;
    std::error_code ignored;
    // Nobody waits at a FIFO for a key.
    if (!board.empty() && !std::filesystem::is_regular_file(board, ignored)) {
        return words;
    }
    try {
        const std::unique_ptr<Port> port = Port::open(board);
        for (const Endpoint& endpoint : port->endpoints()) {
            if (means_nothing_to_a_shell(endpoint.name)) {
                words.push_back({endpoint.name, endpoint_location(endpoint)});
            }
        }
    } catch (const Failure&) {  // whoever runs the command is told
    }
    return words;
}

std::string hidden_command(int argc, char** argv, std::span<const AddCommands> rooms) {
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (words.empty()) {
        return {};
    }
    if (words.front() == "__complete") {
        return completion_text(
            complete(command_tree(rooms), std::span(words).subspan(1), endpoint_words));
    }
    return words.front() == "__commands" ? tree_json(command_tree(rooms)).dump(2) + "\n" : "";
}

}  // namespace tool
