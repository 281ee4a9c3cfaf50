// SPDX-License-Identifier: Apache-2.0
// What the strict bits of an endpoint change in NVMe-MI, and that nothing changes without them.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "NVMeMI/admin_commands.h"
#include "NVMeMI/download_fixture.h"
#include "NVMeMI/mi_commands.h"
#include "support/numbers.h"

namespace {

using test::admin_response;
using test::AdminCommand;
using test::AdminRoom;
using test::Bytes;
using test::checked;
using test::command_error;
using test::completion;
using test::console;
using test::counting;
using test::Guarded;
using test::hex;
using test::kDoNotRetry;
using test::kMore;
using test::kUntouched;
using test::mi_commands;
using test::MiCommand;
using test::MiRoom;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

/// All bits but the one: none of them may do its work.
constexpr uint32_t all_but(uint32_t bit) {
    return MCTP_STRICT_ALL & ~bit;
}

/// What is noted about a message that answers something else.
Texts no_response(unsigned message, unsigned request) {
    char line[80];
    std::snprintf(line, sizeof line, "nvmemi, message %02x is no response to request %02x\n",
                  message, request);
    return {line};
}

/// Whether a first byte is that of a response to the request: bits 2 and 1 are reserved.
bool answers(uint8_t message, uint8_t request) {
    return (message & 0xF9) == (request | 0x80);
}

class NvmeStrict : public test::NvmeTest {
protected:
    /// A poll of the subsystem's health with this as the answer.
    Outcome poll(uint32_t strict, std::string_view response) {
        start_over();
        endpoint.strict = strict;
        answer({hex(response)});
        health = {0xEE, 0xEE, 0xEE, 0xEE, 0xEEEE, 0xEEEE};
        const uint32_t nmd1 = 0;
        return test::run(
            [&] { return nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, &health); });
    }

    nvme_subsystem_health health{};
};

// ---- Request or response, message type, slot (NVMe-MI, message parameters) ----

struct FirstByte {
    const char* what;
    const char* response;
    bool is_response;
};

constexpr FirstByte kFirstBytes[] = {
    {"a response", "88 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", true},
    {"reserved bits", "8e 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", true},
    {"a request", "08 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", false},
    {"the other slot", "89 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", false},
    {"an admin command's", "90 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", false},
    {"a control primitive's", "80 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", false},
    {"an event", "28 00 00 00 00 00 00 38 ff 2a 03 01 80 00 00", false},
};

TEST_F(NvmeStrict, WhateverComesIsTheResponseWithoutTheBit) {
    for (uint32_t strict : {0u, all_but(MCTP_STRICT_NVME_MI)}) {
        for (const FirstByte& one : kFirstBytes) {
            SCOPED_TRACE(one.what);
            EXPECT_EQ(poll(strict, one.response).result, 0);
            EXPECT_EQ(health.ctemp, 0x2A);
            EXPECT_EQ(health.ccs, 0x8001);
            EXPECT_EQ(port().syslog, Texts());
        }
    }
}

TEST_F(NvmeStrict, WithTheBitOnlyAResponseToTheRequestIs) {
    for (uint32_t strict : {uint32_t{MCTP_STRICT_NVME_MI}, uint32_t{MCTP_STRICT_ALL}}) {
        for (const FirstByte& one : kFirstBytes) {
            SCOPED_TRACE(one.what);
            const Outcome outcome = poll(strict, one.response);
            EXPECT_EQ(to_hex(endpoint.calls[0].bytes),
                      "08 00 00 01 00 00 00 00 00 00 00 00 00 00 00");
            EXPECT_EQ(endpoint.calls.size(), 1u) << "it came: it is not asked for again";
            EXPECT_EQ(outcome.result, one.is_response ? 0 : -1);
            EXPECT_EQ(outcome.out, "");
            EXPECT_EQ(health.ctemp, one.is_response ? 0x2A : 0xEE);
            EXPECT_EQ(port().syslog,
                      one.is_response ? Texts() : no_response(hex(one.response)[0], 0x08));
        }
    }
}

TEST_F(NvmeStrict, NoStatusOfAnotherMessageIsReported) {
    EXPECT_EQ(poll(0, "09 00 00 05 00 00 00").result, 5);
    const Outcome outcome = poll(MCTP_STRICT_NVME_MI, "09 00 00 05 00 00 00");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(poll(MCTP_STRICT_NVME_MI, "88 00 00 05 00 00 00").result, 5);
}

TEST_F(NvmeStrict, AMessageWithoutAStatusIsReportedAsThat) {
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        EXPECT_EQ(poll(strict, "08 00 00").result, -1);
        EXPECT_EQ(port().syslog, Texts{"nvmemi, response of 3 bytes has no status\n"});
    }
}

class NvmeStrictManagement : public test::NvmeTest, public testing::WithParamInterface<size_t> {};

INSTANTIATE_TEST_SUITE_P(Every, NvmeStrictManagement,
                         testing::Range(size_t{0}, mi_commands().size()),
                         [](const auto& info) { return test::mi_command_name(info.param); });

TEST_P(NvmeStrictManagement, EveryFirstByteIsAResponseOrNone) {
    const MiCommand& command = mi_commands()[GetParam()];
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        for (unsigned first = 0; first < 256; first++) {
            SCOPED_TRACE(first);
            start_over();
            endpoint.strict = strict;
            Bytes response = command.response;
            response[0] = static_cast<uint8_t>(first);
            answer({response});
            MiRoom room;
            const bool taken = strict == 0 || answers(response[0], 0x08);
            EXPECT_EQ(test::run([&] { return command.call(&ctx, room.values()); }).result,
                      taken ? 0 : -1);
            EXPECT_EQ(port().syslog, taken ? Texts() : no_response(first, 0x08));
            EXPECT_TRUE(taken || room.untouched());
            EXPECT_TRUE(room.intact());
        }
    }
}

class NvmeStrictAdmin : public test::NvmeTest, public testing::WithParamInterface<AdminCommand> {};

INSTANTIATE_TEST_SUITE_P(Every, NvmeStrictAdmin, testing::ValuesIn(test::admin_commands()),
                         test::name_of);

TEST_P(NvmeStrictAdmin, EveryFirstByteIsAResponseOrNone) {
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        for (unsigned first = 0; first < 256; first++) {
            SCOPED_TRACE(first);
            start_over();
            endpoint.strict = strict;
            Bytes response = admin_response();
            response[0] = static_cast<uint8_t>(first);
            answer({response});
            AdminRoom room(&ctx);
            const bool taken = strict == 0 || answers(response[0], 0x10);
            EXPECT_EQ(test::run([&] { return GetParam().call(room); }).result, taken ? 0 : -1);
            EXPECT_EQ(port().syslog, taken ? Texts() : no_response(first, 0x10));
            EXPECT_TRUE(taken || room.untouched());
        }
    }
}

// ---- More processing required ----

TEST_F(NvmeStrict, OnlyTheResponseItselfAsksForMoreTime) {
    const Bytes late = hex("88 00 00 00 00 00 00");
    for (const char* busy : {"88 00 00 01 00 00 00", "08 00 00 01 00 00 00", "89 00 00 01 00 00 00",
                             "90 00 00 01 00 00 00"}) {
        SCOPED_TRACE(busy);
        for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
            start_over();
            endpoint.strict = strict;
            answer({hex(busy), late});
            const bool waits = strict == 0 || hex(busy)[0] == 0x88;
            EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, waits ? 0 : -1);
            EXPECT_EQ(endpoint.calls.size(), waits ? 2u : 1u);
            EXPECT_EQ(libc.sleeps, std::vector<uint32_t>(waits ? 1 : 0, 200000));
        }
    }
}

TEST_F(NvmeStrict, WhatComesLateMustBeTheResponseToo) {
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        start_over();
        endpoint.strict = strict;
        answer({hex("88 00 00 01 00 00 00"), hex("08 00 00 00 00 00 00")});
        EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, strict == 0 ? 0 : -1);
        EXPECT_EQ(endpoint.calls.size(), 2u);
    }
}

// ---- The operations hand over what came ----

TEST_F(NvmeStrict, TheOperationsThemselvesDoNotJudge) {
    const Bytes stray = hex("09 00 00 00 01 02 03");
    endpoint.strict = MCTP_STRICT_ALL;
    answer({stray, stray});
    Bytes request(67);
    Bytes room(7);
    EXPECT_EQ(ctx.mi_request(&ctx, 67, 7, request.data(), room.data()), 7);
    EXPECT_EQ(room, stray);
    room = Bytes(7);
    EXPECT_EQ(nvme_admin_cmd(&ctx, 67, 7, request.data(), room.data()), 7);
    EXPECT_EQ(room, stray);
}

TEST_F(NvmeStrict, ARequestWithoutAByteIsNoTrouble) {
    endpoint.strict = MCTP_STRICT_NVME_MI;
    answer({hex("80 00 00 01")});
    uint8_t request = 0;
    Bytes room(7);
    EXPECT_EQ(ctx.mi_request(&ctx, 0, 7, &request, room.data()), -1);
    EXPECT_EQ(endpoint.calls.size(), 4u) << "three late reads";
}

// ---- Status code type (NVMe, completion queue entry dword 3) ----

TEST_P(NvmeStrictAdmin, AStatusCodeTypeAloneIsAFailureWithTheBit) {
    for (uint32_t type = 0; type < 8; type++) {
        for (uint32_t beside : {0u, 0x0001FFFFu, kMore, kDoNotRetry}) {
            for (uint32_t strict : {0u, all_but(MCTP_STRICT_NVME_MI), MCTP_STRICT_NVME_MI}) {
                SCOPED_TRACE(type);
                start_over();
                endpoint.strict = strict;
                const uint32_t dword3 = completion(0, type, beside);
                answer({admin_response({}, dword3)});
                AdminRoom room(&ctx);
                const bool fails = strict == MCTP_STRICT_NVME_MI && type != 0;
                const Outcome outcome = test::run([&] { return GetParam().call(room); });
                EXPECT_EQ(outcome.result, fails ? static_cast<int32_t>(dword3) : 0);
                EXPECT_TRUE(!fails || room.untouched());
                const Texts said = console();
                EXPECT_EQ(!said.empty() && said.back() == command_error(type, 0), fails);
            }
        }
    }
}

TEST_F(NvmeStrict, ACompletionOfThisTypeReadsSo) {
    // Status code type 2, status code 0: dword 3 is 0x04000000.
    const Bytes response = hex("90 00 00 00 00 00 00 05 00 00 00 00 00 00 00 00 00 00 04");
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        start_over();
        endpoint.strict = strict;
        answer({response});
        uint32_t nsid = kUntouched;
        const Bytes data(4096);
        EXPECT_EQ(nvme_namespace_mgmt_create(&ctx, 1, data.data(), &nsid),
                  strict == 0 ? 0 : 0x04000000);
        EXPECT_EQ(nsid, strict == 0 ? 5 : kUntouched);
        EXPECT_EQ(console(), strict == 0 ? Texts() : Texts{"Command error (SCT:0x2, SC:0)\n"});
    }
}

class NvmeStrictDownload : public test::DownloadTest {};

TEST_F(NvmeStrictDownload, APieceWithAStatusCodeTypeIsARefusedOne) {
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}}) {
        start_over();
        endpoint.strict = strict;
        image.write(counting(8));
        answer({admin_response({}, completion(0, 1))});
        EXPECT_EQ(download(4096).result, strict == 0 ? 0 : 0x02000000);
        EXPECT_EQ(status(), strict == 0 ? NVME_FW_DOWNLOAD_DONE : NVME_FW_DOWNLOAD_COMMAND);
    }
}

// ---- Namespace Attachment (NVMe, Controller List) ----

TEST_F(NvmeStrict, AttachmentHasItsControllerListWithTheBit) {
    const std::string behind = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
    for (uint8_t select : {uint8_t{NVME_NAMESPACE_ATTACH}, uint8_t{NVME_NAMESPACE_DETACH}}) {
        for (uint32_t strict : {0u, all_but(MCTP_STRICT_NVME_MI), MCTP_STRICT_NVME_MI}) {
            start_over();
            endpoint.strict = strict;
            answer({admin_response()});
            EXPECT_EQ(nvme_namespace_mgmt_attachment(&ctx, 0x1234, 0x00000009, select), 0);
            const Bytes& request = endpoint.calls[0].bytes;
            EXPECT_EQ(endpoint.calls[0].capacity, 19);
            const bool listed = strict == MCTP_STRICT_NVME_MI;
            ASSERT_EQ(request.size(), listed ? 4163u : 67u);
            // Command flags and data length; dword 10.
            EXPECT_EQ(to_hex(Bytes(request.begin(), request.begin() + 67)),
                      std::string("10 00 00 15 ") + (listed ? "01" : "00") +
                          " 34 12 09 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                          "00 00 00 00 00 " +
                          (listed ? "10" : "00") + " 00 00 00 00 00 00 00 00 00 00 " +
                          (select == 0 ? "00" : "01") + " 00 00 00 " + behind.substr(0, 59));
            if (listed) {
                EXPECT_EQ(to_hex(Bytes(request.begin() + 67, request.begin() + 75)),
                          "01 00 34 12 00 00 00 00");
                EXPECT_EQ(Bytes(request.begin() + 75, request.end()), Bytes(4088));
            }
        }
    }
}

TEST_F(NvmeStrict, AttachmentWithoutContextOrEndpointFails) {
    EXPECT_EQ(nvme_namespace_mgmt_attachment(nullptr, 1, 1, 0), -1);
    nvmemi_ctx empty{};
    EXPECT_EQ(nvme_namespace_mgmt_attachment(&empty, 1, 1, 0), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(NvmeStrict, AnAttachmentThatIsRefusedSaysSo) {
    endpoint.strict = MCTP_STRICT_NVME_MI;
    answer({test::status_response(5, Bytes(3), 0x90), admin_response({}, completion(0x1C, 1))});
    EXPECT_EQ(nvme_namespace_mgmt_attachment(&ctx, 1, 1, 0), 5);
    EXPECT_EQ(nvme_namespace_mgmt_attachment(&ctx, 1, 1, 0), 0x02380000);
    EXPECT_EQ(console(), (Texts{"Response unsuccess (5h)\n", command_error(1, 0x1C)}));
}

// ---- Integrity check: the transport strips it, or leaves it where it was ----

/// Data that end in what would be the integrity check of the response in front of them.
const Bytes kDisguised = checked(admin_response(hex("01 02 03 04")));

class NvmeStrictCheck : public test::NvmeTest {
protected:
    /// The data that a reading command hands over of this response.
    std::string data_of(uint32_t strict, const Bytes& response) {
        start_over();
        endpoint.strict = strict;
        answer({response});
        nvme_admin_req req{};
        req.ctx = &ctx;
        Guarded data(64);
        uint32_t received = 0;
        EXPECT_EQ(nvme_get_pd_info(&req, 64, data.data(), &received), 0);
        EXPECT_TRUE(data.untouched_from(received));
        return to_hex(data.head(received));
    }
};

TEST_F(NvmeStrictCheck, ItIsTakenOffWithoutTheBit) {
    for (uint32_t strict : {0u, all_but(MCTP_STRICT_INTEGRITY)}) {
        EXPECT_EQ(data_of(strict, kDisguised), "01 02 03 04");
    }
}

TEST_F(NvmeStrictCheck, WithTheBitThereIsNoneAndAllIsData) {
    for (uint32_t strict : {uint32_t{MCTP_STRICT_INTEGRITY}, uint32_t{MCTP_STRICT_ALL}}) {
        EXPECT_EQ(data_of(strict, kDisguised), "01 02 03 04 16 80 12 57");
    }
}

TEST_F(NvmeStrictCheck, AWrongOneIsDataWithoutTheBit) {
    Bytes response = kDisguised;
    response.back() ^= 0x01;
    EXPECT_EQ(data_of(0, response), "01 02 03 04 16 80 12 56");
}

TEST_F(NvmeStrict, AVpdThatLacksABytePassesWithoutTheBitAlone) {
    // 31 of 32 bytes; the first byte of the check takes the place of the last one.
    const Bytes body = hex("88 00 00 00 00 00 00") + counting(31, 0x80);
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_INTEGRITY}}) {
        start_over();
        endpoint.strict = strict;
        Bytes delivered = strict == 0 ? checked(body) : body;
        delivered.resize(strict == 0 ? 39 : 38);
        answer({delivered});
        Guarded data(32);
        EXPECT_EQ(test::run([&] { return nvmemi_vpd_read(&ctx, 0, 32, data.data()); }).result,
                  strict == 0 ? 0 : -1);
        EXPECT_EQ(data.untouched_from(0), strict != 0);
    }
}

TEST_F(NvmeStrict, AStatusThatLooksLikeACheckIsOneWithTheBit) {
    // The check of an empty body stands where a status would.
    const Bytes delivered = checked({});
    EXPECT_EQ(to_hex(delivered), "36 ff 11 17");
    for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_INTEGRITY}}) {
        start_over();
        endpoint.strict = strict;
        answer({delivered});
        EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, strict == 0 ? -1 : 0x17);
    }
}

// ---- Where a context gets its bits from ----

class NvmeStrictInit : public test::PlatformTest {};

TEST_F(NvmeStrictInit, AContextTakesTheBitsOfItsPrototype) {
    for (auto* const init : {nvmemi_init, nvmemi_init_for_MARV}) {
        for (uint32_t strict : {0u, uint32_t{MCTP_STRICT_NVME_MI}, uint32_t{MCTP_STRICT_ALL}}) {
            mctp_ctx config = test::smbus_context();
            config.strict = strict;
            nvmemi_ctx ctx{};
            EXPECT_EQ(init(&ctx, &config), 0);
            EXPECT_EQ(ctx.mctp->strict, strict);
            ctx.mctp->strict = MCTP_STRICT_NVME_MI;  // Later is early enough: nothing was sent.
            EXPECT_EQ(nvmemi_deinit(&ctx), 0);
        }
    }
}

}  // namespace
