// SPDX-License-Identifier: Apache-2.0
// A sensor's reading with all that it prints, and a FRU record.
#include <sideband/pldm.h>
#include <sideband/pldm_fru.h>
#include <sideband/pldm_monitor.h>

#include <array>
#include <cstring>
#include <string>

#include "bench/cases.h"
#include "bench/memory_platform.h"

namespace bench {
namespace {

constexpr uint16_t kSensor = 1;
/// GetSensorReading (DSP0248, clause 18.2): a 32-bit sensor, enabled, reads 0x00001234.
constexpr std::array<uint8_t, 14> kReading{0x00, 0x02, 0x11, 0x00, 0x04, 0x00, 0x00,
                                           0x01, 0x01, 0x01, 0x34, 0x12, 0x00, 0x00};
constexpr uint32_t kValue = 0x1234;

mctp_ctx endpoint;
pldm_ctx terminus;
uint32_t reading;

std::string table;
pldm_fru_record record;

}  // namespace

void prepare_reading() {
    prepare_endpoint(endpoint, MCTP_BINDING_KIND_SL8_SMBUS);
    terminus = pldm_ctx{};
    mctp_pldm_register(&endpoint, &terminus);
    prepare_answer(MCTP_MSG_TYPE_PLDM, kReading.data(), kReading.size(), kUnitSize);
}

bool run_reading() {
    reading = 0;
    return pldm_get_sensor_reading(&terminus, kSensor, &reading) == 0;
}

bool verify_reading() {
    return reading == kValue;
}

/// A general record (DSP0257, table 2) in ASCII.
void prepare_fru_record() {
    table = std::string("\x01\x00\x01", 3) + static_cast<char>(kFruRecordFields) + '\x01';
    for (size_t i = 0; i < kFruRecordFields; ++i) {
        const std::string value = "value of field " + std::to_string(i);
        table += static_cast<char>(2 + i);
        table += static_cast<char>(value.size());
        table += value;
    }
}

bool run_fru_record() {
    freeFRUdata(&record);
    return pldm_parse_record_table(reinterpret_cast<const uint8_t*>(table.data()), &record,
                                   static_cast<uint32_t>(table.size())) == 0;
}

bool verify_fru_record() {
    return record.number_of_fields == kFruRecordFields &&
           std::strcmp(record.fields[kFruRecordFields - 1].value, "value of field 7") == 0;
}

}  // namespace bench
