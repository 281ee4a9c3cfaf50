// SPDX-License-Identifier: Apache-2.0
// A JSON value as the tool makes it. Only json.cpp knows the library that writes and reads the
// text.
#ifndef SIDEBAND_TOOLS_SHELL_JSON_H
#define SIDEBAND_TOOLS_SHELL_JSON_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tool {

/// Null, a truth value, a number, a text, a list, or an object whose members stay in the order in
/// which they came.
class Json {
public:
    enum class Kind : uint8_t { kNull, kBool, kSigned, kUnsigned, kReal, kText, kArray, kObject };

    Json() = default;
    Json(std::nullptr_t) {}
    Json(bool value) : kind_(Kind::kBool) { number_.as_unsigned = value ? 1 : 0; }
    template <typename Number>
    requires std::signed_integral<Number> Json(Number value) : kind_(Kind::kSigned) {
        number_.as_signed = value;
    }
    template <typename Number>
    requires std::unsigned_integral<Number> Json(Number value) : kind_(Kind::kUnsigned) {
        number_.as_unsigned = value;
    }
    template <typename Enum>
    requires std::is_enum_v<Enum> Json(Enum value)
        : Json(static_cast<std::underlying_type_t<Enum>>(value)) {}
    Json(double value) : kind_(Kind::kReal) { number_.as_real = value; }
    Json(const char* text) : Json(std::string(text)) {}
    Json(std::string_view text) : Json(std::string(text)) {}
    Json(std::string text);
    /// A list of what a container holds.
    template <typename Range>
    requires(std::ranges::range<const Range> &&
             !std::convertible_to<const Range&, std::string_view>) Json(const Range& values)
        : kind_(Kind::kArray) {
        for (const auto& value : values) {
            items_.emplace_back(value);
        }
    }
    /// Pairs of a name and a value make an object, all else a list.
    Json(std::initializer_list<Json> values);

    static Json array();
    static Json object();

    /// The value that a text stands for; null if it is malformed.
    static Json parse(std::string_view text);

    /// The text. Bytes that are no UTF-8 become U+FFFD.
    /// @param indent  blanks for each level; below 0 all stands on one line
    std::string dump(int indent = -1) const;

    Kind kind() const { return kind_; }
    bool is_null() const { return kind_ == Kind::kNull; }
    bool is_text() const { return kind_ == Kind::kText; }
    bool is_real() const { return kind_ == Kind::kReal; }
    bool is_array() const { return kind_ == Kind::kArray; }
    bool is_object() const { return kind_ == Kind::kObject; }

    bool truth() const { return number_.as_unsigned != 0; }
    int64_t signed_number() const { return number_.as_signed; }
    uint64_t unsigned_number() const { return number_.as_unsigned; }
    double real_number() const { return number_.as_real; }
    const std::string& text() const { return text_; }

    /// Values of a list or of an object's members, and the names of the latter.
    const std::vector<Json>& items() const { return items_; }
    const std::vector<std::string>& names() const { return names_; }

    /// A member, made if it is not there; null becomes an object.
    Json& operator[](std::string_view name);
    /// A member; null if it is not there.
    const Json& operator[](std::string_view name) const;
    /// Takes over the members of another object.
    void update(const Json& other);
    /// Drops a member if it is there.
    void erase(std::string_view name);

    /// Adds to a list; null becomes one.
    void push_back(Json value);
    /// The last value of a list that has one.
    Json& back() { return items_.back(); }

private:
    size_t find(std::string_view name) const;

    Kind kind_ = Kind::kNull;
    union {
        int64_t as_signed;
        uint64_t as_unsigned;
        double as_real;
    } number_ = {.as_signed = 0};
    std::string text_;
    std::vector<std::string> names_;
    std::vector<Json> items_;
};

}  // namespace tool

#endif
