// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool shows of NVMe drives, and of what it does to them.
#include <csignal>

#include "tool_runner.h"
#include "tools/shell/codes.h"

namespace {

using tool_test::contains;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;
using tool_test::run_tool_typing;
using tool_test::TemporaryFile;
using Json = nlohmann::ordered_json;

/// A board with a drive of two controllers, a PLDM terminus and a silent device.
class Bench {
public:
    Bench()
        : drive_(Json::parse(R"({
            "model": "Example SSD", "serial": "EX0001", "vendor_id": 4660, "device_id": 8,
            "capacity": 1073741824,
            "controllers": [{"id": 1, "port": 0}, {"id": 5, "port": 0}],
            "temperature": {"shape": "constant", "value": 36},
            "smart": {"percentage_used": 3, "data_units_read": 123456, "power_on_hours": 4711},
            "namespaces": [{"id": 1, "blocks": 1048576, "used": 1000},
                           {"id": 3, "blocks": 1024, "format": 1, "controllers": [5]}],
            "firmware": {"slots": ["EX10", "EX09", ""]},
            "vpd": "0102414243ff"})")) {}

    Json& drive() { return drive_; }
    Bench& fault(const std::string& text) {
        drive_["faults"].push_back(Json::parse(text));
        return *this;
    }

    std::string board() const {
        Json board = Json::parse(R"({"name": "bench", "buses": [{"bus": 1, "clock_hz": 400000}],
            "devices": [{"name": "nvme0", "type": "nvme", "bus": 1, "address": "0x3a"},
                        {"name": "gpu0", "type": "pldm", "bus": 1, "address": "0x9e"},
                        {"name": "dead0", "type": "nvme", "bus": 1, "address": "0x50",
                         "drive": {}, "faults": [{"kind": "no_ack"}]}]})");
        board["devices"][0]["drive"] = drive_;
        return board.dump(1);
    }

    Outcome run(const std::vector<std::string>& arguments) const {
        return run_on(board(), arguments);
    }

private:
    Json drive_;
};

Json expect_document(const Outcome& run) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    return one_document(run.out);
}

/// An image as the simulated drive takes it.
std::string image_of(const std::string& revision, size_t size) {
    std::string image = "SIMDRIVE" + revision;
    image.resize(16, ' ');
    while (image.size() < size) {
        image += static_cast<char>(image.size() * 7);
    }
    return image;
}

// ---- What a drive says ----

TEST(NvmeHealth, ShowsTheDriveAndItsControllers) {
    expect_text(Bench().run({"nvme", "health", "nvme0"}),
                "nss    0x38 (drive functional, no reset required, PCIe link of port 0 active)\n"
                "sw     0xff (no warning)\n"
                "ctemp  36 degC\n"
                "pdlu   3 %\n"
                "ccs    0x0001 (ready)\n"
                "\n"
                "CONTROLLER      TEMPERATURE  USED  SPARE  WARNINGS  STATUS\n"
                "         1  36 degC (309 K)   3 %  100 %  none      ready\n"
                "         5  36 degC (309 K)   3 %  100 %  none      ready\n");
    expect_json(Bench().run({"nvme", "health", "nvme0", "--json"}), R"({"endpoint": "nvme0",
        "nss": 56, "sw": 255, "ctemp": 36, "pdlu": 3, "ccs": 1, "controllers": [
          {"ctlid": 1, "csts": 1, "ctemp": 309, "pdlu": 3, "spare": 100, "cwarn": 0},
          {"ctlid": 5, "csts": 1, "ctemp": 309, "pdlu": 3, "spare": 100, "cwarn": 0}]})");
}

TEST(NvmeHealth, NamesWhatWarns) {
    Bench bench;
    bench.drive()["temperature"]["value"] = 75;
    bench.drive()["smart"] = {{"available_spare", 5}, {"percentage_used", 255}};
    const Outcome run = bench.run({"nvme", "health", "nvme0"});
    EXPECT_TRUE(contains(run.out, "sw     0xfc (available spare, temperature)\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "pdlu   more than 254 %\n")) << run.out;
}

TEST(NvmeHealth, AsksForAllControllersOfADrive) {
    Bench bench;
    bench.drive()["controllers"] = Json::array();
    for (int id : {1, 2, 4, 5, 9}) {
        bench.drive()["controllers"].push_back({{"id", id}});
    }
    const Json document = expect_document(bench.run({"nvme", "health", "nvme0", "--json"}));
    ASSERT_EQ(document["controllers"].size(), 5U);
    EXPECT_EQ(document["controllers"][4]["ctlid"], 9);
}

TEST(NvmeIdentify, ShowsAController) {
    const Outcome text = Bench().run({"nvme", "identify", "controller", "nvme0"});
    EXPECT_EQ(text.status, 0) << text.err;
    for (const char* line :
         {"vid        0x1234\n", "sn         EX0001\n", "mn         Example SSD\n",
          "fr         EX10\n", "cntlid     1\n", "ver        2.0.0\n",
          "wctemp     70 degC (343 K)\n", "tnvmcap    1073741824\n"}) {
        EXPECT_TRUE(contains(text.out, line)) << line << text.out;
    }
    const Json document = expect_document(
        Bench().run({"nvme", "identify", "controller", "nvme0", "--controller", "5", "--json"}));
    EXPECT_EQ(document["cntlid"], 5);
    EXPECT_EQ(document["vid"], 0x1234);
    EXPECT_EQ(document["tnvmcap"], 1073741824);
    EXPECT_EQ(document["fr"], "EX10");
}

TEST(NvmeIdentify, ShowsANamespaceWithItsFormats) {
    const Outcome text = Bench().run({"nvme", "identify", "namespace", "nvme0", "1"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(contains(text.out, "nsze      1048576\n")) << text.out;
    EXPECT_TRUE(contains(text.out,
                         "lbaf0     ms 0, lbads 9 (512 bytes), rp 0 (in use)\n"
                         "lbaf1     ms 0, lbads 12 (4096 bytes), rp 0\n"))
        << text.out;
    const Json document = expect_document(Bench().run(
        {"nvme", "identify", "namespace", "nvme0", "3", "--controller", "5", "--json"}));
    EXPECT_EQ(document["nsid"], 3);
    EXPECT_EQ(document["nsze"], 1024);
    EXPECT_EQ(document["flbas"], 1);
    EXPECT_EQ(document["lbaf"].dump(), R"([{"ms":0,"lbads":9,"rp":0},{"ms":0,"lbads":12,"rp":0}])");
}

TEST(NvmeIdentify, ListsNamespacesAndControllers) {
    expect_json(Bench().run({"nvme", "identify", "list", "nvme0", "--controller", "5", "--json"}),
                R"({"endpoint": "nvme0", "cntlid": 5, "active_namespaces": [1, 3],
                    "controllers": [1, 5]})");
    expect_text(Bench().run({"nvme", "identify", "list", "nvme0"}),
                "active namespaces of controller 1  1\n"
                "controllers of the drive            1, 5\n");
}

TEST(NvmeLog, ShowsSmart) {
    const Outcome text = Bench().run({"nvme", "log", "smart", "nvme0"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(
        text.out.starts_with("critical_warning                          0x00 (none)\n"
                             "temperature                               36 degC (309 K)\n"
                             "available_spare                           100 %\n"
                             "available_spare_threshold                 10 %\n"
                             "percentage_used                           3 %\n"))
        << text.out;
    const Json document = expect_document(Bench().run({"--json", "nvme", "log", "smart", "nvme0"}));
    EXPECT_EQ(document["temperature"], 309);
    EXPECT_EQ(document["data_units_read"], 123456);
    EXPECT_EQ(document["power_on_hours"], 4711);
    EXPECT_EQ(document["temperature_sensor_1"], 309);
    EXPECT_FALSE(document.contains("temperature_sensor_2"));
}

TEST(NvmeLog, ShowsFirmwareSlots) {
    expect_text(Bench().run({"nvme", "log", "firmware", "nvme0"}),
                "SLOT  REVISION  STATE\n"
                "   1  EX10      active\n"
                "   2  EX09\n");
    const Json document =
        expect_document(Bench().run({"nvme", "log", "firmware", "nvme0", "--json"}));
    EXPECT_EQ(document["afi"], 1);
    EXPECT_EQ(document["frs2"], "EX09");
}

TEST(NvmeLog, ShowsErrorsAndTheStateOfSanitizing) {
    expect_text(Bench().run({"nvme", "log", "error", "nvme0"}), "no errors\n");
    expect_json(Bench().run({"nvme", "log", "error", "nvme0", "--entries", "64", "--json"}),
                R"({"endpoint": "nvme0", "errors": []})");
    const Outcome sanitize = Bench().run({"nvme", "log", "sanitize", "nvme0"});
    EXPECT_TRUE(contains(sanitize.out, "sstat   0x0000 (never sanitized)\n")) << sanitize.out;
}

TEST(NvmeDs, ShowsEveryDataStructure) {
    expect_text(Bench().run({"nvme", "ds", "subsystem", "nvme0"}), "nump  1\nmjr   1\nmnr   2\n");
    expect_text(Bench().run({"nvme", "ds", "controllers", "nvme0"}), "1\n5\n");
    expect_json(Bench().run({"nvme", "ds", "port", "nvme0", "1", "--json"}),
                R"({"endpoint": "nvme0", "port": 1, "prttyp": 2, "mmctptus": 250, "meb": 0,
                    "cvpdaddr": 166, "mvpdfreq": 3, "cmeaddr": 58, "mmefreq": 3, "nvmebm": 0})");
    expect_json(Bench().run({"nvme", "ds", "controller", "nvme0", "5", "--json"}),
                R"({"endpoint": "nvme0", "controller": 5, "portid": 0, "prii": 0, "pri": 0,
                    "pcivid": 4660, "pcidid": 8, "pcisvid": 4660, "pcissid": 8})");
    const Outcome commands = Bench().run({"nvme", "ds", "commands", "nvme0"});
    EXPECT_TRUE(contains(commands.out, "TYPE  OPCODE  NAME\n   1  0x06    VPD Write\n"))
        << commands.out;
    EXPECT_TRUE(contains(commands.out, "   2  0x84    Sanitize\n")) << commands.out;
}

// ---- Settings ----

TEST(NvmeFeature, IsReadAndChanged) {
    expect_text(Bench().run({"nvme", "feature", "get", "nvme0", "4"}),
                "fid     0x04 (Temperature Threshold)\n"
                "sel     0 (current)\n"
                "dword0  0x00000157\n");
    expect_text(Bench().run({"nvme", "feature", "get", "nvme0", "7", "--select", "capabilities"}),
                "fid     0x07 (Number of Queues)\n"
                "sel     3 (capabilities)\n"
                "dword0  0x00000000 (none)\n");
    expect_json(Bench().run({"nvme", "feature", "get", "nvme0", "0x0e", "--length", "8", "--json"}),
                R"({"endpoint": "nvme0", "fid": 14, "sel": 0, "dword0": 0,
                    "data": "0000000000000000"})");
    expect_text(Bench().run({"nvme", "feature", "set", "nvme0", "4", "0x160", "--save"}),
                "                                      BEFORE      AFTER\n"
                "feature 0x04 (Temperature Threshold)  0x00000157  0x00000160\n");
    expect_error(Bench().run({"nvme", "feature", "set", "nvme0", "7", "1"}), 1,
                 "sideband-sim: nvme feature set: nvme0: Set Features of feature 0x07 (Number of "
                 "Queues) failed: status code type 1 (Command Specific Status), status code 0x0e "
                 "(Feature Not Changeable)");
}

TEST(NvmeConfig, IsReadAndChanged) {
    expect_text(Bench().run({"nvme", "config", "get", "nvme0"}),
                "PORT  SMBUS FREQUENCY  UNIT SIZE\n"
                "   0                -         64\n"
                "   1          100 kHz         64\n");
    expect_text(Bench().run({"nvme", "config", "set", "nvme0", "--port", "1", "--frequency", "400",
                             "--unit-size", "128"}),
                "                 BEFORE   AFTER\n"
                "SMBus frequency  100 kHz  400 kHz\n"
                "unit size        64       128\n");
    expect_json(
        Bench().run({"nvme", "config", "set", "nvme0", "--clear-changes", "0xffff", "--json"}),
        R"({"endpoint": "nvme0", "health_status_change": 65535})");
    expect_error(
        Bench().run({"nvme", "config", "get", "nvme0", "--port", "9"}), 1,
        "sideband-sim: nvme config get: nvme0: Configuration Get (MCTP Transmission Unit Size) of "
        "port 9 failed: status 0x04 (Invalid Parameter) at request byte 11, bit 0");
}

TEST(NvmeVpd, IsReadAndWritten) {
    expect_text(Bench().run({"nvme", "vpd", "read", "nvme0", "--length", "18"}),
                "0000  01 02 41 42 43 ff ff ff ff ff ff ff ff ff ff ff  ..ABC...........\n"
                "0010  ff ff                                            ..\n");
    expect_json(
        Bench().run({"nvme", "vpd", "read", "nvme0", "--offset", "2", "--length", "3", "--json"}),
        R"({"endpoint": "nvme0", "dofst": 2, "dlen": 3, "data": "414243"})");
    expect_text(Bench().run({"nvme", "vpd", "write", "nvme0", "2", "44 45"}),
                "2 bytes written at 2\n");
    expect_error(Bench().run({"nvme", "vpd", "read", "nvme0", "--offset", "512"}), 1,
                 "sideband-sim: nvme vpd read: nvme0: VPD Read of 256 bytes at 512 failed: status "
                 "0x04 (Invalid Parameter) at request byte 8, bit 0");
}

TEST(NvmeVpd, LongDataGoInSeveralWrites) {
    Bench bench;
    bench.drive()["vpd_size"] = 1024;
    bench.drive()["vpd_writes"] = 1;
    expect_error(bench.run({"nvme", "vpd", "write", "nvme0", "0", std::string(2 * 300, '7')}), 1,
                 "sideband-sim: nvme vpd write: nvme0: VPD Write of 44 bytes at 256 failed: status "
                 "0x20 (VPD Updates Exceeded)");
}

TEST(NvmeReset, NeedsNoAnswer) {
    expect_text(Bench().run({"nvme", "reset", "nvme0"}),
                "the reset was sent; a drive that resets does not answer\n");
    Bench bench;
    bench.fault(R"({"kind": "status", "set": "management", "opcode": "0x07", "value": 7})");
    expect_error(bench.run({"nvme", "reset", "nvme0"}), 1,
                 "sideband-sim: nvme reset: nvme0: Reset failed: status 0x07 (Access Denied)");
}

TEST(NvmeLockdown, ProhibitsACommand) {
    expect_text(Bench().run({"nvme", "lockdown", "nvme0", "admin", "0x80"}),
                "admin command 0x80 (Format NVM) is prohibited\n");
    expect_json(Bench().run({"nvme", "lockdown", "nvme0", "feature", "4", "--allow", "--interface",
                             "management", "--json"}),
                R"({"endpoint": "nvme0", "scp": 2, "prhbt": false, "ifc": 2, "ofi": 4})");
    expect_error(Bench().run({"nvme", "lockdown", "nvme0", "mi", "0x40"}), 1,
                 "sideband-sim: nvme lockdown: nvme0: Lockdown of NVMe-MI command 0x40 "
                 "(reserved) failed: status code type 1 (Command Specific Status), status code "
                 "0x28 (Prohibition of Command "
                 "Execution Not Supported)");
}

// ---- Firmware ----

TEST(NvmeFirmware, IsDownloadedCommittedAndActive) {
    const TemporaryFile image(image_of("EX11", 10001));
    const Json document =
        expect_document(Bench().run({"nvme", "fw-download", "nvme0", image.path(), "--commit",
                                     "replace-activate", "--slot", "3", "--reset", "--json"}));
    EXPECT_EQ(document["bytes"], 10001);
    EXPECT_EQ(document["active_slot"], 3);
    EXPECT_EQ(document["next_slot"], 0);
    EXPECT_EQ(document["frs3"], "EX11");
}

TEST(NvmeFirmware, ShowsItsProgressInLines) {
    const TemporaryFile image(image_of("EX11", 16384));
    const Outcome run =
        Bench().run({"nvme", "fw-download", "nvme0", image.path(), "--commit", "replace-activate"});
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
    Bench bench;
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
    Bench refusing;
    refusing.fault(R"({"kind": "status", "set": "admin", "opcode": "0x11", "value": 2})");
    EXPECT_EQ(refusing.run({"nvme", "fw-download", "nvme0", image.path()}).err,
              start +
                  "nvme0: Firmware Image Download failed: status 0x02 (Internal Error), at "
                  "byte 0 of 8192; update status 206: the endpoint refused a piece\n");
    Bench silent;
    silent.fault(R"({"kind": "no_answer", "set": "admin", "opcode": "0x11", "count": 0})");
    EXPECT_EQ(silent.run({"nvme", "fw-download", "nvme0", image.path()}).err,
              start +
                  "nvme0: Firmware Image Download failed: no answer, at byte 0 of 8192; "
                  "update status 204: an exchange failed\n");
}

TEST(NvmeFirmware, AFileThatIsNoImageEndsWithThree) {
    const std::string start = "sideband-sim: nvme fw-download: ";
    expect_error(Bench().run({"nvme", "fw-download", "nvme0", "/nowhere/image"}), 3,
                 start + "/nowhere/image: cannot be opened for reading and writing");
    expect_error(Bench().run({"nvme", "fw-download", "nvme0", "/dev/null"}), 3,
                 start + "/dev/null: is no regular file, or has changed meanwhile");
    const TemporaryFile empty("");
    expect_error(Bench().run({"nvme", "fw-download", "nvme0", empty.path()}), 3,
                 start + empty.path() + ": the image is empty");
}

TEST(NvmeFirmware, CtrlCEndsADownload) {
    const TemporaryFile image(image_of("EX11", 4 << 20));
    const TemporaryFile board(Bench().board());
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
    expect_error(Bench().run({"nvme", "fw-commit", "nvme0", "--action", "replace", "--slot", "2"}),
                 1,
                 "sideband-sim: nvme fw-commit: nvme0: Firmware Commit failed: status code type 1 "
                 "(Command Specific Status), status code 0x07 (Invalid Firmware Image)");
    expect_text(
        Bench().run({"nvme", "fw-commit", "nvme0", "--action", "activate-now", "--slot", "2"}),
        "committed\n"
        "\n"
        "SLOT  REVISION  STATE\n"
        "   1  EX10\n"
        "   2  EX09      active\n");
}

TEST(NvmeFirmware, ACommitThatNeedsAResetHasWorked) {
    Bench bench;
    bench.fault(R"({"kind": "completion", "set": "admin", "opcode": "0x10", "sct": 1, "sc": 16})");
    const Json document = expect_document(
        bench.run({"nvme", "fw-commit", "nvme0", "--action", "activate", "--json"}));
    EXPECT_EQ(document["activation_needs"], "an NVM subsystem reset");
}

// ---- Namespaces and media ----

TEST(NvmeNamespaces, AreListed) {
    expect_text(Bench().run({"nvme", "ns", "list", "nvme0"}),
                "NSID  ATTACHED   BLOCKS  USED  BLOCK SIZE       SIZE\n"
                "   1  yes       1048576  1000         512  536.87 MB\n"
                "   3  no           1024     0        4096    4.19 MB\n");
}

TEST(NvmeNamespaces, AreCreatedAttachedAndDeleted) {
    expect_json(Bench().run({"nvme", "ns", "create", "nvme0", "--blocks", "2048", "--lbaf", "1",
                             "--shared", "--json"}),
                R"({"endpoint": "nvme0", "nsid": 2})");
    expect_text(Bench().run({"nvme", "ns", "attach", "nvme0", "3"}),
                "namespace 3 is attached to controller 1\n");
    expect_text(Bench().run({"nvme", "ns", "detach", "nvme0", "3", "--controller", "5"}),
                "namespace 3 is detached from controller 5\n");
    expect_text(Bench().run({"nvme", "ns", "delete", "nvme0", "3", "--yes"}),
                "namespace 3 has been deleted\n");
    expect_error(
        Bench().run({"nvme", "ns", "attach", "nvme0", "1"}), 1,
        "sideband-sim: nvme ns attach: nvme0: Namespace Attachment (attach) of namespace 1 "
        "failed: status code type 1 (Command Specific Status), status code 0x18 "
        "(Namespace Already Attached)");
}

TEST(NvmeFormat, KeepsTheFormatUnlessToldOtherwise) {
    expect_json(Bench().run({"nvme", "format", "nvme0", "3", "--controller", "5", "--yes",
                             "--erase", "crypto", "--json"}),
                R"({"endpoint": "nvme0", "nsid": 3, "lbaf": 1, "ses": 2})");
    expect_text(Bench().run({"nvme", "format", "nvme0", "0xffffffff", "--lbaf", "1", "--yes"}),
                "every namespace has been formatted with LBA format 1\n");
    expect_error(Bench().run({"nvme", "format", "nvme0", "1", "--lbaf", "7", "--yes"}), 1,
                 "sideband-sim: nvme format: nvme0: Format NVM of namespace 1 failed: status code "
                 "type 1 (Command Specific Status), status code 0x0a (Invalid Format)");
}

TEST(NvmeSanitize, IsStartedAndFollowedToItsEnd) {
    const Outcome started = Bench().run({"nvme", "sanitize", "nvme0", "block-erase", "--yes"});
    EXPECT_EQ(started.status, 0) << started.err;
    EXPECT_TRUE(contains(started.out, "sstat   0x0002 (in progress)\n")) << started.out;
    EXPECT_TRUE(contains(started.out, "scdw10  0x00000002\n")) << started.out;
    const Outcome done = Bench().run({"nvme", "sanitize", "nvme0", "overwrite", "--passes", "2",
                                      "--pattern", "0xa5a5a5a5", "--invert", "--unrestricted",
                                      "--no-deallocate", "--yes", "--wait"});
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_TRUE(contains(done.out, "\n100 %\nsprog   65535\n")) << done.out;
    EXPECT_TRUE(contains(done.out, " (completed)\nscdw10  0x0000032b\n")) << done.out;
    Bench failing;
    failing.drive()["sanitize_fails"] = true;
    const Outcome failed =
        failing.run({"nvme", "sanitize", "nvme0", "crypto-erase", "--yes", "--wait"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(
        failed.err,
        "sideband-sim: nvme sanitize: nvme0: the sanitize operation failed: the drive says so "
        "in its log\n");
}

TEST(NvmeConfirmation, WhatDestroysDataNeedsYes) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"nvme", "format", "nvme0", "1"},
         "nvme format: Format NVM destroys what namespace 1 of nvme0 holds: this needs --yes"},
        {{"nvme", "sanitize", "nvme0", "overwrite"},
         "nvme sanitize: Sanitize destroys all that nvme0 holds: this needs --yes"},
        {{"nvme", "ns", "delete", "nvme0", "0xffffffff"},
         "nvme ns delete: This deletes every namespace of nvme0 with all data: this needs --yes"},
    };
    for (const auto& [arguments, error] : cases) {
        expect_error(Bench().run(arguments), 2, std::string("sideband-sim: ") + error);
    }
}

TEST(NvmeConfirmation, IsAskedForOnATerminal) {
    const std::vector<std::string> format = {"nvme", "format", "nvme0", "1"};
    const std::string question =
        "Format NVM destroys what namespace 1 of nvme0 holds. Go on? [y/N] ";
    for (const char* yes : {"y\n", "Y\n", "yes\n"}) {
        const Outcome run = run_tool_typing(format, yes);
        EXPECT_EQ(run.status, 0) << yes;
        EXPECT_EQ(run.err, question);
        EXPECT_EQ(run.out, "namespace 1 has been formatted with LBA format 0\n");
    }
    for (const char* no : {"\n", "n\n", "yesterday\n", "\x04"}) {
        const Outcome run = run_tool_typing(format, no);
        EXPECT_EQ(run.status, 2) << no;
        EXPECT_EQ(run.err,
                  question + "sideband-sim: nvme format: not confirmed: nothing was done\n");
        EXPECT_EQ(run.out, "");
    }
}

// ---- Errors ----

TEST(NvmeErrors, ADeviceThatIsNoDriveIsNotAsked) {
    expect_error(Bench().run({"nvme", "health", "gpu0"}), 1,
                 "sideband-sim: nvme health: gpu0: the bring-up of NVMe-MI failed: the device does "
                 "not speak NVMe-MI");
    expect_error(
        Bench().run({"nvme", "health", "dead0"}), 1,
        "sideband-sim: nvme health: dead0: Get Endpoint ID failed: no acknowledge from i2c:1:0x50");
}

TEST(NvmeErrors, AControllerThatIsNotThereIsAnInvalidParameter) {
    const Outcome run =
        Bench().run({"nvme", "log", "smart", "nvme0", "--controller", "2", "--json"});
    EXPECT_EQ(run.status, 1);
    const Json error = one_document(run.out)["error"];
    EXPECT_EQ(error["message"],
              "nvme0: Get Log Page (0x02) failed: status 0x04 (Invalid Parameter) at request byte "
              "6, bit 0");
    EXPECT_EQ(error["status"], 4);
    EXPECT_EQ(error["status_name"], "Invalid Parameter");
    EXPECT_EQ(error["parameter_error_location"].dump(), R"({"byte":6,"bit":0})");
}

TEST(HostileNvme, AnswersThatAreCutAreReported) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"kind": "no_answer", "set": "management", "opcode": "0x01", "count": 0})",
         "no answer"},
        {R"({"kind": "truncate", "set": "management", "opcode": "0x01", "count": 0, "length": 3})",
         "the answer has 3 bytes only"},
        {R"({"kind": "truncate", "set": "management", "opcode": "0x01", "count": 0, "length": 12})",
         "the answer does not fit the request"},
        {R"({"kind": "status", "set": "management", "opcode": "0x01", "value": 224})",
         "status 0xe0 (vendor specific)"},
    };
    for (const auto& [fault, reason] : cases) {
        SCOPED_TRACE(fault);
        Bench bench;
        bench.fault(fault);
        expect_error(bench.run({"nvme", "health", "nvme0"}), 1,
                     std::string("sideband-sim: nvme health: nvme0: NVM Subsystem Health Status "
                                 "Poll failed: ") +
                         reason);
    }
}

TEST(HostileNvme, ALogPageThatIsCutIsNoLogPage) {
    Bench bench;
    bench.fault(R"({"kind": "truncate", "set": "admin", "opcode": "0x02", "length": 500})");
    const Outcome run = bench.run({"nvme", "log", "smart", "nvme0"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              "sideband-sim: nvme log smart: nvme0: Get Log Page (0x02) failed: 481 of 512 bytes "
              "came\n");
}

TEST(NvmeErrors, WrongUsageEndsWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"nvme"}, "nvme: a command is required"},
        {{"nvme", "identify"}, "nvme identify: a command is required"},
        {{"nvme", "identify", "namespace", "nvme0"}, "nvme identify namespace: NSID is required"},
        {{"nvme", "feature", "get", "nvme0", "4", "--select", "last"},
         "nvme feature get: --select: last is none of current|default|saved|capabilities"},
        {{"nvme", "config", "set", "nvme0"},
         "nvme config set: --frequency, --unit-size or --clear-changes is required"},
        {{"nvme", "config", "set", "nvme0", "--unit-size", "64"},
         "nvme config set: --port is required"},
        {{"nvme", "vpd", "write", "nvme0", "0", "1"},
         "nvme vpd write: 1: the data are given as pairs of hex digits"},
        {{"nvme", "fw-download", "nvme0", "image", "--chunk-size", "30"},
         "nvme fw-download: --chunk-size must be a multiple of 4"},
        {{"nvme", "sanitize", "nvme0", "gently"},
         "nvme sanitize: ACTION: gently is none of "
         "exit-failure|block-erase|overwrite|crypto-erase"},
    };
    for (const auto& [arguments, error] : cases) {
        SCOPED_TRACE(error);
        const Outcome run = Bench().run(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.err.starts_with(std::string("sideband-sim: ") + error)) << run.err;
    }
}

TEST(NvmeNames, AreThoseOfTheStandards) {
    EXPECT_EQ(tool::nvmemi_status_name(0x20), "VPD Updates Exceeded");
    EXPECT_EQ(tool::nvmemi_status_name(0x08), "Unable to Abort");
    EXPECT_EQ(tool::nvmemi_status_name(0x1F), "reserved");
    EXPECT_EQ(tool::nvmemi_status_name(0xE0), "vendor specific");
    EXPECT_EQ(tool::nvme_status_name(0, 0x0B), "Invalid Namespace or Format");
    EXPECT_EQ(tool::nvme_status_name(1, 0x0B), "Firmware Activation Requires Conventional Reset");
    EXPECT_EQ(tool::nvme_status_name(2, 0x81), "Unrecovered Read Error");
    EXPECT_EQ(tool::nvme_status_name(3, 0x01), "Asymmetric Access Persistent Loss");
    EXPECT_EQ(tool::nvme_status_name(3, 0x04), "reserved");
    EXPECT_EQ(tool::nvme_status_name(4, 0x01), "reserved");
    EXPECT_EQ(tool::nvme_status_name(7, 0x01), "vendor specific");
    EXPECT_EQ(tool::nvme_status_name(0, 0xC0), "vendor specific");
    EXPECT_EQ(tool::nvme_status_type_name(2), "Media and Data Integrity Errors");
    EXPECT_EQ(tool::nvmemi_command_name(0x07), "Reset");
    EXPECT_EQ(tool::nvme_admin_command_name(0x24), "Lockdown");
    EXPECT_EQ(tool::nvme_feature_name(0x81), "Host Identifier");
}

}  // namespace
