// SPDX-License-Identifier: Apache-2.0
// What the board file of a Linux machine says of I2C buses and multiplexers.
#include "platform/linux/board_buses.h"

#include <algorithm>
#include <cstdio>

namespace machine {

namespace {

using board_file::ObjectReader;
using board_file::Place;

constexpr int64_t kMostChannels = 8;
constexpr size_t kMostMuxes = 16;
constexpr size_t kLongestMuxPath = 4;
constexpr const char* kBus = "{bus}";
constexpr const char* kAddress = "{address}";

/// Where drivers put the queue: those that were published, and the one that the library looks for
/// by itself.
constexpr const char* kSlaveQueues[] = {"/sys/bus/i2c/devices/{bus}-10{address}/slave-mqueue",
                                        "/sys/bus/i2c/devices/{bus}-00{address}/mctp-slave-mqueue"};

void replace_all(std::string& text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
}

void read_paths(I2cPaths& paths, ObjectReader& reader) {
    const auto read = [&reader](const char* key, std::string& path) {
        if (!reader.find(key)) {
            return;
        }
        path = read_path(reader, key);
        std::string rest = path;
        replace_all(rest, kBus, "");
        replace_all(rest, kAddress, "");
        if (rest.find_first_of("{}") != std::string::npos) {
            reader.complain(key, "has braces that are neither {bus} nor {address}");
        }
    };
    read("device", paths.device);
    read("slave_queue", paths.slave_queue);
}

const Mux* find_mux(const BusPlace& bus, uint8_t address) {
    const auto found =
        std::ranges::find_if(bus.muxes, [&](const Mux& mux) { return mux.address == address; });
    return found != bus.muxes.end() ? &*found : nullptr;
}

MuxHop read_hop(const Place& place, const BusPlace& bus) {
    ObjectReader reader(place);
    MuxHop hop{reader.address("address"), 0};
    const Mux* const mux = find_mux(bus, hop.address);
    if (mux == nullptr) {
        reader.complain("address", "is not a multiplexer that stands before it on bus " +
                                       std::to_string(bus.bus));
    }
    hop.channel = static_cast<uint8_t>(
        reader.whole("channel", 0, (mux != nullptr ? mux->channels : kMostChannels) - 1));
    reader.finish();
    if (mux == nullptr) {
        throw board_file::FileError{};
    }
    return hop;
}

/// The hops to a channel, from the bus itself on.
std::vector<MuxHop> path_to(const BusPlace& bus, const MuxHop& hop) {
    std::vector<MuxHop> path{hop};
    for (const Mux* mux = find_mux(bus, hop.address); mux != nullptr && mux->behind;
         mux = find_mux(bus, mux->behind->address)) {
        path.insert(path.begin(), *mux->behind);
    }
    return path;
}

/// Whether a channel's number and the enable bits have a bit in common.
bool overlap(const Mux& mux) {
    unsigned numbers = 0;
    for (unsigned channel = 0; channel < mux.channels; ++channel) {
        numbers |= channel;
    }
    return (numbers & mux.enable) != 0;
}

void read_mux(const Board& board, BusPlace& bus, const Place& place) {
    ObjectReader reader(place);
    Mux mux;
    mux.address = reader.address("address");
    if (mux.address == board.bmc_address || find_mux(bus, mux.address) != nullptr) {
        reader.complain("address", "is in use on this bus");
    }
    mux.channels = static_cast<uint8_t>(reader.whole("channels", 1, kMostChannels, kMostChannels));
    mux.enable = static_cast<uint8_t>(reader.whole("enable", 0, 0xFF, 0));
    if (overlap(mux)) {
        reader.complain("enable", "has bits of the channels' numbers");
    }
    reader.within("behind", [&](const Place& behind) {
        const MuxHop hop = read_hop(behind, bus);
        if (path_to(bus, hop).size() >= kLongestMuxPath) {
            behind.fail("makes a chain of more than " + std::to_string(kLongestMuxPath) +
                        " multiplexers");
        }
        mux.behind = hop;
    });
    reader.finish();
    if (bus.muxes.size() >= kMostMuxes) {
        place.fail("is one of more than " + std::to_string(kMostMuxes) + " multiplexers");
    }
    bus.muxes.push_back(mux);
}

uint8_t value_for(const Mux& mux, uint8_t channel) {
    return static_cast<uint8_t>(mux.enable != 0 ? mux.enable | channel : 1u << channel);
}

}  // namespace

std::string fill_in(const std::string& pattern, uint8_t bus, uint8_t bmc_address) {
    char address[4];
    std::snprintf(address, sizeof address, "%02x", bmc_address >> 1);
    std::string path = pattern;
    replace_all(path, kBus, std::to_string(bus));
    replace_all(path, kAddress, address);
    return path;
}

std::vector<std::string> queue_paths(const I2cPaths& paths, uint8_t bus, uint8_t bmc_address) {
    if (!paths.slave_queue.empty()) {
        return {fill_in(paths.slave_queue, bus, bmc_address)};
    }
    std::vector<std::string> usual;
    for (const char* pattern : kSlaveQueues) {
        usual.push_back(fill_in(pattern, bus, bmc_address));
    }
    return usual;
}

const BusPlace* Board::find_bus(uint8_t bus) const {
    const auto found =
        std::ranges::find_if(buses, [bus](const BusPlace& each) { return each.bus == bus; });
    return found != buses.end() ? &*found : nullptr;
}

const I2cPaths& Board::paths_of(uint8_t bus) const {
    const BusPlace* const place = find_bus(bus);
    return place != nullptr ? place->paths : i2c;
}

void read_i2c(Board& board, const Place& place) {
    ObjectReader reader(place);
    read_paths(board.i2c, reader);
    reader.finish();
}

void read_bus(Board& board, const Place& place) {
    ObjectReader reader(place);
    BusPlace bus;
    bus.bus = static_cast<uint8_t>(reader.whole("bus", 0, 255));
    if (board.find_bus(bus.bus) != nullptr) {
        reader.complain("bus", "is the number of another bus");
    }
    bus.paths = board.i2c;
    read_paths(bus.paths, reader);
    reader.each("muxes", [&](const Place& mux) { read_mux(board, bus, mux); });
    reader.finish();
    board.buses.push_back(std::move(bus));
}

MuxSetting read_mux_setting(const Board& board, uint8_t bus, ObjectReader& reader) {
    const BusPlace* const place = board.find_bus(bus);
    const BusPlace none{.bus = bus, .paths = {}, .muxes = {}};
    std::vector<MuxHop> path;
    reader.within("mux", [&](const Place& mux) {
        const BusPlace& on = place != nullptr ? *place : none;
        path = path_to(on, read_hop(mux, on));
    });
    MuxSetting setting{};
    size_t end = 1;
    for (const Mux& mux : place != nullptr ? place->muxes : none.muxes) {
        // One behind a channel that is not connected cannot be reached, and disturbs nobody.
        if (mux.behind && std::ranges::find(path, *mux.behind) == path.end()) {
            continue;
        }
        const auto hop = std::ranges::find_if(
            path, [&](const MuxHop& each) { return each.address == mux.address; });
        setting[end++] = mux.address;
        setting[end++] = hop != path.end() ? value_for(mux, hop->channel) : 0;
        ++setting[0];
    }
    return setting;
}

std::vector<MuxWrite> decode_mux(const MuxSetting& setting) {
    std::vector<MuxWrite> writes;
    if (setting[0] > kMostMuxes) {
        return writes;
    }
    for (size_t i = 0; i < setting[0]; ++i) {
        writes.push_back({.address = setting[1 + 2 * i], .value = setting[2 + 2 * i]});
    }
    return writes;
}

}  // namespace machine
