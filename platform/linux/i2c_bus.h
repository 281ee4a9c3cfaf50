// SPDX-License-Identifier: Apache-2.0
// An I2C bus of the machine: the adapter's device, through which the BMC writes, and the slave
// queue, in which answers arrive.
#ifndef SIDEBAND_LINUX_I2C_BUS_H
#define SIDEBAND_LINUX_I2C_BUS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/board.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/slave_queue.h"

namespace machine {

/// SMBus PEC (SMBus 3.2, clause 6.4): x^8 + x^2 + x + 1.
/// @param before  that of the bytes in front
uint8_t smbus_pec(std::span<const uint8_t> bytes, uint8_t before = 0);

/// All failures are told to the operator in a line that names the bus. Whoever uses a bus has its
/// mutex.
class I2cBus {
public:
    I2cBus(uint8_t number, const I2cPaths& paths, uint8_t bmc_address);

    /// Why this bus cannot be used at all; empty if it can.
    std::string objection();

    /// Switches the multiplexers in front of a device. While one of them has not taken it, nobody
    /// is written to: another device may have the address.
    /// @param setting  of encode_mux()
    void route(const MuxSetting& setting);
    /// What was switched last.
    const MuxSetting& setting() const { return setting_; }

    /// Throws away what waits in the slave queue. @return 0 or a negative errno value
    int empty();

    /// Writes bytes to a device, and opens the slave queue before that.
    /// @param bytes  what follows the address
    /// @return 0 or a negative errno value
    int write(uint8_t address, std::span<const uint8_t> bytes);

    /// Waits for a block that a device writes to the BMC, and checks its PEC.
    /// @param room  for the block from the command code to the PEC
    /// @return its length; -ETIMEDOUT if none came, which is not told; any other negative errno
    /// value
    int receive(std::span<uint8_t> room, int wait_ms);

private:
    std::string adapter_objection();
    /// @param what  in front of what is told
    int transfer(uint8_t address, std::span<const uint8_t> bytes, const char* what);
    int unpack(std::span<const uint8_t> message, std::span<uint8_t> room) const;
    int tell(int error, const std::string& text) const;
    int tell_queue(int error) const;
    /// @return 0; -ENODEV, told
    int open_queue();

    uint8_t number_;
    uint8_t bmc_address_;
    std::string path_;
    Descriptor adapter_;
    SlaveQueue queue_;
    MuxSetting setting_{};
    bool routed_ = true;
};

/// The buses of a board, each made when it is wanted first.
class I2cBuses {
public:
    explicit I2cBuses(const Board& board) : board_(board) {}
    I2cBus& at(uint8_t number);

private:
    const Board& board_;
    std::mutex mutex_;
    std::map<uint8_t, std::unique_ptr<I2cBus>> buses_;
};

}  // namespace machine

#endif
