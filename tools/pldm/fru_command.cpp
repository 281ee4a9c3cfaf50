// SPDX-License-Identifier: Apache-2.0
// The command pldm fru: the FRU data of a terminus.
#include <fmt/format.h>

#include "tools/pldm/commands.h"
#include "tools/pldm/fru_report.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"

namespace tool {

void run_pldm_fru(Context& context, const std::string& endpoint, bool fixed_parts) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    const FruData table = read_fru(session, fixed_parts);
    context.output.text(fru_text(table));
    Json document{{"endpoint", endpoint}};
    document.update(fru_json(table));
    context.output.document(document);
    if (table.failure) {
        context.report(*table.failure);
    }
}

}  // namespace tool
