// SPDX-License-Identifier: Apache-2.0
// Tests of the lists of namespaces that are longer than one answer.
#include "tools/nvme/structures.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using tool::Failure;
using tool::joined_lists;
using tool::NextList;
using Ids = std::vector<uint32_t>;

constexpr size_t kIdsInAList = 1024;

std::vector<uint8_t> list_of(const Ids& ids) {
    std::vector<uint8_t> list;
    for (const uint32_t id : ids) {
        for (int i = 0; i < 4; ++i) {
            list.push_back(static_cast<uint8_t>(id >> (8 * i)));
        }
    }
    list.resize(kIdsInAList * 4);
    return list;
}

/// IDs from first on, so far apart.
Ids run_of(size_t count, uint32_t first, uint32_t step) {
    Ids ids;
    for (size_t i = 0; i < count; ++i) {
        ids.push_back(first + static_cast<uint32_t>(i) * step);
    }
    return ids;
}

/// What a drive with these namespaces is asked and answers.
struct Drive {
    Ids ids;
    Ids asked;

    std::vector<uint8_t> operator()(uint32_t after) {
        asked.push_back(after);
        const auto first = std::upper_bound(ids.begin(), ids.end(), after);
        const auto left = static_cast<size_t>(ids.end() - first);
        const auto count = static_cast<ptrdiff_t>(std::min(left, kIdsInAList));
        return list_of({first, first + count});
    }
};

TEST(NvmeLists, GoOnWhileTheyAreFull) {
    for (const size_t count :
         {size_t{0}, size_t{1}, kIdsInAList - 1, kIdsInAList, kIdsInAList + 1, size_t{2500}}) {
        SCOPED_TRACE(count);
        Drive drive{run_of(count, 5, 3), {}};
        EXPECT_EQ(joined_lists("drive", std::ref(drive)), drive.ids);
        EXPECT_EQ(drive.asked.size(), count / kIdsInAList + 1);
        EXPECT_EQ(drive.asked.front(), 0U);
    }
}

/// Behind 0xFFFFFFFE nothing may be asked for.
TEST(NvmeLists, EndWithTheLastNamespaceThatThereCanBe) {
    Drive drive{run_of(kIdsInAList, 0xFFFFFFFE - kIdsInAList + 1, 1), {}};
    EXPECT_EQ(joined_lists("drive", std::ref(drive)), drive.ids);
    EXPECT_EQ(drive.asked, Ids{0});
}

/// Expects that the lists are given up.
void expect_refused(const NextList& next, const std::string& why) {
    try {
        joined_lists("drive", next);
        FAIL() << "they were taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.what(), "drive: the list of namespaces failed: " + why);
    }
}

TEST(NvmeLists, ThatDoNotAscendAreRefused) {
    const std::string why = "it does not go on in ascending order";
    expect_refused([](uint32_t) { return list_of(run_of(kIdsInAList, 1, 1)); }, why);
    expect_refused([](uint32_t) { return std::vector<uint8_t>(); }, why);
}

TEST(NvmeLists, WithoutEndAreRefused) {
    size_t asked = 0;
    expect_refused(
        [&](uint32_t after) {
            ++asked;
            return list_of(run_of(kIdsInAList, after + 1, 1));
        },
        "65536 namespaces and no end");
    EXPECT_EQ(asked, 64U);
}

}  // namespace
