// SPDX-License-Identifier: Apache-2.0
// The PDR repository: its summary, and records in parts.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::MctpAnswer;
using test::Outcome;
using test::pdr_answer;
using test::PdrRepository;
using test::operator+;
using Texts = std::vector<std::string>;

// ---- GetPDRRepositoryInfo ----

class PdrRepositoryInfo : public PdrRepository {
protected:
    static constexpr const char* kAnswer =
        "00 02 50 00 00"
        "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d"
        "07 01 00 00 33 33 00 00 80 00 00 00 21";
    static constexpr const char* kRequestLines =
        "====== get pdr repo Req =====\n"
        " 80 02 50\n"
        "=============================\n";

    Outcome ask() {
        return test::run([&] { return pldm_get_pdr_repository_info(&ctx, &count); });
    }

    uint32_t count = 0xEEEEEEEE;
};

TEST_F(PdrRepositoryInfo, StoresTheRecordCountAndPrintsBothMessages) {
    endpoint.answer({kAnswer});
    const Outcome outcome = ask();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(count, 263u);
    EXPECT_EQ(outcome.out, std::string(kRequestLines) +
                               "record_count = 263\n"
                               "====== get pdr repo Resp =====\n"
                               " 00 02 50 00 00 01 02 03 04 05 06 07 08 09 0a 0b\n"
                               " 0c 0d 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 07\n"
                               " 01 00 00 33 33 00 00 80 00 00 00 21\n"
                               "==============================\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 50"});
    EXPECT_EQ(endpoint.calls[0].capacity, 44);
    EXPECT_EQ(messages(), Texts{});
}

TEST_F(PdrRepositoryInfo, AllFourBytesOfTheCountAreTaken) {
    Bytes body = test::hex(kAnswer);
    body[34] = 0x80;
    answer({body});
    EXPECT_NE(ask().out.find("record_count = -2147483385\n"), std::string::npos);
    EXPECT_EQ(count, 0x80000107u);
}

TEST_F(PdrRepositoryInfo, AFailedExchangeIsReported) {
    pass_through(-57, {});
    const Outcome outcome = ask();
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, kRequestLines);
    EXPECT_EQ(count, 0xEEEEEEEE);
    EXPECT_EQ(messages(),
              Texts{"pldm_get_pdr_repository_info, PLDM_MONITOR_GET_PDR_REPOSITORY_INFO "
                    "fail\n"});
}

TEST_F(PdrRepositoryInfo, ACompletionCodeFailsTheExchange) {
    endpoint.answer({"00 02 50 05"});
    EXPECT_EQ(ask().result, -1);
    EXPECT_EQ(ctx.completion_code, 5);
    EXPECT_EQ(count, 0xEEEEEEEE);
}

TEST_F(PdrRepositoryInfo, ACompletionCodeThatWasPassedThroughIsReturned) {
    pass_through(0, test::hex("00 02 50 81"));
    const Outcome outcome = ask();
    EXPECT_EQ(outcome.result, 0x81);
    EXPECT_EQ(outcome.out, kRequestLines);
    EXPECT_EQ(count, 0xEEEEEEEE);
}

TEST_F(PdrRepositoryInfo, AnAnswerWithoutTheWholeCountIsRefused) {
    Bytes body = test::hex(kAnswer);
    body.resize(34);
    answer({body});
    EXPECT_EQ(ask().result, -1);
    EXPECT_EQ(count, 0xEEEEEEEE);
    EXPECT_EQ(messages(),
              Texts{"pldm_get_pdr_repository_info, response of 34 bytes is too short\n"});
}

TEST_F(PdrRepositoryInfo, WhatFollowsTheCountMayBeMissing) {
    Bytes body = test::hex(kAnswer);
    body.resize(35);
    answer({body});
    EXPECT_EQ(ask().result, 0);
    EXPECT_EQ(count, 263u);
}

TEST_F(PdrRepositoryInfo, NullArgumentsAndAMissingOperationAreBadArguments) {
    const auto expect_refused = [](pldm_ctx* target, uint32_t* out) {
        const Outcome outcome =
            test::run([&] { return pldm_get_pdr_repository_info(target, out); });
        EXPECT_EQ(outcome.result, -112);
        EXPECT_EQ(outcome.out, "");
    };
    expect_refused(nullptr, &count);
    expect_refused(&ctx, nullptr);
    ctx.transfer_op = nullptr;
    expect_refused(&ctx, &count);
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- GetPDR ----

class PdrGet : public PdrRepository {
protected:
    static constexpr uint32_t kHandle = 0x01020304;

    /// Fetches into a buffer of this size, which must stay the only thing that is written.
    Outcome get(uint32_t capacity = 128) {
        const Outcome outcome =
            test::run([&] { return pldm_get_pdr(&ctx, &handle, buffer.data(), capacity); });
        EXPECT_TRUE(buffer.intact());
        EXPECT_TRUE(buffer.untouched_from(capacity));
        return outcome;
    }
    /// The call ended without the whole record, after so many bytes of it.
    void expect_incomplete(const Outcome& outcome, const Bytes& received) {
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(handle, kHandle);
        EXPECT_EQ(test::to_hex(buffer.head(received.size())), test::to_hex(received));
        EXPECT_TRUE(buffer.untouched_from(received.size()));
        EXPECT_EQ(messages(), Texts{});
    }
    void expect_failure(const Outcome& outcome, int32_t result, const Texts& reported) {
        EXPECT_EQ(outcome.result, result);
        EXPECT_EQ(handle, kHandle);
        EXPECT_TRUE(buffer.untouched_from(0));
        EXPECT_EQ(messages(), reported);
    }

    uint32_t handle = kHandle;
    Guarded buffer{1024, 0xEE};
};

TEST_F(PdrGet, ATwentyByteRecordInOnePart) {
    const Bytes record = test::counting(20, 0x30);
    answer({pdr_answer(record, {.next_record = 0x11223344})});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(handle, 0x11223344u);
    EXPECT_EQ(buffer.head(20), record);
    EXPECT_TRUE(buffer.untouched_from(20));
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 51 04 03 02 01 00 00 00 00 01 80 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 143);
    EXPECT_EQ(messages(), Texts{});
}

TEST_F(PdrGet, ARecordInThreePartsNamesTheTransferAndTheChangeNumberOfTheFirst) {
    Bytes record = test::counting(30, 0x10);  // record change number: 16 17
    answer({pdr_answer(test::counting(10, 0x10), {7, 0xAABBCCDD, 1}),
            pdr_answer(test::counting(10, 0x1A), {8, 0x55667788, 2}),
            pdr_answer(test::counting(10, 0x24), {9, 0x99999999, 4})});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 9u);
    EXPECT_EQ(buffer.head(30), record);
    EXPECT_TRUE(buffer.untouched_from(30));
    EXPECT_EQ(endpoint.messages(), (Texts{"80 02 51 04 03 02 01 00 00 00 00 01 80 00 00 00",
                                          "81 02 51 04 03 02 01 dd cc bb aa 00 80 00 16 17",
                                          "82 02 51 04 03 02 01 88 77 66 55 00 80 00 16 17"}));
}

TEST_F(PdrGet, ARecordOf200BytesStopsAtTheFirstPartThatDoesNotFit) {
    const Bytes first = test::counting(128);
    answer({pdr_answer(first, {5, 1, 1}), pdr_answer(test::counting(72, 0x80), {5, 0, 4})});
    expect_incomplete(get(128), first);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PdrGet, ARecordOfExactlyTheCapacityIsWhole) {
    answer({pdr_answer(test::counting(128), {.next_record = 6})});
    EXPECT_EQ(get(128).result, 0);
    EXPECT_EQ(handle, 6u);
    EXPECT_EQ(buffer.head(128), test::counting(128));
}

TEST_F(PdrGet, PartsThatAddUpToExactlyTheCapacityAreWhole) {
    answer(
        {pdr_answer(test::counting(12), {5, 1, 1}), pdr_answer(test::counting(8, 12), {6, 0, 4})});
    EXPECT_EQ(get(20).result, 0);
    EXPECT_EQ(handle, 6u);
    EXPECT_EQ(buffer.head(20), test::counting(20));
}

TEST_F(PdrGet, ARecordOfOneByteMoreThanTheCapacityLeavesNothing) {
    answer({pdr_answer(test::counting(20), {.next_record = 6})});
    expect_incomplete(get(19), {});
}

TEST_F(PdrGet, APartOf129BytesLeavesNothing) {
    answer({pdr_answer(test::counting(129), {.next_record = 6})});
    expect_incomplete(get(1024), {});
}

TEST_F(PdrGet, ACountOf65535LeavesNothing) {
    Bytes body = pdr_answer(test::counting(20));
    body[13] = body[14] = 0xFF;
    answer({body});
    expect_incomplete(get(1024), {});
}

TEST_F(PdrGet, SevenMiddlePartsInARowTimeOut) {
    Bytes received;
    for (uint8_t i = 0; i < 7; i++) {
        const Bytes data = test::counting(10, static_cast<uint8_t>(i * 16));
        answer({pdr_answer(data, {5, uint32_t{i} + 1, 2})});
        received = received + data;
    }
    const Outcome outcome = get();
    expect_incomplete(outcome, received);
    EXPECT_EQ(outcome.out, "Get PDR Resp Timeout\n");
    EXPECT_EQ(endpoint.calls.size(), 7u);
}

TEST_F(PdrGet, SevenPartsOf128BytesAreRead) {
    Bytes whole;
    for (uint8_t i = 0; i < 7; i++) {
        const Bytes data(128, static_cast<uint8_t>(i + 1));
        const auto flag = static_cast<uint8_t>(i == 0 ? 1 : i == 6 ? 4 : 2);
        answer({pdr_answer(data, {5, uint32_t{i} + 1, flag})});
        whole = whole + data;
    }
    EXPECT_EQ(get(896).result, 0);
    EXPECT_EQ(handle, 5u);
    EXPECT_EQ(buffer.head(896), whole);
}

TEST_F(PdrGet, OnlyEndAndStartAndEndEndTheRecord) {
    for (unsigned flag = 0; flag <= 255; flag++) {
        endpoint.answers.clear();
        handle = kHandle;
        answer({pdr_answer(test::counting(10), {5, 1, static_cast<uint8_t>(flag)})});
        const bool ends = flag == 4 || flag == 5;
        EXPECT_EQ(get().result, ends ? 0 : -1) << flag;  // -1: there is no second answer
        EXPECT_EQ(handle, ends ? 5 : kHandle) << flag;
    }
}

TEST_F(PdrGet, APartWithoutDataIsAPart) {
    answer({pdr_answer({}, {5, 1, 1}), pdr_answer(test::counting(10), {6, 2, 2}),
            pdr_answer({}, {7, 0, 4})});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 7u);
    EXPECT_EQ(buffer.head(10), test::counting(10));
    // Without data in the first part there is no change number to name.
    EXPECT_EQ(endpoint.messages()[1], "81 02 51 04 03 02 01 01 00 00 00 00 80 00 00 00");
    EXPECT_EQ(endpoint.messages()[2], "82 02 51 04 03 02 01 02 00 00 00 00 80 00 00 00");
}

TEST_F(PdrGet, TheLastRecordGivesHandleZero) {
    answer({pdr_answer(test::counting(10), {.next_record = 0})});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 0u);
}

TEST_F(PdrGet, ATransferCrcBehindTheDataIsIgnored) {
    answer({pdr_answer(test::counting(10), {.next_record = 6}) + test::hex("de ad be ef")});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 6u);
    EXPECT_EQ(buffer.head(10), test::counting(10));
    EXPECT_TRUE(buffer.untouched_from(10));
}

TEST_F(PdrGet, ACountAboveWhatArrivedFails) {
    Bytes body = pdr_answer(test::counting(20));
    body.pop_back();
    answer({body});
    expect_failure(get(), -1, {"pldm_get_pdr, response of 34 bytes is too short\n"});
}

TEST_F(PdrGet, ACountAboveWhatArrivedInTheSecondPartKeepsTheFirst) {
    Bytes second = pdr_answer(test::counting(20), {6, 0, 4});
    second.pop_back();
    answer({pdr_answer(test::counting(10), {5, 1, 1}), second});
    EXPECT_EQ(get().result, -1);
    EXPECT_EQ(handle, kHandle);
    EXPECT_EQ(buffer.head(10), test::counting(10));
    EXPECT_TRUE(buffer.untouched_from(10));
}

TEST_F(PdrGet, AnAnswerWithoutItsFieldsFails) {
    Bytes body = pdr_answer({});
    body.pop_back();
    answer({body});
    expect_failure(get(), -1, {"pldm_get_pdr, response of 14 bytes is too short\n"});
}

TEST_F(PdrGet, AFailedExchangeIsReported) {
    pass_through(-57, {});
    const Outcome outcome = get();
    expect_failure(outcome, -57, {"pldm_get_pdr, rc=-57\n"});
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(asked_capacity, 143);
}

TEST_F(PdrGet, AFailedExchangeInTheSecondPartKeepsTheFirst) {
    answer({pdr_answer(test::counting(10), {5, 1, 1})});
    EXPECT_EQ(get().result, -1);
    EXPECT_EQ(handle, kHandle);
    EXPECT_EQ(buffer.head(10), test::counting(10));
    EXPECT_EQ(messages(), Texts{"pldm_get_pdr, rc=-1\n"});
}

TEST_F(PdrGet, ACompletionCodeFailsTheExchange) {
    endpoint.answer({"00 02 51 82"});
    const Outcome outcome = get();
    expect_failure(outcome, -1, {"pldm_get_pdr, rc=-1\n"});
    EXPECT_EQ(outcome.out, "command:0x51 is not successful, completion code:0x82\n");
    EXPECT_EQ(ctx.completion_code, 0x82);
}

TEST_F(PdrGet, CompletionCodesThatWerePassedThroughAreNamed) {
    const char* const names[] = {
        "PLDM_MONITOR_INVALID_DATA_TRANSFER_HANDLE\n",
        "PLDM_MONITOR_INVALID_TRANSFER_OPERATION_FLAG\n",
        "PLDM_MONITOR_INVALID_RECORD_HANDLE\n",
        "PLDM_MONITOR_INVALID_RECORD_CHANGE_NUMBER\n",
        "PLDM_MONITOR_TRANSFER_TIMEOUT\n",
        "PLDM_MONITOR_REPOSITORY_UPDATE_IN_PROGRESS\n",
    };
    for (uint8_t i = 0; i < 6; i++) {
        const auto code = static_cast<uint8_t>(0x80 + i);
        messages().clear();
        pass_through(0, {0x00, 0x02, 0x51, code});
        expect_failure(get(), code, {names[i]});
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

TEST_F(PdrGet, OtherCompletionCodesThatWerePassedThroughEndTheCallToo) {
    for (const auto& [code, message] :
         {std::pair{1, "pldm_get_pdr, rc=1\n"}, std::pair{0x7F, "pldm_get_pdr, rc=127\n"},
          std::pair{0x86, "pldm_get_pdr, rc=134\n"}, std::pair{0x90, "pldm_get_pdr, rc=144\n"},
          std::pair{0xFF, "pldm_get_pdr, rc=255\n"}}) {
        messages().clear();
        pass_through(0, {0x00, 0x02, 0x51, static_cast<uint8_t>(code)});
        expect_failure(get(), code, {message});
    }
}

TEST_F(PdrGet, OfASecondPartWithAnotherCodeNothingIsStoredAndTheFirstStays) {
    ctx.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t* request, uint8_t* response) {
        const bool first = request[11] == 1;
        Bytes body = pdr_answer(test::counting(10, first ? 0x10 : 0x40), {5, 1, 1});
        body[3] = first ? 0x00 : 0x84;
        std::copy(body.begin(), body.end(), response);
        return 0;
    };
    EXPECT_EQ(get().result, 0x84);
    EXPECT_EQ(handle, kHandle);
    EXPECT_EQ(buffer.head(10), test::counting(10, 0x10));
    EXPECT_TRUE(buffer.untouched_from(10));
    EXPECT_EQ(messages(), Texts{"PLDM_MONITOR_TRANSFER_TIMEOUT\n"});
}

TEST_F(PdrGet, BadArgumentsSendNothing) {
    const auto expect_refused = [&](pldm_ctx* target, uint32_t* record, uint8_t* room,
                                    uint32_t capacity) {
        EXPECT_EQ(pldm_get_pdr(target, record, room, capacity), 144);
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_EQ(libc.allocations(), 0);
    };
    expect_refused(nullptr, &handle, buffer.data(), 128);
    expect_refused(&ctx, nullptr, buffer.data(), 128);
    expect_refused(&ctx, &handle, nullptr, 128);
    expect_refused(&ctx, &handle, buffer.data(), 0);
    ctx.transfer_op = nullptr;
    expect_refused(&ctx, &handle, buffer.data(), 128);
    EXPECT_EQ(handle, kHandle);
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(PdrGet, AFailedAllocationSendsNothing) {
    libc.fail_allocation(1);
    expect_failure(get(), 144, {});
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace
