// SPDX-License-Identifier: Apache-2.0
// The OEM commands of two makers: requests whole, settings, foreign bits, texts and tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "ncsi/ncsi_fixture.h"

namespace {

using test::Bytes;
using test::ncsi_response;
using test::ncsi_unsupported;
using test::not_successful;
using test::Outcome;
using test::Texts;
using test::operator+;

constexpr uint8_t kOem = NCSI_OEM_COMMAND;
constexpr uint8_t kChannel = 0x42;
constexpr uint8_t kPackage = 0x5F;

std::span<const ncsi_oem_cmd> broadcom() {
    return {ncsi_oem_brcm_cmd_tbl, ncsi_oem_brcm_cmd_tbl_size};
}
std::span<const ncsi_oem_cmd> mellanox() {
    return {ncsi_oem_mx_cmd_tbl, ncsi_oem_mx_cmd_tbl_size};
}

class NcsiOem : public test::NcsiTest {
protected:
    NcsiOem() {
        channel.oem_valid = 0xE1;
        channel.oem_flag = 1;
        channel.oem_value = 0xABC;
    }

    Outcome call(int32_t (*handler)(ncsi_channel*)) {
        return test::run([&] { return handler(&channel); });
    }
    /// The record is as the constructor left it, oem_valid apart.
    void expect_setting_untouched() const {
        EXPECT_EQ(channel.oem_flag, 1);
        EXPECT_EQ(channel.oem_value, 0xABC);
    }
    /// The last request's byte, counted from the start of its payload.
    unsigned sent(size_t payload_byte) const {
        return endpoint.calls.back().bytes[16 + payload_byte];
    }
};

// ---- Tables and entries ----

class NcsiOemEntries : public NcsiOem {};

TEST_F(NcsiOemEntries, TheTablesHoldTheCommandsInOrder) {
    ASSERT_EQ(ncsi_oem_brcm_cmd_tbl_size, 2);
    EXPECT_EQ(ncsi_oem_brcm_cmd_tbl[0].command, 0u);
    EXPECT_EQ(ncsi_oem_brcm_cmd_tbl[0].handler, &ncsi_oem_brcm_get_preboot_server_config);
    EXPECT_EQ(ncsi_oem_brcm_cmd_tbl[1].command, 1u);
    EXPECT_EQ(ncsi_oem_brcm_cmd_tbl[1].handler, &ncsi_oem_brcm_set_preboot_server_config);
    ASSERT_EQ(ncsi_oem_mx_cmd_tbl_size, 4);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[0].command, 0u);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[0].handler, &ncsi_oem_mx_get_card_tlv_info);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[1].command, 1u);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[1].handler, &ncsi_oem_mx_set_card_tlv_info);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[2].command, 2u);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[2].handler, &ncsi_oem_mx_get_pf_mac_address);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[3].command, 3u);
    EXPECT_EQ(ncsi_oem_mx_cmd_tbl[3].handler, &ncsi_oem_mx_get_temperature);
}

TEST_F(NcsiOemEntries, BroadcomsCode2IsRefusedWithoutAnExchange) {
    for (uint32_t code : {2u, 3u, 0xFFu, 0x100u, 0x101u, UINT32_MAX}) {
        const Outcome outcome = test::run([&] { return ncsi_oem_brcm_entry(&channel, code); });
        EXPECT_EQ(outcome.result, -1) << code;
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(NcsiOemEntries, BroadcomsCodesRunTheirHandlers) {
    answer({ncsi_response(kOem, kChannel, Bytes(16)), ncsi_response(kOem, kChannel, Bytes(16)),
            ncsi_response(kOem, kChannel)});
    EXPECT_EQ(ncsi_oem_brcm_entry(&channel, 0), 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(sent(5), 0x1Cu);
    EXPECT_EQ(ncsi_oem_brcm_entry(&channel, 1), 0);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(sent(5), 0x1Du);
}

TEST_F(NcsiOemEntries, OnlyTheLowByteOfMellanoxCodesCounts) {
    for (uint32_t high : {0u, 0x100u, 0xFF00u, 0xFFFFFF00u}) {
        SCOPED_TRACE(high);
        start_over();
        answer({ncsi_response(kOem, kPackage, Bytes(20)), ncsi_response(kOem, kPackage, Bytes(20)),
                ncsi_response(kOem, kPackage), ncsi_response(kOem, kChannel, Bytes(16)),
                ncsi_response(kOem, kChannel, Bytes(11) + Bytes{61})});
        const auto entry = [&](uint32_t code) {
            return test::run([&] { return ncsi_oem_mx_entry(&channel, high | code); }).result;
        };
        EXPECT_EQ(entry(0), 0);
        EXPECT_EQ(sent(5), 0x00u);
        EXPECT_EQ(sent(6), 0x23u);
        EXPECT_EQ(entry(1), 0);
        EXPECT_EQ(sent(5), 0x01u);
        EXPECT_EQ(sent(6), 0x23u);
        EXPECT_EQ(entry(2), 0);
        EXPECT_EQ(sent(5), 0x00u);
        EXPECT_EQ(sent(6), 0x00u);
        EXPECT_EQ(entry(3), 61);
        EXPECT_EQ(sent(5), 0x13u);
        EXPECT_EQ(endpoint.calls.size(), 5u);
        EXPECT_EQ(entry(4), -1);
        EXPECT_EQ(entry(0xFF), -1);
        EXPECT_EQ(endpoint.calls.size(), 5u);
    }
}

TEST_F(NcsiOemEntries, WhatCannotTransferIsRefused) {
    ncsi_channel stray{};
    const auto refused = [](ncsi_channel* record) {
        for (const ncsi_oem_cmd& command : broadcom()) {
            EXPECT_EQ(command.handler(record), -1);
        }
        for (const ncsi_oem_cmd& command : mellanox()) {
            EXPECT_EQ(command.handler(record), -1);
        }
        EXPECT_EQ(ncsi_oem_brcm_entry(record, 0), -1);
        EXPECT_EQ(ncsi_oem_mx_entry(record, 0), -1);
    };
    refused(nullptr);
    refused(&stray);
    ctx.transfer = nullptr;
    refused(&channel);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(channel.oem_valid, 0xE1);
}

// ---- Broadcom: preboot server config ----

constexpr const char* kPrebootGet =
    "00 01 00 01 50 42 00 10 00 00 00 00 00 00 00 00 "
    "00 00 11 3d 00 1c 00 04 00 00 00 00 00 00 00 05 00 00 00 00";

/// The response to a get: payload bytes 12, 14 and 15 of the OEM payload are the setting's.
Bytes preboot(uint8_t byte32, uint8_t byte34, uint8_t byte35) {
    return ncsi_response(
        kOem, kChannel,
        test::hex("00 00 11 3d 00 1c 00 04 ff ff ff ff") + Bytes{byte32, 0xFF, byte34, byte35});
}

class NcsiPreboot : public NcsiOem {
protected:
    Outcome get() { return call(ncsi_oem_brcm_get_preboot_server_config); }
    Outcome set() { return call(ncsi_oem_brcm_set_preboot_server_config); }
};

TEST_F(NcsiPreboot, GetAsksForTheSettingAndTakesFlagAndValue) {
    answer({preboot(0xFF, 0x8A, 0xBC)});
    channel.oem_flag = 0;
    channel.oem_value = 0;
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(), Texts{kPrebootGet});
    EXPECT_EQ(endpoint.calls[0].capacity, 40);
    EXPECT_EQ(channel.oem_valid, 1);
    EXPECT_EQ(channel.oem_flag, 1);
    EXPECT_EQ(channel.oem_value, 0xABC);
}

TEST_F(NcsiPreboot, GetReadsEveryValueOfItsTwoBytes) {
    for (unsigned value = 0; value < 256; value++) {
        SCOPED_TRACE(value);
        const auto byte = static_cast<uint8_t>(value);
        answer({preboot(0xFF, byte, 0x5A), preboot(0x00, 0x00, byte)});
        EXPECT_EQ(get().result, 0);
        EXPECT_EQ(channel.oem_flag, value / 128);
        EXPECT_EQ(channel.oem_value, value % 16 * 256 + 0x5A);
        EXPECT_EQ(get().result, 0);
        EXPECT_EQ(channel.oem_flag, 0);
        EXPECT_EQ(channel.oem_value, value);
    }
}

TEST_F(NcsiPreboot, AnUnsupportedGetClearsValid) {
    answer({ncsi_unsupported(kOem, kChannel)});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) +
                               "[ncsi_oem_brcm_get_preboot_server_config] get preboot server "
                               "config command unsupported!\n");
    EXPECT_EQ(channel.oem_valid, 0);
    expect_setting_untouched();
}

TEST_F(NcsiPreboot, AFailedGetLeavesTheRecord) {
    constexpr const char* kFailed =
        "[ncsi_oem_brcm_get_preboot_server_config] get preboot server config command failed.\n";
    Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, kFailed);
    const std::pair<uint16_t, uint16_t> codes[] = {
        {0x0003, 0x7FFE}, {0x0002, 0x7FFF}, {0x0300, 0xFF7F}, {0x0003, 0x0000}, {0x0000, 0x7FFF}};
    for (const auto& [code, reason] : codes) {
        answer({ncsi_response(kOem, kChannel, Bytes(16, 0xFF), code, reason)});
        outcome = get();
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, not_successful(code, reason, 40) + kFailed);
    }
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiPreboot, SetReadsTheSettingFirst) {
    answer({preboot(0x5A, 0x70, 0xFF), ncsi_response(kOem, kChannel)});
    const Outcome outcome = set();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(),
              (Texts{kPrebootGet,
                     "00 01 00 02 50 42 00 14 00 00 00 00 00 00 00 00 "
                     "00 00 11 3d 00 1d 00 04 00 00 00 00 00 00 00 01 5a 00 fa bc 00 00 00 00"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 40);
    EXPECT_EQ(endpoint.calls[1].capacity, 36);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiPreboot, ValueABCWithTheFlagPuts8AAndBC) {
    answer({preboot(0x00, 0x00, 0x00), ncsi_response(kOem, kChannel)});
    EXPECT_EQ(set().result, 0);
    EXPECT_EQ(sent(18), 0x8Au);
    EXPECT_EQ(sent(19), 0xBCu);
}

TEST_F(NcsiPreboot, SetCarriesEveryForeignBitOver) {
    for (unsigned value = 0; value < 256; value++) {
        SCOPED_TRACE(value);
        const auto byte = static_cast<uint8_t>(value);
        start_over();
        answer({preboot(byte, 0x00, 0x00), ncsi_response(kOem, kChannel), preboot(0x00, byte, 0x00),
                ncsi_response(kOem, kChannel), preboot(0x00, 0x00, byte),
                ncsi_response(kOem, kChannel)});
        EXPECT_EQ(set().result, 0);
        EXPECT_EQ(sent(16), value);
        EXPECT_EQ(sent(18), 0x8Au);
        EXPECT_EQ(set().result, 0);
        EXPECT_EQ(sent(16), 0u);
        EXPECT_EQ(sent(17), 0u);
        // Bits 4 to 6 of the controller, all others of the caller.
        EXPECT_EQ(sent(18), 0x8Au + (value & 0x70u));
        EXPECT_EQ(sent(19), 0xBCu);
        EXPECT_EQ(set().result, 0);
        EXPECT_EQ(sent(18), 0x8Au);
        EXPECT_EQ(sent(19), 0xBCu);
    }
}

TEST_F(NcsiPreboot, SetWritesEveryFlagAndValue) {
    for (unsigned value = 0; value < 0x1000; value++) {
        start_over();
        channel.oem_flag = value % 3 == 0 ? 1 : 0;
        channel.oem_value = static_cast<uint16_t>(value);
        answer({preboot(0x00, 0xFF, 0xFF), ncsi_response(kOem, kChannel)});
        ASSERT_EQ(ncsi_oem_brcm_set_preboot_server_config(&channel), 0);
        ASSERT_EQ(sent(18), (channel.oem_flag != 0 ? 0xF0u : 0x70u) + value / 256);
        ASSERT_EQ(sent(19), value % 256);
    }
}

TEST_F(NcsiPreboot, BitsBeyondTheSettingAreNotWritten) {
    channel.oem_flag = 0xFE;
    channel.oem_value = 0xF001;
    answer({preboot(0x00, 0x00, 0x00), ncsi_response(kOem, kChannel)});
    EXPECT_EQ(set().result, 0);
    EXPECT_EQ(sent(18), 0x00u);
    EXPECT_EQ(sent(19), 0x01u);
}

TEST_F(NcsiPreboot, AnUnsupportedSettingIsNeverSet) {
    answer({ncsi_unsupported(kOem, kChannel), ncsi_response(kOem, kChannel)});
    const Outcome outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) +
                               "[ncsi_oem_brcm_set_preboot_server_config] get preboot server "
                               "config command unsupported!\n");
    EXPECT_EQ(endpoint.messages(), Texts{kPrebootGet});
    EXPECT_EQ(channel.oem_valid, 0);
    expect_setting_untouched();
}

TEST_F(NcsiPreboot, ASettingThatCannotBeReadIsNeverSet) {
    const Outcome outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "[ncsi_oem_brcm_set_preboot_server_config] get preboot server config command "
              "failed.\n");
    EXPECT_EQ(endpoint.messages(), Texts{kPrebootGet});
    EXPECT_EQ(channel.oem_valid, 0xE1);
}

TEST_F(NcsiPreboot, AFailedSetIsReported) {
    answer({preboot(0, 0, 0), ncsi_unsupported(kOem, kChannel)});
    Outcome outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) +
                               "[ncsi_oem_brcm_set_preboot_server_config] set preboot server "
                               "config command failed.\n");
    answer({preboot(0, 0, 0)});
    outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "[ncsi_oem_brcm_set_preboot_server_config] set preboot server config command "
              "failed.\n");
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

// ---- Mellanox: card TLV ----

constexpr const char* kTlvGet =
    "00 01 00 01 50 5f 00 10 00 00 00 00 00 00 00 00 "
    "00 00 81 19 00 00 23 00 00 00 00 00 03 00 02 21 00 00 00 00";

/// The response to a get, from the package.
Bytes tlv(uint8_t byte30, uint8_t byte36, uint8_t byte37, uint16_t value) {
    return ncsi_response(
        kOem, kPackage,
        test::hex("00 00 81 19 00 00 23 00 ff ff") + Bytes{byte30} + test::hex("ff 03 00 02 21") +
            Bytes{byte36, byte37, static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

class NcsiTlv : public NcsiOem {
protected:
    Outcome get() { return call(ncsi_oem_mx_get_card_tlv_info); }
    Outcome set() { return call(ncsi_oem_mx_set_card_tlv_info); }
};

TEST_F(NcsiTlv, GetAsksThePackageAndTakesFlagAndValue) {
    answer({tlv(0xFF, 0x40, 0xFF, 0x1234)});
    channel.oem_flag = 0;
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(), Texts{kTlvGet});
    EXPECT_EQ(endpoint.calls[0].capacity, 44);
    EXPECT_EQ(channel.oem_valid, 1);
    EXPECT_EQ(channel.oem_flag, 1);
    EXPECT_EQ(channel.oem_value, 0x1234);
    EXPECT_EQ(channel.channel_id, kChannel);
}

TEST_F(NcsiTlv, GetReadsEveryValueOfItsBytes) {
    for (unsigned value = 0; value < 256; value++) {
        SCOPED_TRACE(value);
        const auto byte = static_cast<uint8_t>(value);
        const auto word = static_cast<uint16_t>(value * 256 + (255 - value));
        answer({tlv(0xFF, byte, 0xFF, word)});
        EXPECT_EQ(get().result, 0);
        EXPECT_EQ(channel.oem_flag, value / 64 % 2);
        EXPECT_EQ(channel.oem_value, word);
    }
}

TEST_F(NcsiTlv, AnUnsupportedGetClearsValid) {
    answer({ncsi_unsupported(kOem, kPackage)});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) +
                               "[ncsi_oem_mx_get_card_tlv_info] get card tlv information command "
                               "unsupported!\n");
    EXPECT_EQ(channel.oem_valid, 0);
    expect_setting_untouched();
}

TEST_F(NcsiTlv, AFailedGetLeavesTheRecord) {
    answer({ncsi_response(kOem, kPackage, Bytes(20, 0xFF), 0x0003, 0x7FFE)});
    constexpr const char* kFailed =
        "[ncsi_oem_mx_get_card_tlv_info] get card tlv information command failed.\n";
    Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFE, 44) + kFailed);
    outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, kFailed);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiTlv, SetReadsTheSettingFirst) {
    answer({tlv(0xFF, 0xFF, 0x5A, 0xFFFF), ncsi_response(kOem, kPackage)});
    const Outcome outcome = set();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(),
              (Texts{kTlvGet,
                     "00 01 00 02 50 5f 00 14 00 00 00 00 00 00 00 00 "
                     "00 00 81 19 00 01 23 00 00 00 f1 00 03 00 02 21 67 5a 0a bc 00 00 00 00"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 44);
    EXPECT_EQ(endpoint.calls[1].capacity, 32);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiTlv, SetCarriesEveryForeignBitOver) {
    for (unsigned flag : {0u, 1u}) {
        channel.oem_flag = static_cast<uint8_t>(flag);
        for (unsigned value = 0; value < 256; value++) {
            SCOPED_TRACE(value);
            const auto byte = static_cast<uint8_t>(value);
            start_over();
            answer({tlv(byte, 0, 0, 0), ncsi_response(kOem, kPackage), tlv(0, byte, 0, 0),
                    ncsi_response(kOem, kPackage), tlv(0, 0, byte, 0),
                    ncsi_response(kOem, kPackage)});
            EXPECT_EQ(set().result, 0);
            EXPECT_EQ(sent(10), value & 0xF1u);
            EXPECT_EQ(sent(16), flag * 0x40);
            EXPECT_EQ(sent(17), 0u);
            EXPECT_EQ(set().result, 0);
            EXPECT_EQ(sent(10), 0u);
            EXPECT_EQ(sent(16), flag * 0x40 + (value & 0x27u));
            EXPECT_EQ(sent(17), 0u);
            EXPECT_EQ(set().result, 0);
            EXPECT_EQ(sent(10), 0u);
            EXPECT_EQ(sent(16), flag * 0x40);
            EXPECT_EQ(sent(17), value);
        }
    }
}

TEST_F(NcsiTlv, SetWritesFlagAndValueOverThoseOfTheCard) {
    channel.oem_flag = 0xFE;
    for (unsigned value = 0; value < 0x10000; value += 0x101) {
        start_over();
        channel.oem_value = static_cast<uint16_t>(value);
        answer({tlv(0, 0xFF, 0xFF, 0xFFFF), ncsi_response(kOem, kPackage)});
        EXPECT_EQ(set().result, 0);
        EXPECT_EQ(sent(16), 0x27u);
        EXPECT_EQ(sent(18), value / 256);
        EXPECT_EQ(sent(19), value % 256);
    }
}

TEST_F(NcsiTlv, ASettingThatCannotBeReadIsNeverSet) {
    constexpr const char* kFailed =
        "[ncsi_oem_mx_set_card_tlv_info] get card tlv information command failed.\n";
    answer({ncsi_unsupported(kOem, kPackage)});
    Outcome outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) + kFailed);
    EXPECT_EQ(endpoint.messages(), Texts{kTlvGet});
    outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, kFailed);
    EXPECT_EQ(endpoint.calls.size(), 2u);
    // A set does not ask whether the get is supported.
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiTlv, AFailedSetIsReported) {
    constexpr const char* kFailed =
        "[ncsi_oem_mx_set_card_tlv_info] set card tlv information command failed.\n";
    answer({tlv(0, 0, 0, 0), ncsi_unsupported(kOem, kPackage)});
    Outcome outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24) + kFailed);
    answer({tlv(0, 0, 0, 0)});
    outcome = set();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, kFailed);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

// ---- Mellanox: MAC address of the physical function ----

class NcsiPfMac : public NcsiOem {
protected:
    Outcome get() { return call(ncsi_oem_mx_get_pf_mac_address); }
};

TEST_F(NcsiPfMac, PayloadAndAddressArePrinted) {
    answer({ncsi_response(kOem, kChannel,
                          test::hex("00 00 81 19 00 00 00 00 98 03 9b 0a ff 01 00 7f"))});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "[ncsi_oem_mx_get_pf_mac_address] get pf mac address resp:\n"
              " 0 0 81 19 0 0 0 0 98 3 9b a ff 1 0 7f\n"
              "[ncsi_oem_mx_get_pf_mac_address] mac address:\n"
              " 98 3 9b a ff 1\n");
    EXPECT_EQ(endpoint.messages(), Texts{"00 01 00 01 50 42 00 08 00 00 00 00 00 00 00 00 "
                                         "00 00 81 19 00 00 00 00 00 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 40);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiPfMac, AFailureIsReportedAndStoresNothing) {
    constexpr const char* kFailed =
        "[ncsi_oem_mx_get_pf_mac_address] get pf mac address command failed.\n";
    answer({ncsi_unsupported(kOem, kChannel), ncsi_response(kOem, kChannel, {}, 0x0003, 0x0001)});
    Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              not_successful(0x0003, 0x7FFF, 24) +
                  "[ncsi_oem_mx_get_pf_mac_address] get pf mac address command unsupported!\n");
    outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x0001, 24) + kFailed);
    outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, kFailed);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

// ---- Mellanox: temperature ----

class NcsiTemperature : public NcsiOem {
protected:
    Outcome get() { return call(ncsi_oem_mx_get_temperature); }
};

TEST_F(NcsiTemperature, EveryReadingIsTheResult) {
    channel.sensor_index = 0xC3;
    for (unsigned value = 0; value < 256; value++) {
        Bytes payload(12, 0xEE);
        payload[11] = static_cast<uint8_t>(value);
        answer({ncsi_response(kOem, kChannel, payload)});
        const Outcome outcome = get();
        EXPECT_EQ(outcome.result, static_cast<int32_t>(value));
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(endpoint.messages()[0],
              "00 01 00 01 50 42 00 08 00 00 00 00 00 00 00 00 "
              "00 00 81 19 00 13 02 c3 00 00 00 00");
    EXPECT_EQ(endpoint.calls[0].capacity, 36);
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

TEST_F(NcsiTemperature, AFailurePrintsNothingOfItsOwn) {
    answer({ncsi_unsupported(kOem, kChannel)});
    Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0x0003, 0x7FFF, 24));
    outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(channel.oem_valid, 0xE1);
}

// ---- What a transfer operation gets ----

/// The areas that the last calls of own_transfer() got.
std::vector<Bytes> request_areas;
std::vector<Bytes> response_areas;

/// Takes the areas as wide as they are promised to be, and leaves rubbish in the response.
int32_t own_transfer(ncsi_channel*, uint32_t length, int32_t, uint8_t* request, uint8_t* response) {
    request_areas.emplace_back(request + length, request + 80);
    response_areas.emplace_back(response, response + 84);
    std::fill_n(request + length, 80 - length, uint8_t{0xFF});
    std::fill_n(response, 84, uint8_t{0xFF});
    return 0;
}

TEST_F(NcsiOem, EveryTransferGetsZeroedAreasOf80And84Bytes) {
    request_areas.clear();
    response_areas.clear();
    ctx.transfer = own_transfer;
    for (const ncsi_oem_cmd& command : broadcom()) {
        EXPECT_EQ(call(command.handler).result, 0);
    }
    for (const ncsi_oem_cmd& command : mellanox()) {
        EXPECT_EQ(call(command.handler).result, command.command == 3 ? 255 : 0);
    }
    EXPECT_EQ(response_areas, std::vector<Bytes>(8, Bytes(84)));
    ASSERT_EQ(request_areas.size(), 8u);
    for (const Bytes& area : request_areas) {
        EXPECT_EQ(area, Bytes(area.size()));
    }
}

TEST_F(NcsiOem, AnOwnTransfersNegativeResultIsPassedOn) {
    ctx.transfer = [](ncsi_channel*, uint32_t, int32_t, uint8_t*, uint8_t*) { return -57; };
    for (const ncsi_oem_cmd& command : broadcom()) {
        EXPECT_EQ(call(command.handler).result, -57);
    }
    for (const ncsi_oem_cmd& command : mellanox()) {
        EXPECT_EQ(call(command.handler).result, -57);
    }
    EXPECT_EQ(channel.oem_valid, 0xE1);
    expect_setting_untouched();
}

}  // namespace
