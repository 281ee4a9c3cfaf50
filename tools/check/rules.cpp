// SPDX-License-Identifier: Apache-2.0
// All rules, a table for each message family.
#include "tools/check/rules.h"

#include <string_view>

namespace tool::check {

std::vector<const Rule*> rules_named(const std::string& beginning) {
    std::vector<const Rule*> named;
    for (const std::span<const Rule> table :
         {mctp_rules(), packet_rules(), pldm_base_rules(), monitor_rules(), sensor_rules(),
          fru_rules(), update_rules(), update_mode_rules(), ncsi_rules(), nvme_rules()}) {
        for (const Rule& rule : table) {
            if (std::string_view(rule.name).starts_with(beginning)) {
                named.push_back(&rule);
            }
        }
    }
    return named;
}

}  // namespace tool::check
