// SPDX-License-Identifier: Apache-2.0
// Devices that are right but for one thing, for the tests of the rules.
#ifndef SIDEBAND_TESTS_TOOLS_CHECK_DEFECTS_H
#define SIDEBAND_TESTS_TOOLS_CHECK_DEFECTS_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tools/check/messages.h"
#include "tools/check/rules.h"

namespace check_test {

using tool::check::Bytes;
using tool::check::Exchange;
using tool::check::Result;

/// Whether a defect shows in the answer to a request.
using Match = std::function<bool(const Exchange&)>;
/// What the defect makes of the exchange.
using Change = std::function<void(Exchange&)>;

// ---- Requests -----------------------------------------------------------------------------------

Match control(uint8_t command);
Match pldm(uint8_t type, uint8_t command);
Match ncsi(uint8_t packet_type);
/// NVMe-MI commands of the management interface.
Match nvme(uint8_t opcode);
/// Any message of a type, bit 7 apart.
Match any(uint8_t message_type);
/// The same, if a byte of the request has a value.
Match with(Match match, size_t place, uint8_t value);
/// The same, if the request is so long.
Match sized(Match match, size_t size);
/// The same, from the second one on every second time.
Match second(Match match);
/// The same, from the nth one on.
Match from_on(Match match, int nth);

// ---- Answers ------------------------------------------------------------------------------------

Change flip(size_t place, uint8_t bits);
Change put(size_t place, uint8_t value);
/// Without its last bytes, or with more zeros behind it.
Change shorten(size_t bytes);
Change lengthen(size_t bytes);
Change silent();
/// An answer with the request's header and this completion code, and nothing else.
Change code(uint8_t value);
/// An answer with the request's header, completion code and data.
Change success(const Bytes& data);
/// Another one, and then the integrity check made right again.
Change checked(Change change);
/// Of the packets of an answer, the first one with something done to it.
Change packet(size_t place, uint8_t bits);

/// A device of the built-in board, or of a board of its own, with a defect.
struct Defect {
    const char* rule;    ///< it breaks
    const char* device;  ///< that is right otherwise
    Match match;
    Change change;
    std::set<std::string> followers = {};  ///< rules that it breaks too
};

/// Names of the rules that fail on a device. @param change  empty for a device that is right
std::set<std::string> failing(const std::string& device, const Match& match, const Change& change);

/// All results on a device that is right.
/// @param seen  is asked about each exchange; its answer is of no importance
std::vector<Result> results_of(const std::string& device, bool may_write, const Match& seen = {});

/// Expects of each defect that the rule fails and none but its followers with it.
void expect_broken(const std::vector<Defect>& defects);

// The tables, by family.
std::vector<Defect> mctp_defects();
std::vector<Defect> pldm_defects();
std::vector<Defect> monitor_defects();
std::vector<Defect> fru_defects();
std::vector<Defect> update_defects();
std::vector<Defect> ncsi_defects();
std::vector<Defect> nvme_defects();

}  // namespace check_test

#endif
