// SPDX-License-Identifier: Apache-2.0
// Tunnelled admin commands: the whole request on the wire, what they fill, what they refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "NVMeMI/admin_commands.h"
#include "support/numbers.h"

namespace {

using test::admin_response;
using test::AdminCommand;
using test::AdminRoom;
using test::Bytes;
using test::console;
using test::counting;
using test::Guarded;
using test::hex;
using test::kUntouched;
using test::kWanted;
using test::le32_at;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

// ---- On the wire ----

class NvmeAdminOnTheWire : public test::NvmeSmbusTest,
                           public testing::WithParamInterface<AdminCommand> {
protected:
    /// The message that went out, put together from its packets.
    static Bytes sent() {
        Bytes message;
        for (const Bytes& packet : port().written_packets()) {
            message.insert(message.end(), packet.begin() + 4, packet.end());
        }
        return message;
    }
};

INSTANTIATE_TEST_SUITE_P(Every, NvmeAdminOnTheWire, testing::ValuesIn(test::admin_commands()),
                         test::name_of);

TEST_P(NvmeAdminOnTheWire, TheWholeRequestWithItsIntegrityCheckIsThis) {
    AdminRoom room(&ctx);
    const Outcome outcome = exchange({admin_response()}, [&] { return GetParam().call(room); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(to_hex(sent()), to_hex(test::message_of(GetParam(), room)));
    EXPECT_EQ(sent().size(), GetParam().sends_structure ? 4168u : 72u);
    EXPECT_EQ(outcome.out, GetParam().done);
    EXPECT_EQ(ctx.mctp->msg_type, 0x84);
}

class NvmeAdminPackets : public test::NvmeSmbusTest {};

TEST_F(NvmeAdminPackets, ARequestGoesOutInPacketsOf64Bytes) {
    const Outcome outcome =
        exchange({admin_response()}, [&] { return nvme_fw_image_commit(&ctx, 0x1234, 2, 3); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(packets(), (Texts{"01 1d 08 89 84 10 00 00 10 00 34 12 00 00 00 00 00 00 00 00 "
                                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                                "00 00 00 00 00 00 00 00 1a 00 00 00 00 00 00 00 00 00 00 00 "
                                "00 00 00 00 00 00 00 00",
                                "01 1d 08 59 00 00 00 00 35 cd cb 56"}));
}

TEST_F(NvmeAdminPackets, DataComeBackWithoutTheIntegrityCheckBehindThem) {
    const Bytes page = counting(kWanted, 0x30);
    for (size_t length : {size_t{0}, size_t{1}, size_t{44}, size_t{kWanted} - 1, size_t{kWanted}}) {
        SCOPED_TRACE(length);
        AdminRoom room(&ctx);
        const Bytes part(page.begin(), page.begin() + static_cast<long>(length));
        const Outcome outcome = exchange({admin_response(part)}, [&] {
            return nvme_get_log_page(&room.req, 1, kWanted, 0, room.data.data(), &room.received);
        });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "MORE=0\n");
        EXPECT_EQ(room.received, length);
        EXPECT_EQ(room.data.head(length), part);
        EXPECT_TRUE(room.data.untouched_from(length));
    }
}

/// There is room for the data that are wanted, and what is short of it by less than the check fills
/// it.
TEST_F(NvmeAdminPackets, DataShortOfTheirRoomByLessThanTheCheckEndWithItsBeginning) {
    const Bytes page = counting(kWanted, 0x30);
    for (const bool strict : {false, true}) {
        ctx.mctp->strict = strict ? MCTP_STRICT_INTEGRITY : 0;
        for (size_t missing = 0; missing < 6; missing++) {
            SCOPED_TRACE(missing);
            AdminRoom room(&ctx);
            const size_t length = kWanted - missing;
            const Bytes part(page.begin(), page.begin() + static_cast<long>(length));
            const Outcome outcome = exchange({admin_response(part)}, [&] {
                return nvme_identify(&room.req, kWanted, 0, room.data.data(), &room.received);
            });
            const bool taken_for_whole = !strict && missing >= 1 && missing <= 3;
            EXPECT_EQ(outcome.result, 0);
            EXPECT_EQ(room.received, taken_for_whole ? kWanted : length);
            EXPECT_EQ(room.data.head(length), part);
            EXPECT_TRUE(room.data.untouched_from(room.received));
        }
    }
}

TEST_F(NvmeAdminPackets, AnIntegrityCheckThatDoesNotFitIsNotLookedAt) {
    // The drive's is not verified: a wrong one does not fail the command.
    const test::Endpoint drive({admin_response() + hex("de ad be ef")}, false);
    EXPECT_EQ(nvme_namespace_mgmt_delete(&ctx, 0, 2), 0);
}

// ---- One exchange ----

class NvmeAdminTest : public test::NvmeTest {
protected:
    /// The one request that went out in a call that succeeds.
    Bytes request_of(const std::function<int32_t()>& call) {
        start_over();
        answer({admin_response()});
        EXPECT_EQ(test::run(call).result, 0);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        return endpoint.calls.empty() ? Bytes(67) : endpoint.calls[0].bytes;
    }

    /// Makes a call that is refused before anything is sent. @return what it printed
    std::string refused(const std::function<int32_t()>& call) {
        start_over();
        const Outcome outcome = test::run(call);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_TRUE(endpoint.calls.empty());
        return outcome.out;
    }
};

class NvmeAdminEach : public NvmeAdminTest, public testing::WithParamInterface<AdminCommand> {};

INSTANTIATE_TEST_SUITE_P(Every, NvmeAdminEach, testing::ValuesIn(test::admin_commands()),
                         test::name_of);

TEST_P(NvmeAdminEach, IsOneExchangeWithThisRoomForTheResponse) {
    AdminRoom room(&ctx);
    answer({admin_response()});
    const Outcome outcome = test::run([&] { return GetParam().call(room); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, GetParam().done);
    ASSERT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(endpoint.calls[0].capacity, GetParam().capacity);
    EXPECT_EQ(endpoint.msg_type, 0x84);
    const std::string logged = GetParam().logged;
    EXPECT_EQ(console(), logged.empty() ? Texts() : Texts{logged});
    EXPECT_EQ(port().syslog, Texts());
    EXPECT_EQ(libc.sleeps.size(), 0u);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_P(NvmeAdminEach, CommandFlagsSayWhetherLengthAndOffsetAreThere) {
    AdminRoom room(&ctx);
    const Bytes request = request_of([&] { return GetParam().call(room); });
    const bool offset = le32_at(request, 27) != 0;
    const bool length = le32_at(request, 31) != 0;
    EXPECT_EQ(request[4], (length ? 1 : 0) | (offset ? 2 : 0));
}

// ---- Features ----

class NvmeFeature : public NvmeAdminTest {
protected:
    AdminRoom room{&ctx};
};

TEST_F(NvmeFeature, GetPutsIdentifierAndSelectIntoDword10OfRecordAndRequest) {
    for (unsigned fid = 0; fid < 256; fid++) {
        const auto sel = static_cast<uint8_t>(fid % 4);
        room.req.cdw10 = 0xFFFFFFFF;
        const Bytes request = request_of([&] {
            return nvme_admin_get_feature(&room.req, static_cast<uint8_t>(fid), sel, nullptr);
        });
        EXPECT_EQ(room.req.cdw10, fid | unsigned{sel} << 8);
        EXPECT_EQ(le32_at(request, 43), room.req.cdw10);
        EXPECT_EQ(request[3], 0x0A);
    }
}

TEST_F(NvmeFeature, GetWithSelect4IsRefusedAndLeaves4InTheRecord) {
    EXPECT_EQ(refused([&] { return nvme_admin_get_feature(&room.req, 0x0C, 4, &room.feature); }),
              "");
    EXPECT_EQ(room.req.cdw10, 0x0000040Cu);
    EXPECT_EQ(port().console, Texts{"Unsupported SEL (4)\n"});
    EXPECT_TRUE(room.untouched());
}

TEST_F(NvmeFeature, EveryLargerSelectIsRefused) {
    for (unsigned sel = 4; sel < 256; sel++) {
        char text[32];
        std::snprintf(text, sizeof text, "Unsupported SEL (%x)\n", sel);
        refused([&] {
            return nvme_admin_get_feature(&room.req, 2, static_cast<uint8_t>(sel), nullptr);
        });
        EXPECT_EQ(port().console, Texts{text});
    }
}

TEST_F(NvmeFeature, SetPutsIdentifierAndSaveFlagIntoDword10) {
    for (uint8_t save : {uint8_t{0}, uint8_t{1}}) {
        const Bytes request =
            request_of([&] { return nvme_admin_set_feature(&room.req, 0xFF, save, nullptr); });
        EXPECT_EQ(room.req.cdw10, save == 0 ? 0x000000FFu : 0x800000FFu);
        EXPECT_EQ(le32_at(request, 43), room.req.cdw10);
        EXPECT_EQ(request[3], 0x09);
    }
}

TEST_F(NvmeFeature, SetWithAnyOtherSaveFlagIsRefused) {
    for (unsigned save = 2; save < 256; save++) {
        char text[32];
        std::snprintf(text, sizeof text, "Wrong save flag (%x)\n", save);
        EXPECT_EQ(refused([&] {
                      return nvme_admin_set_feature(&room.req, 2, static_cast<uint8_t>(save),
                                                    &room.feature);
                  }),
                  "");
        EXPECT_EQ(port().console, Texts{text});
    }
    EXPECT_TRUE(room.untouched());
}

TEST_F(NvmeFeature, TheResultHasDword0AndAsManyDataAsThereIsRoomFor) {
    const Bytes data = counting(100, 0x40);
    const std::pair<uint32_t, size_t> cases[] = {{0, 0}, {1, 1}, {79, 79}, {80, 80}};
    for (const auto& [length, copied] : cases) {
        SCOPED_TRACE(length);
        AdminRoom fresh(&ctx);
        fresh.feature.data_length = length;
        start_over();
        answer({admin_response(data, 0, 0x12345678)});
        EXPECT_EQ(nvme_admin_get_feature(&fresh.req, 2, 0, &fresh.feature), 0);
        EXPECT_EQ(fresh.feature.dword0, 0x12345678u);
        EXPECT_EQ(fresh.feature.data_length, length);
        EXPECT_EQ(fresh.data.head(copied), Bytes(data.begin(), data.begin() + copied));
        EXPECT_TRUE(fresh.data.untouched_from(copied));
        EXPECT_TRUE(fresh.data.intact());
    }
}

TEST_F(NvmeFeature, BytesBehindTheDataThatCameStayAsTheyWere) {
    answer({admin_response(counting(9, 1))});
    EXPECT_EQ(nvme_admin_set_feature(&room.req, 2, 0, &room.feature), 0);
    EXPECT_EQ(room.feature.dword0, 0u);
    EXPECT_EQ(room.data.head(9), counting(9, 1));
    EXPECT_TRUE(room.data.untouched_from(9));
}

TEST_F(NvmeFeature, ALengthWithoutAPointerAndNoResultAtAllAreFine) {
    room.feature.data = nullptr;
    answer({admin_response(counting(80), 0, 7), admin_response(counting(80), 0, 7)});
    EXPECT_EQ(nvme_admin_get_feature(&room.req, 2, 0, &room.feature), 0);
    EXPECT_EQ(room.feature.dword0, 7u);
    EXPECT_EQ(nvme_admin_get_feature(&room.req, 2, 0, nullptr), 0);
}

TEST_F(NvmeFeature, AWholeResponseOf4096BytesIsTaken) {
    const Bytes data = counting(4096, 3);
    Guarded large(5000);
    room.feature = {kUntouched, 5000, large.data()};
    room.req.dlen = 4096;
    answer({admin_response(data)});
    EXPECT_EQ(nvme_admin_get_set_feature(&room.req, 0x0A, &room.feature), 0);
    EXPECT_EQ(large.head(4096), data);
    EXPECT_TRUE(large.untouched_from(4096));
}

TEST_F(NvmeFeature, MoreThan4096BytesOfDataAreRefused) {
    for (uint32_t length : {4097u, 0x80000000u, UINT32_MAX}) {
        room.req.dlen = length;
        EXPECT_EQ(refused([&] { return nvme_admin_get_set_feature(&room.req, 9, &room.feature); }),
                  "");
        EXPECT_EQ(port().syslog,
                  Texts{"nvme admin, " + std::to_string(length) + " bytes of data are too many\n"});
        EXPECT_EQ(port().console, Texts());
    }
    EXPECT_TRUE(room.untouched());
}

TEST_F(NvmeFeature, NoRecordIsRefused) {
    refused([] { return nvme_admin_get_feature(nullptr, 0, 0, nullptr); });
    refused([] { return nvme_admin_get_feature(nullptr, 0, 4, nullptr); });
    refused([] { return nvme_admin_set_feature(nullptr, 0, 0, nullptr); });
    refused([] { return nvme_admin_set_feature(nullptr, 0, 2, nullptr); });
    refused([] { return nvme_admin_get_set_feature(nullptr, 0, nullptr); });
}

// ---- Commands without data ----

class NvmeCommand : public NvmeAdminTest {};

TEST_F(NvmeCommand, CommitTakes3BitsOfSlotAndOfAction) {
    for (unsigned i = 0; i < 256; i++) {
        const auto slot = static_cast<uint8_t>(i);
        const auto action = static_cast<uint8_t>(255 - i);
        const Bytes request =
            request_of([&] { return nvme_fw_image_commit(&ctx, 0, slot, action); });
        EXPECT_EQ(le32_at(request, 43), (action & 7u) << 3 | (slot & 7u));
        EXPECT_EQ(request.size(), 67u);
    }
}

TEST_F(NvmeCommand, AttachmentTakes4BitsOfSelectAndSendsNoControllerList) {
    for (unsigned select = 0; select < 256; select++) {
        const Bytes request = request_of([&] {
            return nvme_namespace_mgmt_attachment(&ctx, 7, 9, static_cast<uint8_t>(select));
        });
        EXPECT_EQ(le32_at(request, 43), select & 0x0F);
        EXPECT_EQ(request.size(), 67u);
    }
}

TEST_F(NvmeCommand, CreateSends4163BytesAndGivesTheNamespaceOfDword0) {
    const AdminRoom room(&ctx);
    uint32_t nsid = kUntouched;
    answer({admin_response({}, 0, 0x00000003)});
    EXPECT_EQ(nvme_namespace_mgmt_create(&ctx, 0, room.structure.data(), &nsid), 0);
    EXPECT_EQ(nsid, 3u);
    const Bytes& request = endpoint.calls[0].bytes;
    ASSERT_EQ(request.size(), 4163u);
    EXPECT_EQ(le32_at(request, 31), 4096u);
    EXPECT_EQ(Bytes(request.begin() + 67, request.end()), room.structure);
}

TEST_F(NvmeCommand, CreateDoesWithoutRoomForTheNamespaceButNotWithoutData) {
    const AdminRoom room(&ctx);
    request_of([&] { return nvme_namespace_mgmt_create(&ctx, 0, room.structure.data(), nullptr); });
    uint32_t nsid = kUntouched;
    refused([&] { return nvme_namespace_mgmt_create(&ctx, 0, nullptr, &nsid); });
    EXPECT_EQ(nsid, kUntouched);
}

TEST_F(NvmeCommand, WhatIsMissingIsRefused) {
    refused([&] { return nvme_format_nvm(&ctx, 0, 1, nullptr); });
    refused([] { return nvme_sanitize_set(nullptr); });
    refused([] { return nvme_lockdown_set(nullptr); });
    refused([] { return nvme_get_log_page(nullptr, 0, 0, 0, nullptr, nullptr); });
    refused([] { return nvme_identify(nullptr, 0, 0, nullptr, nullptr); });
    refused([] { return nvme_get_pd_info(nullptr, 0, nullptr, nullptr); });
    refused([] { return nvme_mrvl_read_cmd(nullptr, 0, nullptr, nullptr); });
    EXPECT_EQ(port().console, Texts());
}

TEST_F(NvmeCommand, DwordsArePutTogetherFromTheirFields) {
    EXPECT_EQ(NVME_SANITIZE_SANACT(NVME_SANACT_BLOCK_ERASE), 0x2u);
    EXPECT_EQ(NVME_SANITIZE_AUSE, 0x8u);
    EXPECT_EQ(NVME_SANITIZE_OWPASS(0x1F), 0xF0u);
    EXPECT_EQ(NVME_LOCKDOWN_SCP(0x1F), 0xFu);
    EXPECT_EQ(NVME_LOCKDOWN_IFC(7), 0x60u);
    EXPECT_EQ(NVME_LOCKDOWN_OFI(0x1FF), 0xFF00u);
    EXPECT_EQ(NVME_LOCKDOWN_UUID_INDEX(0xFF), 0x7Fu);
}

}  // namespace
