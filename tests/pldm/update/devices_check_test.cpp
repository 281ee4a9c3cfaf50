// SPDX-License-Identifier: Apache-2.0
// Whether a package is for a card: the binding that is chosen, the locks, each result and message.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "pldm/pldm_fixture.h"
#include "pldm/update/card.h"

namespace {

using test::Outcome;
using test::package_for;
using test::port;
using Texts = std::vector<std::string>;

struct Kind {
    const char* name;
    const char* function;
    int32_t (*check)(const char*, pldm_fw_update_ctx*, const pldm_card_location*, mctp_ctx*,
                     plt_card_info*);
    const char* image;    ///< in the message of a failed parse
    bool one_failure;     ///< every failure is -1
    uint32_t over_smbus;  ///< flags
    const char* setup_parameter;
};

const Kind kNic{
    "Nic", "pldm_check_firmware_image", pldm_check_firmware_image, "NIC ", true, 0x10000, "100"};
const Kind kGpu{
    "Gpu", "pldm_check_GPU_firmware_image", pldm_check_GPU_firmware_image, "", false, 0x800000,
    "206"};

class CheckTest : public test::CardTest {
protected:
    CheckTest() {
        card.vendor_id = 0x8086;
        card.bus = 0x41;
        card.device = 2;
    }

    Outcome check(const Kind& kind) {
        port().syslog.clear();
        port().trace.clear();
        asked.clear();
        return test::run([&] { return kind.check(path.c_str(), &ctx, &location, &mctp, &card); });
    }

    /// The locks around the whole check, in the order of their events.
    static Texts outer_locks() {
        Texts found;
        for (const std::string& event : port().trace_of({"lock", "unlock"})) {
            if (event.find("bus") == std::string::npos) {
                found.push_back(event);
            }
        }
        return found;
    }

    void write_package(const tool::Package& package) { write_file(tool::build_package(package)); }

    pldm_card_location location{0x41, 2};
    mctp_ctx mctp{};
    plt_card_info card{};
};

const Texts kSmbusLocks{"lock channel 3", "lock global", "unlock global", "unlock channel 3"};
const Texts kPcieLocks{"lock global", "unlock global"};

class PldmCheck : public CheckTest, public ::testing::WithParamInterface<Kind> {
protected:
    PldmCheck() { card.flags = GetParam().over_smbus; }

    Outcome check() { return CheckTest::check(GetParam()); }

    static std::string message(const std::string& text) {
        return std::string("[") + GetParam().function + ":#] " + text + "\n";
    }
    /// The check has failed with this result and this message at the end of the log.
    void expect_failed(const Outcome& outcome, int32_t result, const std::string& text) const {
        EXPECT_EQ(outcome.result, GetParam().one_failure ? -1 : result);
        ASSERT_FALSE(test::logged().empty());
        EXPECT_EQ(test::logged().back(), text);
    }
    void expect_nothing_touched() const {
        EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "pcie"}), Texts());
        EXPECT_EQ(ctx.pldm.mctp, nullptr);
        EXPECT_EQ(ctx.records, nullptr);
    }
};

// ---- Results ----

TEST_P(PldmCheck, APackageWithARecordForTheCardPasses) {
    write_package(package_for({3}));
    const Outcome outcome = check();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with("1th Record pass\n")) << outcome.out;
    EXPECT_EQ(asked, (Texts{"80 00 02", "81 00 04", "82 05 01"}));
    EXPECT_EQ(outer_locks(), kSmbusLocks);
    EXPECT_EQ(ctx.device_record_num, 1);
}

TEST_P(PldmCheck, OfThreeRecordsTheThirdPasses) {
    write_package(package_for({1, 2, 3}));
    const Outcome outcome = check();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with("3th Record pass\n")) << outcome.out;
    EXPECT_EQ(asked, (Texts{"80 00 02", "81 00 04", "82 05 01", "83 05 01", "84 05 01"}));
}

TEST_P(PldmCheck, TheFirstOfTwoThatMatchEndsTheSearch) {
    write_package(package_for({1, 3, 3}));
    EXPECT_TRUE(check().out.ends_with("2th Record pass\n"));
    EXPECT_EQ(asked.size(), 4u);
}

TEST_P(PldmCheck, WhereNoRecordMatchesTheNumberOfThoseTriedIsLogged) {
    write_package(package_for({1, 2, 4}));
    expect_failed(check(), -7, "3th record don't match\n");
    EXPECT_EQ(outer_locks(), kSmbusLocks);
}

TEST_P(PldmCheck, APlatformThatCannotBeAttachedGivesMinusOne) {
    port().fail_call = 1;
    port().main_power = 0;
    card.vendor_id = 1;
    expect_failed(check(), -1, message("fail GlobalParaInit"));
    EXPECT_EQ(port().trace, Texts{"attach"});
    expect_nothing_touched();
}

TEST_P(PldmCheck, AHostThatIsOffGivesMinusTwo) {
    port().main_power = 0;
    card.vendor_id = 1;
    expect_failed(check(), -2, message("power status should be on."));
    EXPECT_EQ(port().trace, Texts{"attach"});
    expect_nothing_touched();
}

TEST_P(PldmCheck, ACardThatIsNotInTheTableGivesMinusThree) {
    card.vendor_id = 0x1234;
    expect_failed(check(), -3, message("Can't find Card, Vendor ID = 0x1234"));
    EXPECT_EQ(port().trace, Texts{"attach"});
    expect_nothing_touched();
}

TEST_P(PldmCheck, AnotherBindingThanSmbusAndPcieGivesMinusFourWithoutALock) {
    for (const unsigned kind : {1u, 3u, 4u, 255u}) {
        port().binding_kind = static_cast<uint8_t>(kind);
        const Outcome outcome = check();
        EXPECT_EQ(outcome.result, GetParam().one_failure ? -1 : -4);
        EXPECT_EQ(test::logged(), Texts());
        EXPECT_EQ(mctp.binding_kind, kind);
        expect_nothing_touched();
    }
}

TEST_P(PldmCheck, ADeviceThatIsNotReadyGivesMinusFiveAndItsMark) {
    write_package(package_for({3}));
    answers[{0, 0x04}] = "00 00 04 00 1f 00 00 00 00 00 00 00";
    expect_failed(check(), -5, message("pldm fw init fail"));
    EXPECT_EQ(ctx.pldm.completion_code, 0x52);
    EXPECT_EQ(ctx.records, nullptr);
    EXPECT_EQ(outer_locks(), kSmbusLocks);
}

TEST_P(PldmCheck, APackageThatCannotBeParsedGivesMinusSix) {
    expect_failed(check(), -6, message(std::string(GetParam().image) + "FW image parse fail"));
    EXPECT_EQ(asked, (Texts{"80 00 02", "81 00 04"}));
    EXPECT_EQ(outer_locks(), kSmbusLocks);
}

TEST_P(PldmCheck, NullArgumentsAreRefused) {
    auto* const call = GetParam().check;
    EXPECT_EQ(call(nullptr, &ctx, &location, &mctp, &card), -1);
    EXPECT_EQ(call("p", nullptr, &location, &mctp, &card), -1);
    EXPECT_EQ(call("p", &ctx, nullptr, &mctp, &card), -1);
    EXPECT_EQ(call("p", &ctx, &location, nullptr, &card), -1);
    EXPECT_EQ(call("p", &ctx, &location, &mctp, nullptr), -1);
    EXPECT_EQ(port().trace, Texts());
}

// ---- The way to the card ----

TEST_P(PldmCheck, TheCardsBusIsSelectedInFrontOfTheBindingAndTheLocks) {
    write_package(package_for({3}));
    check();
    const Texts first(port().trace.begin(), port().trace.begin() + 5);
    EXPECT_EQ(first, (Texts{"attach", "card 65 2",
                            std::string("binding smbus ") + GetParam().setup_parameter,
                            "lock channel 3", "lock global"}));
}

TEST_P(PldmCheck, ACardThatCannotBeRoutedIsTriedAllTheSame) {
    write_package(package_for({3}));
    port().fail_call = 2;
    EXPECT_EQ(check().result, 0);
    EXPECT_EQ(port().failed_call, "card");
}

TEST_P(PldmCheck, WhatWasInTheEndpointContextIsGone) {
    mctp.unit_size = 77;
    mctp.skip_discovery = 1;
    mctp.pcie_session = &mctp;
    mctp.dest_eid = 0x99;
    check();
    EXPECT_EQ(mctp.unit_size, 0);
    EXPECT_EQ(mctp.skip_discovery, 0);
    EXPECT_EQ(mctp.pcie_session, nullptr);
    EXPECT_EQ(mctp.dest_eid, 0);
    EXPECT_EQ(mctp.src_eid, 8);
}

TEST_P(PldmCheck, TheTerminusComesInFrontOfThePackage) {
    answers.clear();
    expect_failed(check(), -5, message("pldm fw init fail"));
    EXPECT_EQ(libc.calls["open file"], 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x51);
}

TEST_P(PldmCheck, AFifoInThePlaceOfThePackageHoldsNoLock) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    alarm(10);
    const Outcome outcome = check();
    alarm(0);
    expect_failed(outcome, -6, message(std::string(GetParam().image) + "FW image parse fail"));
    EXPECT_EQ(outer_locks(), kSmbusLocks);
}

// ---- Locks ----

TEST_P(PldmCheck, AnI2cChannelThatIsRefusedGivesMinusOneAndTouchesNothing) {
    write_package(package_for({3}));
    port().refused_locks = {"channel 3"};
    ctx.pldm.last_error.cause = SIDEBAND_CAUSE_MEMORY;  // of an update before
    expect_failed(check(), -1, message("I2C channel mutex refused"));
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_LOCK);
    EXPECT_EQ(ctx.pldm.last_error.cause, SIDEBAND_CAUSE_NONE);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}), Texts{"lock channel 3 fails"});
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
}

TEST_P(PldmCheck, AGlobalLockThatIsRefusedGivesMinusOneAndReleasesTheChannel) {
    write_package(package_for({3}));
    port().refused_locks = {"global"};
    expect_failed(check(), -1, message("global lock refused"));
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_LOCK);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}),
              (Texts{"lock channel 3", "lock global fails", "unlock channel 3"}));
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
}

/// Calls whose failure is ignored, or who are repeated: the device is spoken to all the same.
bool is_survived(const std::string& call) {
    return call == "card" || call == "mux" || call == "address" || call == "write";
}

/// The locks around a check over SMBus whose n-th platform call has failed.
Texts locks_around(int failing_call) {
    switch (failing_call) {
        case 1:
            return {};  // GlobalParaInit
        case 3:
            return {"lock channel 3 fails"};
        case 4:
            return {"lock channel 3", "lock global fails", "unlock channel 3"};
        default:
            return kSmbusLocks;
    }
}

TEST_P(PldmCheck, EachPlatformCallThatFailsReleasesTheLocksInReverse) {
    write_package(package_for({3}));
    port().result_calls = 0;
    EXPECT_EQ(check().result, 0);
    const int calls = port().result_calls;
    EXPECT_GT(calls, 20);
    int failures = 0;
    for (int call = 1; call <= calls; call++) {
        pldm_free_ua_resource(&ctx);
        port().result_calls = 0;
        port().failed_call.clear();
        port().fail_call = call;
        const int32_t result = check().result;
        SCOPED_TRACE(port().failed_call + " " + std::to_string(call));
        EXPECT_EQ(result == 0, is_survived(port().failed_call));
        EXPECT_TRUE(result == 0 || result == -1 || result == -5 || result == -7) << result;
        failures += result != 0 ? 1 : 0;
        EXPECT_EQ(port().held, Texts());
        EXPECT_EQ(port().violations, Texts());
        EXPECT_EQ(outer_locks(), locks_around(call));
        EXPECT_EQ(libc.open_descriptors(), 0u);
        EXPECT_EQ(libc.live_mappings(), 0u);
    }
    EXPECT_GT(failures, 5);
}

TEST_P(PldmCheck, EachAllocationThatFailsReleasesTheLocksInReverse) {
    write_package(package_for({1, 3}));
    const int before = libc.allocations();
    EXPECT_EQ(check().result, 0);
    const int allocations = libc.allocations() - before;
    EXPECT_GT(allocations, 5);
    for (int n = 1; n <= allocations; n++) {
        pldm_free_ua_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u);
        libc.fail_allocation(n);
        const int32_t result = check().result;
        EXPECT_TRUE(result == 0 || result == -1 || result == -5 || result == -6 || result == -7)
            << n << ": " << result;
        EXPECT_EQ(outer_locks(), kSmbusLocks) << n;
        EXPECT_EQ(libc.open_descriptors(), 0u);
        EXPECT_EQ(libc.live_mappings(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Cards, PldmCheck, ::testing::Values(kNic, kGpu),
                         [](const auto& tested) { return std::string(tested.param.name); });

// ---- Packages without device records ----

class PldmCheckWithoutRecords : public CheckTest {
protected:
    PldmCheckWithoutRecords() { write_package(package_for({})); }
};

TEST_F(PldmCheckWithoutRecords, PassesForANetworkCard) {
    const Outcome outcome = check(kNic);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out.find("Record pass"), std::string::npos);
    EXPECT_EQ(asked.size(), 2u);
    EXPECT_EQ(outer_locks(), kPcieLocks);
}

TEST_F(PldmCheckWithoutRecords, DoesNotMatchAGraphicsCard) {
    EXPECT_EQ(check(kGpu).result, -7);
    EXPECT_EQ(test::logged().back(), "0th record don't match\n");
}

// ---- PCIe ----

class PldmCheckOverPcie : public CheckTest {};

TEST_F(PldmCheckOverPcie, TakesTheGlobalLockOnly) {
    write_package(package_for({3}));
    const Outcome outcome = check(kNic);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with("1th Record pass\n"));
    EXPECT_EQ(outer_locks(), kPcieLocks);
    EXPECT_EQ(mctp.binding_kind, MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ctx.max_transfer_size, 256u);
    EXPECT_EQ(port().trace_of({"write"}), Texts());
}

TEST_F(PldmCheckOverPcie, AGlobalLockThatIsRefusedTouchesNothing) {
    write_package(package_for({3}));
    port().refused_locks = {"global"};
    EXPECT_EQ(check(kNic).result, -1);
    EXPECT_EQ(test::logged().back(), "[pldm_check_firmware_image:#] global lock refused\n");
    EXPECT_EQ(port().trace_of({"lock", "unlock", "pcie"}), Texts{"lock global fails"});
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
}

TEST_F(PldmCheckOverPcie, EachPlatformCallThatFailsReleasesTheLock) {
    write_package(package_for({3}));
    EXPECT_EQ(check(kNic).result, 0);
    const int calls = port().result_calls;
    EXPECT_GT(calls, 4);
    for (int call = 1; call <= calls; call++) {
        pldm_free_ua_resource(&ctx);
        port().result_calls = 0;
        port().failed_call.clear();
        port().fail_call = call;
        const int32_t result = check(kNic).result;
        EXPECT_TRUE(result == 0 || result == -1);
        EXPECT_EQ(port().held, Texts());
        const Texts locks = outer_locks();
        EXPECT_TRUE(locks.empty() || locks == kPcieLocks || locks == Texts{"lock global fails"});
    }
}

TEST_F(PldmCheckOverPcie, TheI2cChannelIsThePlatformsOwnWhereNoneIsGiven) {
    platform.default_i2c_channel = 9;
    check(kNic);
    EXPECT_EQ(mctp.bus, 3);
    port().i2c_channel = 0;
    check(kNic);
    EXPECT_EQ(mctp.bus, 9);
}

TEST_F(PldmCheckOverPcie, NothingIsTakenFromTheCardButWhatItsSetUpCopies) {
    card.mux[5] = 0x77;
    check(kNic);
    // PCIEDeviceMux() has found these, and the routine for PCIe leaves them.
    EXPECT_EQ(card.i2c_channel, 3);
    EXPECT_EQ(card.slave_addr, 0x64);
    platform.default_i2c_channel = 9;
    port().i2c_channel = 0;
    check(kNic);
    EXPECT_EQ(mctp.bus, 9);
    EXPECT_EQ(mctp.slave_addr, 0);
    EXPECT_EQ(mctp.mux[5], 0);
    EXPECT_EQ(mctp.pcie_bdf[0], 0x41);
    EXPECT_EQ(mctp.pcie_bdf[1], 2);
}

TEST_F(PldmCheckOverPcie, TheMpioIsAskedWithoutASessionAndAParameter) {
    write_package(package_for({3}));
    check(kNic);
    unsigned asked_mpio = 0;
    for (const plt_pcie_request& request : port().pcie_requests) {
        if (request.bus == 0 && request.device == 0) {
            ++asked_mpio;
            EXPECT_EQ(request.session, nullptr);
            EXPECT_EQ(request.param, 0u);
        }
    }
    EXPECT_GT(asked_mpio, 0u);
    EXPECT_EQ(port().trace_of({"open"}), Texts());
}

// ---- The choice of the binding ----

struct Choice {
    uint16_t vendor_id;
    uint32_t flags;
    const char* binding;
    uint32_t transfer_size;
};

void PrintTo(const Choice& choice, std::ostream* out) {
    *out << std::hex << choice.vendor_id << " " << choice.flags;
}

class PldmNicBinding : public CheckTest, public ::testing::WithParamInterface<Choice> {};

TEST_P(PldmNicBinding, FollowsBitsSixteenAndSeventeenWhereTheRowHasBoth) {
    for (const uint32_t others : {0u, 0xFFFCFFFFu}) {
        card.vendor_id = GetParam().vendor_id;
        card.flags = GetParam().flags | others;
        port().fail_call = 3;  // no further than to the first lock
        port().result_calls = 0;
        check(kNic);
        EXPECT_EQ(port().trace_of({"binding"}), Texts{GetParam().binding});
        EXPECT_EQ(ctx.max_transfer_size, GetParam().transfer_size);
        EXPECT_EQ(mctp.binding_kind, std::string(GetParam().binding) == "binding smbus 100"
                                         ? MCTP_BINDING_KIND_SMBUS
                                         : MCTP_BINDING_KIND_PCIE);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, PldmNicBinding,
                         ::testing::Values(Choice{0x15B3, 0, "binding pcie 100", 128},
                                           Choice{0x15B3, 0x10000, "binding smbus 100", 56},
                                           Choice{0x15B3, 0x20000, "binding pcie 100", 128},
                                           Choice{0x15B3, 0x30000, "binding pcie 100", 128},
                                           Choice{0x14E4, 0, "binding pcie 100", 128},
                                           Choice{0x14E4, 0x10000, "binding smbus 100", 56},
                                           Choice{0x14E4, 0x20000, "binding pcie 100", 128},
                                           Choice{0x14E4, 0x30000, "binding pcie 100", 128},
                                           Choice{0x8086, 0, "binding pcie 100", 256},
                                           Choice{0x8086, 0x10000, "binding smbus 100", 56},
                                           Choice{0x8086, 0x20000, "binding pcie 100", 256},
                                           Choice{0x8086, 0x30000, "binding pcie 100", 256},
                                           Choice{0x10DF, 0, "binding pcie 100", 128},
                                           Choice{0x10DF, 0x10000, "binding pcie 100", 128},
                                           Choice{0x10DF, 0x20000, "binding pcie 100", 128},
                                           Choice{0x10DF, 0x30000, "binding pcie 100", 128}));

TEST_F(CheckTest, TheGraphicsCardIsReachedOverSmbusWhateverTheFlags) {
    for (const uint32_t flags : {0u, 0x800000u, 0x20000u, 0xFF7FFFFFu, 0xFFFFFFFFu}) {
        card.flags = flags;
        port().fail_call = 3;
        port().result_calls = 0;
        EXPECT_EQ(check(kGpu).result, -1);
        EXPECT_EQ(port().trace_of({"binding"}), Texts{"binding smbus 206"});
        EXPECT_EQ(ctx.max_transfer_size, 32u);
    }
}

}  // namespace
