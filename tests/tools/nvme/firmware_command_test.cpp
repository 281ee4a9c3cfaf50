// SPDX-License-Identifier: Apache-2.0
// Tests of nvme fw-download and nvme fw-commit.
#include <csignal>

#include "tests/tools/nvme/drive_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_document;
using tool_test::expect_error;
using tool_test::expect_text;
using tool_test::image_of;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool_until;
using tool_test::TemporaryFile;

TEST(NvmeFirmware, IsDownloadedCommittedAndActive) {
    const TemporaryFile image(image_of("EX11", 10001));
    const Json document =
        expect_document(DriveBench().run({"nvme", "fw-download", "nvme0", image.path(), "--commit",
                                          "replace-activate", "--slot", "3", "--reset", "--json"}));
    EXPECT_EQ(document["bytes"], 10001);
    EXPECT_EQ(document["active_slot"], 3);
    EXPECT_EQ(document["next_slot"], 0);
    EXPECT_EQ(document["frs3"], "EX11");
}

TEST(NvmeFirmware, ShowsItsProgressInLines) {
    const TemporaryFile image(image_of("EX11", 16384));
    const Outcome run = DriveBench().run(
        {"nvme", "fw-download", "nvme0", image.path(), "--commit", "replace-activate"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.out.starts_with("  0 %  0 B of 16.0 KiB\n 25 %  4096 B of 16.0 KiB, "))
        << run.out;
    EXPECT_TRUE(contains(run.out, "100 %  16.0 KiB of 16.0 KiB, ")) << run.out;
    EXPECT_TRUE(contains(run.out,
                         "committed\n"
                         "it becomes active by a reset\n"
                         "\n"
                         "SLOT  REVISION  STATE\n"
                         "   1  EX10      active\n"
                         "   2  EX11      active behind the next reset\n"))
        << run.out;
}

TEST(NvmeFirmware, ADownloadThatIsRefusedSaysWhereAndWhy) {
    const TemporaryFile image(image_of("EX11", 16384));
    DriveBench bench;
    bench.fault(R"({"kind": "completion", "set": "admin", "opcode": "0x11", "at": 3, "sct": 1,
                    "sc": 20})");
    const Outcome run = bench.run({"nvme", "fw-download", "nvme0", image.path(), "--json"});
    EXPECT_EQ(run.status, 1);
    const std::string message =
        "nvme0: Firmware Image Download failed: status code type 1 (Command Specific Status), "
        "status code 0x14 (Overlapping Range), at byte 8192 of 16384; update status 205: the "
        "controller refused a piece";
    EXPECT_EQ(run.err, "sideband-sim: nvme fw-download: " + message + "\n");
    const Json wanted{{"message", message},
                      {"endpoint", "nvme0"},
                      {"operation", "Firmware Image Download"},
                      {"cause", "device-code"},
                      {"status_code_type", 1},
                      {"status_code_type_name", "Command Specific Status"},
                      {"status_code", 0x14},
                      {"status_code_name", "Overlapping Range"},
                      {"exit_status", 1}};
    EXPECT_EQ(one_document(run.out)["error"].dump(), wanted.dump());
}

TEST(NvmeFirmware, TheOtherOutcomesOfADownloadHaveWordsToo) {
    const TemporaryFile image(image_of("EX11", 8192));
    const std::string start = "sideband-sim: nvme fw-download: ";
    DriveBench refusing;
    refusing.fault(R"({"kind": "status", "set": "admin", "opcode": "0x11", "value": 2})");
    EXPECT_EQ(refusing.run({"nvme", "fw-download", "nvme0", image.path()}).err,
              start +
                  "nvme0: Firmware Image Download failed: status 0x02 (Internal Error), at "
                  "byte 0 of 8192; update status 206: the endpoint refused a piece\n");
    DriveBench silent;
    silent.fault(R"({"kind": "no_answer", "set": "admin", "opcode": "0x11", "count": 0})");
    EXPECT_EQ(silent.run({"nvme", "fw-download", "nvme0", image.path()}).err,
              start +
                  "nvme0: Firmware Image Download failed: no answer, at byte 0 of 8192; "
                  "update status 204: an exchange failed\n");
}

TEST(NvmeFirmware, AFileThatIsNoImageEndsWithThree) {
    const std::string start = "sideband-sim: nvme fw-download: ";
    expect_error(DriveBench().run({"nvme", "fw-download", "nvme0", "/nowhere/image"}), 3,
                 start + "/nowhere/image: cannot be opened for reading and writing");
    expect_error(DriveBench().run({"nvme", "fw-download", "nvme0", "/dev/null"}), 3,
                 start + "/dev/null: is no regular file, or has changed meanwhile");
    const TemporaryFile empty("");
    expect_error(DriveBench().run({"nvme", "fw-download", "nvme0", empty.path()}), 3,
                 start + empty.path() + ": the image is empty");
}

TEST(NvmeFirmware, CtrlCEndsADownload) {
    const TemporaryFile image(image_of("EX11", 4 << 20));
    const TemporaryFile board(DriveBench().board());
    const Outcome run = tool_test::run_tool_until(
        {"--board", board.path(), "nvme", "fw-download", "nvme0", image.path()}, "\n  1 %", SIGINT);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.starts_with(
        "sideband-sim: nvme fw-download: nvme0: Firmware Image Download failed: interrupted at "
        "byte "))
        << run.err;
    EXPECT_TRUE(contains(run.err, " of 4194304\n")) << run.err;
}

TEST(NvmeFirmware, ACommitWithoutADownloadIsRefused) {
    expect_error(
        DriveBench().run({"nvme", "fw-commit", "nvme0", "--action", "replace", "--slot", "2"}), 1,
        "sideband-sim: nvme fw-commit: nvme0: Firmware Commit failed: status code type 1 "
        "(Command Specific Status), status code 0x07 (Invalid Firmware Image)");
    expect_text(
        DriveBench().run({"nvme", "fw-commit", "nvme0", "--action", "activate-now", "--slot", "2"}),
        "committed\n"
        "\n"
        "SLOT  REVISION  STATE\n"
        "   1  EX10\n"
        "   2  EX09      active\n");
}

TEST(NvmeFirmware, ACommitThatNeedsAResetHasWorked) {
    DriveBench bench;
    bench.fault(R"({"kind": "completion", "set": "admin", "opcode": "0x10", "sct": 1, "sc": 16})");
    const Json document = expect_document(
        bench.run({"nvme", "fw-commit", "nvme0", "--action", "activate", "--json"}));
    EXPECT_EQ(document["activation_needs"], "an NVM subsystem reset");
}

}  // namespace
