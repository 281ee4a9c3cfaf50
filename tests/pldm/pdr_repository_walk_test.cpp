// SPDX-License-Identifier: Apache-2.0
// The PDR repository: decoded records, and the walk over all records.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"
#include "support/numbers.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::pdr_answer;
using test::PdrRepository;
using test::operator+;
using Texts = std::vector<std::string>;

// ---- pldm_get_full_pdr ----

class PdrGetFull : public PdrRepository {
protected:
    PdrGetFull() { std::memset(&parsed, 0xEE, sizeof parsed); }

    int32_t get(uint32_t handle = 0) {
        return test::run([&] { return pldm_get_full_pdr(&ctx, handle, &parsed); }).result;
    }
    Bytes bytes() const {
        const auto* first = reinterpret_cast<const uint8_t*>(&parsed);
        return {first, first + sizeof parsed};
    }
    void expect_untouched() const { EXPECT_EQ(bytes(), Bytes(105, 0xEE)); }

    pldm_pdr parsed;
};

TEST_F(PdrGetFull, ANumericSensorIsDecoded) {
    answer({pdr_answer(test::numeric_pdr(2, 4), {.next_record = 9})});
    EXPECT_EQ(get(0x01234567), 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 51 67 45 23 01 00 00 00 00 01 80 00 00 00"});
    pldm_pdr wanted;
    std::memset(&wanted, 0xEE, sizeof wanted);
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(2, 4).data(), &wanted.numeric), 0);
    EXPECT_EQ(std::memcmp(&parsed, &wanted, sizeof parsed), 0);
    EXPECT_EQ(test::wire_order(parsed.numeric.sensor_id), 0x0403);
    EXPECT_EQ(messages(), Texts{});
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PdrGetFull, AStateSensorIsDecodedAndItsRestZeroed) {
    Bytes raw = test::state_pdr({{1, {3}}, {18, {1}}});
    answer({pdr_answer(raw)});
    EXPECT_EQ(get(), 0);
    raw.resize(64);
    EXPECT_EQ(bytes(), raw + Bytes(41, 0xEE));
}

TEST_F(PdrGetFull, ARecordInThreePartsIsDecoded) {
    const Bytes raw = test::numeric_pdr(4, 4);
    const auto slice = [&](int from, int to) {
        return Bytes(raw.begin() + from, raw.begin() + to);
    };
    answer({pdr_answer(slice(0, 40), {0, 1, 1}), pdr_answer(slice(40, 80), {0, 2, 2}),
            pdr_answer(slice(80, 105), {0, 0, 4})});
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(bytes(), raw);
}

TEST_F(PdrGetFull, ARecordLongerThan128BytesIsDecodedFromWhatFitted) {
    Bytes raw = test::state_pdr({{1, Bytes(90, 7)}, {2, Bytes(90, 9)}});
    answer({pdr_answer(Bytes(raw.begin(), raw.begin() + 100), {5, 1, 1}),
            pdr_answer(Bytes(raw.begin() + 100, raw.end()), {5, 0, 4})});
    EXPECT_EQ(get(), 0);
    raw.resize(64);
    EXPECT_EQ(bytes(), raw + Bytes(41, 0xEE));
}

/// Its second part would be the end of 145 bytes: what came before it ends at hysteresis.
TEST_F(PdrGetFull, ANumericRecordThatRunsOverIsDecodedWithZerosBehindWhatFitted) {
    const Bytes raw = test::numeric_pdr(4, 4);
    answer({pdr_answer(Bytes(raw.begin(), raw.begin() + 60), {5, 1, 1}),
            pdr_answer(test::counting(85), {5, 0, 4})});
    EXPECT_EQ(get(), 0);
    pldm_pdr wanted;
    std::memset(&wanted, 0xEE, sizeof wanted);
    Bytes fitted(raw.begin(), raw.begin() + 60);
    fitted.resize(128);
    ASSERT_EQ(pldm_parse_pdr(fitted.data(), &wanted), 0);
    EXPECT_EQ(std::memcmp(&parsed, &wanted, sizeof parsed), 0);
    EXPECT_EQ(test::wire_order(parsed.numeric.sensor_id), 0x0403);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED) << "it is not whole";
    EXPECT_EQ(messages(), Texts{});
}

TEST_F(PdrGetFull, ARecordOfSevenPartsWithoutAnEndIsDecodedAsFarAsItCame) {
    const Bytes raw = test::numeric_pdr(4, 4);
    for (int part = 0; part < 7; part++) {
        answer({pdr_answer(Bytes(raw.begin() + part * 9, raw.begin() + part * 9 + 9),
                           {5, 1, static_cast<uint8_t>(part == 0 ? 1 : 2)})});
    }
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(test::wire_order(parsed.numeric.sensor_id), 0x0403);
}

TEST_F(PdrGetFull, ARecordOfWhichNothingFittedIsRefused) {
    answer({pdr_answer(test::counting(129))});
    EXPECT_EQ(get(), -1);
    expect_untouched();
    EXPECT_EQ(test::port().console, Texts{"[pldm_parse_pdr] unknow the PDR type\n"});
}

TEST_F(PdrGetFull, AnUnknownTypeIsRefused) {
    Bytes raw = test::state_pdr({{1, {3}}});
    raw[5] = 9;
    answer({pdr_answer(raw)});
    EXPECT_EQ(get(), -1);
    expect_untouched();
    EXPECT_EQ(test::port().console, Texts{"[pldm_parse_pdr] unknow the PDR type\n"});
}

TEST_F(PdrGetFull, ANumericRecordShorterThanItsFormatsDemandIsRefused) {
    for (uint8_t data_size = 0; data_size < 7; data_size++) {
        for (uint8_t range_format = 0; range_format < 7; range_format++) {
            const Bytes whole = test::numeric_pdr(data_size, range_format);
            for (size_t length = 6; length <= whole.size(); length++) {
                SCOPED_TRACE(length);
                answer(
                    {pdr_answer(Bytes(whole.begin(), whole.begin() + static_cast<int>(length)))});
                std::memset(&parsed, 0xEE, sizeof parsed);
                messages().clear();
                if (length == whole.size()) {
                    EXPECT_EQ(get(), 0);
                    EXPECT_EQ(messages(), Texts{});
                    continue;
                }
                EXPECT_EQ(get(), -1);
                expect_untouched();
                EXPECT_EQ(messages(), Texts{"pldm_get_full_pdr, record of " +
                                            std::to_string(length) + " bytes is too short\n"});
            }
        }
    }
}

TEST_F(PdrGetFull, AStateRecordWithoutItsCountIsRefused) {
    const Bytes whole = test::state_pdr({});
    ASSERT_EQ(whole.size(), 23u);
    answer({pdr_answer(Bytes(whole.begin(), whole.begin() + 22))});
    EXPECT_EQ(get(), -1);
    expect_untouched();
    EXPECT_EQ(messages(), Texts{"pldm_get_full_pdr, record of 22 bytes is too short\n"});
    answer({pdr_answer(whole)});
    EXPECT_EQ(get(), 0);
}

TEST_F(PdrGetFull, ARecordThatTheDecoderRefusesFails) {
    Bytes raw = test::numeric_pdr(4, 4);
    raw[67] = 7;
    answer({pdr_answer(raw)});
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(bytes(), Bytes(raw.begin(), raw.begin() + 69) + Bytes(36, 0xEE));
}

TEST_F(PdrGetFull, AnUnknownDataSizeFails) {
    Bytes raw = test::numeric_pdr(4, 4);
    raw[32] = 7;
    answer({pdr_answer(raw)});
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(bytes(), Bytes(raw.begin(), raw.begin() + 45) + Bytes(60, 0xEE));
}

TEST_F(PdrGetFull, AFailedExchangeIsReturned) {
    pass_through(-57, {});
    EXPECT_EQ(get(), -57);
    expect_untouched();
}

TEST_F(PdrGetFull, ACompletionCodeThatWasPassedThroughFails) {
    pass_through(0, test::hex("00 02 51 82"));
    EXPECT_EQ(get(), -1);
    expect_untouched();
    EXPECT_EQ(messages(), Texts{"PLDM_MONITOR_INVALID_RECORD_HANDLE\n"});
}

TEST_F(PdrGetFull, NullArgumentsFail) {
    EXPECT_EQ(pldm_get_full_pdr(nullptr, 0, &parsed), -1);
    EXPECT_EQ(pldm_get_full_pdr(&ctx, 0, nullptr), -1);
    EXPECT_EQ(libc.allocations(), 0);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PdrGetFull, AMissingOperationFails) {
    ctx.transfer_op = nullptr;
    EXPECT_EQ(get(), -1);
    expect_untouched();
}

TEST_F(PdrGetFull, EveryFailedAllocationFails) {
    for (int failing = 1; failing <= 2; failing++) {
        libc.fail_allocation(failing);
        EXPECT_EQ(get(), -1);
        expect_untouched();
        EXPECT_TRUE(endpoint.calls.empty());
    }
}

// ---- pldm_PDR_traversal ----

class PdrTraversal : public PdrRepository {
protected:
    int32_t walk() {
        return test::run([&] { return pldm_PDR_traversal(&ctx); }).result;
    }
    /// The record handles that were asked for.
    std::vector<std::string> handles() const {
        std::vector<std::string> found;
        for (const std::string& message : endpoint.messages()) {
            found.push_back(message.substr(9, 11));
        }
        return found;
    }
};

TEST_F(PdrTraversal, WalksFromHandleZeroToTheLastRecord) {
    answer({pdr_answer(test::counting(20), {.next_record = 5}),
            pdr_answer(test::counting(20), {.next_record = 0x01020304}),
            pdr_answer(test::counting(20), {.next_record = 0})});
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(handles(), (Texts{"00 00 00 00", "05 00 00 00", "04 03 02 01"}));
}

TEST_F(PdrTraversal, ARepositoryOfOneRecordTakesOneExchange) {
    answer({pdr_answer(test::counting(128))});
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PdrTraversal, AnIncompleteFirstRecordEndsTheWalk) {
    answer({pdr_answer(test::counting(129), {.next_record = 5})});
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(handles(), Texts{"00 00 00 00"});
}

TEST_F(PdrTraversal, AnIncompleteRecordIsAskedForAgainUntilItIsWhole) {
    const Bytes long_part = pdr_answer(test::counting(129), {.next_record = 6});
    answer({pdr_answer(test::counting(20), {.next_record = 5}), long_part, long_part, long_part,
            pdr_answer(test::counting(20), {.next_record = 0})});
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(handles(),
              (Texts{"00 00 00 00", "05 00 00 00", "05 00 00 00", "05 00 00 00", "05 00 00 00"}));
}

TEST_F(PdrTraversal, AFailedFirstExchangeGives255) {
    EXPECT_EQ(walk(), 255);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PdrTraversal, AFailedLaterExchangeGives255) {
    answer({pdr_answer(test::counting(20), {.next_record = 5})});
    EXPECT_EQ(walk(), 255);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PdrTraversal, OfANegativeResultTheLowByteIsReturned) {
    pass_through(-57, {});
    EXPECT_EQ(walk(), 199);
    pass_through(-112, {});
    EXPECT_EQ(walk(), 144);
    pass_through(-256, {});
    EXPECT_EQ(walk(), 0);
}

TEST_F(PdrTraversal, ANullContextGives255) {
    EXPECT_EQ(pldm_PDR_traversal(nullptr), 255);
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_F(PdrTraversal, AMissingOperationGives255) {
    ctx.transfer_op = nullptr;
    EXPECT_EQ(walk(), 255);
    EXPECT_EQ(libc.allocations(), 0);
}

/// A terminus whose records are made when they are asked for: walks of many thousands.
class PdrLongTraversal : public PdrTraversal {
protected:
    /// Makes the n-th answer, from 0; an empty one fails the exchange.
    using Script = std::function<Bytes(unsigned n)>;

    /// @return the result. What is asked for beyond kAskedMax fails
    int32_t walk_over(Script script) {
        static Script answer_of;
        static unsigned count;
        answer_of = std::move(script);
        count = 0;
        ctx.transfer_op = [](pldm_ctx* target, uint32_t, int32_t capacity, uint8_t*,
                             uint8_t* response) {
            const Bytes answer = count < kAskedMax ? answer_of(count) : Bytes();
            ++count;
            target->response_length = std::min(static_cast<int32_t>(answer.size()), capacity);
            std::copy_n(answer.begin(), target->response_length, response);
            return answer.empty() ? -1 : 0;
        };
        const Outcome outcome = test::run([&] { return pldm_PDR_traversal(&ctx); });
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(libc.live_blocks(), 0u);
        asked = count;
        return outcome.result;
    }
    static Bytes whole(uint32_t next) {
        static Bytes answer = pdr_answer(Bytes(10));
        std::ranges::copy(test::le32(next), answer.begin() + 4);
        return answer;
    }
    static Bytes too_long() {
        static const Bytes kAnswer = pdr_answer(Bytes(129), {.next_record = 7});
        return kAnswer;
    }
    static Bytes refused(uint8_t code) { return {0x00, 0x02, 0x51, code}; }

    static constexpr unsigned kAskedMax = PLDM_PDR_RECORDS_MAX + 10000;
    const Texts endless{"pldm_PDR_traversal, no last record among 65536\n"};
    unsigned asked = 0;
};

TEST_F(PdrLongTraversal, HandlesThatGoRoundEndTheWalkWith255After65536Records) {
    EXPECT_EQ(walk_over([](unsigned n) { return whole(n % 2 == 0 ? 1 : 2); }), 255);
    EXPECT_EQ(asked, 65536u);
    EXPECT_EQ(messages(), endless);
}

TEST_F(PdrLongTraversal, AWholeRecordThatNamesItselfEndsTheWalkWith255) {
    EXPECT_EQ(walk_over([](unsigned) { return whole(5); }), 255);
    EXPECT_EQ(asked, 65536u);
    EXPECT_EQ(messages(), endless);
}

TEST_F(PdrLongTraversal, ARepositoryOf65536RecordsIsWalkedToItsEnd) {
    EXPECT_EQ(walk_over([](unsigned n) { return whole(n == 65535 ? 0 : n + 1); }), 0);
    EXPECT_EQ(asked, 65536u);
    EXPECT_EQ(messages(), Texts{});
    EXPECT_EQ(walk_over([](unsigned n) { return whole(n == 65536 ? 0 : n + 1); }), 255);
    EXPECT_EQ(asked, 65536u);
}

TEST_F(PdrLongTraversal, RecordsInPartsCountOnceEach) {
    // The first thousand records come in two parts.
    const auto script = [](unsigned n) {
        const uint32_t next = n == 66535 ? 0 : n + 1;
        const bool more = n < 2000 && n % 2 == 0;
        return pdr_answer(Bytes(10), {next, 1, static_cast<uint8_t>(more ? 1 : 4)});
    };
    EXPECT_EQ(walk_over(script), 0);
    EXPECT_EQ(asked, 66536u);
}

TEST_F(PdrLongTraversal, ARecordThatDoesNotComeWholeIsAskedForWithoutBound) {
    const auto script = [](unsigned n) {
        return n == 0 ? whole(7) : n <= 66000 ? too_long() : whole(0);
    };
    EXPECT_EQ(walk_over(script), 0);
    EXPECT_EQ(asked, 66002u);
}

// ---- Completion codes that an operation passes through ----

TEST_F(PdrLongTraversal, Code90IsNoBadArgument) {
    EXPECT_EQ(walk_over([](unsigned) { return refused(0x90); }), 0);
    EXPECT_EQ(asked, 1u);
    EXPECT_EQ(messages(), Texts{"pldm_get_pdr, rc=144\n"});
}

TEST_F(PdrLongTraversal, ACodeOfTheFirstRecordEndsTheWalkAtHandleZero) {
    for (unsigned code = 1; code <= 255; code++) {
        EXPECT_EQ(walk_over([&](unsigned) { return refused(static_cast<uint8_t>(code)); }), 0);
        EXPECT_EQ(asked, 1u) << code;
    }
}

TEST_F(PdrLongTraversal, ALaterRecordThatIsRefusedIsAskedForAgain) {
    for (uint8_t code : {0x01, 0x82, 0x90, 0xFF}) {
        const auto script = [&](unsigned n) {
            return n == 0 ? whole(7) : n <= 100 ? refused(code) : whole(0);
        };
        EXPECT_EQ(walk_over(script), 0) << int{code};
        EXPECT_EQ(asked, 102u) << int{code};
    }
}

TEST_F(PdrLongTraversal, RefusalsWithoutEndCountAsRecords) {
    EXPECT_EQ(walk_over([](unsigned n) { return n == 0 ? whole(7) : refused(0x90); }), 255);
    EXPECT_EQ(asked, 65536u);
}

TEST_F(PdrTraversal, EveryFailedAllocationGives255) {
    // The walk's buffer, and one a record.
    for (int failing = 1; failing <= 3; failing++) {
        endpoint.answers.clear();
        answer({pdr_answer(test::counting(20), {.next_record = 5}),
                pdr_answer(test::counting(20), {.next_record = 0})});
        libc.fail_allocation(failing);
        EXPECT_EQ(walk(), 255) << failing;
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

}  // namespace
