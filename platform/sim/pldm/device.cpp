// SPDX-License-Identifier: Apache-2.0
// A PLDM terminus: header, dispatch and base commands; the exchange of firmware update requests
// (DSP0240).
#include "sim/pldm/device.h"
#include "sim/device/message.h"

#include <array>
#include <utility>

namespace sim {

namespace {

// Header, DSP0240, clause 8.1.
constexpr size_t kHeaderSize = 3;
constexpr uint8_t kTypeBits = 0x3F;

// Completion codes of base commands, DSP0240, clause 9.
constexpr uint8_t kInvalidTransferFlag = 0x81;
constexpr uint8_t kTypeNotInRequest = 0x83;
constexpr uint8_t kVersionNotInRequest = 0x84;

constexpr uint32_t kBaseVersion = 0xF1F1F000;      // 1.1.0
constexpr uint32_t kPlatformVersion = 0xF1F2F100;  // 1.2.1
constexpr uint32_t kFruVersion = 0xF1F0F000;       // 1.0.0
constexpr uint32_t kFirmwareVersion = 0xF1F0F000;  // 1.0.0
constexpr uint8_t kFirmwareUpdate = 5;

}  // namespace

Bytes pldm_reply(uint8_t code, ByteView data) {
    Bytes out{code};
    append(out, data);
    return out;
}

uint8_t pldm_transfer_flag(bool first, bool last) {
    enum : uint8_t { kStart = 0, kMiddle = 1, kEnd = 4, kStartAndEnd = 5 };
    if (last) {
        return first ? kStartAndEnd : kEnd;
    }
    return first ? kStart : kMiddle;
}

PldmDevice::PldmDevice(ObjectReader& reader, const DeviceConfig& config, const Clock& clock)
    : Device(config, clock, {kPldmType}),
      initial_tid_(static_cast<uint8_t>(reader.whole("tid", 0, 254, 1))),
      tid_(initial_tid_) {
    read_sensors(reader, numeric_, state_);
    std::vector<SensorInfo> sensors;
    for (const NumericSensor& sensor : numeric_) {
        sensors.push_back(sensor.info());
    }
    for (const StateSensor& sensor : state_) {
        sensors.push_back(sensor.info());
    }
    describe_sensors(std::move(sensors));
    pdrs_ = PdrRepository(reader, numeric_, state_);
    reader.within("fru", [&](const Place& place) { fru_.emplace(place); });
    reader.within("firmware", [&](const Place& place) {
        PldmFirmwareConfig config = read_firmware(place);
        if (reader.sound()) {
            firmware_.emplace(std::move(config));
        }
    });

    types_ = {{0, kBaseVersion, base_commands()}, {2, kPlatformVersion, platform_commands()}};
    if (fru_) {
        types_.push_back({4, kFruVersion, fru_commands()});
    }
    if (firmware_) {
        types_.push_back({kFirmwareUpdate, kFirmwareVersion, firmware_commands()});
    }
}

void PldmDevice::reset() {
    Device::reset();
    tid_ = initial_tid_;
    for (NumericSensor& sensor : numeric_) {
        sensor.reset();
    }
    for (StateSensor& sensor : state_) {
        sensor.reset();
    }
    if (firmware_) {
        firmware_->reset();
    }
}

std::span<const PldmDevice::Command> PldmDevice::base_commands() {
    static constexpr std::array<Command, 5> kCommands{{
        {0x01, 1, 1, &PldmDevice::set_tid},
        {0x02, 0, 0, &PldmDevice::get_tid},
        {0x03, 6, 6, &PldmDevice::get_pldm_version},
        {0x04, 0, 0, &PldmDevice::get_pldm_types},
        {0x05, 5, 5, &PldmDevice::get_pldm_commands},
    }};
    return kCommands;
}

std::span<const PldmDevice::Command> PldmDevice::fru_commands() {
    static constexpr std::array<Command, 2> kCommands{{
        {0x01, 0, 0, &PldmDevice::get_fru_record_table_metadata},
        {0x02, 5, 5, &PldmDevice::get_fru_record_table},
    }};
    return kCommands;
}

std::span<const PldmDevice::Command> PldmDevice::firmware_commands() {
    // A version string of up to 255 bytes ends the three that have one.
    static constexpr std::array<Command, 11> kCommands{{
        {kFwQueryDeviceIdentifiers, 0, 0,
         &PldmDevice::serve_firmware<&PldmFirmware::query_device_identifiers>},
        {kFwGetFirmwareParameters, 0, 0,
         &PldmDevice::serve_firmware<&PldmFirmware::get_firmware_parameters>},
        {kFwRequestUpdate, 11, 266, &PldmDevice::serve_firmware<&PldmFirmware::request_update>},
        {kFwGetDeviceMetaData, 5, 5,
         &PldmDevice::serve_firmware<&PldmFirmware::get_device_meta_data>},
        {kFwPassComponentTable, 12, 267,
         &PldmDevice::serve_firmware<&PldmFirmware::pass_component_table>},
        {kFwUpdateComponent, 19, 274, &PldmDevice::serve_firmware<&PldmFirmware::update_component>},
        {kFwGetMetaData, 5, 5, &PldmDevice::serve_firmware<&PldmFirmware::get_meta_data>},
        {kFwActivateFirmware, 1, 1, &PldmDevice::serve_firmware<&PldmFirmware::activate_firmware>},
        {kFwGetStatus, 0, 0, &PldmDevice::serve_firmware<&PldmFirmware::get_status>},
        {kFwCancelUpdateComponent, 0, 0,
         &PldmDevice::serve_firmware<&PldmFirmware::cancel_update_component>},
        {kFwCancelUpdate, 0, 0, &PldmDevice::serve_firmware<&PldmFirmware::cancel_update>},
    }};
    return kCommands;
}

const PldmDevice::Type* PldmDevice::find_type(uint8_t number) const {
    for (const Type& type : types_) {
        if (type.number == number) {
            return &type;
        }
    }
    return nullptr;
}

std::optional<Bytes> PldmDevice::answer(uint8_t type, ByteView request) {
    if (type == kControlType) {
        return answer_control(request);
    }
    if (type != kPldmType || request.size() < kHeaderSize) {
        return std::nullopt;
    }
    // Responses, datagrams and later header versions get no answer.
    if ((request[0] & (kRequestBit | kDatagramBit)) != kRequestBit ||
        (request[1] & ~kTypeBits) != 0) {
        return std::nullopt;
    }
    Bytes out{static_cast<uint8_t>(request[0] & kInstanceBits), request[1], request[2]};
    if (firmware_ && request[1] == kFirmwareUpdate) {
        return answer_firmware(request, std::move(out));
    }
    append(out, dispatch(request[1], request[2], request.subspan(kHeaderSize)));
    return out;
}

std::optional<Bytes> PldmDevice::answer_firmware(ByteView request, Bytes header) {
    const uint8_t command = request[2];
    update_agent_ = requester_eid();
    const PldmFirmware::Verdict verdict = firmware_->begin(command, clock().now_us());
    if (verdict.silent) {
        return std::nullopt;
    }
    append(header, verdict.code ? pldm_reply(*verdict.code)
                                : dispatch(kFirmwareUpdate, command, request.subspan(kHeaderSize)));
    firmware_->finish(command, header);
    send_firmware_request(firmware_->next_request(clock().now_us()), response_us());
    return header;
}

void PldmDevice::heard(const Message& response) {
    if (!firmware_ || response.type != kPldmType || response.source_eid != update_agent_) {
        return;
    }
    firmware_->heard(response.tag, response.body, clock().now_us());
    send_firmware_request(firmware_->next_request(clock().now_us()), 0);
}

void PldmDevice::idle() {
    if (firmware_) {
        send_firmware_request(firmware_->repetition(clock().now_us()), 0);
    }
}

void PldmDevice::send_firmware_request(std::optional<PldmFirmware::Request> request,
                                       uint64_t delay_us) {
    if (!request) {
        return;
    }
    Message message;
    message.type = kPldmType;
    message.body = std::move(request->message);
    message.destination_eid = update_agent_;
    message.tag = request->tag;
    initiate(std::move(message), delay_us + request->delay_us);
}

Bytes PldmDevice::dispatch(uint8_t type, uint8_t command, ByteView data) {
    const Type* found = find_type(type);
    if (found == nullptr) {
        return pldm_reply(kPldmInvalidType);
    }
    for (const Command& each : found->commands) {
        if (each.code != command) {
            continue;
        }
        if (data.size() < each.shortest || data.size() > each.longest) {
            return pldm_reply(kPldmInvalidLength);
        }
        return (this->*each.serve)(data);
    }
    return pldm_reply(kPldmUnsupportedCommand);
}

Bytes PldmDevice::set_tid(ByteView data) {
    if (data[0] == 0 || data[0] == 0xFF) {
        return pldm_reply(kPldmInvalidData);
    }
    tid_ = data[0];
    return pldm_reply(kPldmSuccess);
}

Bytes PldmDevice::get_tid(ByteView) {
    return pldm_reply(kPldmSuccess, Bytes{tid_});
}

Bytes PldmDevice::get_pldm_version(ByteView data) {
    if (data[4] != kPldmGetFirstPart) {
        return pldm_reply(kInvalidTransferFlag);
    }
    const Type* type = find_type(data[5]);
    if (type == nullptr) {
        return pldm_reply(kTypeNotInRequest);
    }
    Bytes version;
    append_le32(version, type->version);
    Bytes out;
    append_le32(out, 0);  // no next part
    out.push_back(pldm_transfer_flag(true, true));
    append(out, version);
    append_le32(out, crc32(version));
    return pldm_reply(kPldmSuccess, out);
}

Bytes PldmDevice::get_pldm_types(ByteView) {
    Bytes bitmap(8);
    for (const Type& type : types_) {
        bitmap[type.number / 8u] |= static_cast<uint8_t>(1u << type.number % 8u);
    }
    return pldm_reply(kPldmSuccess, bitmap);
}

Bytes PldmDevice::get_pldm_commands(ByteView data) {
    const Type* type = find_type(data[0]);
    if (type == nullptr) {
        return pldm_reply(kTypeNotInRequest);
    }
    // Version 0 asks for the commands of whatever version there is: requesters exist that never
    // ask for the version first.
    const uint32_t version = le32(data, 1);
    if (version != 0 && version != type->version) {
        return pldm_reply(kVersionNotInRequest);
    }
    Bytes bitmap(32);
    for (const Command& command : type->commands) {
        bitmap[command.code / 8u] |= static_cast<uint8_t>(1u << command.code % 8u);
    }
    return pldm_reply(kPldmSuccess, bitmap);
}

std::unique_ptr<Device> make_pldm_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock) {
    return std::make_unique<PldmDevice>(reader, config, clock);
}

}  // namespace sim
