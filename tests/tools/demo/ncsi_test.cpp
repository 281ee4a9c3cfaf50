// SPDX-License-Identifier: Apache-2.0
// Tests of what the tour shows of network controllers.
#include "tests/tools/ncsi/controller_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::ControllerBench;
using tool_test::one_document;
using tool_test::Outcome;

TEST(NcsiDemo, ShowsTheLinksOfEachController) {
    const Outcome demo = ControllerBench().run({"demo", "--json"});
    const Json document = one_document(demo.out);
    bool shown = false;
    for (const Json& step : document["steps"]) {
        if (step["title"] == "Network links") {
            shown = true;
            EXPECT_EQ(step["endpoint"], "nc0");
            EXPECT_EQ(step["outcome"], "ok");
            EXPECT_EQ(step["result"], "2 channels, 1 up, 52 degC");
            EXPECT_EQ(step["details"]["temperature"], 52);
            EXPECT_EQ(step["details"]["channels"].size(), 2U);
        }
    }
    EXPECT_TRUE(shown) << demo.out;
}

TEST(NcsiDemo, LeavesOutATemperatureThatIsAnotherMakers) {
    ControllerBench bench;
    bench.controller().erase("temperatures");
    const Outcome demo = bench.run({"demo"});
    EXPECT_TRUE(contains(demo.out, "2 channels, 1 up")) << demo.out;
    EXPECT_FALSE(contains(demo.out, "degC")) << demo.out;
}

}  // namespace
