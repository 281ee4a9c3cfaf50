// SPDX-License-Identifier: Apache-2.0
// The demo's drives: how they are, and new firmware for one of them.
#include <fmt/format.h>

#include "tools/demo/demo.h"
#include "tools/nvme/firmware_update.h"
#include "tools/nvme/health.h"
#include "tools/nvme/states.h"
#include "tools/shell/json.h"
#include "tools/shell/temporary_file.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr size_t kDriveImageSize = 65536;
constexpr size_t kStepIndent = 3;

void show_drive(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    NvmeClient client(session);
    const NvmeHealth health = read_health(client);
    const Fields smart = read_smart(client, client.choose({}));
    step.output.text(health_text(health, kStepIndent) + "\n" + smart.text(kStepIndent));
    step.details = {{"health", health_json(health)}, {"smart", smart.json()}};
    step.result = fmt::format("{}, {}, {} % used", counted(health.controllers.size(), "controller"),
                              composite_text(health.subsystem.ctemp), health.subsystem.pdlu);
}

void show_drive_update(Tour::Step& step, Port& port, const Endpoint& endpoint) {
    constexpr uint8_t kAnySlot = 0;
    constexpr uint8_t kReplaceAndActivate = 1;
    Session session(endpoint);
    session.discover();
    NvmeClient client(session);
    const uint16_t controller = client.choose({});
    const std::string before = firmware_revision(client, controller);
    const std::string wanted = next_version(before);
    const std::vector<uint8_t> image = port.drive_image(wanted, kDriveImageSize);
    if (image.empty()) {
        step.skip("nobody can tell what an image for this drive is");
        return;
    }
    const TemporaryFile file(image);
    const uint64_t start = port.now_us();
    Progress progress(step.output, port, {.indent = kStepIndent, .lines = false});
    const uint64_t bytes =
        download_image(client, controller, file.path(), NVME_ADMIN_DATA_MAX, progress);
    const std::string pace =
        fmt::format("{} bytes downloaded in {}", bytes, seconds_text(port.now_us() - start));
    commit_image(client, controller, kAnySlot, kReplaceAndActivate);
    const FirmwareSlots slots = reset_and_wait(port, client, controller);
    const std::string after = firmware_revision(client, controller);
    step.say(pace);
    step.say("committed, and the drive reset");
    step.output.text("\n");
    step.output.text(slots_text(slots, kStepIndent));
    step.details = slots_json(slots);
    step.details["bytes"] = bytes;
    step.details["before"] = before;
    step.details["after"] = after;
    if (after != wanted) {
        throw Failure(endpoint.name, "the activation", "the revision is " + after);
    }
    step.result = fmt::format("{} bytes, {} is now {}", bytes, before, after);
}

}  // namespace

const Endpoint* show_drives(Tour& tour, Port& port, const std::vector<Endpoint>& drives) {
    const Endpoint* first = nullptr;
    for (const Endpoint& endpoint : drives) {
        tour.step("A drive's health",
                  "NVMe-MI: the health status polls, and the SMART log page through the tunnel.",
                  endpoint.name, [&](Tour::Step& step) {
                      show_drive(step, endpoint);
                      first = first == nullptr ? &endpoint : first;
                  });
    }
    if (first != nullptr) {
        tour.step("A drive's firmware",
                  "An image for this drive: downloaded, committed, active behind a reset.",
                  first->name, [&](Tour::Step& step) { show_drive_update(step, port, *first); });
    }
    return first;
}

}  // namespace tool
