// SPDX-License-Identifier: Apache-2.0
// The command scan: every endpoint of the board, and what each speaks.

#include "tools/mctp/commands.h"
#include "tools/mctp/survey.h"
#include "tools/shell/json.h"

namespace tool {

void run_scan(Context& context, std::optional<uint32_t> bus) {
    const std::vector<Finding> findings =
        bus ? survey_bus(context.port, *bus) : survey(context.port);
    if (bus && findings.empty()) {
        throw Failure(ExitStatus::kFailed,
                      "no endpoint is known on I2C bus " + std::to_string(*bus));
    }
    context.output.table(survey_table(findings));
    context.output.document(
        {{"board", context.port.board_name()}, {"endpoints", survey_json(findings)}});
    for (const Finding& found : findings) {
        if (found.failure) {
            context.report(*found.failure);
        }
    }
}

}  // namespace tool
