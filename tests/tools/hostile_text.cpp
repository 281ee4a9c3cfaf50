// SPDX-License-Identifier: Apache-2.0
// Texts that want to be more than read, and what has to be true of output that shows them.
#include "tests/tools/hostile_text.h"

#include <cstdlib>
#include <string_view>

#include "tools/shell/text.h"

namespace tool_test {
namespace {

/// Takes what fits from the front of a text.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool at_end() const { return rest_.empty(); }

    bool take(std::string_view part) {
        const bool fits = rest_.starts_with(part);
        rest_.remove_prefix(fits ? part.size() : 0);
        return fits;
    }

    bool take_name() {
        const size_t size = rest_.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_");
        rest_.remove_prefix(std::min(size, rest_.size()));
        return size != 0;
    }

    /// A label's value between quotes: a backslash has one of three characters behind it.
    bool take_value() {
        if (!take("\"")) {
            return false;
        }
        while (!rest_.empty() && rest_.front() != '"') {
            if (take("\\")) {
                if (!take("\\") && !take("\"") && !take("n")) {
                    return false;
                }
            } else {
                rest_.remove_prefix(1);
            }
        }
        return take("\"");
    }

    bool take_labels() {
        do {
            if (!take_name() || !take("=") || !take_value()) {
                return false;
            }
        } while (take(","));
        return take("}");
    }

    bool take_number() {
        const std::string text(rest_);
        char* end = nullptr;
        std::strtod(text.c_str(), &end);
        const auto size = static_cast<size_t>(end - text.c_str());
        rest_.remove_prefix(size);
        return size != 0;
    }

private:
    std::string_view rest_;
};

bool is_openmetrics(const std::string& line) {
    for (const char* comment : {"# TYPE ", "# UNIT ", "# HELP "}) {
        Reader about(line);
        if (about.take(comment)) {
            return about.take_name() && about.take(" ") && !about.at_end();
        }
    }
    Reader sample(line);
    return sample.take_name() && (!sample.take("{") || sample.take_labels()) && sample.take(" ") &&
           sample.take_number() && sample.at_end();
}

}  // namespace

const std::vector<std::string>& hostile_texts() {
    static const std::vector<std::string> texts{
        "clear\x1b[2J\x1b[H",
        "clip\x1b]52;c;Zm9yZ2Vk\x07",
        "title\x1b]0;mine\x1b\\",
        "csi\u009b31m\u0090q\u009c",
        "bell\x07",
        "good\rbad",
        "good\b\b\b\bbad",
        "gone\x7f\x7f",
        "tab\tvt\vff\f",
        "nul" + std::string(1, '\0') + "behind",
        "one\nforged: two\r\nforged: three",
        "one\u2028forged: two\u2029forged: three\u0085",
        "gpj\u202egpj.exe\u202c",
        "in\u2066side\u2069\u200e\u200f\u061c",
        "quote\"} 1\n# EOF\nforged{a=\"",
        "</testcase>]]>&amp;<!--",
        "slash\\x1b\\",
        std::string(200, 'A'),
    };
    return texts;
}

const std::vector<std::string>& hostile_bytes() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> all{
            "c1\x9b"
            "31m",
            "osc\x9d"
            "52;c;Zm9y\x9c",
            "lead\xc2",
            "cut\xe2\x80",
            "long\xc0\x9b\xe0\x80\x9b\xf0\x80\x80\x9b",
            "long\xc1\x9b\xe0\x82\x9b",
            "half\xed\xa0\x80\xed\xb0\x80",
            "far\xf4\x90\x80\x80\xf8\x88\x80\x80\x80",
            "turned\xe0\x82\x80\xae\xff\xfe",
        };
        all.insert(all.end(), hostile_texts().begin(), hostile_texts().end());
        return all;
    }();
    return texts;
}

void expect_harmless(const Outcome& run) {
    EXPECT_LT(run.status, 128) << run.err;
    for (const std::string& text : {"\n" + run.out, "\n" + run.err}) {
        EXPECT_FALSE(has_control(text)) << Json(text).dump();
        EXPECT_FALSE(contains(text, "\nforged")) << text;
    }
}

void expect_openmetrics(const std::string& text) {
    EXPECT_EQ(tool::valid_utf8(text), text);
    std::vector<std::string> lines = tool::lines_of(text);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "# EOF");
    lines.pop_back();
    EXPECT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        EXPECT_TRUE(is_openmetrics(line)) << line;
    }
}

}  // namespace tool_test
