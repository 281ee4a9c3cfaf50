// SPDX-License-Identifier: Apache-2.0
// An MCTP endpoint without MCTP: its three operations give what a test wrote down.
#ifndef SIDEBAND_TESTS_SUPPORT_FAKE_ENDPOINT_H
#define SIDEBAND_TESTS_SUPPORT_FAKE_ENDPOINT_H

#include <sideband/mctp.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace test {

/// What one operation does: bytes go to the buffer (as many as it has room for), result to the
/// caller. The two need not agree.
struct MctpAnswer {
    int32_t result = -1;
    Bytes bytes;

    /// An honest answer of this length.
    static MctpAnswer of(Bytes body);
    static MctpAnswer failure(int32_t result = -1) { return {result, {}}; }
};

/// One call of an operation.
struct MctpCall {
    Bytes bytes;               ///< the message that was handed over; recv: the first buffer byte
    int32_t capacity = 0;      ///< recv, xfer: room for the answer
    uint8_t tag_owner = 0xFF;  ///< send only
    const uint8_t* message = nullptr;  ///< where the message lay; stale after the call
};

class FakeEndpoint : public mctp_ctx {
public:
    FakeEndpoint();

    std::deque<MctpAnswer> answers;  ///< for the next calls, then failures
    std::vector<MctpCall> calls;
    std::function<void()> on_call;  ///< runs inside each call, after it was recorded

    /// Queues these honest answers, written as hex.
    void answer(std::initializer_list<std::string_view> bodies);
    /// Every message that was handed over, as hex.
    std::vector<std::string> messages() const;

private:
    int32_t serve(MctpCall call, int32_t capacity, uint8_t* buffer);
    static int32_t do_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
    static int32_t do_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
    static int32_t do_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                           const uint8_t* request, uint8_t* response);
};

/// Result and standard output of one call.
struct Outcome {
    int32_t result = 0;
    std::string out;
};

/// Makes a call with standard output captured.
Outcome run(const std::function<int32_t()>& call);

}  // namespace test

#endif
