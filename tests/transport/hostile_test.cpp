// SPDX-License-Identifier: Apache-2.0
// Devices and contexts that lie: every call fails with its ordinary error, inside its buffers.
#include <sideband/mctp.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Capture;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::kEom;
using test::kSom;
using test::kTo;
using test::packet;
using test::port;
using test::ready_context;
using test::sequence;
using test::SlaveRead;
using test::smbus_context;
using test::operator+;
using Lines = std::vector<std::string>;

const Bytes kGetTid = hex("80 02");

/// The three ways to exchange over SMBus.
struct Way {
    const char* name;
    uint8_t kind;
    int32_t (*init)(mctp_ctx*);
};

class Hostile : public test::PlatformTest, public ::testing::WithParamInterface<Way> {
protected:
    Hostile() {
        ctx.skip_discovery = 1;
        EXPECT_EQ(GetParam().init(&ctx), 0);
    }

    /// Exchanges into a guarded buffer.
    int32_t xfer(const Bytes& request = kGetTid, int32_t capacity = 64) {
        Guarded buffer(static_cast<size_t>(capacity));
        int32_t result = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()), capacity,
                                  request.data(), buffer.data());
        EXPECT_TRUE(buffer.intact());
        EXPECT_GE(result, -1);
        EXPECT_LE(result, capacity);
        EXPECT_EQ(port().held, Lines());
        response = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(result < 0 || buffer.untouched_from(static_cast<size_t>(result)));
        return result;
    }

    /// The next request's tag is 1.
    void new_exchange() {
        ctx.tag = 0;
        port().reads.clear();
    }

    mctp_ctx ctx = smbus_context(GetParam().kind);
    Bytes response;

private:
    Capture dumps_;  ///< keeps the traces of dropped packets off the terminal
};

INSTANTIATE_TEST_SUITE_P(Way, Hostile,
                         ::testing::Values(Way{"Smbus", MCTP_BINDING_KIND_SMBUS, mctp_init2},
                                           Way{"Sl8", MCTP_BINDING_KIND_SL8_SMBUS, mctp_init2},
                                           Way{"Delayed", MCTP_BINDING_KIND_SMBUS,
                                               mctp_init2_with_i2c_delay}),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

// ---- Slave reads that lie ----

TEST_P(Hostile, SlaveReadsOfZeroToThreeBytesFailTheExchange) {
    for (int32_t result : {0, 1, 2, 3}) {
        new_exchange();
        port().reads = {{result, test::counting(200)},
                        SlaveRead::of(test::block(hex("01 08 1D C1 00 AA")))};
        EXPECT_EQ(xfer(), -1) << result;
    }
}

TEST_P(Hostile, ASlaveReadOfFourBytesIsADroppedPacket) {
    port().reads = {SlaveRead::of(hex("0F 01 65 77")),
                    SlaveRead::of(test::block(hex("01 08 1D C1 00 AA")))};
    EXPECT_EQ(xfer(), 1);
    EXPECT_EQ(response, hex("AA"));
}

TEST_P(Hostile, SlaveReadsLargerThanThePlatformsBufferFailTheExchange) {
    for (int32_t result : {1025, 4096, 65540, INT32_MAX}) {
        new_exchange();
        port().reads = {{result, test::block(hex("01 08 1D C1 00 AA"))}};
        EXPECT_EQ(xfer(), -1) << result;
    }
}

TEST_P(Hostile, ASlaveReadLargerThanAskedIsCutToWhatWasAsked) {
    port().reads = {SlaveRead::of(hex("0F FF 65 01 08 1D C1 00") + test::counting(1000))};
    EXPECT_EQ(xfer(), 64);
    EXPECT_EQ(response, test::counting(64));
}

TEST_P(Hostile, ASlaveReadThatClaimsMoreThanItStoredGivesZeros) {
    port().reads = {{20, hex("0F 11 65 01 08 1D C1 00 AA")}};
    EXPECT_EQ(xfer(), 11);
    EXPECT_EQ(response, hex("AA") + Bytes(10, 0));
}

TEST_P(Hostile, EveryClaimedLengthOfASlaveReadStaysInsideTheBuffer) {
    const Bytes good = test::block(hex("01 08 1D C1 00") + test::counting(64));
    for (int32_t claimed = -2; claimed <= 1030; claimed++) {
        new_exchange();
        port().reads = {{claimed, good}};
        const int32_t result = xfer();
        // 3 bytes of SMBus header, 5 of MCTP header and type, the PEC: behind them is the body.
        const bool has_body = claimed > 9 && claimed <= 1024;
        EXPECT_EQ(result, has_body ? std::min(claimed - 9, 64) : -1) << claimed;
    }
}

TEST_P(Hostile, TheByteCountOfTheBlockIsNotBelieved) {
    for (uint8_t count : {0, 1, 2, 254, 255}) {
        new_exchange();
        Bytes lying = test::block(hex("01 08 1D C1 00 AA"));
        lying[1] = count;
        port().reads = {SlaveRead::of(lying)};
        EXPECT_EQ(xfer(), 1);
        EXPECT_EQ(response, hex("AA"));
    }
}

// ---- Contexts that nothing can be done with ----

TEST_P(Hostile, UnitSizesThatNoPacketHoldsFailEveryCall) {
    for (uint16_t unit : {0, 121, 255, 256, 65535}) {
        ctx.unit_size = unit;
        Guarded buffer(64);
        EXPECT_EQ(xfer(), -1) << unit;
        EXPECT_EQ(ctx.send(&ctx, 2, kGetTid.data(), 1), -1);
        EXPECT_EQ(ctx.recv(&ctx, 64, buffer.data()), -1);
        EXPECT_TRUE(buffer.untouched_from(0));
    }
    EXPECT_EQ(port().trace_of({"write", "read", "mux"}), Lines());
}

TEST_P(Hostile, TheLargestUnitSizeWorksBothWays) {
    ctx.unit_size = 120;
    Endpoint endpoint({test::counting(1000)}, false);
    endpoint.unit = 120;
    EXPECT_EQ(xfer(test::counting(1000, 9), 1000), 1000);
    EXPECT_EQ(response, test::counting(1000));
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{test::counting(1000, 9)});
}

TEST_P(Hostile, MissingOperationPointersFailTheExchange) {
    static const mctp_binding kEmpty{nullptr, nullptr, nullptr};
    static const mctp_binding kWriteOnly{smbus_block_write, nullptr, nullptr};
    static const mctp_binding kReadOnly{nullptr, smbus_block_read, nullptr};
    Guarded buffer(64);
    for (const mctp_binding* binding : {static_cast<const mctp_binding*>(nullptr), &kEmpty}) {
        ctx.binding = binding;
        EXPECT_EQ(xfer(), -1);
        EXPECT_EQ(ctx.send(&ctx, 2, kGetTid.data(), 1), -1);
        EXPECT_EQ(ctx.recv(&ctx, 64, buffer.data()), -1);
    }
    EXPECT_EQ(port().trace_of({"write", "read"}), Lines());
    ctx.binding = &kWriteOnly;
    EXPECT_EQ(xfer(), -1);
    EXPECT_EQ(port().slave_reads.size(), 0u);
    ctx.binding = &kReadOnly;
    EXPECT_EQ(xfer(), -1);
    EXPECT_EQ(port().slave_reads.size(), 0u);
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_P(Hostile, MissingSendOrRecvFailsTheExchangeThatNeedsThem) {
    if (GetParam().kind == MCTP_BINDING_KIND_SMBUS && GetParam().init == mctp_init2) {
        ctx.send = nullptr;
        ctx.recv = nullptr;
        Endpoint endpoint({hex("00")}, false);
        EXPECT_EQ(xfer(), 1) << "this one needs neither";
        return;
    }
    const mctp_send_op send = ctx.send;
    ctx.send = nullptr;
    EXPECT_EQ(xfer(), -1);
    ctx.send = send;
    ctx.recv = nullptr;
    EXPECT_EQ(xfer(), -1);
    EXPECT_EQ(port().slave_reads.size(), 0u);
}

// ---- Floods ----

/// Sends what next gives, for ever; counts the reads.
void expect_flood_given_up(const std::function<int32_t()>& call,
                           const std::function<Bytes()>& next) {
    size_t reads = 0;
    port().on_read = [&](const test::ReadRecord&) {
        reads++;
        port().slave_reads.clear();
        port().muxes.clear();
        port().trace.clear();
        return SlaveRead::of(test::block(next()));
    };
    EXPECT_EQ(call(), -1);
    EXPECT_GE(reads, 1000u);
    EXPECT_LE(reads, 100000u);
}

TEST_P(Hostile, AFloodOfBadPacketsIsGivenUp) {
    const Bytes floods[] = {
        hex("01 08 1D"),           // shorter than a header
        hex("01 08 1D C1"),        // no type byte
        hex("01 08 1D 41 00 EE"),  // no SOM
        hex("01 08 1D C2 00 EE"),  // wrong tag
    };
    for (const Bytes& bad : floods) {
        new_exchange();
        expect_flood_given_up([this] { return xfer(); }, [&bad] { return bad; });
    }
}

TEST_P(Hostile, AFloodInTheMiddleOfAMessageIsGivenUp) {
    const Bytes floods[] = {
        hex("01 08 1D 21 EE"),  // wrong sequence
        hex("01 08 1D 52 EE"),  // wrong tag
        hex("01 08 1D 1A EE"),  // TO with another tag
        hex("01 08 1D 11"),     // no payload
    };
    for (const Bytes& bad : floods) {
        new_exchange();
        bool begun = false;
        expect_flood_given_up([this] { return xfer(); },
                              [&] {
                                  Bytes next = begun ? bad : hex("01 08 1D 81 00 AA");
                                  begun = true;
                                  return next;
                              });
    }
}

TEST_P(Hostile, AFewHundredStalePacketsAreSurvived) {
    for (int i = 0; i < 999; i++) {
        port().reads.push_back(SlaveRead::of(test::block(hex("01 08 1D C2 00 EE"))));
    }
    port().queue({hex("01 08 1D C1 00 AA")});
    EXPECT_EQ(xfer(), 1);
    EXPECT_EQ(response, hex("AA"));
}

TEST_P(Hostile, AMessageInTinyPacketsIsNoFlood) {
    Endpoint endpoint({test::counting(4095)}, false);
    endpoint.unit = 2;
    EXPECT_EQ(xfer(kGetTid, 4096), 4095);
    EXPECT_EQ(response, test::counting(4095));
}

// ---- The sweep ----

/// The three packets of a good response to tag 1.
std::vector<Bytes> good_packets() {
    return test::split(hex("00") + test::counting(60, 0x40), 0x08, 0x1D, 1, 25);
}

TEST_P(Hostile, EveryTruncationOfEveryPacketIsHarmless) {
    const std::vector<Bytes> packets = good_packets();
    for (size_t which = 0; which < packets.size(); which++) {
        const Bytes whole = test::block(packets[which]);
        for (size_t length = 0; length < whole.size(); length++) {
            new_exchange();
            port().queue(packets);
            port().reads[which] =
                SlaveRead::of(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
            const int32_t result = xfer();
            if (length < 4) {
                EXPECT_EQ(result, -1);
            } else {
                EXPECT_LT(result, 60) << "packet " << which << " cut to " << length;
            }
        }
    }
}

TEST_P(Hostile, EveryFlippedBitOfEveryPacketIsHarmless) {
    const std::vector<Bytes> packets = good_packets();
    for (size_t which = 0; which < packets.size(); which++) {
        const Bytes whole = test::block(packets[which]);
        for (size_t bit = 0; bit < whole.size() * 8; bit++) {
            new_exchange();
            port().queue(packets);
            port().reads[which].bytes[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
            const int32_t result = xfer();
            EXPECT_TRUE(result == -1 || (result >= 1 && result <= 61)) << result;
        }
    }
}

TEST_P(Hostile, EveryValueOfTheFlagByteIsHarmless) {
    const std::vector<Bytes> packets = good_packets();
    for (size_t which = 0; which < packets.size(); which++) {
        for (int flags = 0; flags < 256; flags++) {
            new_exchange();
            std::vector<Bytes> changed = packets;
            changed[which][3] = static_cast<uint8_t>(flags);
            port().queue(changed);
            const int32_t result = xfer();
            EXPECT_TRUE(result == -1 || (result >= 1 && result <= 61)) << result;
        }
    }
}

TEST_P(Hostile, EveryCapacityIsRespected) {
    for (int32_t capacity = 1; capacity <= 70; capacity++) {
        new_exchange();
        port().queue(good_packets());
        EXPECT_EQ(xfer(kGetTid, capacity), std::min(capacity, 60));
        EXPECT_EQ(response, test::counting(static_cast<size_t>(std::min(capacity, 60)), 0x40));
    }
}

// ---- The sweep through the control commands ----

struct Answer {
    const char* name;
    int32_t (*call)(mctp_ctx* ctx);
    const char* message;  ///< a good answer to instance ID 0, type byte first
};

int32_t routing_table_into_guarded(mctp_ctx* ctx) {
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    const int32_t result = mctp_get_routing_table_entries(ctx, 0, table.data());
    EXPECT_TRUE(table.intact());
    EXPECT_TRUE(result == 0 || table.untouched_from(0));
    return result;
}

int32_t look_up_endpoint(mctp_ctx* ctx) {
    mctp_ctx target{};
    target.pcie_bdf[0] = 0x41;
    target.pcie_bdf[1] = 1;
    target.dest_eid = 0x55;
    const int32_t result = get_eid_from_routing_table(ctx, &target);
    EXPECT_TRUE(result == 0 || target.dest_eid == 0x55);
    return result;
}

const Answer kHostileAnswers[] = {
    {"SetEndpointId", [](mctp_ctx* ctx) { return mctp_set_endpoint_id(ctx, 0x2A); },
     "00 00 01 00 00 2A 00"},
    {"GetEndpointId", mctp_get_endpoint_id, "00 00 02 00 2A 00 00"},
    {"GetEndpointUuid", mctp_get_endpoint_uuid,
     "00 00 03 00 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F"},
    {"AllocateEndpointIds",
     [](mctp_ctx* ctx) { return mctp_allocate_endpoint_ids(ctx, 0, 32, 64); },
     "00 00 08 00 00 20 40"},
    {"GetRoutingTableEntries", routing_table_into_guarded,
     "00 00 0A 00 FF 03 01 20 00 02 08 02 41 00 01 21 00 01 04 01 64 01 22 00 02 08 02 41 08"},
    {"PrepareForEndpointDiscovery", mctp_prepare_for_endpoint_discovery, "00 00 0B 00"},
    {"EndpointDiscovery", mctp_endpoint_discovery, "00 00 0C 00"},
    {"RoutingTableLookup", look_up_endpoint,
     "00 00 0A 00 FF 03 01 20 00 02 08 02 41 00 01 21 00 01 04 01 64 01 22 00 02 08 02 41 08"},
    {"Discovery", mctp_discovery, "00 00 02 00 2A 00 00"},
    {"AssignEid", mctp_assign_eid, "00 00 01 00 00 10 00"},
};

class HostileControl : public test::PlatformTest, public ::testing::WithParamInterface<Answer> {
protected:
    /// Runs the command on a fresh context with this one message for an answer.
    int32_t call(const Bytes& message) {
        mctp_ctx ctx = ready_context();
        for (const Bytes& one : test::split(message, 0x08, 0x1D, 1, 96)) {
            port().reads.push_back(SlaveRead::of(test::block(one)));
        }
        port().global.next_eid = 0;
        const int32_t result = GetParam().call(&ctx);
        EXPECT_EQ(port().held, Lines());
        EXPECT_EQ(ctx.uuid_end, 0);
        port().reads.clear();
        port().syslog.clear();
        port().console.clear();
        port().trace.clear();
        EXPECT_GE(result, -1);
        EXPECT_LE(result, 255);
        return result;
    }

    Bytes good() const { return hex(GetParam().message); }

private:
    Capture dumps_;
};

INSTANTIATE_TEST_SUITE_P(Command, HostileControl, ::testing::ValuesIn(kHostileAnswers),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(HostileControl, TheGoodAnswerIsGood) {
    EXPECT_GE(call(good()), 0);
}

TEST_P(HostileControl, EveryTruncationFailsOrIsAShorterGoodAnswer) {
    const Bytes whole = good();
    for (size_t length = 0; length < whole.size(); length++) {
        const int32_t result =
            call(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
        // Without type byte, header and completion code there is nothing to go by.
        EXPECT_TRUE(length >= 4 || result == -1) << length;
    }
}

TEST_P(HostileControl, EveryFlippedBitIsHarmless) {
    const Bytes whole = good();
    for (size_t bit = 0; bit < whole.size() * 8; bit++) {
        Bytes changed = whole;
        changed[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        const int32_t result = call(changed);
        const size_t byte = bit / 8;
        const bool header_bit = (byte == 1 && bit % 8 < 5) || byte == 2;
        EXPECT_TRUE(!header_bit || result == -1) << "bit " << bit;
        const bool completion_bit = byte == 3 && bit % 8 != 2;
        EXPECT_TRUE(!completion_bit || result == -1) << "bit " << bit;
    }
}

TEST_P(HostileControl, EveryByteAtItsExtremesIsHarmless) {
    const Bytes whole = good();
    for (size_t byte = 0; byte < whole.size(); byte++) {
        for (uint8_t value : {0, 1, 254, 255}) {
            Bytes changed = whole;
            changed[byte] = value;
            call(changed);
        }
    }
}

TEST_P(HostileControl, AnAnswerFarTooLongIsHarmless) {
    for (uint8_t fill : {0x00, 0x01, 0xFF}) {
        EXPECT_GE(call(good() + Bytes(1000, fill)), 0);
    }
}

}  // namespace
