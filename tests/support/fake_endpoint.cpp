// SPDX-License-Identifier: Apache-2.0
// An MCTP endpoint without MCTP: its three operations give what a test wrote down.
#include "support/fake_endpoint.h"

#include <algorithm>
#include <utility>

#include "support/capture.h"

namespace test {

MctpAnswer MctpAnswer::of(Bytes body) {
    auto length = static_cast<int32_t>(body.size());
    return {length, std::move(body)};
}

FakeEndpoint::FakeEndpoint() : mctp_ctx{} {
    recv = do_recv;
    send = do_send;
    xfer = do_xfer;
}

void FakeEndpoint::answer(std::initializer_list<std::string_view> bodies) {
    for (std::string_view body : bodies) {
        answers.push_back(MctpAnswer::of(hex(body)));
    }
}

std::vector<std::string> FakeEndpoint::messages() const {
    std::vector<std::string> texts;
    for (const MctpCall& call : calls) {
        texts.push_back(to_hex(call.bytes));
    }
    return texts;
}

int32_t FakeEndpoint::serve(MctpCall call, int32_t capacity, uint8_t* buffer) {
    calls.push_back(std::move(call));
    MctpAnswer next;
    if (!answers.empty()) {
        next = std::move(answers.front());
        answers.pop_front();
    }
    if (on_call) {
        on_call();
    }
    const auto room = static_cast<size_t>(std::max(capacity, 0));
    std::copy_n(next.bytes.begin(), std::min(next.bytes.size(), room), buffer);
    return next.result;
}

int32_t FakeEndpoint::do_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    Bytes first;
    if (length > 0) {
        first.push_back(buffer[0]);
    }
    return static_cast<FakeEndpoint*>(ctx)->serve({first, length, 0xFF, buffer}, length, buffer);
}

int32_t FakeEndpoint::do_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body,
                              uint8_t tag_owner) {
    return static_cast<FakeEndpoint*>(ctx)->serve({Bytes(body, body + length), 0, tag_owner, body},
                                                  0, nullptr);
}

int32_t FakeEndpoint::do_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                              const uint8_t* request, uint8_t* response) {
    return static_cast<FakeEndpoint*>(ctx)->serve(
        {Bytes(request, request + request_length), response_length, 0xFF, request}, response_length,
        response);
}

Outcome run(const std::function<int32_t()>& call) {
    Capture out(1);
    const int32_t result = call();
    return {result, out.text()};
}

}  // namespace test
