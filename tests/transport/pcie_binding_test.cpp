// SPDX-License-Identifier: Apache-2.0
// The PCIe binding by itself: the platform's request, and lengths that no record holds.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <iterator>

#include "transport/pcie_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::MctpPcie;
using test::port;

class MctpPcieBinding : public MctpPcie {};

TEST_F(MctpPcieBinding, RequestRecordIsZeroWhereNothingIsSaid) {
    EXPECT_EQ(send(hex("80 02")), 0);
    const plt_pcie_request& request = port().pcie_requests[0];
    EXPECT_TRUE(std::all_of(request.message + 3, std::end(request.message),
                            [](uint8_t byte) { return byte == 0; }));
    for (uint8_t byte : request.reserved_1061) {
        EXPECT_EQ(byte, 0);
    }
    EXPECT_EQ(request.reserved_1074[0] | request.reserved_1074[1], 0);
}

TEST_F(MctpPcieBinding, WriteSendsAWholeMessageAndNeverFails) {
    Bytes whole = hex("01 80 02");
    answer(hex("FF"), 0);
    EXPECT_EQ(pcie_mctp_binding.write(&ctx.section, 3, whole.data()), 0);
    const plt_pcie_request& request = port().pcie_requests.at(0);
    EXPECT_EQ(request.operation, PLT_PCIE_WRITE);
    EXPECT_EQ(message(request), whole);
    EXPECT_EQ(ctx.pcie_bdf[0], 0x41) << "a write brings no address";
}

TEST_F(MctpPcieBinding, TransferCutsAReplyOf20BytesToARoomOf10) {
    answer(test::counting(20));
    Guarded buffer(10);
    const Bytes request = hex("01 80 02");
    EXPECT_EQ(pcie_mctp_binding.transfer(&ctx.section, 3, 10, request.data(), buffer.data()), 10);
    EXPECT_EQ(buffer.head(10), test::counting(10));
    EXPECT_TRUE(buffer.intact());
}

TEST_F(MctpPcieBinding, TransferOfNothingLeavesTheBufferAlone) {
    Guarded buffer(10);
    const Bytes request = hex("01 80 02");
    const auto transfer = [&](int32_t room) {
        return pcie_mctp_binding.transfer(&ctx.section, 3, room, request.data(), buffer.data());
    };
    answer(Bytes());
    EXPECT_EQ(transfer(10), 0);
    answer(hex("01 00 02"));
    EXPECT_EQ(transfer(0), 0);
    answer(hex("01 00 02"), 0);
    EXPECT_EQ(transfer(10), -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_NO_ANSWER);
    EXPECT_EQ(port().pcie_requests.size(), 3u);
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(MctpPcieBinding, ReadStoresWhateverCameHoweverLittleWasWanted) {
    for (const size_t size : {20u, 1036u}) {
        answer(test::counting(size));
        Guarded buffer(1036);
        EXPECT_EQ(pcie_mctp_binding.read(&ctx.section, 8, buffer.data()),
                  static_cast<int32_t>(size));
        EXPECT_EQ(buffer.head(size), test::counting(size));
        EXPECT_TRUE(buffer.untouched_from(size));
        EXPECT_TRUE(buffer.intact());
    }
}

TEST_F(MctpPcieBinding, ReadThatThePlatformFailsLeavesTheBufferAlone) {
    answer(hex("01 80 02"), 0);
    Guarded buffer(1036);
    EXPECT_EQ(pcie_mctp_binding.read(&ctx.section, 1036, buffer.data()), -1);
    EXPECT_TRUE(buffer.untouched_from(0));
    EXPECT_EQ(ctx.pcie_bdf[0], 0x41);
}

TEST_F(MctpPcieBinding, LengthsThatARecordJustHoldsGoOut) {
    Bytes whole = test::counting(PLT_PCIE_MESSAGE_SIZE);
    for (const int32_t length : {0, 1, PLT_PCIE_MESSAGE_SIZE}) {
        answer(hex("01 00 02"));
        EXPECT_EQ(pcie_mctp_binding.write(&ctx.section, length, whole.data()), 0);
        EXPECT_EQ(message(port().pcie_requests.back()),
                  Bytes(whole.begin(), whole.begin() + length));
        Guarded buffer(10);
        EXPECT_EQ(pcie_mctp_binding.transfer(&ctx.section, length, 10, whole.data(), buffer.data()),
                  3);
        EXPECT_EQ(message(port().pcie_requests.back()),
                  Bytes(whole.begin(), whole.begin() + length));
    }
    EXPECT_EQ(port().pcie_requests.size(), 6u);
}

TEST_F(MctpPcieBinding, RefusesLengthsThatNoRecordHolds) {
    Bytes request = test::counting(8);
    Guarded buffer(64);
    for (int32_t length : {-1, 1037, INT32_MAX}) {
        EXPECT_EQ(pcie_mctp_binding.write(&ctx.section, length, request.data()), 0);
        EXPECT_EQ(
            pcie_mctp_binding.transfer(&ctx.section, length, 64, request.data(), buffer.data()),
            -1);
    }
    EXPECT_EQ(pcie_mctp_binding.transfer(&ctx.section, 3, -1, request.data(), buffer.data()), -1);
    EXPECT_EQ(port().pcie_requests.size(), 0u);
    EXPECT_TRUE(buffer.untouched_from(0));
}

}  // namespace
