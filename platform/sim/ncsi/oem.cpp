// SPDX-License-Identifier: Apache-2.0
// A network controller's OEM commands (DSP0222, OEM command): those of Broadcom and of Mellanox.
#include <algorithm>
#include <cmath>

#include "sim/ncsi/controller.h"

namespace sim {

namespace {

constexpr uint32_t kBroadcom = 0x0000113D;
constexpr uint32_t kMellanox = 0x00008119;

constexpr size_t kManufacturerSize = 4;
/// Behind the manufacturer ID so many bytes decide which command it is.
constexpr size_t kDecisive = 3;
constexpr int16_t kAny = -1;

/// What the payload of a request looks like.
struct Shape {
    size_t length;  ///< of the payload
    uint32_t manufacturer;
    NcsiCommand command;
    bool to_package;                   ///< addressed to the package, not to a channel
    std::array<int16_t, 16> expected;  ///< behind the manufacturer ID
};

constexpr Shape kShapes[] = {
    {16,
     kBroadcom,
     NcsiCommand::kGetPrebootConfig,
     false,
     {0x00, 0x1C, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0, 0x05, kAny, kAny, kAny, kAny}},
    {20,
     kBroadcom,
     NcsiCommand::kSetPrebootConfig,
     false,
     {0x00, 0x1D, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0, 0x01, kAny, kAny, kAny, kAny}},
    {16,
     kMellanox,
     NcsiCommand::kGetCardTlv,
     true,
     {0x00, 0x00, 0x23, 0, 0, 0, 0, 0, 0x03, 0, 0x02, 0x21, kAny, kAny, kAny, kAny}},
    {20,
     kMellanox,
     NcsiCommand::kSetCardTlv,
     true,
     {0x00, 0x01, 0x23, 0, 0, 0, kAny, 0, 0x03, 0, 0x02, 0x21, kAny, kAny, kAny, kAny}},
    {8, kMellanox, NcsiCommand::kGetPfMacAddress, false, {0x00, 0x00, 0x00, 0x00}},
    {8, kMellanox, NcsiCommand::kGetTemperature, false, {0x00, 0x13, 0x02, kAny}},
};

/// Whether the first bytes behind the manufacturer ID are those of the shape.
bool matches(const Shape& shape, ByteView payload, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (shape.expected[i] != kAny && shape.expected[i] != payload[kManufacturerSize + i]) {
            return false;
        }
    }
    return true;
}

/// The setting that a set command brings, and how an answer begins: as the request.
constexpr size_t kSetting = 16;
constexpr size_t kPrebootHead = 12;
constexpr size_t kTlvHead = 16;
constexpr size_t kShortHead = 8;
/// Where the first byte of a card TLV stands among the bytes of a request; the others follow it.
constexpr size_t kTlvFirst = 10;

// Bits that a set command must carry over as the get command gave them.
constexpr PrebootConfig kPrebootForeign = {0xFF, 0x00, 0x70, 0x00};
constexpr CardTlv kTlvForeign = {0xF1, 0x27, 0xFF, 0x00, 0x00};

Bytes head_of(ByteView payload, size_t length) {
    const ByteView head = payload.first(length);
    return {head.begin(), head.end()};
}

}  // namespace

NcsiCommand NcsiController::identify_oem(ByteView payload) {
    if (payload.size() < kManufacturerSize + kDecisive) {
        return NcsiCommand::kOther;
    }
    for (const Shape& shape : kShapes) {
        if (be32(payload, 0) == shape.manufacturer && matches(shape, payload, kDecisive)) {
            return shape.command;
        }
    }
    return NcsiCommand::kOther;
}

void NcsiController::watch(const Request& request, ByteView before, ByteView after,
                           ByteView carried_over) {
    bool changed = false;
    for (size_t i = 0; i < before.size(); ++i) {
        changed |= ((before[i] ^ after[i]) & carried_over[i]) != 0;
    }
    if (changed) {
        foreign_changes_.push_back({request.command,
                                    request.channel_id,
                                    {before.begin(), before.end()},
                                    {after.begin(), after.end()}});
    }
}

NcsiController::Response NcsiController::serve_oem(const Request& request) {
    const Shape& shape = *std::ranges::find(kShapes, request.command, &Shape::command);
    if (request.payload.size() != shape.length) {
        return {kNcsiFailed, kNcsiInvalidPayloadLength, {}};
    }
    const bool to_package = request.channel() == kNcsiWholePackage;
    if (to_package != shape.to_package ||
        !matches(shape, request.payload, shape.length - kManufacturerSize)) {
        return {kNcsiFailed, kNcsiInvalidParameter, {}};
    }
    switch (request.command) {
        case NcsiCommand::kGetPrebootConfig:
        case NcsiCommand::kSetPrebootConfig:
            return serve_preboot(request);
        case NcsiCommand::kGetCardTlv:
        case NcsiCommand::kSetCardTlv:
            return serve_card_tlv(request);
        case NcsiCommand::kGetPfMacAddress:
            return get_pf_mac_address(request);
        default:
            return get_temperature(request);
    }
}

NcsiController::Response NcsiController::serve_preboot(const Request& request) {
    std::optional<PrebootConfig>& config =
        channel(request.package_id(), request.channel())->preboot;
    if (!config) {
        return {kNcsiUnsupported, kNcsiUnknownCommand, {}};
    }
    Response response{kNcsiCompleted, kNcsiNoError, head_of(request.payload, kPrebootHead)};
    if (request.command == NcsiCommand::kGetPrebootConfig) {
        append(response.data, *config);
        return response;
    }
    PrebootConfig wanted{};
    std::copy_n(request.payload.begin() + kSetting, wanted.size(), wanted.begin());
    watch(request, *config, wanted, kPrebootForeign);
    config = wanted;
    return response;
}

NcsiController::Response NcsiController::serve_card_tlv(const Request& request) {
    std::optional<CardTlv>& tlv = package(request.package_id())->card_tlv;
    if (!tlv) {
        return {kNcsiUnsupported, kNcsiUnknownCommand, {}};
    }
    Response response{kNcsiCompleted, kNcsiNoError, {}};
    if (request.command == NcsiCommand::kGetCardTlv) {
        response.data = head_of(request.payload, kTlvHead);
        response.data[kTlvFirst] = tlv->front();
        append(response.data, ByteView(*tlv).subspan(1));
        return response;
    }
    response.data = head_of(request.payload, kShortHead);
    CardTlv wanted{};
    wanted.front() = request.payload[kTlvFirst];
    std::copy_n(request.payload.begin() + kSetting, wanted.size() - 1, wanted.begin() + 1);
    watch(request, *tlv, wanted, kTlvForeign);
    tlv = wanted;
    return response;
}

NcsiController::Response NcsiController::get_pf_mac_address(const Request& request) {
    constexpr size_t kAnswerSize = 16;
    const std::optional<MacAddress>& mac = channel(request.package_id(), request.channel())->mac;
    if (!mac) {
        return {kNcsiUnsupported, kNcsiUnknownCommand, {}};
    }
    Response response{kNcsiCompleted, kNcsiNoError, head_of(request.payload, kShortHead)};
    append(response.data, *mac);
    response.data.resize(kAnswerSize);
    return response;
}

NcsiController::Response NcsiController::get_temperature(const Request& request) {
    constexpr size_t kSensorIndex = 7;
    constexpr size_t kReservedSize = 3;
    if (settings_.temperatures.empty()) {
        return {kNcsiUnsupported, kNcsiUnknownCommand, {}};
    }
    const auto sensor = settings_.temperatures.find(request.payload[kSensorIndex]);
    if (sensor == settings_.temperatures.end()) {
        return {kNcsiFailed, kNcsiInvalidParameter, {}};
    }
    Response response{kNcsiCompleted, kNcsiNoError, head_of(request.payload, kShortHead)};
    response.data.resize(response.data.size() + kReservedSize);
    response.data.push_back(static_cast<uint8_t>(std::lround(sensor->second.at(request.seconds))));
    return response;
}

}  // namespace sim
