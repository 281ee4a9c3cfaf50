// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a PLDM terminus: its sensors' records and those of the board file.
#include "sim/pldm/pdr.h"

#include <algorithm>

#include "sim/pldm/device.h"

namespace sim {

namespace {

// Completion codes of GetPDR (DSP0248).
constexpr uint8_t kInvalidTransferHandle = 0x80;
constexpr uint8_t kInvalidOperationFlag = 0x81;
constexpr uint8_t kInvalidRecordHandle = 0x82;
constexpr uint8_t kInvalidChangeNumber = 0x83;

/// PDRType.
enum PdrType : uint8_t { kNumericSensor = 2, kStateSensor = 4, kSensorAuxiliaryNames = 6 };

constexpr uint8_t kHeaderVersion = 1;
constexpr size_t kHeaderSize = 10;
constexpr size_t kLongestData = 0xFFFF;
constexpr uint16_t kTerminusHandle = 1;
/// "length" makes a record of 64 KiB out of a few characters of a board file.
constexpr size_t kMostBytes = 4u << 20;

/// What the records of both kinds of sensor begin with.
Bytes sensor_record(const SensorInfo& info, const Entity& entity, bool has_names) {
    Bytes out;
    append_le16(out, kTerminusHandle);
    append_le16(out, info.id);
    append_le16(out, entity.type);
    append_le16(out, entity.instance);
    append_le16(out, entity.container);
    out.push_back(0);  // sensorInit: noInit
    out.push_back(has_names ? 1 : 0);
    return out;
}

/// State Sensor PDR (DSP0248), from the terminus handle on.
Bytes describe(const StateSensor& sensor, bool has_names) {
    Bytes out = sensor_record(sensor.info(), sensor.entity(), has_names);
    append(out, sensor.description());
    return out;
}

/// Numeric Sensor PDR (DSP0248), from the terminus handle on.
Bytes describe(const NumericSensor& sensor, bool has_names) {
    Bytes out = sensor_record(sensor.info(), sensor.entity(), has_names);
    append(out, sensor.description());
    return out;
}

}  // namespace

PdrRepository::PdrRepository(ObjectReader& reader, const std::vector<NumericSensor>& numeric,
                             const std::vector<StateSensor>& state) {
    part_size_ = static_cast<size_t>(reader.whole("pdr_part_size", 0, 0xFFFF, 0));
    const bool names = reader.flag("auxiliary_names", false);
    auto describe_all = [&](const auto& sensors, PdrType type) {
        for (const auto& sensor : sensors) {
            const SensorInfo& info = sensor.info();
            const bool has_names = names && !info.name.empty();
            if (!sensor.has_record()) {
                continue;
            }
            add(type, describe(sensor, has_names), 0, 0);
            if (has_names) {
                add_names(reader, info, type == kStateSensor ? info.composite_count : 1);
            }
        }
    };
    // Of a sensor that is wrong there is no record.
    if (reader.sound()) {
        describe_all(numeric, kNumericSensor);
        describe_all(state, kStateSensor);
    }
    reader.each("pdrs", [&](const Place& place) { add_from_file(place); });
}

void PdrRepository::add(uint8_t type, ByteView data, uint16_t change_number, size_t part_size) {
    Record record;
    append_le32(record.bytes, static_cast<uint32_t>(records_.size() + 1));
    record.bytes.push_back(kHeaderVersion);
    record.bytes.push_back(type);
    append_le16(record.bytes, change_number);
    append_le16(record.bytes, static_cast<uint16_t>(data.size()));
    append(record.bytes, data);
    record.part_size = part_size;
    if (!records_.empty()) {
        record.start = records_.back().start + static_cast<uint32_t>(records_.back().bytes.size());
    }
    records_.push_back(std::move(record));
}

/// Sensor Auxiliary Names PDR (DSP0248): the one name, in English, for each sensor.
void PdrRepository::add_names(ObjectReader& reader, const SensorInfo& info, size_t count) {
    Bytes out;
    append_le16(out, kTerminusHandle);
    append_le16(out, info.id);
    out.push_back(static_cast<uint8_t>(count));
    for (size_t i = 0; i < count; ++i) {
        append(out, Bytes{1, 'e', 'n', 0});  // one string, and its language
        for (char letter : info.name) {
            if (letter < 0x20 || letter > 0x7E) {
                return reader.complain("auxiliary_names", "needs sensor names in printable ASCII");
            }
            append(out, Bytes{0, static_cast<uint8_t>(letter)});  // UTF-16, big-endian
        }
        append(out, Bytes{0, 0});
    }
    if (out.size() > kLongestData) {
        return reader.complain("auxiliary_names", "needs shorter sensor names");
    }
    add(kSensorAuxiliaryNames, out, 0, 0);
}

void PdrRepository::add_from_file(const Place& place) {
    ObjectReader reader(place);
    const auto type = static_cast<uint8_t>(reader.whole("type", 0, 255));
    Bytes data;
    if (std::optional<Place> hex = reader.find("hex")) {
        data = hex->hex();
    }
    const size_t size = kHeaderSize + data.size();
    if (data.size() > kLongestData) {
        reader.complain("hex", "must have at most 65535 bytes");
    }
    const auto length =
        static_cast<size_t>(reader.whole("length", static_cast<int64_t>(size),
                                         kHeaderSize + kLongestData, static_cast<int64_t>(size)));
    data.resize(length - kHeaderSize);
    const auto change_number = static_cast<uint16_t>(reader.whole("change_number", 0, 0xFFFF, 0));
    const auto part_size = static_cast<size_t>(reader.whole("part_size", 0, 0xFFFF, 0));
    reader.finish();
    if (!records_.empty() && records_.back().start + records_.back().bytes.size() > kMostBytes) {
        place.fail("is more than the repository holds, " + std::to_string(kMostBytes) + " bytes");
    }
    add(type, data, change_number, part_size);
}

size_t PdrRepository::find(uint32_t handle) const {
    return handle == 0 ? 0 : std::min<size_t>(handle - 1, records_.size());
}

uint32_t PdrRepository::handle_at(size_t position) const {
    return position < records_.size() ? static_cast<uint32_t>(position + 1) : 0;
}

Bytes PdrRepository::info() const {
    size_t size = 0;
    size_t largest = 0;
    for (const Record& record : records_) {
        size += record.bytes.size();
        largest = std::max(largest, record.bytes.size());
    }
    Bytes out{0};            // available
    out.resize(1 + 2 * 13);  // neither update time is known
    append_le32(out, static_cast<uint32_t>(records_.size()));
    append_le32(out, static_cast<uint32_t>(size));
    append_le32(out, static_cast<uint32_t>(largest));
    out.push_back(0);  // transfer handles stay valid
    return pldm_reply(kPldmSuccess, out);
}

size_t PdrRepository::part_size(const Record& record, size_t at, size_t asked) const {
    size_t size = std::min(record.bytes.size() - at, asked);
    for (const size_t most : {record.part_size, part_size_}) {
        if (most != 0) {
            size = std::min(size, most);
        }
    }
    return size;
}

Bytes PdrRepository::get(ByteView data) const {
    const size_t position = find(le32(data, 0));
    const uint8_t operation = data[8];
    const size_t asked = le16(data, 9);
    if (operation > kPldmGetFirstPart) {
        return pldm_reply(kInvalidOperationFlag);
    }
    if (position >= records_.size()) {
        return pldm_reply(kInvalidRecordHandle);
    }
    if (asked == 0) {
        return pldm_reply(kPldmInvalidData);
    }
    const Record& record = records_[position];
    size_t at = 0;
    if (operation == kPldmGetNextPart) {
        // A transfer handle counts the bytes of the repository in front of its part.
        const uint32_t handle = le32(data, 4);
        if (handle <= record.start || handle - record.start >= record.bytes.size()) {
            return pldm_reply(kInvalidTransferHandle);
        }
        if (le16(data, 11) != le16(record.bytes, 6)) {
            return pldm_reply(kInvalidChangeNumber);
        }
        at = handle - record.start;
    }
    const size_t size = part_size(record, at, asked);
    const bool last = at + size == record.bytes.size();
    Bytes out;
    append_le32(out, handle_at(position + 1));
    append_le32(out, last ? 0 : static_cast<uint32_t>(record.start + at + size));
    out.push_back(pldm_transfer_flag(at == 0, last));
    append_le16(out, static_cast<uint16_t>(size));
    append(out, ByteView(record.bytes).subspan(at, size));
    if (last && at != 0) {
        out.push_back(smbus_pec(record.bytes));  // transferCRC has the polynomial of the PEC
    }
    return pldm_reply(kPldmSuccess, out);
}

Bytes PdrRepository::signature() const {
    Bytes all;
    for (const Record& record : records_) {
        append(all, record.bytes);
    }
    Bytes out;
    append_le32(out, crc32(all));
    return pldm_reply(kPldmSuccess, out);
}

}  // namespace sim
