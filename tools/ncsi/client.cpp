// SPDX-License-Identifier: Apache-2.0
// The client of an NC-SI network controller: the library's commands, with the controller's own
// codes kept for errors.
#include "tools/ncsi/client.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "tools/ncsi/codes.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

// Offsets in a control packet (DSP0222, control packet header and response payload).
constexpr size_t kPacketType = 4;
constexpr size_t kPacketChannel = 5;
constexpr size_t kResponseCode = 16;
constexpr size_t kReasonCode = 18;
constexpr size_t kResponsePayload = 20;
constexpr uint8_t kResponseBit = 0x80;

/// No channel has this ID: it stays in the records of channels that do not answer.
constexpr uint8_t kNoChannel = 0xFF;
constexpr unsigned kPackageShift = 5;

const char* const kDiscovery = "the discovery of NC-SI channels";

uint16_t be16_at(std::span<const uint8_t> bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

}  // namespace

NcsiClient::NcsiClient(Session& session) : session_(session) {
    // Spares a device that speaks something else the search for channels: 64 waits.
    if (!session.speaks(MCTP_MSG_TYPE_NCSI)) {
        throw Failure(name(), kDiscovery, "the device does not speak NC-SI");
    }
    try {
        find_channels();
    } catch (...) {
        ncsi_deinit(&link_.ncsi);
        throw;
    }
}

NcsiClient::~NcsiClient() {
    ncsi_deinit(&link_.ncsi);
}

void NcsiClient::find_channels() {
    ncsi_ctx& ncsi = link_.ncsi;
    for (ncsi_channel& channel : ncsi.channels) {
        channel.channel_id = kNoChannel;
    }
    const mctp_ctx way = session_.prototype();
    const bool found = ncsi_init(&ncsi, &way) == 0;
    if (ncsi.mctp == nullptr) {
        const sideband_error& error = *ncsi_last_error(&ncsi);
        throw Failure(name(), kDiscovery, "the endpoint cannot be brought up: " + unsent(error), {},
                      cause_name(error));
    }
    link_.transfer = ncsi.transfer;
    ncsi.transfer = record;
    if (!found) {
        // The library keeps no reason: the first channel is asked again for it.
        call(kDiscovery, [this] { return clear_initial_state(); });
        throw Failure(name(), kDiscovery, "no channel answers");
    }
    for (unsigned number = 0; number < NCSI_CHANNELS; ++number) {
        if (ncsi.channels[number].channel_id != kNoChannel) {
            numbers_.push_back(number);
        }
    }
}

int32_t NcsiClient::clear_initial_state() {
    constexpr int32_t kCapacity = 24;
    std::array<uint8_t, kCapacity> request{};
    std::array<uint8_t, kCapacity> response{};
    ncsi_request_init(request.data());
    request[kPacketType] = NCSI_CLEAR_INITIAL_STATE;
    return link_.ncsi.transfer(&link_.ncsi.channels[0], NCSI_HEADER_SIZE, kCapacity, request.data(),
                               response.data());
}

unsigned NcsiClient::package() const {
    return link_.ncsi.channels[numbers_.front()].channel_id >> kPackageShift;
}

unsigned NcsiClient::choose(std::optional<unsigned> wanted) const {
    if (!wanted) {
        return numbers_.front();
    }
    if (std::find(numbers_.begin(), numbers_.end(), *wanted) == numbers_.end()) {
        std::string found;
        for (unsigned number : numbers_) {
            found += (found.empty() ? "" : ", ") + std::to_string(number);
        }
        throw Failure(
            ExitStatus::kFailed,
            fmt::format("{}: no channel {} has been found; it has: {}", name(), *wanted, found));
    }
    return *wanted;
}

int32_t NcsiClient::record(ncsi_channel* channel, uint32_t request_length,
                           int32_t response_capacity, uint8_t* request, uint8_t* response) {
    static_assert(std::is_standard_layout_v<Link> && offsetof(Link, ncsi) == 0);
    Link* link = reinterpret_cast<Link*>(channel->ctx);
    if (SignalWatch::signal() != 0) {
        return -1;
    }
    TimeLimit::put_on(*link->ncsi.mctp);
    const int32_t result =
        link->transfer(channel, request_length, response_capacity, request, response);
    Exchange& last = link->last;
    last = {};
    last.made = true;
    last.length = link->ncsi.response_length;
    std::copy_n(request, last.request.size(), last.request.begin());
    if (last.length > 0) {
        std::copy_n(response,
                    std::min<size_t>(static_cast<size_t>(last.length), last.response.size()),
                    last.response.begin());
    }
    return result;
}

int32_t NcsiClient::call(const std::string& operation, const std::function<int32_t()>& command) {
    before_sending();
    TimeLimit::put_on(*link_.ncsi.mctp);
    link_.last = {};
    const int32_t result = command();
    if (result < 0) {
        throw failure(operation);
    }
    return result;
}

std::span<const uint8_t> NcsiClient::last_response() const {
    const Exchange& last = link_.last;
    const size_t length = last.made && last.length > 0 ? static_cast<size_t>(last.length) : 0;
    return std::span(last.response).first(std::min(length, last.response.size()));
}

Failure NcsiClient::failure(const std::string& operation) const {
    const Exchange& last = link_.last;
    const std::span<const uint8_t> answer = last_response();
    const sideband_error& error = *ncsi_last_error(&link_.ncsi);
    const std::string cause = cause_name(error);
    if (!last.made) {
        return {name(), operation, unsent(error), std::nullopt, cause};
    }
    if (answer.empty()) {
        return {name(), operation, silence(error), std::nullopt, cause};
    }
    const bool fits = answer.size() > kPacketChannel &&
                      answer[kPacketType] == (last.request[kPacketType] | kResponseBit) &&
                      answer[kPacketChannel] == last.request[kPacketChannel];
    if (fits && answer.size() >= kResponsePayload) {
        const uint16_t code = be16_at(answer, kResponseCode);
        const uint16_t reason = be16_at(answer, kReasonCode);
        if (code != 0 || reason != 0) {
            const DeviceCode device{.code = code,
                                    .name = ncsi_response_name(code),
                                    .reason = reason,
                                    .reason_name = ncsi_reason_name(reason),
                                    .kind = DeviceCode::Kind::kNcsi};
            return {name(), operation, code_text(device), device, cause};
        }
    }
    return {name(), operation,
            fits || answer.size() <= kPacketChannel
                ? fmt::format("the answer has {} bytes only", last.length)
                : unfit(error),
            std::nullopt, cause};
}

int32_t read_temperature(NcsiClient& client, unsigned number, uint8_t sensor) {
    ncsi_channel& channel = client.channel(number);
    channel.sensor_index = sensor;
    return client.call(fmt::format("Get Temperature of sensor {} of channel {}", sensor, number),
                       [&channel] { return ncsi_oem_mx_get_temperature(&channel); });
}

}  // namespace tool
