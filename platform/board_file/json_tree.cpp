// SPDX-License-Identifier: Apache-2.0
// A JSON document that remembers its lines, and a reader whose errors name key and line.
#include "platform/board_file/json_tree.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>

namespace board_file {

namespace {

constexpr size_t kDeepest = 32;
constexpr size_t kLongestKey = 80;

/// Where the parser has got to in the text.
struct Progress {
    int line = 1;
    char last = 0;
};

/// Hands characters to the parser and counts the lines that went through.
class CountingIterator {
public:
    // NOLINTBEGIN(readability-identifier-naming): names that std::iterator_traits looks for
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;
    // NOLINTEND(readability-identifier-naming)

    CountingIterator(const char* at, Progress* progress) : at_(at), progress_(progress) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        progress_->last = *at_;
        if (*at_++ == '\n') {
            ++progress_->line;
        }
        return *this;
    }
    CountingIterator operator++(int) {
        CountingIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
    bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

private:
    const char* at_;
    Progress* progress_;
};

/// The parser's message without its number and place: "[json...] ... at line 1, column 2: what".
std::string plain_message(std::string text) {
    for (const char* mark : {"] ", "column "}) {
        if (size_t at = text.find(mark); at != std::string::npos) {
            text.erase(0, at + std::char_traits<char>::length(mark));
        }
    }
    const size_t digits = text.find_first_not_of("0123456789");
    if (digits != std::string::npos && text.compare(digits, 2, ": ") == 0) {
        text.erase(0, digits + 2);
    }
    return text;
}

/// Builds the tree from the parser's events.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(const Progress& progress, ErrorList& errors)
        : progress_(progress), errors_(errors) {}

    Node take() { return std::move(root_); }

    bool null() override { return add(Node::Kind::kNull) != nullptr; }
    bool boolean(bool value) override {
        add(Node::Kind::kBoolean)->boolean = value;
        return true;
    }
    bool number_integer(number_integer_t value) override {
        Node* node = add(Node::Kind::kInteger);
        node->integer = value;
        node->real = static_cast<double>(value);
        return true;
    }
    bool number_unsigned(number_unsigned_t value) override {
        if (value > static_cast<number_unsigned_t>(INT64_MAX)) {
            return number_float(static_cast<double>(value), {});
        }
        return number_integer(static_cast<number_integer_t>(value));
    }
    bool number_float(number_float_t value, const string_t&) override {
        add(Node::Kind::kReal)->real = value;
        return true;
    }
    bool string(string_t& value) override {
        add(Node::Kind::kString)->text = std::move(value);
        return true;
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return open(Node::Kind::kObject); }
    bool start_array(std::size_t) override { return open(Node::Kind::kArray); }
    bool end_object() override {
        tell_repeated_keys();
        return close();
    }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        key_ = std::move(name);
        key_line_ = progress_.line;
        return true;
    }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override {
        end(line_here(), plain_message(error.what()));
    }

private:
    /// The parser reads one character past a number; that character may be a line end.
    int line_here() const { return progress_.line - (progress_.last == '\n' ? 1 : 0); }

    Node* add(Node::Kind kind) {
        Node* node = open_.empty() ? &root_ : &open_.back()->items.emplace_back();
        const bool is_member = !open_.empty() && open_.back()->kind == Node::Kind::kObject;
        if (is_member) {
            node->name = key_;
        }
        node->kind = kind;
        node->line = is_member ? key_line_ : line_here();
        return node;
    }
    bool open(Node::Kind kind) {
        Node* node = add(kind);
        open_.push_back(node);
        if (open_.size() > kDeepest) {
            end(node->line, "nested too deeply");
        }
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    [[noreturn]] void end(int line, const std::string& text) {
        errors_.tell({"", line, text});
        throw FileError{};
    }

    /// Sorted, since comparing each with each takes a minute for a file of a megabyte.
    void tell_repeated_keys() {
        std::vector<const Node*> members;
        for (const Node& item : open_.back()->items) {
            members.push_back(&item);
        }
        std::ranges::stable_sort(members, {}, &Node::name);
        for (size_t i = 1; i < members.size(); ++i) {
            if (members[i]->name == members[i - 1]->name) {
                errors_.add(
                    {path_of(*members[i]), members[i]->line, "appears twice in one object"});
            }
        }
    }

    /// Where a member of the innermost open object stands.
    std::string path_of(const Node& member) const {
        std::string path;
        for (size_t i = 1; i < open_.size(); ++i) {
            const bool is_element = open_[i - 1]->kind == Node::Kind::kArray;
            path += is_element ? "[" + std::to_string(open_[i - 1]->items.size() - 1) + "]"
                               : (path.empty() ? "" : ".") + shown(open_[i]->name, kLongestKey);
        }
        return path + (path.empty() ? "" : ".") + shown(member.name, kLongestKey);
    }

    const Progress& progress_;
    ErrorList& errors_;
    Node root_;
    std::vector<Node*> open_;
    std::string key_;
    int key_line_ = 0;
};

std::optional<int64_t> prefixed_hex(const std::string& text) {
    constexpr size_t kMostDigits = 15;  // what an int64_t holds of any
    if (text.size() < 3 || text.size() > 2 + kMostDigits || text[0] != '0' ||
        (text[1] | 0x20) != 'x') {
        return std::nullopt;
    }
    std::string digits = text.substr(2);
    std::optional<Bytes> bytes = from_hex(digits.size() % 2 != 0 ? "0" + digits : digits);
    if (!bytes) {
        return std::nullopt;
    }
    int64_t value = 0;
    for (uint8_t byte : *bytes) {
        value = value << 8 | byte;
    }
    return value;
}

/// Letters to add, take away, replace or swap until one word is the other (optimal string
/// alignment).
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> before(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::vector<size_t> now(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        last[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        now[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = last[j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0);
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, changed});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                now[j] = std::min(now[j], before[j - 2] + 1);
            }
        }
        std::swap(before, last);
        std::swap(last, now);
    }
    return last[b.size()];
}

/// The word that somebody meant who wrote another one; nothing where none is like it.
std::optional<std::string> meant_by(const std::string& written,
                                    const std::vector<std::string>& words) {
    std::optional<std::string> nearest;
    size_t least = 0;
    for (const std::string& word : words) {
        // One slip in a short word, two in a longer one; with two letters all words are alike.
        const size_t slips = word.size() < 3 ? 0 : word.size() < 6 ? 1 : 2;
        if (written.size() > word.size() + slips || written.size() + slips < word.size()) {
            continue;
        }
        const size_t away = distance(written, word);
        if (away <= slips && (!nearest || away < least)) {
            nearest = word;
            least = away;
        }
    }
    return nearest;
}

/// Stands for a member that is missing.
const Node kNothing;
const std::string kNoText;

}  // namespace

Node parse_json(std::string_view text, ErrorList& errors) {
    Progress progress;
    TreeBuilder builder(progress, errors);
    const char* first = text.data();
    nlohmann::json::sax_parse(CountingIterator(first, &progress),
                              CountingIterator(first + text.size(), &progress), &builder);
    return builder.take();
}

const Node* Node::member(const std::string& key) const {
    for (const Node& item : items) {
        if (item.name == key) {
            return &item;
        }
    }
    return nullptr;
}

void Place::complain(const std::string& text) const {
    errors->add({path, node->line, text});
}

void Place::fail(const std::string& text) const {
    complain(text);
    throw FileError{};
}

std::vector<Place> Place::elements() const {
    const size_t count = length();
    std::vector<Place> places;
    for (size_t i = 0; i < count; ++i) {
        places.push_back(element(i));
    }
    return places;
}

size_t Place::length() const {
    if (node->kind == Node::Kind::kArray) {
        return node->items.size();
    }
    complain("must be an array");
    return 0;
}

Place Place::element(size_t i) const {
    return {&node->items[i], path + "[" + std::to_string(i) + "]", errors};
}

std::optional<int64_t> Place::checked_whole(int64_t low, int64_t high) const {
    std::optional<int64_t> value;
    if (node->kind == Node::Kind::kInteger) {
        value = node->integer;
    } else if (node->kind == Node::Kind::kString) {
        value = prefixed_hex(node->text);
    }
    if (value && *value >= low && *value <= high) {
        return value;
    }
    complain("must be a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return std::nullopt;
}

int64_t Place::whole(int64_t low, int64_t high) const {
    return checked_whole(low, high).value_or(low);
}

double Place::number() const {
    if (node->kind != Node::Kind::kInteger && node->kind != Node::Kind::kReal) {
        complain("must be a number");
    } else if (!std::isfinite(node->real)) {
        complain("is out of range");
    } else {
        return node->real;
    }
    return 0;
}

const std::string& Place::text() const {
    if (node->kind == Node::Kind::kString) {
        return node->text;
    }
    complain("must be a string");
    return kNoText;
}

bool Place::flag() const {
    if (node->kind != Node::Kind::kBoolean) {
        complain("must be true or false");
    }
    return node->boolean;
}

Bytes Place::hex() const {
    std::optional<Bytes> bytes = from_hex(text());
    if (!bytes) {
        complain("must be pairs of hex digits without separators");
    }
    return bytes.value_or(Bytes{});
}

ObjectReader::ObjectReader(Place place)
    : place_(std::move(place)), known_before_(place_.errors->size()) {
    if (place_.node->kind != Node::Kind::kObject) {
        place_.fail("must be an object");
    }
}

ObjectReader::~ObjectReader() {
    if (finished_) {
        return;
    }
    tell_unknown(false);
    tell_missing();
}

std::string ObjectReader::path_of(const std::string& key) const {
    const std::string name = shown(key, kLongestKey);
    return place_.path.empty() ? name : place_.path + "." + name;
}

/// Of a member that is absent, the object's own line.
Place ObjectReader::place_of(const std::string& key) const {
    const Node* member = place_.node->member(key);
    return {member != nullptr ? member : place_.node, path_of(key), place_.errors};
}

void ObjectReader::complain(const std::string& key, const std::string& text) const {
    place_of(key).complain(text);
}

void ObjectReader::fail(const std::string& key, const std::string& text) const {
    place_of(key).fail(text);
}

std::optional<Place> ObjectReader::find(const std::string& key) {
    asked_.insert(key);
    const Node* member = place_.node->member(key);
    if (member == nullptr) {
        absent_.push_back(key);
        return std::nullopt;
    }
    return Place{member, path_of(key), place_.errors};
}

Place ObjectReader::require(const std::string& key) {
    std::optional<Place> found = find(key);
    if (found) {
        return *found;
    }
    if (place_.errors->expect(path_of(key))) {
        missing_.push_back(key);
    }
    return {&kNothing, path_of(key), place_.errors};
}

std::vector<Place> ObjectReader::list(const std::string& key) {
    std::optional<Place> found = find(key);
    return found ? found->elements() : std::vector<Place>{};
}

int64_t ObjectReader::whole(const std::string& key, int64_t low, int64_t high) {
    return require(key).whole(low, high);
}

int64_t ObjectReader::whole(const std::string& key, int64_t low, int64_t high, int64_t absent) {
    std::optional<Place> found = find(key);
    return found ? found->checked_whole(low, high).value_or(absent) : absent;
}

double ObjectReader::number(const std::string& key) {
    return require(key).number();
}

double ObjectReader::number(const std::string& key, double absent) {
    std::optional<Place> found = find(key);
    return found ? found->number() : absent;
}

std::string ObjectReader::text(const std::string& key) {
    return require(key).text();
}

std::string ObjectReader::text(const std::string& key, const std::string& absent) {
    std::optional<Place> found = find(key);
    return found ? found->text() : absent;
}

bool ObjectReader::flag(const std::string& key, bool absent) {
    std::optional<Place> found = find(key);
    return found ? found->flag() : absent;
}

uint8_t ObjectReader::address(const std::string& key) {
    // 7-bit 0x00..0x07 and 0x78..0x7F are reserved (SMBus 3.2, appendix C).
    int64_t value = require(key).whole(0x10, 0xEE);
    if (value % 2 != 0) {
        complain(key, "must be an 8-bit slave address, which is even");
    }
    return static_cast<uint8_t>(value & ~1);
}

uint8_t ObjectReader::address(const std::string& key, uint8_t absent) {
    return find(key) ? address(key) : absent;
}

std::optional<size_t> ObjectReader::position(const std::string& key,
                                             const std::vector<std::string>& words) {
    const Place place = require(key);
    const std::string& word = place.text();
    auto found = std::find(words.begin(), words.end(), word);
    if (found != words.end()) {
        return static_cast<size_t>(found - words.begin());
    }
    std::string all;
    for (const std::string& each : words) {
        all += (all.empty() ? "" : ", ") + each;
    }
    place.complain("must be one of " + all);
    return std::nullopt;
}

size_t ObjectReader::choice(const std::string& key, const std::vector<std::string>& words) {
    const std::optional<size_t> found = position(key, words);
    if (!found) {
        throw FileError{};
    }
    return *found;
}

size_t ObjectReader::choice(const std::string& key, const std::vector<std::string>& words,
                            size_t absent) {
    return find(key) ? position(key, words).value_or(absent) : absent;
}

void ObjectReader::finish() {
    finished_ = true;
    tell_unknown(true);
    tell_missing();
}

/// @param all  false: only those that were meant to be a key which is missing, since the object may
///             have keys that nobody has asked for yet
void ObjectReader::tell_unknown(bool all) {
    size_t count = 0;
    for (const Node& member : place_.node->items) {
        if (asked_.contains(member.name)) {
            continue;
        }
        if (place_.errors->full()) {
            return;
        }
        // An object of a million unknown keys is not worth a million comparisons with each known
        // one.
        const bool compared = count++ < ErrorList::kMostTold;
        const std::optional<std::string> meant =
            compared ? meant_by(member.name, all ? absent_ : missing_) : std::nullopt;
        if (!meant && !all) {
            continue;
        }
        Place{&member, path_of(member.name), place_.errors}.complain(
            meant ? "no such key; did you mean " + *meant + "?" : "no such key");
        if (meant) {
            std::erase(absent_, *meant);
            std::erase(missing_, *meant);
        }
    }
}

void ObjectReader::tell_missing() {
    for (const std::string& key : missing_) {
        place_.errors->tell({path_of(key), place_.node->line, "is missing"});
    }
    missing_.clear();
}

}  // namespace board_file
