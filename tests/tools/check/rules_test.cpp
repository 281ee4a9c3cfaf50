// SPDX-License-Identifier: Apache-2.0
// Tests of the rules: devices that are right pass, and for each rule one that is wrong fails.
#include "tools/check/rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "tests/tools/check/defects.h"
#include "tests/tools/published_names.h"
#include "tools/shell/interrupt.h"

namespace {

using namespace check_test;
using tool::check::Outcome;
using tool::check::Rule;
using tool::check::rules_named;

// The replaying devices are left out: they know what was recorded and nothing else.
constexpr const char* kRight[] = {"nic0", "gpu0",  "own0",  "mpio0",  "gpu1",  "own1",
                                  "nic1", "ncsi0", "nvme0", "parts0", "drive0"};

TEST(CheckRules, HoldForTheDevicesOfTheBoard) {
    std::set<std::string> passed;
    for (const char* device : kRight) {
        for (const bool may_write : {false, true}) {
            for (const Result& result : results_of(device, may_write)) {
                EXPECT_NE(result.outcome, Outcome::kFailed)
                    << device << " " << result.rule->name << ": " << result.text;
                if (result.outcome == Outcome::kPassed) {
                    passed.insert(result.rule->name);
                    EXPECT_TRUE(may_write || !result.rule->writes) << result.rule->name;
                }
            }
        }
    }
    for (const Rule* rule : rules_named("")) {
        EXPECT_TRUE(passed.contains(rule->name)) << rule->name << " applies to no device";
    }
}

/// Whether a request changes something in a device, or may.
bool changes(const Exchange& exchange) {
    constexpr std::pair<uint8_t, uint8_t> kPldm[] = {{0, 0x01}, {2, 0x10}, {2, 0x13}, {2, 0x20},
                                                     {4, 0x03}, {5, 0x10}, {5, 0x13}, {5, 0x14},
                                                     {5, 0x1A}, {5, 0x1C}, {5, 0x1D}};
    const auto is = [&](const Match& match) { return match(exchange); };
    return is(control(0x01)) || is(control(0x08)) || is(control(0x0B)) || is(ncsi(0x00)) ||
           is(ncsi(0x01)) || is(ncsi(0x02)) || is(nvme(0x03)) || is(nvme(0x06)) || is(nvme(0x07)) ||
           std::ranges::any_of(
               kPldm, [&](const auto& command) { return is(pldm(command.first, command.second)); });
}

TEST(CheckRules, ChangeNothingUnlessTheyMay) {
    for (const char* device : kRight) {
        size_t changed = 0;
        size_t questions = 0;
        const Match count = [&](const Exchange& exchange) {
            changed += changes(exchange) ? 1 : 0;
            ++questions;
            return false;
        };
        results_of(device, false, count);
        EXPECT_EQ(changed, 0U) << device;
        EXPECT_GT(questions, 15U) << device;
        results_of(device, true, count);
        EXPECT_GT(changed, 0U) << device;
    }
}

TEST(CheckRules, LeaveNoDeviceInUpdateModeIfASignalComes) {
    const tool::SignalWatch signals;
    int requests = 0;
    int cancelled = 0;
    const Match interrupt = [&](const Exchange& exchange) {
        if (pldm(5, 0x10)(exchange)) {
            ++requests;
            std::raise(SIGINT);
        } else if (requests != 0 && pldm(5, 0x1D)(exchange)) {
            ++cancelled;
        }
        return false;
    };
    EXPECT_THROW(results_of("gpu0", true, interrupt), tool::Interrupted);
    EXPECT_EQ(requests, 1);
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(tool::SignalWatch::signal(), SIGINT);
    const tool::InterruptGuard forgets_it;
}

TEST(CheckRules, HaveNamesOfTheirOwn) {
    std::set<std::string> names;
    for (const Rule* rule : rules_named("")) {
        EXPECT_TRUE(names.insert(rule->name).second) << rule->name;
        EXPECT_EQ(std::string(rule->name).find_first_not_of("abcdefghijklmnopqrstuvwxyz-."),
                  std::string::npos)
            << rule->name;
        EXPECT_NE(std::string(rule->clause), "") << rule->name;
        EXPECT_NE(std::string(rule->text), "") << rule->name;
    }
    EXPECT_EQ(rules_named("fru.metadata.").size(), 5U);
    EXPECT_EQ(rules_named("mctp.eid.reserved-bits").size(), 1U);
    EXPECT_TRUE(rules_named("none").empty());
}

TEST(CheckRules, EachHasADeviceThatBreaksIt) {
    std::set<std::string> broken;
    for (const auto& table : {mctp_defects(), pldm_defects(), monitor_defects(), fru_defects(),
                              update_defects(), ncsi_defects(), nvme_defects()}) {
        for (const Defect& defect : table) {
            broken.insert(defect.rule);
        }
    }
    for (const Rule* rule : rules_named("")) {
        EXPECT_TRUE(broken.contains(rule->name)) << rule->name;
    }
}

/// What the rules send for a command that nobody has defined; the defects name the same numbers.
TEST(CheckRules, AskForCommandsThatNobodyHasDefined) {
    if (!tool_test::has_published_names()) {
        GTEST_SKIP() << "no list of published numbers";
    }
    const std::pair<const char*, unsigned> undefined[] = {
        {"DSP0236 MCTP control commands", 0x70},
        {"DSP0239 MCTP message types", 0x70},
        {"DSP0240 commands", 0x7F},
        {"DSP0245 PLDM types", 0x3E},
        {"DSP0267 commands", 0x7F},
        {"DSP0222 control packet types (commands)", 0x7D},
        {"NVMe-MI command opcodes", 0xBF},
        {"NVMe-MI data structure types", 0xFE},
        {"NVMe-MI configuration identifiers", 0xBF}};
    for (const auto& [table, number] : undefined) {
        size_t rows = 0;
        for (const tool::Json& row : tool_test::published_names().at(table)) {
            const tool_test::PublishedName name = tool_test::published_name(row);
            EXPECT_FALSE(name.first <= number && number <= name.last) << table << name.name;
            ++rows;
        }
        EXPECT_GT(rows, 1U) << table;
    }
}

TEST(CheckRules, FindWhatIsWrongInMctp) {
    expect_broken(mctp_defects());
}

TEST(CheckRules, FindWhatIsWrongInPldm) {
    expect_broken(pldm_defects());
}

TEST(CheckRules, FindWhatIsWrongInMonitoring) {
    expect_broken(monitor_defects());
}

TEST(CheckRules, FindWhatIsWrongInFruData) {
    expect_broken(fru_defects());
}

TEST(CheckRules, FindWhatIsWrongInFirmwareUpdate) {
    expect_broken(update_defects());
}

TEST(CheckRules, FindWhatIsWrongInNcsi) {
    expect_broken(ncsi_defects());
}

TEST(CheckRules, FindWhatIsWrongInNvmeMi) {
    expect_broken(nvme_defects());
}

}  // namespace
