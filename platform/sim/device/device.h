// SPDX-License-Identifier: Apache-2.0
// A device on the simulated board: its place, its MCTP stack, its faults. One subclass a kind.
#ifndef SIDEBAND_SIM_DEVICE_DEVICE_H
#define SIDEBAND_SIM_DEVICE_DEVICE_H

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/clock.h"
#include "sim/board/file_reader.h"
#include "sim/device/fault.h"
#include "sim/device/hostile.h"
#include "sim/mctp/control.h"
#include "sim/mctp/endpoint.h"

namespace sim {

/// Packets that wait for the BMC on a bus; what comes then is lost.
inline constexpr size_t kQueueLimit = 256;

class PldmFirmware;
class NcsiController;
class NvmeDrive;

/// One multiplexer on the way to a device.
struct MuxHop {
    uint8_t address = 0;  ///< 8-bit slave address of the multiplexer
    uint8_t channel = 0;
    bool operator==(const MuxHop&) const = default;
};
using MuxPath = std::vector<MuxHop>;

/// An add-in card, as the services of the BMC know it.
struct CardInfo {
    uint8_t bus = 0;     ///< PCIe
    uint8_t device = 0;  ///< PCIe
    uint16_t vendor_id = 0;
    uint32_t flags = 0;
    uint8_t slot = 0;
};

/// The keys that every device has.
struct DeviceConfig {
    EndpointInfo where;
    MuxPath path;
    uint8_t eid = 0;
    Uuid uuid{};
    size_t transmission_unit = 64;
    uint64_t response_us = 500;
    bool lenient_eom = true;
    bool standby = true;
    bool bus_owner = false;
    std::optional<CardInfo> card;
    std::vector<Fault> faults;
};

class Device {
public:
    /// @param types  message types that the device speaks besides control
    Device(const DeviceConfig& config, const Clock& clock, Bytes types);
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    const EndpointInfo& info() const { return config_.where; }
    const MuxPath& path() const { return config_.path; }
    bool standby() const { return config_.standby; }
    FaultSet& faults() { return faults_; }

    /// Whether the device answers to its address this time.
    bool acknowledges() { return faults_.strike(FaultKind::kNoAck) == nullptr; }

    /// Takes a packet of the BMC, from the MCTP transport header on.
    std::vector<Outgoing> receive(ByteView packet);

    /// The BMC waits for a packet, and none has come.
    /// @param ended  set if that completed a message whose last packet had no end mark
    std::vector<Outgoing> bmc_waits(bool& ended);

    /// Time has passed: what the device sends by itself then. Nobody waits for an answer of it.
    std::vector<Outgoing> time_passes();

    /// The longest packets that whoever listens takes: message bytes in each.
    void limit_packets(size_t unit) { endpoint_.limit_unit(unit); }

    /// Power was lost and is back.
    virtual void reset();
    /// How often power was lost. What was to be sent before that is never sent.
    uint32_t power_losses() const { return power_losses_; }

    /// The firmware device that a PLDM terminus has; null for others.
    virtual PldmFirmware* firmware() { return nullptr; }
    /// The network controller that the device is; null for others.
    virtual NcsiController* ncsi() { return nullptr; }
    /// The NVMe drive that the device is; null for others.
    virtual NvmeDrive* nvme() { return nullptr; }
    /// The add-in card that the device is.
    const std::optional<CardInfo>& card() const { return config_.card; }

    uint8_t eid() const { return endpoint_.eid(); }
    void set_eid(uint8_t eid) { endpoint_.set_eid(eid); }
    /// Message types that it speaks besides control.
    ByteView message_types() const { return control_.types(); }
    /// Whether the device owns a bus itself, instead of getting its EID from an owner.
    bool owns_bus() const { return config_.bus_owner; }
    /// What a bus owner saw of the BMC.
    virtual OwnerReport owner_report() const { return {}; }
    /// Shows a PCIe device everybody on PCIe, itself included. The list outlives the device.
    virtual void join(const std::vector<Device*>&) {}

protected:
    /// Answers the body of a request.
    /// @param type  message type byte
    /// @return nothing if the device does not answer
    virtual std::optional<Bytes> answer(uint8_t type, ByteView request) = 0;

    /// Takes the answer to a request that the device had sent.
    virtual void heard(const Message&) {}
    /// The BMC waits: the occasion for requests that nobody else gives one for.
    virtual void idle() {}
    /// Who sent the request that is being answered.
    uint8_t requester_eid() const { return requester_eid_; }

    /// The answer that is being made goes out so much later.
    void delay_answer(uint64_t microseconds) { answer_delay_us_ += microseconds; }
    /// Sends a response before the answer that is being made, at the time that this one had. The
    /// answer itself goes out so much later.
    void answer_in_advance(Bytes body, uint64_t microseconds) {
        early_.push_back({std::move(body), answer_delay_us_});
        delay_answer(microseconds);
    }
    /// Message bytes in each packet that the device sends from now on.
    void set_transmission_unit(size_t unit) { endpoint_.set_unit(unit); }
    /// Sends a request of the device's own, after what is being done now.
    /// @param delay_us  from now
    void initiate(Message request, uint64_t delay_us) {
        initiated_.push_back({std::move(request), delay_us});
    }
    uint64_t response_us() const { return config_.response_us; }

    std::optional<Bytes> answer_control(ByteView request) { return control_.answer(request); }
    const Clock& clock() const { return clock_; }
    void describe_sensors(std::vector<SensorInfo> sensors) {
        config_.where.sensors = std::move(sensors);
    }

private:
    struct Early {
        Bytes body;
        uint64_t delay_us = 0;
    };
    struct Initiated {
        Message message;
        uint64_t delay_us = 0;
    };

    std::vector<Outgoing> handle(const Message& message);
    void send_initiated(std::vector<Outgoing>& out);
    void respond(const Message& request, std::vector<Outgoing>& out);
    void send_message(const Message& message, uint64_t delay_us, std::vector<Outgoing>& out);
    void send_packets(const Message& message, uint64_t delay_us, Hostile* hostile,
                      std::vector<Outgoing>& out);
    void send(Outgoing outgoing, std::vector<Outgoing>& out);

    DeviceConfig config_;
    const Clock& clock_;
    MctpEndpoint endpoint_;
    ControlResponder control_;
    FaultSet faults_;
    std::optional<Hostile> hostile_;  ///< once it has been
    uint64_t answer_delay_us_ = 0;
    uint8_t requester_eid_ = 0;
    uint32_t power_losses_ = 0;
    std::vector<Early> early_;
    std::vector<Initiated> initiated_;
};

/// Makes a device of one type from the keys of its own. @return null if they are told to be
/// wrong
using DeviceMaker = std::unique_ptr<Device> (*)(ObjectReader& reader, DeviceConfig config,
                                                const Clock& clock);

std::unique_ptr<Device> make_bus_owner(ObjectReader& reader, DeviceConfig config,
                                       const Clock& clock);
std::unique_ptr<Device> make_mpio(ObjectReader& reader, DeviceConfig config, const Clock& clock);
std::unique_ptr<Device> make_ncsi_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock);
std::unique_ptr<Device> make_nvme_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock);
std::unique_ptr<Device> make_pldm_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock);
std::unique_ptr<Device> make_replay_device(ObjectReader& reader, DeviceConfig config,
                                           const Clock& clock);

}  // namespace sim

#endif
