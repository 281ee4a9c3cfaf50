// SPDX-License-Identifier: Apache-2.0
// Inventory of a firmware device: who it is, what runs on it, and answers that lie about it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "pldm/update/agent_fixture.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using test::Texts;
using test::operator+;

// ---- QueryDeviceIdentifiers ----

constexpr const char* kIdentifiers =
    "00 05 01 00 10 00 00 00 03 02 00 02 00 11 22 00 00 02 00 b3 15 00 01 02 00 1d 10";

class PldmQueryDeviceIdentifiers : public test::FwUpdateTest {
protected:
    Outcome query(std::string_view descriptors, uint8_t count) {
        wanted = test::hex(descriptors);
        record.descriptors = wanted.data();
        record.desc_num = count;
        return test::run([&] { return pldm_query_device_identifiers(&ctx, &record); });
    }

    Bytes wanted;
    pldm_device_record record{};
};

TEST_F(PldmQueryDeviceIdentifiers, EveryDescriptorOfTheRecordIsAmongTheDevices) {
    endpoint.answer({kIdentifiers});
    const Outcome outcome = query("00 01 02 00 1d 10 00 00 02 00 b3 15", 2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 01"});
    EXPECT_EQ(endpoint.calls[0].capacity, 1024);
}

TEST_F(PldmQueryDeviceIdentifiers, TheFirstDescriptorWithoutPartnerIsShown) {
    endpoint.answer({kIdentifiers});
    const Outcome outcome = query("00 00 02 00 b3 15 00 01 02 00 1e 10 01 01 02 00 01 00", 3);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "-------------non match desc----------\n");
    EXPECT_EQ(test::port().syslog,
              (Texts{"Image desc type: 100\n", "Image desc val = ", " 1e", " 10", "\n"}));
}

TEST_F(PldmQueryDeviceIdentifiers, ARecordWithoutDescriptorsMatches) {
    endpoint.answer({kIdentifiers, "00 05 01 00"});
    EXPECT_EQ(query("", 0).result, 0);
    EXPECT_EQ(query("", 0).result, 0);
}

TEST_F(PldmQueryDeviceIdentifiers, AResponseWithoutDescriptorsMatchesNoRecordThatHasSome) {
    endpoint.answer({"00 05 01 00 00 00 00 00 00"});
    const Outcome outcome = query("00 00 02 00 b3 15", 1);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "-------------non match desc----------\n");
}

TEST_F(PldmQueryDeviceIdentifiers, ADeviceOfAHigherRevisionMatches) {
    endpoint.answer({"00 05 01 00 05 00 00 00 01 03 01 01 00 20"});
    EXPECT_EQ(query("03 01 01 00 1f", 1).result, 0);
    endpoint.answer({"00 05 01 00 05 00 00 00 01 03 01 01 00 20"});
    EXPECT_EQ(query("03 01 01 00 21", 1).result, -1);
    EXPECT_EQ(test::port().console, Texts{"error desc_type: 103 desc: 0x21, desc1 =0x20"});
}

TEST_F(PldmQueryDeviceIdentifiers, AFailedTransferIsNamedAndItsResultReturned) {
    fail_exchanges(-57);
    const Outcome outcome = query("00 00 02 00 b3 15", 1);
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, "fail to call pldm_query_device_identifiers\n");
}

TEST_F(PldmQueryDeviceIdentifiers, ThePositiveResultOfAnOperationIsReturned) {
    fail_exchanges(7);
    EXPECT_EQ(query("", 0).result, 7);
}

TEST_F(PldmQueryDeviceIdentifiers, WithoutMemoryOrArgumentsNothingIsSent) {
    libc.fail_allocation(1);
    EXPECT_EQ(query("", 0).result, -1);
    EXPECT_EQ(pldm_query_device_identifiers(nullptr, &record), -1);
    EXPECT_EQ(pldm_query_device_identifiers(&ctx, nullptr), -1);
    ctx.pldm.transfer_op = nullptr;
    EXPECT_EQ(pldm_query_device_identifiers(&ctx, &record), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmQueryDeviceIdentifiers, ARecordWhoseDescriptorsWereNotReachedMatchesNothing) {
    endpoint.answer({kIdentifiers});
    record.desc_num = 1;
    EXPECT_EQ(test::run([&] { return pldm_query_device_identifiers(&ctx, &record); }).result, -1);
}

TEST_F(PldmQueryDeviceIdentifiers, AnAnswerThatIsCutMatchesOnlyWhenTheDescriptorIsWhole) {
    const Bytes whole = test::hex(kIdentifiers);
    for (size_t part = 0; part <= whole.size(); part++) {
        endpoint.answers.push_back(
            MctpAnswer::of(Bytes(whole.begin(), whole.begin() + static_cast<long>(part))));
        EXPECT_EQ(query("00 01 02 00 1d 10", 1).result, part == whole.size() ? 0 : -1) << part;
    }
}

TEST_F(PldmQueryDeviceIdentifiers, CountsAndLengthsThatLieAreNotFollowed) {
    for (const char* count : {"00", "01", "fe", "ff"}) {
        for (const char* length : {"00 00", "01 00", "fe ff", "ff ff"}) {
            endpoint.answer({std::string("00 05 01 00 06 00 00 00 ") + count + " 02 00 " + length});
            EXPECT_EQ(query("00 00 02 00 b3 15", 1).result, -1) << count << " " << length;
        }
    }
    endpoint.answers.push_back(
        MctpAnswer::of(test::hex("00 05 01 00 06 00 00 00 ff") + Bytes(1024 - 9, 0)));
    EXPECT_EQ(query("00 00 02 00 b3 15", 1).result, -1);
    // More than there is room for.
    endpoint.answers.push_back({5000, test::hex("00 05 01 00 06 00 00 00 ff 00 00 ff 03")});
    EXPECT_EQ(query("00 00 02 00 b3 15", 1).result, -1);
}

// ---- GetFirmwareParameters ----

constexpr const char* kParametersHead = "00 05 02 00 01 02 03 14 02 00 01 03 02 02 61 62 63 64 65 ";
constexpr const char* kFirstEntry =
    "58 0a 00 01 07 44 33 22 11 01 02 30 31 32 33 34 35 36 37 88 77 66 55 03 01"
    "38 39 3a 3b 3c 3d 3e 3f 02 00 01 00 00 00 76 31 70 ";
constexpr const char* kSecondEntry =
    "0b 00 01 01 00 00 00 00 00 01 00 30 31 32 33 34 35 36 37 00 00 00 00 01 00"
    "38 39 3a 3b 3c 3d 3e 3f 00 00 00 00 00 00";

const std::string kParameters = std::string(kParametersHead) + kFirstEntry + kSecondEntry;

class PldmGetFirmwareParameters : public test::FwUpdateTest {
protected:
    Outcome get() {
        return test::run([&] { return pldm_get_firmware_parameters(&ctx); });
    }

    /// Answers with this, and so many bytes of 0 behind it.
    void offer(const Bytes& head, size_t zeros = 0) {
        endpoint.answers.push_back(MctpAnswer::of(head + Bytes(zeros, 0)));
    }

    std::string last_line() const {
        return test::port().console.empty() ? "" : test::port().console.back();
    }
};

TEST_F(PldmGetFirmwareParameters, KeepsAndPrintsWhatTheDeviceRuns) {
    endpoint.answer({kParameters});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 02"});
    EXPECT_EQ(endpoint.calls[0].capacity, 1024);
    EXPECT_STREQ(ctx.active_version_string, "abc");
    EXPECT_STREQ(ctx.pending_version_string, "de");
    ASSERT_EQ(ctx.fd_components_num, 2);
    EXPECT_EQ(test::bytes_at(ctx.fd_component_params[0], 42), test::hex(kFirstEntry));
    EXPECT_EQ(test::bytes_at(ctx.fd_component_params[1], 39), test::hex(kSecondEntry));
    // The pending string is printed by the length of the active one.
    EXPECT_EQ(outcome.out,
              "==========cap during update======\n"
              " 1 2 3 14component count: 2\n"
              "active component image string type: 1\n"
              "active component image string len: 3\n"
              "active component image string : abc\n"
              "pending component image string type: 2\n"
              "pending component image string len: 2\n"
              "pending component image string : deX\n"
              "=============CMD fw Parameter ================\n"
              "classification          0xa58\n"
              "identifier              0x100\n"
              "class_index             0x 7\n"
              "active component stamp  0x11223344\n"
              "active component type   0x1\n"
              "active component len    2\n"
              "active component        v1\n"
              "pending component stamp 0x55667788\n"
              "pending component type  0x3\n"
              "pending component len   1\n"
              "=============CMD fw Parameter ================\n"
              "classification          0xb\n"
              "identifier              0x101\n"
              "class_index             0x 0\n"
              "active component stamp  0x0\n"
              "active component type   0x1\n"
              "active component len    0\n"
              "active component        \n"
              "pending component stamp 0x0\n"
              "pending component type  0x1\n"
              "pending component len   0\n");
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PldmGetFirmwareParameters, NoComponentsIsASuccess) {
    endpoint.answer({"00 05 02 00 00 00 00 00 00 00 01 01 01 00 41"});
    EXPECT_EQ(get().result, 0);
    EXPECT_STREQ(ctx.active_version_string, "A");
    EXPECT_STREQ(ctx.pending_version_string, "");
    EXPECT_EQ(ctx.fd_components_num, 0);
    EXPECT_EQ(ctx.fd_component_params, nullptr);
}

TEST_F(PldmGetFirmwareParameters, ASecondAnswerReplacesTheFirstWhateverItsSizes) {
    endpoint.answer({"00 05 02 00 00 00 00 00 00 00 01 01 01 00 41", kParameters,
                     "00 05 02 00 00 00 00 00 00 00 01 01 01 00 42"});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(get().result, 0);
    EXPECT_STREQ(ctx.active_version_string, "abc");
    EXPECT_EQ(ctx.fd_components_num, 2);
    EXPECT_EQ(libc.live_blocks(), 5u);
    EXPECT_EQ(get().result, 0);
    EXPECT_STREQ(ctx.active_version_string, "B");
    EXPECT_EQ(ctx.fd_components_num, 0);
    EXPECT_EQ(libc.live_blocks(), 2u);
}

TEST_F(PldmGetFirmwareParameters, AnAnswerToAnotherCommandIsRefused) {
    endpoint.answer({"00 05 03 00 00 00 00 00 00 00 01 01 01 00 41"});
    EXPECT_EQ(get().result, -1);
    EXPECT_EQ(test::port().syslog, Texts{"call get firmware parameter, reqCode[2] respCode[3]\n"});
    EXPECT_EQ(ctx.pldm.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
    EXPECT_EQ(ctx.active_version_string, nullptr);
}

TEST_F(PldmGetFirmwareParameters, AFailedTransferIsNamedAndItsResultReturned) {
    fail_exchanges(-57);
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, "fail to call pldm_get_firmware_parameters\n");
}

TEST_F(PldmGetFirmwareParameters, WithoutAContextOrItsOperationNothingIsSent) {
    EXPECT_EQ(pldm_get_firmware_parameters(nullptr), -1);
    ctx.pldm.transfer_op = nullptr;
    EXPECT_EQ(pldm_get_firmware_parameters(&ctx), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmGetFirmwareParameters, EveryFailedAllocationLeavesNothingLoose) {
    constexpr size_t kAllocations = 6;  // response, two strings, the table, two entries
    for (size_t n = 1; n <= kAllocations + 1; n++) {
        endpoint.answer({kParameters});
        libc.fail_allocation(static_cast<int>(n));
        EXPECT_EQ(get().result, n == 1 ? -1 : 0) << n;
        EXPECT_EQ(pldm_last_error(&ctx.pldm)->cause,
                  n <= kAllocations ? SIDEBAND_CAUSE_MEMORY : SIDEBAND_CAUSE_NONE)
            << n;
        EXPECT_EQ(ctx.active_version_string != nullptr, n > 2) << n;
        EXPECT_EQ(ctx.pending_version_string != nullptr, n > 3) << n;
        EXPECT_EQ(ctx.fd_component_params != nullptr, n > 4) << n;
        EXPECT_EQ(ctx.fd_components_num, n > 4 ? 2 : 0) << n;
        if (n > 4) {
            EXPECT_EQ(ctx.fd_component_params[0] != nullptr, n > 5) << n;
            EXPECT_EQ(ctx.fd_component_params[1] != nullptr, n > 6) << n;
        }
        libc.fail_allocation(0);
        pldm_free_ctx_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u) << n;
    }
}

TEST_F(PldmGetFirmwareParameters, AnAnswerThatIsCutInItsStringsIsRefusedAndKeepsWhatWasThere) {
    endpoint.answer({"00 05 02 00 00 00 00 00 00 00 01 01 01 01 41 42"});
    ASSERT_EQ(get().result, 0);
    const Bytes whole = test::hex(kParameters);
    for (size_t part = 0; part <= 18; part++) {
        offer(Bytes(whole.begin(), whole.begin() + static_cast<long>(part)));
        test::port().syslog.clear();
        EXPECT_EQ(get().result, -1) << part;
        EXPECT_STREQ(ctx.active_version_string, "A");
        EXPECT_STREQ(ctx.pending_version_string, "B");
        if (part >= 4) {
            EXPECT_EQ(test::port().syslog, Texts{"pldm_get_firmware_parameters, response of " +
                                                 std::to_string(part) + " bytes is too short\n"});
        }
    }
    for (size_t part = 19; part <= whole.size(); part++) {
        offer(Bytes(whole.begin(), whole.begin() + static_cast<long>(part)));
        EXPECT_EQ(get().result, 0) << part;
        EXPECT_STREQ(ctx.active_version_string, "abc");
    }
}

TEST_F(PldmGetFirmwareParameters, ATableThatDoesNotFitIsKeptAsFarAsItGoes) {
    const std::pair<const char*, int> counts[] = {{"1a 00", 26}, {"ff ff", 65535}};
    for (const auto& [count, number] : counts) {
        offer(test::hex(std::string("00 05 02 00 00 00 00 00 ") + count + " 01 00 01 00"), 1010);
        EXPECT_EQ(get().result, 0);
        ASSERT_EQ(ctx.fd_components_num, number);
        EXPECT_NE(ctx.fd_component_params[24], nullptr);
        EXPECT_EQ(ctx.fd_component_params[25], nullptr);
        EXPECT_TRUE(last_line().starts_with(
            "[pldm_parse_firmware_para][249] Buffer overfolow - buffer_end: 0x"))
            << last_line();
        EXPECT_NE(last_line().find(" and ptr + sizeof (pldm_component_parameter_table ): 39 = 0x"),
                  std::string::npos);
    }
}

TEST_F(PldmGetFirmwareParameters, AnEntryWhoseStringsDoNotFitStaysZero) {
    Bytes entry(39 + 255 + 255, 0x41);
    entry[10] = 255;
    entry[24] = 255;
    offer(test::hex("00 05 02 00 00 00 00 00 02 00 01 00 01 00") + entry + Bytes(461, 0xFF));
    EXPECT_EQ(get().result, 0);
    ASSERT_EQ(ctx.fd_components_num, 2);
    EXPECT_EQ(test::bytes_at(ctx.fd_component_params[0], entry.size()), entry);
    EXPECT_EQ(test::bytes_at(ctx.fd_component_params[1], entry.size()), Bytes(entry.size(), 0));
    EXPECT_TRUE(last_line().starts_with(
        "[pldm_parse_firmware_para][270] Buffer overfolow - buffer_end: 0x"));
    EXPECT_NE(last_line().find(" and ptr + len: 549 = 0x"), std::string::npos) << last_line();
}

TEST_F(PldmGetFirmwareParameters, FlippedBitsNeverReachOutsideTheBuffer) {
    const Bytes whole = test::hex(kParameters);
    for (size_t bit = 0; bit < whole.size() * 8; bit++) {
        Bytes bent = whole;
        bent[bit / 8] = static_cast<uint8_t>(bent[bit / 8] ^ (1u << (bit % 8)));
        offer(bent);
        const int32_t result = get().result;
        EXPECT_TRUE(result == 0 || result == -1) << bit << " " << result;
        pldm_free_ctx_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u) << bit;
    }
}

// ---- pldm_parse_firmware_para, on buffers that end where they say ----

class PldmParseFirmwarePara : public test::FwUpdateTest {
protected:
    int32_t parse(const Bytes& bytes) {
        const auto exact = std::make_unique<uint8_t[]>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), exact.get());
        end = exact.get() + bytes.size();
        return test::run([&] {
                   return pldm_parse_firmware_para(&ctx, exact.get(),
                                                   static_cast<int32_t>(bytes.size()));
               })
            .result;
    }

    const uint8_t* end = nullptr;  ///< of the buffer that was parsed; it is gone
};

TEST_F(PldmParseFirmwarePara, ReportsWhereAnEntryWouldEnd) {
    const Bytes whole = test::hex(kParameters);
    char expected[200];
    // The second entry is cut: its fixed part, which begins at 61, ends behind the buffer.
    EXPECT_EQ(parse(Bytes(whole.begin(), whole.end() - 1)), -1);
    std::snprintf(expected, sizeof expected,
                  "[%s][%d] Buffer overfolow - buffer_end: %p and ptr + sizeof "
                  "(pldm_component_parameter_table ): %d = %p\n",
                  "pldm_parse_firmware_para", 249, static_cast<const void*>(end), 39,
                  reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(end) + 1));
    EXPECT_EQ(test::port().console, Texts{expected});
    // The first entry's string is cut.
    test::port().console.clear();
    EXPECT_EQ(parse(Bytes(whole.begin(), whole.begin() + 19 + 41)), -1);
    std::snprintf(expected, sizeof expected,
                  "[%s][%d] Buffer overfolow - buffer_end: %p and ptr + len: %d = %p\n",
                  "pldm_parse_firmware_para", 270, static_cast<const void*>(end), 42,
                  reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(end) + 1));
    EXPECT_EQ(test::port().console, Texts{expected});
}

TEST_F(PldmParseFirmwarePara, EveryTruncationIsRefused) {
    const Bytes whole = test::hex(kParameters);
    for (size_t part = 0; part < whole.size(); part++) {
        EXPECT_EQ(parse(Bytes(whole.begin(), whole.begin() + static_cast<long>(part))), -1) << part;
        EXPECT_EQ(ctx.active_version_string != nullptr, part >= 19) << part;
    }
    EXPECT_EQ(parse(whole), 0);
}

TEST_F(PldmParseFirmwarePara, LengthsAndCountsAtTheirExtremesStayInside) {
    const Bytes whole = test::hex(kParameters);
    for (size_t field : {8, 9, 11, 13, 19 + 10, 19 + 24, 61 + 10, 61 + 24}) {
        for (uint8_t value : {0x00, 0x01, 0xFE, 0xFF}) {
            Bytes bent = whole;
            bent[field] = value;
            const int32_t result = parse(bent);
            EXPECT_TRUE(result == 0 || result == -1) << field;
        }
    }
}

TEST_F(PldmParseFirmwarePara, EachFailedAllocationIsAFailure) {
    constexpr int kAllocations = 5;  // two strings, the table, two entries
    for (int n = 1; n <= kAllocations + 1; n++) {
        libc.fail_allocation(n);
        const int32_t result = parse(test::hex(kParameters));
        libc.fail_allocation(0);
        EXPECT_EQ(result, n <= kAllocations ? -1 : 0) << n;
        pldm_free_ctx_resource(&ctx);
    }
}

TEST_F(PldmParseFirmwarePara, NullArgumentsAndNegativeLengthsAreRefused) {
    const Bytes whole = test::hex(kParameters);
    EXPECT_EQ(pldm_parse_firmware_para(nullptr, whole.data(), 100), -1);
    EXPECT_EQ(pldm_parse_firmware_para(&ctx, nullptr, 100), -1);
    EXPECT_EQ(pldm_parse_firmware_para(&ctx, whole.data(), -1), -1);
    EXPECT_EQ(ctx.active_version_string, nullptr);
}

}  // namespace
