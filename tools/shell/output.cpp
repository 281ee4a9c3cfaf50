// SPDX-License-Identifier: Apache-2.0
// The tool's standard output and error, kept apart from what the library prints.
#include "tools/shell/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "tools/shell/json.h"
#include "tools/shell/port.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

void write_all(FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
}

/// A document with all its texts and keys printable.
Json printable_json(const Json& value) {
    if (value.is_text()) {
        return printable(value.text());
    }
    if (!value.is_array() && !value.is_object()) {
        return value;
    }
    Json shown = value.is_array() ? Json::array() : Json::object();
    for (size_t i = 0; i < value.items().size(); ++i) {
        if (value.is_object()) {
            shown[printable(value.names()[i])] = printable_json(value.items()[i]);
        } else {
            shown.push_back(printable_json(value.items()[i]));
        }
    }
    return shown;
}

Json code_json(const DeviceCode& code) {
    const uint16_t reason = code.reason.value_or(0);
    switch (code.kind) {
        case DeviceCode::Kind::kNcsi:
            return {{"response_code", code.code},
                    {"response_code_name", code.name},
                    {"reason_code", reason},
                    {"reason_code_name", code.reason_name}};
        case DeviceCode::Kind::kNvmeMi: {
            Json json{{"status", code.code}, {"status_name", code.name}};
            if (code.reason) {
                json["parameter_error_location"] = {{"byte", reason >> 8}, {"bit", reason & 7}};
            }
            return json;
        }
        case DeviceCode::Kind::kNvme:
            return {{"status_code_type", reason},
                    {"status_code_type_name", code.reason_name},
                    {"status_code", code.code},
                    {"status_code_name", code.name}};
        default:
            return {{"completion_code", code.code}, {"completion_code_name", code.name}};
    }
}

}  // namespace

Output::Output(bool json) : json_(json) {
    const int own = dup(STDOUT_FILENO);
    if (own >= 0) {
        stream_ = fdopen(own, "w");
    }
}

Output::~Output() {
    finish();
}

void Output::show_library_output() {
    library_.show();
}

/// Whether standard output is a terminal that obeys escape sequences.
bool Output::is_screen() const {
    const char* kind = std::getenv("TERM");
    const bool can_draw = kind == nullptr || std::string_view(kind) != "dumb";
    return can_draw && stream_ != nullptr && isatty(fileno(stream_)) != 0;
}

bool Output::is_terminal() const {
    return is_screen() && !library_.shown();
}

bool Output::has_colours() const {
    if (colours_ != Colours::kAuto) {
        return colours_ == Colours::kAlways;
    }
    const char* unwanted = std::getenv("NO_COLOR");
    return is_screen() && (unwanted == nullptr || *unwanted == '\0');
}

size_t Output::columns() const {
    constexpr size_t kUsual = 80;
    winsize size{};
    const bool known = stream_ != nullptr && ioctl(fileno(stream_), TIOCGWINSZ, &size) == 0;
    return known && size.ws_col > 0 ? size.ws_col : kUsual;
}

void Output::text(std::string_view text) {
    if (!json_) {
        plain(printable_lines(text));
    }
}

void Output::table(const Table& table, size_t indent) {
    if (!json_) {
        plain(table.text(indent, has_colours()));
    }
}

void Output::redraw(std::string_view line) {
    if (!json_) {
        plain("\r" + printable(line) + "\x1b[K");
    }
}

void Output::plain(std::string_view text) {
    if (stream_ != nullptr) {
        write_all(stream_, text);
        std::fflush(stream_);
    }
}

void Output::document(const Json& document) {
    if (json_) {
        plain(printable_json(document).dump(indent_) + "\n");
        document_printed_ = true;
    }
}

void Output::error(const std::string& command, const Failure& failure) {
    library_.end_line();
    std::string line{Port::program_name()};
    line += ": ";
    if (!command.empty()) {
        line += command + ": ";
    }
    write_all(stderr, line + printable(failure.what()) + "\n");
    for (const std::string& more : failure.more()) {
        write_all(stderr, line + printable(more) + "\n");
    }
    if (!document_printed_) {
        Json details = failure_json(failure);
        details["exit_status"] = static_cast<int>(failure.status());
        document({{"error", details}});
    }
}

void Output::note(std::string_view line) {
    library_.end_line();
    write_all(stderr, printable(line) + "\n");
}

bool Output::finish() {
    library_.end_line();
    if (stream_ == nullptr) {
        return false;
    }
    const bool written = std::ferror(stream_) == 0;
    const bool closed = std::fclose(stream_) == 0;
    stream_ = nullptr;
    return written && closed;
}

Json failure_json(const Failure& failure) {
    Json json{{"message", failure.what()}};
    if (!failure.endpoint().empty()) {
        json["endpoint"] = failure.endpoint();
        json["operation"] = failure.operation();
    }
    if (!failure.cause().empty()) {
        json["cause"] = failure.cause();
    }
    if (!failure.more().empty()) {
        json["more"] = failure.more();
    }
    if (failure.code()) {
        json.update(code_json(*failure.code()));
    }
    return json;
}

}  // namespace tool
