// SPDX-License-Identifier: Apache-2.0
// The errors of one board file, gathered while it is read.
#ifndef SIDEBAND_BOARD_FILE_ERROR_LIST_H
#define SIDEBAND_BOARD_FILE_ERROR_LIST_H

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace board_file {

/// Why a board file was refused.
struct BoardError {
    std::string key;   ///< e.g. "devices[1].address"; empty for a syntax error
    int line = 0;      ///< line in the file, from 1
    std::string text;  ///< what is wrong, without key and line
    /// The other errors of the file; this one has the lowest line, and they are in order.
    std::vector<BoardError> others = {};
    size_t left_out = 0;  ///< errors that are only counted, as far as the file was read

    /// "FILE:LINE: KEY: TEXT", a line for each error, without a line end behind the last one.
    /// Control characters of the file are shown as \xNN.
    std::string message(std::string_view file) const;
};

/// A text of a board file as an operator's terminal may see it: control characters (C0, DEL, and C1
/// as lone bytes and in UTF-8) as \xNN, and "..." for what goes beyond so many bytes.
std::string shown(std::string_view text, size_t longest);

/// Thrown where a part of a board file cannot be read any further; its error is in the list. Ends
/// in attempt().
struct FileError {};

/// Reads one part. Where that ends early, the parts behind it are read all the same.
template <typename Read>
void attempt(Read read) {
    try {
        read();
    } catch (const FileError&) {
        return;  // told already
    }
}

class ErrorList {
public:
    /// More than these are counted only: whoever mends twenty reads the file again anyway.
    static constexpr size_t kMostTold = 20;
    /// After so many, reading ends: a file of a few megabytes can hold a million.
    static constexpr size_t kMostKnown = 1000;

    /// Tells an error, unless one of the same key or of a part of it is told: what is made of a
    /// wrong value is no error of its own.
    void add(const BoardError& error);
    /// Announces an error that tell() tells later. @return false where one of that key is known
    bool expect(const std::string& key);
    /// Tells an error whatever is known of its key.
    void tell(const BoardError& error);

    bool empty() const { return known_.empty(); }
    size_t size() const { return known_.size(); }
    bool full() const { return size() >= kMostKnown; }
    /// The error of the lowest line, which holds the others in the order of their lines.
    BoardError take();

private:
    bool knows(const std::string& key) const;

    std::set<std::string, std::less<>> known_;  ///< keys of all errors
    std::vector<BoardError> told_;              ///< of the lowest lines
    size_t left_out_ = 0;
};

}  // namespace board_file

#endif
