// SPDX-License-Identifier: Apache-2.0
// An NVMe drive behind its management endpoint: messages, their integrity check, faults, resets.
#include "sim/nvme/drive.h"

#include <algorithm>

#include "sim/device/device.h"
#include "sim/device/message.h"

namespace sim {

namespace {

constexpr uint8_t kWithCheck = 0x80;

// NVMe-MI message header, from behind the MCTP message type on (NVMe-MI, message fields).
constexpr size_t kKind = 0;
constexpr size_t kMessageHeaderSize = 4;
constexpr uint8_t kResponseBit = 0x80;
constexpr uint8_t kKindAndSlot = 0x79;
constexpr size_t kStatusSize = 4;  ///< status and management response
constexpr size_t kCheckSize = 4;
/// 4 KiB of data and 128 bytes of what is around it, the message type among them.
constexpr size_t kLargestMessage = 4224;

constexpr double kMicrosecond = 1e-6;

NvmeCommandSet set_of(uint8_t kind) {
    return static_cast<NvmeCommandSet>(kind >> 3 & 0x0F);
}

/// The check of a message, its type included.
uint32_t check_of(ByteView body) {
    Bytes all{static_cast<uint8_t>(kNvmeMiType | kWithCheck)};
    append(all, body);
    return crc32c(all);
}

/// A response with its integrity check. @param kind  first byte of the request
Bytes compose(uint8_t kind, uint8_t status, uint32_t management, ByteView data) {
    Bytes out{static_cast<uint8_t>(kResponseBit | (kind & kKindAndSlot)), 0, 0, status, 0, 0, 0};
    put_le(out, kStatusSize, management, 3);
    append(out, data);
    append_le32(out, check_of(out));
    return out;
}

class NvmeDevice : public Device {
public:
    NvmeDevice(NvmeConfig drive, const DeviceConfig& config, const Clock& clock)
        : Device(config, clock, {kNvmeMiType}),
          drive_(std::move(drive),
                 {config.where.transport == Transport::kPcie ? NvmePortType::kPcie
                                                             : NvmePortType::kSmbus,
                  config.transmission_unit, config.where.address}) {}

    void reset() override {
        Device::reset();
        drive_.power_cycle();
    }
    NvmeDrive* nvme() override { return &drive_; }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        if (type == 0) {
            return answer_control(request);
        }
        if (type != (kNvmeMiType | kWithCheck)) {
            return std::nullopt;
        }
        std::optional<NvmeAnswer> answer =
            drive_.answer(request, static_cast<double>(clock().now_us()) * kMicrosecond);
        set_transmission_unit(drive_.transmission_unit());
        if (!answer) {
            return std::nullopt;
        }
        for (Bytes& more : answer->in_advance) {
            answer_in_advance(std::move(more), drive_.settings().processing_us);
        }
        return std::move(answer->body);
    }

private:
    NvmeDrive drive_;
};

}  // namespace

NvmeDrive::NvmeDrive(NvmeConfig config, const Place& place)
    : config_(std::move(config)),
      settings_(config_.settings),
      place_(place),
      firmware_(config_.firmware),
      namespaces_(config_) {
    reset_units();
    last_health_ = health();
    mark(kNvmeReady);
}

uint64_t NvmeDrive::count(NvmeCommandSet set, uint8_t opcode) const {
    const auto found = counts_.find({set, opcode});
    return found != counts_.end() ? found->second : 0;
}

void NvmeDrive::set_faults(std::vector<NvmeFault> faults) {
    settings_.faults = std::move(faults);
    counts_.clear();
}

const NvmePort* NvmeDrive::own_port() const {
    const auto found = std::ranges::find(config_.ports, place_.port, &NvmePort::type);
    return found != config_.ports.end() ? &*found : nullptr;
}

size_t NvmeDrive::transmission_unit() const {
    const NvmePort* const port = own_port();
    return port != nullptr ? port->unit : place_.unit;
}

void NvmeDrive::reset_units() {
    for (NvmePort& port : config_.ports) {
        port.unit = static_cast<uint16_t>(&port == own_port() ? place_.unit : NvmePort{}.unit);
    }
}

void NvmeDrive::power_cycle() {
    ++config_.smart.power_cycles;
    lockdown_ = {};
    for (auto& [id, controller] : config_.controllers) {
        controller.changed = 0;
    }
    begin_anew();
}

void NvmeDrive::subsystem_reset() {
    ++resets_;
    begin_anew();
    mark(kNvmeSubsystemReset | kNvmeStatusChanged);
}

void NvmeDrive::begin_anew() {
    if (firmware_.reset()) {
        mark(kNvmeFirmwareActivated);
    }
    reset_units();
    for (auto& [id, feature] : config_.features) {
        feature.current = feature.saved ? *feature.saved : feature.initial;
    }
    mark(kNvmeReady);
}

const NvmeFault* NvmeDrive::strike(NvmeFault::Kind kind, NvmeCommandSet set, uint8_t opcode) const {
    return striking(settings_.faults, count(set, opcode), [&](const NvmeFault& fault) {
        return fault.kind == kind && fault.set == set && fault.opcode == opcode;
    });
}

/// The body of a request without its integrity check.
std::optional<ByteView> NvmeDrive::take(ByteView body) {
    const bool sized =
        body.size() >= kMessageHeaderSize + kCheckSize && body.size() < kLargestMessage;
    if (!sized || (body[kKind] & kResponseBit) != 0) {
        ++malformed_;
        return std::nullopt;
    }
    const ByteView checked = body.first(body.size() - kCheckSize);
    if (le32(body, checked.size()) != check_of(checked)) {
        ++bad_checks_;
        return std::nullopt;
    }
    return checked;
}

NvmeDrive::Response NvmeDrive::invalid_parameter(uint16_t byte, uint8_t bit) {
    return {kNvmeInvalidParameter, static_cast<uint32_t>(byte << 8 | bit), {}};
}

/// What a request gets instead of being acted upon.
std::optional<NvmeDrive::Response> NvmeDrive::faulty(NvmeCommandSet set, uint8_t opcode) const {
    using Kind = NvmeFault::Kind;
    if (const NvmeFault* fault = strike(Kind::kStatus, set, opcode)) {
        if (fault->value == kNvmeInvalidParameter) {
            return invalid_parameter(fault->byte, fault->bit);
        }
        return Response{static_cast<NvmeMessageStatus>(fault->value), 0, {}};
    }
    if (const NvmeFault* fault = strike(Kind::kCompletion, set, opcode)) {
        Response response;
        response.data.resize(8);
        append_le32(response.data, static_cast<uint32_t>(fault->sct) << 25 | fault->value << 17);
        return response;
    }
    return std::nullopt;
}

NvmeDrive::Response NvmeDrive::respond(NvmeCommandSet set, ByteView request) {
    if (std::optional<Response> fault = faulty(set, request[kNvmeOpcodePlace])) {
        return *std::move(fault);
    }
    switch (set) {
        case NvmeCommandSet::kManagement:
            return manage(request);
        case NvmeCommandSet::kAdmin:
            return admin(request);
        default:
            return {kNvmeInvalidOpcode, 0, {}};
    }
}

std::optional<NvmeAnswer> NvmeDrive::answer(ByteView body, double seconds) {
    using Kind = NvmeFault::Kind;
    const std::optional<ByteView> request = take(body);
    if (!request) {
        return std::nullopt;
    }
    now_ = seconds;
    const uint8_t kind = (*request)[kKind];
    const uint8_t opcode = (*request)[kNvmeOpcodePlace];
    const NvmeCommandSet set = set_of(kind);
    ++counts_[{set, opcode}];
    if (strike(Kind::kNoAnswer, set, opcode) != nullptr) {
        return std::nullopt;
    }
    Response response = respond(set, *request);
    if (response.silent) {
        return std::nullopt;
    }
    if (const NvmeFault* fault = strike(Kind::kOverLong, set, opcode)) {
        response.data.insert(response.data.end(), fault->value, 0xEE);
    }

    NvmeAnswer answer;
    const NvmeFault* more = strike(Kind::kMoreProcessing, set, opcode);
    const auto units = static_cast<uint32_t>((settings_.processing_us + 99'999) / 100'000);
    answer.in_advance.assign(more != nullptr ? more->value : settings_.more_processing,
                             compose(kind, kNvmeMoreProcessing, units << 8, {}));
    answer.body = compose(kind, response.status, response.management, response.data);
    if (strike(Kind::kBadCheck, set, opcode) != nullptr) {
        answer.body.back() ^= 0xFF;
    }
    if (const NvmeFault* fault = strike(Kind::kTruncate, set, opcode)) {
        answer.body.resize(std::min<size_t>(answer.body.size(), fault->value));
    }
    return answer;
}

std::unique_ptr<Device> make_nvme_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock) {
    NvmeConfig drive = read_nvme(reader.require("drive"));
    if (!reader.sound()) {
        return nullptr;
    }
    return std::make_unique<NvmeDevice>(std::move(drive), config, clock);
}

}  // namespace sim
