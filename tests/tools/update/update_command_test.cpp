// SPDX-License-Identifier: Apache-2.0
// Tests of firmware updates with the tool: good ones, bad files, progress, Ctrl-C.
#include <csignal>
#include <cstdlib>

#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::card_package;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::file_of;
using tool_test::FirmwareBoard;
using tool_test::holds_request;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::TemporaryFile;

constexpr uint8_t kRequestUpdate = 0x10;
constexpr uint8_t kActivateFirmware = 0x1A;
constexpr uint8_t kCancelUpdate = 0x1D;

const char* const kVersionsText =
    "                BEFORE  AFTER\n"
    "active          1.0.0   1.1.0\n"
    "pending         -       -\n"
    "component 10:1  fw-1.0  fw-1.1\n";

TEST(FwUpdate, BringsTheNewVersionOverBothTransports) {
    const TemporaryFile package(file_of(card_package()));
    for (const char* card : {"nic0", "nic1"}) {
        const Outcome update = FirmwareBoard().run({"pldm", "fw-update", card, package.path()});
        EXPECT_EQ(update.status, 0);
        EXPECT_EQ(update.err, "");
        ASSERT_GE(update.out.size(), std::string(kVersionsText).size());
        EXPECT_EQ(update.out.substr(update.out.size() - std::string(kVersionsText).size()),
                  kVersionsText);
    }
}

TEST(FwUpdate, SendsTheImageAsItIsInTheFile) {
    const TemporaryFile package(file_of(card_package(10000)));
    const TemporaryFile same(std::string(10000, 'Z'));
    const TemporaryFile other(std::string(9999, 'Z') + "Y");
    for (const char* card : {"nic0", "nic1"}) {
        FirmwareBoard board;
        board.firmware()["components"][0]["expect_file"] = same.path();
        EXPECT_EQ(board.run({"pldm", "fw-update", card, package.path()}).status, 0);
        board.firmware()["components"][0]["expect_file"] = other.path();
        const Outcome spoilt = board.run({"pldm", "fw-update", card, package.path()});
        EXPECT_EQ(spoilt.status, 1);
        EXPECT_EQ(spoilt.err,
                  "sideband-sim: pldm fw-update: " + std::string(card) +
                      ": the verification of component 0 failed: the device reports verify result "
                      "0x01 (verification failure) (mark 0x58)\n");
    }
}

TEST(FwUpdate, ShowsProgressInLinesWhereThereIsNoTerminal) {
    const TemporaryFile package(file_of(card_package(2000)));
    const Outcome update = FirmwareBoard().run({"pldm", "fw-update", "nic0", package.path()});
    EXPECT_EQ(update.out.substr(0, 6), " 10 %\n");
    EXPECT_TRUE(contains(update.out, "\n 55 %  1064 B of 2000 B, ")) << update.out;
    EXPECT_TRUE(contains(update.out, "/s, 00:00 left\n")) << update.out;
    EXPECT_TRUE(contains(update.out, "\n100 %  2000 B of 2000 B, ")) << update.out;
    EXPECT_FALSE(contains(update.out, "\r")) << update.out;
}

TEST(FwUpdate, DrawsABarOnATerminal) {
    setenv("TERM", "vt100", 1);
    const TemporaryFile board(FirmwareBoard().text());
    const TemporaryFile package(file_of(card_package(2000)));
    const std::vector<std::string> arguments{"--board",   board.path(), "pldm",
                                             "fw-update", "nic0",       package.path()};
    const Outcome wide = tool_test::run_tool_on_terminal(arguments, 120);
    EXPECT_EQ(wide.status, 0) << wide.err;
    EXPECT_TRUE(contains(wide.out, "\r[##----------------------]  10 %\x1b[K")) << wide.out;
    EXPECT_TRUE(contains(wide.out, "\r[########################] 100 %  2000 B of 2000 B, "))
        << wide.out;
    // The terminal puts a carriage return before each line end.
    EXPECT_TRUE(contains(wide.out, " left\x1b[K\r\n                BEFORE")) << wide.out;
    const Outcome narrow = tool_test::run_tool_on_terminal(arguments, 40);
    EXPECT_TRUE(contains(narrow.out, "\r[########################] 100 %  2000 \x1b[K\r\n"))
        << narrow.out;
    setenv("TERM", "dumb", 1);
    const Outcome dumb = tool_test::run_tool_on_terminal(arguments, 120);
    EXPECT_FALSE(contains(dumb.out, "\x1b")) << dumb.out;
    EXPECT_TRUE(contains(dumb.out, "100 %  2000 B of 2000 B, ")) << dumb.out;
}

TEST(FwUpdate, GivesProgramsVersionsBytesAndTimeAndNoProgress) {
    const TemporaryFile package(file_of(card_package()));
    const Outcome update =
        FirmwareBoard().run({"--json", "pldm", "fw-update", "nic0", package.path()});
    EXPECT_EQ(update.status, 0);
    EXPECT_EQ(update.err, "");
    const Json document = one_document(update.out);
    EXPECT_EQ(document["endpoint"], "nic0");
    EXPECT_EQ(document["package"], package.path());
    EXPECT_EQ(document["package_version"], "card 1.1.0");
    EXPECT_EQ(document["maximum_transfer_size"], 56);
    EXPECT_EQ(document["before"]["active_component_image_set_version"], "1.0.0");
    EXPECT_EQ(document["after"]["active_component_image_set_version"], "1.1.0");
    EXPECT_EQ(document["after"]["components"][0]["active_component_version"], "fw-1.1");
    EXPECT_EQ(document["bytes"], 1000);
    EXPECT_GT(document["duration_us"].get<uint64_t>(), 1000U);
}

TEST(FwUpdate, SaysHowAPendingVersionBecomesActive) {
    FirmwareBoard board;
    board.firmware()["activation"] = "reset";
    board.firmware()["components"][0]["activation_methods"] = 0x20;
    tool::Package package = card_package();
    package.components[0].activation_method = 0;
    const TemporaryFile file(file_of(package));
    const Outcome update = board.run({"pldm", "fw-update", "nic0", file.path()});
    EXPECT_EQ(update.status, 0) << update.err;
    EXPECT_TRUE(contains(update.out,
                         "                BEFORE  AFTER\n"
                         "active          1.0.0   1.0.0\n"
                         "pending         -       1.1.0\n"
                         "component 10:1  fw-1.0  fw-1.0\n"
                         "The new firmware is pending; it becomes active by: AC power cycle.\n"))
        << update.out;
}

/// MaximumTransferSize that is offered to a card of a vendor.
int transfer_size(const char* vendor, const char* card, std::vector<std::string> options = {}) {
    FirmwareBoard board;
    board.firmware()["descriptors"][0]["hex"] = vendor;
    tool::Package package = card_package();
    package.records[0].descriptors.erase(package.records[0].descriptors.begin());
    const TemporaryFile file(file_of(package));
    options.insert(options.begin(), {"pldm", "fw-update", card, file.path(), "--json"});
    const Outcome update = board.run(options);
    EXPECT_EQ(update.err, "");
    return one_document(update.out).value("maximum_transfer_size", 0).get<int>();
}

TEST(FwUpdate, OffersTheTransferSizeOfTheVendorAndTheTransport) {
    EXPECT_EQ(transfer_size("b315", "nic0"), 56);
    EXPECT_EQ(transfer_size("b315", "nic1"), 128);
    EXPECT_EQ(transfer_size("8680", "nic1"), 256);
    // A network card of this vendor would take 56 over SMBus, its graphics card does not.
    EXPECT_EQ(transfer_size("8680", "nic0"), 32);
    // No row for SMBus, and no row at all.
    EXPECT_EQ(transfer_size("df10", "nic0"), 56);
    EXPECT_EQ(transfer_size("3412", "nic1"), 128);
    EXPECT_EQ(transfer_size("b315", "nic0", {"--transfer-size", "200"}), 200);
}

TEST(FwUpdate, QueryShowsTheVersionsAndChangesNothing) {
    const TemporaryFile package(file_of(card_package()));
    const TemporaryFile capture("");
    const Outcome query = FirmwareBoard().run(
        {"pldm", "fw-update", "nic0", package.path(), "--query", "--capture", capture.path()});
    EXPECT_EQ(query.status, 0);
    EXPECT_EQ(query.err, "");
    EXPECT_EQ(query.out,
              "                ACTIVE  PENDING  PACKAGE\n"
              "image set       1.0.0   -        1.1.0\n"
              "component 10:1  fw-1.0  -        fw-1.1\n");
    EXPECT_TRUE(holds_request(capture, 0x01));
    EXPECT_FALSE(holds_request(capture, kRequestUpdate));
    const Json document =
        one_document(FirmwareBoard()
                         .run({"pldm", "fw-update", "nic1", package.path(), "--query", "--json"})
                         .out);
    EXPECT_EQ(document["package_version"], "card 1.1.0");
    EXPECT_EQ(document["device"]["active_component_image_set_version"], "1.0.0");
    EXPECT_EQ(document["matching_records"].dump(),
              R"([{"component_image_set_version":"1.1.0","components":)"
              R"([{"component_classification":10,"component_identifier":1,)"
              R"("component_version":"fw-1.1"}]}])");
}

TEST(FwUpdate, ForceAsksForAComponentThatTheDeviceWouldRefuse) {
    FirmwareBoard board;
    board.firmware()["only_newer"] = true;
    tool::Package package = card_package();
    package.components[0].comparison_stamp = 0x100;
    const TemporaryFile file(file_of(package));
    const Outcome refused = board.run({"pldm", "fw-update", "nic0", file.path()});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "sideband-sim: pldm fw-update: nic0: component 0 failed: the device refuses it: its "
              "comparison stamp is that of the firmware in the device (code 0x01)\n");
    const Outcome forced = board.run({"pldm", "fw-update", "nic0", file.path(), "--force"});
    EXPECT_EQ(forced.status, 0) << forced.err;
    EXPECT_TRUE(contains(forced.out, kVersionsText)) << forced.out;
}

TEST(FwUpdate, ABadFileIsRefusedBeforeTheDeviceIsAsked) {
    const std::string good = file_of(card_package());
    tool::Package crowd = card_package(0);
    crowd.components.resize(256, crowd.components[0]);
    tool::Package nobody = card_package();
    nobody.records.clear();
    const struct {
        std::string content;
        const char* why;
    } cases[] = {
        {"", "this is no PLDM firmware package"},
        {good.substr(0, 60), "the file ends inside the package header"},
        {good.substr(0, 40) + "?" + good.substr(41), "the header checksum is wrong"},
        {file_of(nobody), "the package is for no device"},
        {file_of(crowd), "the package has 256 components, 255 are the most"},
    };
    for (const auto& bad : cases) {
        const TemporaryFile file(bad.content);
        const TemporaryFile capture("");
        expect_error(FirmwareBoard().run(
                         {"pldm", "fw-update", "nic0", file.path(), "--capture", capture.path()}),
                     3, "sideband-sim: pldm fw-update: " + file.path() + ": " + bad.why);
        EXPECT_FALSE(holds_request(capture, 0x01)) << bad.why;
    }
    expect_error(FirmwareBoard().run({"pldm", "fw-update", "nic0", "/nowhere/x"}), 3,
                 "sideband-sim: pldm fw-update: /nowhere/x: No such file or directory");
}

TEST(FwUpdate, OptionsThatContradictOrFallOutOfRangeAreWrongUsage) {
    const FirmwareBoard board;
    EXPECT_EQ(board.run({"pldm", "fw-update", "nic0"}).status, 2);
    EXPECT_EQ(board.run({"pldm", "fw-update", "nic0", "x", "--query", "--force"}).status, 2);
    EXPECT_EQ(board.run({"pldm", "fw-update", "nic0", "x", "--transfer-size", "31"}).status, 2);
}

/// Interrupts an update that has begun.
Outcome interrupt(const char* card, int signal, const TemporaryFile& capture, FirmwareBoard board) {
    const TemporaryFile file(board.text());
    const TemporaryFile package(file_of(card_package(4 << 20)));
    return tool_test::run_tool_until({"--board", file.path(), "pldm", "fw-update", card,
                                      package.path(), "--capture", capture.path()},
                                     "\n 15 %  ", signal);
}

TEST(FwUpdate, CtrlCCancelsTheUpdateOnTheDevice) {
    for (const char* card : {"nic0", "nic1"}) {
        const TemporaryFile capture("");
        const Outcome stopped = interrupt(card, SIGINT, capture, FirmwareBoard());
        EXPECT_EQ(stopped.status, 1);
        EXPECT_EQ(stopped.err, "sideband-sim: pldm fw-update: " + std::string(card) +
                                   ": the update failed: cancelled, the device has left update "
                                   "mode\n");
        EXPECT_TRUE(holds_request(capture, kCancelUpdate));
        EXPECT_FALSE(holds_request(capture, kActivateFirmware));
        EXPECT_FALSE(contains(stopped.out, "BEFORE")) << stopped.out;
    }
}

TEST(FwUpdate, TerminationCancelsTheUpdateToo) {
    const TemporaryFile capture("");
    EXPECT_EQ(interrupt("nic0", SIGTERM, capture, FirmwareBoard()).status, 1);
    EXPECT_TRUE(holds_request(capture, kCancelUpdate));
}

TEST(FwUpdate, CtrlCSaysWhereTheDeviceDoesNotTakeTheCancellation) {
    FirmwareBoard board;
    board.fault("completion_code", "cancel_update", {{"value", 0x86}, {"count", 0}});
    const TemporaryFile capture("");
    const Outcome stopped = interrupt("nic0", SIGINT, capture, board);
    EXPECT_EQ(stopped.status, 1);
    EXPECT_EQ(stopped.err,
              "sideband-sim: pldm fw-update: nic0: the update failed: cancelled, the device may "
              "still be in update mode: its answer to CancelUpdate was completion code 0x86 "
              "(BUSY_IN_BACKGROUND)\n");
}

}  // namespace
