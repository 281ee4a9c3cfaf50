// SPDX-License-Identifier: Apache-2.0
// The management commands that move data: NVMe-MI data structures and VPD.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::counting;
using test::Guarded;
using test::hex;
using test::mi_response;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

Bytes le16(size_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

// ---- Read NVMe-MI Data Structure ----

class MiStructure : public test::NvmeTest {
protected:
    /// Reads a structure whose response says that it has this length, and has this many bytes.
    Outcome read(uint8_t type, size_t says, size_t has, uint32_t capacity = 5120) {
        start_over();
        room = Guarded(capacity);
        length = 0xEEEE;
        answer({mi_response(le16(says) + Bytes{0x77}, counting(has, 0x40))});
        const uint32_t nmd0 = NVMEMI_DS(type, 0, 0);
        return test::run([&] {
            return nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, room.data(), capacity, &length);
        });
    }
    /// Whether nothing was handed out.
    bool untouched() const { return room.intact() && room.untouched_from(0) && length == 0xEEEE; }

    Guarded room{0};
    uint16_t length = 0;
};

std::string mismatch(size_t says) {
    char text[64];
    std::snprintf(text, sizeof text, "ds size missmatch (%zu:32)\n", says);
    return text;
}

TEST_F(MiStructure, TypePortAndControllerAreDword0) {
    answer({mi_response(hex("20 00 00"), counting(32))});
    uint8_t data[32];
    const uint32_t nmd0 = NVMEMI_DS(NVMEMI_DTYP_PORT, 0x56, 0x789A);
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, data, sizeof data, &length), 0);
    EXPECT_EQ(endpoint.messages(), Texts{"08 00 00 00 00 00 00 9a 78 56 01 00 00 00 00"});
}

TEST_F(MiStructure, FixedStructuresOf32BytesAreHandedOut) {
    for (uint8_t type : {NVMEMI_DTYP_SUBSYSTEM, NVMEMI_DTYP_PORT, NVMEMI_DTYP_CONTROLLER}) {
        SCOPED_TRACE(int{type});
        const Outcome outcome = read(type, 32, 32);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(length, 32);
        EXPECT_EQ(room.head(32), counting(32, 0x40));
        EXPECT_TRUE(room.intact() && room.untouched_from(32));
    }
}

TEST_F(MiStructure, AStructureOfType1With31BytesIsAMismatch) {
    const Outcome outcome = read(NVMEMI_DTYP_PORT, 31, 31);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "ds size missmatch (31:32)\n");
    EXPECT_TRUE(untouched());
}

TEST_F(MiStructure, FixedStructuresOfAnyOtherLengthAreAMismatch) {
    for (uint8_t type : {NVMEMI_DTYP_SUBSYSTEM, NVMEMI_DTYP_PORT, NVMEMI_DTYP_CONTROLLER}) {
        for (size_t says : {0u, 1u, 31u, 33u, 255u, 256u, 288u, 0x2000u, 0xFFFEu, 0xFFFFu}) {
            SCOPED_TRACE(testing::Message() << "type " << int{type} << ", " << says);
            const Outcome outcome = read(type, says, 64);
            EXPECT_EQ(outcome.result, -1);
            EXPECT_EQ(outcome.out, mismatch(says));
            EXPECT_TRUE(untouched());
        }
    }
}

TEST_F(MiStructure, ListsAreTakenWithTheLengthThatComes) {
    for (uint8_t type : {NVMEMI_DTYP_CONTROLLER_LIST, NVMEMI_DTYP_OPTIONAL_COMMANDS}) {
        for (size_t says : {0u, 1u, 2u, 31u, 32u, 33u, 255u, 4096u, 5112u, 5113u}) {
            SCOPED_TRACE(testing::Message() << "type " << int{type} << ", " << says);
            const Outcome outcome = read(type, says, says);
            EXPECT_EQ(outcome.result, 0);
            EXPECT_EQ(outcome.out, "");
            EXPECT_EQ(length, says);
            EXPECT_EQ(room.head(says), counting(says, 0x40));
            EXPECT_TRUE(room.intact() && room.untouched_from(says));
        }
    }
}

TEST_F(MiStructure, BytesBehindTheLengthAreNotHandedOut) {
    EXPECT_EQ(read(NVMEMI_DTYP_CONTROLLER_LIST, 6, 60).result, 0);
    EXPECT_EQ(length, 6);
    EXPECT_TRUE(room.untouched_from(6));
}

TEST_F(MiStructure, TypesFrom5OnAreUnsupported) {
    for (unsigned type = 5; type < 256; type++) {
        SCOPED_TRACE(type);
        char text[64];
        std::snprintf(text, sizeof text, "unsupported DTYP (%x)\n", type);
        const Outcome outcome = read(static_cast<uint8_t>(type), 32, 32);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, text);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_TRUE(untouched());
    }
}

TEST_F(MiStructure, ALengthThatLiesHandsNothingOut) {
    for (size_t has : {0u, 1u, 31u, 64u, 5112u}) {
        for (size_t says : {has + 1, has + 4, size_t{5114}, size_t{0x7FFF}, size_t{0xFFFF}}) {
            SCOPED_TRACE(testing::Message() << "says " << says << ", has " << has);
            const Outcome outcome = read(NVMEMI_DTYP_OPTIONAL_COMMANDS, says, has);
            EXPECT_EQ(outcome.result, -1);
            EXPECT_EQ(outcome.out, "");
            EXPECT_TRUE(untouched());
        }
    }
    EXPECT_EQ(read(NVMEMI_DTYP_SUBSYSTEM, 32, 31).result, -1);
    EXPECT_TRUE(untouched());
}

TEST_F(MiStructure, TheCallersRoomIsAsGoodAsExact) {
    EXPECT_EQ(read(NVMEMI_DTYP_SUBSYSTEM, 32, 32, 32).result, 0);
    EXPECT_TRUE(room.intact());
    for (uint32_t capacity : {0u, 1u, 31u}) {
        SCOPED_TRACE(capacity);
        EXPECT_EQ(read(NVMEMI_DTYP_SUBSYSTEM, 32, 32, capacity).result, -1);
        EXPECT_TRUE(untouched());
    }
    EXPECT_EQ(read(NVMEMI_DTYP_CONTROLLER_LIST, 0, 0, 0).result, 0);
    EXPECT_EQ(length, 0);
}

TEST_F(MiStructure, NullArgumentsAreRefusedWithoutAnExchange) {
    uint8_t data[32];
    const uint32_t nmd0 = 0;
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, nullptr, data, 32, &length), -1);
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, nullptr, 32, &length), -1);
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, data, 32, nullptr), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- VPD ----

class MiVpd : public test::NvmeTest {
protected:
    /// Reads this many bytes when so many come.
    int32_t read(uint16_t length, size_t comes) {
        start_over();
        room = Guarded(length);
        answer({mi_response(Bytes(3), counting(comes, 0x40))});
        const int32_t result =
            test::run([&] { return nvmemi_vpd_read(&ctx, 0x0102, length, room.data()); }).result;
        EXPECT_TRUE(room.intact());
        EXPECT_EQ(libc.live_blocks(), 0u);
        return result;
    }
    int32_t write(const Bytes& data) {
        start_over();
        answer({mi_response()});
        const auto length = static_cast<uint16_t>(data.size());
        return nvmemi_vpd_write(&ctx, data.data(), 0xFFFF, length);
    }

    Guarded room{0};
};

TEST_F(MiVpd, OffsetAndLengthOfAReadAreTheTwoDwords) {
    for (const auto& [offset, length, request] :
         {std::tuple{0, 1, "08 00 00 05 00 00 00 00 00 00 00 01 00 00 00"},
          std::tuple{0xABCD, 256, "08 00 00 05 00 00 00 cd ab 00 00 00 01 00 00"},
          std::tuple{0xFFFF, 0xFFFF, "08 00 00 05 00 00 00 ff ff 00 00 ff ff 00 00"}}) {
        start_over();
        Bytes data(static_cast<size_t>(length));
        test::run([&, at = static_cast<uint16_t>(offset)] {
            return nvmemi_vpd_read(&ctx, at, static_cast<uint16_t>(data.size()), data.data());
        });
        EXPECT_EQ(endpoint.messages(), Texts(3, request));
    }
}

TEST_F(MiVpd, ReadsOfEveryLengthThatFitsAreHandedOut) {
    for (uint16_t length : {0, 1, 2, 32, 255, 256, 257, 4096, 5112, 5113}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(read(length, length), 0);
        EXPECT_EQ(endpoint.calls[0].capacity, length + 7);
        EXPECT_EQ(room.head(length), counting(length, 0x40));
    }
}

TEST_F(MiVpd, AReadOfMoreThanAResponseHoldsFails) {
    for (uint16_t length : {5114, 5120, 0x7FFF, 0xFFFE, 0xFFFF}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(read(length, 5113), -1);
        EXPECT_EQ(endpoint.calls[0].capacity, 5120);
        EXPECT_TRUE(room.untouched_from(0));
    }
}

TEST_F(MiVpd, AReadThatGetsFewerBytesHandsNothingOut) {
    for (size_t comes = 0; comes < 32; comes++) {
        SCOPED_TRACE(comes);
        EXPECT_EQ(read(32, comes), -1);
        EXPECT_TRUE(room.untouched_from(0));
    }
}

TEST_F(MiVpd, NullDataIsRefusedWithoutAnExchange) {
    for (uint16_t length : {0, 1}) {
        EXPECT_EQ(nvmemi_vpd_read(&ctx, 0, length, nullptr), -1);
        EXPECT_EQ(nvmemi_vpd_write(&ctx, nullptr, 0, length), -1);
    }
    EXPECT_EQ(port().syslog, Texts());
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_F(MiVpd, AWriteOf256BytesGoesOutIn271) {
    const Bytes data = counting(256);
    EXPECT_EQ(write(data), 0);
    ASSERT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(endpoint.calls[0].bytes.size(), 271u);
    EXPECT_EQ(endpoint.calls[0].bytes, hex("08 00 00 06 00 00 00 ff ff 00 00 00 01 00 00") + data);
}

TEST_F(MiVpd, AWriteOf257BytesIsRefusedWithoutAnExchange) {
    for (size_t length : {257u, 258u, 512u, 0xFFFFu}) {
        SCOPED_TRACE(length);
        const Bytes data(length);
        const Outcome outcome = test::run([&] { return write(data); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_EQ(libc.allocations(), 0);
    }
}

TEST_F(MiVpd, ShortWritesGoOutAsLongAsTheyAre) {
    const uint8_t none = 0x5A;
    start_over();
    answer({mi_response()});
    EXPECT_EQ(nvmemi_vpd_write(&ctx, &none, 0xFFFF, 0), 0);
    EXPECT_EQ(endpoint.messages(), Texts{"08 00 00 06 00 00 00 ff ff 00 00 00 00 00 00"});
    EXPECT_EQ(write(hex("5a")), 0);
    EXPECT_EQ(endpoint.messages(), Texts{"08 00 00 06 00 00 00 ff ff 00 00 01 00 00 00 5a"});
    EXPECT_EQ(write(Bytes(255, 0x11)), 0);
    EXPECT_EQ(endpoint.calls[0].bytes.size(), 270u);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

// ---- On the wire ----

class MiDataOnSmbus : public test::NvmeSmbusTest {};

TEST_F(MiDataOnSmbus, AWriteOf256BytesTakesFivePackets) {
    const Bytes data = counting(256);
    const Outcome outcome =
        exchange({mi_response()}, [&] { return nvmemi_vpd_write(&ctx, data.data(), 0xFFFF, 256); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(packets(),
              (Texts{"01 1d 08 89 84 08 00 00 06 00 00 00 ff ff 00 00 00 01 00 00 " +
                         to_hex(counting(48, 0x00)),
                     "01 1d 08 19 " + to_hex(counting(64, 0x30)),
                     "01 1d 08 29 " + to_hex(counting(64, 0x70)),
                     "01 1d 08 39 " + to_hex(counting(64, 0xB0)),
                     "01 1d 08 49 f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff da 7a aa c5"}));
}

/// Type byte, 15 bytes, 44 of data and the integrity check: one packet of 64.
TEST_F(MiDataOnSmbus, AWriteThatFillsOnePacketHasItsEnd) {
    const Bytes data = counting(44);
    EXPECT_EQ(exchange({mi_response()}, [&] { return nvmemi_vpd_write(&ctx, data.data(), 0, 44); })
                  .result,
              0);
    EXPECT_EQ(packets(), Texts{"01 1d 08 c9 84 08 00 00 06 00 00 00 00 00 00 00 2c 00 00 00 " +
                               to_hex(data) + " 78 fd cb 81"});
}

TEST_F(MiDataOnSmbus, AReadOf256BytesIsPutTogether) {
    const Bytes content = counting(256, 0x80);
    Guarded data(256);
    const Outcome outcome = exchange({mi_response(Bytes(3), content)},
                                     [&] { return nvmemi_vpd_read(&ctx, 0, 256, data.data()); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(data.head(256), content);
    EXPECT_TRUE(data.intact());
}

TEST_F(MiDataOnSmbus, EveryReadLengthIsFreeOfTheIntegrityCheck) {
    for (uint16_t length = 0; length <= 130; length++) {
        SCOPED_TRACE(length);
        const Bytes content = counting(length, 0x80);
        Guarded data(length);
        const Outcome outcome = exchange({mi_response(Bytes(3), content)}, [&] {
            return nvmemi_vpd_read(&ctx, 0, length, data.data());
        });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(data.head(length), content);
        EXPECT_TRUE(data.intact());
    }
}

TEST_F(MiDataOnSmbus, AReadThatGetsFourBytesFewerDoesNotTakeTheCheckForData) {
    Guarded data(32);
    const Outcome outcome = exchange({mi_response(Bytes(3), counting(28))},
                                     [&] { return nvmemi_vpd_read(&ctx, 0, 32, data.data()); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(data.untouched_from(0));
}

}  // namespace
