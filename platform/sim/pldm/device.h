// SPDX-License-Identifier: Apache-2.0
// A PLDM terminus: base commands, sensors and their records, FRU data, firmware update (DSP0240,
// DSP0248, DSP0257, DSP0267).
#ifndef SIDEBAND_SIM_PLDM_DEVICE_H
#define SIDEBAND_SIM_PLDM_DEVICE_H

#include <optional>
#include <vector>

#include "sim/device/device.h"
#include "sim/pldm/firmware.h"
#include "sim/pldm/fru.h"
#include "sim/pldm/pdr.h"
#include "sim/pldm/sensor.h"

namespace sim {

/// Completion codes that every PLDM type knows (DSP0240, table 3).
enum PldmCode : uint8_t {
    kPldmSuccess = 0x00,
    kPldmInvalidData = 0x02,
    kPldmInvalidLength = 0x03,
    kPldmUnsupportedCommand = 0x05,
    kPldmInvalidType = 0x20,
};

/// What a command function gives back: completion code and what follows it.
Bytes pldm_reply(uint8_t code, ByteView data = {});

/// transferOperationFlag of multipart transfers.
enum PldmOperation : uint8_t { kPldmGetNextPart = 0, kPldmGetFirstPart = 1 };
/// transferFlag of a part.
uint8_t pldm_transfer_flag(bool first, bool last);

class PldmDevice : public Device {
public:
    PldmDevice(ObjectReader& reader, const DeviceConfig& config, const Clock& clock);

    void reset() override;
    PldmFirmware* firmware() override { return firmware_ ? &*firmware_ : nullptr; }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override;
    void heard(const Message& response) override;
    void idle() override;

private:
    /// One command: what its request data must measure, and who serves it.
    struct Command {
        uint8_t code;
        size_t shortest;
        size_t longest;
        Bytes (PldmDevice::*serve)(ByteView data);
    };
    struct Type {
        uint8_t number;
        uint32_t version;
        std::span<const Command> commands;
    };

    static std::span<const Command> base_commands();
    static std::span<const Command> platform_commands();
    static std::span<const Command> fru_commands();
    static std::span<const Command> firmware_commands();
    const Type* find_type(uint8_t number) const;
    Bytes dispatch(uint8_t type, uint8_t command, ByteView data);
    std::optional<Bytes> answer_firmware(ByteView request, Bytes header);
    void send_firmware_request(std::optional<PldmFirmware::Request> request, uint64_t delay_us);

    // Base commands.
    Bytes set_tid(ByteView data);
    Bytes get_tid(ByteView data);
    Bytes get_pldm_version(ByteView data);
    Bytes get_pldm_types(ByteView data);
    Bytes get_pldm_commands(ByteView data);

    // Platform monitoring and control.
    NumericSensor* find_numeric(uint16_t id);
    StateSensor* find_state(uint16_t id);
    Bytes set_numeric_sensor_enable(ByteView data);
    Bytes get_sensor_reading(ByteView data);
    Bytes get_sensor_thresholds(ByteView data);
    Bytes set_state_sensor_enables(ByteView data);
    Bytes get_state_sensor_readings(ByteView data);
    Bytes get_pdr_repository_info(ByteView) { return pdrs_.info(); }
    Bytes get_pdr(ByteView data) { return pdrs_.get(data); }
    Bytes get_pdr_repository_signature(ByteView) { return pdrs_.signature(); }

    // FRU data.
    Bytes get_fru_record_table_metadata(ByteView) { return fru_->metadata(); }
    Bytes get_fru_record_table(ByteView data) { return fru_->part(data); }

    // Firmware update.
    template <auto serve>
    Bytes serve_firmware(ByteView data) {
        return ((*firmware_).*serve)(data);
    }

    uint8_t initial_tid_;
    uint8_t tid_;
    std::vector<NumericSensor> numeric_;
    std::vector<StateSensor> state_;
    PdrRepository pdrs_;
    std::optional<FruTable> fru_;
    std::optional<PldmFirmware> firmware_;
    std::vector<Type> types_;   ///< those that the terminus speaks
    uint8_t update_agent_ = 0;  ///< EID of who sent the last firmware update request
};

}  // namespace sim

#endif
