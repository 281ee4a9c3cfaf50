// SPDX-License-Identifier: Apache-2.0
// The commands pldm fw-info and pldm fw-update.
#include <fmt/format.h>

#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"
#include "tools/update/commands.h"
#include "tools/update/report.h"

namespace tool {
namespace {

/// The error of a package that parses and yet is none to update with.
void check_package(const ParsedPackage& package) {
    const auto refuse = [&package](const std::string& why) {
        throw Failure(ExitStatus::kInput, package.path() + ": " + why);
    };
    if (package.records().empty()) {
        refuse("the package is for no device");
    }
    const size_t components = package.components().size();
    if (components > PLDM_FW_COMPONENTS_MAX) {
        refuse(fmt::format("the package has {} components, {} are the most", components,
                           PLDM_FW_COMPONENTS_MAX));
    }
}

}  // namespace

void run_pldm_fw_info(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    const FirmwareInfo info = read_firmware_info(session);
    context.output.text(firmware_text(info));
    Json document{{"endpoint", endpoint}};
    document.update(firmware_json(info));
    context.output.document(document);
}

void run_pldm_fw_update(Context& context, const std::string& endpoint, const std::string& path,
                        const UpdateWish& wish) {
    const ParsedPackage package(path);
    check_package(package);
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    if (wish.query) {
        query_firmware(context, session, package);
        return;
    }
    Progress progress(context.output, context.port, {});
    const UpdateReport report = update_firmware(context.port, session, package, wish, progress);
    context.output.text(report_text(report));
    context.output.document(report_json(report));
}

}  // namespace tool
