// SPDX-License-Identifier: Apache-2.0
// Tests of nvme ns.
#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool_test::DriveBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::TemporaryFile;

TEST(NvmeNamespaces, AreListed) {
    expect_text(DriveBench().run({"nvme", "ns", "list", "nvme0"}),
                "NSID  ATTACHED   BLOCKS  USED  BLOCK SIZE       SIZE\n"
                "   1  yes       1048576  1000         512  536.87 MB\n"
                "   3  no           1024     0        4096    4.19 MB\n");
}

TEST(NvmeNamespaces, AreCreatedAttachedAndDeleted) {
    expect_json(DriveBench().run({"nvme", "ns", "create", "nvme0", "--blocks", "2048", "--lbaf",
                                  "1", "--shared", "--json"}),
                R"({"endpoint": "nvme0", "nsid": 2})");
    DriveBench detached;
    detached.drive()["namespaces"][1]["controllers"] = tool::Json::array();
    expect_text(detached.run({"nvme", "ns", "attach", "nvme0", "3"}),
                "namespace 3 is attached to controller 1\n");
    expect_error(
        DriveBench().run({"nvme", "ns", "attach", "nvme0", "3"}), 1,
        "sideband-sim: nvme ns attach: nvme0: Namespace Attachment (attach) of namespace 3 "
        "failed: status code type 1 (Command Specific Status), status code 0x19 "
        "(Namespace Is Private)");
    expect_text(DriveBench().run({"nvme", "ns", "detach", "nvme0", "3", "--controller", "5"}),
                "namespace 3 is detached from controller 5\n");
    expect_text(DriveBench().run({"nvme", "ns", "delete", "nvme0", "3", "--yes"}),
                "namespace 3 has been deleted\n");
    expect_error(
        DriveBench().run({"nvme", "ns", "attach", "nvme0", "1"}), 1,
        "sideband-sim: nvme ns attach: nvme0: Namespace Attachment (attach) of namespace 1 "
        "failed: status code type 1 (Command Specific Status), status code 0x18 "
        "(Namespace Already Attached)");
}

/// Numbers are decimal or hex, as with every command: a 0 in front makes no octal.
TEST(NvmeNamespaces, AreAsLargeAsTheNumberSays) {
    const TemporaryFile batch(
        "nvme ns create nvme0 --blocks 01024 --lbaf 01\n"
        "nvme ns create nvme0 --blocks 0x10\n"
        "nvme ns list nvme0\n");
    const Outcome run = DriveBench().run({"batch", batch.path(), "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    const size_t last = run.out.rfind('\n', run.out.size() - 2) + 1;
    const tool::Json list = one_document(run.out.substr(last))["namespaces"];
    EXPECT_EQ(list[1]["nsze"], 1024);
    EXPECT_EQ(list[3]["nsze"], 16);
}

}  // namespace
