// SPDX-License-Identifier: Apache-2.0
// Tests of the text for Prometheus: families, labels, numbers.
#include "tools/metrics/exposition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using tool::Exposition;
using tool::label_text;
using tool::MetricFamily;

constexpr MetricFamily kHeat{"x_heat_celsius", "celsius", "How warm."};
constexpr MetricFamily kCount{"x_count", "", "How many."};

TEST(Exposition, FamiliesStandTogetherWithTheirUnit) {
    Exposition text;
    text.add(kHeat, {{"a", "1"}}, 21.5);
    text.add(kCount, {}, 3);
    text.add(kHeat, {{"a", "2"}, {"b", ""}}, -4);
    EXPECT_EQ(text.text(), R"(# TYPE x_heat_celsius gauge
# UNIT x_heat_celsius celsius
# HELP x_heat_celsius How warm.
x_heat_celsius{a="1"} 21.5
x_heat_celsius{a="2",b=""} -4
# TYPE x_count gauge
# HELP x_count How many.
x_count 3
# EOF
)");
}

TEST(Exposition, NothingIsTheEndMarkAlone) {
    EXPECT_EQ(Exposition().text(), "# EOF\n");
    EXPECT_EQ(Exposition().json().dump(), "[]");
}

TEST(Exposition, TheFirstOfTwoFiguresWithTheSameLabelsCounts) {
    Exposition text;
    text.add(kCount, {{"a", "\x01"}}, 1);
    text.add(kCount, {{"a", "\\x01"}}, 2);
    EXPECT_EQ(text.text(),
              "# TYPE x_count gauge\n# HELP x_count How many.\nx_count{a=\"\\\\x01\"} 1\n# EOF\n");
}

TEST(Exposition, NumbersThatAreNone) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Exposition text;
    text.add(kCount, {{"a", "1"}}, std::nan(""));
    text.add(kCount, {{"a", "2"}}, kInfinity);
    text.add(kCount, {{"a", "3"}}, -kInfinity);
    text.add(kCount, {{"a", "4"}}, 1e300);
    EXPECT_EQ(text.text(),
              "# TYPE x_count gauge\n# HELP x_count How many.\n"
              "x_count{a=\"1\"} NaN\nx_count{a=\"2\"} +Inf\nx_count{a=\"3\"} -Inf\n"
              "x_count{a=\"4\"} 1e+300\n# EOF\n");
    EXPECT_EQ(text.json()[0]["samples"][0].dump(), R"({"labels":{"a":"1"},"value":null})");
}

TEST(LabelText, LeavesTheQuotesToTheLabel) {
    EXPECT_EQ(label_text("plain 1"), "plain 1");
    EXPECT_EQ(label_text("a\"b\\c"), "a\\\"b\\\\c");
    EXPECT_EQ(label_text("a\nb\r"), "a\\\\x0ab\\\\x0d");
    EXPECT_EQ(label_text("\x1b[31m"), "\\\\x1b[31m");
    EXPECT_EQ(label_text(std::string_view("\0", 1)), "\\\\x00");
    EXPECT_EQ(label_text("d\xC3\xA9j\xC3\xA0"), "d\xC3\xA9j\xC3\xA0");
    EXPECT_EQ(label_text("\xC3"), "\xEF\xBF\xBD") << "cut";
    EXPECT_EQ(label_text("\xFF\xC0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(label_text("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "surrogate";
    EXPECT_EQ(label_text("\xC2\x9B"), "\\\\xc2\\\\x9b") << "C1";
}

}  // namespace
