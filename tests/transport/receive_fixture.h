// SPDX-License-Identifier: Apache-2.0
// Fixture of the tests of a receive over SMBus: both binding kinds, what came and what was printed.
#ifndef SIDEBAND_TESTS_TRANSPORT_RECEIVE_FIXTURE_H
#define SIDEBAND_TESTS_TRANSPORT_RECEIVE_FIXTURE_H

#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <algorithm>
#include <string>

#include "support/capture.h"
#include "support/scripted_platform.h"

namespace test {

/// The parameter is the binding kind: the two receive alike but for the lock.
class ReceiveTest : public PlatformTest, public ::testing::WithParamInterface<uint8_t> {
protected:
    ReceiveTest() { ctx.tag = 3; }

    /// Receives into room for capacity bytes; the answer is in body, what was printed in printed.
    int32_t receive(int32_t capacity) {
        Guarded buffer(static_cast<size_t>(std::max(capacity, 0)));
        Capture out;
        const int32_t result = ctx.recv(&ctx, capacity, buffer.data());
        printed = out.text();
        EXPECT_TRUE(buffer.intact());
        EXPECT_LE(result, capacity);
        body = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(result < 0 || buffer.untouched_from(static_cast<size_t>(result)));
        return result;
    }

    mctp_ctx ctx = ready_context(GetParam(), 1);
    Bytes body;
    std::string printed;
};

inline auto smbus_kinds() {
    return ::testing::Values(MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS);
}

inline std::string kind_name(const ::testing::TestParamInfo<uint8_t>& kind) {
    return kind.param == MCTP_BINDING_KIND_SMBUS ? "Smbus" : "Sl8";
}

}  // namespace test

#endif
