// SPDX-License-Identifier: Apache-2.0
// The commands nvme format and nvme sanitize.
#include <fmt/format.h>

#include "tools/nvme/client.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/structures.h"
#include "tools/shell/confirm.h"
#include "tools/shell/json.h"
#include "tools/shell/progress.h"
#include "tools/shell/text.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

constexpr uint8_t kSanitizeInProgress = 2;
constexpr uint8_t kSanitizeFailed = 3;

uint32_t format_dword(size_t format, uint8_t erase) {
    constexpr unsigned kUpperShift = 12;
    constexpr unsigned kEraseShift = 9;
    const auto index = static_cast<uint32_t>(format);
    return (index & 0x0F) | (index >> 4 & 3) << kUpperShift | uint32_t{erase} << kEraseShift;
}

uint32_t sanitize_dword(const NvmeSanitizeWish& wish) {
    return NVME_SANITIZE_SANACT(wish.action) | (wish.unrestricted ? NVME_SANITIZE_AUSE : 0) |
           NVME_SANITIZE_OWPASS(wish.passes) | (wish.invert ? NVME_SANITIZE_OIPBP : 0) |
           (wish.no_deallocate ? NVME_SANITIZE_NDAS : 0);
}

/// Follows a sanitize operation to its end.
SanitizeState wait_for_end(Context& context, NvmeClient& client, uint16_t controller) {
    constexpr uint64_t kPauseUs = 1000000;
    Progress progress(context.output, context.port, {});
    SanitizeState state = read_sanitize(client, controller);
    while (state.status == kSanitizeInProgress) {
        progress.show(state.percent, 0, 0);
        TimeLimit::wait_us(context.port, kPauseUs);
        state = read_sanitize(client, controller);
    }
    if (state.status != kSanitizeFailed) {
        progress.show(100, 0, 0);
    }
    return state;
}

}  // namespace

void run_nvme_format(Context& context, const NvmeTarget& target, const NvmeFormatWish& wish) {
    const std::string what = namespace_name(target.nsid);
    confirm(context.output, wish.yes,
            fmt::format("Format NVM destroys what {} of {} holds", what, target.endpoint));
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    const size_t format =
        wish.format
            ? *wish.format
            : format_in_use(client.identify(controller, kIdentifyCnsNamespace, target.nsid));
    const uint32_t dword = format_dword(format, wish.erase);
    client.call(fmt::format("Format NVM of {}", what),
                [&] { return nvme_format_nvm(client.context(), controller, target.nsid, &dword); });
    context.output.text(fmt::format("{} has been formatted with LBA format {}\n", what, format));
    context.output.document({{"endpoint", target.endpoint},
                             {"nsid", target.nsid},
                             {"lbaf", format},
                             {"ses", wish.erase}});
}

void run_nvme_sanitize(Context& context, const NvmeTarget& target, const NvmeSanitizeWish& wish) {
    if (wish.action != NVME_SANACT_EXIT_FAILURE) {
        confirm(context.output, wish.yes,
                fmt::format("Sanitize destroys all that {} holds", target.endpoint));
    }
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    const nvme_sanitize_param param{.ctx = client.context(),
                                    .cntlid = controller,
                                    .nsid = 0,
                                    .cdw10 = sanitize_dword(wish),
                                    .cdw11 = wish.pattern};
    client.call("Sanitize", [&] { return nvme_sanitize_set(&param); });
    const SanitizeState state =
        wish.wait ? wait_for_end(context, client, controller) : read_sanitize(client, controller);
    context.output.text(state.fields.text());
    Json document{{"endpoint", target.endpoint}};
    document.update(state.fields.json());
    context.output.document(document);
    if (state.status == kSanitizeFailed) {
        context.report({target.endpoint, "the sanitize operation", "the drive says so in its log"});
    }
}

}  // namespace tool
