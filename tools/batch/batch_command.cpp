// SPDX-License-Identifier: Apache-2.0
// The command batch: commands line by line, on one board that keeps its state between them.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "tools/batch/commands.h"
#include "tools/batch/words.h"
#include "tools/rooms.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"
#include "tools/update/input_file.h"

namespace tool {
namespace {

/// Options that are those of the whole batch.
constexpr std::string_view kShared[] = {"--board",  "--json", "--capture", "--fault",  "--verbose",
                                        "--strict", "--lax",  "--color",   "--version"};

/// The first of the words that may not stand in a line; empty for none.
std::string misplaced(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        std::string option = word.substr(0, word.find('='));
        if (std::find(std::begin(kShared), std::end(kShared), option) != std::end(kShared)) {
            return option;
        }
    }
    return "";
}

/// One batch, from its first line to its last or to the first that fails.
class Batch {
public:
    Batch(Context& context, const BatchWish& wish) : context_(context), wish_(wish) {}

    void run(int descriptor) {
        context_.output.print_documents_as_lines();
        LineReader lines(descriptor);
        while (const std::optional<std::string> line = lines.next()) {
            ++number_;
            SignalWatch::check();
            note(run_line(*line));
            if (context_.status != ExitStatus::kDone && !wish_.keep_going) {
                return;
            }
        }
        if (lines.error() != 0) {
            context_.output.begin_document();
            context_.output.error(context_.command,
                                  unusable(input(), std::strerror(lines.error())));
            note(ExitStatus::kInput);
        }
    }

private:
    /// The first failure is that of the whole.
    void note(ExitStatus status) {
        if (context_.status == ExitStatus::kDone) {
            context_.status = status;
        }
    }

    ExitStatus run_line(const std::string& text) {
        CommandLine line;
        Context own{context_.port, context_.output, ""};
        std::optional<TimeLimit> limit;
        context_.output.begin_document();
        try {
            const std::vector<std::string> words = words_of(text);
            if (words.empty()) {
                return ExitStatus::kDone;
            }
            parse(words, line);
            own.command = place() + line.command;
            limit.emplace(context_.port, line.timeout);
            line.run ? line.run(own) : context_.output.text(line.text);
        } catch (const Failure& failure) {
            own.command = place() + line.command;
            if (own.command.ends_with(": ")) {
                own.command.resize(own.command.size() - 2);
            }
            own.report(failure);
        }
        return own.status;
    }

    std::vector<std::string> words_of(const std::string& text) const {
        std::string problem;
        const std::optional<std::vector<std::string>> words = split_words(text, problem);
        if (text.size() > LineReader::kLongest) {
            problem = fmt::format("the line has more than {} bytes", LineReader::kLongest);
        }
        if (!problem.empty()) {
            throw Failure(ExitStatus::kInput, problem);
        }
        if (const std::string option = misplaced(*words); !option.empty()) {
            throw Failure(ExitStatus::kUsage,
                          option + " stands in front of batch, for all commands");
        }
        return *words;
    }

    static void parse(const std::vector<std::string>& words, CommandLine& line) {
        std::string program(Port::program_name());
        std::vector<std::string> own = words;
        std::vector<char*> pointers{program.data()};
        for (std::string& word : own) {
            pointers.push_back(word.data());
        }
        parse_command_line(static_cast<int>(pointers.size()), pointers.data(), rooms(), line);
        if (line.command == "batch") {
            throw Failure(ExitStatus::kUsage, "a batch has no batch in it");
        }
    }

    std::string input() const { return wish_.file == "-" ? "standard input" : wish_.file; }

    std::string place() const {
        return fmt::format("{}: {}:{}: ", context_.command, input(), number_);
    }

    Context& context_;
    const BatchWish& wish_;
    unsigned number_ = 0;
};

}  // namespace

void run_batch(Context& context, const BatchWish& wish) {
    if (wish.file == "-") {
        Batch(context, wish).run(STDIN_FILENO);
        return;
    }
    uint64_t size = 0;
    const OpenFile file = open_regular_file(wish.file, size);
    Batch(context, wish).run(fileno(file.get()));
}

}  // namespace tool
