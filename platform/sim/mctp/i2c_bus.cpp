// SPDX-License-Identifier: Apache-2.0
// An I2C bus with its multiplexers, its devices and the BMC's slave queue.
#include "sim/mctp/i2c_bus.h"

#include <algorithm>
#include <cerrno>

namespace sim {

namespace {

constexpr uint8_t kMctpCommand = 0x0F;  // DSP0237, table 1
constexpr size_t kBlockHead = 3;        // destination address, command code, byte count
constexpr size_t kLongestBlock = 255;
constexpr size_t kMuxWrite = 2;  // address and control byte
constexpr uint64_t kBitsPerByte = 9;

/// SMBus block write of a device to the BMC.
Bytes block_write(uint8_t to, uint8_t from, const Outgoing& outgoing) {
    ByteView packet = outgoing.packet;
    packet = packet.first(std::min(packet.size(), kLongestBlock - 1));
    Bytes frame{to, kMctpCommand, static_cast<uint8_t>(packet.size() + 1),
                static_cast<uint8_t>(from | 1)};
    append(frame, packet);
    uint8_t pec = smbus_pec(frame);
    frame.push_back(outgoing.spoil_pec ? static_cast<uint8_t>(~pec) : pec);
    return frame;
}

/// The MCTP packet in a block write; nothing if it is none.
std::optional<ByteView> packet_of(ByteView frame) {
    const bool whole = frame.size() > kBlockHead + 1 && frame[1] == kMctpCommand &&
                       frame.size() == kBlockHead + frame[2] + 1 && frame[2] >= 1;
    if (!whole) {
        return std::nullopt;
    }
    return frame.subspan(kBlockHead + 1, frame[2] - 1u);
}

constexpr uint8_t channel_bit(uint8_t channel) {
    return static_cast<uint8_t>(1u << channel);
}

bool pec_good(ByteView frame) {
    return smbus_pec(frame.first(frame.size() - 1)) == frame.back();
}

}  // namespace

I2cBus::I2cBus(uint8_t number, uint32_t clock_hz, BusSurroundings around) : around_(around) {
    statistics_.bus = number;
    statistics_.clock_hz = clock_hz;
}

const Mux* I2cBus::find_mux(uint8_t address) const {
    for (const MuxState& state : muxes_) {
        if (state.mux.address == address) {
            return &state.mux;
        }
    }
    return nullptr;
}

MuxPath I2cBus::path_to(const MuxHop& hop) const {
    MuxPath path{hop};
    for (const Mux* mux = find_mux(hop.address); mux != nullptr && mux->behind;
         mux = find_mux(mux->behind->address)) {
        path.insert(path.begin(), *mux->behind);
    }
    return path;
}

bool I2cBus::select(const MuxPath& path) {
    const bool exists = std::ranges::all_of(path, [&](const MuxHop& hop) {
        const Mux* mux = find_mux(hop.address);
        return mux != nullptr && hop.channel < mux->channels;
    });
    if (!exists || (!path.empty() && path_to(path.back()) != path)) {
        return false;
    }
    for (MuxState& state : muxes_) {
        uint8_t wanted = 0;
        for (const MuxHop& hop : path) {
            if (hop.address == state.mux.address) {
                wanted = channel_bit(hop.channel);
            }
        }
        if (state.connected != wanted) {
            occupy(kMuxWrite);
            state.connected = wanted;
        }
    }
    return true;
}

bool I2cBus::connected(const MuxPath& path) const {
    return std::ranges::all_of(path, [&](const MuxHop& hop) {
        return std::ranges::any_of(muxes_, [&](const MuxState& state) {
            return state.mux.address == hop.address &&
                   (state.connected & channel_bit(hop.channel)) != 0;
        });
    });
}

bool I2cBus::powered(const Device& device) const {
    return around_.main_power || device.standby();
}

Device* I2cBus::find_device(uint8_t address) const {
    for (Device* device : devices_) {
        if (device->info().address == address && connected(device->path()) && powered(*device)) {
            return device;
        }
    }
    return nullptr;
}

uint64_t I2cBus::wire_ns(size_t bytes) const {
    return bytes * kBitsPerByte * 1'000'000'000 / statistics_.clock_hz;
}

void I2cBus::charge(size_t bytes) {
    statistics_.bytes += bytes;
    statistics_.busy_ns += wire_ns(bytes);
    free_at_ns_ = around_.clock.now_ns() + wire_ns(bytes);
}

void I2cBus::occupy(size_t bytes) {
    while (free_at_ns_ > around_.clock.now_ns()) {
        around_.clock.advance_to(free_at_ns_);
    }
    charge(bytes);
    around_.clock.advance_to(free_at_ns_);
}

void I2cBus::count_packet(size_t packet_size) {
    ++statistics_.packets;
    if (packet_size > MctpEndpoint::kHeaderSize) {
        statistics_.payload_bytes += packet_size - MctpEndpoint::kHeaderSize;
    }
}

/// A write that ended at the address byte.
void I2cBus::tell_refused(uint8_t address, ByteView frame) {
    const std::optional<ByteView> packet = packet_of(frame);
    if (!packet) {
        return;
    }
    Passing refused;
    refused.bus = number();
    refused.address = address;
    refused.packet = *packet;
    refused.at_ns = around_.clock.now_ns();
    refused.taken = false;
    around_.tap.packet(refused);
}

int I2cBus::write(uint8_t address, ByteView frame) {
    if (frame.empty() || frame[0] != address) {
        return -EINVAL;
    }
    Device* device = find_device(address);
    if (device == nullptr || !device->acknowledges()) {
        occupy(1);
        tell_refused(address, frame);
        return -ENXIO;
    }
    occupy(frame.size());
    if (!pec_good(frame)) {
        return -EIO;
    }
    const std::optional<ByteView> packet = packet_of(frame);
    if (!packet) {
        return 0;
    }
    count_packet(packet->size());
    around_.tap.packet({number(), address, device->info().name, Direction::kFromBmc, *packet,
                        around_.clock.now_ns(), true});
    // An answer goes to the address that the request names as its source.
    std::vector<Outgoing> answer = device->receive(*packet);
    if (frame[kBlockHead] == (around_.bmc_address | 1)) {
        schedule(*device, answer);
    }
    return 0;
}

int I2cBus::read(Bytes& block, uint64_t limit_ns) {
    Clock& clock = around_.clock;
    const uint64_t deadline = clock.now_ns() + limit_ns;
    if (queue_.empty()) {
        bmc_waits();
    }
    while (queue_.empty()) {
        const std::optional<uint64_t> due = clock.next_due();
        if (!due || *due > deadline) {
            clock.advance_to(deadline);
            return -ETIMEDOUT;
        }
        clock.advance_to(*due);
    }
    const Bytes frame = *take_block();
    if (!pec_good(frame)) {
        return -EBADMSG;
    }
    block.assign(frame.begin() + 1, frame.end());
    return 0;
}

/// A multiplexer, where those in front of it lead to it.
I2cBus::MuxState* I2cBus::find_chip(uint8_t address) {
    for (MuxState& state : muxes_) {
        const std::optional<MuxHop>& behind = state.mux.behind;
        if (state.mux.address == address && (!behind || connected(path_to(*behind)))) {
            return &state;
        }
    }
    return nullptr;
}

bool I2cBus::answers(uint8_t address) const {
    Device* const device = find_device(address);
    return device != nullptr && device->acknowledges();
}

int I2cBus::master_write(uint8_t address, ByteView data) {
    if (MuxState* const chip = find_chip(address)) {
        occupy(1 + data.size());
        if (!data.empty()) {
            const unsigned existing = (1u << chip->mux.channels) - 1;
            chip->connected = static_cast<uint8_t>(data.back() & existing);
        }
        return 0;
    }
    if (data.empty()) {
        occupy(1);
        return answers(address) ? 0 : -ENXIO;
    }
    Bytes frame{address};
    append(frame, data);
    return write(address, frame);
}

int I2cBus::master_read(uint8_t address, size_t size, Bytes& data) {
    constexpr uint8_t kNobody = 0xFF;
    const MuxState* const chip = find_chip(address);
    const bool there = chip != nullptr || answers(address);
    occupy(there ? 1 + size : 1);
    data.assign(there ? size : 0, chip != nullptr ? chip->connected : kNobody);
    return there ? 0 : -ENXIO;
}

std::optional<Bytes> I2cBus::take_block() {
    if (queue_.empty()) {
        return std::nullopt;
    }
    Bytes frame = std::move(queue_.front());
    queue_.pop_front();
    return frame;
}

void I2cBus::bmc_waits() {
    for (Device* device : devices_) {
        bool ended = false;
        schedule(*device, device->bmc_waits(ended));
        statistics_.missing_ends += ended ? 1 : 0;
    }
}

void I2cBus::let_devices_act() {
    for (Device* device : devices_) {
        if (powered(*device)) {
            schedule(*device, device->time_passes());
        }
    }
}

void I2cBus::schedule(Device& device, const std::vector<Outgoing>& outgoing) {
    for (const Outgoing& each : outgoing) {
        Bytes frame = block_write(around_.bmc_address, device.info().address, each);
        around_.clock.schedule(around_.clock.now_ns() + each.delay_ns,
                               [this, &device, frame, losses = device.power_losses()] {
                                   transmit(device, frame, losses);
                               });
    }
}

/// @param losses  how often the device had lost power when it made the frame
void I2cBus::transmit(Device& device, const Bytes& frame, uint32_t losses) {
    Clock& clock = around_.clock;
    if (free_at_ns_ > clock.now_ns()) {
        clock.schedule(free_at_ns_,
                       [this, &device, frame, losses] { transmit(device, frame, losses); });
        return;
    }
    // Behind a channel that is not connected nobody hears the device; it gives up.
    if (!connected(device.path()) || !powered(device) || device.power_losses() != losses) {
        return;
    }
    charge(frame.size());
    clock.schedule(free_at_ns_, [this, &device, frame, losses] { arrive(device, frame, losses); });
}

void I2cBus::arrive(const Device& device, const Bytes& frame, uint32_t losses) {
    if (device.power_losses() != losses) {
        return;
    }
    const ByteView packet = ByteView(frame).subspan(kBlockHead + 1, frame[2] - 1u);
    count_packet(packet.size());
    around_.tap.packet({number(), device.info().address, device.info().name, Direction::kToBmc,
                        packet, around_.clock.now_ns(), pec_good(frame)});
    if (queue_.size() < kQueueLimit) {
        queue_.push_back(frame);
    }
}

}  // namespace sim
