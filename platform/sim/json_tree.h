// SPDX-License-Identifier: Apache-2.0
// A JSON document that remembers its lines, and a reader whose errors name key and line.
#ifndef SIDEBAND_PLATFORM_SIM_JSON_TREE_H
#define SIDEBAND_PLATFORM_SIM_JSON_TREE_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "board.h"
#include "bytes.h"

namespace sim {

/// Thrown where a board file is malformed; it ends in Board::parse() and Board::add_fault().
struct FileError {
    BoardError error;
};

struct Node {
    enum class Kind { null, boolean, integer, real, string, array, object };
    Kind kind = Kind::null;
    int line = 0;  ///< of its key, or of the value where it has none
    bool boolean = false;
    int64_t integer = 0;
    double real = 0;  ///< set for integers too
    std::string text;
    std::string name;         ///< its key, where it is a member of an object
    std::vector<Node> items;  ///< elements of an array, members of an object

    /// The member of an object that has a key; null where it has none.
    const Node* member(const std::string& key) const;
};

/// @throws FileError with an empty key for a syntax error
Node parse_json(std::string_view text);

/// A value and where it stands: "devices[1].sensors[0]".
struct Place {
    const Node* node = nullptr;
    std::string path;

    [[noreturn]] void fail(const std::string& text) const;
    /// The elements of an array; fails where this is none.
    std::vector<Place> elements() const;
    /// A whole number: a JSON number, or a string of hex digits behind "0x".
    int64_t whole(int64_t low, int64_t high) const;
    double number() const;
    const std::string& text() const;
    bool flag() const;
    Bytes hex() const;
};

/// Reads the members of one object, each at most once; finish() refuses what was not asked for.
class ObjectReader {
public:
    explicit ObjectReader(Place place);

    const Place& place() const { return place_; }
    [[noreturn]] void fail(const std::string& key, const std::string& text) const;

    std::optional<Place> find(const std::string& key);
    Place require(const std::string& key);
    std::vector<Place> list(const std::string& key);  ///< empty where the key is absent

    int64_t whole(const std::string& key, int64_t low, int64_t high);
    int64_t whole(const std::string& key, int64_t low, int64_t high, int64_t absent);
    double number(const std::string& key);
    double number(const std::string& key, double absent);
    std::string text(const std::string& key);
    std::string text(const std::string& key, const std::string& absent);
    bool flag(const std::string& key, bool absent);
    /// An 8-bit slave address: even, and none that SMBus reserves.
    uint8_t address(const std::string& key);
    uint8_t address(const std::string& key, uint8_t absent);
    /// The position of a word in a list of words.
    size_t choice(const std::string& key, const std::vector<std::string>& words);
    size_t choice(const std::string& key, const std::vector<std::string>& words, size_t absent);

    void finish() const;

private:
    std::string path_of(const std::string& key) const;

    Place place_;
    std::set<std::string> asked_;
};

}  // namespace sim

#endif
