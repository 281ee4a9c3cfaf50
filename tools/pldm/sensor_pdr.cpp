// SPDX-License-Identifier: Apache-2.0
// Sensors as their PDRs describe them (DSP0248): numeric and state sensors, auxiliary names.
#include "tools/pldm/sensor_pdr.h"

#include <fmt/format.h>

#include <bit>
#include <cmath>
#include <cstdlib>

#include "common/wire.h"
#include "tools/pldm/pdr_names.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using sideband::WireReader;

constexpr uint8_t kAuxiliaryNamesType = 6;
constexpr size_t kCommonHeader = sizeof(pldm_pdr_header);
constexpr size_t kDataSizeAt = offsetof(pldm_numeric_sensor_pdr, sensor_data_size);
constexpr size_t kHysteresisAt = offsetof(pldm_numeric_sensor_pdr, hysteresis);
constexpr size_t kEntriesAt = offsetof(pldm_state_sensor_pdr, entries);

/// Bytes that a numeric sensor record must have, as far as it says so; 0 for a format that does not
/// exist.
size_t numeric_size(std::span<const uint8_t> raw) {
    constexpr size_t kBetween = 10;  // supportedThresholds to updateInterval
    constexpr size_t kRangeHeader = 2;
    constexpr size_t kRangeValues = 9;
    if (raw.size() <= kDataSizeAt) {
        return kDataSizeAt + 1;
    }
    const auto width = static_cast<size_t>(pldm_get_data_size(raw[kDataSizeAt]));
    const size_t range_at = kHysteresisAt + 3 * width + kBetween;
    if (width == 0 || raw.size() <= range_at) {
        return width == 0 ? 0 : range_at + 1;
    }
    const auto range_width = static_cast<size_t>(pldm_get_data_size(raw[range_at]));
    return range_width == 0 ? 0 : range_at + kRangeHeader + kRangeValues * range_width;
}

/// All composite sensors of a record; false if they run past it.
bool read_composites(std::span<const uint8_t> raw, std::vector<CompositeSensor>& composites) {
    WireReader reader(raw);
    reader.skip(kEntriesAt - 1);
    for (int left = reader.u8(); left > 0 && reader.ok(); --left) {
        CompositeSensor composite;
        composite.state_set = reader.le16();
        composite.possible_states.resize(reader.u8());
        if (!composite.possible_states.empty()) {
            reader.copy(composite.possible_states);
        }
        composites.push_back(std::move(composite));
    }
    return reader.ok();
}

/// Why a record cannot be decoded; empty if it can. Reads the composite sensors on the way.
std::string sensor_problem(const PdrRecord& record, std::vector<CompositeSensor>& composites) {
    const size_t size = record.bytes.size();
    if (record.type() == PLDM_PDR_TYPE_NUMERIC_SENSOR) {
        const size_t demanded = numeric_size(record.bytes);
        if (demanded == 0) {
            return "its data size or range format does not exist";
        }
        return size < demanded ? fmt::format("it has {} bytes and needs {}", size, demanded) : "";
    }
    return read_composites(record.bytes, composites)
               ? ""
               : fmt::format("its composite sensors run past its {} bytes", size);
}

/// A string that ends with its first NUL unit; empty at the end of the record.
std::vector<uint8_t> read_string(WireReader& reader, size_t unit) {
    std::vector<uint8_t> text;
    for (;;) {
        std::array<uint8_t, 2> piece{};
        reader.copy(std::span(piece).first(unit));
        if (piece == std::array<uint8_t, 2>{}) {
            return text;
        }
        text.insert(text.end(), piece.begin(), piece.begin() + static_cast<ptrdiff_t>(unit));
    }
}

/// One name: the English one, else the first.
std::string read_name(WireReader& reader) {
    std::string chosen;
    bool english = false;
    for (int left = reader.u8(); left > 0 && reader.ok(); --left) {
        const std::vector<uint8_t> tag = read_string(reader, 1);
        const std::string name = printable(utf16_text(read_string(reader, 2), true));
        const bool is_english = tag.size() >= 2 && tag[0] == 'e' && tag[1] == 'n';
        if (reader.ok() && (chosen.empty() || (is_english && !english))) {
            chosen = name;
            english = is_english;
        }
    }
    return chosen;
}

/// A number of single precision as it was meant: 2.54, and not 2.5399999618530273.
double meant(float number) {
    return std::strtod(fmt::format("{}", number).c_str(), nullptr);
}

/// Factors of a reading, and the unit of what they make of it.
void set_scale(const pldm_numeric_sensor_pdr& record, Sensor& sensor) {
    // Some devices leave the resolution 0 and mean the count itself.
    const bool usable = std::isfinite(record.resolution) && record.resolution != 0.0F;
    sensor.resolution = usable ? meant(record.resolution) : 1.0;
    sensor.offset = std::isfinite(record.offset) ? meant(record.offset) : 0.0;
    sensor.thresholds = record_thresholds(record);
    const std::string symbol = unit_symbol(record.base_unit);
    const std::string rate = rate_symbol(record.rate_unit);
    const std::string prefix =
        takes_prefix(record.base_unit) ? si_prefix(record.unit_modifier) : "";
    constexpr int kShownAsDecimals = 6;
    sensor.unit = prefix + symbol + rate;
    if (record.unit_modifier == 0 || !prefix.empty()) {
        return;
    }
    if (std::abs(record.unit_modifier) > kShownAsDecimals) {
        sensor.unit = fmt::format("x10^{} {}", record.unit_modifier, symbol + rate);
        return;
    }
    const double factor = std::pow(10.0, record.unit_modifier);
    sensor.resolution *= factor;
    sensor.offset *= factor;
    for (std::optional<double>& threshold : sensor.thresholds) {
        if (threshold) {
            *threshold *= factor;
        }
    }
}

}  // namespace

bool is_sensor(const PdrRecord& record) {
    return record.type() == PLDM_PDR_TYPE_NUMERIC_SENSOR ||
           record.type() == PLDM_PDR_TYPE_STATE_SENSOR;
}

SensorRecord decode_sensor(const Session& session, const PdrRecord& record) {
    SensorRecord sensor;
    const std::string problem =
        record.whole() ? sensor_problem(record, sensor.composites) : record.problem;
    if (!problem.empty()) {
        throw pdr_failure(session, "decoding", record.handle(), problem);
    }
    // The library is given no length, and reads up to a part.
    std::vector<uint8_t> raw = record.bytes;
    raw.resize(std::max<size_t>(raw.size(), PLDM_PDR_PART_SIZE));
    if (pldm_parse_pdr(raw.data(), &sensor.pdr) != 0) {
        throw pdr_failure(session, "decoding", record.handle(), "the library refuses it");
    }
    return sensor;
}

std::vector<uint16_t> possible_states(const CompositeSensor& composite) {
    std::vector<uint16_t> states;
    for (size_t i = 0; i < composite.possible_states.size() * 8; ++i) {
        if ((composite.possible_states[i / 8] >> (i % 8) & 1) != 0) {
            states.push_back(static_cast<uint16_t>(i));
        }
    }
    return states;
}

double slot_value(pldm_pdr_slot slot, uint8_t format) {
    switch (format) {
        case PLDM_DATA_SIZE_UINT8:
            return static_cast<uint8_t>(slot);
        case PLDM_DATA_SIZE_SINT8:
            return static_cast<int8_t>(slot);
        case PLDM_DATA_SIZE_UINT16:
            return static_cast<uint16_t>(slot);
        case PLDM_DATA_SIZE_SINT16:
            return static_cast<int16_t>(slot);
        case PLDM_DATA_SIZE_SINT32:
            return static_cast<int32_t>(slot);
        case PLDM_DATA_SIZE_REAL32:
            return std::bit_cast<float>(slot);
        default:
            return slot;
    }
}

std::array<std::optional<double>, 6> record_thresholds(const pldm_numeric_sensor_pdr& record) {
    // The warning thresholds go by supportedThresholds, the others by rangeFieldSupport. The values
    // are in the unit itself: resolution and offset are those of readings.
    const struct {
        uint8_t support;
        uint8_t bit;
        pldm_pdr_slot slot;
    } places[] = {
        {record.supported_thresholds, 0, record.warning_high},
        {record.range_field_support, 3, record.critical_high},
        {record.range_field_support, 5, record.fatal_high},
        {record.supported_thresholds, 3, record.warning_low},
        {record.range_field_support, 4, record.critical_low},
        {record.range_field_support, 6, record.fatal_low},
    };
    std::array<std::optional<double>, 6> thresholds;
    for (size_t i = 0; i < thresholds.size(); ++i) {
        const double value = slot_value(places[i].slot, record.range_field_format);
        if ((places[i].support >> places[i].bit & 1) != 0 && std::isfinite(value)) {
            thresholds[i] = value;
        }
    }
    return thresholds;
}

SensorNames auxiliary_names(const std::vector<PdrRecord>& records) {
    SensorNames names;
    for (const PdrRecord& record : records) {
        if (!record.whole() || record.type() != kAuxiliaryNamesType) {
            continue;
        }
        WireReader reader(record.bytes);
        reader.skip(kCommonHeader + sizeof(uint16_t));
        const uint16_t id = reader.le16();
        std::vector<std::string> of_sensor;
        for (int left = reader.u8(); left > 0 && reader.ok(); --left) {
            of_sensor.push_back(read_name(reader));
        }
        if (!of_sensor.empty()) {
            names[id] = of_sensor;
        }
    }
    return names;
}

Sensor described_by(const SensorRecord& record) {
    Sensor sensor;
    sensor.id = record.sensor_id();
    sensor.numeric = record.numeric();
    if (record.entity_type() != 0) {  // unspecified
        sensor.entity = entity_text(record.entity_type(), record.entity_instance());
    }
    if (sensor.numeric) {
        set_scale(record.pdr.numeric, sensor);
    }
    for (const CompositeSensor& composite : record.composites) {
        sensor.state_sets.push_back(composite.state_set);
    }
    return sensor;
}

}  // namespace tool
