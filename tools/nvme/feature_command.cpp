// SPDX-License-Identifier: Apache-2.0
// The commands nvme feature and nvme lockdown.
#include <fmt/format.h>

#include "tools/nvme/client.h"
#include "tools/nvme/codes.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/fields.h"
#include "tools/shell/name_table.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr Name kCapabilityBits[] = {{0, "saveable"}, {1, "namespace specific"}, {2, "changeable"}};

/// What Get Features answers.
struct FeatureValue {
    uint32_t dword0 = 0;
    std::vector<uint8_t> data;
};

nvme_admin_req request_for(NvmeClient& client, const NvmeTarget& target) {
    nvme_admin_req request{};
    request.cntlid = client.choose(target.controller);
    request.ctx = client.context();
    request.nsid = target.nsid;
    return request;
}

std::string feature_title(uint8_t feature) {
    return fmt::format("feature 0x{:02x} ({})", feature, nvme_feature_name(feature));
}

/// What is prohibited or allowed.
std::string lockdown_title(const NvmeLockdownWish& wish) {
    const uint8_t id = wish.identifier;
    switch (wish.scope) {
        case NVME_LOCKDOWN_FEATURE:
            return feature_title(id);
        case NVME_LOCKDOWN_MI_OPCODE:
            return fmt::format("NVMe-MI command 0x{:02x} ({})", id, nvmemi_command_name(id));
        default:
            return fmt::format("admin command 0x{:02x} ({})", id, nvme_admin_command_name(id));
    }
}

FeatureValue read_feature(NvmeClient& client, nvme_admin_req request, const NvmeFeatureWish& wish) {
    FeatureValue value;
    value.data.resize(wish.length);
    nvme_feature_result result{};
    result.data_length = wish.length;
    result.data = value.data.data();
    request.dlen = wish.length;
    const std::string operation = "Get Features of " + feature_title(wish.feature);
    client.call(operation, [&] {
        return nvme_admin_get_feature(&request, wish.feature, wish.select, &result);
    });
    if (client.last_length() < NVME_ADMIN_RESPONSE_SIZE + value.data.size()) {
        throw Failure(client.name(), operation,
                      fmt::format("the answer has {} bytes only", client.last_length()));
    }
    value.dword0 = result.dword0;
    return value;
}

const char* select_text(uint8_t select) {
    constexpr const char* kWords[] = {"current", "default", "saved", "capabilities"};
    return kWords[select & 3];
}

}  // namespace

void run_nvme_feature_get(Context& context, const NvmeTarget& target, const NvmeFeatureWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    const FeatureValue value = read_feature(found.client, request_for(found.client, target), wish);
    Fields fields;
    fields.add("fid", fmt::format("0x{:02x}", wish.feature), wish.feature);
    fields.explain(nvme_feature_name(wish.feature));
    fields.add("sel", std::to_string(wish.select), wish.select);
    fields.explain(select_text(wish.select));
    fields.add("dword0", fmt::format("0x{:08x}", value.dword0), value.dword0);
    if (wish.select == NVME_FEATURE_CAPABILITIES) {
        fields.explain(bits_text(value.dword0, kCapabilityBits, "none"));
    }
    if (wish.length > 0) {
        fields.add("data", hex(value.data), hex(value.data));
    }
    context.output.text(fields.text());
    Json document{{"endpoint", target.endpoint}};
    document.update(fields.json());
    context.output.document(document);
}

void run_nvme_feature_set(Context& context, const NvmeTarget& target, const NvmeFeatureWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    nvme_admin_req request = request_for(found.client, target);
    const uint32_t before = read_feature(found.client, request, wish).dword0;
    request.cdw11 = wish.value;
    found.client.call("Set Features of " + feature_title(wish.feature), [&] {
        return nvme_admin_set_feature(&request, wish.feature, wish.save ? 1 : 0, nullptr);
    });
    request.cdw11 = 0;
    const uint32_t after = read_feature(found.client, request, wish).dword0;
    Table table({{""}, {"BEFORE"}, {"AFTER"}});
    table.add({feature_title(wish.feature), fmt::format("0x{:08x}", before),
               fmt::format("0x{:08x}", after)});
    context.output.text(table.text());
    context.output.document({{"endpoint", target.endpoint},
                             {"fid", wish.feature},
                             {"sv", wish.save},
                             {"before", before},
                             {"after", after}});
}

void run_nvme_lockdown(Context& context, const NvmeTarget& target, const NvmeLockdownWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    const std::string name = lockdown_title(wish);
    nvme_lockdown_param param{};
    param.cntlid = found.client.choose(target.controller);
    param.ctx = found.client.context();
    param.cdw10 = NVME_LOCKDOWN_SCP(wish.scope) | (wish.allow ? 0 : NVME_LOCKDOWN_PRHBT) |
                  NVME_LOCKDOWN_IFC(wish.interfaces) | NVME_LOCKDOWN_OFI(wish.identifier);
    found.client.call(fmt::format("Lockdown of {}", name),
                      [&] { return nvme_lockdown_set(&param); });
    context.output.text(fmt::format("{} is {}\n", name, wish.allow ? "allowed" : "prohibited"));
    context.output.document({{"endpoint", target.endpoint},
                             {"scp", wish.scope},
                             {"prhbt", !wish.allow},
                             {"ifc", wish.interfaces},
                             {"ofi", wish.identifier}});
}

}  // namespace tool
