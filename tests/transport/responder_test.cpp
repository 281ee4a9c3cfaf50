// SPDX-License-Identifier: Apache-2.0
// The BMC as an endpoint on somebody else's bus: announcement, answers, and when it ends.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::port;
using test::operator+;

/// What the bus owner sends next; each begins with its message type byte.
struct Incoming {
    int32_t result;
    Bytes bytes;
};

std::deque<Incoming> incoming;
std::deque<int32_t> send_results;  ///< 0 once empty
std::vector<Bytes> sent;
std::vector<uint8_t> sent_tag_owners;
Bytes announcement;
Bytes announcement_answer;
size_t received;
int32_t room_offered;
Bytes bdf_seen;

int32_t owner_xfer(mctp_ctx*, uint32_t length, int32_t capacity, const uint8_t* request,
                   uint8_t* response) {
    announcement.assign(request, request + length);
    EXPECT_EQ(capacity, 3);
    std::copy(announcement_answer.begin(), announcement_answer.end(), response);
    return announcement_answer.empty() ? -1 : static_cast<int32_t>(announcement_answer.size());
}

int32_t owner_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    received++;
    room_offered = length;
    bdf_seen.assign(ctx->pcie_bdf, ctx->pcie_bdf + 3);
    EXPECT_EQ(ctx->binding_eids[1], 0) << "cleared before each message";
    EXPECT_TRUE(std::all_of(buffer, buffer + length, [](uint8_t byte) { return byte == 0; }));
    if (incoming.empty()) {
        return -1;
    }
    const Incoming next = incoming.front();
    incoming.pop_front();
    std::copy(next.bytes.begin(), next.bytes.end(), buffer);
    ctx->binding_eids[0] = 0x0A;
    ctx->binding_eids[1] = 0xFF;
    ctx->pcie_bdf[0] = 0x77;
    return next.result;
}

int32_t owner_send(mctp_ctx*, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    sent.emplace_back(body, body + length);
    sent_tag_owners.push_back(tag_owner);
    if (send_results.empty()) {
        return 0;
    }
    const int32_t result = send_results.front();
    send_results.pop_front();
    return result;
}

class GetBmcByOwner : public test::PlatformTest {
protected:
    GetBmcByOwner() {
        incoming.clear();
        send_results.clear();
        sent.clear();
        sent_tag_owners.clear();
        announcement.clear();
        announcement_answer = hex("00 0D 00");
        received = 0;
        ctx.xfer = owner_xfer;
        ctx.recv = owner_recv;
        ctx.send = owner_send;
    }

    static void receive(const char* message) {
        const Bytes bytes = hex(message);
        incoming.push_back({static_cast<int32_t>(bytes.size()), bytes});
    }

    /// One message of the owner's gets exactly this answer, and the responder waits for the next.
    void expect_answer(const char* message, const char* answer) {
        sent.clear();
        receive(message);
        EXPECT_EQ(get_bmc_by_owner(&ctx), 0) << message;
        EXPECT_EQ(sent, std::vector<Bytes>{hex(answer)});
        EXPECT_EQ(sent_tag_owners.back(), 0);
    }

    mctp_ctx ctx = test::smbus_context();
};

const char* const kSetEid2A = "00 83 01 00 2A";

TEST_F(GetBmcByOwner, AnnouncesTheBmcAndForgetsItsEids) {
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(announcement, hex("80 0D"));
    EXPECT_EQ(ctx.src_eid, 0);
    EXPECT_EQ(ctx.dest_eid, 0);
    EXPECT_EQ(received, 1u);
    EXPECT_EQ(room_offered, 1024);
    EXPECT_EQ(bdf_seen, hex("00 00 00"));
}

TEST_F(GetBmcByOwner, AFailedAnnouncementDoesNotEndIt) {
    for (const Bytes& answer : {Bytes(), hex("00 0D 01"), hex("1F 0D 00")}) {
        announcement_answer = answer;
        ctx.instance_id = 0;
        receive(kSetEid2A);
        EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    }
}

TEST_F(GetBmcByOwner, AnAnnouncementAnsweredWithAnotherCommandIsNoShortcut) {
    announcement_answer = hex("00 00 00");
    ctx.binding_eids[0] = 0x0A;
    ctx.binding_eids[1] = 0x2A;
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0) << "the command code must match";
    EXPECT_EQ(received, 1u);
}

TEST_F(GetBmcByOwner, SetEndpointIdGivesTheBmcItsEid) {
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(sent, std::vector<Bytes>{hex("03 01 00 00 2A 00")});
    EXPECT_EQ(sent_tag_owners, hex("00"));
    EXPECT_EQ(ctx.src_eid, 0x2A);
    EXPECT_EQ(ctx.dest_eid, 0x0A);
    EXPECT_EQ(ctx.owner_route.bus, 3);
    EXPECT_EQ(ctx.owner_route.slave_addr, 0x64);
    EXPECT_EQ(Bytes(ctx.owner_route.mux, ctx.owner_route.mux + MCTP_MUX_SIZE),
              test::counting(48, 0xC0));
}

TEST_F(GetBmcByOwner, EidsOneTo254AreTaken) {
    for (const char* message : {"00 80 01 00 01", "00 80 01 00 FE"}) {
        receive(message);
        EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
        EXPECT_EQ(ctx.src_eid, hex(message)[4]);
    }
}

TEST_F(GetBmcByOwner, Eid0And255AreRefusedAndTheLoopGoesOn) {
    receive("00 81 01 00 00");
    receive("00 82 01 00 FF");
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(sent, (std::vector<Bytes>{hex("01 01 02 00 00 00"), hex("02 01 02 00 00 00"),
                                        hex("03 01 00 00 2A 00")}));
}

TEST_F(GetBmcByOwner, ATruncatedSetEndpointIdIsOneForEid0) {
    expect_answer("00 81 01", "01 01 02 00 00 00");
}

TEST_F(GetBmcByOwner, GetEndpointIdIsAnsweredWithTheEidSoFar) {
    expect_answer("00 9F 02", "1F 02 00 00 10 00");
}

TEST_F(GetBmcByOwner, VendorDefinedMessageSupportHasOneSet) {
    expect_answer("00 84 06 00", "04 06 00 FF 00 03 1A 00 01");
    expect_answer("00 85 06 01", "05 06 02");
}

TEST_F(GetBmcByOwner, PrepareForEndpointDiscoveryIsAnswered) {
    expect_answer("00 86 0B", "06 0B 00 00 00 00");
}

TEST_F(GetBmcByOwner, DiscoveryNotifyIsAnswered) {
    expect_answer("00 87 0D", "07 0D 00 00 00 00");
}

TEST_F(GetBmcByOwner, ASecondEndpointDiscoveryGetsNoAnswer) {
    for (int i = 0; i < 10; i++) {
        receive("00 88 0C");
    }
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1) << "and is not counted as ignored";
    EXPECT_EQ(sent, (std::vector<Bytes>{hex("08 0C 00 00 00 00 00 00 00 00 00"),
                                        hex("03 01 00 00 2A 00")}));
    receive("00 88 0C");
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(sent.size(), 3u) << "the next call answers again";
}

TEST_F(GetBmcByOwner, OtherCommandsGetNoAnswerAndAreNotCounted) {
    for (const char* message : {"00 80 00", "00 80 03", "00 80 04", "00 80 05", "00 80 07",
                                "00 80 08", "00 80 09", "00 80 0A", "00 80 0E", "00 80 FF"}) {
        receive(message);
    }
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(GetBmcByOwner, TheFifthIgnoredMessageEndsIt) {
    receive("01 80 02");
    receive("7F 83 01 00 2A");
    incoming.push_back({0, Bytes()});
    receive("00 80 02");
    receive("04 80 02");
    receive("02 80 02");
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(sent.size(), 1u) << "Get Endpoint ID in between";
    EXPECT_EQ(incoming.size(), 1u);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_WRONG_TAG);
}

TEST_F(GetBmcByOwner, FourIgnoredMessagesDoNotEndIt) {
    for (int i = 0; i < 4; i++) {
        receive("01 80 02");
    }
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
}

TEST_F(GetBmcByOwner, TheIntegrityCheckBitOfTheTypeDoesNotMatter) {
    receive("80 83 01 00 2A");
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
}

TEST_F(GetBmcByOwner, AFailedSendEndsIt) {
    const char* const messages[] = {kSetEid2A,     "00 80 01 00 00", "00 80 02", "00 80 06 00",
                                    "00 80 06 01", "00 80 0B",       "00 80 0C", "00 80 0D"};
    for (const char* message : messages) {
        incoming.clear();
        receive(message);
        receive(kSetEid2A);
        send_results = {-1};
        EXPECT_EQ(get_bmc_by_owner(&ctx), 0) << message;
        EXPECT_EQ(incoming.size(), 1u) << message;
    }
}

TEST_F(GetBmcByOwner, AFailedReceiveEndsIt) {
    incoming.push_back({-110, Bytes()});
    receive(kSetEid2A);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(incoming.size(), 1u);
}

TEST_F(GetBmcByOwner, MissingOperationsEndItAtOnce) {
    EXPECT_EQ(get_bmc_by_owner(nullptr), 0);
    mctp_ctx broken = ctx;
    broken.xfer = nullptr;
    EXPECT_EQ(get_bmc_by_owner(&broken), 0);
    broken = ctx;
    broken.recv = nullptr;
    EXPECT_EQ(get_bmc_by_owner(&broken), 0);
    broken = ctx;
    broken.send = nullptr;
    EXPECT_EQ(get_bmc_by_owner(&broken), 0);
    EXPECT_EQ(received, 0u);
}

// ---- The receive operations that deliver the type byte ----

class RecvWithType : public test::PlatformTest, public ::testing::WithParamInterface<uint8_t> {
protected:
    int32_t receive(int32_t capacity) {
        Guarded buffer(static_cast<size_t>(std::max(capacity, 0)));
        const int32_t result = mctp_smbus_recv_with_type(&ctx, capacity, buffer.data());
        EXPECT_TRUE(buffer.intact());
        message = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(buffer.untouched_from(message.size()));
        return result;
    }

    mctp_ctx ctx = test::ready_context(GetParam());
    Bytes message;
};

INSTANTIATE_TEST_SUITE_P(Kind, RecvWithType,
                         ::testing::Values(MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS),
                         [](const auto& parameter) {
                             return std::string(parameter.param == 0 ? "Smbus" : "Sl8");
                         });

TEST_P(RecvWithType, DeliversTheTypeByteAndTheBody) {
    port().queue({hex("01 08 0A CB 00 80 02")});
    EXPECT_EQ(receive(64), 3);
    EXPECT_EQ(message, hex("00 80 02"));
    EXPECT_EQ(ctx.binding_eids[0], 0x0A);
    EXPECT_EQ(ctx.tag, 3);
}

TEST_P(RecvWithType, JoinsPackets) {
    port().queue(test::split(hex("7E") + test::counting(200), 0x08, 0x0A, 8, 64));
    EXPECT_EQ(receive(256), 201);
    EXPECT_EQ(message, hex("7E") + test::counting(200));
}

TEST_P(RecvWithType, ATypeByteAloneIsAMessage) {
    port().queue({hex("01 08 0A CB 05")});
    EXPECT_EQ(receive(64), 1);
    EXPECT_EQ(message, hex("05"));
}

TEST_P(RecvWithType, CutsTheMessageToTheRoom) {
    port().queue(test::split(hex("7E") + test::counting(200), 0x08, 0x0A, 8, 64));
    EXPECT_EQ(receive(100), 100);
    EXPECT_EQ(message, hex("7E") + test::counting(99));
    port().reads.clear();
    port().queue({hex("01 08 0A C8 00 80 02")});
    EXPECT_EQ(receive(1), 1);
    EXPECT_EQ(message, hex("00"));
}

TEST_P(RecvWithType, WithoutRoomNothingIsRead) {
    EXPECT_EQ(receive(0), 0);
    EXPECT_EQ(mctp_smbus_recv_with_type(&ctx, 8, nullptr), 0);
    EXPECT_EQ(port().slave_reads.size(), 0u);
}

TEST_P(RecvWithType, LocksAsTheStockReceiveDoes) {
    EXPECT_EQ(receive(64), -1);
    const std::vector<std::string> with_type = port().trace;
    port().trace.clear();
    Guarded buffer(64);
    EXPECT_EQ(ctx.recv(&ctx, 64, buffer.data()), -1);
    EXPECT_EQ(with_type, port().trace);
    port().refused_locks = {"bus 3"};
    port().queue({hex("01 08 0A CB 00 80 02")});
    EXPECT_EQ(receive(64), GetParam() == MCTP_BINDING_KIND_SMBUS ? -1 : 3);
}

TEST_P(RecvWithType, LetsABusOwnerGiveTheBmcItsEid) {
    ctx.recv = mctp_smbus_recv_with_type;
    // The owner's answer to Discovery Notify (tag 1), then its own requests.
    port().queue({hex("01 08 0A C1 00 00 0D 00"), hex("01 00 0A CA 00 82 0C"),
                  hex("01 00 0A CB 00 83 01 00 2A")});
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(ctx.src_eid, 0x2A);
    EXPECT_EQ(ctx.dest_eid, 0x0A);
    const std::vector<Bytes> packets = port().written_packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0], hex("01 00 00 C9 00 80 0D"));
    EXPECT_EQ(Bytes(packets[1].begin() + 3, packets[1].end()),
              hex("C2 00 02 0C 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(Bytes(packets[2].begin() + 3, packets[2].end()), hex("C3 00 03 01 00 00 2A 00"));
}

class PcieRecvWithType : public test::PlatformTest {
protected:
    PcieRecvWithType() {
        ctx.binding_kind = MCTP_BINDING_KIND_PCIE;
        ctx.skip_discovery = 1;
        EXPECT_EQ(mctp_init2(&ctx), 0);
    }

    int32_t receive(int32_t capacity) {
        Guarded buffer(static_cast<size_t>(capacity));
        const int32_t result = mctp_pcie_recv_with_type(&ctx, capacity, buffer.data());
        EXPECT_TRUE(buffer.intact());
        message = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(buffer.untouched_from(message.size()));
        return result;
    }

    mctp_ctx ctx{};
    Bytes message;
};

/// Puts a message into the record as if it came from the owner: EID 0x0A at 00:01.2, tag 5.
int from_owner(plt_pcie_request& request, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), request.message);
    request.length = static_cast<uint32_t>(bytes.size());
    request.src_eid = 0x0A;
    request.dest_eid = 0x00;
    request.bus = 0;
    request.device = 1;
    request.function = 2;
    request.tag = 5;
    return 1;
}

TEST_F(PcieRecvWithType, DeliversTheTypeByteAndTheBody) {
    for (const Bytes& bytes : {hex("00 80 02"), hex("05"), test::counting(64)}) {
        port().on_pcie = [&bytes](plt_pcie_request& request) { return from_owner(request, bytes); };
        EXPECT_EQ(receive(64), static_cast<int32_t>(bytes.size()));
        EXPECT_EQ(message, bytes);
    }
    EXPECT_EQ(Bytes(ctx.pcie_bdf, ctx.pcie_bdf + 3), hex("00 01 02"));
}

TEST_F(PcieRecvWithType, FailsWhereNothingOrTooMuchCameOrThePlatformFailed) {
    for (const Bytes& bytes : {Bytes(), test::counting(65)}) {
        port().on_pcie = [&bytes](plt_pcie_request& request) { return from_owner(request, bytes); };
        EXPECT_EQ(receive(64), -1);
    }
    port().on_pcie = nullptr;
    EXPECT_EQ(receive(64), -1);
    EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 64, nullptr), -1);
    EXPECT_EQ(receive(0), -1);
}

TEST_F(PcieRecvWithType, LetsABusOwnerGiveTheBmcItsEidAndAnswersTheSender) {
    ctx.recv = mctp_pcie_recv_with_type;
    ctx.tag = 0x80;
    std::deque<Bytes> requests{hex("00 82 0B"), hex("00 83 01 00 2A")};
    port().on_pcie = [&requests](plt_pcie_request& request) {
        if (request.operation == PLT_PCIE_WRITE_READ) {
            return from_owner(request, hex("00 00 0D 00"));
        }
        if (request.operation == PLT_PCIE_WRITE || requests.empty()) {
            return 0;
        }
        const Bytes next = requests.front();
        requests.pop_front();
        return from_owner(request, next);
    };
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(ctx.src_eid, 0x2A);
    EXPECT_EQ(ctx.dest_eid, 0x0A);
    std::vector<plt_pcie_request> answers;
    for (const plt_pcie_request& request : port().pcie_requests) {
        if (request.operation == PLT_PCIE_WRITE) {
            answers.push_back(request);
        }
    }
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(Bytes(answers[1].message, answers[1].message + answers[1].length),
              hex("00 03 01 00 00 2A 00"));
    for (const plt_pcie_request& answer : answers) {
        EXPECT_EQ(answer.dest_eid, 0x0Au);
        EXPECT_EQ(answer.bus, 0u);
        EXPECT_EQ(answer.device, 1u);
        EXPECT_EQ(answer.function, 2u);
        EXPECT_EQ(answer.tag, 5);
    }
}

}  // namespace
