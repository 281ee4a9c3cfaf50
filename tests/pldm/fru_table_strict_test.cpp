// SPDX-License-Identifier: Apache-2.0
// FRU tables with MCTP_STRICT_PLDM: parts of any size, and the checksum behind the table (DSP0257).
#include <gtest/gtest.h>

#include "pldm/fru_fixture.h"
#include "testing/package_builder.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::table_part;
using test::operator+;
using Texts = std::vector<std::string>;

/// CRC-32, computed apart from the library.
Bytes checksum_of(const Bytes& bytes) {
    return test::le32(tool::package_checksum(bytes.data(), bytes.size()));
}

class PldmFruStrict : public test::FruTest {
protected:
    PldmFruStrict() { endpoint.strict = MCTP_STRICT_PLDM; }

    /// Answers with these parts of the table in turn, the last one of which says so.
    void serve(const Bytes& told_checksum, const std::vector<Bytes>& parts) {
        endpoint.answers.clear();
        endpoint.calls.clear();
        ctx.instance_id = 0;
        answer({test::hex("00 04 01 00 01 00 00 00 00 00") +
                test::le32(static_cast<uint32_t>(table.size())) + test::hex("01 00 01 00") +
                told_checksum});
        serve_parts(1, parts);
    }

    void serve_parts(uint8_t instance_id, const std::vector<Bytes>& parts) {
        for (size_t i = 0; i < parts.size(); ++i) {
            const uint8_t flag =
                static_cast<uint8_t>((i == 0 ? 1 : 0) | (i + 1 == parts.size() ? 4 : 0));
            Bytes part =
                table_part(flag != 0 ? flag : 2, 0x100 + static_cast<uint32_t>(i), parts[i]);
            part[0] = static_cast<uint8_t>(instance_id + i);
            answer({part});
        }
    }

    Outcome read() {
        destination.assign(table.size() + 8, 0xEE);
        return test::run([&] { return pldm_get_FRU_record_table(&ctx, destination.data(), 0); });
    }

    Outcome read_fixed() {
        destination.assign(table.size() + 8, 0xEE);
        return test::run([&] {
            return pldm_get_FRU_record_table_MX(&ctx, destination.data(),
                                                static_cast<int32_t>(table.size()));
        });
    }

    void expect_table() const {
        EXPECT_EQ(destination, table + Bytes(8, 0xEE)) << "neither pad bytes nor checksum";
    }
    void expect_untouched() const { EXPECT_EQ(destination, Bytes(table.size() + 8, 0xEE)); }

    /// The pieces of what travels, cut at these places.
    std::vector<Bytes> cut(std::vector<size_t> places) const {
        std::vector<Bytes> parts;
        size_t from = 0;
        places.push_back(whole.size());
        for (size_t to : places) {
            parts.emplace_back(whole.begin() + static_cast<long>(from),
                               whole.begin() + static_cast<long>(to));
            from = to;
        }
        return parts;
    }

    const Bytes table = test::counting(117, 0x10);
    const Bytes padded = table + Bytes(3);
    const Bytes checksum = checksum_of(padded);
    const Bytes whole = padded + checksum;  ///< 124 bytes
    Bytes destination;
};

TEST_F(PldmFruStrict, APartWithoutItsHeaderIsRefused) {
    // Handle of the next part and transfer flag are five bytes (DSP0257, GetFRURecordTable).
    for (const size_t size : {4U, 5U, 8U}) {
        serve(checksum, {});
        Bytes part = table_part(1, 0x100, {});
        part.resize(size);
        part[0] = 1;
        answer({part});
        EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT) << size;
        EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
        EXPECT_EQ(endpoint.calls.size(), 2u);
        expect_untouched();
    }
}

TEST_F(PldmFruStrict, PartsMayHaveAnySize) {
    const std::vector<std::vector<size_t>> cuts{{},    {54, 108},       {1},  {100}, {60, 61, 118},
                                                {119}, {121, 122, 123}, {117}};
    for (const auto& places : cuts) {
        serve(checksum, cut(places));
        EXPECT_EQ(read().result, 0);
        expect_table();
        EXPECT_EQ(endpoint.calls.size(), places.size() + 2);
    }
    EXPECT_EQ(endpoint.messages(),
              (Texts{"80 04 01", "81 04 02 00 00 00 00 01", "82 04 02 00 01 00 00 00"}));
    EXPECT_EQ(endpoint.calls[1].capacity, 9 + 124);
    EXPECT_EQ(test::port().syslog, Texts{});
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmFruStrict, WithoutTheBitBytesBehind54AreLost) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    serve(checksum, cut({60}));
    EXPECT_EQ(read().result, 0);
    EXPECT_NE(Bytes(destination.begin(), destination.begin() + 117), table);
    EXPECT_EQ(Bytes(destination.begin(), destination.begin() + 54),
              Bytes(table.begin(), table.begin() + 54));
}

TEST_F(PldmFruStrict, EachBitOfTheChecksumCounts) {
    for (size_t bit = 0; bit < whole.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        std::vector<Bytes> parts = cut({54});
        Bytes& part = parts[bit / 8 < 54 ? 0 : 1];
        part[bit / 8 - (bit / 8 < 54 ? 0 : 54)] ^= static_cast<uint8_t>(1U << (bit % 8));
        serve(checksum, parts);
        EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT);
        expect_untouched();
    }
    EXPECT_EQ(test::port().syslog.back(),
              "pldm_get_FRU_record_table, the checksum of the table is wrong\n");
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmFruStrict, TheChecksumOfTheMetadataCountsToo) {
    serve(test::hex("de ad be ef"), cut({}));
    EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT);
    expect_untouched();
    endpoint.answers.clear();
    answer({test::hex("02 04 01 00 01 00 00 00 00 00 75 00 00 00")});  // ends behind the length
    EXPECT_EQ(read().result, -1);
}

TEST_F(PldmFruStrict, WithoutTheBitNoChecksumIsLookedAt) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    serve(test::hex("de ad be ef"), {table});
    EXPECT_EQ(read().result, 0);
    expect_table();
}

TEST_F(PldmFruStrict, ATableThatEndsTooSoonOrTooLateFails) {
    const Bytes surplus = whole + Bytes{0};
    const std::vector<std::vector<Bytes>> tables{
        {table},
        {padded},
        {Bytes(whole.begin(), whole.end() - 1)},  // the last part too short
        {whole, {}},                              // it goes on behind the end
        {Bytes(whole.begin(), whole.begin() + 60), Bytes(60, 1), Bytes(60, 2)}};
    for (const auto& parts : tables) {
        serve(checksum, parts);
        EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT);
        expect_untouched();
    }
    EXPECT_EQ(test::port().syslog.front(),
              "pldm_get_FRU_record_table, part of 117 bytes: the table has 124 more\n");
}

TEST_F(PldmFruStrict, APartWithoutDataEndsIt) {
    serve(checksum, {{}, whole});
    EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmFruStrict, NoTableOfThatLengthIsAskedFor) {
    destination.resize(PLDM_FRU_TABLE_LENGTH_MAX + 1);
    EXPECT_EQ(test::run([&] {
                  return pldm_get_FRU_record_table_MX(&ctx, destination.data(),
                                                      PLDM_FRU_TABLE_LENGTH_MAX + 1);
              }).result,
              PLDM_ERROR_ARGUMENT);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmFruStrict, FailuresOfTheExchangeAreReturned) {
    serve(checksum, {});
    EXPECT_EQ(read().result, -1);
    expect_untouched();
    serve(checksum, {});
    answer({test::hex("01 04 02 85")});
    EXPECT_EQ(read().result, -1);
    pass_through(0, test::hex("00 04 02 85"));
    EXPECT_EQ(test::run([&] {
                  return pldm_get_FRU_record_table_MX(&ctx, destination.data(), 117);
              }).result,
              0x85);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmFruStrict, WithoutMemoryNothingIsRead) {
    for (int failing : {1, 2}) {
        serve(checksum, cut({}));
        libc.fail_allocation(failing);
        EXPECT_EQ(read().result, PLDM_ERROR_ARGUMENT);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

TEST_F(PldmFruStrict, TheFixedReaderTakesPartsOfAnySizeAndTheChecksum) {
    serve_parts(0, cut({100}));
    EXPECT_EQ(read_fixed().result, 0);
    expect_table();
    EXPECT_EQ(endpoint.messages(), (Texts{"80 04 02 00 00 00 00 01", "81 04 02 00 01 00 00 00"}));
    Bytes wrong = whole;
    wrong.back() ^= 0x80;
    serve_parts(2, {wrong});
    EXPECT_EQ(read_fixed().result, PLDM_ERROR_ARGUMENT);
    EXPECT_EQ(destination, Bytes(table.size()) + Bytes(8, 0xEE)) << "zeroed, as without the bit";
}

TEST_F(PldmFruStrict, FieldsArePrintedOfATableThatIsRight) {
    const Bytes record = test::hex("01 00 01 01 01 02 03 41 42 43");
    const Bytes sealed = record + Bytes(2);
    for (const bool right : {true, false}) {
        endpoint.answers.clear();
        ctx.instance_id = 0;
        Bytes sum = checksum_of(sealed);
        answer({test::hex("00 04 01 00 01 00 00 00 00 00 0a 00 00 00 01 00 01 00") + sum});
        sum[0] ^= right ? 0 : 1;
        serve_parts(1, {sealed + sum});
        const Outcome outcome = test::run([&] { return pldm_get_FRU_fields(&ctx, 2); });
        EXPECT_EQ(outcome.result, right ? 0 : -2);
        EXPECT_EQ(outcome.out.find("ctx = ABC") != std::string::npos, right);
    }
}

}  // namespace
