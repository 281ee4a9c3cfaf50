// SPDX-License-Identifier: Apache-2.0
// Rules on what a firmware device tells of itself (DSP0267).
#include "tools/check/update.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "tools/check/rules.h"

namespace tool::check {
namespace {

constexpr uint8_t kLastStringType = 5;  // UTF-16BE

// ---- QueryDeviceIdentifiers ---------------------------------------------------------------------

struct Descriptor {
    uint16_t type = 0;
    uint16_t length = 0;
};

struct Identifiers {
    Exchange exchange;
    bool whole = false;  ///< as long as it says, with as many descriptors as it says
    std::vector<Descriptor> descriptors;
};

Exchange ask_identifiers(Device& device) {
    need_pldm_command(device, kUpdate, kQueryDeviceIdentifiers, "QueryDeviceIdentifiers");
    return recall_pldm(device, kUpdate, kQueryDeviceIdentifiers);
}

Identifiers identifiers_of(Device& device) {
    Identifiers identifiers;
    identifiers.exchange = ask_identifiers(device);
    sideband::WireReader reader(pldm_data(identifiers.exchange, "QueryDeviceIdentifiers"));
    const uint32_t length = reader.le32();
    int count = reader.u8();
    const bool fits = reader.ok() && length == reader.remaining();
    for (; count > 0 && reader.ok(); --count) {
        Descriptor descriptor;
        descriptor.type = reader.le16();
        descriptor.length = reader.le16();
        reader.skip(descriptor.length);
        identifiers.descriptors.push_back(descriptor);
    }
    identifiers.whole = fits && reader.ok() && reader.remaining() == 0;
    return identifiers;
}

Identifiers whole_identifiers(Device& device) {
    Identifiers identifiers = identifiers_of(device);
    if (!identifiers.whole || identifiers.descriptors.empty()) {
        not_applicable("the descriptors do not fit the answer");
    }
    return identifiers;
}

void identifiers_succeed(Device& device) {
    const Exchange exchange = ask_identifiers(device);
    expect_pldm_code(exchange, kSuccess, "SUCCESS");
    constexpr size_t kShortest = kPldmHeader + 1 + 5 + 4;
    expect(response_of(exchange).size() >= kShortest, exchange, "at least one descriptor");
}

void identifiers_are_whole(Device& device) {
    const Identifiers identifiers = identifiers_of(device);
    expect(identifiers.whole, identifiers.exchange,
           "as many descriptors as their number says, as long as their length says");
}

void first_identifier_is_initial(Device& device) {
    const Identifiers identifiers = whole_identifiers(device);
    constexpr uint16_t kFirstAdditional = 0x0100;
    expect(identifiers.descriptors.front().type < kFirstAdditional, identifiers.exchange,
           "an initial descriptor type, below 0x0100, at the beginning");
}

void identifiers_have_their_sizes(Device& device) {
    static const std::map<uint16_t, uint16_t> kSizes = {
        {0x0000, 2}, {0x0001, 4},  {0x0002, 16}, {0x0003, 3},  {0x0004, 4}, {0x0100, 2},
        {0x0101, 2}, {0x0102, 2},  {0x0103, 1},  {0x0104, 4},  {0x0105, 4}, {0x0005, 3},
        {0x0006, 8}, {0x0106, 40}, {0x0107, 10}, {0x0108, 16}, {0x0109, 4}};
    const Identifiers identifiers = whole_identifiers(device);
    for (const Descriptor& descriptor : identifiers.descriptors) {
        const auto size = kSizes.find(descriptor.type);
        if (size != kSizes.end() && size->second != descriptor.length) {
            fail(identifiers.exchange, fmt::format("{} bytes in a descriptor of type 0x{:04x}",
                                                   size->second, descriptor.type));
        }
    }
}

void long_identifiers_request_is_refused(Device& device) {
    need_pldm_command(device, kUpdate, kQueryDeviceIdentifiers, "QueryDeviceIdentifiers");
    expect_pldm_code(ask_pldm(device, kUpdate, kQueryDeviceIdentifiers, Bytes{0}), kInvalidLength,
                     "ERROR_INVALID_LENGTH");
}

void command_is_unsupported(Device& device) {
    need_pldm_type(device, kUpdate);
    constexpr uint8_t kNoCommand = 0x7F;
    expect_pldm_code(ask_pldm(device, kUpdate, kNoCommand), kUnsupportedCommand,
                     "ERROR_UNSUPPORTED_PLDM_CMD");
}

// ---- GetFirmwareParameters ----------------------------------------------------------------------

struct Version {
    uint8_t type = 0;
    uint8_t length = 0;
    Bytes date;  ///< of a component's
};

struct Parameters {
    Exchange exchange;
    bool whole = false;
    std::vector<Version> versions;
    std::vector<uint16_t> activation_methods;
};

Exchange ask_parameters(Device& device) {
    need_pldm_command(device, kUpdate, kGetFirmwareParameters, "GetFirmwareParameters");
    return recall_pldm(device, kUpdate, kGetFirmwareParameters);
}

/// A version of a component: stamp, type and length of its text, date.
Version read_version(sideband::WireReader& reader) {
    constexpr size_t kDateSize = 8;
    Version version;
    reader.skip(4);
    version.type = reader.u8();
    version.length = reader.u8();
    const std::span<const uint8_t> date = reader.bytes(kDateSize);
    version.date.assign(date.begin(), date.end());
    return version;
}

void read_component(sideband::WireReader& reader, Parameters& parameters) {
    reader.skip(5);  // classification, identifier, index
    const Version active = read_version(reader);
    const Version pending = read_version(reader);
    parameters.activation_methods.push_back(reader.le16());
    reader.skip(4);  // capabilities
    reader.skip(active.length);
    reader.skip(pending.length);
    parameters.versions.push_back(active);
    parameters.versions.push_back(pending);
}

Parameters parameters_of(Device& device) {
    Parameters parameters;
    parameters.exchange = ask_parameters(device);
    sideband::WireReader reader(pldm_data(parameters.exchange, "GetFirmwareParameters"));
    reader.skip(4);  // capabilities
    int components = reader.le16();
    for (int set = 0; set < 2; ++set) {
        Version version;
        version.type = reader.u8();
        version.length = reader.u8();
        parameters.versions.push_back(version);
    }
    reader.skip(parameters.versions[0].length);
    reader.skip(parameters.versions[1].length);
    for (; components > 0 && reader.ok(); --components) {
        read_component(reader, parameters);
    }
    parameters.whole = reader.ok() && reader.remaining() == 0;
    return parameters;
}

Parameters whole_parameters(Device& device) {
    Parameters parameters = parameters_of(device);
    if (!parameters.whole) {
        not_applicable("the components do not fit the answer");
    }
    return parameters;
}

void parameters_are_whole(Device& device) {
    expect_pldm_code(ask_parameters(device), kSuccess, "SUCCESS");
    const Parameters parameters = parameters_of(device);
    expect(parameters.whole, parameters.exchange,
           "as many components as their number says, and nothing else");
}

void string_types_are_defined(Device& device) {
    const Parameters parameters = whole_parameters(device);
    for (const Version& version : parameters.versions) {
        expect(version.type <= kLastStringType, parameters.exchange, "string types from 0 to 5");
    }
}

bool is_date(const Bytes& date) {
    return std::ranges::all_of(date, [](uint8_t byte) { return byte == 0; }) ||
           std::ranges::all_of(date, [](uint8_t byte) { return std::isdigit(byte) != 0; });
}

void dates_are_digits(Device& device) {
    const Parameters parameters = whole_parameters(device);
    for (const Version& version : parameters.versions) {
        expect(is_date(version.date), parameters.exchange,
               "release dates of eight digits, or of eight zero bytes");
    }
}

void activation_methods_are_defined(Device& device) {
    const Parameters parameters = whole_parameters(device);
    constexpr uint16_t kReserved = 0xFF00;
    for (const uint16_t methods : parameters.activation_methods) {
        expect((methods & kReserved) == 0, parameters.exchange,
               "activation methods with bits 15 to 8 clear");
    }
}

// ---- GetStatus ----------------------------------------------------------------------------------

void status_has_its_length(Device& device) {
    expect_pldm_success(ask_status(device), kPldmHeader + 1 + 10);
}

void states_are_defined(Device& device) {
    const Status status = status_of(device);
    constexpr uint8_t kLastState = 6;  // ACTIVATE
    expect(status.current <= kLastState && status.previous <= kLastState, status.exchange,
           "current and previous state from 0 to 6");
}

void aux_state_fits(Device& device) {
    const Status status = status_of(device);
    constexpr uint8_t kNothingToDo = 3;
    expect(status.aux <= kNothingToDo, status.exchange, "an aux state from 0 to 3");
    expect(status.current > kReadyXfer || status.aux == kNothingToDo, status.exchange,
           "aux state 3 in the states IDLE, LEARN COMPONENTS and READY XFER");
}

void progress_is_defined(Device& device) {
    const Status status = status_of(device);
    constexpr uint8_t kUnknown = 0x65;
    expect(status.progress <= kUnknown, status.exchange, "a percentage, or 0x65");
}

void reason_is_defined(Device& device) {
    const Status status = status_of(device);
    constexpr uint8_t kLastReason = 7;  // timeout in APPLY
    constexpr uint8_t kFirstOfVendor = 200;
    expect(status.reason <= kLastReason || status.reason >= kFirstOfVendor, status.exchange,
           "a reason code that is defined, or one of the vendor's");
}

constexpr Rule kRules[] = {
    {"update.identifiers.succeed", "DSP0267, QueryDeviceIdentifiers",
     "QueryDeviceIdentifiers succeeds, with a descriptor", identifiers_succeed},
    {"update.identifiers.length", "DSP0267, QueryDeviceIdentifiers",
     "the descriptors are as many and as long as it says", identifiers_are_whole},
    {"update.identifiers.initial", "DSP0267, QueryDeviceIdentifiers",
     "the first descriptor is an initial one", first_identifier_is_initial},
    {"update.identifiers.sizes", "DSP0267, descriptor types", "descriptors have their sizes",
     identifiers_have_their_sizes},
    {"update.identifiers.request-too-long", "DSP0240, completion codes",
     "QueryDeviceIdentifiers with a byte too many is answered with ERROR_INVALID_LENGTH",
     long_identifiers_request_is_refused},
    {"update.unsupported-command", "DSP0240, completion codes",
     "a command that nobody has defined is answered with ERROR_UNSUPPORTED_PLDM_CMD",
     command_is_unsupported},
    {"update.parameters.length", "DSP0267, GetFirmwareParameters",
     "GetFirmwareParameters succeeds, with as many components as it says", parameters_are_whole},
    {"update.parameters.string-type", "DSP0267, string types", "string types are defined",
     string_types_are_defined},
    {"update.parameters.date", "DSP0267, GetFirmwareParameters",
     "release dates are digits or left out", dates_are_digits},
    {"update.parameters.activation", "DSP0267, GetFirmwareParameters",
     "activation methods are defined", activation_methods_are_defined},
    {"update.status.length", "DSP0267, GetStatus", "GetStatus succeeds, with ten bytes",
     status_has_its_length},
    {"update.status.state", "DSP0267, GetStatus", "states are defined", states_are_defined},
    {"update.status.aux-state", "DSP0267, GetStatus", "the aux state fits the state",
     aux_state_fits},
    {"update.status.progress", "DSP0267, GetStatus", "the progress is a percentage or unknown",
     progress_is_defined},
    {"update.status.reason", "DSP0267, GetStatus", "the reason code is defined", reason_is_defined},
};

}  // namespace

Exchange ask_status(Device& device) {
    need_pldm_command(device, kUpdate, kGetStatus, "GetStatus");
    return ask_pldm(device, kUpdate, kGetStatus);
}

Status status_of(Device& device) {
    Status status;
    status.exchange = ask_status(device);
    sideband::WireReader reader(pldm_data(status.exchange, "GetStatus"));
    status.current = reader.u8();
    status.previous = reader.u8();
    status.aux = reader.u8();
    reader.skip(1);  // aux state status
    status.progress = reader.u8();
    status.reason = reader.u8();
    if (!reader.ok()) {
        not_applicable("GetStatus is too short");
    }
    return status;
}

std::span<const Rule> update_rules() {
    return kRules;
}

}  // namespace tool::check
