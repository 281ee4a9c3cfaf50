// SPDX-License-Identifier: Apache-2.0
// What the board file of a Linux machine says: power, records, devices and the ways to them.
#include "platform/linux/board.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "platform/board_file/file.h"
#include "platform/linux/board_buses.h"

namespace machine {

namespace {

using board_file::ObjectReader;
using board_file::Place;

constexpr int64_t kLongestWaitUs = 60'000'000;
constexpr int64_t kLastEid = 254;
/// The upper half of mctp_ctx.pcie_param names a network.
constexpr int64_t kLastNet = 0xFFFF;
constexpr size_t kMostDevices = 1024;

uint32_t read_net(ObjectReader& reader) {
    return static_cast<uint32_t>(reader.whole("net", 1, kLastNet, 1));
}

/// A text that is there and not empty.
std::string read_text(ObjectReader& reader, const std::string& key) {
    const Place place = reader.require(key);
    const std::string& text = place.text();
    if (text.empty()) {
        place.complain("must not be empty");
    }
    if (text.find('\0') != std::string::npos) {
        place.complain("must have no NUL");  // the kernel would end there
    }
    return text;
}

void read_bmc(Board& board, const Place& place) {
    ObjectReader reader(place);
    board.bmc_eid = board_file::read_eid(reader, board.bmc_eid);
    board.bmc_address = reader.address("address", board.bmc_address);
    reader.finish();
}

PowerSource read_power_source(const Place& place) {
    using Kind = board_file::Node::Kind;
    PowerSource source;
    if (place.node->kind == Kind::kString && place.text() == "on") {
        return source;
    }
    if (place.node->kind != Kind::kObject) {
        place.fail("must be \"on\", or an object with file or command");
    }
    ObjectReader reader(place);
    if (reader.find("command")) {
        source.kind = PowerSource::Kind::kCommand;
        source.text = read_text(reader, "command");
    } else {
        source.kind = PowerSource::Kind::kFile;
        source.text = read_path(reader, "file");
        source.on = reader.text("on", "1");
    }
    reader.finish();
    return source;
}

void read_power(Board& board, const Place& place) {
    ObjectReader reader(place);
    reader.within("main", [&](const Place& main) { board.power = read_power_source(main); });
    board.standby_option = static_cast<uint8_t>(reader.whole("standby_option", 0, 255, 0));
    board.standby_override = static_cast<uint8_t>(reader.whole("standby_override", 0, 255, 0));
    board.standby_devices = reader.flag("standby_devices", false);
    board.policy_off = reader.flag("policy_off", false);
    reader.finish();
}

void read_platform(Board& board, const Place& place) {
    ObjectReader reader(place);
    board.identifier = static_cast<uint16_t>(reader.whole("identifier", 0, 0xFFFF, 0));
    board.mpio_state = static_cast<uint8_t>(reader.whole("mpio_state", 0, kLastEid, 0));
    reader.finish();
}

void read_pcie(Board& board, const Place& place) {
    ObjectReader reader(place);
    board.pcie_net = read_net(reader);
    reader.finish();
}

void read_mctp_way(Device& device, const Place& place) {
    ObjectReader reader(place);
    device.net = read_net(reader);
    const Place eid = reader.require("eid");
    device.eid = static_cast<uint8_t>(eid.whole(8, kLastEid));
    reader.finish();
}

void read_i2c_way(const Board& board, Device& device, ObjectReader& reader) {
    device.bus = static_cast<uint8_t>(reader.whole("bus", 0, 255));
    device.address = reader.address("address");
    device.software_pec = reader.choice("pec", {"hardware", "software"}, 0) == 1;
    device.unit_size = static_cast<uint16_t>(reader.whole("unit_size", 0, kLargestUnit, 0));
    device.i2c_delay_us = static_cast<uint32_t>(reader.whole("i2c_delay_us", 0, kLongestWaitUs, 0));
    device.mux = read_mux_setting(board, device.bus, reader);
}

Card read_card(const Place& place) {
    ObjectReader reader(place);
    Card card;
    const std::optional<board_file::Bdf> bdf = board_file::read_bdf(reader);
    if (bdf) {
        card.bus = (*bdf)[0];
        card.device = (*bdf)[1];
        if ((*bdf)[2] != 0) {
            reader.complain("bdf", "must be function 0 of its device");
        }
    }
    card.vendor_id = static_cast<uint16_t>(reader.whole("vendor_id", 0, 0xFFFF));
    card.flags = static_cast<uint32_t>(reader.whole("flags", 0, 0xFFFFFFFF, 0));
    card.slot = static_cast<uint8_t>(reader.whole("slot", 0, 255, 0));
    reader.finish();
    return card;
}

/// Whether a device hears what is meant for one behind these multiplexers: it stands behind some of
/// them, or in front of all.
bool hears(const MuxSetting& own, const MuxSetting& other) {
    const std::vector<MuxWrite> writes = decode_mux(other);
    return std::ranges::all_of(decode_mux(own), [&](const MuxWrite& write) {
        return write.value == 0 || std::ranges::any_of(writes, [&](const MuxWrite& each) {
                   return each.address == write.address && each.value == write.value;
               });
    });
}

bool same_place(const Device& a, const Device& b) {
    if (a.way != b.way) {
        return false;
    }
    return a.way == Device::Way::kMctp ? a.net == b.net && a.eid == b.eid
                                       : a.bus == b.bus && a.address == b.address &&
                                             (hears(a.mux, b.mux) || hears(b.mux, a.mux));
}

/// Complaints about an address that the BMC or a multiplexer has.
void check_address(const Board& board, const Device& device, const ObjectReader& reader) {
    if (device.address == board.bmc_address) {
        reader.complain("address", "is the BMC's own");
    }
    const BusPlace* const bus = board.find_bus(device.bus);
    const auto is_there = [&](const Mux& mux) { return mux.address == device.address; };
    if (bus != nullptr && std::ranges::any_of(bus->muxes, is_there)) {
        reader.complain("address", "is that of a multiplexer");
    }
}

/// Complaints about a place that another device has.
void check_places(const Board& board, const Device& device, const ObjectReader& reader) {
    for (const Device& other : board.devices) {
        if (same_place(device, other)) {
            reader.complain(device.way == Device::Way::kMctp ? "mctp" : "address",
                            "is in use by " + other.name);
        }
        if (device.card && other.card && device.card->bus == other.card->bus &&
            device.card->device == other.card->device) {
            reader.complain("card", "is in the place of " + other.name);
        }
    }
}

/// @param names  those of the devices before it; receives this one's
void read_device(Board& board, std::set<std::string>& names, const Place& place) {
    ObjectReader reader(place);
    Device device;
    device.name = board_file::read_device_name(reader, names);
    if (const std::optional<Place> mctp = reader.find("mctp")) {
        device.way = Device::Way::kMctp;
        board_file::attempt([&] { read_mctp_way(device, *mctp); });
    } else {
        read_i2c_way(board, device, reader);
    }
    device.read_timeout_ms = static_cast<uint16_t>(reader.whole("read_timeout_ms", 0, 0xFFFF, 0));
    reader.within("card", [&](const Place& card) { device.card = read_card(card); });
    reader.finish();
    // What follows from an error would be told as one of its own.
    if (!reader.sound()) {
        return;
    }
    if (device.way == Device::Way::kI2c) {
        check_address(board, device, reader);
    }
    check_places(board, device, reader);
    board.devices.push_back(std::move(device));
}

void read_devices(Board& board, const Place& devices) {
    if (devices.node->items.size() > kMostDevices) {
        devices.fail("must have at most " + std::to_string(kMostDevices) + " devices");
    }
    std::set<std::string> names;
    devices.each([&](const Place& device) { read_device(board, names, device); });
}

void read_board(Board& board, const Place& root) {
    ObjectReader reader(root);
    board.name = reader.text("name");
    if (reader.find("run_folder")) {
        board.run_folder = read_path(reader, "run_folder");
    }
    reader.within("bmc", [&](const Place& bmc) { read_bmc(board, bmc); });
    reader.within("power", [&](const Place& power) { read_power(board, power); });
    reader.within("platform", [&](const Place& place) { read_platform(board, place); });
    reader.within("pcie", [&](const Place& pcie) { read_pcie(board, pcie); });
    reader.within("i2c", [&](const Place& i2c) { read_i2c(board, i2c); });
    reader.each("buses", [&](const Place& bus) { read_bus(board, bus); });
    reader.within("devices", [&](const Place& devices) { read_devices(board, devices); });
    reader.finish();
}

}  // namespace

std::string read_path(ObjectReader& reader, const std::string& key) {
    std::string path = read_text(reader, key);
    if (!path.starts_with('/')) {
        reader.complain(key, "must be a path from the root on");
    }
    return path;
}

std::optional<Board> parse_board(std::string_view text, board_file::BoardError& error) {
    Board board;
    board.described = true;
    const bool sound =
        board_file::read_text(text, error, [&](const Place& root) { read_board(board, root); });
    return sound ? std::optional<Board>(std::move(board)) : std::nullopt;
}

std::optional<Board> load_board(const std::string& path, board_file::BoardError& error) {
    // A link that leads nowhere, or a folder that must not be entered, is not the absence of a
    // file.
    struct stat status {};
    if (path.empty() && lstat(kOwnBoardFile, &status) != 0 &&
        (errno == ENOENT || errno == ENOTDIR)) {
        return Board{};
    }
    std::string text;
    if (const std::optional<std::string> reason =
            board_file::read_file(path.empty() ? kOwnBoardFile : path, text)) {
        error = {"", 0, *reason};
        return std::nullopt;
    }
    return parse_board(text, error);
}

}  // namespace machine
