// SPDX-License-Identifier: Apache-2.0
// The update of a card with a package file: the package, the PCIe session, the device records.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <functional>

#include "pldm/update/nic_fixture.h"

namespace {

using test::load;
using test::Outcome;
using test::piece;
using test::port;
using test::Texts;

std::string announcement(int step, int records, int components) {
    return "average percentage     = " + std::to_string(step) +
           "\n  device_record_num    = " + std::to_string(records) +
           "\n  component_num        = " + std::to_string(components) +
           "\n====================parsing file finishes==============\n";
}

class PldmNicUpdate : public test::NicUpdateTest {};

// ---- Success ----

TEST_F(PldmNicUpdate, RunsFromTheFileToTheActivation) {
    write_package({3});
    print_ten_percent();
    device.loads = {load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(commands(), "01 02 10 13 14 1a");
    EXPECT_EQ(named(), Texts{"r0"});
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 78, 97, 98}));
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(ctx.record_index, 1);
    EXPECT_TRUE(outcome.out.starts_with(announcement(90, 1, 1) + "==========cap during"))
        << outcome.out;
    EXPECT_TRUE(
        outcome.out.ends_with("activation time: 0\n"
                              "PLDM_FW_UPDATE_STATE_READY_XFER e, ctx->component_index = 1\n"));
}

TEST_F(PldmNicUpdate, StartsAtTheFirstRecordAndAtTenPercentWhateverWasThere) {
    write_package({3});
    ctx.record_index = 7;
    ctx.last_percentage = 99;
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(named(), Texts{"r0"});
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 78, 97, 98}));
}

TEST_F(PldmNicUpdate, OfThreeComponents) {
    write_package({3}, 3);
    device.loads = {load(), load(), load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.starts_with(announcement(90, 1, 3)));
    EXPECT_EQ(commands(), "01 02 10 13 13 13 14 14 14 1a");
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

// ---- The package ----

TEST_F(PldmNicUpdate, APackageThatIsNotThereLeavesMark53) {
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x53);
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(sessions(), Texts());
    EXPECT_EQ(progress(), std::vector<unsigned>());
}

TEST_F(PldmNicUpdate, APackageThatIsBrokenLeavesMark53) {
    write_file(test::counting(200));
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x53);
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(sessions(), Texts());
}

TEST_F(PldmNicUpdate, APackageWithoutDeviceRecordsIsRefusedInFrontOfTheDivision) {
    write_package({});
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x53);
    EXPECT_EQ(port().syslog, Texts{"pldm_nic_update, the package has no device record\n"});
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(sessions(), Texts());
}

TEST_F(PldmNicUpdate, MoreComponentsThanAnIndexCountsAreRefusedInFrontOfTheFirstRequest) {
    write_package({3}, 256);
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x53);
    EXPECT_EQ(port().syslog,
              Texts{"pldm_nic_update, the package has 256 components, more than 255\n"});
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(sessions(), Texts());
}

TEST_F(PldmNicUpdate, AsManyComponentsAsAnIndexCountsAreUpdated) {
    write_package({3}, 255);
    device.usual[0x02] = test::to_hex(test::parameters(test::known(20)));
    tool::Package package = test::update_package(255);
    package.records[0].components.resize(20);
    package.records[0].descriptors.clear();
    write_file(tool::build_package(package));
    device.loads.assign(20, load());
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(ctx.component_index, 255);
    EXPECT_EQ(ctx.state, 6);
    EXPECT_EQ(device.messages, 4 * 20);
    EXPECT_EQ(progress().back(), 98u);
}

TEST_F(PldmNicUpdate, AStepOfMoreRecordsThanPercentIsZero) {
    write_package(std::vector<uint8_t>(255, 1));
    EXPECT_TRUE(update().out.starts_with(announcement(0, 255, 1)));
    EXPECT_EQ(ctx.pldm.completion_code, 0x54);
}

TEST_F(PldmNicUpdate, APackageThatIsRemovedMeanwhileFailsCleanly) {
    write_package({3}, 2);
    device.loads = {load(), load()};
    device.on_receive = [this] { std::remove(path.c_str()); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(commands(), "01 02 10 13 13 14");
    EXPECT_EQ(device.dialogue_of({"= "}), Texts());
    EXPECT_EQ(ctx.state, 3);
}

TEST_F(PldmNicUpdate, APackageThatIsReplacedMeanwhileFailsCleanly) {
    for (const size_t more : {0u, 1u, 100u}) {
        write_package({3}, 2);
        test::Bytes other = tool::build_package(test::update_package(2));
        other.resize(other.size() + more, 0x5A);
        device.dialogue.clear();
        device.loads = {load(), load()};
        device.on_receive = [&] {
            // Another file under the same name, as an installer puts it there.
            const std::string old = path + ".old";
            std::rename(path.c_str(), old.c_str());
            write_file(other);
            std::remove(old.c_str());
        };
        EXPECT_EQ(update().result, 0) << more;
        EXPECT_EQ(commands(), "01 02 10 13 13 14");
        EXPECT_EQ(device.dialogue_of({"= "}), Texts{"= 00 05 15 01"});
        EXPECT_EQ(port().syslog.back(),
                  "pldm_request_fw_data, " + path + " has changed since it was parsed\n");
        EXPECT_EQ(ctx.state, 3);
        EXPECT_EQ(ctx.component_index, 1);
        ctx.component_index = 0;
        bind();
    }
}

TEST_F(PldmNicUpdate, APackageThatIsWrittenToMeanwhileFailsCleanly) {
    write_package({3}, 2);
    device.loads = {load(), load()};
    device.on_receive = [this] {
        // In its place: inode and size stay, the time does not.
        const timespec times[2] = {{1, 0}, {1, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.dialogue_of({"= "}), Texts{"= 00 05 15 01"});
    EXPECT_EQ(ctx.state, 3);
}

class PldmTouchedPackage : public PldmNicUpdate {
protected:
    struct stat status() const {
        struct stat found {};
        EXPECT_EQ(stat(path.c_str(), &found), 0);
        return found;
    }

    /// Does this to the package until its time of the last change of state shows it; the clock of
    /// a file system may stand still for some milliseconds.
    template <typename Change>
    void touch(const Change& change) const {
        const struct stat old = status();
        const auto is_same = [&old](const struct stat& now) {
            return now.st_ctim.tv_sec == old.st_ctim.tv_sec &&
                   now.st_ctim.tv_nsec == old.st_ctim.tv_nsec;
        };
        do {
            change();
        } while (is_same(status()));
    }

    void expect_refused_from_the_second_piece_on(const std::function<void()>& change) {
        write_package({3}, 2);
        device.loads = {{piece(0, 32), piece(0, 32)}};
        int receives = 0;
        device.on_receive = [&] {
            if (++receives == 2) {
                touch(change);
            }
        };
        EXPECT_EQ(update().result, 0);
        const Texts answers = device.dialogue_of({"= "});
        ASSERT_EQ(answers.size(), 2u);
        EXPECT_TRUE(answers[0].starts_with("= 00 05 15 00 00 01")) << answers[0];
        EXPECT_EQ(answers[1], "= 00 05 15 01");
        EXPECT_EQ(port().syslog.back(),
                  "pldm_request_fw_data, " + path + " has changed since it was parsed\n");
        EXPECT_EQ(ctx.component_index, 1);
    }
};

TEST_F(PldmTouchedPackage, IsNoticedWhereItsTimeOfModificationIsSetBack) {
    expect_refused_from_the_second_piece_on([this] {
        const struct stat old = status();
        std::FILE* const file = std::fopen(path.c_str(), "r+b");
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(std::fseek(file, -1, SEEK_END), 0);
        EXPECT_NE(std::fputc(0x77, file), EOF);
        EXPECT_EQ(std::fclose(file), 0);
        const timespec times[2] = {old.st_atim, old.st_mtim};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    });
}

TEST_F(PldmTouchedPackage, IsNoticedWhereItsPermissionsChange) {
    expect_refused_from_the_second_piece_on([this] { EXPECT_EQ(chmod(path.c_str(), 0600), 0); });
}

// ---- The PCIe session ----

TEST_F(PldmNicUpdate, OpensAPcieSessionAndClosesIt) {
    write_package({3});
    device.loads = {load()};
    int seen = 0;
    device.on_receive = [&] {
        EXPECT_EQ(ctx.pcie_session, &port());
        EXPECT_EQ(ctx.pldm.mctp->pcie_session, &port());
        seen++;
    };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(seen, 4);
    EXPECT_EQ(sessions(), (Texts{"open", "close"}));
    EXPECT_EQ(ctx.pcie_session, nullptr);
    char line[60];
    std::snprintf(line, sizeof line, "Try not to close sessions, %x\n",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(&port())));
    ASSERT_FALSE(port().syslog.empty());
    EXPECT_EQ(port().syslog.front(), line);
}

TEST_F(PldmNicUpdate, TakesTheClosedSessionOutOfAnEndpointOfTheCallersToo) {
    write_package({3});
    mctp_ctx mine = *ctx.pldm.mctp;
    ASSERT_EQ(mctp_pldm_register(&mine, &ctx.pldm), 0);
    device.loads = {load()};
    device.on_receive = [&] { EXPECT_EQ(mine.pcie_session, &port()); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(sessions(), (Texts{"open", "close"}));
    EXPECT_EQ(mine.pcie_session, nullptr);
}

TEST_F(PldmNicUpdate, ClosesTheSessionBehindAnUpdateThatFailed) {
    for (const char* answer : {"00 05 10 8a", ""}) {
        write_package({3});
        device.usual[0x10] = answer;
        port().trace.clear();
        EXPECT_EQ(update().result, -1);
        EXPECT_EQ(sessions(), (Texts{"open", "close"}));
        EXPECT_EQ(ctx.pcie_session, nullptr);
        bind();
    }
}

TEST_F(PldmNicUpdate, LeavesASessionAloneThatIsOpenAlready) {
    write_package({3});
    int mine = 0;
    ctx.pcie_session = &mine;
    ctx.pldm.mctp->pcie_session = &mine;
    device.loads = {load()};
    device.on_receive = [&] { EXPECT_EQ(ctx.pldm.mctp->pcie_session, &mine); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(sessions(), Texts());
    EXPECT_EQ(ctx.pcie_session, &mine);
    EXPECT_EQ(port().syslog, Texts());
}

TEST_F(PldmNicUpdate, ASessionThatCannotBeOpenedEndsItInFrontOfTheFirstRequest) {
    write_package({3});
    port().result_calls = 0;
    port().fail_call = 1;
    const Outcome outcome = update();
    EXPECT_EQ(port().failed_call, "open");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with("failed to open libmctp_qbex_ctx\n")) << outcome.out;
    EXPECT_EQ(outcome.out.find("average percentage"), std::string::npos);
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(sessions(), Texts{"open"});
    EXPECT_EQ(ctx.pcie_session, nullptr);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(progress(), std::vector<unsigned>());
}

// ---- The records ----

TEST_F(PldmNicUpdate, WhereNoRecordMatchesLeavesMark54) {
    write_package({1, 2, 4});
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(commands(), "01 01 01");
    EXPECT_EQ(ctx.pldm.completion_code, 0x54);
    EXPECT_EQ(progress(), std::vector<unsigned>{10});
}

TEST_F(PldmNicUpdate, ADeviceThatDoesNotSayWhoItIsLeavesMark54) {
    write_package({3, 3});
    device.usual[0x01] = "";
    EXPECT_EQ(update().result, -1);
    EXPECT_EQ(commands(), "01 01");
    EXPECT_EQ(ctx.pldm.completion_code, 0x54);
}

TEST_F(PldmNicUpdate, WhereTheThirdMatchesItIsRequestedUnderTheNameOfTheFirst) {
    write_package({1, 2, 3});
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(commands(), "01 01 01 02 10 13 14 1a");
    EXPECT_EQ(named(), Texts{"r0"});
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(progress(), (std::vector<unsigned>{10, 78, 97, 98}));
}

TEST_F(PldmNicUpdate, AMatchDoesNotEndTheWalkAndAMismatchBehindItLeavesNoMark) {
    write_package({3, 1, 2});
    device.loads = {load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(commands(), "01 02 10 13 14 1a 01 01");
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_NONE);
}

TEST_F(PldmNicUpdate, WhereAllMatchEachIsRequestedUnderTheNextName) {
    write_package({3, 3, 3});
    device.loads = {load()};
    const Outcome outcome = update();
    EXPECT_EQ(outcome.result, 0);
    // The first one has taken the index behind the last component: nothing is left for the others.
    EXPECT_EQ(commands(), "01 02 10 13 14 1a 01 02 10 13 01 02 10 13");
    EXPECT_EQ(named(), (Texts{"r0", "r1", "r2"}));
    EXPECT_EQ(ctx.record_index, 3);
    for (const char* warning : {"Warning. record[1] component image has something wrong\n"
                                "component_image_string_type = 1\n"
                                "component_image_string_len  = 2\n"
                                "component_image_set_ver_string = r1\n",
                                "Warning. record[2] component image has something wrong\n"}) {
        EXPECT_NE(outcome.out.find(warning), std::string::npos) << warning;
    }
}

TEST_F(PldmNicUpdate, TheMatchedRecordIsTheOneThatMatched) {
    write_package({1, 3});
    tool::Package package = test::update_package(2);
    tool::PackageRecord other = package.records[0];
    package.records[0].descriptors = {{0x0000, {1, 0x15}, {}}};
    package.records[0].components = {0};
    other.descriptors = {{0x0000, {3, 0x15}, {}}};
    other.components = {1};
    package.records.push_back(other);
    write_file(tool::build_package(package));
    device.loads = {load()};
    device.on_receive = [this] { EXPECT_EQ(ctx.matched_record, &ctx.records[1]); };
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(device.dialogue_of({"> 84 05 13"}),
              Texts{"> 84 05 13 05 0a 00 02 00 02 01 22 33 44 01 02 76 31"});
}

TEST_F(PldmNicUpdate, ParametersThatCannotBeHadLeaveMark55) {
    for (const char* answer : {"", "00 05 02 01", "00 05 03 00", "00 05 02 00"}) {
        write_package({3});
        device.dialogue.clear();
        device.usual[0x02] = answer;
        EXPECT_EQ(update().result, -1) << answer;
        EXPECT_EQ(ctx.pldm.completion_code, 0x55);
        EXPECT_EQ(commands(), "01 02");
        bind();
    }
}

}  // namespace
