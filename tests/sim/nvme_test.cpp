// SPDX-License-Identifier: Apache-2.0
// The NVMe drive: messages and their integrity check, management commands, faults (NVMe-MI).
#include "nvme_test.h"

#include <ranges>

#include "pcie_test.h"
#include "terminus_test.h"

namespace {

using sim::NvmeCommandSet;
using sim::NvmeFault;
using sim_test::drive_with;
using sim_test::kSilence;
using Kind = sim::NvmeFault::Kind;

constexpr uint32_t kAllFunctions = 0x81FF0000;
constexpr uint32_t kClear = 0x80000000;
const std::string kDone = "00 00 00 00";

// ---- Messages
// ------------------------------------------------------------------------------------

using NvmeMessages = sim_test::NvmeTest;

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
    EXPECT_EQ(manage(0x04, 2), kDone);
    drive->settings().processing_us = 100'000;
    drive->set_faults({{Kind::kMoreProcessing, NvmeCommandSet::kManagement, 0x04, 2, 1, 3}});
    EXPECT_EQ(manage(0x04, 2), kDone);
    EXPECT_EQ(manage(0x04, 2), "01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00");
    EXPECT_EQ(receive_message().size(), 0u);
}

// ---- Configuration
// -------------------------------------------------------------------------------

using NvmeConfiguration = sim_test::NvmeTest;

TEST_F(NvmeConfiguration, SmbusFrequency) {
    open_drive(R"("ports": [{"type": "pcie"}, {"type": "smbus", "highest_frequency": 2}])");
    EXPECT_EQ(manage(0x04, 0x01000001), "00 01 00 00");
    EXPECT_EQ(manage(0x03, 0x01000201), kDone);
    EXPECT_EQ(manage(0x04, 0x01000001), "00 02 00 00");
    EXPECT_EQ(manage(0x03, 0x01000301), "04 00 09 00") << "above what the port can";
    EXPECT_EQ(manage(0x03, 0x01000001), "04 00 09 00");
    EXPECT_EQ(manage(0x04, 0x00000001), "04 00 0b 00") << "no SMBus port";
    EXPECT_EQ(manage(0x03, 0x00000101), "04 00 0b 00");
    EXPECT_EQ(manage(0x04, 0x02000001), "04 00 0b 00") << "no port";
    EXPECT_EQ(manage(0x04, 0x00000000), "04 00 08 00") << "no configuration";
    EXPECT_EQ(manage(0x03, 0x00000004), "04 00 08 00");
    EXPECT_EQ(drive->ports()[1].frequency, 2);
}

TEST_F(NvmeConfiguration, TransmissionUnitTakesEffectOnTheOwnPort) {
    open_drive();
    EXPECT_EQ(manage(0x04, 0x01000003), "00 40 00 00");
    EXPECT_EQ(manage(0x03, 0x01000003, 63), "04 00 0c 00");
    EXPECT_EQ(manage(0x03, 0x01000003, 251), "04 00 0c 00");
    EXPECT_EQ(manage(0x03, 0x00000003, 65), "04 00 0c 00") << "the other port";
    EXPECT_EQ(manage(0x03, 0x02000003, 64), "04 00 0b 00");
    const uint64_t before = statistics(3).packets;
    manage(0x05, 0, 220);
    EXPECT_EQ(statistics(3).packets - before, 5u) << "1 and 232 bytes in 64 each";
    EXPECT_EQ(manage(0x03, 0x01000003, 250), kDone);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 fa 00 00");
    EXPECT_EQ(manage(0x05, 0, 220).size(), 224 * 3 - 1u);
    EXPECT_EQ(statistics(3).packets - before, 5u + 2 + 2 + 2);
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(manage(0x04, 0x01000003), "00 40 00 00");
}

TEST_F(NvmeConfiguration, HealthStatusChangeIsCleared) {
    open_drive();
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 01 00 00 00");
    drive->smart().percentage_used = 3;
    drive->smart().available_spare = 90;
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 03 01 0c 00 00");
    EXPECT_EQ(manage(0x03, 2, 0x0401), kDone);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 03 00 08 00 00");
    EXPECT_EQ(manage(0x04, 2), kDone) << "nothing to read back";
}

// ---- Health
// --------------------------------------------------------------------------------------

using NvmeHealth = sim_test::NvmeTest;

TEST_F(NvmeHealth, SubsystemPollReadsAndClears) {
    open_drive(R"("smart": {"critical_warning": 8, "available_spare": 5, "percentage_used": 120},
        "temperature": {"shape": "steps", "values": [-5, 80], "period_s": 20})");
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 f6 fb 78 01 00 00 00");
    board->advance_us(10'000'000);
    EXPECT_EQ(manage(0x01, 0, kClear), "00 00 00 00 38 f4 50 78 01 12 00 00");
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 f4 50 78 00 00 00 00");
    drive->settings().temperature = 130;
    EXPECT_EQ(manage(0x01).substr(18, 2), "7f");
    drive->settings().temperature = -80;
    EXPECT_EQ(manage(0x01).substr(18, 2), "c4");
    drive->settings().subsystem_status = 0x18;
    EXPECT_EQ(manage(0x01).substr(12, 2), "18");
}

TEST_F(NvmeHealth, ControllerPollSelects) {
    open_drive(R"("controllers": [{"id": 1}, {"id": 2, "port": 1}, {"id": 7}],
        "temperature": {"shape": "constant", "value": 40.7},
        "smart": {"available_spare": 99, "percentage_used": 2})");
    auto entry = [](const std::string& id, const std::string& status) {
        return " " + id + " 00 " + status + " 00 39 01 02 63 00 00 00 00 00 00 00 00";
    };
    EXPECT_EQ(manage(0x02, kAllFunctions),
              "00 00 00 03" + entry("01", "01") + entry("02", "01") + entry("07", "01"));
    EXPECT_EQ(manage(0x02, kAllFunctions | 3), "00 00 00 01" + entry("07", "01"));
    EXPECT_EQ(manage(0x02, 0x81010000), "00 00 00 02" + entry("01", "01") + entry("02", "01"));
    EXPECT_EQ(manage(0x02, 0x80FF0000), kDone) << "no functions included";
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x1F), kDone) << "nothing has changed";
    drive->smart().media_errors = 1;
    drive->settings().temperature = 40;
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x1F), kDone) << "the same in whole degrees";
    drive->settings().temperature = 70;
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x0D), kDone) << "neither of these";
    EXPECT_EQ(manage(0x02, 0x01000002, 0x80000002),
              "00 00 00 01 02 00 01 00 57 01 02 63 02 00 00 00 00 00 00 00")
        << "and clears them";
    EXPECT_EQ(manage(0x02, 0x01FF0000, 0x10).substr(0, 14), "00 00 00 02 01");
    EXPECT_EQ(manage(0x02, 0x01FF0002, 0x10).substr(0, 14), "00 00 00 01 07");
}

// ---- Data structures
// -----------------------------------------------------------------------------

using NvmeStructures = sim_test::NvmeTest;

std::string zeros(size_t count) {
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        out += " 00";
    }
    return out;
}

TEST_F(NvmeStructures, SubsystemAndPorts) {
    open_drive();
    EXPECT_EQ(manage(0x00, 0x00000000), "00 20 00 00 01 01 02" + zeros(29));
    EXPECT_EQ(manage(0x00, 0x01000000),
              "00 20 00 00 01 00 40 00 00 00 00 00 01 0f 04 04 04" + zeros(19));
    EXPECT_EQ(manage(0x00, 0x01010000),
              "00 20 00 00 02 00 fa 00 00 00 00 00 a6 03 3a 03" + zeros(20));
    EXPECT_EQ(manage(0x00, 0x01020000), "04 00 0a 00");
    EXPECT_EQ(manage(0x00, 0x05000000), "04 00 0b 00");
}

TEST_F(NvmeStructures, Controllers) {
    open_drive(R"("controllers": [{"id": 513}, {"id": 2, "port": 1}],
        "vendor_id": "0x1122", "subsystem_vendor_id": "0x3344", "device_id": "0x5566")");
    EXPECT_EQ(manage(0x00, 0x02000000), "00 06 00 00 02 00 02 00 01 02");
    EXPECT_EQ(manage(0x00, 0x02000003), "00 04 00 00 01 00 01 02");
    EXPECT_EQ(manage(0x00, 0x02000202), "00 02 00 00 00 00");
    EXPECT_EQ(manage(0x00, 0x03000002),
              "00 20 00 00 01" + zeros(7) + " 22 11 66 55 44 33 66 55" + zeros(16));
    EXPECT_EQ(manage(0x00, 0x03000003), "04 00 08 00");
}

TEST_F(NvmeStructures, OptionalCommandsAreThere) {
    open_drive();
    const std::vector<uint8_t> answer = bytes(manage(0x00, 0x04000000));
    ASSERT_EQ(answer.size(), 4 + 2 + 9 * 2u);
    EXPECT_EQ(hex({answer.begin(), answer.begin() + 8}), "00 14 00 00 09 00 08 06");
    for (size_t at = 8; at < answer.size(); at += 2) {
        EXPECT_EQ(answer[at], 0x10);
        EXPECT_NE(admin({.opcode = answer[at + 1], .id = 1, .dword10 = 0xFF}), failed(0, 0x01));
    }
}

// ---- VPD and reset
// -------------------------------------------------------------------------------

using NvmeVpd = sim_test::NvmeTest;

TEST_F(NvmeVpd, IsReadAndWritten) {
    open_drive(R"("vpd": "0102030405", "vpd_size": 512)");
    EXPECT_EQ(manage(0x05, 1, 6), kDone + " 02 03 04 05 ff ff");
    EXPECT_EQ(manage(0x05, 512, 1), "04 00 08 00");
    EXPECT_EQ(manage(0x05, 510, 3), "04 00 0c 00");
    EXPECT_EQ(manage(0x05, 0, 0), kDone);
    EXPECT_EQ(manage(0x06, 2, 3, "aabbcc"), kDone);
    EXPECT_EQ(manage(0x05, 0, 6), kDone + " 01 02 aa bb cc ff");
    EXPECT_EQ(manage(0x06, 2, 4, "aabbcc"), "06 00 00 00");
    EXPECT_EQ(manage(0x06, 2, 2, "aabbcc"), "06 00 00 00");
    EXPECT_EQ(manage(0x06, 512, 1, "aa"), "04 00 08 00");
    EXPECT_EQ(manage(0x06, 511, 2, "aabb"), "04 00 0c 00");
    EXPECT_EQ(hex({drive->vpd().begin() + 509, drive->vpd().end()}), "ff ff ff");
    std::string all;
    for (int i = 0; i < 256; ++i) {
        all += "5a";
    }
    EXPECT_EQ(manage(0x06, 256, 256, all), kDone);
    EXPECT_EQ(manage(0x05, 511, 1), kDone + " 5a");
}

TEST_F(NvmeVpd, WritesCanRunOut) {
    open_drive(R"("vpd_writes": 1)");
    EXPECT_EQ(drive->vpd().size(), 256u);
    EXPECT_EQ(manage(0x06, 0, 1, "01"), kDone);
    EXPECT_EQ(manage(0x06, 0, 1, "02"), "20 00 00 00");
    EXPECT_EQ(manage(0x05, 0, 1), kDone + " 01");
}

using NvmeReset = sim_test::NvmeTest;

TEST_F(NvmeReset, IsNotAnswered) {
    open_drive();
    manage(0x01, 0, kClear);
    EXPECT_EQ(manage(0x07), kSilence);
    EXPECT_EQ(drive->resets(), 1u);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 11 01 00 00");
    EXPECT_EQ(manage(0x02, kAllFunctions).substr(18, 2), "11") << "subsystem reset occurred";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(manage(0x01), "00 00 00 00 38 ff 23 00 01 00 00 00");
    EXPECT_EQ(drive->resets(), 1u);
}

// ---- Faults and the board file
// -------------------------------------------------------------------

using NvmeFaults = sim_test::NvmeTest;

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
    EXPECT_EQ(manage(0x04, 2), kDone + " ee ee");
    EXPECT_EQ(manage(0x04, 2), "01 00 01 00");
    EXPECT_EQ(checked(receive_message()), "88 00 00 00 00 00 00");
    EXPECT_EQ(manage(0x04, 2), kDone);
    EXPECT_EQ(drive->count(NvmeCommandSet::kManagement, 0x04), 8u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(admin({.opcode = 0x06}), ended(2u << 25 | 129u << 17));
    }
    drive->set_faults({});
    EXPECT_EQ(drive->count(NvmeCommandSet::kManagement, 0x04), 0u);
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1}), ended(0));
}

class NvmeBoardFile : public sim_test::NvmeTest {
protected:
    /// What is wrong with the keys of a drive.
    static std::string refused(const std::string& keys) {
        const std::string text = refusal_of(drive_with(keys));
        return text.substr(text.find(' ') + 1);
    }
    const std::string at = "devices[0].drive.";
};

TEST_F(NvmeBoardFile, ErrorsNameLineAndKey) {
    EXPECT_EQ(refusal_of(board_with(R"({"name": "n", "type": "nvme", "bus": 3, "address": 100})")),
              "10: devices[0].drive: is missing");
    EXPECT_EQ(refused(R"("color": 1)"), at + "color: no such key");
    EXPECT_EQ(refused(R"("model": "caf\u00e9")"),
              at + "model: must have at most 40 ASCII characters");
    EXPECT_EQ(refused(R"("serial": "012345678901234567890")"),
              at + "serial: must have at most 20 ASCII characters");
    EXPECT_EQ(refused(R"("ieee": "0011")"), at + "ieee: must have 3 bytes");
    EXPECT_EQ(refused(R"("ports": [])"), at + "ports: must have 1 to 16 ports");
    EXPECT_EQ(refused(R"("ports": [{"type": "smbus", "highest_frequency": 2, "frequency": 3}])"),
              at + "ports[0].frequency: must be a whole number from 1 to 2");
    EXPECT_EQ(refused(R"("controllers": [])"), at + "controllers: must have 1 to 127 controllers");
    EXPECT_EQ(refused(R"("controllers": [{"id": 1}, {"id": 1}])"),
              at + "controllers[1].id: appears twice");
    EXPECT_EQ(refused(R"("controllers": [{"id": 1, "port": 2}])"),
              at + "controllers[0].port: must be a whole number from 0 to 1");
}

TEST_F(NvmeBoardFile, ErrorsOfWhatADriveHas) {
    EXPECT_EQ(refused(R"("temperature": {"shape": "constant", "value": 300})"),
              at + "temperature: must stay within -100 to 200");
    EXPECT_EQ(refused(R"("features": [{"id": 1}, {"id": 1}])"),
              at + "features[1].id: appears twice");
    EXPECT_EQ(refused(R"("features": [{"id": 1, "data": "00"}])"),
              at + "features[0].data: must have up to 4096 bytes, a multiple of 4");
    EXPECT_EQ(refused(R"("namespaces": [{"id": 17, "blocks": 1}])"),
              at + "namespaces[0].id: must be a whole number from 1 to 16");
    EXPECT_EQ(refused(R"("capacity": 8192, "namespaces": [{"id": 1, "blocks": 17}])"),
              at + "namespaces[0].blocks: must be a whole number from 1 to 16");
    EXPECT_EQ(refused(R"("capacity": 8192, "namespaces": [{"id": 1, "blocks": 9},
                      {"id": 2, "blocks": 1, "format": 1}])"),
              at + "namespaces[1].blocks: is more than what the drive has left");
    EXPECT_EQ(refused(R"("namespaces": [{"id": 1, "blocks": 1, "controllers": [3]}])"),
              at + "namespaces[0].controllers[0]: is not among the drive's controllers");
    EXPECT_EQ(refused(R"("firmware": {"slots": []})"),
              at + "firmware.slots: must have 1 to 7 slots");
    EXPECT_EQ(refused(R"("firmware": {"slots": ["1", ""], "active": 2})"),
              at + "firmware.active: is an empty slot");
    EXPECT_EQ(refused(R"("vpd": "0011", "vpd_size": 1)"),
              at + "vpd_size: must be a whole number from 2 to 65535");
    EXPECT_EQ(refused(R"("sanitize_s": -1)"), at + "sanitize_s: must be from 0 to 1000000 seconds");
    EXPECT_EQ(refused(R"("vendor_commands": [{"opcode": "0xc1", "data": ""},
                      {"opcode": "0xc1", "data": ""}])"),
              at + "vendor_commands[1].opcode: appears twice");
    EXPECT_EQ(refused(R"("faults": [{"kind": "completion", "set": "management", "opcode": 1,
                      "sct": 0, "sc": 1}])"),
              at + "faults[0].set: must be admin");
}

TEST_F(NvmeBoardFile, OtherDevicesAreNoDrives) {
    open(terminus_with("\"tid\": 1"));
    EXPECT_EQ(board->nvme("p"), nullptr);
    EXPECT_EQ(board->nvme("q"), nullptr);
}

class NvmeOnPcie : public sim_test::PcieBoard {};

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
