// SPDX-License-Identifier: Apache-2.0
// What the strict bits of an endpoint change in NC-SI, and that nothing changes without them.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "ncsi/ncsi_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::hex;
using test::not_successful;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;

/// All bits but the one: none of them may do its work.
constexpr uint32_t all_but(uint32_t bit) {
    return MCTP_STRICT_ALL & ~bit;
}

/// The response to the third Get Link Status of channel 0x42, with its checksum.
constexpr const char* kLinkStatus =
    "00 01 00 03 8a 42 00 10 00 00 00 00 00 00 00 00 "
    "00 00 00 00 0c 00 00 41 00 00 00 00 00 00 00 00 ff ff 69 69";

constexpr size_t kIid = 3;
constexpr size_t kChannelId = 5;
constexpr size_t kPayloadLength = 7;
constexpr size_t kChecksum = 32;

Texts wrong(const std::string& what) {
    return {"ncsi, response with a wrong " + what + "\n"};
}

class NcsiStrict : public test::NcsiTest {
protected:
    /// Get Link Status with this as the answer, whose instance ID is 3. It must not touch the
    /// record unless it is a success.
    Outcome get(uint32_t strict, const Bytes& response) {
        start_over();
        endpoint.strict = strict;
        ctx.iid = 3;
        channel.channel_id = 0x42;
        channel.link_up = channel.speed = channel.autoneg_done = 0xEE;
        answer({response});
        const Outcome outcome = test::run([&] { return ncsi_get_link_status(&channel); });
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(channel.speed, outcome.result == 0 ? 0x0C : 0xEE);
        return outcome;
    }

    /// A response that only one bit minds.
    void expect_minded(uint32_t bit, const Bytes& response, const std::string& what) {
        for (uint32_t strict : {0u, all_but(bit)}) {
            SCOPED_TRACE(strict);
            const Outcome outcome = get(strict, response);
            EXPECT_EQ(outcome.result, 0);
            EXPECT_EQ(outcome.out, "");
            EXPECT_EQ(port().syslog, Texts());
        }
        for (uint32_t strict : {bit, uint32_t{MCTP_STRICT_ALL}}) {
            SCOPED_TRACE(strict);
            const Outcome outcome = get(strict, response);
            EXPECT_EQ(outcome.result, -1);
            EXPECT_EQ(outcome.out, "get link status failed.\n");
            EXPECT_EQ(port().syslog, wrong(what));
        }
    }

    const Bytes good = hex(kLinkStatus);
    Bytes altered = good;
    Bytes without_checksum() const {
        Bytes bytes = good;
        std::fill(bytes.begin() + kChecksum, bytes.end(), uint8_t{0});
        return bytes;
    }
};

// ---- Responses ----

TEST_F(NcsiStrict, AWholeResponseOfTheRightChannelIsTakenWithEveryBit) {
    for (uint32_t strict : {0u, 1u, 2u, 4u, 8u, 0x10u, 0x20u, MCTP_STRICT_ALL}) {
        for (const Bytes& response : {good, without_checksum()}) {
            EXPECT_EQ(get(strict, response).result, 0);
            EXPECT_EQ(channel.link_up, 1);
            EXPECT_EQ(channel.autoneg_done, 1);
            EXPECT_EQ(port().syslog, Texts());
        }
    }
}

TEST_F(NcsiStrict, AnInstanceIdOfAnotherRequestIsMinded) {
    altered = without_checksum();
    for (uint8_t iid : {uint8_t{0}, uint8_t{2}, uint8_t{4}, uint8_t{0x83}, uint8_t{0xFF}}) {
        altered[kIid] = iid;
        expect_minded(MCTP_STRICT_PACKETS, altered, "instance ID");
    }
}

TEST_F(NcsiStrict, APayloadThatDidNotComeWholeIsMinded) {
    altered = without_checksum();
    // The payload has its codes: four bytes at least. 21 are more than came.
    for (uint8_t length : {uint8_t{0}, uint8_t{3}, uint8_t{21}, uint8_t{0xFF}}) {
        altered[kPayloadLength] = length;
        const uint32_t others = all_but(MCTP_STRICT_PACKETS | MCTP_STRICT_INTEGRITY);
        for (uint32_t strict : {0u, others}) {
            EXPECT_EQ(get(strict, altered).result, 0);
        }
        EXPECT_EQ(get(MCTP_STRICT_PACKETS, altered).result, -1);
        EXPECT_EQ(port().syslog, wrong("length"));
    }
    altered[kPayloadLength - 1] = 0x01;
    altered[kPayloadLength] = 0x10;
    EXPECT_EQ(get(MCTP_STRICT_PACKETS, altered).result, -1);
    EXPECT_EQ(port().syslog, wrong("length"));
}

TEST_F(NcsiStrict, ReservedBitsBesideThePayloadLengthDoNotCount) {
    altered = without_checksum();
    altered[kPayloadLength - 1] = 0xF0;
    EXPECT_EQ(get(MCTP_STRICT_ALL, altered).result, 0);
}

TEST_F(NcsiStrict, AResponseThatIsCutIsMinded) {
    // All of the status came, but not all of the payload; then all of that, without a checksum.
    for (size_t length : {size_t{24}, size_t{31}}) {
        altered = good;
        altered.resize(length);
        EXPECT_EQ(get(0, altered).result, 0);
        EXPECT_EQ(get(MCTP_STRICT_PACKETS, altered).result, -1);
        EXPECT_EQ(port().syslog, wrong("length"));
    }
    for (size_t length : {size_t{32}, size_t{35}}) {
        altered = good;
        altered.resize(length);
        expect_minded(MCTP_STRICT_INTEGRITY, altered, "checksum");
    }
}

TEST_F(NcsiStrict, AnotherChannelIsMinded) {
    altered = without_checksum();
    for (uint8_t id : {uint8_t{0x41}, uint8_t{0x5F}, uint8_t{0x02}}) {
        altered[kChannelId] = id;
        expect_minded(MCTP_STRICT_ADDRESSES, altered, "channel ID");
    }
}

TEST_F(NcsiStrict, AWrongChecksumIsMinded) {
    for (size_t place : {size_t{0}, size_t{21}, size_t{31}, size_t{32}, size_t{35}}) {
        SCOPED_TRACE(place);
        altered = good;
        altered[place] ^= 0x80;
        expect_minded(MCTP_STRICT_INTEGRITY, altered, "checksum");
    }
}

TEST_F(NcsiStrict, TheTypeIsToldAsEver) {
    altered = good;
    altered[4] = 0x8B;
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_ALL}}) {
        const Outcome outcome = get(strict, altered);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out,
                  "the command code in the response(8b) is not right.get link status failed.\n");
        EXPECT_EQ(port().syslog, Texts());
    }
}

TEST_F(NcsiStrict, CodesOfARefusedResponseAreNotReported) {
    Bytes refused = hex("00 01 00 03 8a 42 00 04 00 00 00 00 00 00 00 00 00 01 00 06 00 00 00 00");
    EXPECT_EQ(get(MCTP_STRICT_ALL, refused).out,
              not_successful(1, 6, 24) + "get link status failed.\n");
    refused[kIid] = 2;
    EXPECT_EQ(get(0, refused).out, not_successful(1, 6, 24) + "get link status failed.\n");
    EXPECT_EQ(get(MCTP_STRICT_ALL, refused).out, "get link status failed.\n");
}

TEST_F(NcsiStrict, ThatACommandIsUnsupportedIsBelievedOfItsOwnResponseAlone) {
    // Response code 3, reason code 0x7FFF: with the instance ID of an earlier command; to another
    // one.
    const char* const responses[] = {
        "00 01 00 02 d0 42 00 04 00 00 00 00 00 00 00 00 00 03 7f ff 00 00 00 00",
        "00 01 00 03 8a 42 00 04 00 00 00 00 00 00 00 00 00 03 7f ff 00 00 00 00",
    };
    for (const char* response : responses) {
        for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_PACKETS}}) {
            start_over();
            endpoint.strict = strict;
            ctx.iid = 3;
            channel.channel_id = 0x42;
            channel.oem_valid = 1;
            answer({hex(response)});
            const Outcome outcome =
                test::run([&] { return ncsi_oem_brcm_get_preboot_server_config(&channel); });
            EXPECT_EQ(outcome.result, -1);
            EXPECT_EQ(channel.oem_valid, strict == 0 ? 0 : 1);
            EXPECT_TRUE(outcome.out.ends_with(strict == 0 ? "command unsupported!\n"
                                                          : "command failed.\n"));
        }
    }
}

TEST_F(NcsiStrict, AnOperationWithoutAnEndpointHasNoBits) {
    ctx.mctp = nullptr;
    ctx.transfer = [](ncsi_channel*, uint32_t, int32_t, uint8_t*, uint8_t* response) {
        response[17] = 0x03;
        response[18] = 0x7F;
        response[19] = 0xFF;
        return int32_t{-1};
    };
    channel.oem_valid = 1;
    EXPECT_EQ(test::run([&] { return ncsi_oem_mx_get_card_tlv_info(&channel); }).result, -1);
    EXPECT_EQ(channel.oem_valid, 0);
}

// ---- Requests ----

TEST_F(NcsiStrict, ARequestHasItsChecksumWithTheBit) {
    const std::string head = "00 01 00 03 0a 42 00 00 00 00 00 00 00 00 00 00 ";
    for (uint32_t strict : {0u, all_but(MCTP_STRICT_INTEGRITY)}) {
        get(strict, good);
        EXPECT_EQ(endpoint.messages(), Texts{head + "00 00 00 00"});
    }
    for (uint32_t strict : {uint32_t{MCTP_STRICT_INTEGRITY}, uint32_t{MCTP_STRICT_ALL}}) {
        get(strict, good);
        EXPECT_EQ(endpoint.messages(), Texts{head + "ff ff f5 ba"});
    }
}

TEST_F(NcsiStrict, PaddingIsZeroWithTheBitAndTheCallersWithoutIt) {
    const Bytes content = hex("00 01 00 00 50 42 00 01 00 00 00 00 00 00 00 00 11");
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_INTEGRITY}}) {
        start_over();
        endpoint.strict = strict;
        ctx.iid = 1;
        Bytes request = content;
        request.resize(24, 0xA5);
        Bytes room(24);
        EXPECT_EQ(ctx.oem_transfer(&ctx, 17, 24, request.data(), room.data()), -1);
        const std::string sent = "00 01 00 01 50 42 00 01 00 00 00 00 00 00 00 00 11 ";
        EXPECT_EQ(endpoint.messages(),
                  Texts{sent + (strict == 0 ? "a5 a5 a5 00 00 00 00" : "00 00 00 ff ff 9e bb")});
    }
}

TEST_F(NcsiStrict, TheLockedExchangeCountsItsInstanceIdsWithTheBit) {
    for (uint32_t strict : {0u, all_but(MCTP_STRICT_PACKETS), MCTP_STRICT_PACKETS}) {
        start_over();
        endpoint.strict = strict;
        ctx.iid = 254;
        std::string ids;
        for (int i = 0; i < 4; i++) {
            Bytes request = hex("00 01 00 00 0a 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
            Bytes room(24);
            ctx.oem_transfer(&ctx, 16, 24, request.data(), room.data());
            ids += std::to_string(endpoint.calls.back().bytes[kIid]) + " ";
        }
        EXPECT_EQ(ids, strict == MCTP_STRICT_PACKETS ? "254 255 1 2 " : "254 254 254 254 ");
    }
}

// ---- Where a context gets its bits from ----

class NcsiStrictInit : public test::PlatformTest {};

TEST_F(NcsiStrictInit, TheDiscoveryOfACopiedEndpointIsStrictAlready) {
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_ADDRESSES}}) {
        // Package 0 has a channel 5 that answers for 4.
        test::Endpoint controller([](uint8_t, const Bytes& request) -> std::optional<Bytes> {
            if (request[kChannelId] != 5) {
                return std::nullopt;
            }
            return test::ncsi_response(request[4], 4);
        });
        mctp_ctx config = test::smbus_context();
        config.skip_discovery = 1;
        config.strict = strict;
        ncsi_ctx ctx{};
        EXPECT_EQ(test::run([&] { return ncsi_init(&ctx, &config); }).result, strict == 0 ? 0 : -1);
        EXPECT_EQ(ctx.channel_num, strict == 0 ? 1 : 0);
        EXPECT_EQ(ctx.mctp->strict, strict);
        EXPECT_EQ(ncsi_deinit(&ctx), 0);
    }
}

TEST_F(NcsiStrictInit, ABorrowedEndpointKeepsItsBits) {
    mctp_ctx config = test::smbus_context();
    config.strict = MCTP_STRICT_PACKETS;
    ncsi_ctx ctx{};
    EXPECT_EQ(ncsi_oem_init(&ctx, &config), 0);
    EXPECT_EQ(config.strict, uint32_t{MCTP_STRICT_PACKETS});
}

}  // namespace
