// SPDX-License-Identifier: Apache-2.0
// A network controller that speaks NC-SI: control packets and standard commands (DSP0222, DSP0261).
#include "sim/ncsi/controller.h"

#include <algorithm>
#include <utility>

#include "sim/device/device.h"
#include "sim/device/message.h"

namespace sim {

namespace {

// Control packet header (DSP0222, control packet data structure).
constexpr size_t kHeaderSize = 16;
constexpr size_t kControllerId = 0;
constexpr size_t kRevision = 1;
constexpr size_t kInstance = 3;
constexpr size_t kType = 4;
constexpr size_t kChannel = 5;
constexpr size_t kPayloadLength = 6;
constexpr uint16_t kPayloadLengthBits = 0x0FFF;
constexpr uint8_t kThisRevision = 1;
constexpr uint8_t kResponse = 0x80;

constexpr size_t kAlignment = 4;
constexpr size_t kChecksumSize = 4;
constexpr size_t kCodesSize = 4;

// Control packet types (DSP0222, table of commands).
constexpr uint8_t kClearInitialState = 0x00;
constexpr uint8_t kSelectPackage = 0x01;
constexpr uint8_t kDeselectPackage = 0x02;
constexpr uint8_t kGetLinkStatus = 0x0A;
constexpr uint8_t kOem = 0x50;

size_t padded(size_t length) {
    return (length + kAlignment - 1) / kAlignment * kAlignment;
}

/// Two's complement of the sum of 16-bit words (DSP0222, checksum).
uint32_t checksum_of(ByteView packet) {
    uint32_t sum = 0;
    for (size_t at = 0; at + 1 < packet.size(); at += 2) {
        sum += be16(packet, at);
    }
    return ~sum + 1;
}

/// Whether a standard command may carry so many payload bytes.
bool fits(NcsiCommand command, size_t length) {
    // Requesters exist that select a package without saying anything on hardware arbitration.
    return length == 0 || (command == NcsiCommand::kSelectPackage && length == 4);
}

class NcsiDevice : public Device {
public:
    NcsiDevice(NcsiConfig controller, const DeviceConfig& config, const Clock& clock)
        : Device(config, clock, {kNcsiType}), controller_(std::move(controller)) {}

    void reset() override {
        Device::reset();
        controller_.reset();
    }
    NcsiController* ncsi() override { return &controller_; }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        constexpr double kMicrosecond = 1e-6;
        if (type == 0) {
            return answer_control(request);
        }
        if (type != kNcsiType) {
            return std::nullopt;
        }
        return controller_.answer(request, static_cast<double>(clock().now_us()) * kMicrosecond);
    }

private:
    NcsiController controller_;
};

}  // namespace

NcsiController::NcsiController(NcsiConfig config)
    : settings_(std::move(config.settings)), packages_(std::move(config.packages)) {}

NcsiPackage* NcsiController::package(uint8_t package_id) {
    const auto found = packages_.find(package_id);
    return found != packages_.end() ? &found->second : nullptr;
}

NcsiChannel* NcsiController::channel(uint8_t package_id, uint8_t channel) {
    NcsiPackage* owner = package(package_id);
    if (owner == nullptr) {
        return nullptr;
    }
    const auto found = owner->channels.find(channel);
    return found != owner->channels.end() ? &found->second : nullptr;
}

void NcsiController::set_faults(std::vector<NcsiFault> faults) {
    settings_.faults = std::move(faults);
    counts_ = {};
}

void NcsiController::reset() {
    for (auto& [id, package] : packages_) {
        package.selected = false;
        for (auto& [number, channel] : package.channels) {
            channel.initial_state = true;
        }
    }
}

const NcsiFault* NcsiController::strike(NcsiFault::Kind kind, NcsiCommand command) const {
    return striking(settings_.faults, count(command), [&](const NcsiFault& fault) {
        return fault.kind == kind && fault.command == command;
    });
}

NcsiCommand NcsiController::identify(uint8_t type, ByteView payload) {
    switch (type) {
        case kClearInitialState:
            return NcsiCommand::kClearInitialState;
        case kSelectPackage:
            return NcsiCommand::kSelectPackage;
        case kDeselectPackage:
            return NcsiCommand::kDeselectPackage;
        case kGetLinkStatus:
            return NcsiCommand::kGetLinkStatus;
        case kOem:
            return identify_oem(payload);
        default:
            return NcsiCommand::kOther;
    }
}

std::optional<NcsiController::Request> NcsiController::take(ByteView packet) {
    if (packet.size() < kHeaderSize || packet[kRevision] != kThisRevision ||
        (packet[kType] & kResponse) != 0) {
        ++malformed_;
        return std::nullopt;
    }
    const size_t length = be16(packet, kPayloadLength) & kPayloadLengthBits;
    const size_t summed = padded(kHeaderSize + length);
    if (packet.size() < summed + kChecksumSize) {
        ++malformed_;
        return std::nullopt;
    }
    const uint32_t checksum = be32(packet, summed);
    if (checksum != 0 && checksum != checksum_of(packet.first(summed))) {
        ++bad_checksums_;
        return std::nullopt;
    }
    Request request;
    request.type = packet[kType];
    request.channel_id = packet[kChannel];
    request.payload = packet.subspan(kHeaderSize, length);
    request.command = identify(request.type, request.payload);
    return request;
}

std::optional<Bytes> NcsiController::answer(ByteView packet, double seconds) {
    std::optional<Request> request = take(packet);
    if (!request) {
        return std::nullopt;
    }
    request->seconds = seconds;
    const NcsiCommand command = request->command;
    ++counts_[static_cast<size_t>(command)];
    if (!is_there(*request) || strike(NcsiFault::Kind::kNoAnswer, command) != nullptr) {
        return std::nullopt;
    }
    const NcsiFault* codes = strike(NcsiFault::Kind::kCodes, command);
    const Response response =
        codes != nullptr ? Response{codes->response, codes->reason, {}} : serve(*request);
    Bytes out = compose(packet.first(kHeaderSize), response);
    spoil(command, out);
    return out;
}

Bytes NcsiController::compose(ByteView request, const Response& response) const {
    Bytes out(kHeaderSize);
    out[kControllerId] = request[kControllerId];
    out[kRevision] = kThisRevision;
    out[kInstance] = request[kInstance];
    out[kType] = request[kType] | kResponse;
    out[kChannel] = request[kChannel];
    const size_t length = kCodesSize + response.data.size();
    out[kPayloadLength] = static_cast<uint8_t>(length >> 8);
    out[kPayloadLength + 1] = static_cast<uint8_t>(length);
    append_be16(out, response.code);
    append_be16(out, response.reason);
    append(out, response.data);
    out.resize(padded(out.size()));
    append_be32(out, settings_.checksums ? checksum_of(out) : 0);
    return out;
}

void NcsiController::spoil(NcsiCommand command, Bytes& packet) const {
    using Kind = NcsiFault::Kind;
    if (const NcsiFault* fault = strike(Kind::kOtherCommand, command)) {
        packet[kType] = static_cast<uint8_t>(fault->value);
    }
    if (const NcsiFault* fault = strike(Kind::kOtherChannel, command)) {
        packet[kChannel] = static_cast<uint8_t>(fault->value);
    }
    if (const NcsiFault* fault = strike(Kind::kTruncate, command)) {
        packet.resize(std::min<size_t>(packet.size(), fault->value));
    }
    if (const NcsiFault* fault = strike(Kind::kOverLong, command)) {
        packet.resize(packet.size() + fault->value, 0xEE);
    }
}

bool NcsiController::is_there(const Request& request) {
    return request.channel() == kNcsiWholePackage
               ? package(request.package_id()) != nullptr
               : channel(request.package_id(), request.channel()) != nullptr;
}

/// A command to a package needs one of its channels to be out of the initial state.
bool NcsiController::is_initialised(const Request& request) {
    if (const NcsiChannel* found = channel(request.package_id(), request.channel())) {
        return !found->initial_state;
    }
    return std::ranges::any_of(package(request.package_id())->channels,
                               [](const auto& each) { return !each.second.initial_state; });
}

NcsiController::Response NcsiController::serve(const Request& request) {
    const NcsiCommand command = request.command;
    const bool to_package =
        command == NcsiCommand::kSelectPackage || command == NcsiCommand::kDeselectPackage;
    if (!to_package && command != NcsiCommand::kClearInitialState && !is_initialised(request)) {
        return {kNcsiFailed, kNcsiInitialisationRequired, {}};
    }
    if (command == NcsiCommand::kOther || settings_.unsupported.contains(command)) {
        return {kNcsiUnsupported, kNcsiUnknownCommand, {}};
    }
    if (request.type == kOem) {
        return serve_oem(request);
    }
    if (!fits(command, request.payload.size())) {
        return {kNcsiFailed, kNcsiInvalidPayloadLength, {}};
    }
    if (to_package != (request.channel() == kNcsiWholePackage)) {
        return {kNcsiFailed, kNcsiInvalidParameter, {}};
    }
    return to_package ? serve_package(request)
                      : serve_channel(request, *channel(request.package_id(), request.channel()));
}

/// One package is selected at a time.
NcsiController::Response NcsiController::serve_package(const Request& request) {
    NcsiPackage& addressed = *package(request.package_id());
    if (request.command == NcsiCommand::kSelectPackage) {
        for (auto& [id, other] : packages_) {
            other.selected = false;
        }
        addressed.selected = true;
    } else {
        addressed.selected = false;
    }
    return {};
}

NcsiController::Response NcsiController::serve_channel(const Request& request,
                                                       NcsiChannel& channel) {
    if (request.command == NcsiCommand::kClearInitialState) {
        channel.initial_state = false;
        return {};
    }
    Response response;
    append_be32(response.data, channel.link_status());
    append_be32(response.data, 0);  // other indications
    append_be32(response.data, 0);  // OEM link status
    return response;
}

std::unique_ptr<Device> make_ncsi_device(ObjectReader& reader, DeviceConfig config,
                                         const Clock& clock) {
    NcsiConfig controller = read_ncsi(reader.require("controller"));
    if (!reader.sound()) {
        return nullptr;
    }
    return std::make_unique<NcsiDevice>(std::move(controller), config, clock);
}

}  // namespace sim
