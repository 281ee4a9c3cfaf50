// SPDX-License-Identifier: Apache-2.0
// PDRs, from the library's call to the simulated terminus and back.
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include "fixture.h"
#include "support/numbers.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;
using Bytes = std::vector<uint8_t>;

/// A terminus on I2C with keys of its own, and what the library printed on the way left out.
class Terminus : public BoardRun {
protected:
    void open_terminus(const std::string& keys) {
        open(board_with("", R"({"name": "nic0", "type": "pldm", "bus": 2, "address": "0x64",
                                "eid": 20, )" +
                                keys + "}"));
        mctp = context_of("nic0");
        ASSERT_EQ(mctp_init2(&mctp), 0);
        terminus = {};
        ASSERT_EQ(mctp_pldm_register(&mctp, &terminus), 0);
    }

    /// Reads one record. @return its bytes; handle is the next one's if the record came whole
    Bytes read(uint32_t& handle, uint32_t capacity = PLDM_PDR_PART_SIZE) {
        // What arrives is recognised by what the buffer held before.
        Bytes first(capacity, 0x00);
        Bytes second(capacity, 0xFF);
        uint32_t again = handle;
        EXPECT_EQ(pldm_get_pdr(&terminus, &handle, first.data(), capacity), 0);
        EXPECT_EQ(pldm_get_pdr(&terminus, &again, second.data(), capacity), 0);
        size_t size = 0;
        while (size < capacity && first[size] == second[size]) {
            ++size;
        }
        first.resize(size);
        return first;
    }

    mctp_ctx mctp{};
    pldm_ctx terminus{};
};

/// One numeric sensor for every data size and range format, all with the ID that counts them.
std::string every_format() {
    static constexpr const char* kFormats[] = {"uint8",  "sint8",  "uint16", "sint16",
                                               "uint32", "sint32", "real32"};
    std::string sensors;
    int id = 0;
    for (const char* const size : {"1", "2", "4"}) {
        for (const char* const is_signed : {"false", "true"}) {
            for (const char* const format : kFormats) {
                sensors += std::string(sensors.empty() ? "" : ", ") +
                           R"({"kind": "numeric", "id": )" + std::to_string(++id) +
                           R"(, "data_size": )" + size + R"(, "signed": )" + is_signed +
                           R"(, "range_format": ")" + format +
                           R"(", "offset": 5, "waveform": {"shape": "constant", "value": 47},
                               "thresholds": {"upper_warning": 90}})";
            }
        }
    }
    return R"("sensors": [)" + sensors + "]";
}

TEST_F(Terminus, EveryDataSizeAndRangeFormatIsReadDecodedAndConverted) {
    open_terminus(every_format());
    uint32_t count = 0;
    ASSERT_EQ(pldm_get_pdr_repository_info(&terminus, &count), 0);
    EXPECT_EQ(count, 42U);
    for (uint32_t handle = 1; handle <= count; ++handle) {
        pldm_pdr record{};
        ASSERT_EQ(pldm_get_full_pdr(&terminus, handle, &record), 0) << handle;
        EXPECT_EQ(test::wire_order(record.header.record_handle), handle);
        ASSERT_EQ(record.header.type, PLDM_PDR_TYPE_NUMERIC_SENSOR);
        const uint16_t id = test::wire_order(record.numeric.sensor_id);
        EXPECT_EQ(id, handle);
        EXPECT_EQ(record.numeric.sensor_data_size, (handle - 1) / 7);
        EXPECT_EQ(record.numeric.range_field_format, (handle - 1) % 7);
        const uint32_t ninety = record.numeric.range_field_format == PLDM_DATA_SIZE_REAL32
                                    ? 0x42B40000U  // 90.0
                                    : 90U;
        EXPECT_EQ(test::wire_order(record.numeric.warning_high), ninety) << handle;
        uint32_t reading = 0;
        ASSERT_EQ(pldm_get_sensor_reading(&terminus, id, &reading), 0);
        EXPECT_EQ(reading, 42U);
        EXPECT_EQ(pldm_reading_conversion(reading, &record, 1), 47) << "42 counts and 5";
    }
}

TEST_F(Terminus, CompositeSensorsAreFoundByTheirStateSets) {
    open_terminus(R"("sensors": [{"kind": "state", "id": 8, "composites": [
        {"state_set": 1, "states": [1]}, {"state_set": 21, "states": [2, 1]},
        {"state_set": 257, "states": [3]}]}])");
    pldm_pdr record{};
    ASSERT_EQ(pldm_get_full_pdr(&terminus, 0, &record), 0);
    ASSERT_EQ(record.header.type, PLDM_PDR_TYPE_STATE_SENSOR);
    EXPECT_EQ(record.state.composite_sensor_count, 3);
    uint32_t index = 99;
    EXPECT_EQ(pldm_find_ctrl_state_set_idx(257, &record.state, &index), 0);
    EXPECT_EQ(index, 2U);
    pldm_state_reading state{};
    EXPECT_EQ(pldm_get_state_sensor_reading_from_HEALTH(&terminus, 8, &state,
                                                        static_cast<uint8_t>(index)),
              0);
    EXPECT_EQ(state.present_state, 3);
    EXPECT_EQ(pldm_find_ctrl_state_set_idx(2, &record.state, &index), PLDM_PDR_NOT_FOUND);
}

/// A record of another type, one of exactly 128 bytes, one in three parts, one that is too long.
const char* const kOddRecords = R"("pdrs": [
    {"type": 6, "hex": "00010203"}, {"type": 20, "length": 128},
    {"type": 15, "length": 60, "part_size": 24, "change_number": 258},
    {"type": 22, "length": 200}, {"type": 2, "hex": "0102"}])";

TEST_F(Terminus, RecordsOfEveryShapeComeAsFarAsTheyFit) {
    open_terminus(kOddRecords);
    uint32_t handle = 0;
    EXPECT_EQ(read(handle).size(), 14U);
    EXPECT_EQ(handle, 2U);
    EXPECT_EQ(read(handle).size(), 128U);
    EXPECT_EQ(handle, 3U);
    EXPECT_EQ(read(handle).size(), 60U) << "in parts of 24, 24 and 12";
    EXPECT_EQ(handle, 4U);
    EXPECT_EQ(read(handle).size(), 128U) << "the first part of 200 bytes";
    EXPECT_EQ(handle, 4U) << "not whole";
    EXPECT_EQ(read(handle, 7 * PLDM_PDR_PART_SIZE).size(), 200U);
    EXPECT_EQ(handle, 5U);
    EXPECT_EQ(read(handle).size(), 12U);
    EXPECT_EQ(handle, 0U);
    pldm_pdr record{};
    EXPECT_EQ(pldm_get_full_pdr(&terminus, 5, &record), -1) << "too short for a numeric sensor";
    EXPECT_EQ(pldm_get_full_pdr(&terminus, 1, &record), -1) << "of a type that is not decoded";
}

TEST_F(Terminus, TraversalReadsEveryRecordOnce) {
    open_terminus(every_format());
    const uint64_t before = board->bus_statistics()[0].packets;
    EXPECT_EQ(pldm_PDR_traversal(&terminus), 0);
    // Every request is one packet, every answer two or three of 64 message bytes.
    const uint64_t packets = board->bus_statistics()[0].packets - before;
    EXPECT_GE(packets, 42U * 3);
    EXPECT_LE(packets, 42U * 4);
}

TEST_F(Terminus, TerminusWithoutSuchARecordSaysSo) {
    open_terminus(R"("sensors": [])");
    Bytes room(PLDM_PDR_PART_SIZE);
    uint32_t handle = 7;
    EXPECT_EQ(pldm_get_pdr(&terminus, &handle, room.data(), PLDM_PDR_PART_SIZE), -1);
    EXPECT_EQ(terminus.completion_code, 0x82) << "INVALID_RECORD_HANDLE";
    EXPECT_EQ(handle, 7U);
}

}  // namespace
