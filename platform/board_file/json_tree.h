// SPDX-License-Identifier: Apache-2.0
// A JSON document that remembers its lines, and a reader whose errors name key and line.
#ifndef SIDEBAND_BOARD_FILE_JSON_TREE_H
#define SIDEBAND_BOARD_FILE_JSON_TREE_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/board_file/error_list.h"
#include "platform/board_file/hex.h"

namespace board_file {

struct Node {
    enum class Kind { kNull, kBoolean, kInteger, kReal, kString, kArray, kObject };
    Kind kind = Kind::kNull;
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

/// Keys that stand twice in one object are told, and the text is read on.
/// @throws FileError  behind an error with an empty key, where the text is no JSON
Node parse_json(std::string_view text, ErrorList& errors);

/// A value and where it stands: "devices[1].sensors[0]". Its readers tell what is wrong with it and
/// go on with a value that is allowed, so that all errors of a file are found at once.
struct Place {
    const Node* node = nullptr;
    std::string path;
    ErrorList* errors = nullptr;

    void complain(const std::string& text) const;
    /// Ends the part that is being read: where nothing sensible can be done without this value.
    [[noreturn]] void fail(const std::string& text) const;
    /// The elements of an array; none where this is no array.
    std::vector<Place> elements() const;
    /// Reads each element of an array by itself.
    template <typename Read>
    void each(Read read) const {
        const size_t count = length();
        for (size_t i = 0; i < count && !errors->full(); ++i) {
            attempt([&] { read(element(i)); });
        }
    }
    /// A whole number: a JSON number, or a string of hex digits behind "0x". @return low if it is
    /// none
    int64_t whole(int64_t low, int64_t high) const;
    double number() const;            ///< 0 if it is none
    const std::string& text() const;  ///< empty if it is none
    bool flag() const;
    Bytes hex() const;

private:
    size_t length() const;
    Place element(size_t i) const;
    std::optional<int64_t> checked_whole(int64_t low, int64_t high) const;
    friend class ObjectReader;
};

/// Reads the members of one object, each at most once; finish() refuses what was not asked for. A
/// key that is missing is told at the end, unless a misspelt one is the reason.
class ObjectReader {
public:
    /// @throws FileError  where the place holds no object
    explicit ObjectReader(Place place);
    /// Where reading ended early, tells what is missing.
    ~ObjectReader();
    ObjectReader(const ObjectReader&) = delete;
    ObjectReader& operator=(const ObjectReader&) = delete;

    const Place& place() const { return place_; }
    void complain(const std::string& key, const std::string& text) const;
    [[noreturn]] void fail(const std::string& key, const std::string& text) const;
    /// Whether nothing has been told since the object was begun.
    bool sound() const { return place_.errors->size() == known_before_; }

    std::optional<Place> find(const std::string& key);
    /// A member that is missing is a place whose readers give what they give for a wrong value.
    Place require(const std::string& key);
    std::vector<Place> list(const std::string& key);  ///< empty where the key is absent
    /// Reads each element of an array by itself; nothing where the key is absent.
    template <typename Read>
    void each(const std::string& key, Read read) {
        if (const std::optional<Place> found = find(key)) {
            found->each(read);
        }
    }
    /// Reads a member by itself; nothing where the key is absent.
    template <typename Read>
    void within(const std::string& key, Read read) {
        if (const std::optional<Place> found = find(key)) {
            attempt([&] { read(*found); });
        }
    }

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
    /// The position of a word in a list of words. What else an object may hold depends on it.
    /// @throws FileError  where it is none of them
    size_t choice(const std::string& key, const std::vector<std::string>& words);
    size_t choice(const std::string& key, const std::vector<std::string>& words, size_t absent);

    void finish();

private:
    std::string path_of(const std::string& key) const;
    Place place_of(const std::string& key) const;
    std::optional<size_t> position(const std::string& key, const std::vector<std::string>& words);
    void tell_unknown(bool all);
    void tell_missing();

    Place place_;
    size_t known_before_;
    std::set<std::string> asked_;
    std::vector<std::string> absent_;   ///< asked for in vain
    std::vector<std::string> missing_;  ///< required among them, and not told yet
    bool finished_ = false;
};

}  // namespace board_file

#endif
