// SPDX-License-Identifier: Apache-2.0
// Holds the JSON schema of board files against their reader and against their documentation.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "sim/board/board.h"
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::kTestBoard;
using tool_test::parse_json;

std::string content_of(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The file beside the tool's page.
std::string document(const std::string& name) {
    const char* page = std::getenv("SIDEBAND_TOOL_PAGE");
    if (page == nullptr) {
        throw std::runtime_error("SIDEBAND_TOOL_PAGE is not set");
    }
    const std::string path = page;
    return content_of(path.substr(0, path.rfind('/') + 1) + name);
}

/// As much of JSON Schema (draft 2020-12) as the schema uses; another keyword fails the test.
class Schema {
public:
    explicit Schema(const std::string& text) : root_(Json::parse(text)) {}

    const Json& root() const { return root_; }
    bool allows(const Json& value) const { return allows(root_, value); }

private:
    bool allows(const Json& schema, const Json& value) const {
        for (size_t i = 0; i < schema.size(); ++i) {
            if (!allows(schema, schema.names()[i], schema.items()[i], value)) {
                return false;
            }
        }
        return true;
    }

    bool allows(const Json& schema, const std::string& keyword, const Json& says,
                const Json& value) const {
        static const std::set<std::string> kSilent{"$schema", "title", "description", "$defs"};
        if (kSilent.contains(keyword)) {
            return true;
        }
        if (keyword == "$ref") {
            return allows(root_.at("$defs").at(says.text().substr(std::string("#/$defs/").size())),
                          value);
        }
        if (keyword == "anyOf") {
            return std::any_of(says.begin(), says.end(),
                               [&](const Json& one) { return allows(one, value); });
        }
        if (keyword == "enum") {
            return std::find(says.begin(), says.end(), value) != says.end();
        }
        if (keyword == "const") {
            return says == value;
        }
        if (keyword == "type") {
            return says.is_text() ? is(value, says.text())
                                  : std::any_of(says.begin(), says.end(), [&](const Json& one) {
                                        return is(value, one.text());
                                    });
        }
        if (keyword == "pattern") {
            static std::map<std::string, std::regex> patterns;
            const auto pattern = patterns.try_emplace(says.text(), says.text()).first;
            return !value.is_text() || std::regex_search(value.text(), pattern->second);
        }
        if (keyword == "minimum" || keyword == "maximum") {
            const bool least = keyword == "minimum";
            return !(value.is_integer() || value.is_real()) ||
                   (least ? value.get<double>() >= says.get<double>()
                          : value.get<double>() <= says.get<double>());
        }
        return value.is_array() ? allows_list(keyword, says, value)
                                : allows_object(schema, keyword, says, value);
    }

    bool allows_list(const std::string& keyword, const Json& says, const Json& value) const {
        if (keyword == "items") {
            return std::all_of(value.begin(), value.end(),
                               [&](const Json& item) { return allows(says, item); });
        }
        if (keyword == "minItems" || keyword == "maxItems") {
            const auto limit = says.get<size_t>();
            return keyword == "minItems" ? value.size() >= limit : value.size() <= limit;
        }
        return true;
    }

    bool allows_object(const Json& schema, const std::string& keyword, const Json& says,
                       const Json& value) const {
        static const std::set<std::string> kOfLists{"items", "minItems", "maxItems"};
        if (!value.is_object() || kOfLists.contains(keyword)) {
            return true;
        }
        if (keyword == "required") {
            return std::all_of(says.begin(), says.end(),
                               [&](const Json& key) { return value.contains(key.text()); });
        }
        for (size_t i = 0; keyword == "properties" && i < value.size(); ++i) {
            const std::string& key = value.names()[i];
            if (says.contains(key) && !allows(says.at(key), value.items()[i])) {
                return false;
            }
        }
        if (keyword == "additionalProperties") {
            const Json& known = schema.at("properties");
            return std::all_of(value.names().begin(), value.names().end(),
                               [&](const std::string& key) { return known.contains(key); });
        }
        EXPECT_EQ(keyword, "properties") << "the test does not know this keyword";
        return true;
    }

    static bool is(const Json& value, const std::string& type) {
        return (type == "object" && value.is_object()) || (type == "array" && value.is_array()) ||
               (type == "string" && value.is_text()) ||
               (type == "boolean" && value.kind() == Json::Kind::kBool) ||
               (type == "integer" && value.is_integer()) ||
               (type == "number" && (value.is_integer() || value.is_real()));
    }

    Json root_;
};

/// What the reader has against a board; empty for nothing.
std::string objection(const Json& board) {
    sim::BoardError error;
    return sim::Board::parse(board.dump(), error) != nullptr ? "" : error.message("board");
}

/// A value with each of its parts exchanged in turn, as often as a function finds another one.
void each_change(const Json& value, const std::function<void(const Json&)>& use,
                 const std::function<std::vector<Json>(const Json& whole)>& others) {
    for (const Json& other : others(value)) {
        use(other);
    }
    for (size_t i = 0; i < value.size(); ++i) {
        each_change(
            value.items()[i],
            [&](const Json& part) {
                Json changed = value;
                changed[i] = part;
                use(changed);
            },
            others);
    }
}

/// A board with one device of each of its types alone: what is wrong with one does not hang on the
/// others.
std::vector<Json> parts_of(const Json& board) {
    std::vector<Json> parts;
    std::set<std::string> types;
    for (const Json& device : board.at("devices")) {
        if (!types.insert(device.at("type").text()).second) {
            continue;
        }
        Json part = board;
        part["devices"] = Json::array({device});
        parts.push_back(part);
    }
    return parts;
}

class BoardSchema : public testing::Test {
protected:
    std::vector<Json> parts() const {
        std::vector<Json> all;
        for (const Json& board : boards_) {
            const std::vector<Json> parts = parts_of(board);
            all.insert(all.end(), parts.begin(), parts.end());
        }
        return all;
    }

    Schema schema_{document("board.schema.json")};
    std::vector<Json> boards_{Json::parse(sim::Board::built_in_file()), Json::parse(kTestBoard)};
};

TEST_F(BoardSchema, AllowsTheBoardsThatThereAre) {
    for (const Json& board : boards_) {
        EXPECT_TRUE(schema_.allows(board)) << board.at("name").text();
        EXPECT_EQ(objection(board), "");
    }
    EXPECT_FALSE(schema_.allows(Json::object()));
}

/// A key that the reader does not know, or misses, is one that the schema refuses.
TEST_F(BoardSchema, RefusesTheKeysThatTheReaderRefuses) {
    size_t refused = 0;
    for (const Json& board : parts()) {
        each_change(
            board,
            [&](const Json& changed) {
                const std::string why = objection(changed);
                if (contains(why, "no such key") || contains(why, "is missing")) {
                    ++refused;
                    EXPECT_FALSE(schema_.allows(changed)) << why;
                }
            },
            [](const Json& whole) {
                std::vector<Json> others;
                for (size_t i = 0; whole.is_object() && i < whole.size(); ++i) {
                    Json renamed = whole;
                    renamed.erase(whole.names()[i]);
                    renamed["x_" + whole.names()[i]] = whole.items()[i];
                    others.push_back(renamed);
                }
                return others;
            });
    }
    EXPECT_GT(refused, 300U);
}

/// What the schema refuses, the reader refuses: it is nowhere stricter.
TEST_F(BoardSchema, RefusesNoValueThatTheReaderTakes) {
    size_t refused = 0;
    for (const Json& board : parts()) {
        each_change(
            board,
            [&](const Json& changed) {
                if (!schema_.allows(changed)) {
                    ++refused;
                    EXPECT_NE(objection(changed), "") << changed.dump();
                }
            },
            [](const Json& whole) {
                std::vector<Json> others;
                if (whole.is_text() || whole.is_integer() || whole.is_real()) {
                    others = {Json(nullptr), Json(-1), Json(300), Json(uint64_t{1} << 40),
                              Json("word")};
                } else if (whole.is_array()) {
                    others = {Json::object(), Json::array(), Json("word")};
                }
                return others;
            });
    }
    EXPECT_GT(refused, 500U);
}

/// Every key and every word of a schema.
void collect(const Json& schema, std::set<std::string>& words) {
    for (size_t i = 0; i < schema.size(); ++i) {
        const Json& part = schema.items()[i];
        const std::string& keyword = schema.is_object() ? schema.names()[i] : "";
        if (keyword == "properties") {
            words.insert(part.names().begin(), part.names().end());
        }
        if (keyword == "enum" || keyword == "const") {
            for (const Json& word : part.is_array() ? part.items() : std::vector<Json>{part}) {
                words.insert(word.is_text() ? word.text() : "");
            }
        }
        collect(part, words);
    }
}

TEST_F(BoardSchema, HasWhatTheDocumentationHasAndNothingElse) {
    std::set<std::string> words;
    collect(schema_.root(), words);
    const std::string page = document("board-file.md");
    std::istringstream lines(page);
    size_t rows = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::string first = line.starts_with("| `") ? line.substr(0, line.find(" |", 3)) : "";
        for (size_t at = 0; (at = first.find('`', at)) != std::string::npos; ++at) {
            const size_t end = first.find('`', at + 1);
            const std::string word = first.substr(at + 1, end - at - 1);
            const bool is_title = word == "shape" || word == "kind";
            EXPECT_TRUE(words.contains(word) || is_title) << word << " is not in the schema";
            at = end;
            ++rows;
        }
    }
    EXPECT_GT(rows, 200U);
    for (const std::string& word : words) {
        EXPECT_TRUE(word.empty() || contains(page, word)) << word << " is not documented";
    }
}

}  // namespace
