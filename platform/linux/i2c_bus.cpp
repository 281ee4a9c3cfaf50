// SPDX-License-Identifier: Apache-2.0
// An I2C bus of the machine: the adapter's device, through which the BMC writes, and the slave
// queue, in which answers arrive.
#include "platform/linux/i2c_bus.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sideband/platform.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/wait.h"

namespace machine {

namespace {

/// Command code, byte count, so many bytes, PEC (SMBus 3.2, clause 6.5.7).
constexpr size_t kLongestBlock = 2 + 255 + 1;
constexpr size_t kShortestBlock = 2;
/// Room for a message that is longer than any block, so that it can be told from one.
constexpr size_t kMessageRoom = 1024;
/// Another master was first: that happens on a bus where devices write by themselves.
constexpr int kArbitrations = 3;
constexpr int kArbitrationPauseMs = 1;
/// Messages that emptying a queue takes: more than any driver holds.
constexpr int kMostStale = 4096;

/// What each byte makes of a checksum.
constexpr std::array<uint8_t, 256> pec_table() {
    std::array<uint8_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
        table[byte] = static_cast<uint8_t>(crc);
    }
    return table;
}

constexpr std::array<uint8_t, 256> kPecTable = pec_table();

std::string hex_byte(uint8_t value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", value);
    return text;
}

std::string write_failure(int error, uint8_t address, const std::string& adapter) {
    switch (error) {
        case ENXIO:
        case EREMOTEIO:
            return "no acknowledge from " + hex_byte(address);
        case ETIMEDOUT:
            return "writing to " + hex_byte(address) + " took too long: the bus may be stuck";
        case EAGAIN:
            return "arbitration lost while writing to " + hex_byte(address);
        case EBUSY:
            return "the bus is stuck: it does not become free";
        case EOPNOTSUPP:
            return adapter + " takes no plain I2C messages";
        default:
            return "writing to " + hex_byte(address) + ": " + std::strerror(error);
    }
}

std::string open_failure(const char* what, const std::string& path, int error) {
    const std::string head = std::string("no ") + what + ": " + path;
    const bool absent = error == ENOENT || error == ENXIO || error == ENODEV;
    return head + (absent ? " is not there" : ": " + std::string(std::strerror(error)));
}

}  // namespace

uint8_t smbus_pec(std::span<const uint8_t> bytes, uint8_t before) {
    uint8_t crc = before;
    for (const uint8_t byte : bytes) {
        crc = kPecTable[crc ^ byte];
    }
    return crc;
}

I2cBus::I2cBus(uint8_t number, const I2cPaths& paths, uint8_t bmc_address)
    : number_(number),
      bmc_address_(bmc_address),
      path_(fill_in(paths.device, number, bmc_address)),
      queue_(queue_paths(paths, number, bmc_address)) {}

int I2cBus::tell(int error, const std::string& text) const {
    console_log("I2C bus %u: %s\n", number_, text.c_str());
    return -error;
}

int I2cBus::tell_queue(int error) const {
    return tell(error, error == EPIPE ? queue_.path() + " has ended"
                                      : open_failure("slave queue", queue_.path(), error));
}

std::string I2cBus::adapter_objection() {
    if (!adapter_) {
        adapter_ = Descriptor(::open(path_.c_str(), O_RDWR | O_CLOEXEC));
    }
    return adapter_ ? "" : open_failure("such bus", path_, errno);
}

std::string I2cBus::objection() {
    std::string text = adapter_objection();
    const int error = text.empty() ? queue_.open() : 0;
    return error != 0 ? open_failure("slave queue", queue_.path(), error) : text;
}

void I2cBus::route(const MuxSetting& setting) {
    setting_ = setting;
    const std::vector<MuxWrite> writes = decode_mux(setting);
    routed_ = std::ranges::all_of(writes, [this](const MuxWrite& mux) {
        return transfer(mux.address, std::array{mux.value}, "the multiplexer is not switched: ") ==
               0;
    });
}

/// Whoever cannot hear the answer does not ask: without a queue it is as if there were no such bus.
int I2cBus::open_queue() {
    const int error = queue_.open();
    if (error == 0) {
        return 0;
    }
    tell_queue(error);
    return -ENODEV;
}

int I2cBus::empty() {
    if (const int result = open_queue(); result < 0) {
        return result;
    }
    std::array<uint8_t, kMessageRoom> stale;
    ssize_t length = 1;
    for (int i = 0; i < kMostStale && length > 0; ++i) {
        length = queue_.take(stale);
    }
    return length < 0 ? tell_queue(static_cast<int>(-length)) : 0;
}

int I2cBus::write(uint8_t address, std::span<const uint8_t> bytes) {
    if (!routed_) {
        return -EIO;  // route() has told why
    }
    const int result = open_queue();
    return result < 0 ? result : transfer(address, bytes, "");
}

int I2cBus::transfer(uint8_t address, std::span<const uint8_t> bytes, const char* what) {
    if (const std::string objection = adapter_objection(); !objection.empty()) {
        return tell(ENODEV, what + objection);
    }
    std::vector<uint8_t> content(bytes.begin(), bytes.end());
    i2c_msg message{};
    message.addr = static_cast<uint16_t>(address >> 1);
    message.len = static_cast<uint16_t>(content.size());
    message.buf = content.data();
    i2c_rdwr_ioctl_data all{.msgs = &message, .nmsgs = 1};
    int error = EAGAIN;
    for (int attempt = 0; attempt < kArbitrations && error == EAGAIN; ++attempt) {
        pause_ms(attempt != 0 ? kArbitrationPauseMs : 0);
        const int sent = ioctl(adapter_.get(), I2C_RDWR, &all);
        error = sent == 1 ? 0 : sent < 0 ? errno : EIO;
    }
    if (error == ENODEV) {
        adapter_ = Descriptor();
    }
    return error != 0 ? tell(error, what + write_failure(error, address, path_)) : 0;
}

int I2cBus::receive(std::span<uint8_t> room, int wait_ms) {
    if (!routed_) {
        return -EIO;
    }
    const int64_t deadline = now_ms() + wait_ms;
    std::array<uint8_t, kMessageRoom> message;
    for (;;) {
        const ssize_t length = queue_.take(message);
        if (length < 0) {
            return tell_queue(static_cast<int>(-length));
        }
        if (length > 0) {
            return unpack(std::span(message).first(static_cast<size_t>(length)), room);
        }
        if (!queue_.wait(deadline)) {
            return -ETIMEDOUT;
        }
    }
}

/// Drivers begin a message with the BMC's own address, as it was on the wire, or behind it. A
/// command code of MCTP is odd, an address even.
int I2cBus::unpack(std::span<const uint8_t> message, std::span<uint8_t> room) const {
    const bool addressed = message[0] == bmc_address_;
    const std::span<const uint8_t> block = message.subspan(addressed ? 1 : 0);
    if (block.size() > std::min(kLongestBlock, room.size())) {
        return tell(EMSGSIZE, "a block of " + std::to_string(block.size()) +
                                  " bytes has come, which is too long for SMBus");
    }
    const uint8_t pec = smbus_pec(std::array{bmc_address_});
    if (block.size() < kShortestBlock ||
        smbus_pec(block.first(block.size() - 1), pec) != block.back()) {
        return tell(EBADMSG, "a block has come whose PEC is wrong");
    }
    std::ranges::copy(block, room.begin());
    return static_cast<int>(block.size());
}

I2cBus& I2cBuses::at(uint8_t number) {
    const std::lock_guard guard(mutex_);
    std::unique_ptr<I2cBus>& bus = buses_[number];
    if (bus == nullptr) {
        bus = std::make_unique<I2cBus>(number, board_.paths_of(number), board_.bmc_address);
    }
    return *bus;
}

}  // namespace machine
