// SPDX-License-Identifier: Apache-2.0
// A device that answers recorded requests with recorded responses.
#include <algorithm>
#include <map>
#include <utility>

#include "sim/device/device.h"
#include "sim/device/message.h"

namespace sim {

namespace {

constexpr uint8_t kTypeNumber = 0x7F;

/// In both message types the low five bits of the first byte are the requester's to choose.
bool has_instance(uint8_t type) {
    return type == kControlType || type == kPldmType;
}

class Recording {
public:
    explicit Recording(const Place& exchanges) {
        exchanges.each([&](const Place& place) {
            ObjectReader reader(place);
            const auto type = static_cast<uint8_t>(reader.whole("message_type", 0, 255));
            Bytes request = reader.require("request").hex();
            if (request.empty()) {
                reader.complain("request", "must have at least one byte");
            }
            Bytes response = reader.require("response").hex();
            reader.finish();
            turns_[key(type, request)].responses.push_back(std::move(response));
        });
    }

    /// Message types besides control.
    Bytes types() const {
        Bytes out;
        for (const auto& [key, turn] : turns_) {
            const uint8_t type = key.first & kTypeNumber;
            if (type != kControlType && std::ranges::find(out, type) == out.end()) {
                out.push_back(type);
            }
        }
        return out;
    }

    /// The next response to a request; null for one that was not recorded.
    const Bytes* next(uint8_t type, ByteView request) {
        auto found = turns_.find(key(type, request));
        if (found == turns_.end()) {
            return nullptr;
        }
        Turn& turn = found->second;
        return &turn.responses[turn.next++ % turn.responses.size()];
    }

    void rewind() {
        for (auto& each : turns_) {
            each.second.next = 0;
        }
    }

private:
    using Key = std::pair<uint8_t, Bytes>;
    struct Turn {
        std::vector<Bytes> responses;
        size_t next = 0;
    };

    static Key key(uint8_t type, ByteView request) {
        Bytes bytes(request.begin(), request.end());
        if (has_instance(type) && !bytes.empty()) {
            bytes[0] &= static_cast<uint8_t>(~kInstanceBits);
        }
        return {type, bytes};
    }

    std::map<Key, Turn> turns_;
};

class ReplayDevice : public Device {
public:
    ReplayDevice(const DeviceConfig& config, const Clock& clock, Recording recording)
        : Device(config, clock, recording.types()), recording_(std::move(recording)) {}

    void reset() override {
        Device::reset();
        recording_.rewind();
    }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        if (const Bytes* recorded = recording_.next(type, request)) {
            if (recorded->empty()) {
                return std::nullopt;
            }
            Bytes out = *recorded;
            if (has_instance(type)) {
                out[0] =
                    static_cast<uint8_t>((out[0] & ~kInstanceBits) | (request[0] & kInstanceBits));
            }
            return out;
        }
        // Without an EID nobody could reach the recorded part of the device.
        const bool eid_command =
            type == kControlType && request.size() >= 2 &&
            (request[1] == kControlSetEndpointId || request[1] == kControlGetEndpointId);
        return eid_command ? answer_control(request) : std::nullopt;
    }

private:
    Recording recording_;
};

}  // namespace

std::unique_ptr<Device> make_replay_device(ObjectReader& reader, DeviceConfig config,
                                           const Clock& clock) {
    return std::make_unique<ReplayDevice>(config, clock, Recording(reader.require("exchanges")));
}

}  // namespace sim
