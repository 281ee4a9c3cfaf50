// SPDX-License-Identifier: Apache-2.0
// A pcapng file of the MCTP packets that pass over the I2C buses, PCIe and a serial line.
#include "sim/board/capture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "sim/board/clock.h"

namespace sim {

namespace {

// Block types, option codes and link types of pcapng.
constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint16_t kOptionEnd = 0;
constexpr uint16_t kOptionComment = 1;
constexpr uint16_t kOptionInterfaceName = 2;
constexpr uint16_t kOptionInterfaceDescription = 3;
constexpr uint16_t kOptionUserApplication = 4;
constexpr uint16_t kOptionPacketFlags = 2;
constexpr uint16_t kOptionTimeResolution = 9;
constexpr uint16_t kLinkTypeLinuxSll2 = 276;
constexpr size_t kOptionMax = 0xFFFF;

// The SLL2 header, in network byte order.
constexpr uint16_t kProtocolMctp = 0x00FA;
constexpr uint16_t kHardwareMctp = 290;
constexpr uint8_t kToUs = 0;
constexpr uint8_t kFromUs = 4;
/// Interface index: an I2C bus has its number plus 1, which is at most 256.
constexpr unsigned kPcieInterface = 257;
constexpr unsigned kSerialInterface = 258;

// Virtual time 0 in a capture.
constexpr uint64_t kEpochNs = Clock::kStartOfTimeS * 1'000'000'000;

void pad(Bytes& out) {
    while (out.size() % 4 != 0) {
        out.push_back(0);
    }
}

/// The front of a text that an option has room for, as its length has 16 bits: cut where a
/// character begins, which is where no byte of UTF-8 goes on with one.
std::string_view fitting(std::string_view text) {
    if (text.size() <= kOptionMax) {
        return text;
    }
    size_t end = kOptionMax;
    while (end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

/// @param value  at most kOptionMax bytes
void option(Bytes& out, uint16_t code, ByteView value) {
    append_le16(out, code);
    append_le16(out, static_cast<uint16_t>(value.size()));
    append(out, value);
    pad(out);
}

void option(Bytes& out, uint16_t code, std::string_view whole) {
    const std::string_view text = fitting(whole);
    option(out, code, ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

Bytes section_header() {
    Bytes body;
    append_le32(body, 0x1A2B3C4D);  // byte order magic
    append_le16(body, 1);           // version 1.0
    append_le16(body, 0);
    append_le32(body, 0xFFFFFFFF);  // section length not given
    append_le32(body, 0xFFFFFFFF);
    option(body, kOptionUserApplication, "sideband simulated board");
    option(body, kOptionEnd, ByteView{});
    return body;
}

Bytes interface_description(const CaptureBus& bus) {
    Bytes body;
    append_le16(body, kLinkTypeLinuxSll2);
    append_le16(body, 0);
    append_le32(body, 0);  // packets are never cut
    if (bus.transport == Transport::kPcie) {
        option(body, kOptionInterfaceName, "pcie");
        option(body, kOptionInterfaceDescription, "simulated PCIe vendor-defined messages");
    } else if (bus.transport == Transport::kSerial) {
        option(body, kOptionInterfaceName, "serial");
        option(body, kOptionInterfaceDescription, "serial line to the simulated board");
    } else {
        option(body, kOptionInterfaceName, "i2c-" + std::to_string(bus.bus));
        option(body, kOptionInterfaceDescription,
               "simulated I2C bus " + std::to_string(bus.bus) + " at " +
                   std::to_string(bus.clock_hz / 1000) + " kHz");
    }
    const uint8_t nanoseconds = 9;
    option(body, kOptionTimeResolution, ByteView{&nanoseconds, 1});
    option(body, kOptionEnd, ByteView{});
    return body;
}

unsigned interface_index(const Passing& passing) {
    switch (passing.transport) {
        case Transport::kPcie:
            return kPcieInterface;
        case Transport::kSerial:
            return kSerialInterface;
        default:
            return passing.bus + 1u;
    }
}

/// The address of the device on its medium, its length first; a serial line has none.
Bytes link_address(const Passing& passing) {
    constexpr size_t kSize = 9;
    Bytes out;
    if (passing.transport == Transport::kPcie) {
        const auto routing_id = static_cast<uint8_t>(passing.bdf[1] << 3 | passing.bdf[2]);
        out = {2, passing.bdf[0], routing_id};
    } else if (passing.transport == Transport::kI2c) {
        out = {1, passing.address};
    }
    out.resize(kSize);
    return out;
}

Bytes linux_sll2(const Passing& passing) {
    Bytes out{kProtocolMctp >> 8, kProtocolMctp & 0xFF, 0, 0};
    append_be32(out, interface_index(passing));
    append_be16(out, kHardwareMctp);
    out.push_back(passing.direction == Direction::kFromBmc ? kFromUs : kToUs);
    append(out, link_address(passing));
    return out;
}

/// Opens a file to write without waiting: a FIFO that nobody reads would hold the caller. Writing
/// to what has been opened waits as usual.
std::FILE* open_for_writing(const std::string& path, std::string& error) {
    constexpr mode_t kReadWriteForAll = 0666;  // less the umask
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
             kReadWriteForAll);
    struct stat status {};
    if (descriptor < 0) {
        const int why = errno;
        const bool fifo = stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
        error =
            path + ": " + (why == ENXIO && fifo ? "nobody reads this FIFO" : std::strerror(why));
        return nullptr;
    }
    std::FILE* const file = fcntl(descriptor, F_SETFL, 0) == 0 ? fdopen(descriptor, "wb") : nullptr;
    if (file == nullptr) {
        error = path + ": " + std::strerror(errno);
        close(descriptor);
    }
    return file;
}

std::string place_of(const Passing& passing) {
    switch (passing.transport) {
        case Transport::kPcie:
            return "PCIe " + bdf_text(passing.bdf);
        case Transport::kSerial:
            return "serial line";
        default:
            return "bus " + std::to_string(passing.bus) + ", address " + hex_byte(passing.address);
    }
}

std::string comment_of(const Passing& passing) {
    std::string text = place_of(passing) + " (" + passing.device + "), ";
    text += passing.direction == Direction::kFromBmc ? "BMC to device" : "device to BMC";
    return passing.pec_good ? text : text + ", bad PEC";
}

}  // namespace

Capture::~Capture() {
    stop();
}

bool Capture::start(const std::string& path, const std::vector<CaptureBus>& buses,
                    std::string& error) {
    stop();
    file_ = open_for_writing(path, error);
    if (file_ == nullptr) {
        return false;
    }
    failed_ = false;
    buses_ = buses;
    block(kSectionHeader, section_header());
    for (const CaptureBus& bus : buses_) {
        block(kInterfaceDescription, interface_description(bus));
    }
    if (std::fflush(file_) != 0 || failed_) {
        error = path + ": " + std::strerror(errno);
        stop();
        return false;
    }
    return true;
}

/// The number of a packet's interface. One that nobody has announced is described now.
uint32_t Capture::interface_of(const Passing& passing) {
    const auto found = std::ranges::find_if(buses_, [&](const CaptureBus& bus) {
        return bus.transport == passing.transport && bus.bus == passing.bus;
    });
    const auto number = static_cast<uint32_t>(found - buses_.begin());
    if (found == buses_.end()) {
        buses_.push_back({passing.bus, 0, passing.transport});
        block(kInterfaceDescription, interface_description(buses_.back()));
    }
    return number;
}

void Capture::packet(const Passing& passing) {
    if (file_ == nullptr) {
        return;
    }
    const uint32_t interface = interface_of(passing);
    Bytes data = linux_sll2(passing);
    append(data, passing.packet);
    const uint64_t at = kEpochNs + passing.at_ns;

    Bytes body;
    append_le32(body, interface);
    append_le32(body, static_cast<uint32_t>(at >> 32));
    append_le32(body, static_cast<uint32_t>(at));
    append_le32(body, static_cast<uint32_t>(data.size()));
    append_le32(body, static_cast<uint32_t>(data.size()));
    append(body, data);
    pad(body);
    option(body, kOptionComment, comment_of(passing));
    Bytes flags;
    append_le32(flags, passing.direction == Direction::kFromBmc ? 2 : 1);
    option(body, kOptionPacketFlags, ByteView(flags));
    option(body, kOptionEnd, ByteView{});
    block(kEnhancedPacket, body);
}

void Capture::flush() {
    if (file_ != nullptr && std::fflush(file_) != 0) {
        failed_ = true;
    }
}

bool Capture::stop() {
    if (file_ == nullptr) {
        return true;
    }
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return closed && !failed_;
}

void Capture::block(uint32_t type, const Bytes& body) {
    Bytes out;
    const auto length = static_cast<uint32_t>(body.size() + 12);
    append_le32(out, type);
    append_le32(out, length);
    append(out, body);
    append_le32(out, length);
    if (std::fwrite(out.data(), 1, out.size(), file_) != out.size()) {
        failed_ = true;
    }
}

}  // namespace sim
