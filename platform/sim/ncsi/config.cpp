// SPDX-License-Identifier: Apache-2.0
// Reads the "controller" key of a network controller.
#include "sim/ncsi/config.h"

#include <algorithm>

#include "sim/device/fault.h"

namespace sim {

namespace {

constexpr int64_t kLastPackage = 7;
constexpr int64_t kLastChannel = 7;
constexpr int64_t kMostBytesMore = 1024;

/// In the order of NcsiCommand.
const std::vector<std::string> kCommandNames = {"clear_initial_state",
                                                "select_package",
                                                "deselect_package",
                                                "get_link_status",
                                                "get_preboot_config",
                                                "set_preboot_config",
                                                "get_card_tlv",
                                                "set_card_tlv",
                                                "get_pf_mac_address",
                                                "get_temperature",
                                                "other"};

/// In the order of NcsiFault::Kind.
const std::vector<std::string> kNcsiFaultNames = {"codes",         "no_answer", "other_command",
                                                  "other_channel", "truncate",  "over_long"};

/// So many bytes in hex; nothing if the key is absent.
template <size_t size>
std::optional<std::array<uint8_t, size>> read_bytes(ObjectReader& reader, const std::string& key) {
    const std::optional<Place> place = reader.find(key);
    if (!place) {
        return std::nullopt;
    }
    const Bytes bytes = place->hex();
    if (bytes.size() != size) {
        place->complain("must have " + std::to_string(size) + " bytes");
        return std::nullopt;
    }
    std::array<uint8_t, size> out{};
    std::ranges::copy(bytes, out.begin());
    return out;
}

NcsiCommand read_command(const Place& place) {
    const auto found = std::ranges::find(kCommandNames, place.text());
    if (found == kCommandNames.end()) {
        place.complain("is not a command that is known here");
        return NcsiCommand{};
    }
    return static_cast<NcsiCommand>(found - kCommandNames.begin());
}

uint16_t read_code(ObjectReader& reader, const std::string& key) {
    return static_cast<uint16_t>(reader.whole(key, 0, 0xFFFF));
}

NcsiFault read_ncsi_fault(const Place& place) {
    using Kind = NcsiFault::Kind;
    ObjectReader reader(place);
    NcsiFault fault;
    fault.kind = static_cast<Kind>(reader.choice("kind", kNcsiFaultNames));
    fault.command = read_command(reader.require("command"));
    fault.at = static_cast<uint32_t>(reader.whole("at", 1, kMostTimes, 1));
    fault.count = static_cast<uint32_t>(reader.whole("count", 0, kMostTimes, 1));
    if (fault.kind == Kind::kCodes) {
        fault.response = read_code(reader, "response");
        fault.reason = read_code(reader, "reason");
    } else if (fault.kind == Kind::kOtherCommand || fault.kind == Kind::kOtherChannel) {
        fault.value = static_cast<uint32_t>(reader.whole("value", 0, 255));
    } else if (fault.kind == Kind::kTruncate) {
        fault.value = static_cast<uint32_t>(reader.whole("length", 0, kMostBytesMore));
    } else if (fault.kind == Kind::kOverLong) {
        fault.value = static_cast<uint32_t>(reader.whole("bytes", 1, kMostBytesMore));
    }
    reader.finish();
    return fault;
}

NcsiChannel read_channel(ObjectReader& reader) {
    NcsiChannel channel;
    channel.link_up = reader.flag("link", channel.link_up);
    channel.speed = static_cast<uint8_t>(reader.whole("speed", 0, 15, channel.speed));
    channel.extended_speed = static_cast<uint8_t>(reader.whole("extended_speed", 0, 255, 0));
    channel.autoneg = reader.flag("autoneg", channel.autoneg);
    channel.autoneg_done = reader.flag("autoneg_done", channel.autoneg);
    channel.status_bits = static_cast<uint32_t>(reader.whole("status_bits", 0, 0xFFFFFFFF, 0));
    channel.preboot = read_bytes<4>(reader, "preboot_config");
    channel.mac = read_bytes<6>(reader, "mac");
    return channel;
}

/// What is read of each object of an array, under the "id" in it.
template <typename T, typename Read>
std::map<uint8_t, T> read_numbered(const Place& array, int64_t highest, Read read) {
    std::map<uint8_t, T> all;
    array.each([&](const Place& place) {
        ObjectReader reader(place);
        const auto id = static_cast<uint8_t>(reader.whole("id", 0, highest));
        if (!all.emplace(id, read(reader)).second) {
            reader.complain("id", "appears twice");
        }
        reader.finish();
    });
    return all;
}

NcsiPackage read_package(ObjectReader& reader) {
    NcsiPackage package;
    package.channels =
        read_numbered<NcsiChannel>(reader.require("channels"), kLastChannel, read_channel);
    package.card_tlv = read_bytes<5>(reader, "card_tlv");
    return package;
}

Waveform read_temperature(ObjectReader& reader) {
    Waveform waveform(reader.require("waveform"));
    if (waveform.low() < 0 || waveform.high() > 255) {
        reader.complain("waveform", "must stay within 0 to 255");
    }
    return waveform;
}

}  // namespace

uint32_t NcsiChannel::link_status() const {
    return status_bits | (link_up ? 1u : 0u) | static_cast<uint32_t>(speed & 0x0F) << 1 |
           (autoneg ? 1u << 5 : 0u) | (autoneg_done ? 1u << 6 : 0u) |
           static_cast<uint32_t>(extended_speed) << 24;
}

NcsiConfig read_ncsi(const Place& place) {
    ObjectReader reader(place);
    NcsiConfig config;
    config.packages =
        read_numbered<NcsiPackage>(reader.require("packages"), kLastPackage, read_package);
    NcsiSettings& settings = config.settings;
    reader.within("temperatures", [&](const Place& place) {
        settings.temperatures = read_numbered<Waveform>(place, 255, read_temperature);
    });
    settings.checksums = reader.flag("checksums", settings.checksums);
    reader.each("unsupported",
                [&](const Place& command) { settings.unsupported.insert(read_command(command)); });
    reader.each("faults",
                [&](const Place& fault) { settings.faults.push_back(read_ncsi_fault(fault)); });
    reader.finish();
    return config;
}

}  // namespace sim
