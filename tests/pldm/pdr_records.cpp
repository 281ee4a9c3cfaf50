// SPDX-License-Identifier: Apache-2.0
// Raw PDRs for tests, GetPDR answers that carry them, and the terminus that gives them.
#include "pldm/pdr_records.h"

#include <algorithm>
#include <cstring>

namespace test {

namespace {

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes little(uint32_t value, unsigned width) {
    Bytes bytes;
    for (unsigned i = 0; i < width; i++) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    return bytes;
}

}  // namespace

Bytes numeric_pdr(uint8_t data_size, uint8_t range_format) {
    Bytes raw =
        hex("67 45 23 01  01 02 cd ab 00 00"  // handle, version, type, change number, length
            "01 02 03 04 05 06 07 08 09 0a"   // terminus, sensor, entity, instance, container
            "01 0b 02 fe 03 0c 05 fd 06 07 0d 01");  // sensorInit ... isLinear; modifiers -2, -3
    raw.push_back(data_size);
    append(raw, hex("00 00 00 3f  00 00 20 41  2c 01 0e 0f"));  // resolution ... minusTolerance
    unsigned slot = 0;
    const auto value = [&](uint8_t format) {
        const Bytes whole = counting(4, static_cast<uint8_t>(slot++ << 4 | 1));
        raw.insert(raw.end(), whole.begin(), whole.begin() + kWidths[format]);
    };
    value(data_size);                                     // hysteresis
    append(raw, hex("3f 3e  00 00 80 3f  00 00 40 40"));  // thresholds ... updateInterval
    value(data_size);                                     // maxReadable
    value(data_size);                                     // minReadable
    append(raw, {range_format, 0x7F});
    for (int i = 0; i < 9; i++) {
        value(range_format);
    }
    raw[8] = static_cast<uint8_t>(raw.size() - 10);
    return raw;
}

Bytes state_pdr(const std::vector<Composite>& sensors) {
    Bytes raw =
        hex("67 45 23 01  01 04 cd ab 00 00"
            "01 02 03 04 05 06 07 08 09 0a"
            "01 0b");
    raw.push_back(static_cast<uint8_t>(sensors.size()));
    for (const auto& [id, states] : sensors) {
        append(raw, little(id, 2));
        raw.push_back(static_cast<uint8_t>(states.size()));
        append(raw, states);
    }
    raw[8] = static_cast<uint8_t>(raw.size() - 10);
    return raw;
}

pldm_state_sensor_pdr state_record(const std::vector<Composite>& sensors) {
    const Bytes raw = state_pdr(sensors);
    pldm_state_sensor_pdr record{};
    std::memcpy(&record, raw.data(), std::min(raw.size(), sizeof record));
    return record;
}

Bytes pdr_answer(const Bytes& data, const PdrPart& part) {
    Bytes answer = hex("00 02 51 00");
    append(answer, little(part.next_record, 4));
    append(answer, little(part.next_transfer, 4));
    answer.push_back(part.flag);
    append(answer, little(static_cast<uint32_t>(data.size()), 2));
    append(answer, data);
    return answer;
}

void PdrRepository::TearDown() {
    EXPECT_EQ(libc.live_blocks(), 0u);
    PldmTest::TearDown();
}

void PdrRepository::answer(std::initializer_list<Bytes> bodies) {
    for (const Bytes& body : bodies) {
        endpoint.answers.push_back(MctpAnswer::of(body));
    }
}

}  // namespace test
