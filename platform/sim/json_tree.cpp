// SPDX-License-Identifier: Apache-2.0
// A JSON document that remembers its lines, and a reader whose errors name key and line.
#include "json_tree.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

constexpr size_t kDeepest = 32;

/// Where the parser has got to in the text.
struct Progress {
    int line = 1;
    char last = 0;
};

/// Hands characters to the parser and counts the lines that went through.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, Progress* progress) : at_(at), progress_(progress) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        progress_->last = *at_;
        if (*at_++ == '\n')
            ++progress_->line;
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
    for (const char* mark : {"] ", "column "})
        if (size_t at = text.find(mark); at != std::string::npos)
            text.erase(0, at + std::char_traits<char>::length(mark));
    const size_t digits = text.find_first_not_of("0123456789");
    if (digits != std::string::npos && text.compare(digits, 2, ": ") == 0)
        text.erase(0, digits + 2);
    return text;
}

/// Builds the tree from the parser's events.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit TreeBuilder(const Progress& progress) : progress_(progress) {}

    Node take() { return std::move(root_); }

    bool null() override { return add(Node::Kind::null) != nullptr; }
    bool boolean(bool value) override {
        add(Node::Kind::boolean)->boolean = value;
        return true;
    }
    bool number_integer(number_integer_t value) override {
        Node* node = add(Node::Kind::integer);
        node->integer = value;
        node->real = static_cast<double>(value);
        return true;
    }
    bool number_unsigned(number_unsigned_t value) override {
        if (value > static_cast<number_unsigned_t>(INT64_MAX))
            return number_float(static_cast<double>(value), {});
        return number_integer(static_cast<number_integer_t>(value));
    }
    bool number_float(number_float_t value, const string_t&) override {
        add(Node::Kind::real)->real = value;
        return true;
    }
    bool string(string_t& value) override {
        add(Node::Kind::string)->text = std::move(value);
        return true;
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return open(Node::Kind::object); }
    bool start_array(std::size_t) override { return open(Node::Kind::array); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        if (open_.back()->member(name) != nullptr)
            throw FileError{{name, progress_.line, "appears twice in one object"}};
        key_ = std::move(name);
        key_line_ = progress_.line;
        return true;
    }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override {
        throw FileError{{"", line_here(), plain_message(error.what())}};
    }

private:
    /// The parser reads one character past a number; that character may be a line end.
    int line_here() const { return progress_.line - (progress_.last == '\n' ? 1 : 0); }

    Node* add(Node::Kind kind) {
        Node* node = open_.empty() ? &root_ : &open_.back()->items.emplace_back();
        const bool is_member = !open_.empty() && open_.back()->kind == Node::Kind::object;
        if (is_member)
            node->name = key_;
        node->kind = kind;
        node->line = is_member ? key_line_ : line_here();
        return node;
    }
    bool open(Node::Kind kind) {
        Node* node = add(kind);
        open_.push_back(node);
        if (open_.size() > kDeepest)
            throw FileError{{"", node->line, "nested too deeply"}};
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    const Progress& progress_;
    Node root_;
    std::vector<Node*> open_;
    std::string key_;
    int key_line_ = 0;
};

std::optional<int64_t> prefixed_hex(const std::string& text) {
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] | 0x20) != 'x')
        return std::nullopt;
    std::string digits = text.substr(2);
    std::optional<Bytes> bytes = from_hex(digits.size() % 2 != 0 ? "0" + digits : digits);
    if (!bytes)
        return std::nullopt;
    int64_t value = 0;
    for (uint8_t byte : *bytes)
        value = value << 8 | byte;
    return value;
}

}  // namespace

Node parse_json(std::string_view text) {
    Progress progress;
    TreeBuilder builder(progress);
    const char* first = text.data();
    nlohmann::json::sax_parse(CountingIterator(first, &progress),
                              CountingIterator(first + text.size(), &progress), &builder);
    return builder.take();
}

const Node* Node::member(const std::string& key) const {
    for (const Node& item : items)
        if (item.name == key)
            return &item;
    return nullptr;
}

void Place::fail(const std::string& text) const {
    throw FileError{{path, node->line, text}};
}

std::vector<Place> Place::elements() const {
    if (node->kind != Node::Kind::array)
        fail("must be an array");
    std::vector<Place> places;
    for (size_t i = 0; i < node->items.size(); ++i)
        places.push_back({&node->items[i], path + "[" + std::to_string(i) + "]"});
    return places;
}

int64_t Place::whole(int64_t low, int64_t high) const {
    std::optional<int64_t> value;
    if (node->kind == Node::Kind::integer)
        value = node->integer;
    else if (node->kind == Node::Kind::string)
        value = prefixed_hex(node->text);
    if (!value || *value < low || *value > high)
        fail("must be a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return *value;
}

double Place::number() const {
    if (node->kind != Node::Kind::integer && node->kind != Node::Kind::real)
        fail("must be a number");
    if (!std::isfinite(node->real))
        fail("is out of range");
    return node->real;
}

const std::string& Place::text() const {
    if (node->kind != Node::Kind::string)
        fail("must be a string");
    return node->text;
}

bool Place::flag() const {
    if (node->kind != Node::Kind::boolean)
        fail("must be true or false");
    return node->boolean;
}

Bytes Place::hex() const {
    std::optional<Bytes> bytes = from_hex(text());
    if (!bytes)
        fail("must be pairs of hex digits without separators");
    return *bytes;
}

ObjectReader::ObjectReader(Place place) : place_(std::move(place)) {
    if (place_.node->kind != Node::Kind::object)
        place_.fail("must be an object");
}

std::string ObjectReader::path_of(const std::string& key) const {
    return place_.path.empty() ? key : place_.path + "." + key;
}

void ObjectReader::fail(const std::string& key, const std::string& text) const {
    const Node* member = place_.node->member(key);
    Place{member != nullptr ? member : place_.node, path_of(key)}.fail(text);
}

std::optional<Place> ObjectReader::find(const std::string& key) {
    asked_.insert(key);
    const Node* member = place_.node->member(key);
    if (member == nullptr)
        return std::nullopt;
    return Place{member, path_of(key)};
}

Place ObjectReader::require(const std::string& key) {
    std::optional<Place> found = find(key);
    if (!found)
        fail(key, "is missing");
    return *found;
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
    return found ? found->whole(low, high) : absent;
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
    if (value % 2 != 0)
        fail(key, "must be an 8-bit slave address, which is even");
    return static_cast<uint8_t>(value);
}

uint8_t ObjectReader::address(const std::string& key, uint8_t absent) {
    return find(key) ? address(key) : absent;
}

size_t ObjectReader::choice(const std::string& key, const std::vector<std::string>& words) {
    const std::string word = text(key);
    auto found = std::find(words.begin(), words.end(), word);
    if (found == words.end()) {
        std::string all;
        for (const std::string& each : words)
            all += (all.empty() ? "" : ", ") + each;
        fail(key, "must be one of " + all);
    }
    return static_cast<size_t>(found - words.begin());
}

size_t ObjectReader::choice(const std::string& key, const std::vector<std::string>& words,
                            size_t absent) {
    return find(key) ? choice(key, words) : absent;
}

void ObjectReader::finish() const {
    for (const Node& member : place_.node->items)
        if (!asked_.contains(member.name))
            fail(member.name, "is not a key that is known here");
}

}  // namespace sim
