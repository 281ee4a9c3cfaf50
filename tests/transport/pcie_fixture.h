// SPDX-License-Identifier: Apache-2.0
// An endpoint over PCIe, and what the platform answers for it.
#ifndef SIDEBAND_TESTS_TRANSPORT_PCIE_FIXTURE_H
#define SIDEBAND_TESTS_TRANSPORT_PCIE_FIXTURE_H

#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace test {

class MctpPcie : public PlatformTest {
protected:
    MctpPcie() {
        ctx.src_eid = 0x08;
        ctx.dest_eid = 0x4A;
        ctx.pcie_bdf[0] = 0x41;
        ctx.pcie_bdf[1] = 0x02;
        ctx.pcie_bdf[2] = 0x03;
        ctx.binding_kind = MCTP_BINDING_KIND_PCIE;
        ctx.pcie_param = 0xCAFE1234;
        ctx.pcie_session = &ctx;
        ctx.skip_discovery = 1;
        EXPECT_EQ(mctp_init2(&ctx), 0);
        ctx.msg_type = 1;
    }

    void TearDown() override {
        EXPECT_EQ(port().trace_of({"lock", "unlock"}), std::vector<std::string>())
            << "PCIe takes no lock";
        EXPECT_EQ(libc.allocations(), 0);
        PlatformTest::TearDown();
    }

    int32_t send(const Bytes& body) {
        return ctx.send(&ctx, static_cast<uint32_t>(body.size()), body.data(), 1);
    }

    int32_t xfer(const Bytes& request, int32_t capacity) {
        Guarded buffer(static_cast<size_t>(capacity));
        int32_t result = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()), capacity,
                                  request.data(), buffer.data());
        EXPECT_TRUE(buffer.intact());
        response = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(buffer.untouched_from(static_cast<size_t>(std::max(result, 0))));
        return result;
    }

    int32_t receive(int32_t capacity, Guarded& buffer) {
        return ctx.recv(&ctx, capacity, buffer.data());
    }

    /// What the platform answers: its result, the message, and the length it claims.
    static void answer(const Bytes& message, int result = 1) {
        answer_length(message, static_cast<uint32_t>(message.size()), result);
    }
    static void answer_length(const Bytes& message, uint32_t length, int result = 1) {
        port().on_pcie = [message, length, result](plt_pcie_request& request) {
            std::copy_n(message.begin(), std::min<size_t>(message.size(), PLT_PCIE_MESSAGE_SIZE),
                        request.message);
            request.length = length;
            request.src_eid = 0x91;
            request.dest_eid = 0x92;
            request.tag = 0x93;
            request.bus = 0x94;
            request.device = 0x95;
            request.function = 0x96;
            return result;
        };
    }

    static Bytes message(const plt_pcie_request& request) {
        return Bytes(request.message, request.message + request.length);
    }

    mctp_ctx ctx{};
    Bytes response;
};

}  // namespace test

#endif
