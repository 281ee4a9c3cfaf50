// SPDX-License-Identifier: Apache-2.0
// All rules, a table for each message family.
#ifndef SIDEBAND_TOOLS_CHECK_RULES_H
#define SIDEBAND_TOOLS_CHECK_RULES_H

#include "tools/check/rule.h"

namespace tool::check {

std::span<const Rule> mctp_rules();
std::span<const Rule> packet_rules();
std::span<const Rule> pldm_base_rules();
std::span<const Rule> monitor_rules();
std::span<const Rule> sensor_rules();
std::span<const Rule> fru_rules();
std::span<const Rule> update_rules();
std::span<const Rule> update_mode_rules();
std::span<const Rule> ncsi_rules();
std::span<const Rule> nvme_rules();

/// All of them whose names begin with a text, in the order in which they are tried.
std::vector<const Rule*> rules_named(const std::string& beginning);

}  // namespace tool::check

#endif
