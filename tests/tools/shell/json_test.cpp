// SPDX-License-Identifier: Apache-2.0
// Tests of the tool's JSON values, as far as tests rely on them.
#include "tools/shell/json.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "tests/support/json.h"

namespace {

using test::parse_json;
using tool::Json;

TEST(JsonValue, IsEqualByWhatItIs) {
    EXPECT_EQ(parse_json("7"), 7);
    EXPECT_EQ(parse_json("7"), 7U);
    EXPECT_EQ(parse_json("7.0"), 7);
    EXPECT_EQ(parse_json("-1"), -1);
    EXPECT_EQ(parse_json("true"), true);
    EXPECT_EQ(parse_json("null"), nullptr);
    EXPECT_EQ(parse_json(R"("7")"), "7");
    EXPECT_EQ(parse_json(R"([1, {"a": [2]}])"), Json::array({1, Json{{"a", Json::array({2})}}}));
}

TEST(JsonValue, DiffersFromAnotherKindAndInEveryPart) {
    EXPECT_NE(parse_json("18446744073709551615"), -1);
    EXPECT_NE(Json(-1), std::numeric_limits<uint64_t>::max());
    EXPECT_NE(parse_json("7"), "7");
    EXPECT_NE(parse_json("1"), true);
    EXPECT_NE(parse_json("0"), nullptr);
    EXPECT_NE(parse_json("7.5"), 7);
    EXPECT_NE(parse_json("[]"), parse_json("{}"));
    EXPECT_NE(parse_json("[1, 2]"), parse_json("[2, 1]"));
    EXPECT_NE(parse_json(R"({"a": 1})"), parse_json(R"({"a": 2})"));
    EXPECT_NE(parse_json(R"({"a": 1})"), parse_json(R"({"b": 1})"));
    EXPECT_NE(parse_json(R"({"a": 1, "b": 2})"), parse_json(R"({"b": 2, "a": 1})"));
}

TEST(JsonValue, ThrowsForWhatIsNotThere) {
    const Json object{{"a", nullptr}};
    EXPECT_EQ(object["a"], nullptr);
    EXPECT_TRUE(object.contains("a"));
    EXPECT_FALSE(object.contains("b"));
    EXPECT_THROW((void)object["b"], std::out_of_range);
    EXPECT_THROW((void)object.at(1), std::out_of_range);
    Json list = Json::array({1});
    EXPECT_THROW((void)list[1], std::out_of_range);
    EXPECT_EQ(object.value("b", 5), 5);
    EXPECT_EQ(object.value("a", 5), nullptr);
}

TEST(JsonValue, GivesNoTypeThatItDoesNotFit) {
    EXPECT_EQ(parse_json("255").get<uint8_t>(), 255);
    EXPECT_THROW(parse_json("256").get<uint8_t>(), std::range_error);
    EXPECT_THROW(parse_json("-1").get<uint64_t>(), std::range_error);
    EXPECT_EQ(parse_json("-128").get<int8_t>(), -128);
    EXPECT_THROW(parse_json("1.5").get<int>(), std::range_error);
    EXPECT_EQ(parse_json("2").get<double>(), 2.0);
    EXPECT_THROW(parse_json("2").get<std::string>(), std::range_error);
    EXPECT_THROW(parse_json("1").get<bool>(), std::range_error);
    EXPECT_EQ(parse_json("[1, 2]").get<std::vector<uint8_t>>(), (std::vector<uint8_t>{1, 2}));
    EXPECT_THROW(parse_json(R"({"a": 1})").get<std::vector<uint8_t>>(), std::range_error);
}

TEST(JsonText, ThatIsNoneThrows) {
    EXPECT_THROW(parse_json("{"), std::runtime_error);
    EXPECT_THROW(parse_json("{} {}"), std::runtime_error);
    EXPECT_THROW(parse_json(""), std::runtime_error);
    EXPECT_THROW(test::read_json("/nonexistent/file.json"), std::runtime_error);
}

}  // namespace
