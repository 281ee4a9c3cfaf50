// SPDX-License-Identifier: Apache-2.0
// An NVMe-MI context over an endpoint without MCTP or over SMBus packets, and a drive's responses.
#include "NVMeMI/nvme_fixture.h"

#include <cstdio>

#include "support/numbers.h"

namespace test {

Bytes mi_response(const Bytes& management, const Bytes& data) {
    return hex("88 00 00 00") + management + data;
}

Bytes status_response(uint8_t status, const Bytes& behind, uint8_t type) {
    return Bytes{type, 0, 0, status} + behind;
}

Bytes admin_response(const Bytes& data, uint32_t dword3, uint32_t dword0, uint32_t dword1) {
    return hex("90 00 00 00 00 00 00") + le32(dword0) + le32(dword1) + le32(dword3) + data;
}

std::string unsuccess(unsigned status) {
    char line[64];
    std::snprintf(line, sizeof line, "Response unsuccess (%xh)\n", status);
    return line;
}

Bytes checked(const Bytes& body) {
    return body + le32(crc32c(Bytes{0x84} + body));
}

NvmeTest::NvmeTest() {
    // No binding has this number: the context gets its operation and the endpoint keeps its own.
    mctp_ctx nowhere{};
    nowhere.binding_kind = 0xFF;
    EXPECT_EQ(run([&] { return nvmemi_init(&ctx, &nowhere); }).result, -1);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    ctx.mctp = &endpoint;
    endpoint.bus = 3;
    start_over();
}

void NvmeTest::answer(std::initializer_list<Bytes> responses) {
    for (const Bytes& response : responses) {
        endpoint.answers.push_back(MctpAnswer::of(response));
    }
}

void NvmeTest::start_over() {
    endpoint.answers.clear();
    endpoint.calls.clear();
    port().trace.clear();
    port().syslog.clear();
    port().console.clear();
    libc.sleeps.clear();
    libc.calls.clear();
}

NvmeSmbusTest::NvmeSmbusTest() {
    const mctp_ctx config = smbus_context();
    EXPECT_EQ(run([&] { return nvmemi_init(&ctx, &config); }).result, 0);
}

NvmeSmbusTest::~NvmeSmbusTest() {
    nvmemi_deinit(&ctx);
}

Outcome NvmeSmbusTest::exchange(std::initializer_list<Bytes> responses,
                                const std::function<int32_t()>& call) {
    std::vector<Bytes> answers;
    for (const Bytes& response : responses) {
        answers.push_back(checked(response));
    }
    port().trace.clear();
    port().writes.clear();
    const Endpoint drive(answers, false);
    return run(call);
}

Texts NvmeSmbusTest::packets() const {
    Texts texts;
    for (const Bytes& one : port().written_packets()) {
        texts.push_back(to_hex(one));
    }
    return texts;
}

}  // namespace test
