// SPDX-License-Identifier: Apache-2.0
// Records that lie, are cut, or have bits flipped: every decoder, in memory of exactly its size.
#include <gtest/gtest.h>
#include <sideband/debug_log.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::pdr_answer;

class PdrHostile : public test::PdrRepository {
protected:
    /// The log is off unless its messages count: what is printed is read all the same.
    PdrHostile() { libc.present.clear(); }

    /// Does with a decoded record what depends on its contents, in memory of exactly its size.
    void use(const pldm_numeric_sensor_pdr& decoded);
    void use(const pldm_state_sensor_pdr& decoded);

    /// A record of which all bytes of a buffer are known is decoded, and the result used.
    void decode(const Bytes& raw);

    /// The same through GetPDR. @return the result of pldm_get_full_pdr()
    int32_t fetch(const Bytes& raw);
};

void PdrHostile::use(const pldm_numeric_sensor_pdr& decoded) {
    const auto record = std::make_unique<pldm_numeric_sensor_pdr>(decoded);
    for (uint32_t reading : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        const uint8_t value = pldm_numeric_reading_conversion(reading, record.get());
        if (record->sensor_data_size > 5) {
            EXPECT_EQ(value, 255);
        }
    }
}

void PdrHostile::use(const pldm_state_sensor_pdr& decoded) {
    const auto record = std::make_unique<pldm_state_sensor_pdr>(decoded);
    pldm_print_state_PDR(record.get());
    for (uint16_t id : {0, 1, 18, 257, 65535}) {
        uint32_t index = 0xEEEEEEEE;
        const int32_t result = pldm_find_ctrl_state_set_idx(id, record.get(), &index);
        EXPECT_TRUE(result == 0 || result == 144) << result;
        EXPECT_EQ(result == 0, index != 0xEEEEEEEE);
        if (result == 0) {
            EXPECT_LT(index, record->composite_sensor_count);
            EXPECT_LE(index, 12u);
        }
    }
}

void PdrHostile::decode(const Bytes& raw) {
    Bytes buffer = raw;
    buffer.resize(105);
    pldm_pdr record{};
    const int32_t result = pldm_parse_pdr(buffer.data(), &record);
    EXPECT_TRUE(result == 0 || result == -1);
    const bool known = buffer[5] == 2 || buffer[5] == 4;
    EXPECT_TRUE(known || result == -1);
    if (buffer[5] == 2) {
        use(record.numeric);
    } else {
        use(record.state);
    }
    // The decoders do not look at the type.
    pldm_numeric_sensor_pdr numeric{};
    const bool formats = pldm_parse_numeric_sensor_pdr(buffer.data(), &numeric) == 0;
    EXPECT_EQ(formats, numeric.sensor_data_size < 7 && numeric.range_field_format < 7);
    pldm_state_sensor_pdr state{};
    EXPECT_EQ(pldm_parse_state_sensor_pdr(buffer.data(), &state), 0);
    EXPECT_EQ(std::memcmp(&state, buffer.data(), sizeof state), 0);
}

int32_t PdrHostile::fetch(const Bytes& raw) {
    const auto record = std::make_unique<pldm_pdr>();
    endpoint.answers.clear();
    endpoint.calls.clear();
    answer({pdr_answer(raw)});
    const int32_t result =
        test::run([&] { return pldm_get_full_pdr(&ctx, 0, record.get()); }).result;
    EXPECT_TRUE(result == 0 || result == -1);
    return result;
}

const std::vector<Bytes>& good_records() {
    static const std::vector<Bytes> kAll = {
        test::numeric_pdr(0, 0),
        test::numeric_pdr(3, 2),
        test::numeric_pdr(5, 6),
        test::state_pdr({{1, {3}}, {18, {1, 2, 3}}, {257, Bytes(20, 0x55)}}),
        test::state_pdr({}),
    };
    return kAll;
}

TEST_F(PdrHostile, RecordsTruncatedAtEveryByteAreRefusedOrPaddedWithZeros) {
    for (const Bytes& good : good_records()) {
        const size_t needed = good[5] == 2 ? good.size() : 23;
        for (size_t length = 0; length <= good.size(); length++) {
            SCOPED_TRACE(length);
            const Bytes part(good.begin(), good.begin() + static_cast<long>(length));
            decode(part);
            EXPECT_EQ(fetch(part), length >= needed ? 0 : -1);
        }
    }
}

TEST_F(PdrHostile, RecordsWithEachBitFlippedNeverLeaveTheBuffers) {
    for (const Bytes& good : good_records()) {
        for (size_t bit = 0; bit < good.size() * 8; bit++) {
            SCOPED_TRACE(bit);
            Bytes bad = good;
            bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
            decode(bad);
            fetch(bad);
        }
    }
}

TEST_F(PdrHostile, EveryByteAtItsExtremesNeverLeavesTheBuffers) {
    for (const Bytes& good : good_records()) {
        for (size_t at = 0; at < good.size(); at++) {
            for (uint8_t value : {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF}) {
                SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{value});
                Bytes bad = good;
                bad[at] = value;
                decode(bad);
                fetch(bad);
            }
        }
    }
}

/// A state sensor in which every entry has this size, state set 0xAAAA and states that look like
/// sizes.
pldm_state_sensor_pdr uniform(uint8_t count, unsigned size) {
    pldm_state_sensor_pdr record{};
    record.composite_sensor_count = count;
    for (size_t i = 0; i < sizeof record.entries; i++) {
        record.entries[i] = static_cast<uint8_t>(i % (size + 3) < 2 ? 0xAA : size);
    }
    return record;
}

TEST_F(PdrHostile, EveryCountAndSizeOfAStateSensorStaysInTheRecord) {
    for (uint8_t count : {0, 1, 2, 8, 12, 13, 14, 127, 128, 254, 255}) {
        for (unsigned size = 0; size <= 255; size++) {
            if (size > 42 && size % 16 > 1 && size % 16 < 14) {
                continue;  // far behind the record one size is like another
            }
            SCOPED_TRACE(testing::Message() << int{count} << " sensors of " << size);
            const pldm_state_sensor_pdr record = uniform(count, size);
            use(record);
            uint32_t index = 0;
            EXPECT_EQ(pldm_find_ctrl_state_set_idx(0xAAAA, &record, &index), count == 0 ? 144 : 0);
        }
    }
}

TEST_F(PdrHostile, ANumericRecordIsPrintedFromMemoryOfExactlyItsSize) {
    libc.present = {DEBUG_LOG_FILE_MARKER};
    const auto record = std::make_unique<pldm_numeric_sensor_pdr>();
    std::memset(record.get(), 0xFF, sizeof *record);
    pldm_print_numeric_PDR(record.get());
    dump_numeric_sensor_pdr(record.get());
    EXPECT_EQ(messages().size(), 46u);
    EXPECT_EQ(test::port().console.size(), 105u + 7 + 1);
}

TEST_F(PdrHostile, WhatIsPrintedOfAStateSensorIsBounded) {
    libc.present = {DEBUG_LOG_FILE_MARKER};
    for (uint8_t count : {0, 1, 13, 14, 255}) {
        for (unsigned size : {0u, 1u, 35u, 38u, 39u, 254u, 255u}) {
            SCOPED_TRACE(testing::Message() << int{count} << " sensors of " << size);
            messages().clear();
            use(uniform(count, size));
            const size_t fitting = std::min<size_t>(count, 41 / (size + 3));
            // 13 lines; of each entry four and a line end, and its states; a last one cut short.
            EXPECT_GE(messages().size(), 13 + fitting * (5 + size));
            EXPECT_LE(messages().size(), 13u + (fitting + 1) * 5 + 38 + 1 + 5);
        }
    }
}

TEST_F(PdrHostile, EveryResponseCountIsHeldAgainstWhatArrived) {
    const Bytes good = pdr_answer(test::state_pdr({{1, {3}}}), {.next_record = 9});
    const uint32_t arrived = 27;
    for (uint32_t count :
         {0u, 1u, 26u, 27u, 28u, 127u, 128u, 129u, 255u, 256u, 32767u, 32768u, 65534u, 65535u}) {
        SCOPED_TRACE(count);
        Bytes bad = good;
        bad[13] = static_cast<uint8_t>(count);
        bad[14] = static_cast<uint8_t>(count >> 8);
        answer({bad});
        // Exactly as much room as is offered.
        const auto room = std::make_unique<uint8_t[]>(128);
        std::fill_n(room.get(), 128, uint8_t{0xEE});
        uint32_t handle = 5;
        const int32_t result = pldm_get_pdr(&ctx, &handle, room.get(), 128);
        const bool whole = count <= arrived;
        EXPECT_EQ(result, whole || count > 128 ? 0 : -1);
        EXPECT_EQ(handle, whole ? 9u : 5u);
        const auto touched = static_cast<uint32_t>(
            std::find(room.get(), room.get() + 128, uint8_t{0xEE}) - room.get());
        EXPECT_EQ(touched, whole ? count : 0);
    }
}

TEST_F(PdrHostile, EveryCapacityIsKept) {
    const Bytes record = test::counting(40);
    for (uint32_t capacity = 1; capacity <= 45; capacity++) {
        SCOPED_TRACE(capacity);
        endpoint.answers.clear();
        answer({pdr_answer(test::counting(15), {9, 1, 1}),
                pdr_answer(test::counting(15, 15), {9, 2, 2}),
                pdr_answer(test::counting(10, 30), {9, 0, 4})});
        Bytes room(capacity, 0xEE);
        uint32_t handle = 5;
        EXPECT_EQ(pldm_get_pdr(&ctx, &handle, room.data(), capacity), 0);
        EXPECT_EQ(handle, capacity < 40 ? 5u : 9u);
        const size_t received = capacity < 15 ? 0 : capacity < 30 ? 15 : capacity < 40 ? 30 : 40;
        EXPECT_TRUE(
            std::equal(room.begin(), room.begin() + static_cast<long>(received), record.begin()));
        EXPECT_TRUE(std::all_of(room.begin() + static_cast<long>(received), room.end(),
                                [](uint8_t byte) { return byte == 0xEE; }));
    }
}

TEST_F(PdrHostile, RecordsAtRandomNeverLeaveTheBuffers) {
    std::mt19937 random(4711);
    for (int round = 0; round < 1000; round++) {
        SCOPED_TRACE(round);
        Bytes raw(random() % 140);
        std::generate(raw.begin(), raw.end(), [&] { return static_cast<uint8_t>(random()); });
        // Most of them have a type that is decoded, and formats that exist.
        if (round % 4 != 0 && raw.size() > 40) {
            raw[5] = round % 4 == 1 ? 4 : 2;
            raw[32] = static_cast<uint8_t>(raw[32] % 8);
        }
        fetch(raw);
        raw.resize(std::min<size_t>(raw.size(), 105));
        decode(raw);
    }
}

}  // namespace
