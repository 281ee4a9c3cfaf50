// SPDX-License-Identifier: Apache-2.0
// Compares every name table of the tool with a list of the standards' numbers and names, if that is
// at hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/published_names.h"
#include "tools/mctp/codes.h"
#include "tools/ncsi/codes.h"
#include "tools/nvme/codes.h"
#include "tools/nvme/states.h"
#include "tools/pldm/codes.h"
#include "tools/pldm/pdr_names.h"
#include "tools/shell/codes.h"
#include "tools/update/codes.h"
#include "tools/update/descriptor.h"

namespace {

using tool::Json;
using tool_test::has_published_names;
using tool_test::kPublishedNamesFile;
using tool_test::plain;
using tool_test::published_name;
using tool_test::published_names;
using tool_test::PublishedName;

/// One table of the tool, and the one of the list that it goes by.
struct Comparison {
    const char* table;
    std::string (*name)(unsigned);      ///< the tool's name of a number
    unsigned last;                      ///< largest number that the tool can be asked for
    std::vector<std::string> unnamed;   ///< how the tool begins if a number has no name
    std::vector<std::string> left_out;  ///< parts of the list's names that the tool's never have
    bool own_words = false;             ///< the tool explains: which numbers have names is compared
};

void PrintTo(const Comparison& comparison, std::ostream* out) {
    *out << comparison.table;
}

/// Where the tool differs on purpose.
struct Difference {
    const char* table;
    unsigned first;
    unsigned last;
    const char* text;  ///< the tool's; empty if it has no name
};

const Difference kDifferences[] = {
    // Shorter than in the list.
    {"DSP0222 reason codes", 0, 0, "No Error"},
    {"DSP0222 response codes", 0x8000, 0xFFFF, "vendor specific"},
    {"DSP0222 reason codes", 0x8000, 0xFFFF, "vendor specific"},
    {"DSP0222 link status: speed and duplex", 0x8, 0x8, "10 Gbps"},
    {"DSP0222 link status: extended speed and duplex", 0x08, 0x08, "10 Gbps"},
    {"DSP0239 MCTP message types", 0x04, 0x04, "nvme-mi"},
    {"DSP0239 MCTP message types", 0x7E, 0x7E, "vendor-pci"},
    {"DSP0239 MCTP message types", 0x7F, 0x7F, "vendor-iana"},
    {"DSP0249 entity types", 163, 163, "SMBus"},
    // The field of four bits refers to the extended one: the tool names what stands there, by one
    // table for both.
    {"DSP0222 link status: speed and duplex", 0xF, 0xF, "5 Gbps"},
    // The name stands for a request that failed. The tool sends none of these of its own.
    {"DSP0236 MCTP control commands", 0xF0, 0xFF, ""},
    // Shown with their numbers.
    {"DSP0249 entity types", 0x6000, 0x7FFF, "OEM entity type "},
    {"DSP0249 state sets", 0x8000, 0xFFFF, "OEM state set "},
    // The library's word, misspelt for long.
    {"DSP0249 state sets", 2, 2, "AVALIABILITY"},
    // 238 stands in the list twice, and the tool takes the first. All numbers behind it may be one
    // too low: a wrong name would be worse than none.
    {"DSP0249 state sets", 239, 246, ""},
};

const Difference* difference_of(const std::string& table, unsigned value) {
    const auto* const found =
        std::find_if(std::begin(kDifferences), std::end(kDifferences), [&](const auto& one) {
            return one.table == table && one.first <= value && value <= one.last;
        });
    return found == std::end(kDifferences) ? nullptr : found;
}

bool is_as_listed(const Difference& difference, const std::string& own) {
    const std::string text = difference.text;
    const bool range = difference.first != difference.last && !text.empty();
    return range ? own.starts_with(text) : own == text;
}

/// What the tool calls a number; empty if it has no name for it.
std::string own_name(const Comparison& comparison, unsigned value) {
    const std::string name = comparison.name(value);
    const bool unnamed =
        std::any_of(comparison.unnamed.begin(), comparison.unnamed.end(),
                    [&](const std::string& start) { return name.starts_with(start); });
    return unnamed ? "" : name;
}

/// Whether the tool's name is the list's, but for spelling and for what the tool leaves out.
bool is_same(const Comparison& comparison, const std::string& own, std::string theirs) {
    for (const std::string& part : comparison.left_out) {
        theirs = tool_test::without(theirs, part);
    }
    return plain(own) == plain(theirs) ||
           plain(own) == plain(tool_test::without_parentheses(theirs));
}

/// Compares one number; a listed difference has to be there as it is listed.
void compare(const Comparison& comparison, unsigned value, const std::vector<std::string>& names) {
    const std::string own = own_name(comparison, value);
    const bool is_match =
        names.empty() || comparison.own_words
            ? own.empty() == names.empty()
            : std::any_of(names.begin(), names.end(), [&](const std::string& theirs) {
                  return is_same(comparison, own, theirs);
              });
    const Difference* const difference = difference_of(comparison.table, value);
    EXPECT_EQ(is_match, difference == nullptr)
        << "number " << value << ": the tool says \"" << own << "\", the list \""
        << (names.empty() ? "" : names.front()) << '"';
    if (difference != nullptr) {
        EXPECT_TRUE(is_as_listed(*difference, own)) << "number " << value << ": \"" << own << '"';
    }
}

template <typename Number>
std::string call(std::string (*name)(Number), unsigned value) {
    return name(static_cast<Number>(value));
}

template <auto name>
std::string of(unsigned value) {
    return call(name, value);
}

/// What the tool says if one bit is set alone.
template <auto name>
std::string bit_of(unsigned bit) {
    return call(name, 1U << bit);
}

std::string warning(unsigned bit) {
    return tool::health_warnings_text(static_cast<uint8_t>(1U << bit), "none");
}

template <uint8_t type, uint8_t command>
std::string code_of(unsigned code) {
    return tool::pldm_code_name(type, command, static_cast<uint8_t>(code));
}

/// The codes from 0x80 on.
template <uint8_t type, uint8_t command>
std::string specific_code_of(unsigned code) {
    return code < 0x80 ? "" : code_of<type, command>(code);
}

template <uint8_t record_type>
std::string field_of(unsigned type) {
    return tool::fru_field_name(record_type, static_cast<uint8_t>(type));
}

template <uint8_t type>
std::string status_of(unsigned code) {
    return tool::nvme_status_name(type, static_cast<uint8_t>(code));
}

bool is_of_command(unsigned reason) {
    return reason >= 0x0100 && reason < 0x7FFF;
}

std::string standard_reason(unsigned code) {
    return is_of_command(code) ? "" : of<tool::ncsi_reason_name>(code);
}

std::string reason_of_command(unsigned code) {
    return is_of_command(code) ? of<tool::ncsi_reason_name>(code) : "";
}

/// A symbol; that of none is empty.
std::string rate(unsigned unit) {
    return unit == 0 ? "none" : of<tool::rate_symbol>(unit);
}

/// 0 is no refusal.
std::string refusal(unsigned code) {
    return code == 0 ? "none" : of<tool::component_refusal_text>(code);
}

std::string temperature(unsigned code) {
    const std::string text = of<tool::composite_text>(code);
    return text.find("reserved") == std::string::npos ? text : "";
}

const Comparison kComparisons[] = {
    {"DSP0222 response codes", of<tool::ncsi_response_name>, 0xFFFF, {"reserved"}, {}},
    {"DSP0222 reason codes", standard_reason, 0xFFFF, {"reserved"}, {}},
    {"DSP0222 command-specific reason codes", reason_of_command, 0xFFFF, {"command specific"}, {}},
    {"DSP0222 link status: speed and duplex", of<tool::ncsi_speed_name>, 0xF, {"speed "}, {}},
    {"DSP0222 link status: extended speed and duplex",
     of<tool::ncsi_speed_name>,
     0xFF,
     {"speed "},
     {}},
    {"DSP0239 MCTP message types",
     of<tool::message_type_name>,
     0x7F,
     {"unknown"},
     {"MCTP ", " over MCTP", " Messages"}},
    {"DSP0236 MCTP control commands",
     of<tool::control_command_name>,
     0xFF,
     {"MCTP control command"},
     {}},
    {"DSP0236 MCTP control completion codes", of<tool::control_code_name>, 0xFF, {"reserved"}, {}},
    {"DSP0239 physical transport binding identifiers",
     of<tool::binding_type_name>,
     0xFF,
     {"0x"},
     {"MCTP over "}},
    {"DSP0236 endpoint types (Get Endpoint ID)",
     of<tool::endpoint_type_name>,
     3,
     {"reserved"},
     {},
     true},
    {"DSP0236 endpoint ID types (Get Endpoint ID)",
     of<tool::eid_type_name>,
     3,
     {"reserved"},
     {},
     true},
    {"DSP0236 routing table entry types",
     of<tool::routing_entry_type_name>,
     3,
     {"reserved"},
     {},
     true},
    {"DSP0245 PLDM types", of<tool::pldm_type_name>, 0x3F, {"reserved"}, {"PLDM for ", "PLDM "}},
    {"DSP0240 base completion codes", code_of<0x00, 0x00>, 0xFF, {"reserved"}, {}},
    {"DSP0240 commands", of<tool::pldm_base_command_name>, 0xFF, {"unknown"}, {}},
    {"DSP0248 sensor operational states", of<tool::operational_state_name>, 0xFF, {"reserved"}, {}},
    {"DSP0248 sensor present / previous / event states (numeric sensors)",
     of<tool::numeric_state_name>,
     0xFF,
     {"reserved"},
     {}},
    // The formats of ranges go on behind those of readings.
    {"DSP0248 data sizes", of<tool::data_size_name>, 5, {"reserved"}, {}},
    {"DSP0248 range field formats", of<tool::data_size_name>, 0xFF, {"reserved"}, {}},
    {"DSP0248 sensorInit", of<tool::sensor_init_name>, 0xFF, {"reserved"}, {}},
    {"DSP0248 PDR types", of<tool::pdr_type_name>, 0xFF, {"reserved"}, {" PDR"}},
    {"DSP0248 base units", of<tool::unit_name>, 0xFF, {"reserved"}, {}},
    {"DSP0248 rate units", rate, 0xFF, {}, {}, true},
    {"DSP0249 entity types", of<tool::entity_type_name>, 0x7FFF, {"entity type"}, {}},
    {"DSP0249 state sets", of<tool::state_set_name>, 0xFFFF, {"state set"}, {}},
    {"DSP0257 completion codes", specific_code_of<0x04, 0x02>, 0xFF, {"command specific"}, {}},
    {"DSP0257 FRU record types",
     of<tool::fru_record_type_name>,
     0xFF,
     {"reserved"},
     {" FRU Record"}},
    {"DSP0257 general FRU record field types", field_of<1>, 0xFF, {"field "}, {}},
    {"DSP0257 OEM FRU record field types", field_of<254>, 0xFF, {"field "}, {}},
    {"DSP0267 descriptor types with sizes", of<tool::descriptor_name>, 0xFFFF, {"Unknown ID"}, {}},
    {"DSP0267 commands", of<tool::pldm_firmware_command_name>, 0xFF, {"unknown"}, {}},
    {"DSP0267 completion codes", specific_code_of<0x05, 0x10>, 0xFF, {"command specific"}, {}},
    {"DSP0267 component activation methods", of<tool::activation_method_name>, 15, {}, {}},
    {"DSP0267 ComponentCompatibilityResponseCode (UpdateComponent)", refusal, 0xFF, {}, {}, true},
    {"DSP0267 TransferResult", of<tool::transfer_result_name>, 0xFF, {}, {}},
    {"DSP0267 VerifyResult", of<tool::verify_result_name>, 0xFF, {}, {}},
    {"DSP0267 ApplyResult", of<tool::apply_result_name>, 0xFF, {}, {}},
    {"NVMe-MI command opcodes", of<tool::nvmemi_command_name>, 0xFF, {"reserved"}, {}},
    {"NVMe-MI response message status codes", of<tool::nvmemi_status_name>, 0xFF, {"reserved"}, {}},
    {"NVMe-MI SMBus/I2C frequency values",
     of<tool::nvmemi_frequency_name>,
     0xFF,
     {"reserved", "-"},
     {}},
    {"NVMe-MI NVM Subsystem Status (NSS) bits",
     bit_of<tool::subsystem_status_text>,
     7,
     {"not functional"},
     {},
     true},
    {"NVMe-MI SMART Warnings (SW) bits", warning, 7, {"none"}, {}, true},
    {"NVMe-MI Composite Controller Status (CCS) / Controller Health Status Changed Flags bits",
     bit_of<tool::composite_status_text>,
     15,
     {"not ready"},
     {},
     true},
    {"NVMe-MI Composite Temperature values", temperature, 0xFF, {}, {}, true},
    {"NVMe status code types", of<tool::nvme_status_type_name>, 7, {"reserved"}, {}},
    {"NVMe generic command status codes", status_of<0>, 0xFF, {"reserved", "vendor specific"}, {}},
    {"NVMe command specific status codes", status_of<1>, 0xFF, {"reserved", "vendor specific"}, {}},
    {"NVMe media and data integrity error codes",
     status_of<2>,
     0xFF,
     {"reserved", "vendor specific"},
     {}},
    {"NVMe path related status codes", status_of<3>, 0xFF, {"reserved", "vendor specific"}, {}},
    {"NVMe feature identifiers", of<tool::nvme_feature_name>, 0xFF, {"reserved"}, {}},
    {"NVMe admin command opcodes", of<tool::nvme_admin_command_name>, 0xFF, {"reserved"}, {}},
    {"NVMe Sanitize Status log: most recent sanitize operation status",
     of<tool::sanitize_status_text>,
     7,
     {"reserved"},
     {},
     true},
};

// What the tool does not name: it shows the number, or the operation has words of its own.
const char* const kNotNamed[] = {
    "DSP0222 control packet types (commands)",
    "DSP0222 AEN types",
    "DSP0222 link status: other bits",
    "DSP0239 physical media identifiers",
    "DSP0236 Set Endpoint ID operations",
    "DSP0236 Set Endpoint ID response: assignment and allocation status",
    "DSP0240 TransferFlag",
    "DSP0248 transfer flags (GetPDR, PlatformEventMessage polling)",
    "PLDM TransferOperationFlag",
    "DSP0240 TransferOperation (MultipartSend, MultipartReceive)",
    "DSP0248 commands",
    "DSP0248 effecter operational states",
    "DSP0248 sensorEventMessageEnable",
    "DSP0248 event classes",
    "DSP0257 commands",
    "DSP0257 FRU field encodings",
    "DSP0267 component classifications",
    "DSP0267 string types",
    "DSP0267 UpdateOptionFlags",
    "DSP0267 component comparison stamp",
    "DSP0267 ComponentResponse (PassComponentTable)",
    "DSP0267 ComponentResponseCode (PassComponentTable)",
    "DSP0267 ComponentCompatibilityResponse (UpdateComponent)",
    "DSP0267 GetStatus: FD states",
    "DSP0267 GetStatus: AuxState",
    "DSP0267 GetStatus: AuxStateStatus",
    "DSP0267 GetStatus: ReasonCode",
    "DSP0267 package header format UUIDs",
    "NVMe-MI configuration identifiers",
    "NVMe-MI data structure types",
    "NVMe-MI port types",
    "NVMe-MI message types",
    "NVMe-MI control primitive opcodes",
    "NVMe-MI Controller Health Status Poll: NMD0 fields",
    "NVMe-MI Controller Health Status Poll: NMD1 fields",
    "NVMe-MI Configuration Set Health Status Change: NMD1 bits",
    "NVMe-MI Reset types",
    "NVMe-MI Shutdown types",
    "NVMe completion status field bits",
    "NVMe log page identifiers",
    "NVMe Firmware Commit actions",
    "NVMe Firmware Commit CDW10 fields",
    "NVMe Sanitize actions",
    "NVMe Sanitize CDW10 fields",
    "NVMe Lockdown CDW10 fields",
    "NVMe Lockdown scope (SCP)",
    "NVMe Lockdown interface (IFC)",
    "NVMe Lockdown CDW14 fields",
    "NVMe Command and Feature Lockdown log: contents selected",
};

// What tests of their own compare below.
const char* const kComparedByCommand[] = {
    "DSP0240 completion codes per command",
    "DSP0248 completion codes per command",
    "DSP0267 completion codes per command",
    "NVMe-MI Controller Health Data Structure: CSTS bits",
};

class Names : public testing::TestWithParam<Comparison> {};

TEST_P(Names, AreThoseOfTheList) {
    if (!has_published_names()) {
        GTEST_SKIP() << kPublishedNamesFile << " is not there";
    }
    const Comparison& comparison = GetParam();
    ASSERT_EQ(published_names().count(comparison.table), 1U);
    std::map<unsigned, std::vector<std::string>> list;
    for (const Json& row : published_names().at(comparison.table)) {
        const PublishedName entry = published_name(row);
        EXPECT_LE(entry.last, comparison.last);
        for (unsigned value = entry.first; value <= entry.last; ++value) {
            if (plain(entry.name) != "reserved") {
                list[value].push_back(entry.name);
            }
        }
    }
    // Both ways: each number that one of them names.
    for (unsigned value = 0; value <= comparison.last; ++value) {
        compare(comparison, value, list[value]);
    }
}

INSTANTIATE_TEST_SUITE_P(OfTheTool, Names, testing::ValuesIn(kComparisons),
                         [](const auto& one) { return plain(one.param.table); });

/// The number of a state set whose states a table lists; nothing for any other table.
std::optional<uint16_t> set_of(const std::string& table) {
    const std::string start = "DSP0249 state set ";
    const bool states = table.starts_with(start) && table.ends_with(": state values");
    return states ? std::optional(static_cast<uint16_t>(std::stoul(table.substr(start.size()))))
                  : std::nullopt;
}

TEST(NamesOfStates, AreThoseOfTheListForEverySet) {
    if (!has_published_names()) {
        GTEST_SKIP() << kPublishedNamesFile << " is not there";
    }
    constexpr uint16_t kSets = 512;
    std::map<std::pair<uint16_t, unsigned>, std::string> list;
    for (const auto& [table, rows] : published_names()) {
        for (const Json& row : set_of(table) ? rows : Json::array()) {
            ASSERT_LT(*set_of(table), kSets);
            list[{*set_of(table), published_name(row).first}] = row["name"].get<std::string>();
        }
    }
    EXPECT_FALSE(list.empty());
    for (uint16_t set = 0; set < kSets; ++set) {
        for (unsigned state = 0; state <= 0xFF; ++state) {
            const std::string own = tool::state_name(set, static_cast<uint8_t>(state));
            const auto found = list.find({set, state});
            const std::string theirs = found == list.end() ? "" : found->second;
            EXPECT_EQ(plain(own), plain(theirs)) << "set " << set << ", state " << state;
        }
    }
}

/// Command and code of each entry, with its name.
using CodesOfCommands = std::map<std::pair<unsigned, unsigned>, std::string>;

CodesOfCommands codes_of_commands(const std::string& codes, const std::string& commands) {
    std::map<std::string, unsigned> numbers;
    for (const Json& row : published_names().at(commands)) {
        numbers[row["name"].get<std::string>()] = published_name(row).first;
    }
    CodesOfCommands list;
    for (const Json& row : published_names().at(codes)) {
        const std::string value = row["value"].get<std::string>();
        const size_t blank = value.find(' ');
        EXPECT_EQ(numbers.count(value.substr(0, blank)), 1U) << value;
        const auto code = static_cast<unsigned>(std::stoul(value.substr(blank), nullptr, 0));
        list[{numbers[value.substr(0, blank)], code}] = row["name"].get<std::string>();
    }
    EXPECT_FALSE(list.empty());
    return list;
}

/// Compares every code of every command of a type, both ways.
void compare_codes(uint8_t type, const CodesOfCommands& list) {
    for (unsigned command = 0; command <= 0xFF; ++command) {
        for (unsigned code = 0x80; code <= 0xFF; ++code) {
            const auto found = list.find({command, code});
            EXPECT_EQ(tool::pldm_code_name(type, static_cast<uint8_t>(command),
                                           static_cast<uint8_t>(code)),
                      found == list.end() ? "command specific" : found->second)
                << "command " << command << ", code " << code;
        }
    }
}

TEST(NamesOfPldmCodes, AreThoseOfTheListForEveryCommand) {
    if (!has_published_names()) {
        GTEST_SKIP() << kPublishedNamesFile << " is not there";
    }
    compare_codes(0, codes_of_commands("DSP0240 completion codes per command", "DSP0240 commands"));
    compare_codes(2, codes_of_commands("DSP0248 completion codes per command", "DSP0248 commands"));
    // Firmware update numbers its codes for all commands together.
    for (const auto& [place, name] :
         codes_of_commands("DSP0267 completion codes per command", "DSP0267 commands")) {
        const auto& [command, code] = place;
        EXPECT_EQ(
            tool::pldm_code_name(5, static_cast<uint8_t>(command), static_cast<uint8_t>(code)),
            name);
    }
}

TEST(NamesOfControllerStatus, HaveTheBitsOfTheListAndNoOthers) {
    if (!has_published_names()) {
        GTEST_SKIP() << kPublishedNamesFile << " is not there";
    }
    std::set<unsigned> listed;
    for (const Json& row :
         published_names().at("NVMe-MI Controller Health Data Structure: CSTS bits")) {
        const std::string bits = row["value"].get<std::string>();  // "0", or "3:2"
        const size_t colon = bits.find(':');
        listed.insert(static_cast<unsigned>(std::stoul(bits)));
        listed.insert(static_cast<unsigned>(
            std::stoul(colon == std::string::npos ? bits : bits.substr(colon + 1))));
    }
    for (unsigned bit = 0; bit < 16; ++bit) {
        EXPECT_EQ(bit_of<tool::controller_status_text>(bit) != "not ready", listed.count(bit) == 1)
            << "bit " << bit;
    }
}

TEST(NamesOfControllerStatus, AreTheirOwn) {
    EXPECT_EQ(tool::controller_status_text(0x0000), "not ready");
    EXPECT_EQ(tool::controller_status_text(0x0001), "ready");
    EXPECT_EQ(tool::controller_status_text(0x0005), "ready, shutting down");
    EXPECT_EQ(tool::controller_status_text(0x0008), "shut down");
    EXPECT_EQ(tool::controller_status_text(0x000C), "reserved shutdown status");
    EXPECT_EQ(tool::controller_status_text(0x0101), "ready, TCIDA");
    EXPECT_EQ(tool::composite_status_text(0x0104), "shutdown status changed, status changed");
}

TEST(NamesOfWarnings, HaveTheSameBitsInBothStructures) {
    for (unsigned bit = 0; bit < 8; ++bit) {
        EXPECT_EQ(bit_of<tool::smart_warnings_text>(bit) == "none", warning(bit) == "none")
            << "bit " << bit;
    }
}

TEST(NamesOfTheList, AreAllComparedOrNotNamedByTheTool) {
    if (!has_published_names()) {
        GTEST_SKIP() << kPublishedNamesFile << " is not there";
    }
    std::map<std::string, int> seen;
    for (const Comparison& comparison : kComparisons) {
        ++seen[comparison.table];
    }
    for (const char* table : kNotNamed) {
        ++seen[table];
    }
    for (const char* table : kComparedByCommand) {
        ++seen[table];
    }
    for (const auto& [table, rows] : published_names()) {
        EXPECT_EQ(seen[table], set_of(table) ? 0 : 1) << table;
    }
}

}  // namespace
