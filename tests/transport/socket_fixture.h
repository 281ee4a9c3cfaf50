// SPDX-License-Identifier: Apache-2.0
// Fixture of the tests over MCTP sockets: a context, and what came of its exchanges.
#ifndef SIDEBAND_TESTS_TRANSPORT_SOCKET_FIXTURE_H
#define SIDEBAND_TESTS_TRANSPORT_SOCKET_FIXTURE_H

#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "support/scripted_platform.h"
#include "support/socket_patch.h"

namespace test {

class SocketTest : public PlatformTest {
protected:
    using Lines = std::vector<std::string>;

    SocketTest() {
        ctx = endpoint();
        EXPECT_EQ(mctp_init2(&ctx), 0);
    }

    void TearDown() override {
        // Whatever is left of the test, a request that comes much later closes it.
        kernel.now += 1000000;
        kernel.errors["socket"] = {EMFILE};
        mctp_ctx other = endpoint();
        EXPECT_EQ(mctp_init2(&other), 0);
        EXPECT_EQ(other.send(&other, 0, nullptr, 1), -1);
        EXPECT_EQ(kernel.open_sockets(), 0u);
        EXPECT_EQ(std::count(kernel.trace.begin(), kernel.trace.end(), "closed twice"), 0);
        EXPECT_EQ(libc.allocations(), 0);
        EXPECT_EQ(port().trace_of({"lock", "unlock"}), Lines()) << "the platform's locks";
        PlatformTest::TearDown();
    }

    /// Not initialised: network 1, EID 9, PLDM, a wait of 300 ms.
    static mctp_ctx endpoint(uint8_t eid = 9) {
        mctp_ctx made{};
        made.binding_kind = MCTP_BINDING_KIND_SOCKET;
        made.pcie_param = 1;
        made.src_eid = 8;
        made.dest_eid = eid;
        made.route = 300;
        made.skip_discovery = 1;
        made.msg_type = MCTP_MSG_TYPE_PLDM;
        return made;
    }

    int32_t xfer(mctp_ctx& by, const Bytes& request, int32_t capacity) {
        Guarded buffer(static_cast<size_t>(std::max(capacity, 0)));
        const int32_t result = by.xfer(&by, static_cast<uint32_t>(request.size()), capacity,
                                       request.data(), buffer.data());
        take(buffer, result);
        return result;
    }
    int32_t xfer(const Bytes& request, int32_t capacity = 64) {
        return xfer(ctx, request, capacity);
    }

    int32_t recv(int32_t capacity = 64) {
        Guarded buffer(static_cast<size_t>(std::max(capacity, 0)));
        const int32_t result = ctx.recv(&ctx, capacity, buffer.data());
        take(buffer, result);
        return result;
    }

    int32_t send(const Bytes& body, uint8_t tag_owner = 1) {
        return ctx.send(&ctx, static_cast<uint32_t>(body.size()), body.data(), tag_owner);
    }

    /// What was sent as the address and the body, a line each.
    Lines sent() const {
        Lines lines;
        for (const SentDatagram& message : kernel.sent) {
            lines.push_back(to_hex(message.address) + " | " + to_hex(message.body));
        }
        return lines;
    }

    SocketPatch kernel;
    mctp_ctx ctx{};
    Bytes answer;  ///< what the last xfer() or recv() stored

private:
    void take(const Guarded& buffer, int32_t result) {
        const auto stored = static_cast<size_t>(std::max(result, 0));
        EXPECT_TRUE(buffer.intact());
        EXPECT_TRUE(buffer.untouched_from(stored)) << "beyond the result";
        answer = buffer.head(stored);
    }
};

}  // namespace test

#endif
