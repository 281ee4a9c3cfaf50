// SPDX-License-Identifier: Apache-2.0
// Rules on the management endpoint of an NVMe drive (NVMe-MI).
#include <fmt/format.h>
#include <sideband/mctp.h>

#include <algorithm>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

// A response, from behind the MCTP message type on.
constexpr size_t kStatus = 3;
constexpr size_t kData = 7;
constexpr size_t kCheckSize = 4;
constexpr uint8_t kResponse = 0x80;
constexpr uint8_t kSlot = 0x01;

enum Opcode : uint8_t {
    kReadDataStructure = 0x00,
    kSubsystemHealth = 0x01,
    kControllerHealth = 0x02,
    kConfigurationGet = 0x04,
    kVpdRead = 0x05,
    kNoOpcode = 0xBF,  // reserved
};

enum Structure : uint8_t {
    kSubsystem = 0,
    kPort = 1,
    kControllers = 2,
    kController = 3,
    kOptionalCommands = 4,
    kNoStructure = 0xFE,
};

enum Configuration : uint8_t { kSmbusFrequency = 1, kUnitSize = 3, kNoConfiguration = 0xBF };

// Status codes of a response.
constexpr uint8_t kInvalidOpcode = 0x03;
constexpr uint8_t kInvalidParameter = 0x04;
constexpr uint8_t kInvalidSize = 0x05;
constexpr uint8_t kInvalidDataSize = 0x06;

constexpr size_t kStructureSize = 32;

void need_drive(Device& device) {
    need_message_type(device, MCTP_MSG_TYPE_NVME_MI, "NVMe-MI");
}

/// What a response holds.
struct Answer {
    Exchange exchange;
    std::optional<uint8_t> status;
    uint32_t management = 0;  ///< its three bytes; of an invalid parameter, where it is
    Bytes data;
};

Answer take_apart(Exchange exchange) {
    Answer answer;
    const std::span<const uint8_t> response = response_of(exchange);
    if (response.size() >= kData + kCheckSize) {
        sideband::WireReader reader(response.subspan(kStatus));
        const uint32_t word = reader.le32();
        answer.status = static_cast<uint8_t>(word);
        answer.management = word >> 8;
        const std::span<const uint8_t> data =
            response.subspan(kData, response.size() - kData - kCheckSize);
        answer.data.assign(data.begin(), data.end());
    }
    answer.exchange = std::move(exchange);
    return answer;
}

Answer command(Device& device, uint8_t opcode, uint32_t dword0 = 0, uint32_t dword1 = 0,
               std::span<const uint8_t> data = {}) {
    need_drive(device);
    return take_apart(recall_nvme(device, nvme_command(device, opcode, dword0, dword1, data)));
}

void expect_status(const Answer& answer, uint8_t status, const char* name) {
    if (answer.status != status) {
        fail(answer.exchange, fmt::format("status 0x{:02x} ({})", status, name));
    }
}

void expect_success(const Answer& answer) {
    expect_status(answer, kSuccess, "Success");
}

/// Ends the rule, which does not apply, unless the command has succeeded.
void need_success(const Answer& answer, const char* name) {
    if (answer.status != kSuccess) {
        not_applicable(fmt::format("{} does not succeed", name));
    }
}

/// @param instance  port or controller
Answer structure(Device& device, Structure type, uint32_t instance = 0) {
    const uint32_t place = type == kPort ? instance << 16 : instance;
    return command(device, kReadDataStructure, uint32_t{type} << 24 | place);
}

/// The ports of the subsystem.
uint32_t ports_of(Device& device) {
    const Answer answer = structure(device, kSubsystem);
    need_success(answer, "Read NVMe-MI Data Structure");
    if (answer.data.empty()) {
        not_applicable("the subsystem information is empty");
    }
    return answer.data[0] + 1U;
}

// ---- The message --------------------------------------------------------------------------------

std::span<const uint8_t> any_answer(const Answer& answer) {
    if (!answer.status) {
        not_applicable("the answer is too short");
    }
    return response_of(answer.exchange);
}

void drive_answers(Device& device) {
    expect_success(structure(device, kSubsystem));
}

void header_is_that_of_a_response(Device& device) {
    const Answer answer = structure(device, kSubsystem);
    expect((any_answer(answer)[0] & ~kSlot) == (kNvmeManagement | kResponse), answer.exchange,
           "ROR set, and the request's NVMe-MI message type");
}

void slot_is_echoed(Device& device) {
    need_drive(device);
    for (const uint8_t slot : {uint8_t{0}, kSlot}) {
        const Bytes message = Body()
                                  .u8(kNvmeManagement | slot)
                                  .le16(0)
                                  .u8(kSubsystemHealth)
                                  .le16(0)
                                  .u8(0)
                                  .le32(0)
                                  .le32(0);
        const Answer answer = take_apart(ask_nvme(device, nvme_message(device, message)));
        if ((any_answer(answer)[0] & kSlot) != slot) {
            fail(answer.exchange, fmt::format("an answer from command slot {}", slot));
        }
    }
}

void header_bytes_are_zero(Device& device) {
    const Answer answer = structure(device, kSubsystem);
    const std::span<const uint8_t> response = any_answer(answer);
    expect(response[1] == 0 && response[2] == 0, answer.exchange,
           "zero in the two reserved bytes behind the message type");
}

void check_is_right(Device& device) {
    const Answer answer = structure(device, kSubsystem);
    const std::span<const uint8_t> response = any_answer(answer);
    const Bytes checked = Body()
                              .u8(MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK)
                              .bytes(response.first(response.size() - kCheckSize));
    const uint32_t check = crc32c_of(checked);
    sideband::WireReader reader(response.last(kCheckSize));
    if (reader.le32() != check) {
        fail(answer.exchange,
             fmt::format("the CRC-32C of the message at its end, 0x{:08x}", check));
    }
}

void wrong_check_is_dropped(Device& device) {
    need_drive(device);
    if (device.channel().appends_check()) {
        not_applicable("on this way to the device the library appends the right check itself");
    }
    Bytes message = nvme_command(device, kSubsystemHealth, 0, 0);
    message.back() ^= 0x01;
    const Exchange exchange = ask_nvme(device, message);
    expect(!exchange.response, exchange, "no answer to a message with a wrong integrity check");
}

// ---- What is refused ----------------------------------------------------------------------------

void unknown_opcode_is_refused(Device& device) {
    expect_status(command(device, kNoOpcode), kInvalidOpcode, "Invalid Command Opcode");
}

void short_command_is_refused(Device& device) {
    need_drive(device);
    const Bytes message = Body().u8(kNvmeManagement).le16(0).u8(kSubsystemHealth).le16(0).u8(0);
    expect_status(take_apart(ask_nvme(device, nvme_message(device, message))), kInvalidSize,
                  "Invalid Command Size");
}

void data_are_refused(Device& device) {
    expect_status(command(device, kSubsystemHealth, 0, 0, Bytes(8)), kInvalidDataSize,
                  "Invalid Command Input Data Size");
}

/// Ends the rule unless a parameter is refused, and the answer says in which of the request's bytes
/// it is, the message type among them.
void expect_parameter(const Answer& answer, unsigned first, unsigned last) {
    expect_status(answer, kInvalidParameter, "Invalid Parameter");
    const uint32_t byte = answer.management >> 8;
    if (byte < first || byte > last) {
        fail(answer.exchange,
             fmt::format("the place of the parameter, byte {} to {} of the request", first, last));
    }
}

constexpr unsigned kDword0 = 8;
constexpr unsigned kDword1 = 12;
constexpr unsigned kEnd = 15;

void unknown_structure_is_refused(Device& device) {
    expect_parameter(structure(device, kNoStructure), kDword0, kDword1 - 1);
}

void unknown_port_is_refused(Device& device) {
    constexpr uint32_t kNoPort = 0xFF;
    if (ports_of(device) > kNoPort) {
        not_applicable("the subsystem has every port");
    }
    expect_parameter(structure(device, kPort, kNoPort), kDword0, kDword1 - 1);
}

void unknown_configuration_is_refused(Device& device) {
    expect_parameter(command(device, kConfigurationGet, kNoConfiguration), kDword0, kDword1 - 1);
}

void vpd_beyond_the_end_is_refused(Device& device) {
    constexpr uint32_t kFarOffset = 0xFFF0;
    expect_parameter(command(device, kVpdRead, kFarOffset, 8), kDword0, kEnd);
}

// ---- Data structures ----------------------------------------------------------------------------

/// Ends the rule unless a data structure is as long as it has to be and as it says.
void expect_structure(const Answer& answer, size_t size) {
    expect_success(answer);
    if (answer.data.size() != size || (answer.management & 0xFFFF) != size) {
        fail(answer.exchange, fmt::format("{} bytes, and that number in the response", size));
    }
}

void subsystem_has_its_length(Device& device) {
    expect_structure(structure(device, kSubsystem), kStructureSize);
}

void subsystem_has_a_version(Device& device) {
    const Answer answer = structure(device, kSubsystem);
    need_success(answer, "Read NVMe-MI Data Structure");
    expect(answer.data.size() > 1 && answer.data[1] >= 1, answer.exchange,
           "major version 1 or later");
}

void ports_have_their_length(Device& device) {
    for (uint32_t port = 0; port < ports_of(device); ++port) {
        expect_structure(structure(device, kPort, port), kStructureSize);
    }
}

void ports_are_defined(Device& device) {
    constexpr uint8_t kLastType = 2;
    constexpr uint16_t kBaseline = 64;
    for (uint32_t port = 0; port < ports_of(device); ++port) {
        const Answer answer = structure(device, kPort, port);
        need_success(answer, "Read NVMe-MI Data Structure");
        sideband::WireReader reader(answer.data);
        const uint8_t type = reader.u8();
        reader.skip(1);
        const uint16_t unit = reader.le16();
        expect(type <= kLastType, answer.exchange, "port type 0, 1 or 2");
        expect(type == 0 || unit >= kBaseline, answer.exchange,
               "a maximum MCTP transmission unit of at least 64 bytes");
    }
}

/// The controllers in the list, which may be followed by zeros.
std::vector<uint16_t> controllers_in(const Answer& answer) {
    sideband::WireReader reader(answer.data);
    std::vector<uint16_t> controllers;
    for (size_t left = reader.le16(); left > 0 && reader.remaining() >= 2; --left) {
        controllers.push_back(reader.le16());
    }
    return controllers;
}

void controllers_are_listed(Device& device) {
    const Answer answer = structure(device, kControllers);
    expect_success(answer);
    sideband::WireReader reader(answer.data);
    const size_t count = reader.le16();
    const std::vector<uint16_t> controllers = controllers_in(answer);
    expect(reader.ok() && controllers.size() == count, answer.exchange,
           "as many controllers as their number says");
    expect(std::ranges::adjacent_find(controllers, std::greater_equal<>()) == controllers.end(),
           answer.exchange, "ascending controller identifiers");
}

void controllers_have_their_length(Device& device) {
    const Answer list = structure(device, kControllers);
    need_success(list, "the controller list");
    constexpr size_t kTried = 16;
    const std::vector<uint16_t> controllers = controllers_in(list);
    for (size_t i = 0; i < controllers.size() && i < kTried; ++i) {
        expect_structure(structure(device, kController, controllers[i]), kStructureSize);
    }
}

void optional_commands_are_listed(Device& device) {
    const Answer answer = structure(device, kOptionalCommands);
    expect_success(answer);
    sideband::WireReader reader(answer.data);
    const size_t count = reader.le16();
    expect(reader.ok() && reader.remaining() == 2 * count, answer.exchange,
           "two bytes for each command behind their number");
}

// ---- Health, configuration, VPD -----------------------------------------------------------------

void subsystem_health_has_its_length(Device& device) {
    const Answer answer = command(device, kSubsystemHealth);
    expect_success(answer);
    expect(answer.data.size() == 8, answer.exchange, "eight bytes of subsystem health");
}

void subsystem_health_is_reserved_zero(Device& device) {
    const Answer answer = command(device, kSubsystemHealth);
    need_success(answer, "NVM Subsystem Health Status Poll");
    expect(answer.data.size() >= 8 && answer.data[6] == 0 && answer.data[7] == 0, answer.exchange,
           "zero in the last two bytes, which are reserved");
}

/// All controllers from number 0 on, at most so many.
Answer controller_health(Device& device, uint8_t most) {
    constexpr uint32_t kAllFunctions = 7u << 24 | 1u << 31;
    return command(device, kControllerHealth, kAllFunctions | (most - 1u) << 16);
}

void controller_health_has_its_length(Device& device) {
    const Answer answer = controller_health(device, 16);
    expect_success(answer);
    constexpr size_t kEntry = 16;
    const size_t entries = answer.management >> 16 & 0xFF;
    expect(answer.data.size() == entries * kEntry, answer.exchange,
           "16 bytes for each of the response entries");
}

void controller_health_is_limited(Device& device) {
    const Answer answer = controller_health(device, 1);
    need_success(answer, "Controller Health Status Poll");
    expect((answer.management >> 16 & 0xFF) <= 1, answer.exchange,
           "at most the one entry that was asked for");
}

void unit_size_is_at_least_the_baseline(Device& device) {
    const Answer answer = command(device, kConfigurationGet, kUnitSize);
    expect_success(answer);
    constexpr uint32_t kBaseline = 64;
    expect((answer.management & 0xFFFF) >= kBaseline, answer.exchange,
           "a transmission unit of at least 64 bytes");
}

void frequency_is_defined(Device& device) {
    for (uint32_t port = 0; port < ports_of(device); ++port) {
        const Answer kind = structure(device, kPort, port);
        constexpr uint8_t kSmbusPort = 2;
        if (kind.status != kSuccess || kind.data.empty() || kind.data[0] != kSmbusPort) {
            continue;
        }
        const Answer answer = command(device, kConfigurationGet, port << 24 | kSmbusFrequency);
        expect_success(answer);
        const uint32_t frequency = answer.management & 0x0F;
        expect(frequency >= 1 && frequency <= 3, answer.exchange, "an SMBus frequency from 1 to 3");
        return;
    }
    not_applicable("the subsystem has no SMBus port");
}

void vpd_has_the_length(Device& device) {
    constexpr uint32_t kLength = 8;
    const Answer answer = command(device, kVpdRead, 0, kLength);
    expect_success(answer);
    expect(answer.data.size() == kLength, answer.exchange, "the eight bytes that were asked for");
}

void vpd_stays(Device& device) {
    need_drive(device);
    const Answer once = take_apart(ask_nvme(device, nvme_command(device, kVpdRead, 0, 8)));
    need_success(once, "VPD Read");
    const Answer twice = take_apart(ask_nvme(device, nvme_command(device, kVpdRead, 0, 8)));
    if (once.data != twice.data) {
        fail({once.exchange, twice.exchange}, "the same bytes twice");
    }
}

void vpd_is_ipmi_fru(Device& device) {
    const Answer answer = command(device, kVpdRead, 0, 8);
    need_success(answer, "VPD Read");
    uint8_t sum = 0;
    for (const uint8_t byte : answer.data) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    expect(!answer.data.empty() && answer.data[0] == 1 && sum == 0, answer.exchange,
           "the common header of an IPMI FRU: format version 1, and a sum of zero");
}

constexpr Rule kRules[] = {
    {"nvme.answer", "NVMe-MI, Read NVMe-MI Data Structure",
     "Read NVMe-MI Data Structure succeeds for the subsystem", drive_answers},
    {"nvme.header.response", "NVMe-MI, message fields",
     "an answer has ROR set and the request's message type", header_is_that_of_a_response},
    {"nvme.header.slot", "NVMe-MI, message fields", "an answer has the request's command slot",
     slot_is_echoed},
    {"nvme.header.reserved", "NVMe-MI, message fields", "reserved bytes are zero",
     header_bytes_are_zero},
    {"nvme.check", "NVMe-MI, message integrity check", "an answer ends with its CRC-32C",
     check_is_right},
    {"nvme.check.request", "NVMe-MI, message integrity check",
     "a message with a wrong check gets no answer", wrong_check_is_dropped},
    {"nvme.unknown-opcode", "NVMe-MI, response status values",
     "a reserved opcode is refused with Invalid Command Opcode", unknown_opcode_is_refused},
    {"nvme.request-too-short", "NVMe-MI, response status values",
     "a command without its dwords is refused with Invalid Command Size", short_command_is_refused},
    {"nvme.request-with-data", "NVMe-MI, response status values",
     "data behind a command without any are refused with Invalid Command Input Data Size",
     data_are_refused},
    {"nvme.structure.unknown", "NVMe-MI, Read NVMe-MI Data Structure",
     "another data structure is refused with Invalid Parameter", unknown_structure_is_refused},
    {"nvme.structure.unknown-port", "NVMe-MI, Read NVMe-MI Data Structure",
     "another port is refused with Invalid Parameter", unknown_port_is_refused},
    {"nvme.structure.subsystem", "NVMe-MI, NVM Subsystem Information", "it has 32 bytes",
     subsystem_has_its_length},
    {"nvme.structure.version", "NVMe-MI, NVM Subsystem Information", "its major version is not 0",
     subsystem_has_a_version},
    {"nvme.structure.ports", "NVMe-MI, Port Information", "that of each port has 32 bytes",
     ports_have_their_length},
    {"nvme.structure.port-type", "NVMe-MI, Port Information",
     "port types are defined, and units at least the baseline", ports_are_defined},
    {"nvme.structure.controllers", "NVMe-MI, controller list",
     "it has as many controllers as it says, ascending", controllers_are_listed},
    {"nvme.structure.controller", "NVMe-MI, Controller Information",
     "that of each controller has 32 bytes", controllers_have_their_length},
    {"nvme.structure.optional-commands", "NVMe-MI, Optionally Supported Command List",
     "it has as many commands as it says", optional_commands_are_listed},
    {"nvme.health.subsystem", "NVMe-MI, NVM Subsystem Health Status Poll", "it has eight bytes",
     subsystem_health_has_its_length},
    {"nvme.health.reserved", "NVMe-MI, NVM Subsystem Health Status Poll",
     "its reserved bytes are zero", subsystem_health_is_reserved_zero},
    {"nvme.health.controllers", "NVMe-MI, Controller Health Status Poll",
     "it has 16 bytes for each entry", controller_health_has_its_length},
    {"nvme.health.most", "NVMe-MI, Controller Health Status Poll",
     "it has no more entries than were asked for", controller_health_is_limited},
    {"nvme.configuration.unit-size", "NVMe-MI, Configuration Get",
     "the transmission unit of port 0 is at least the baseline",
     unit_size_is_at_least_the_baseline},
    {"nvme.configuration.frequency", "NVMe-MI, Configuration Get", "the frequency is defined",
     frequency_is_defined},
    {"nvme.configuration.unknown", "NVMe-MI, Configuration Get",
     "another configuration is refused with Invalid Parameter", unknown_configuration_is_refused},
    {"nvme.vpd.length", "NVMe-MI, VPD Read", "VPD Read gives as much as was asked for",
     vpd_has_the_length},
    {"nvme.vpd.repeat", "NVMe-MI, VPD Read", "it gives the same twice", vpd_stays},
    {"nvme.vpd.common-header", "NVMe-MI, VPD", "the VPD begins as an IPMI FRU", vpd_is_ipmi_fru},
    {"nvme.vpd.beyond-end", "NVMe-MI, VPD Read",
     "an offset beyond the end is refused with Invalid Parameter", vpd_beyond_the_end_is_refused},
};

}  // namespace

std::span<const Rule> nvme_rules() {
    return kRules;
}

}  // namespace tool::check
