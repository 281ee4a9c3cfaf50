// SPDX-License-Identifier: Apache-2.0
// An NC-SI context over an endpoint without MCTP, and the responses of a controller.
#ifndef SIDEBAND_TESTS_NCSI_NCSI_FIXTURE_H
#define SIDEBAND_TESTS_NCSI_NCSI_FIXTURE_H

#include <sideband/ncsi.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "support/fake_endpoint.h"
#include "support/scripted_platform.h"

namespace test {

using Texts = std::vector<std::string>;

/// A whole response with its header, codes and four checksum bytes of 0. The instance ID is 1.
/// @param type     control packet type of the request
/// @param payload  what stands between the codes and the checksum: from byte 20 on
Bytes ncsi_response(uint8_t type, uint8_t channel, const Bytes& payload = {}, uint16_t code = 0,
                    uint16_t reason = 0);

/// "Command is not supported".
Bytes ncsi_unsupported(uint8_t type, uint8_t channel);

/// The line that the exchange prints if codes or length of a response are no success.
std::string not_successful(uint16_t code, uint16_t reason, int32_t length);

/// Fixture: a context with both transfer operations, bound to a fake endpoint of bus 3.
class NcsiTest : public PlatformTest {
protected:
    NcsiTest();

    /// Queues the controller's whole responses.
    void answer(std::initializer_list<Bytes> responses);
    /// Forgets what was exchanged and what the next answers are.
    void start_over();

    FakeEndpoint endpoint;
    ncsi_ctx ctx{};
    ncsi_channel& channel = ctx.channels[2];  ///< package 2, channel 2: ID 0x42
};

}  // namespace test

#endif
