// SPDX-License-Identifier: Apache-2.0
// The admin tunnel by itself: what it writes into a request, and what it does not look at.
#include <sideband/nvme_mi.h>

#include <cstdint>
#include <utility>

#include "NVMeMI/admin_commands.h"

namespace {

using test::admin_response;
using test::Bytes;
using test::counting;
using test::Guarded;
using test::hex;
using test::port;
using test::Texts;
using test::operator+;

class NvmeAdminCmd : public test::NvmeTest {
protected:
    int32_t send(Bytes& request, uint32_t capacity = 19) {
        response = Guarded(capacity);
        return nvme_admin_cmd(&ctx, static_cast<uint32_t>(request.size()), capacity, request.data(),
                              response.data());
    }

    Guarded response{0};
};

TEST_F(NvmeAdminCmd, DataLengthAndOffsetOf0GoOutWithCommandFlags0) {
    Bytes request(67);
    request[4] = 0xFF;
    answer({admin_response()});
    EXPECT_EQ(send(request), 19);
    EXPECT_EQ(endpoint.calls[0].bytes, hex("10") + Bytes(66));
}

TEST_F(NvmeAdminCmd, EachFlagIsSetByAnyByteOfItsField) {
    for (size_t at = 27; at < 35; at++) {
        SCOPED_TRACE(at);
        start_over();
        Bytes request(67);
        request[at] = 0x80;
        answer({admin_response()});
        EXPECT_EQ(send(request), 19);
        EXPECT_EQ(endpoint.calls[0].bytes[4], at < 31 ? 2 : 1);
    }
    Bytes request(67, 0x01);
    answer({admin_response()});
    EXPECT_EQ(send(request), 19);
    EXPECT_EQ(endpoint.calls.back().bytes[4], 3);
}

TEST_F(NvmeAdminCmd, TheMessageTypeTakesThePlaceOfAllBut3BitsOfTheFirstByte) {
    for (unsigned first = 0; first < 256; first++) {
        start_over();
        Bytes request = test::counting(80, static_cast<uint8_t>(first));
        answer({admin_response()});
        EXPECT_EQ(send(request), 19);
        Bytes expected = test::counting(80, static_cast<uint8_t>(first));
        expected[0] = static_cast<uint8_t>((first & 0x86) | 0x10);
        expected[4] = 3;
        EXPECT_EQ(endpoint.calls[0].bytes, expected);
    }
}

TEST_F(NvmeAdminCmd, TheResponseIsHandedOverWithoutBeingLookedAt) {
    Bytes request(67);
    for (const Bytes& body : {hex("01"), test::status_response(0x20, Bytes(3), 0x90),
                              admin_response(counting(4), test::completion(2, 1))}) {
        start_over();
        answer({body});
        EXPECT_EQ(send(request, 40), static_cast<int32_t>(body.size()));
        EXPECT_EQ(response.head(body.size()), body);
        EXPECT_TRUE(response.untouched_from(body.size()));
        EXPECT_EQ(port().console, Texts());
    }
}

TEST_F(NvmeAdminCmd, AnyNegativeResultOfTheRequestOperationIsMinus1) {
    static int32_t result;
    ctx.mi_request = [](nvmemi_ctx*, uint32_t, uint32_t, uint8_t*, uint8_t*) { return result; };
    Bytes request(67);
    for (int32_t negative : {-1, -2, -57, INT32_MIN}) {
        result = negative;
        EXPECT_EQ(send(request), -1) << negative;
    }
    for (int32_t other : {0, 1, 19, INT32_MAX}) {
        result = other;
        EXPECT_EQ(send(request), other);
    }
}

TEST_F(NvmeAdminCmd, WhatIsMissingIsRefused) {
    Bytes request(67);
    Bytes room(19);
    const auto call = [&](nvmemi_ctx* at, uint32_t length, uint8_t* from, uint8_t* to) {
        return nvme_admin_cmd(at, length, 19, from, to);
    };
    EXPECT_EQ(call(nullptr, 67, request.data(), room.data()), -1);
    EXPECT_EQ(call(&ctx, 66, request.data(), room.data()), -1);
    EXPECT_EQ(call(&ctx, 0, request.data(), room.data()), -1);
    EXPECT_EQ(call(&ctx, 67, nullptr, room.data()), -1);
    EXPECT_EQ(call(&ctx, 67, request.data(), nullptr), -1);
    const nvmemi_request_op operation = std::exchange(ctx.mi_request, nullptr);
    EXPECT_EQ(call(&ctx, 67, request.data(), room.data()), -1);
    ctx.mi_request = operation;
    ctx.mctp = nullptr;
    EXPECT_EQ(call(&ctx, 67, request.data(), room.data()), -1);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(room, Bytes(19));
}

}  // namespace
