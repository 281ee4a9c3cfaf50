// SPDX-License-Identifier: Apache-2.0
// Lines of a batch: where they end, and the words in them.
#include "tools/batch/words.h"

#include <fmt/format.h>

#include <unistd.h>

#include <array>
#include <cerrno>

#include "tools/shell/interrupt.h"

namespace tool {
namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

/// Goes through a line, character by character.
class Splitter {
public:
    explicit Splitter(std::string_view line) : rest_(line) {}

    /// @return what is wrong; empty for nothing
    std::string split(std::vector<std::string>& words) {
        for (;;) {
            while (!rest_.empty() && is_blank(rest_.front())) {
                rest_.remove_prefix(1);
            }
            if (rest_.empty() || rest_.front() == '#') {
                return "";
            }
            words.emplace_back();
            if (std::string problem = take_word(words.back()); !problem.empty()) {
                return problem;
            }
        }
    }

private:
    char take() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    std::string take_word(std::string& word) {
        while (!rest_.empty() && !is_blank(rest_.front())) {
            const char c = take();
            if (c == '\'' || c == '"') {
                if (!take_quoted(c, word)) {
                    return fmt::format("the quote {} has no end", c);
                }
            } else if (c != '\\') {
                word += c;
            } else if (rest_.empty()) {
                return "nothing stands behind the backslash";
            } else {
                word += take();
            }
        }
        return "";
    }

    /// @return whether the quote ends
    bool take_quoted(char quote, std::string& word) {
        while (!rest_.empty()) {
            const char c = take();
            if (c == quote) {
                return true;
            }
            const bool escaped = quote == '"' && c == '\\' && !rest_.empty() &&
                                 (rest_.front() == '"' || rest_.front() == '\\');
            word += escaped ? take() : c;
        }
        return false;
    }

    std::string_view rest_;
};

}  // namespace

std::optional<std::vector<std::string>> split_words(std::string_view line, std::string& problem) {
    if (line.find('\0') != std::string_view::npos) {
        problem = "a NUL byte is no text";
        return std::nullopt;
    }
    std::vector<std::string> words;
    problem = Splitter(line).split(words);
    return problem.empty() ? std::optional(words) : std::nullopt;
}

/// The rest of a line that was too long is no line of its own.
void LineReader::skip() {
    if (skipping_) {
        const size_t end = pending_.find('\n');
        skipping_ = end == std::string::npos;
        pending_.erase(0, skipping_ ? pending_.size() : end + 1);
    }
}

std::optional<std::string> LineReader::next() {
    for (;;) {
        skip();
        const size_t end = pending_.find('\n');
        const bool whole = end != std::string::npos;
        if (whole || pending_.size() > kLongest || (ended_ && !pending_.empty())) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, whole ? end + 1 : pending_.size());
            skipping_ = !whole && !ended_;
            return line;
        }
        if (ended_) {
            return std::nullopt;
        }
        SignalWatch::wait_for_input(descriptor_);
        std::array<char, 4096> block{};
        const ssize_t got = read(descriptor_, block.data(), block.size());
        ended_ = got <= 0;
        pending_.append(block.data(), got > 0 ? static_cast<size_t>(got) : 0);
        if (got < 0) {
            error_ = errno;
            pending_.clear();  // who knows how the line would have gone on
        }
    }
}

}  // namespace tool
