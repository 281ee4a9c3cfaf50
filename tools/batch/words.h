// SPDX-License-Identifier: Apache-2.0
// Lines of a batch: where they end, and the words in them.
#ifndef SIDEBAND_TOOLS_BATCH_WORDS_H
#define SIDEBAND_TOOLS_BATCH_WORDS_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The words of a line, as a shell takes them: blanks part them; '...' holds all as it is, "..."
/// all but \" and \\, a backslash outside of quotes the character behind it; # at the beginning of
/// a word makes the rest a remark.
/// @param problem  receives what is wrong with the line
/// @return nothing if something is wrong
std::optional<std::vector<std::string>> split_words(std::string_view line, std::string& problem);

/// Lines of a descriptor as they come in. A signal ends the wait for one, see SignalWatch.
class LineReader {
public:
    /// Bytes that a line may have.
    static constexpr size_t kLongest = 65536;

    explicit LineReader(int descriptor) : descriptor_(descriptor) {}

    /// The next line, without its end; nothing at the end. One that is too long comes cut, so that
    /// it is longer than kLongest.
    std::optional<std::string> next();

    /// errno if there are no more lines because nothing can be read; else 0.
    int error() const { return error_; }

private:
    void skip();

    int descriptor_;
    int error_ = 0;
    bool ended_ = false;
    bool skipping_ = false;
    std::string pending_;
};

}  // namespace tool

#endif
