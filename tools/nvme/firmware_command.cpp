// SPDX-License-Identifier: Apache-2.0
// The commands nvme fw-download and nvme fw-commit.
#include <fmt/format.h>

#include "tools/nvme/commands.h"
#include "tools/nvme/firmware_update.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// Commits what has come, resets if that is wished for, and shows the slots.
void finish_update(Context& context, NvmeClient& client, uint16_t controller,
                   const NvmeFirmwareWish& wish, Json& document) {
    const std::string need = commit_image(client, controller, wish.slot, *wish.action);
    context.output.text("committed\n");
    const FirmwareSlots slots = wish.reset ? reset_and_wait(context.port, client, controller)
                                           : read_firmware_slots(client, controller);
    if (wish.reset) {
        context.output.text("reset\n");
    } else if (!need.empty()) {
        context.output.text("it becomes active by " + need + "\n");
    }
    context.output.text("\n" + slots_text(slots));
    document["activation_needs"] = wish.reset ? "" : need;
    document.update(slots_json(slots));
}

}  // namespace

void run_nvme_fw_download(Context& context, const NvmeTarget& target,
                          const NvmeFirmwareWish& wish) {
    if (wish.chunk_size % 4 != 0) {
        throw Failure(ExitStatus::kUsage, "--chunk-size must be a multiple of 4");
    }
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    Progress progress(context.output, context.port, {});
    const uint64_t start = context.port.now_us();
    const uint64_t size =
        download_image(found.client, controller, wish.path, wish.chunk_size, progress);
    const uint64_t duration = context.port.now_us() - start;
    context.output.text(fmt::format("{} bytes downloaded in {}\n", size, seconds_text(duration)));
    Json document{{"endpoint", target.endpoint},
                  {"image", wish.path},
                  {"bytes", size},
                  {"duration_us", duration}};
    if (wish.action) {
        finish_update(context, found.client, controller, wish, document);
    }
    context.output.document(document);
}

void run_nvme_fw_commit(Context& context, const NvmeTarget& target, const NvmeFirmwareWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    Json document{{"endpoint", target.endpoint}};
    finish_update(context, found.client, controller, wish, document);
    context.output.document(document);
}

}  // namespace tool
