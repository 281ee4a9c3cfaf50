// SPDX-License-Identifier: Apache-2.0
// Tests of the words in a line of a batch.
#include "tools/batch/words.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

using tool::LineReader;
using tool::split_words;
using Strings = std::vector<std::string>;

Strings words_of(std::string_view line) {
    std::string problem;
    const std::optional<Strings> words = split_words(line, problem);
    EXPECT_TRUE(words) << line << ": " << problem;
    return words.value_or(Strings{});
}

std::string problem_of(std::string_view line) {
    std::string problem;
    EXPECT_FALSE(split_words(line, problem)) << line;
    return problem;
}

TEST(SplitWords, AsAShellDoes) {
    EXPECT_EQ(words_of(""), Strings{});
    EXPECT_EQ(words_of(" \t\r"), Strings{});
    EXPECT_EQ(words_of("nvme  ns list\tnvme0\r"), (Strings{"nvme", "ns", "list", "nvme0"}));
    EXPECT_EQ(words_of("# all of it"), Strings{});
    EXPECT_EQ(words_of("a#b # rest 'of it"), (Strings{"a#b"}));
    EXPECT_EQ(words_of("'a  b' \"c 'd'\" e\\ f"), (Strings{"a  b", "c 'd'", "e f"}));
    EXPECT_EQ(words_of(R"("a\"b\\c\d" '\"' \\ \# \')"),
              (Strings{R"(a"b\c\d)", "\\\"", "\\", "#", "'"}));
    EXPECT_EQ(words_of("'' \"\" a''b"), (Strings{"", "", "ab"}));
}

TEST(SplitWords, TellsWhatHasNoEnd) {
    EXPECT_EQ(problem_of("a 'b"), "the quote ' has no end");
    EXPECT_EQ(problem_of("a \"b\\\""), "the quote \" has no end");
    EXPECT_EQ(problem_of("a \\"), "nothing stands behind the backslash");
    EXPECT_EQ(problem_of(std::string_view("a\0b", 3)), "a NUL byte is no text");
}

TEST(SplitWords, TakesAnyBytes) {
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            const char text[] = {static_cast<char>(first), static_cast<char>(second)};
            std::string problem;
            const std::optional<Strings> words = split_words({text, 2}, problem);
            EXPECT_EQ(words.has_value(), problem.empty());
            EXPECT_LE(words ? words->size() : 0, 1U);
        }
    }
}

/// The lines of a text that comes through a pipe.
Strings lines_of(const std::string& text) {
    FILE* const file = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    LineReader reader(fileno(file));
    Strings lines;
    while (const std::optional<std::string> line = reader.next()) {
        lines.push_back(*line);
    }
    std::fclose(file);
    return lines;
}

TEST(LineReader, LinesWithAndWithoutTheirEnd) {
    EXPECT_EQ(lines_of(""), Strings{});
    EXPECT_EQ(lines_of("\n\na\nb"), (Strings{"", "", "a", "b"}));
    EXPECT_EQ(lines_of("a\n"), (Strings{"a"}));
    const std::string longest(LineReader::kLongest, 'x');
    EXPECT_EQ(lines_of(longest + "\na"), (Strings{longest, "a"}));
}

TEST(LineReader, TellsAnErrorFromTheEnd) {
    const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    LineReader nothing(folder);
    EXPECT_EQ(nothing.next(), std::nullopt);
    EXPECT_EQ(nothing.error(), EISDIR);
    EXPECT_EQ(nothing.next(), std::nullopt);
    close(folder);
}

/// What was read of a line before the error is none.
TEST(LineReader, ALineThatIsCutByAnErrorIsNone) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(grantpt(master) | unlockpt(master), 0);
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    // A master that is read behind its last terminal has an error, not an end.
    ASSERT_EQ(write(terminal, "a\nb", 3), 3);
    close(terminal);
    LineReader reader(master);
    EXPECT_EQ(reader.next(), "a\r");
    EXPECT_EQ(reader.next(), std::nullopt);
    EXPECT_EQ(reader.error(), EIO);
    close(master);
}

TEST(LineReader, ALineWithoutEndTakesNoMoreMemory) {
    const Strings lines = lines_of(std::string(LineReader::kLongest * 4, 'x') + "\na\n");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_GT(lines[0].size(), LineReader::kLongest);
    EXPECT_LT(lines[0].size(), LineReader::kLongest + 8192);
    EXPECT_EQ(lines[1], "a") << "and nothing of its rest";
}

}  // namespace
