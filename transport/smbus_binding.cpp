// SPDX-License-Identifier: Apache-2.0
// The SMBus/I2C bindings: one MCTP packet to one block write and back (DSP0237, clause 6).
#include "transport/smbus_binding.h"

#include <sideband/debug_log.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/error.h"
#include "common/memory.h"
#include "common/wire.h"

using namespace sideband;

namespace {

/// Destination address, command code, byte count, source address.
constexpr int32_t kFrameHeaderSize = 4;
constexpr uint8_t kCommandCodeMctp = 0x0F;
constexpr uint8_t kDefaultBmcAddress = 0x20;
constexpr int kWriteAttempts = 3;

/// The request record counts bytes in 8 bits: n + 4, and 1 more with a PEC in software.
constexpr int32_t kWriteLengthMax = 255 - kFrameHeaderSize;
constexpr int32_t kSl8WriteLengthMax = kWriteLengthMax - kPecSize;
constexpr int32_t kReadLengthMax = 255 - kBlockHeaderSize;

bool main_power_on() {
    uint8_t main_power = 0;
    _PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &main_power);
    return main_power != 0;
}

/// A device that has no power must not be addressed: its pins would load the bus.
bool standby_access_allowed(const char* function, sideband_error& error) {
    const bool has_standby = platform.standby_option == 1;
    if (has_standby &&
        (at_p_St_GlobalVar->standby_override != 0 ||
         (platform.flags & PLT_FLAG_STANDBY_DEVICES) != 0 || GetS5stByPwrConfig() == 0)) {
        return true;
    }
    debug_log("%s %s power down, interrupt I2C access\n", function, has_standby ? "stby" : "found");
    fail(error, SIDEBAND_CAUSE_NO_POWER);
    return false;
}

/// Main power is on nearly always: only the rest is worth a call.
inline bool access_allowed(const char* function, sideband_error& error) {
    return main_power_on() || standby_access_allowed(function, error);
}

/// Fills the frame's header, routes the bus and prepares the request. Returns the BMC's address.
uint8_t prepare_write(const mctp_section& section, int32_t length, uint8_t* frame,
                      plt_i2c_request& request) {
    uint8_t bmc_address = kDefaultBmcAddress;
    GetBMCCtrAdd(&bmc_address);
    // By index: a cursor would cost each packet twenty instructions more.
    frame[0] = section.slave_addr;
    frame[1] = kCommandCodeMctp;
    frame[2] = static_cast<uint8_t>(length + 1);  // the source address byte counts, the PEC not
    frame[3] = static_cast<uint8_t>(bmc_address + 1);

    request.bus = section.bus;
    request.slave_addr = section.slave_addr;
    request.write_length = static_cast<uint8_t>(length + kFrameHeaderSize);
    request.write_data = frame;
    SetI2CMux(&request, section.mux);
    return bmc_address;
}

/// Writes a number in decimal. Without a division, which is a function of half a kilobyte on ARM:
/// n * 205 / 2048 is n / 10 up to 99.
/// @return behind it
char* put_decimal(uint8_t value, char* to) {
    const unsigned hundreds = (value >= 100 ? 1U : 0U) + (value >= 200 ? 1U : 0U);
    const unsigned rest = value - hundreds * 100;
    const unsigned tens = rest * 205 / 2048;
    if (value >= 100) {
        *to++ = static_cast<char>('0' + hundreds);
    }
    if (value >= 10) {
        *to++ = static_cast<char>('0' + tens);
    }
    *to++ = static_cast<char>('0' + (rest - tens * 10));
    return to;
}

/// Empties the BMC's slave queue, so that a late answer to an earlier request is not taken for the
/// answer to this one.
void drain_slave_queue(uint8_t bus, uint8_t bmc_address) {
    static constexpr char kDigits[] = "0123456789abcdef";
    static constexpr char kStart[] = "cat /sys/bus/i2c/devices/";
    static constexpr char kEnd[] = "-00__/mctp-slave-mqueue";
    constexpr size_t kCommandSize = 4;
    constexpr size_t kAddressPlace = 3;
    // By hand: this is done for each packet, and printf would be two thirds of what that costs.
    char command[sizeof kStart + 3 + sizeof kEnd];
    std::memcpy(command, kStart, sizeof kStart);
    char* const end = put_decimal(bus, command + sizeof kStart - 1);
    std::memcpy(end, kEnd, sizeof kEnd);
    end[kAddressPlace] = kDigits[bmc_address >> 5];
    end[kAddressPlace + 1] = kDigits[(bmc_address >> 1) & 0x0F];
    if (access(command + kCommandSize, F_OK) == 0) {
        // Nobody is there to act on a failure: a stale packet is then dropped by its tag.
        [[maybe_unused]] const int status = std::system(command);
    }
}

}  // namespace

void SlaveBlock::clear() {
    clear_rounds<256>(kSize);
}

int32_t smbus_block_write(mctp_section* section, int32_t length, uint8_t* frame) {
    if (length < 0 || length > kWriteLengthMax ||
        !access_allowed("smbus_block_write", section->last_error)) {
        return fail(section->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    plt_i2c_request request;
    clear<sizeof request>(&request);
    const uint8_t bmc_address = prepare_write(*section, length, frame, request);
    int result = 0;
    for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
        drain_slave_queue(section->bus, bmc_address);
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): as in read_block()
        result = PltMCTPI2C_MasterWriteWithPEC_NoMutex(request);
        if (result == 0) {
            return 0;
        }
    }
    return fail_by_platform(section->last_error, result, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
}

int32_t sl8_smbus_block_write(mctp_section* section, int32_t length, uint8_t* frame) {
    if (length < 0 || length > kSl8WriteLengthMax ||
        !access_allowed("sl8_smbus_block_write", section->last_error)) {
        return fail(section->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    plt_i2c_request request;
    clear<sizeof request>(&request);
    prepare_write(*section, length, frame, request);
    frame[length + kFrameHeaderSize] = CRC8Gen(frame, request.write_length);
    request.write_length = static_cast<uint8_t>(request.write_length + kPecSize);
    int result = 0;
    for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): as in read_block()
        result = PltMCTPI2C_MasterWrite_NoMutex(request);
        if (result == 0) {
            return 0;
        }
    }
    return fail_by_platform(section->last_error, result, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
}

bool sideband::is_mctp_block(const SlaveBlock& block, int32_t received) {
    WireReader reader({block.data(), kBlockHeaderSize});
    const uint8_t command = reader.u8();
    const int32_t count = reader.u8();
    const uint8_t source_address = reader.u8();
    return command == kCommandCodeMctp && count == packet_length(received) + 1 &&
           (source_address & 1) != 0;
}

int32_t smbus_block_read(mctp_section* section, int32_t length, uint8_t* buffer) {
    if (length < 0 || length > kReadLengthMax) {
        return fail(section->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    SlaveBlock block;
    block.clear();
    const int32_t received = read_block(*section, length, block);
    if (received < 0) {
        return received;
    }
    const bool strict = (section->strict & MCTP_STRICT_PACKETS) != 0;
    if (strict && !is_mctp_block(block, received)) {
        return 0;
    }
    const int32_t stored = std::min(packet_length(received), length);
    std::copy_n(block.data() + kBlockHeaderSize, stored, buffer);
    return stored;
}

int32_t sl8_smbus_block_read(mctp_section* section, int32_t length, uint8_t* buffer) {
    return smbus_block_read(section, length, buffer);
}

constexpr mctp_binding smbus_mctp_binding{smbus_block_write, smbus_block_read, nullptr};
constexpr mctp_binding sl8_smbus_mctp_binding{sl8_smbus_block_write, sl8_smbus_block_read, nullptr};
