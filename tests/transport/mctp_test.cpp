// SPDX-License-Identifier: Apache-2.0
// Setting up a context by binding kind, and the trace of dropped packets.
#include <sideband/mctp.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::hex;
using test::port;
using test::smbus_context;

using MctpInit = test::PlatformTest;
using MctpInitDelayed = test::PlatformTest;
using DumpPackets = test::PlatformTest;

mctp_ctx known_endpoint(uint8_t kind) {
    mctp_ctx ctx = smbus_context(kind);
    ctx.skip_discovery = 1;
    return ctx;
}

TEST_F(MctpInit, UnitSizeZeroBecomes96) {
    mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    EXPECT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(ctx.unit_size, 96);
}

TEST_F(MctpInit, UnitSizePresetIsKept) {
    for (uint16_t preset : {1, 64, 120, 121, 65535}) {
        mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SL8_SMBUS);
        ctx.unit_size = preset;
        EXPECT_EQ(mctp_init2(&ctx), 0);
        EXPECT_EQ(ctx.unit_size, preset);
    }
}

TEST_F(MctpInit, EachKindGetsItsBinding) {
    mctp_ctx smbus = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    mctp_ctx pcie = known_endpoint(MCTP_BINDING_KIND_PCIE);
    mctp_ctx sl8 = known_endpoint(MCTP_BINDING_KIND_SL8_SMBUS);
    EXPECT_EQ(mctp_init2(&smbus), 0);
    EXPECT_EQ(mctp_init2(&pcie), 0);
    EXPECT_EQ(mctp_init2(&sl8), 0);
    EXPECT_EQ(smbus.binding, &smbus_mctp_binding);
    EXPECT_EQ(pcie.binding, &pcie_mctp_binding);
    EXPECT_EQ(sl8.binding, &sl8_smbus_mctp_binding);
    for (const mctp_ctx* ctx : {&smbus, &pcie, &sl8}) {
        EXPECT_NE(ctx->send, nullptr);
        EXPECT_NE(ctx->recv, nullptr);
        EXPECT_NE(ctx->xfer, nullptr);
    }
    EXPECT_NE(smbus.send, sl8.send) << "only one of them locks";
    EXPECT_NE(smbus.recv, sl8.recv);
    EXPECT_NE(smbus.xfer, sl8.xfer);
    EXPECT_EQ(port().trace, std::vector<std::string>());
}

TEST_F(MctpInit, BindingRecordsHoldTheBlockFunctions) {
    EXPECT_EQ(smbus_mctp_binding.write, &smbus_block_write);
    EXPECT_EQ(smbus_mctp_binding.read, &smbus_block_read);
    EXPECT_EQ(smbus_mctp_binding.transfer, nullptr);
    EXPECT_EQ(sl8_smbus_mctp_binding.write, &sl8_smbus_block_write);
    EXPECT_EQ(sl8_smbus_mctp_binding.read, &sl8_smbus_block_read);
    EXPECT_EQ(sl8_smbus_mctp_binding.transfer, nullptr);
    EXPECT_NE(pcie_mctp_binding.write, nullptr);
    EXPECT_NE(pcie_mctp_binding.read, nullptr);
    EXPECT_NE(pcie_mctp_binding.transfer, nullptr);
}

TEST_F(MctpInit, UnknownKindInstallsNothing) {
    for (uint8_t kind : {1, 4, 255}) {
        mctp_ctx ctx = known_endpoint(kind);
        EXPECT_EQ(mctp_init2(&ctx), -1);
        EXPECT_EQ(ctx.send, nullptr);
        EXPECT_EQ(ctx.recv, nullptr);
        EXPECT_EQ(ctx.xfer, nullptr);
        EXPECT_EQ(ctx.binding, nullptr);
    }
}

TEST_F(MctpInit, SocketsAreAnUnknownKindWhereTheyAreLeftOut) {
    mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SOCKET);
#ifdef SIDEBAND_SOCKET
    EXPECT_EQ(mctp_init2(&ctx), 0);
#else
    EXPECT_EQ(mctp_init2(&ctx), -1);
    EXPECT_EQ(ctx.xfer, nullptr);
#endif
    EXPECT_EQ(ctx.unit_size, 96);
}

TEST_F(MctpInit, NoContextFails) {
    EXPECT_EQ(mctp_init2(nullptr), -1);
    EXPECT_EQ(mctp_init2_with_i2c_delay(nullptr), -1);
}

TEST_F(MctpInit, SkippedDiscoveryLeavesTheMessageTypeAndTheBusAlone) {
    mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    ctx.msg_type = 0x84;
    EXPECT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(ctx.msg_type, 0x84);
    EXPECT_EQ(ctx.dest_eid, 0x1D);
    EXPECT_EQ(port().trace, std::vector<std::string>());
}

TEST_F(MctpInit, DiscoveryRunsWithTheControlMessageType) {
    test::Endpoint endpoint(std::vector<Bytes>{hex("00 02 00 2A 00 00")});
    mctp_ctx ctx = smbus_context();
    ctx.msg_type = 1;
    EXPECT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(ctx.msg_type, 0);
    EXPECT_EQ(endpoint.types, hex("00"));
    EXPECT_EQ(endpoint.requests, (std::vector<Bytes>{hex("80 02")}));
    EXPECT_EQ(ctx.dest_eid, 0x2A);
}

TEST_F(MctpInit, FailedDiscoveryLeavesTheOperationsInstalled) {
    mctp_ctx ctx = smbus_context();
    EXPECT_EQ(mctp_init2(&ctx), -1);
    EXPECT_NE(ctx.send, nullptr);
    EXPECT_NE(ctx.recv, nullptr);
    EXPECT_NE(ctx.xfer, nullptr);
    EXPECT_EQ(ctx.binding, &smbus_mctp_binding);
}

TEST_F(MctpInit, CountersAreNotReset) {
    mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    ctx.tag = 5;
    ctx.instance_id = 9;
    EXPECT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(ctx.tag, 5);
    EXPECT_EQ(ctx.instance_id, 9);
}

TEST_F(MctpInitDelayed, TakesTheHardwarePecKindOnly) {
    for (uint8_t kind : {1, 2, 3, 4}) {
        mctp_ctx ctx = known_endpoint(kind);
        EXPECT_EQ(mctp_init2_with_i2c_delay(&ctx), -1);
        EXPECT_EQ(ctx.send, nullptr);
        EXPECT_EQ(ctx.xfer, nullptr);
        EXPECT_EQ(ctx.binding, nullptr);
        EXPECT_EQ(ctx.unit_size, 96);
    }
}

TEST_F(MctpInitDelayed, DiffersFromThePlainSetUpInTheExchangeAlone) {
    mctp_ctx plain = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    mctp_ctx delayed = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    EXPECT_EQ(mctp_init2(&plain), 0);
    EXPECT_EQ(mctp_init2_with_i2c_delay(&delayed), 0);
    EXPECT_EQ(delayed.unit_size, 96);
    EXPECT_EQ(delayed.binding, &smbus_mctp_binding);
    EXPECT_EQ(delayed.send, plain.send);
    EXPECT_EQ(delayed.recv, plain.recv);
    EXPECT_NE(delayed.xfer, plain.xfer);
}

TEST_F(MctpInitDelayed, SkippedDiscoveryLeavesTheMessageTypeAlone) {
    mctp_ctx ctx = known_endpoint(MCTP_BINDING_KIND_SMBUS);
    ctx.msg_type = 4;
    EXPECT_EQ(mctp_init2_with_i2c_delay(&ctx), 0);
    EXPECT_EQ(ctx.msg_type, 4);
    EXPECT_EQ(port().trace, std::vector<std::string>());
}

TEST_F(MctpInitDelayed, DiscoveryRunsThroughTheDelayedExchange) {
    test::Endpoint endpoint(std::vector<Bytes>{hex("00 02 00 2A 00 00")});
    mctp_ctx ctx = smbus_context();
    ctx.msg_type = 1;
    EXPECT_EQ(mctp_init2_with_i2c_delay(&ctx), 0);
    EXPECT_EQ(ctx.msg_type, 0);
    EXPECT_EQ(ctx.dest_eid, 0x2A);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{100000});
}

TEST_F(DumpPackets, PrintsTwelveBytesToALine) {
    Bytes bytes = test::counting(25);
    test::Capture out;
    dump_packets(25, bytes.data());
    EXPECT_EQ(out.text(),
              "[transport/mctp:42] Dumping Packets....\n"
              "===== mctp payload packets(len: 25)=====\n"
              " 00 01 02 03 04 05 06 07 08 09 0a 0b\n"
              " 0c 0d 0e 0f 10 11 12 13 14 15 16 17\n"
              " 18\n"
              "===========================");
}

TEST_F(DumpPackets, AFullLineIsNotFollowedByAnEmptyOne) {
    Bytes bytes = test::counting(12, 0xF4);
    test::Capture out;
    dump_packets(12, bytes.data());
    EXPECT_EQ(out.text(),
              "[transport/mctp:42] Dumping Packets....\n"
              "===== mctp payload packets(len: 12)=====\n"
              " f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff\n"
              "===========================");
}

TEST_F(DumpPackets, LengthZeroOrLessPrintsTheFrameAlone) {
    for (int32_t length : {0, -1, INT32_MIN}) {
        test::Capture out;
        dump_packets(length, nullptr);
        EXPECT_EQ(out.text(),
                  "[transport/mctp:42] Dumping Packets....\n"
                  "===== mctp payload packets(len: " +
                      std::to_string(length) +
                      ")=====\n"
                      "\n===========================");
    }
}

}  // namespace
