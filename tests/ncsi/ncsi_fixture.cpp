// SPDX-License-Identifier: Apache-2.0
// An NC-SI context over an endpoint without MCTP, and the responses of a controller.
#include "ncsi/ncsi_fixture.h"

#include <cstdio>

namespace test {

Bytes ncsi_response(uint8_t type, uint8_t channel, const Bytes& payload, uint16_t code,
                    uint16_t reason) {
    const auto high = [](uint16_t value) { return static_cast<uint8_t>(value >> 8); };
    const auto low = [](uint16_t value) { return static_cast<uint8_t>(value); };
    Bytes bytes = hex("00 01 00 01 00 00 00 00 00 00 00 00 00 00 00 00");
    bytes[4] = static_cast<uint8_t>(type + 0x80);
    bytes[5] = channel;
    bytes[7] = static_cast<uint8_t>(4 + payload.size());
    return bytes + Bytes{high(code), low(code), high(reason), low(reason)} + payload + Bytes(4);
}

Bytes ncsi_unsupported(uint8_t type, uint8_t channel) {
    return ncsi_response(type, channel, {}, 0x0003, 0x7FFF);
}

std::string not_successful(uint16_t code, uint16_t reason, int32_t length) {
    char text[96];
    std::snprintf(text, sizeof text,
                  "compleition is not successful(%x,%x) or return size(%x) is too small\n", code,
                  reason, static_cast<unsigned>(length));
    return text;
}

NcsiTest::NcsiTest() {
    // No binding has this number: the context gets its operations and the endpoint keeps its own.
    constexpr uint8_t kNoBinding = 0xFF;
    mctp_ctx nowhere{};
    nowhere.binding_kind = kNoBinding;
    endpoint.binding_kind = kNoBinding;
    EXPECT_EQ(run([&] { return ncsi_oem_init(&ctx, &endpoint); }).result, -1);
    EXPECT_EQ(ctx.mctp, &endpoint);
    // The last one's transfer counts: that of the plain exchange.
    EXPECT_EQ(run([&] { return ncsi_init(&ctx, &nowhere); }).result, -1);
    ctx.mctp = &endpoint;
    endpoint.bus = 3;
    channel.channel_id = 0x42;
}

void NcsiTest::answer(std::initializer_list<Bytes> responses) {
    for (const Bytes& response : responses) {
        endpoint.answers.push_back(MctpAnswer::of(response));
    }
}

void NcsiTest::start_over() {
    endpoint.answers.clear();
    endpoint.calls.clear();
    port().trace.clear();
    port().syslog.clear();
    port().console.clear();
}

}  // namespace test
