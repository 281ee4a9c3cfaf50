// SPDX-License-Identifier: Apache-2.0
// Reads a board file: buses, the BMC, power, devices.
#include <algorithm>
#include <map>
#include <set>

#include "platform/board_file/fields.h"
#include "sim/board/state.h"

namespace sim {

namespace {

using board_file::read_bdf;
using board_file::read_device_name;
using board_file::read_eid;

constexpr int64_t kSlowestClockHz = 10'000;
constexpr int64_t kFastestClockHz = 1'000'000;
constexpr int64_t kLongestWaitUs = 60'000'000;
constexpr int kMostChannels = 8;
/// More do not fit on the buses of a server, and each is looked for among the others.
constexpr size_t kMostDevices = 1024;

/// By pointer: gcc takes a reference to a function of Thumb code, whose address is odd, for one
/// that is misaligned.
const std::map<std::string, DeviceMaker>& device_makers() {
    static const std::map<std::string, DeviceMaker> kMakers = {
        {"bus_owner", &make_bus_owner}, {"mpio", &make_mpio},
        {"ncsi", &make_ncsi_device},    {"nvme", &make_nvme_device},
        {"pldm", &make_pldm_device},    {"replay", &make_replay_device},
    };
    return kMakers;
}

void read_bmc(BoardState& board, const Place& place) {
    ObjectReader reader(place);
    board.bmc_eid = read_eid(reader, board.bmc_eid);
    board.bmc_address = reader.address("address", board.bmc_address);
    reader.finish();
}

void read_power(BoardState& board, const Place& place) {
    ObjectReader reader(place);
    board.main_power = reader.flag("main", true);
    board.platform_record.standby_option =
        static_cast<uint8_t>(reader.whole("standby_option", 0, 255, 0));
    board.global_var.standby_override =
        static_cast<uint8_t>(reader.whole("standby_override", 0, 255, 0));
    board.policy_off = reader.flag("policy_off", false);
    if (reader.flag("standby_devices", false)) {
        board.platform_record.flags |= PLT_FLAG_STANDBY_DEVICES;
    }
    reader.finish();
}

void read_platform(BoardState& board, const Place& place) {
    ObjectReader reader(place);
    board.platform_record.identifier =
        static_cast<uint16_t>(reader.whole("identifier", 0, 0xFFFF, 0));
    if (std::optional<Place> state = reader.find("mpio_state")) {
        const bool wanted = state->node->kind == Node::Kind::kString && state->text() == "wanted";
        board.global_sec_var.mpio_state =
            wanted ? PLT_MPIO_WANTED : static_cast<uint32_t>(state->whole(0, 254));
        board.global_var.mpio_bringup_pending = wanted ? 1 : 0;
    }
    if (reader.flag("mpio_ready", false)) {
        board.files.emplace("/nv/mpio.ready");
    }
    board.pcie_open_fails = reader.flag("pcie_open_fails", false);
    reader.finish();
}

MuxHop read_hop(const Place& place, const I2cBus& bus) {
    ObjectReader reader(place);
    MuxHop hop{reader.address("address"), 0};
    const Mux* mux = bus.find_mux(hop.address);
    if (mux == nullptr) {
        reader.complain("address", "is not a multiplexer that stands before it on bus " +
                                       std::to_string(bus.number()));
    }
    hop.channel = static_cast<uint8_t>(
        reader.whole("channel", 0, (mux != nullptr ? mux->channels : kMostChannels) - 1));
    reader.finish();
    if (mux == nullptr) {
        throw FileError{};
    }
    return hop;
}

void read_mux(const BoardState& board, I2cBus& bus, const Place& place) {
    ObjectReader reader(place);
    Mux mux;
    mux.address = reader.address("address");
    if (mux.address == board.bmc_address || bus.find_mux(mux.address) != nullptr) {
        reader.complain("address", "is in use on this bus");
    }
    mux.channels = static_cast<uint8_t>(reader.whole("channels", 1, kMostChannels, kMostChannels));
    reader.within("behind", [&](const Place& behind) {
        const MuxHop hop = read_hop(behind, bus);
        if (bus.path_to(hop).size() >= kLongestMuxPath) {
            behind.fail("makes a chain of more than " + std::to_string(kLongestMuxPath) +
                        " multiplexers");
        }
        mux.behind = hop;
    });
    reader.finish();
    if (bus.find_mux(mux.address) == nullptr) {
        bus.add_mux(mux);
    }
}

void read_bus(BoardState& board, const Place& place) {
    ObjectReader reader(place);
    const auto number = static_cast<uint8_t>(reader.whole("bus", 0, 255));
    if (board.find_bus(number) != nullptr) {
        reader.complain("bus", "is the number of another bus");
    }
    const auto clock_hz =
        static_cast<uint32_t>(reader.whole("clock_hz", kSlowestClockHz, kFastestClockHz, 100'000));
    board.buses.push_back(std::make_unique<I2cBus>(
        number, clock_hz,
        BusSurroundings{board.clock, board.tap, board.main_power, board.bmc_address}));
    reader.each("muxes", [&](const Place& mux) { read_mux(board, *board.buses.back(), mux); });
    reader.finish();
}

/// A UUID that stays the same from run to run: two 64-bit FNV-1a hashes of the name.
Uuid uuid_of(const std::string& name) {
    Uuid uuid{};
    for (size_t half = 0; half < 2; ++half) {
        uint64_t hash = 0xCBF29CE484222325u + half;
        for (char c : name) {
            hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3u;
        }
        for (size_t i = 0; i < 8; ++i) {
            uuid[8 * half + i] = static_cast<uint8_t>(hash >> (8 * i));
        }
    }
    uuid[6] = static_cast<uint8_t>(0x80 | (uuid[6] & 0x0F));  // RFC 9562: version 8, custom
    uuid[8] = static_cast<uint8_t>(0x80 | (uuid[8] & 0x3F));
    return uuid;
}

Uuid read_uuid(ObjectReader& reader, const std::string& name) {
    std::optional<Place> place = reader.find("uuid");
    if (!place) {
        return uuid_of(name);
    }
    std::string digits = place->text();
    std::erase(digits, '-');
    const std::optional<Bytes> bytes = from_hex(digits);
    Uuid uuid{};
    if (bytes && bytes->size() == uuid.size()) {
        std::ranges::copy(*bytes, uuid.begin());
    } else {
        place->complain("must have 32 hex digits");
    }
    return uuid;
}

/// Whether some multiplexer setting puts both devices on the wire.
bool collide(const Device& device, const DeviceConfig& config) {
    const MuxPath& a = device.path();
    const MuxPath& b = config.path;
    const auto shorter = static_cast<std::ptrdiff_t>(std::min(a.size(), b.size()));
    return device.info().address == config.where.address &&
           std::equal(a.begin(), a.begin() + shorter, b.begin());
}

void read_pcie_place(const BoardState& board, ObjectReader& reader, DeviceConfig& config) {
    config.where.transport = Transport::kPcie;
    config.where.binding_kind = 2;
    const std::optional<Bdf> bdf = read_bdf(reader);
    config.where.bdf = bdf.value_or(Bdf{});
    const Device* other = bdf ? board.pcie.find(*bdf) : nullptr;
    if (other != nullptr) {
        reader.complain("bdf", "is in use by " + other->info().name);
    }
    config.where.pcie_param = static_cast<uint32_t>(reader.whole("read_timeout_ms", 0, 0xFFFF, 0));
    config.transmission_unit = static_cast<size_t>(reader.whole("transmission_unit", 1, 250, 64));
}

/// Complaints about an address that somebody else on the bus has.
void check_address(const BoardState& board, const I2cBus& bus, const ObjectReader& reader,
                   const DeviceConfig& config) {
    if (config.where.address == board.bmc_address) {
        reader.complain("address", "is the BMC's own");
    }
    if (bus.find_mux(config.where.address) != nullptr) {
        reader.complain("address", "is that of a multiplexer");
    }
    for (const Device* other : bus.devices()) {
        if (collide(*other, config)) {
            reader.complain("address", "is in use by " + other->info().name);
        }
    }
}

void read_address(const BoardState& board, ObjectReader& reader, DeviceConfig& config) {
    const Place number = reader.require("bus");
    config.where.bus = static_cast<uint8_t>(number.whole(0, 255));
    config.where.address = reader.address("address");
    const I2cBus* bus = board.find_bus(config.where.bus);
    const std::optional<Place> mux = reader.find("mux");
    if (bus == nullptr) {
        // It may be the one that could not be read.
        if (board.buses_whole) {
            number.complain("is not among the board's buses");
        }
        return;
    }
    if (mux) {
        attempt([&] { config.path = bus->path_to(read_hop(*mux, *bus)); });
    }
    config.where.mux = encode_mux(config.path);
    check_address(board, *bus, reader, config);
}

void read_i2c_place(const BoardState& board, ObjectReader& reader, DeviceConfig& config) {
    read_address(board, reader, config);
    const bool software_pec = reader.choice("pec", {"hardware", "software"}, 0) == 1;
    config.where.binding_kind = software_pec ? 3 : 0;
    config.where.unit_size = static_cast<uint16_t>(reader.whole("unit_size", 0, 250, 0));
    config.transmission_unit = static_cast<size_t>(reader.whole(
        "transmission_unit", 1, 250, config.where.unit_size != 0 ? config.where.unit_size : 64));
    config.where.i2c_delay_us =
        static_cast<uint32_t>(reader.whole("i2c_delay_us", 0, kLongestWaitUs, 0));
    config.where.route = static_cast<uint32_t>(reader.whole("read_timeout_ms", 0, 0xFFFF, 0));
}

/// An add-in card. A device on PCIe has its place there already.
CardInfo read_card(const BoardState& board, const Place& place, const EndpointInfo& where) {
    ObjectReader reader(place);
    CardInfo card;
    const bool placed = where.transport == Transport::kPcie;
    const std::optional<Bdf> bdf = placed ? where.bdf : read_bdf(reader);
    if (bdf) {
        card.bus = (*bdf)[0];
        card.device = (*bdf)[1];
        if ((*bdf)[2] != 0) {
            place.complain("must be function 0 of its device");
        }
        if (const Device* other = board.find_card(card.bus, card.device)) {
            place.complain("is in the place of " + other->info().name);
        }
    }
    card.vendor_id = static_cast<uint16_t>(reader.whole("vendor_id", 0, 0xFFFF));
    card.flags = static_cast<uint32_t>(reader.whole("flags", 0, 0xFFFFFFFF, 0));
    card.slot = static_cast<uint8_t>(reader.whole("slot", 0, 255, 0));
    reader.finish();
    if (!bdf) {
        throw FileError{};
    }
    return card;
}

DeviceConfig read_device_config(const BoardState& board, std::set<std::string>& names,
                                ObjectReader& reader) {
    DeviceConfig config;
    config.where.name = read_device_name(reader, names);
    if (reader.choice("transport", {"i2c", "pcie"}, 0) == 1) {
        read_pcie_place(board, reader, config);
    } else {
        read_i2c_place(board, reader, config);
    }
    config.eid = read_eid(reader, 0);
    config.uuid = read_uuid(reader, config.where.name);
    config.response_us = static_cast<uint64_t>(reader.whole("response_us", 0, kLongestWaitUs, 500));
    config.lenient_eom = reader.flag("lenient_eom", true);
    config.standby = reader.flag("standby", true);
    reader.within("card",
                  [&](const Place& card) { config.card = read_card(board, card, config.where); });
    reader.each("faults", [&](const Place& fault) { config.faults.push_back(read_fault(fault)); });
    return config;
}

/// The maker of a type of device; null if the type is told to be wrong.
DeviceMaker read_type(ObjectReader& reader, std::string& type) {
    const Place place = reader.require("type");
    type = place.text();
    const auto maker = device_makers().find(type);
    if (maker != device_makers().end()) {
        return maker->second;
    }
    std::string all;
    for (const auto& each : device_makers()) {
        all += (all.empty() ? "" : ", ") + each.first;
    }
    place.complain("must be one of " + all);
    return nullptr;
}

/// @param names  those of the devices before it; receives this one's
void read_device(BoardState& board, std::set<std::string>& names, const Place& place) {
    ObjectReader reader(place);
    std::string type;
    const DeviceMaker maker = read_type(reader, type);
    DeviceConfig config = read_device_config(board, names, reader);
    config.where.type = type;
    if (maker == nullptr) {
        return;
    }
    std::unique_ptr<Device> device = maker(reader, config, board.clock);
    reader.finish();
    I2cBus* bus = board.find_bus(config.where.bus);
    const bool on_pcie = config.where.transport == Transport::kPcie;
    // One with errors might stand in the place of another.
    if (!reader.sound() || device == nullptr || (!on_pcie && bus == nullptr)) {
        return;
    }
    if (on_pcie) {
        board.pcie.attach(*device);
    } else {
        bus->attach(*device);
    }
    board.endpoints.push_back(device->info());
    board.devices.push_back(std::move(device));
}

void read_devices(BoardState& board, const Place& devices) {
    if (devices.node->items.size() > kMostDevices) {
        devices.fail("must have at most " + std::to_string(kMostDevices) + " devices");
    }
    std::set<std::string> names;
    devices.each([&](const Place& device) { read_device(board, names, device); });
}

}  // namespace

std::unique_ptr<BoardState> read_board(const Place& root) {
    auto board = std::make_unique<BoardState>();
    ObjectReader reader(root);
    board->name = reader.text("name");
    reader.within("bmc", [&](const Place& bmc) { read_bmc(*board, bmc); });
    reader.within("power", [&](const Place& power) { read_power(*board, power); });
    reader.within("platform", [&](const Place& place) { read_platform(*board, place); });
    const Place buses = reader.require("buses");
    const size_t before = root.errors->size();
    buses.each([&](const Place& bus) { read_bus(*board, bus); });
    if (board->buses.empty()) {
        buses.complain("must have at least one bus");
    } else {
        board->platform_record.default_i2c_channel = board->buses.front()->number();
    }
    board->buses_whole = root.errors->size() == before;
    reader.within("devices", [&](const Place& devices) { read_devices(*board, devices); });
    reader.finish();
    return board;
}

}  // namespace sim
