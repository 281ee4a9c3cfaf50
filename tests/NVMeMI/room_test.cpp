// SPDX-License-Identifier: Apache-2.0
// Where responses are put together: what nobody sent is nowhere to be seen, however long the
// response is and whatever stood on the stack before.
#include <gtest/gtest.h>

#include <algorithm>

#include "NVMeMI/admin_commands.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::counting;
using test::Guarded;
using test::MctpAnswer;
using test::mi_response;
using test::port;

class NvmeRoom : public test::NvmeTest {
protected:
    /// Leaves 0xFF where the rooms of the next call will be.
    void soil() {
        answer({admin_response(Bytes(4096, 0xFF))});
        Guarded data(4096);
        EXPECT_EQ(identify(data, 4096), 0);
        EXPECT_EQ(data.head(4096), Bytes(4096, 0xFF));
        start_over();
    }

    int32_t identify(Guarded& data, uint32_t length) {
        nvme_admin_req req{};
        req.ctx = &ctx;
        received = test::kUntouched;
        return test::run([&] { return nvme_identify(&req, length, 0, data.data(), &received); })
            .result;
    }

    uint32_t received = 0;
};

TEST_F(NvmeRoom, AShortAnswerHasNothingOfTheLongOneBeforeIt) {
    for (size_t length : {size_t{0}, size_t{1}, size_t{4092}, size_t{4095}}) {
        SCOPED_TRACE(length);
        soil();
        answer({admin_response(counting(length, 1))});
        Guarded data(4096);
        EXPECT_EQ(identify(data, 4096), 0);
        EXPECT_EQ(received, length);
        EXPECT_EQ(data.head(length), counting(length, 1));
        EXPECT_TRUE(data.untouched_from(length));
    }
}

TEST_F(NvmeRoom, ATruncatedAnswerIsMalformedWhateverTheLongOneBeforeItWas) {
    for (size_t length = 1; length < 19; length++) {
        SCOPED_TRACE(length);
        soil();
        Bytes cut = admin_response();
        cut.resize(length);
        answer({cut});
        Guarded data(4096);
        EXPECT_EQ(identify(data, 4096), -1);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_TRUE(data.untouched_from(0));
    }
}

TEST_F(NvmeRoom, AFailedExchangeIsTriedAgainThoughAnEarlierAnswerAskedForTime) {
    // 0xFF is no status; a 1 would be one that asks for time.
    answer({admin_response(Bytes(4096, 0x01))});
    Guarded data(4096);
    EXPECT_EQ(identify(data, 4096), 0);
    start_over();
    EXPECT_EQ(identify(data, 4096), -1);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(libc.sleeps.size(), 0u);
}

TEST_F(NvmeRoom, AnOperationOfTheCallersFindsTheFrontOfItsRoomZeroed) {
    soil();
    static Bytes found;
    static uint32_t asked;
    ctx.mi_request = [](nvmemi_ctx*, uint32_t, uint32_t capacity, uint8_t*, uint8_t* response) {
        asked = capacity;
        found.assign(response, response + 19);
        std::copy_n(admin_response().begin(), 19, response);
        return 19;
    };
    Guarded data(4096);
    EXPECT_EQ(identify(data, 100), 0);
    EXPECT_EQ(asked, 119u);
    EXPECT_EQ(found, Bytes(19));
    EXPECT_EQ(received, 0u);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(NvmeRoom, TheRoomOfACallerIsLeftAloneByWhatFails) {
    // Busy, then more than there is room for: it came, but is nobody's response.
    for (uint32_t capacity : {8u, 63u, 64u, 65u, 66u, 4115u, 5120u}) {
        SCOPED_TRACE(capacity);
        const auto beyond = static_cast<int32_t>(capacity) + 1;
        start_over();
        endpoint.answers = {MctpAnswer::of(test::status_response(1)),
                            {beyond, mi_response(Bytes(3), counting(capacity - 7))}};
        Bytes request(15);
        Guarded room(capacity);
        EXPECT_EQ(ctx.mi_request(&ctx, 15, capacity, request.data(), room.data()), -1);
        EXPECT_TRUE(room.untouched_from(0));
        endpoint.answers = {MctpAnswer::of(mi_response(Bytes(3), counting(capacity - 7)))};
        EXPECT_EQ(ctx.mi_request(&ctx, 15, capacity, request.data(), room.data()),
                  static_cast<int32_t>(capacity));
        EXPECT_EQ(room.head(capacity), mi_response(Bytes(3), counting(capacity - 7)));
        EXPECT_TRUE(room.intact());
    }
}

class NvmeRoomPcie : public test::PlatformTest {};

TEST_F(NvmeRoomPcie, ALateReadFindsWhatItFoundEver) {
    // The first byte of the record that the platform gets is that of the answer before.
    Bytes found;
    port().on_pcie = [&](plt_pcie_request& request) {
        found.push_back(request.message[0]);
        const bool first = request.operation == PLT_PCIE_WRITE_READ;
        const Bytes message = test::hex(first ? "84 8f 00 00 01" : "84 88 00 00 00 02 00 00");
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        return 1;
    };
    mctp_ctx config{};
    config.binding_kind = MCTP_BINDING_KIND_PCIE;
    nvmemi_ctx ctx{};
    ASSERT_EQ(nvmemi_init(&ctx, &config), 0);
    uint8_t frequency = 0;
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&ctx, 0, &frequency), 0);
    EXPECT_EQ(frequency, 2);
    EXPECT_EQ(found, (Bytes{0x84, 0x8F}));
    nvmemi_deinit(&ctx);
}

}  // namespace
