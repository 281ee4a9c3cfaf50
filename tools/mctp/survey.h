// SPDX-License-Identifier: Apache-2.0
// A first look at endpoints: are they there, which EID have they, what do they speak.
#ifndef SIDEBAND_TOOLS_MCTP_SURVEY_H
#define SIDEBAND_TOOLS_MCTP_SURVEY_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/failure.h"
#include "tools/shell/json.h"
#include "tools/shell/port.h"
#include "tools/shell/text.h"

namespace tool {

/// What one endpoint told. If it answered an optional command with an error, there is a gap.
struct Finding {
    Endpoint endpoint;
    uint8_t eid = 0;  ///< 0 if it is not known
    bool eid_assigned = false;
    std::optional<std::array<uint8_t, 16>> uuid;
    std::optional<std::vector<uint8_t>> message_types;
    std::optional<Failure> failure;

    bool speaks(uint8_t message_type) const;
};

/// Looks at every endpoint that is present, by what the port knows; one that does not answer stops
/// nothing.
std::vector<Finding> survey(const Port& port);
/// The same of the endpoints on one I2C bus.
std::vector<Finding> survey_bus(const Port& port, uint32_t bus);
/// The same of the endpoints on one transport.
std::vector<Finding> survey(const Port& port, Transport transport);

/// The findings as a table for people, each line behind some blanks.
Table survey_table(const std::vector<Finding>& findings);

Json survey_json(const std::vector<Finding>& findings);

}  // namespace tool

#endif
