// SPDX-License-Identifier: Apache-2.0
// Tests of nvme identify.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_document;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::Outcome;

TEST(NvmeIdentify, ShowsAController) {
    const Outcome text = DriveBench().run({"nvme", "identify", "controller", "nvme0"});
    EXPECT_EQ(text.status, 0) << text.err;
    for (const char* line :
         {"vid        0x1234\n", "sn         EX0001\n", "mn         Example SSD\n",
          "fr         EX10\n", "cntlid     1\n", "ver        2.0.0\n",
          "wctemp     70 degC (343 K)\n", "tnvmcap    1073741824\n"}) {
        EXPECT_TRUE(contains(text.out, line)) << line << text.out;
    }
    const Json document = expect_document(DriveBench().run(
        {"nvme", "identify", "controller", "nvme0", "--controller", "5", "--json"}));
    EXPECT_EQ(document["cntlid"], 5);
    EXPECT_EQ(document["vid"], 0x1234);
    EXPECT_EQ(document["tnvmcap"], 1073741824);
    EXPECT_EQ(document["fr"], "EX10");
}

TEST(NvmeIdentify, ShowsANamespaceWithItsFormats) {
    const Outcome text = DriveBench().run({"nvme", "identify", "namespace", "nvme0", "1"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(contains(text.out, "nsze      1048576\n")) << text.out;
    EXPECT_TRUE(contains(text.out,
                         "lbaf0     ms 0, lbads 9 (512 bytes), rp 0 (in use)\n"
                         "lbaf1     ms 0, lbads 12 (4096 bytes), rp 0\n"))
        << text.out;
    const Json document = expect_document(DriveBench().run(
        {"nvme", "identify", "namespace", "nvme0", "3", "--controller", "5", "--json"}));
    EXPECT_EQ(document["nsid"], 3);
    EXPECT_EQ(document["nsze"], 1024);
    EXPECT_EQ(document["flbas"], 1);
    EXPECT_EQ(document["lbaf"].dump(), R"([{"ms":0,"lbads":9,"rp":0},{"ms":0,"lbads":12,"rp":0}])");
}

TEST(NvmeIdentify, ListsNamespacesAndControllers) {
    expect_json(
        DriveBench().run({"nvme", "identify", "list", "nvme0", "--controller", "5", "--json"}),
        R"({"endpoint": "nvme0", "cntlid": 5, "active_namespaces": [1, 3],
                    "controllers": [1, 5]})");
    expect_text(DriveBench().run({"nvme", "identify", "list", "nvme0"}),
                "active namespaces of controller 1  1\n"
                "controllers of the drive            1, 5\n");
}

}  // namespace
