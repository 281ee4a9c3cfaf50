// SPDX-License-Identifier: Apache-2.0
// Endpoints by name: the board's device names, i2c:BUS:ADDRESS, pcie:BB:DD.F, mctp:NET,EID.
#include "tools/shell/endpoint_name.h"

#include <fmt/format.h>
#include <sideband/mctp.h>

#include <charconv>
#include <optional>

#include "tools/shell/cause.h"
#include "tools/shell/failure.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

// EIDs that an endpoint may have (DSP0236, table 2).
constexpr uint32_t kFirstEid = 8;
constexpr uint32_t kLastEid = 254;

Failure malformed(std::string_view name, std::string_view why) {
    return {ExitStatus::kUsage, fmt::format("{}: {}", name, why)};
}

constexpr uint32_t kSevenBits = 0x7F;

/// What an odd address may be meant to be; empty for one that has no other form.
std::string seven_bit_hint(const std::optional<uint32_t>& address) {
    return address && *address <= kSevenBits
               ? fmt::format("; 0x{:02x} in 7-bit form is 0x{:02x}", *address, *address * 2)
               : "";
}

Endpoint parse_i2c(std::string_view name) {
    const std::string_view place = name.substr(4);
    const size_t colon = place.find(':');
    if (colon == std::string_view::npos) {
        throw malformed(name, "an I2C endpoint is named i2c:BUS:ADDRESS");
    }
    const std::optional<uint32_t> bus = parse_number(place.substr(0, colon), 255);
    const std::optional<uint32_t> address = parse_number(place.substr(colon + 1), 255);
    if (!bus) {
        throw malformed(name, "the bus is a number from 0 to 255");
    }
    if (!address || *address % 2 != 0) {
        throw malformed(name, "the address is an even number from 0 to 0xfe (8-bit form)" +
                                  seven_bit_hint(address));
    }
    Endpoint endpoint;
    endpoint.binding_kind = MCTP_BINDING_KIND_SMBUS;
    endpoint.bus = static_cast<uint8_t>(*bus);
    endpoint.address = static_cast<uint8_t>(*address);
    return endpoint;
}

/// Exactly one hex number of the given range between two places of a PCIe name.
std::optional<uint8_t> pcie_field(std::string_view text, size_t digits, uint8_t maximum) {
    uint8_t value = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, value, 16);
    if (text.size() != digits || result.ec != std::errc() || result.ptr != end || value > maximum) {
        return std::nullopt;
    }
    return value;
}

Endpoint parse_pcie(std::string_view name) {
    const std::string_view place = name.substr(5);
    std::optional<uint8_t> bus;
    std::optional<uint8_t> device;
    std::optional<uint8_t> function;
    if (place.size() == 7 && place[2] == ':' && place[5] == '.') {
        bus = pcie_field(place.substr(0, 2), 2, 0xFF);
        device = pcie_field(place.substr(3, 2), 2, 0x1F);
        function = pcie_field(place.substr(6, 1), 1, 7);
    }
    if (!bus || !device || !function) {
        throw malformed(name, "a PCIe endpoint is named pcie:BB:DD.F, in hex");
    }
    Endpoint endpoint;
    endpoint.transport = Transport::kPcie;
    endpoint.binding_kind = MCTP_BINDING_KIND_PCIE;
    endpoint.bdf = {*bus, *device, *function};
    return endpoint;
}

Endpoint parse_mctp(std::string_view name) {
    const std::string_view place = name.substr(5);
    const size_t comma = place.find(',');
    if (comma == std::string_view::npos) {
        throw malformed(name, "an endpoint of the kernel's MCTP is named mctp:NET,EID");
    }
    const std::optional<uint32_t> net = parse_number(place.substr(0, comma), UINT32_MAX);
    const std::optional<uint32_t> eid = parse_number(place.substr(comma + 1), kLastEid);
    if (!net || *net == 0) {
        throw malformed(name, "the network is a number from 1 to 4294967295");
    }
    if (!eid || *eid < kFirstEid) {
        throw malformed(name, "the EID is a number from 8 to 254");
    }
    Endpoint endpoint;
    endpoint.transport = Transport::kMctp;
    endpoint.binding_kind = MCTP_BINDING_KIND_SOCKET;
    endpoint.net = *net;
    endpoint.eid = static_cast<uint8_t>(*eid);
    return endpoint;
}

bool same_place(const Endpoint& a, const Endpoint& b) {
    if (a.transport != b.transport) {
        return false;
    }
    switch (a.transport) {
        case Transport::kPcie:
            return a.bdf == b.bdf;
        case Transport::kMctp:
            return a.net == b.net && a.eid == b.eid;
        default:
            return a.bus == b.bus && a.address == b.address;
    }
}

std::string known_names(const Port& port) {
    std::string names;
    for (const Endpoint& endpoint : port.endpoints()) {
        names += (names.empty() ? "" : ", ") + endpoint.name;
    }
    return names.empty() ? "none" : names;
}

/// Whether an address at which the board describes nobody is another's in 7-bit form.
std::string undescribed_hint(const Port& port, const Endpoint& wanted) {
    for (const Endpoint& endpoint : port.endpoints()) {
        if (endpoint.transport == Transport::kI2c && endpoint.bus == wanted.bus &&
            wanted.address <= kSevenBits && endpoint.address == wanted.address * 2) {
            return fmt::format("; in 8-bit form {} is at 0x{:02x}", endpoint.name,
                               endpoint.address);
        }
    }
    return "";
}

/// The endpoint that an argument names, as far as name and board tell.
Endpoint described_endpoint(const Port& port, std::string_view name) {
    for (const Endpoint& endpoint : port.endpoints()) {
        if (endpoint.name == name) {
            return endpoint;
        }
    }
    Endpoint wanted;
    if (name.starts_with("i2c:")) {
        wanted = parse_i2c(name);
    } else if (name.starts_with("pcie:")) {
        wanted = parse_pcie(name);
    } else if (name.starts_with("mctp:")) {
        wanted = parse_mctp(name);
    } else {
        throw Failure(ExitStatus::kFailed, fmt::format("{}: no such device on board {}; it has: {}",
                                                       name, port.board_name(), known_names(port)));
    }
    for (const Endpoint& endpoint : port.endpoints()) {
        if (same_place(endpoint, wanted)) {
            wanted = endpoint;
            break;
        }
    }
    if (wanted.transport == Transport::kI2c && wanted.name.empty()) {
        wanted.hint = undescribed_hint(port, wanted);
    }
    wanted.name = name;
    return wanted;
}

}  // namespace

Endpoint find_endpoint(const Port& port, std::string_view name) {
    Endpoint endpoint = described_endpoint(port, name);
    if (const std::string objection = port.objection(endpoint); !objection.empty()) {
        throw Failure(ExitStatus::kFailed, fmt::format("{}: {}", name, objection),
                      cause_word(SIDEBAND_CAUSE_NO_BUS));
    }
    return endpoint;
}

std::string endpoint_location(const Endpoint& endpoint) {
    if (endpoint.transport == Transport::kMctp) {
        return fmt::format("mctp:{},{}", endpoint.net, endpoint.eid);
    }
    if (endpoint.transport == Transport::kPcie) {
        return fmt::format("pcie:{:02x}:{:02x}.{:x}", endpoint.bdf[0], endpoint.bdf[1],
                           endpoint.bdf[2]);
    }
    if (endpoint.transport == Transport::kSerial) {
        return "serial";
    }
    return fmt::format("i2c:{}:0x{:02x}", endpoint.bus, endpoint.address);
}

}  // namespace tool
