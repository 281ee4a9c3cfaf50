// SPDX-License-Identifier: Apache-2.0
// An I2C bus of the board as Linux shows one to programs.
#include "sim/cuse/adapter.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <poll.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace sim {

namespace {

constexpr uint64_t kLastAddress = 0x7F;
constexpr size_t kLongestMessage = 8192;

constexpr unsigned long kFunctions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_PEC | I2C_FUNC_SMBUS_QUICK |
                                     I2C_FUNC_SMBUS_BYTE | I2C_FUNC_SMBUS_BYTE_DATA |
                                     I2C_FUNC_SMBUS_WRITE_BLOCK_DATA;

IoctlAnswer failed(int error) {
    return {.result = -error, .bytes = {}};
}

/// A record of the caller's. @return false while it has not come
template <typename Record>
bool fetch_record(CallerMemory& memory, uint64_t address, Record& record) {
    const std::optional<ByteView> bytes = memory.read(address, sizeof record);
    if (bytes) {
        std::memcpy(&record, bytes->data(), sizeof record);
    }
    return bytes.has_value();
}

uint64_t address_of(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

uint8_t bus_address(uint64_t seven_bits) {
    return static_cast<uint8_t>(seven_bits << 1);
}

/// Why a message is none that this adapter sends; 0 for one that it does.
int objection(const i2c_msg& message) {
    if ((message.flags & ~I2C_M_RD) != 0) {
        return EOPNOTSUPP;
    }
    return message.addr > kLastAddress || message.len > kLongestMessage ? EINVAL : 0;
}

/// The messages of I2C_RDWR; none while they have not come. @return 0 or an errno value
int fetch_messages(CallerMemory& memory, uint64_t argument, std::vector<i2c_msg>& messages) {
    i2c_rdwr_ioctl_data head{};
    if (!fetch_record(memory, argument, head)) {
        return 0;
    }
    if (head.nmsgs == 0 || head.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return EINVAL;
    }
    const std::optional<ByteView> table =
        memory.read(address_of(head.msgs), head.nmsgs * sizeof(i2c_msg));
    if (!table) {
        return 0;
    }
    messages.resize(head.nmsgs);
    std::memcpy(messages.data(), table->data(), table->size());
    for (const i2c_msg& message : messages) {
        if (const int error = objection(message); error != 0) {
            return error;
        }
    }
    return 0;
}

/// The data of an SMBus write behind its command. @return 0 or an errno value
int append_data(const i2c_smbus_ioctl_data& call, CallerMemory& memory, Bytes& sent) {
    const bool block = call.size == I2C_SMBUS_BLOCK_DATA;
    const std::optional<ByteView> data =
        memory.read(address_of(call.data), block ? I2C_SMBUS_BLOCK_MAX + 1 : 1);
    if (data) {
        const size_t size = block ? size_t{1} + (*data)[0] : 1;
        if (size > data->size()) {
            return EINVAL;
        }
        append(sent, data->first(size));
    }
    return 0;
}

/// What an SMBus transaction writes behind the address: those that programs look for devices with,
/// and the block write. @return 0 or an errno value
int smbus_bytes(const i2c_smbus_ioctl_data& call, CallerMemory& memory, Bytes& sent) {
    const bool reads = call.read_write == I2C_SMBUS_READ;
    const bool has_command = call.size == I2C_SMBUS_BYTE ? !reads : call.size != I2C_SMBUS_QUICK;
    if (has_command) {
        sent.push_back(call.command);
    }
    switch (call.size) {
        case I2C_SMBUS_QUICK:
        case I2C_SMBUS_BYTE:
            return 0;
        case I2C_SMBUS_BYTE_DATA:
            return reads ? 0 : append_data(call, memory, sent);
        case I2C_SMBUS_BLOCK_DATA:
            return reads ? EOPNOTSUPP : append_data(call, memory, sent);
        default:
            return EOPNOTSUPP;
    }
}

}  // namespace

int I2cAdapter::count(int result) {
    ++(result == 0 ? traffic_.written : traffic_.refused);
    return result;
}

int I2cAdapter::send(uint8_t address, ByteView bytes) {
    return count(bus_.master_write(address, bytes));
}

int I2cAdapter::fetch(uint8_t address, size_t size, Bytes& bytes) {
    Bytes more;
    const int result = count(bus_.master_read(address, size, more));
    append(bytes, more);
    return result;
}

int I2cAdapter::write(uint64_t opening, ByteView bytes) {
    return send(openings_[opening].address, bytes);
}

/// Of the devices here none says anything to who reads without a word before.
int I2cAdapter::read(size_t, Bytes&) {
    return -EOPNOTSUPP;
}

IoctlAnswer I2cAdapter::ioctl(uint64_t opening, uint32_t command, uint64_t argument,
                              CallerMemory& memory) {
    switch (command) {
        case I2C_SLAVE:
        case I2C_SLAVE_FORCE:
            return {.result = set_address(openings_[opening], argument), .bytes = {}};
        case I2C_PEC:
            openings_[opening].with_pec = argument != 0;
            return {};
        case I2C_TENBIT:
            return argument == 0 ? IoctlAnswer{} : failed(EINVAL);
        case I2C_RETRIES:
        case I2C_TIMEOUT:
            return {};  // nothing is lost on this bus, and nothing waits
        case I2C_FUNCS:
            return functions(argument, memory);
        case I2C_RDWR:
            return transfer(argument, memory);
        case I2C_SMBUS:
            return smbus(openings_[opening], argument, memory);
        default:
            return failed(ENOTTY);
    }
}

int I2cAdapter::set_address(Opening& opening, uint64_t argument) {
    if (argument > kLastAddress) {
        return -EINVAL;
    }
    opening.address = bus_address(argument);
    return 0;
}

IoctlAnswer I2cAdapter::functions(uint64_t argument, CallerMemory& memory) const {
    IoctlAnswer answer;
    memory.reserve(argument, sizeof kFunctions);
    answer.bytes.resize(sizeof kFunctions);
    std::memcpy(answer.bytes.data(), &kFunctions, sizeof kFunctions);
    return answer;
}

IoctlAnswer I2cAdapter::transfer(uint64_t argument, CallerMemory& memory) {
    std::vector<i2c_msg> messages;
    if (const int error = fetch_messages(memory, argument, messages); error != 0) {
        return failed(error);
    }
    std::vector<ByteView> written;
    for (const i2c_msg& message : messages) {
        ByteView bytes;
        if ((message.flags & I2C_M_RD) != 0) {
            memory.reserve(address_of(message.buf), message.len);
        } else {
            bytes = memory.read(address_of(message.buf), message.len).value_or(bytes);
        }
        written.push_back(bytes);
    }
    IoctlAnswer answer;
    for (size_t i = 0; memory.whole() && i < messages.size(); ++i) {
        const uint8_t address = bus_address(messages[i].addr);
        const int result = (messages[i].flags & I2C_M_RD) != 0
                               ? fetch(address, messages[i].len, answer.bytes)
                               : send(address, written[i]);
        if (result != 0) {
            return {.result = result, .bytes = {}};
        }
    }
    answer.result = static_cast<int>(messages.size());
    return answer;
}

IoctlAnswer I2cAdapter::smbus(const Opening& opening, uint64_t argument, CallerMemory& memory) {
    i2c_smbus_ioctl_data call{};
    if (!fetch_record(memory, argument, call)) {
        return {};
    }
    const bool reads = call.read_write == I2C_SMBUS_READ;
    Bytes sent;
    if (const int error = smbus_bytes(call, memory, sent); error != 0) {
        return failed(error);
    }
    const size_t wanted = reads && call.size != I2C_SMBUS_QUICK ? 1 : 0;
    memory.reserve(address_of(call.data), wanted);
    if (!memory.whole()) {
        return {};
    }
    if (opening.with_pec && !reads && !sent.empty()) {
        Bytes frame{opening.address};
        append(frame, sent);
        sent.push_back(smbus_pec(frame));
    }
    IoctlAnswer answer;
    if (!reads || !sent.empty()) {
        answer.result = send(opening.address, sent);
    }
    if (reads && answer.result == 0) {
        answer.result = fetch(opening.address, wanted, answer.bytes);
    }
    return answer;
}

int SlaveQueue::read(size_t size, Bytes& bytes) {
    const std::optional<Bytes> block = bus_.take_block();
    if (!block) {
        return 0;
    }
    if (block->size() > size) {
        ++traffic_.dropped;
        return -EOVERFLOW;
    }
    ++traffic_.read;
    bytes = *block;
    return 0;
}

uint32_t SlaveQueue::events(bool waits) {
    if (waits && !bus_.has_block()) {
        bus_.bmc_waits();
    }
    return bus_.has_block() ? POLLIN | POLLRDNORM | POLLPRI : 0;
}

}  // namespace sim
