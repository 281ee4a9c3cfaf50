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
#include <utility>
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
    requires(!std::same_as<Range, Json> && std::ranges::range<const Range> &&
             !std::convertible_to<const Range&, std::string_view>) Json(const Range& values)
        : kind_(Kind::kArray) {
        for (const auto& value : values) {
            items_.emplace_back(value);
        }
    }
    /// Pairs of a name and a value make an object, all else a list.
    Json(std::initializer_list<Json> values);

    static Json array();
    static Json array(std::initializer_list<Json> values);
    static Json object();

    /// The value that a text stands for; null if it is malformed.
    static Json parse(std::string_view text);

    /// The text. Bytes that are no UTF-8 become U+FFFD.
    /// @param indent  blanks for each level; below 0 all stands on one line
    std::string dump(int indent = -1) const;

    Kind kind() const { return kind_; }
    bool is_null() const { return kind_ == Kind::kNull; }
    bool is_text() const { return kind_ == Kind::kText; }
    bool is_integer() const { return kind_ == Kind::kSigned || kind_ == Kind::kUnsigned; }
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

    size_t size() const { return items_.size(); }
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }
    bool contains(std::string_view name) const { return find(name) < names_.size(); }

    /// A member, made if it is not there; null becomes an object.
    Json& operator[](std::string_view name);
    /// A value of a list or of an object's members; std::out_of_range is thrown if it is not there.
    Json& operator[](size_t index) { return items_.at(index); }
    const Json& operator[](std::string_view name) const { return at(name); }
    const Json& operator[](size_t index) const { return at(index); }
    const Json& at(std::string_view name) const;
    const Json& at(size_t index) const { return items_.at(index); }
    /// A member, or something else if it is not there.
    Json value(std::string_view name, const Json& otherwise) const;

    /// The value as a truth value, a number, a text or a vector of them. A value of another kind,
    /// and a number that the type has not, throws std::range_error.
    template <typename T>
    T get() const;

    /// The same value: numbers of any kind by what they are, members in the same order.
    friend bool operator==(const Json& left, const Json& right);

    /// Takes over the members of another object.
    void update(const Json& other);
    /// Drops a member if it is there.
    void erase(std::string_view name);

    /// Adds to a list; null becomes one.
    void push_back(Json value);
    /// The last value of a list that has one.
    Json& back() { return items_.back(); }
    const Json& back() const { return items_.back(); }

private:
    size_t find(std::string_view name) const;
    double as_double() const;
    static void require(bool fits);

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

template <typename T>
T Json::get() const {
    if constexpr (std::same_as<T, bool>) {
        require(kind_ == Kind::kBool);
        return truth();
    } else if constexpr (std::integral<T>) {
        require(kind_ == Kind::kSigned ? std::in_range<T>(number_.as_signed)
                                       : is_integer() && std::in_range<T>(number_.as_unsigned));
        return static_cast<T>(number_.as_unsigned);
    } else if constexpr (std::floating_point<T>) {
        require(is_real() || is_integer());
        return static_cast<T>(as_double());
    } else if constexpr (std::same_as<T, std::string>) {
        require(is_text());
        return text_;
    } else {
        require(is_array());
        T list;
        for (const Json& item : items_) {
            list.push_back(item.get<typename T::value_type>());
        }
        return list;
    }
}

}  // namespace tool

#endif
