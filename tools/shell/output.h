// SPDX-License-Identifier: Apache-2.0
// The tool's standard output and error, kept apart from what the library prints.
#ifndef SIDEBAND_TOOLS_SHELL_OUTPUT_H
#define SIDEBAND_TOOLS_SHELL_OUTPUT_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "tools/shell/failure.h"
#include "tools/shell/json.h"
#include "tools/shell/library_output.h"
#include "tools/shell/text.h"

namespace tool {

/// The library prints its dumps with stdio to descriptor 1. This takes a copy of that descriptor
/// for the tool's own output and leads descriptor 1 to nowhere, or to standard error.
///
/// What devices, files and the command line have put into a text or a document goes out printable
/// here, whoever brings it. A name inside a text of lines is printable() before: its own line ends
/// could not be told from the others.
class Output {
public:
    /// @param json  the command prints one JSON document and no text
    explicit Output(bool json);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Shows from now on what the library prints, on standard error.
    void show_library_output();

    bool json() const { return json_; }

    /// When tones of a table are shown as colours.
    enum class Colours : uint8_t {
        kAuto,  ///< on a terminal that can, unless NO_COLOR is set to something (no-color.org)
        kAlways,
        kNever,
    };
    void set_colours(Colours when) { colours_ = when; }

    /// Whether standard output is a terminal on which a line can be drawn anew. Not while the
    /// library's own output goes to the same screen.
    bool is_terminal() const;
    /// Characters in a line of the terminal.
    size_t columns() const;

    /// Text for people; swallowed if JSON is wanted.
    void text(std::string_view text);

    /// A table for people, with its colours where they are wanted.
    void table(const Table& table, size_t indent = 0);

    /// A line of the terminal in the place of the one that stands there; see is_terminal().
    void redraw(std::string_view line);

    /// The tool's own text whatever the format, for help and version.
    void plain(std::string_view text);

    /// The command's one JSON document; swallowed if text is wanted.
    void document(const Json& document);

    /// From now on there may be several documents, each on a line of its own: of every command, and
    /// of every reading of one that goes on. begin_document() stands in front of a command's.
    void print_documents_as_lines() { indent_ = -1; }
    void begin_document() { document_printed_ = false; }

    /// One line on standard error, behind the name of the program. If JSON is wanted and the
    /// command has printed no document, the error becomes that document.
    void error(const std::string& command, const Failure& failure);

    /// A line on standard error that is no error.
    void note(std::string_view line);

    /// Whether something could not be written so far.
    bool broken() const { return stream_ == nullptr || std::ferror(stream_) != 0; }

    /// @return false if something could not be written
    bool finish();

private:
    bool is_screen() const;
    bool has_colours() const;

    FILE* stream_ = nullptr;
    bool json_ = false;
    LibraryOutput library_;
    bool document_printed_ = false;
    int indent_ = 2;
    Colours colours_ = Colours::kAuto;
};

/// A failure as a JSON object: message, and endpoint, operation and the device's code if known.
Json failure_json(const Failure& failure);

}  // namespace tool

#endif
