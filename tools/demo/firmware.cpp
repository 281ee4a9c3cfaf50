// SPDX-License-Identifier: Apache-2.0
// The demo's firmware updates: cards get packages that are made for them on the spot.
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "testing/package_builder.h"
#include "tools/demo/demo.h"
#include "tools/shell/json.h"
#include "tools/shell/temporary_file.h"
#include "tools/shell/text.h"
#include "tools/update/report.h"

namespace tool {

std::string next_version(const std::string& version) {
    const size_t last = version.find_last_not_of("0123456789");
    const std::string head = version.substr(0, last == std::string::npos ? 0 : last + 1);
    const std::optional<uint32_t> number =
        parse_number(std::string_view(version).substr(head.size()), 999999999);
    return number ? head + std::to_string(*number + 1) : version + ".1";
}

namespace {

constexpr size_t kImageSize = 4096;

/// A package for this device and its first component.
std::vector<uint8_t> package_for(const FirmwareInfo& info) {
    const FirmwareComponent& own = info.components.front();
    PackageRecord record;
    record.components = {0};
    record.version = next_version(info.active_version);
    for (const Descriptor& descriptor : info.descriptors) {
        record.descriptors.push_back({descriptor.type, descriptor.data, {}});
    }
    PackageComponent component;
    component.classification = own.classification;
    component.identifier = own.identifier;
    component.comparison_stamp = own.active.comparison_stamp + 1;
    component.activation_method = own.activation_methods;
    component.version = next_version(own.active.version);
    for (size_t i = 0; i < kImageSize; ++i) {
        component.image.push_back(static_cast<uint8_t>(i ^ i >> 8));
    }
    Package package;
    package.version = record.version;
    package.records = {record};
    package.components = {component};
    return build_package(package);
}

void show_update(Tour::Step& step, Port& port, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const FirmwareInfo info = read_firmware_info(session);
    if (info.components.empty()) {
        step.skip("the device has no firmware component");
        return;
    }
    const TemporaryFile file(package_for(info));
    const ParsedPackage package(file.path());
    Progress progress(step.output, port, {.indent = 3, .lines = false});
    const UpdateReport report = update_firmware(port, session, package, {}, progress);
    step.output.text(report_text(report, 3));
    step.say("took " + seconds_text(report.duration_us));
    step.details = report_json(report);
    // Another name each time, of a file that is no more.
    step.details.erase("package");
    if (report.after.active_version != package.version()) {
        throw Failure(endpoint.name, "the activation",
                      "the active version is " + version_or_dash(report.after.active_version));
    }
    step.result = fmt::format("{} bytes, {} is now {}", report.bytes, report.before.active_version,
                              report.after.active_version);
}

/// One that does not answer has been reported by its own step.
bool has_firmware(const Endpoint& endpoint) {
    try {
        Session session(endpoint);
        session.discover();
        pldm_ctx& pldm = session.pldm();
        return pldm_get_type(&pldm) == 0 && (pldm.pldm_types[0] >> PLDM_TYPE_FW_UPDATE & 1) != 0;
    } catch (const Failure&) {
        return false;
    }
}

}  // namespace

void show_updates(Tour& tour, Port& port, const std::vector<Endpoint>& speakers) {
    for (const Transport transport : {Transport::kI2c, Transport::kPcie}) {
        const auto card =
            std::find_if(speakers.begin(), speakers.end(), [transport](const Endpoint& endpoint) {
                return endpoint.transport == transport && has_firmware(endpoint);
            });
        if (card != speakers.end()) {
            tour.step("A firmware update",
                      "A package for this card: it fetches the image, verifies it, activates it.",
                      card->name, [&](Tour::Step& step) { show_update(step, port, *card); });
        }
    }
}

}  // namespace tool
