// SPDX-License-Identifier: Apache-2.0
// The SMBus bindings: frames, power guard, retries, the drain of the slave queue, reads.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::port;
using test::SlaveRead;
using test::smbus_context;
using Lines = std::vector<std::string>;

using WriteFunction = int32_t (*)(mctp_section*, int32_t, uint8_t*);

/// Writes a packet through a binding's own function, its frame between canaries.
int32_t write_packet(WriteFunction write, mctp_ctx& ctx, const Bytes& packet,
                     Bytes* frame = nullptr) {
    Guarded room(packet.size() + 5, 0xEE);
    std::copy(packet.begin(), packet.end(), room.data() + 4);
    int32_t result = write(&ctx.section, static_cast<int32_t>(packet.size()), room.data());
    EXPECT_TRUE(room.intact());
    if (frame != nullptr) {
        *frame = room.head(room.size());
    }
    return result;
}

const Bytes kPacket = hex("01 1D 08 C9 00 80 02");

class SmbusWrite : public test::PlatformTest {
protected:
    mctp_ctx ctx = smbus_context();
};

class Sl8Write : public test::PlatformTest {
protected:
    mctp_ctx ctx = smbus_context(MCTP_BINDING_KIND_SL8_SMBUS);
};

/// Both write functions, for what they have in common.
class EitherWrite : public test::PlatformTest, public ::testing::WithParamInterface<bool> {
protected:
    WriteFunction write() const { return GetParam() ? smbus_block_write : sl8_smbus_block_write; }
    std::string name() const { return GetParam() ? "smbus_block_write" : "sl8_smbus_block_write"; }

    void expect_refused(const std::string& message) {
        EXPECT_EQ(write_packet(write(), ctx, kPacket), -1);
        EXPECT_EQ(port().syslog, Lines{message});
        EXPECT_EQ(port().trace_of({"mux", "write", "read", "address"}), Lines());
        EXPECT_EQ(libc.commands, Lines());
    }
    void expect_allowed() {
        EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
        EXPECT_EQ(port().syslog, Lines());
        EXPECT_EQ(port().writes.size(), 1u);
    }

    mctp_ctx ctx = smbus_context();
};

INSTANTIATE_TEST_SUITE_P(Pec, EitherWrite, ::testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "ByController" : "InSoftware");
});

TEST_F(SmbusWrite, FrameIsAddressCommandCountSourceAndPacket) {
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    EXPECT_TRUE(port().writes[0].controller_pec);
    EXPECT_EQ(port().writes[0].bytes, hex("64 0F 08 21 01 1D 08 C9 00 80 02"));
}

TEST_F(SmbusWrite, LeavesTheByteBehindTheFrameAlone) {
    Bytes frame;
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket, &frame), 0);
    EXPECT_EQ(frame.back(), 0xEE);
}

TEST_F(Sl8Write, FrameCarriesThePecBehindThePacket) {
    EXPECT_EQ(write_packet(sl8_smbus_block_write, ctx, kPacket), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    EXPECT_FALSE(port().writes[0].controller_pec);
    Bytes expected = hex("64 0F 08 21 01 1D 08 C9 00 80 02");
    expected.push_back(test::pec(expected));
    EXPECT_EQ(port().writes[0].bytes, expected);
}

TEST_F(Sl8Write, PecComesFromThePlatform) {
    Bytes seen;
    port().crc8 = [&seen](const uint8_t* data, uint8_t length) {
        seen.assign(data, data + length);
        return uint8_t{0x5A};
    };
    Bytes frame;
    EXPECT_EQ(write_packet(sl8_smbus_block_write, ctx, kPacket, &frame), 0);
    EXPECT_EQ(seen, hex("64 0F 08 21 01 1D 08 C9 00 80 02"));
    EXPECT_EQ(frame.back(), 0x5A);
    EXPECT_EQ(port().writes[0].bytes.back(), 0x5A);
}

TEST_P(EitherWrite, A96BytePayloadHasByteCount101) {
    EXPECT_EQ(write_packet(write(), ctx, test::counting(100)), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    EXPECT_EQ(port().writes[0].bytes[2], 101);
    EXPECT_EQ(port().writes[0].request.write_length, GetParam() ? 104 : 105);
}

TEST_P(EitherWrite, RequestNamesBusAndDeviceAndIsZeroElsewhere) {
    EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    plt_i2c_request request = port().writes[0].request;
    EXPECT_EQ(request.bus, 3);
    EXPECT_EQ(request.slave_addr, 0x64);
    request.bus = request.slave_addr = request.write_length = 0;
    request.write_pad = 0;
    const plt_i2c_request zero{};
    EXPECT_EQ(memcmp(&request, &zero, sizeof zero), 0);
}

TEST_P(EitherWrite, SourceAddressIsTheBmcsWithBitZeroSet) {
    port().bmc_address = 0x32;
    EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
    EXPECT_EQ(port().writes[0].bytes[3], 0x33);
}

TEST_P(EitherWrite, MuxIsSelectedBeforeTheWrite) {
    EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
    EXPECT_EQ(port().trace, (Lines{"power", "address", "mux", "write"}));
    ASSERT_EQ(port().muxes.size(), 1u);
    EXPECT_EQ(port().muxes[0].setting, test::counting(48, 0xC0));
    EXPECT_EQ(port().muxes[0].request.bus, 3);
    EXPECT_EQ(port().muxes[0].request.slave_addr, 0x64);
}

TEST_P(EitherWrite, ThirdAttemptCanSucceed) {
    port().write_results = {-1, 5, 0};
    EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
    ASSERT_EQ(port().writes.size(), 3u);
    EXPECT_EQ(port().writes[0].bytes, port().writes[2].bytes) << "the PEC is not added again";
}

TEST_P(EitherWrite, GivesUpAfterThreeAttemptsWithoutAMessage) {
    port().write_results = {-1, -1, -1, 0};
    EXPECT_EQ(write_packet(write(), ctx, kPacket), -1);
    EXPECT_EQ(port().writes.size(), 3u);
    EXPECT_EQ(port().muxes.size(), 1u);
    EXPECT_EQ(port().syslog, Lines());
    EXPECT_EQ(port().console, Lines());
}

TEST_P(EitherWrite, FirstSuccessEndsTheAttempts) {
    EXPECT_EQ(write_packet(write(), ctx, kPacket), 0);
    EXPECT_EQ(port().writes.size(), 1u);
}

// ---- Power guard ----

TEST_P(EitherWrite, MainPowerAllowsAccess) {
    port().main_power = 0x80;
    expect_allowed();
    EXPECT_EQ(port().register_reads, (std::vector<std::vector<uint32_t>>{{0x9400000, 0, 0}}));
    EXPECT_EQ(port().trace_of({"standby"}), Lines());
}

TEST_P(EitherWrite, PowerDownWithoutStandbyOptionRefusesAccess) {
    port().main_power = 0;
    expect_refused(name() + " found power down, interrupt I2C access\n");
}

TEST_P(EitherWrite, StandbyOptionsOtherThanOneRefuseAccessWhateverElseIsSet) {
    port().main_power = 0;
    platform.standby_option = 2;
    platform.flags = PLT_FLAG_STANDBY_DEVICES;
    port().global.standby_override = 1;
    expect_refused(name() + " found power down, interrupt I2C access\n");
}

TEST_P(EitherWrite, StandbyOverrideAllowsAccess) {
    port().main_power = 0;
    port().standby_policy_off = 1;
    platform.standby_option = 1;
    port().global.standby_override = 1;
    expect_allowed();
}

TEST_P(EitherWrite, StandbyFlagOfTheBoardAllowsAccess) {
    port().main_power = 0;
    port().standby_policy_off = 1;
    platform.standby_option = 1;
    platform.flags = 0x20;
    expect_allowed();
}

TEST_P(EitherWrite, StandbyPolicyAllowsAccess) {
    port().main_power = 0;
    port().standby_policy_off = 0;
    platform.standby_option = 1;
    expect_allowed();
}

TEST_P(EitherWrite, StandbyWithNothingThatAllowsItRefusesAccess) {
    port().main_power = 0;
    port().standby_policy_off = 1;
    platform.standby_option = 1;
    platform.flags = ~0x20u;
    expect_refused(name() + " stby power down, interrupt I2C access\n");
}

TEST_P(EitherWrite, APowerByteThatIsNotStoredCountsAsOff) {
    port().fail_call = 1;
    expect_refused(name() + " found power down, interrupt I2C access\n");
}

// ---- Drain ----

const char* const kQueue = "/sys/bus/i2c/devices/3-0010/mctp-slave-mqueue";

TEST_F(SmbusWrite, DrainsTheSlaveQueueBeforeEachAttempt) {
    libc.present.insert(kQueue);
    port().write_results = {-1, -1, 0};
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
    const std::string drain = std::string("system cat ") + kQueue;
    EXPECT_EQ(port().trace, (Lines{"power", "address", "mux", drain, "write fails", drain,
                                   "write fails", drain, "write"}));
}

TEST_F(SmbusWrite, WithoutASlaveQueueNoCommandIsRun) {
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
    EXPECT_EQ(libc.commands, Lines());
    EXPECT_EQ(libc.sequence, Lines{"access"});
}

TEST_F(SmbusWrite, SlaveQueueIsNamedByBusAndSevenBitBmcAddress) {
    ctx.bus = 12;
    port().bmc_address = 0x14;
    libc.present.insert("/sys/bus/i2c/devices/12-000a/mctp-slave-mqueue");
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
    EXPECT_EQ(libc.commands, Lines{"cat /sys/bus/i2c/devices/12-000a/mctp-slave-mqueue"});
}

TEST_F(SmbusWrite, SlaveQueueOfEveryBusAndAddress) {
    for (unsigned value = 0; value < 256; value++) {
        ctx.bus = static_cast<uint8_t>(value);
        port().bmc_address = static_cast<uint8_t>(255 - value);
        char path[80];
        std::snprintf(path, sizeof path, "/sys/bus/i2c/devices/%u-00%02x/mctp-slave-mqueue", value,
                      (255 - value) >> 1);
        libc.present = {path};
        libc.commands.clear();
        EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
        EXPECT_EQ(libc.commands, Lines{std::string("cat ") + path});
    }
}

TEST_F(SmbusWrite, AFailedDrainDoesNotFailTheWrite) {
    libc.present.insert(kQueue);
    libc.fail["system"] = libc.kEvery;
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
    libc.fail.clear();
    libc.system_result = 256;
    EXPECT_EQ(write_packet(smbus_block_write, ctx, kPacket), 0);
}

TEST_F(Sl8Write, NeverDrainsTheSlaveQueue) {
    libc.present.insert(kQueue);
    port().write_results = {-1, -1, 0};
    EXPECT_EQ(write_packet(sl8_smbus_block_write, ctx, kPacket), 0);
    EXPECT_EQ(libc.commands, Lines());
}

// ---- Lengths ----

TEST_P(EitherWrite, LargestPacketThatTheRequestCanCount) {
    const size_t largest = GetParam() ? 251 : 250;
    EXPECT_EQ(write_packet(write(), ctx, test::counting(largest)), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    EXPECT_EQ(port().writes[0].request.write_length, 255);
    EXPECT_EQ(port().writes[0].bytes[2], largest + 1);
}

TEST_P(EitherWrite, LengthsThatTheRequestCannotCountTouchNothing) {
    const int32_t largest = GetParam() ? 251 : 250;
    for (int32_t length : {-1, INT32_MIN, largest + 1, 256, INT32_MAX}) {
        Guarded frame(16, 0xEE);
        EXPECT_EQ(write()(&ctx.section, length, frame.data()), -1) << length;
        EXPECT_TRUE(frame.intact());
        EXPECT_TRUE(frame.untouched_from(0));
        EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_ARGUMENT) << length;
    }
    EXPECT_EQ(port().trace, Lines());
}

TEST_P(EitherWrite, AnEmptyPacketIsAFrameWithoutPayload) {
    EXPECT_EQ(write_packet(write(), ctx, Bytes()), 0);
    ASSERT_EQ(port().writes.size(), 1u);
    Bytes header(port().writes[0].bytes.begin(), port().writes[0].bytes.begin() + 4);
    EXPECT_EQ(header, hex("64 0F 01 21"));
}

// ---- Reads ----

class SmbusRead : public test::PlatformTest, public ::testing::WithParamInterface<bool> {
protected:
    int32_t read(int32_t wanted, Guarded& buffer) {
        return (GetParam() ? smbus_block_read : sl8_smbus_block_read)(&ctx.section, wanted,
                                                                      buffer.data());
    }
    mctp_ctx ctx = smbus_context();
};

INSTANTIATE_TEST_SUITE_P(Binding, SmbusRead, ::testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "Smbus" : "Sl8");
});

TEST_P(SmbusRead, GivesThePacketWithoutHeaderAndPec) {
    port().reads = {SlaveRead::of(hex("0F 08 65 01 08 1D C1 00 00 02 77"))};
    Guarded buffer(32);
    EXPECT_EQ(read(32, buffer), 7);
    EXPECT_EQ(buffer.head(7), hex("01 08 1D C1 00 00 02"));
    EXPECT_TRUE(buffer.untouched_from(7));
    EXPECT_TRUE(buffer.intact());
}

// DSP0237, clause 6: command code, byte count, and bit 0 of the source address.
TEST_P(SmbusRead, StrictlyABlockThatIsNotMctpIsNothing) {
    for (const uint32_t strict : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = strict;
        Guarded buffer(32);
        for (const char* block :
             {"0E 08 65 01 08 1D C1 00 00 02 77", "0F 07 65 01 08 1D C1 00 00 02 77",
              "0F 08 64 01 08 1D C1 00 00 02 77"}) {
            port().reads = {SlaveRead::of(hex(block))};
            EXPECT_EQ(read(32, buffer), strict == 0 ? 7 : 0) << block;
            EXPECT_TRUE(buffer.untouched_from(strict == 0 ? 7 : 0));
        }
        port().reads = {SlaveRead::of(hex("0F 08 65 01 08 1D C1 00 00 02 77"))};
        EXPECT_EQ(read(32, buffer), 7);
        EXPECT_EQ(buffer.head(7), hex("01 08 1D C1 00 00 02"));
    }
}

TEST_P(SmbusRead, RequestNamesBusDeviceAndLengthAndOffersAZeroedBuffer) {
    ctx.route = 0x12345678;
    Guarded buffer(64);
    EXPECT_EQ(read(64, buffer), -1);
    ASSERT_EQ(port().slave_reads.size(), 1u);
    plt_i2c_request request = port().slave_reads[0].request;
    EXPECT_EQ(port().slave_reads[0].param, 0x12345678u);
    EXPECT_TRUE(port().slave_reads[0].buffer_was_zero);
    EXPECT_EQ(request.bus, 3);
    EXPECT_EQ(request.slave_addr, 0x64);
    EXPECT_EQ(request.read_length, 67);
    request.bus = request.slave_addr = request.read_length = 0;
    request.read_pad = 0;
    const plt_i2c_request zero{};
    EXPECT_EQ(memcmp(&request, &zero, sizeof zero), 0);
}

TEST_P(SmbusRead, MuxIsSelectedBeforeTheReadAndPowerIsNotLookedAt) {
    port().main_power = 0;
    port().reads = {SlaveRead::of(hex("0F 06 65 01 08 1D C1 00 77"))};
    Guarded buffer(8);
    EXPECT_EQ(read(8, buffer), 5);
    EXPECT_EQ(port().trace, (Lines{"mux", "read"}));
    EXPECT_EQ(port().muxes[0].setting, test::counting(48, 0xC0));
}

TEST_P(SmbusRead, NegativeResultsArePassedThrough) {
    for (int32_t result : {-1, -5, -110, INT32_MIN}) {
        port().reads = {SlaveRead::failure(result)};
        Guarded buffer(8);
        EXPECT_EQ(read(8, buffer), result);
        EXPECT_TRUE(buffer.untouched_from(0));
    }
}

TEST_P(SmbusRead, FourBytesAreAnEmptyPacket) {
    port().reads = {SlaveRead::of(hex("0F 01 65 77"))};
    Guarded buffer(8);
    EXPECT_EQ(read(8, buffer), 0);
    EXPECT_TRUE(buffer.untouched_from(0));
    EXPECT_TRUE(buffer.intact());
}

TEST_P(SmbusRead, ZeroToThreeBytesFail) {
    for (int32_t result = 0; result <= 3; result++) {
        port().reads = {{result, test::counting(16)}};
        Guarded buffer(8);
        EXPECT_EQ(read(8, buffer), -1) << result;
        EXPECT_TRUE(buffer.untouched_from(0));
        EXPECT_TRUE(buffer.intact());
    }
}

TEST_P(SmbusRead, MoreThanAskedIsCutToWhatWasAsked) {
    port().reads = {SlaveRead::of(test::counting(200))};
    Guarded buffer(10);
    EXPECT_EQ(read(10, buffer), 10);
    EXPECT_EQ(buffer.head(10), test::counting(10, 3));
    EXPECT_TRUE(buffer.intact());
}

TEST_P(SmbusRead, AFullPlatformBufferIsFine) {
    port().reads = {SlaveRead::of(test::counting(1024))};
    Guarded buffer(252);
    EXPECT_EQ(read(252, buffer), 252);
    EXPECT_TRUE(buffer.intact());
}

TEST_P(SmbusRead, MoreThanThePlatformBufferHoldsFails) {
    for (int32_t result : {1025, 65536, INT32_MAX}) {
        port().reads = {{result, test::counting(1024)}};
        Guarded buffer(252);
        EXPECT_EQ(read(252, buffer), -1) << result;
        EXPECT_TRUE(buffer.untouched_from(0));
        EXPECT_TRUE(buffer.intact());
    }
}

TEST_P(SmbusRead, LengthsThatTheRequestCannotCountTouchNothing) {
    for (int32_t wanted : {-1, INT32_MIN, 253, 256, INT32_MAX}) {
        Guarded buffer(8);
        EXPECT_EQ(read(wanted, buffer), -1) << wanted;
        EXPECT_TRUE(buffer.untouched_from(0));
        EXPECT_TRUE(buffer.intact());
    }
    EXPECT_EQ(port().trace, Lines());
}

TEST_P(SmbusRead, WantingNothingStoresNothing) {
    port().reads = {SlaveRead::of(test::counting(20))};
    Guarded buffer(8);
    EXPECT_EQ(read(0, buffer), 0);
    EXPECT_TRUE(buffer.untouched_from(0));
}

}  // namespace
