// SPDX-License-Identifier: Apache-2.0
// The management commands of an NVMe drive (NVMe-MI, Management Interface command set).
#include <algorithm>
#include <cmath>

#include "sim/nvme/drive.h"

namespace sim {

namespace {

// A command, from behind the MCTP message type on.
constexpr size_t kDword0 = 7;
constexpr size_t kDword1 = 11;
constexpr size_t kRequestSize = 15;

// Where the parameters are for an invalid parameter response, which counts the message type.
constexpr uint16_t kDword0Byte = 8;
constexpr uint16_t kDword1Byte = 12;

enum Opcode : uint8_t {
    kReadDataStructureCommand = 0x00,
    kSubsystemHealthCommand = 0x01,
    kControllerHealthCommand = 0x02,
    kConfigurationSetCommand = 0x03,
    kConfigurationGetCommand = 0x04,
    kVpdReadCommand = 0x05,
    kVpdWriteCommand = 0x06,
    kResetCommand = 0x07,
};

enum Configuration : uint8_t {
    kSmbusFrequency = 0x01,
    kHealthStatusChange = 0x02,
    kTransmissionUnitSize = 0x03,
};

enum DataStructure : uint8_t {
    kSubsystemStructure = 0,
    kPortStructure = 1,
    kControllerListStructure = 2,
    kControllerStructure = 3,
    kOptionalCommandsStructure = 4,
};

constexpr size_t kStructureSize = 32;

uint8_t byte_of(uint32_t dword, int number) {
    return static_cast<uint8_t>(dword >> (8 * number));
}

/// Commands that a drive need not have: message type and opcode (NVMe-MI, optionally supported
/// command list).
constexpr std::array<std::pair<NvmeCommandSet, uint8_t>, 9> kOptional = {{
    {NvmeCommandSet::kManagement, kVpdWriteCommand},
    {NvmeCommandSet::kAdmin, 0x09},
    {NvmeCommandSet::kAdmin, 0x0D},
    {NvmeCommandSet::kAdmin, 0x10},
    {NvmeCommandSet::kAdmin, 0x11},
    {NvmeCommandSet::kAdmin, 0x15},
    {NvmeCommandSet::kAdmin, 0x24},
    {NvmeCommandSet::kAdmin, 0x80},
    {NvmeCommandSet::kAdmin, 0x84},
}};

Bytes optional_commands() {
    Bytes out;
    append_le16(out, static_cast<uint16_t>(kOptional.size()));
    for (const auto& [set, opcode] : kOptional) {
        append(out, Bytes{static_cast<uint8_t>(static_cast<uint8_t>(set) << 3), opcode});
    }
    return out;
}

/// Degrees Celsius as a subsystem health data structure has them.
uint8_t composite_temperature(double celsius) {
    constexpr double kHottest = 127;
    constexpr double kColdest = -60;
    return static_cast<uint8_t>(
        static_cast<int8_t>(std::clamp(std::floor(celsius), kColdest, kHottest)));
}

}  // namespace

double NvmeDrive::temperature() const {
    return settings_.temperature ? *settings_.temperature : config_.temperature->at(now_);
}

NvmeDrive::Health NvmeDrive::health() const {
    constexpr double kCelsiusToKelvin = 273;
    const NvmeSmart& smart = config_.smart;
    const double celsius = temperature();
    uint8_t warning = smart.critical_warning;
    if (smart.available_spare < smart.spare_threshold) {
        warning |= 1u << 0;
    }
    if (celsius >= settings_.warning_temperature) {
        warning |= 1u << 1;
    }
    const double kelvin = std::max(std::floor(celsius) + kCelsiusToKelvin, 0.0);
    return {static_cast<uint16_t>(kelvin), smart.percentage_used, smart.available_spare, warning};
}

void NvmeDrive::mark(uint16_t change) {
    for (auto& [id, controller] : config_.controllers) {
        controller.changed |= change;
    }
}

/// Turns what is not as it was into change flags.
void NvmeDrive::watch_health() {
    const Health now = health();
    uint16_t change = 0;
    if (now.kelvin != last_health_.kelvin) {
        change |= kNvmeTemperatureChanged;
    }
    if (now.used != last_health_.used) {
        change |= kNvmeUsedChanged;
    }
    if (now.spare != last_health_.spare) {
        change |= kNvmeSpareChanged;
    }
    if (now.warning != last_health_.warning) {
        change |= kNvmeWarningChanged;
    }
    last_health_ = now;
    mark(change);
    for (uint16_t id : namespaces_.take_changed()) {
        config_.controllers.at(id).changed |= kNvmeNamespacesChanged | kNvmeStatusChanged;
    }
}

NvmeDrive::Response NvmeDrive::manage(ByteView body) {
    if (body.size() < kRequestSize) {
        return {kNvmeInvalidCommandSize, 0, {}};
    }
    Request request;
    request.opcode = body[kNvmeOpcodePlace];
    request.dword0 = le32(body, kDword0);
    request.dword1 = le32(body, kDword1);
    request.data = body.subspan(kRequestSize);
    if (lockdown_.management.contains(request.opcode)) {
        return {kNvmeAccessDenied, 0, {}};
    }
    if (request.opcode != kVpdWriteCommand && !request.data.empty()) {
        return {request.opcode <= kResetCommand ? kNvmeInvalidDataSize : kNvmeInvalidOpcode, 0, {}};
    }
    return serve(request);
}

NvmeDrive::Response NvmeDrive::serve(const Request& request) {
    switch (request.opcode) {
        case kReadDataStructureCommand:
            return read_data_structure(request);
        case kSubsystemHealthCommand:
            return poll_subsystem_health(request);
        case kControllerHealthCommand:
            return poll_controller_health(request);
        case kConfigurationSetCommand:
            return configuration_set(request);
        case kConfigurationGetCommand:
            return configuration_get(request);
        case kVpdReadCommand:
            return vpd_read(request);
        case kVpdWriteCommand:
            return vpd_write(request);
        case kResetCommand:
            if (byte_of(request.dword0, 3) != 0) {
                return invalid_parameter(kDword0Byte + 3);
            }
            subsystem_reset();
            return {kNvmeSuccess, 0, {}, true};
        default:
            return {kNvmeInvalidOpcode, 0, {}};
    }
}

Bytes NvmeDrive::subsystem_information() const {
    constexpr uint8_t kMajor = 1;
    constexpr uint8_t kMinor = 2;
    Bytes out(kStructureSize);
    out[0] = static_cast<uint8_t>(config_.ports.size() - 1);
    out[1] = kMajor;
    out[2] = kMinor;
    return out;
}

Bytes NvmeDrive::port_information(const NvmePort& port) const {
    Bytes out(kStructureSize);
    out[0] = static_cast<uint8_t>(port.type);
    put_le(out, 2, port.largest_unit, 2);
    if (port.type == NvmePortType::kPcie) {
        constexpr uint8_t kPayload256 = 1;
        constexpr uint8_t kSpeedsToGen4 = 0x0F;
        constexpr uint8_t kGen4 = 4;
        constexpr uint8_t kLanes = 4;
        out[8] = kPayload256;
        out[9] = kSpeedsToGen4;
        out[10] = kGen4;
        out[11] = kLanes;
        out[12] = kLanes;
    } else if (port.type == NvmePortType::kSmbus) {
        constexpr uint8_t kVpdAddress = 0xA6;
        constexpr uint8_t kUsualAddress = 0x3A;
        out[8] = kVpdAddress;
        out[9] = port.highest_frequency;
        out[10] = &port == own_port() ? place_.address : kUsualAddress;
        out[11] = port.highest_frequency;
    }
    return out;
}

Bytes NvmeDrive::controller_information(const NvmeControllerState& controller) const {
    Bytes out(kStructureSize);
    out[0] = controller.port;
    put_le(out, 8, config_.vendor_id, 2);
    put_le(out, 10, config_.device_id, 2);
    put_le(out, 12, config_.subsystem_vendor_id, 2);
    put_le(out, 14, config_.device_id, 2);
    return out;
}

NvmeDrive::Response NvmeDrive::read_data_structure(const Request& request) const {
    const auto controller = static_cast<uint16_t>(request.dword0);
    const uint8_t port = byte_of(request.dword0, 2);
    Bytes out;
    switch (byte_of(request.dword0, 3)) {
        case kSubsystemStructure:
            out = subsystem_information();
            break;
        case kPortStructure:
            if (port >= config_.ports.size()) {
                return invalid_parameter(kDword0Byte + 2);
            }
            out = port_information(config_.ports[port]);
            break;
        case kControllerListStructure:
            out = list_controllers(controller, 0);
            break;
        case kControllerStructure: {
            const auto found = config_.controllers.find(controller);
            if (found == config_.controllers.end()) {
                return invalid_parameter(kDword0Byte);
            }
            out = controller_information(found->second);
            break;
        }
        case kOptionalCommandsStructure:
            out = optional_commands();
            break;
        default:
            return invalid_parameter(kDword0Byte + 3);
    }
    const auto length = static_cast<uint32_t>(out.size());
    return {kNvmeSuccess, length, std::move(out)};
}

NvmeDrive::Response NvmeDrive::poll_subsystem_health(const Request& request) {
    constexpr uint32_t kClear = 1u << 31;
    watch_health();
    uint16_t changed = 0;
    for (auto& [id, controller] : config_.controllers) {
        changed |= controller.changed;
        if ((request.dword1 & kClear) != 0) {
            controller.changed = 0;
        }
    }
    // Warnings are inverted here: a bit that is 0 warns.
    Bytes out{settings_.subsystem_status, static_cast<uint8_t>(~last_health_.warning),
              composite_temperature(temperature()), last_health_.used};
    append_le16(out, changed);
    append_le16(out, 0);
    return {kNvmeSuccess, 0, std::move(out)};
}

NvmeDrive::Response NvmeDrive::poll_controller_health(const Request& request) {
    constexpr uint32_t kFunctions = 1u << 24;
    constexpr uint32_t kAll = 1u << 31;
    constexpr uint32_t kSelections = 0x1F;
    constexpr uint32_t kClear = 1u << 31;
    constexpr uint16_t kLatched = 0x00F0;  // bits of the status that stay until they are cleared
    constexpr size_t kReserved = 7;
    watch_health();
    const size_t most = byte_of(request.dword0, 2) + size_t{1};
    const auto selected = static_cast<uint16_t>((request.dword1 & kSelections) << 8);
    Bytes out;
    uint32_t entries = 0;
    for (auto& [id, controller] : config_.controllers) {
        const bool wanted = (request.dword0 & kAll) != 0 || (controller.changed & selected) != 0;
        const bool included =
            (request.dword0 & kFunctions) != 0 && id >= static_cast<uint16_t>(request.dword0);
        if (!wanted || !included || entries == most) {
            continue;
        }
        ++entries;
        append_le16(out, id);
        append_le16(out, static_cast<uint16_t>(kNvmeReady | (controller.changed & kLatched)));
        append_le16(out, last_health_.kelvin);
        append(out, Bytes{last_health_.used, last_health_.spare, last_health_.warning});
        append(out, Bytes(kReserved));
        if ((request.dword1 & kClear) != 0) {
            controller.changed = 0;
        }
    }
    return {kNvmeSuccess, entries << 16, std::move(out)};
}

NvmeDrive::Response NvmeDrive::configuration_set(const Request& request) {
    const uint8_t id = byte_of(request.dword0, 0);
    const uint8_t number = byte_of(request.dword0, 3);
    if (id == kHealthStatusChange) {
        watch_health();
        for (auto& [controller_id, controller] : config_.controllers) {
            controller.changed &= static_cast<uint16_t>(~request.dword1);
        }
        return {};
    }
    if (id != kSmbusFrequency && id != kTransmissionUnitSize) {
        return invalid_parameter(kDword0Byte);
    }
    if (number >= config_.ports.size()) {
        return invalid_parameter(kDword0Byte + 3);
    }
    NvmePort& port = config_.ports[number];
    if (id == kSmbusFrequency) {
        const uint8_t frequency = byte_of(request.dword0, 1) & 0x0F;
        if (port.type != NvmePortType::kSmbus) {
            return invalid_parameter(kDword0Byte + 3);
        }
        if (frequency < 1 || frequency > port.highest_frequency) {
            return invalid_parameter(kDword0Byte + 1);
        }
        port.frequency = frequency;
        return {};
    }
    const auto unit = static_cast<uint16_t>(request.dword1);
    if (unit < NvmePort{}.unit || unit > port.largest_unit) {
        return invalid_parameter(kDword1Byte);
    }
    port.unit = unit;
    return {};
}

NvmeDrive::Response NvmeDrive::configuration_get(const Request& request) const {
    const uint8_t id = byte_of(request.dword0, 0);
    const uint8_t number = byte_of(request.dword0, 3);
    if (id == kHealthStatusChange) {
        return {};
    }
    if (id != kSmbusFrequency && id != kTransmissionUnitSize) {
        return invalid_parameter(kDword0Byte);
    }
    if (number >= config_.ports.size()) {
        return invalid_parameter(kDword0Byte + 3);
    }
    const NvmePort& port = config_.ports[number];
    if (id == kTransmissionUnitSize) {
        return {kNvmeSuccess, port.unit, {}};
    }
    if (port.type != NvmePortType::kSmbus) {
        return invalid_parameter(kDword0Byte + 3);
    }
    return {kNvmeSuccess, port.frequency, {}};
}

NvmeDrive::Response NvmeDrive::vpd_read(const Request& request) const {
    const auto offset = static_cast<uint16_t>(request.dword0);
    const auto length = static_cast<uint16_t>(request.dword1);
    if (offset >= config_.vpd.size()) {
        return invalid_parameter(kDword0Byte);
    }
    if (length > config_.vpd.size() - offset || length > 4096) {
        return invalid_parameter(kDword1Byte);
    }
    const ByteView there = ByteView(config_.vpd).subspan(offset, length);
    return {kNvmeSuccess, 0, Bytes(there.begin(), there.end())};
}

NvmeDrive::Response NvmeDrive::vpd_write(const Request& request) {
    const auto offset = static_cast<uint16_t>(request.dword0);
    const auto length = static_cast<uint16_t>(request.dword1);
    if (length != request.data.size()) {
        return {kNvmeInvalidDataSize, 0, {}};
    }
    if (offset >= config_.vpd.size()) {
        return invalid_parameter(kDword0Byte);
    }
    if (length > config_.vpd.size() - offset) {
        return invalid_parameter(kDword1Byte);
    }
    if (settings_.vpd_writes) {
        if (*settings_.vpd_writes == 0) {
            return {kNvmeVpdUpdatesExceeded, 0, {}};
        }
        --*settings_.vpd_writes;
    }
    std::ranges::copy(request.data, config_.vpd.begin() + offset);
    return {};
}

}  // namespace sim
