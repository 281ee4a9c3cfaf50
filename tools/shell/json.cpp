// SPDX-License-Identifier: Apache-2.0
// A JSON value as the tool makes it. Only this file knows the library that writes and reads the
// text.
#include "tools/shell/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace tool {
namespace {

using Tree = nlohmann::ordered_json;

Tree tree_of(const Json& value) {
    switch (value.kind()) {
        case Json::Kind::kNull:
            return nullptr;
        case Json::Kind::kBool:
            return value.truth();
        case Json::Kind::kSigned:
            return value.signed_number();
        case Json::Kind::kUnsigned:
            return value.unsigned_number();
        case Json::Kind::kReal:
            return value.real_number();
        case Json::Kind::kText:
            return value.text();
        case Json::Kind::kArray: {
            Tree list = Tree::array();
            for (const Json& item : value.items()) {
                list.push_back(tree_of(item));
            }
            return list;
        }
        case Json::Kind::kObject: {
            Tree object = Tree::object();
            for (size_t i = 0; i < value.items().size(); ++i) {
                object[value.names()[i]] = tree_of(value.items()[i]);
            }
            return object;
        }
    }
    return nullptr;
}

Json value_of(const Tree& tree) {
    switch (tree.type()) {
        case Tree::value_t::boolean:
            return tree.get<bool>();
        case Tree::value_t::number_integer:
            return tree.get<int64_t>();
        case Tree::value_t::number_unsigned:
            return tree.get<uint64_t>();
        case Tree::value_t::number_float:
            return tree.get<double>();
        case Tree::value_t::string:
            return tree.get<std::string>();
        case Tree::value_t::array: {
            Json list = Json::array();
            for (const Tree& item : tree) {
                list.push_back(value_of(item));
            }
            return list;
        }
        case Tree::value_t::object: {
            Json object = Json::object();
            for (const auto& [name, member] : tree.items()) {
                object[name] = value_of(member);
            }
            return object;
        }
        default:
            return nullptr;
    }
}

}  // namespace

Json::Json(std::string text) : kind_(Kind::kText), text_(std::move(text)) {}

Json::Json(std::initializer_list<Json> values) {
    const bool named = std::all_of(values.begin(), values.end(), [](const Json& value) {
        return value.is_array() && value.items_.size() == 2 && value.items_[0].is_text();
    });
    kind_ = named ? Kind::kObject : Kind::kArray;
    for (const Json& value : values) {
        if (named) {
            (*this)[value.items_[0].text_] = value.items_[1];
        } else {
            items_.push_back(value);
        }
    }
}

Json Json::array() {
    Json list;
    list.kind_ = Kind::kArray;
    return list;
}

Json Json::array(std::initializer_list<Json> values) {
    Json list = array();
    list.items_ = values;
    return list;
}

Json Json::object() {
    Json object;
    object.kind_ = Kind::kObject;
    return object;
}

Json Json::parse(std::string_view text) {
    const Tree tree = Tree::parse(text, nullptr, false);
    return tree.is_discarded() ? Json() : value_of(tree);
}

std::string Json::dump(int indent) const {
    return tree_of(*this).dump(indent, ' ', false, Tree::error_handler_t::replace);
}

size_t Json::find(std::string_view name) const {
    const auto found = std::find(names_.begin(), names_.end(), name);
    return static_cast<size_t>(found - names_.begin());
}

Json& Json::operator[](std::string_view name) {
    if (is_null()) {
        kind_ = Kind::kObject;
    }
    const size_t at = find(name);
    if (at == names_.size()) {
        names_.emplace_back(name);
        items_.emplace_back();
    }
    return items_[at];
}

const Json& Json::at(std::string_view name) const {
    const size_t at = find(name);
    if (at == names_.size()) {
        throw std::out_of_range("no member " + std::string(name));
    }
    return items_[at];
}

Json Json::value(std::string_view name, const Json& otherwise) const {
    return contains(name) ? at(name) : otherwise;
}

void Json::update(const Json& other) {
    for (size_t i = 0; i < other.names_.size(); ++i) {
        (*this)[other.names_[i]] = other.items_[i];
    }
}

void Json::erase(std::string_view name) {
    const size_t at = find(name);
    if (at < names_.size()) {
        names_.erase(names_.begin() + static_cast<ptrdiff_t>(at));
        items_.erase(items_.begin() + static_cast<ptrdiff_t>(at));
    }
}

double Json::as_double() const {
    switch (kind_) {
        case Kind::kSigned:
            return static_cast<double>(number_.as_signed);
        case Kind::kUnsigned:
            return static_cast<double>(number_.as_unsigned);
        default:
            return number_.as_real;
    }
}

void Json::require(bool fits) {
    if (!fits) {
        throw std::range_error("a JSON value is of another kind, or too large");
    }
}

bool operator==(const Json& left, const Json& right) {
    using Kind = Json::Kind;
    const bool numbers =
        (left.is_real() || left.is_integer()) && (right.is_real() || right.is_integer());
    if (numbers && (left.is_real() || right.is_real())) {
        return left.as_double() == right.as_double();
    }
    if (numbers && left.kind_ != right.kind_) {
        return left.kind_ == Kind::kSigned
                   ? std::cmp_equal(left.number_.as_signed, right.number_.as_unsigned)
                   : std::cmp_equal(left.number_.as_unsigned, right.number_.as_signed);
    }
    return left.kind_ == right.kind_ && left.number_.as_unsigned == right.number_.as_unsigned &&
           left.text_ == right.text_ && left.names_ == right.names_ && left.items_ == right.items_;
}

void Json::push_back(Json value) {
    if (is_null()) {
        kind_ = Kind::kArray;
    }
    items_.push_back(std::move(value));
}

}  // namespace tool
