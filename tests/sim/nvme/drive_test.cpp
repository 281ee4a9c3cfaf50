// SPDX-License-Identifier: Apache-2.0
// The NVMe drive: messages and their integrity check, more processing, faults (NVMe-MI).
#include "drive_fixture.h"

#include "sim/mctp/pcie_fixture.h"

namespace {

using namespace sim_test;
using sim::NvmeCommandSet;
using Kind = sim::NvmeFault::Kind;

// ---- Messages ----

using NvmeMessages = NvmeTest;

TEST_F(NvmeMessages, RecordedRequestsAreAnswered) {
    open_drive(R"("ports": [{"type": "smbus"}])");
    // Set the transmission unit to 250, as published with its answer.
    send_message(bytes("84 08 00 00 03 00 00 00 03 00 00 00 fa 00 00 00 d2 88 b4 01"));
    EXPECT_EQ(hex(receive_message()), "84 88 00 00 00 00 00 00 24 55 77 22");
    send_message(bytes("84 08 00 00 01 00 00 00 00 00 00 00 00 00 00 80 aa ef 81 b4"));
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00 38 ff 23 00 01 00 00 00");
    EXPECT_EQ(drive->bad_checks(), 0u);
}

TEST_F(NvmeMessages, WrongIntegrityCheckIsDropped) {
    open_drive();
    const std::vector<uint8_t> good =
        bytes("84 08 00 00 01 00 00 00 00 00 00 00 00 00 00 80 aa ef 81 b4");
    for (size_t bit = 8; bit < good.size() * 8; ++bit) {
        std::vector<uint8_t> bad = good;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ 1u << bit % 8);
        send_message(bad);
        ASSERT_EQ(checked(receive_message()), kSilence) << bit;
    }
    // A response is no request, whatever its check is.
    EXPECT_EQ(drive->malformed(), 1u);
    EXPECT_EQ(drive->bad_checks(), (good.size() - 1) * 8 - 1);
    EXPECT_EQ(drive->count(NvmeCommandSet::kManagement, 0x01), 0u);
    send_message(good);
    EXPECT_NE(checked(receive_message()), kSilence);
}

TEST_F(NvmeMessages, WithoutIntegrityCheckNobodyAnswers) {
    open_drive();
    send_message(bytes("04 08 00 00 01 00 00 00 00 00 00 00 00 00 00 80 aa ef 81 b4"));
    EXPECT_EQ(checked(receive_message()), kSilence);
    EXPECT_EQ(exchange(3, 0x3A, "01 09 08 c9 00 80 05"), "01 08 09 c1 00 00 05 00 01 04");
}

TEST_F(NvmeMessages, ShortAndLongOnesAreAnsweredOrDropped) {
    open_drive();
    const sim::Bytes body = bytes("08 00 00 01 00 00 00 00 00 00 00 00 00 00 00");
    for (size_t length = 0; length < body.size(); ++length) {
        EXPECT_EQ(ask(sim::Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(length))),
                  length < 4 ? kSilence : "88 00 00 05 00 00 00")
            << length;
    }
    EXPECT_EQ(manage(0x01, 0, 0, "00"), "06 00 00 00");
    EXPECT_EQ(drive->malformed(), 4u);
    sim::Bytes largest = body;
    largest.resize(4219);
    EXPECT_EQ(ask(largest), "88 00 00 06 00 00 00");
    largest.push_back(0);
    EXPECT_EQ(ask(largest), kSilence);
    EXPECT_EQ(drive->malformed(), 5u);
}

TEST_F(NvmeMessages, KindAndCommandSlotComeBack) {
    open_drive();
    const std::string rest = "00 00 07 00 00 00 00 00 00 01 00 00 00 00";
    EXPECT_EQ(ask("09" + rest), "89 00 00 04 00 0b 00") << "an unknown type of reset";
    for (const char* kind : {"00", "18", "20", "78"}) {
        EXPECT_EQ(ask(kind + rest).substr(9, 11), "03 00 00 00") << kind;
    }
    for (unsigned opcode = 0x08; opcode <= 0xFF; ++opcode) {
        EXPECT_EQ(manage(static_cast<uint8_t>(opcode)), "03 00 00 00") << opcode;
    }
}

TEST_F(NvmeMessages, MoreProcessingRequiredComesFirst) {
    open_drive(R"("more_processing": 1, "processing_us": 250000)");
    const uint64_t start = board->now_us();
    EXPECT_EQ(manage(0x04, 2), "01 00 03 00");
    EXPECT_LT(board->now_us() - start, 10'000u);
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00");
    EXPECT_GE(board->now_us() - start, 250'000u);
    drive->settings().more_processing = 0;
    EXPECT_EQ(manage(0x04, 2), kSuccess);
    drive->settings().processing_us = 100'000;
    drive->set_faults({{Kind::kMoreProcessing, NvmeCommandSet::kManagement, 0x04, 2, 1, 3}});
    EXPECT_EQ(manage(0x04, 2), kSuccess);
    EXPECT_EQ(manage(0x04, 2), "01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00");
    EXPECT_EQ(receive_message().size(), 0u);
}

// ---- Faults ----

using NvmeFaults = NvmeTest;

TEST_F(NvmeFaults, EachKind) {
    open_drive(R"("faults": [
        {"kind": "status", "set": "management", "opcode": 4, "value": 2},
        {"kind": "status", "set": "management", "opcode": 4, "at": 2, "value": 4, "byte": 513,
         "bit": 5},
        {"kind": "no_answer", "set": "management", "opcode": 4, "at": 3},
        {"kind": "bad_check", "set": "management", "opcode": 4, "at": 4},
        {"kind": "truncate", "set": "management", "opcode": 4, "at": 5, "length": 3},
        {"kind": "over_long", "set": "management", "opcode": 4, "at": 6, "bytes": 2},
        {"kind": "more_processing", "set": "management", "opcode": 4, "at": 7, "answers": 1},
        {"kind": "completion", "set": "admin", "opcode": 6, "sct": 2, "sc": 129, "count": 0}])");
    EXPECT_EQ(manage(0x04, 2), "02 00 00 00");
    EXPECT_EQ(manage(0x04, 2), "04 05 01 02");
    EXPECT_EQ(manage(0x04, 2), kSilence);
    sim::Bytes request = bytes("84 08 00 00 04 00 00 00 02 00 00 00 00 00 00 00");
    sim::append_le32(request, sim::crc32c(request));
    send_message(request);
    const sim::Bytes bad = receive_message();
    EXPECT_EQ(hex({bad.begin(), bad.end() - 4}), "84 88 00 00 00 00 00 00");
    EXPECT_NE(sim::le32(bad, 8), sim::crc32c(sim::ByteView(bad).first(8)));
    EXPECT_EQ(manage(0x04, 2), "short: 84 88 00 00");
    EXPECT_EQ(manage(0x04, 2), kSuccess + " ee ee");
    EXPECT_EQ(manage(0x04, 2), "01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00");
    EXPECT_EQ(manage(0x04, 2), kSuccess);
    EXPECT_EQ(drive->count(NvmeCommandSet::kManagement, 0x04), 8u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(admin({.opcode = 0x06}), ended(2u << 25 | 129u << 17));
    }
    drive->set_faults({});
    EXPECT_EQ(drive->count(NvmeCommandSet::kManagement, 0x04), 0u);
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1}), ended(0));
}

// ---- PCIe ----

class NvmeOnPcie : public PcieBoard {};

TEST_F(NvmeOnPcie, SpeaksNvmeMiThere) {
    open(board_with(R"({"name": "d", "type": "nvme", "transport": "pcie", "bdf": "47:00.0",
        "drive": {}})"));
    plt_pcie_request request =
        to(0x47, 0, 0, "84 08 00 00 01 00 00 00 00 00 00 00 00 00 00 80 aa ef 81 b4");
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(message_of(request).substr(0, 48),
              "84 88 00 00 00 00 00 00 38 ff 23 00 01 00 00 00 ");
}

}  // namespace
