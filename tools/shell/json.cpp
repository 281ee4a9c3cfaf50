// SPDX-License-Identifier: Apache-2.0
// A JSON value as the tool makes it. Only this file knows the library that writes and reads the
// text.
#include "tools/shell/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
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

const Json& Json::operator[](std::string_view name) const {
    static const Json kNone;
    const size_t at = find(name);
    return at < names_.size() ? items_[at] : kNone;
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

void Json::push_back(Json value) {
    if (is_null()) {
        kind_ = Kind::kArray;
    }
    items_.push_back(std::move(value));
}

}  // namespace tool
