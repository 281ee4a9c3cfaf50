// SPDX-License-Identifier: Apache-2.0
// The transfer CRC of a PDR in parts (DSP0248, GetPDR): verified with MCTP_STRICT_PLDM.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::pdr_answer;
using test::operator+;
using Texts = std::vector<std::string>;

constexpr const char* kWrong = "pldm_get_pdr, the transfer CRC is wrong\n";

class PdrStrict : public test::PdrRepository {
protected:
    PdrStrict() { endpoint.strict = MCTP_STRICT_PLDM; }

    Outcome get(uint32_t capacity = 256) {
        buffer.assign(256, 0);
        handle = 7;
        return test::run([&] { return pldm_get_pdr(&ctx, &handle, buffer.data(), capacity); });
    }

    /// Answers with a record of 20 bytes in two parts, this behind the second one.
    void serve(const Bytes& crc) {
        endpoint.answers.clear();
        endpoint.calls.clear();
        ctx.instance_id = 0;
        Bytes second = pdr_answer(Bytes(record.begin() + 12, record.end()), {9, 0, 4});
        second[0] = 1;
        answer(
            {pdr_answer(Bytes(record.begin(), record.begin() + 12), {9, 0x30, 0}), second + crc});
    }

    const Bytes record = test::counting(20, 0x40);
    /// CRC-8, polynomial 0x07, of the whole record, computed apart from the library.
    const Bytes crc{test::pec(record)};
    Bytes buffer;
    uint32_t handle = 0;
};

TEST_F(PdrStrict, ARecordWithItsCrcIsTaken) {
    serve(crc);
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 9u);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 20), record);
    EXPECT_EQ(endpoint.calls[0].capacity, 144) << "room for the CRC behind a full part";
    EXPECT_EQ(endpoint.messages()[1], "81 02 51 07 00 00 00 30 00 00 00 00 80 00 46 47");
}

TEST_F(PdrStrict, EachWrongCrcFails) {
    for (unsigned bit = 0; bit < 8; ++bit) {
        serve({static_cast<uint8_t>(crc[0] ^ (1U << bit))});
        messages().clear();
        EXPECT_EQ(get().result, -1);
        EXPECT_EQ(handle, 7u);
        EXPECT_EQ(messages(), Texts{kWrong});
    }
}

TEST_F(PdrStrict, AMissingCrcFails) {
    serve({});
    EXPECT_EQ(get().result, -1);
    EXPECT_EQ(handle, 7u);
    EXPECT_EQ(messages(), Texts{"pldm_get_pdr, response of 23 bytes is too short\n"});
}

TEST_F(PdrStrict, ARecordThatIsNotWholeHasToHoldWhatItsTypeDemandsToBeDecoded) {
    const Bytes raw = test::numeric_pdr(4, 4);
    Bytes second = pdr_answer(test::counting(85), {5, 0, 4});
    second[0] = 1;
    answer({pdr_answer(Bytes(raw.begin(), raw.begin() + 60), {5, 1, 1}), second});
    pldm_pdr parsed{};
    EXPECT_EQ(test::run([&] { return pldm_get_full_pdr(&ctx, 0, &parsed); }).result, -1);
    EXPECT_EQ(parsed.header.type, 0);
    EXPECT_EQ(messages(), Texts{"pldm_get_full_pdr, record of 60 bytes is too short\n"});
}

TEST_F(PdrStrict, ARecordInOnePartHasNone) {
    answer({pdr_answer(record, {9, 0, 5})});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(handle, 9u);
}

TEST_F(PdrStrict, TheCrcBehindAFullPartIsSeen) {
    const Bytes large = test::counting(256);
    Bytes second = pdr_answer(Bytes(large.begin() + 128, large.end()), {9, 0, 4});
    second[0] = 1;
    second.push_back(test::pec(large));
    answer({pdr_answer(Bytes(large.begin(), large.begin() + 128), {9, 0x30, 1}), second});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(buffer, large);
}

TEST_F(PdrStrict, TheWalkEndsWithAWrongCrc) {
    serve({static_cast<uint8_t>(~crc[0])});
    EXPECT_EQ(test::run([&] { return pldm_PDR_traversal(&ctx); }).result, 255);
}

TEST_F(PdrStrict, WithoutTheBitNoCrcIsLookedAt) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    for (const Bytes& behind : {Bytes{}, Bytes{static_cast<uint8_t>(~crc[0])}, crc}) {
        serve(behind);
        EXPECT_EQ(get().result, 0);
        EXPECT_EQ(handle, 9u);
        EXPECT_EQ(endpoint.calls[0].capacity, 143);
    }
    EXPECT_EQ(messages(), Texts{});
}

}  // namespace
