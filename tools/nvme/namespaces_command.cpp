// SPDX-License-Identifier: Apache-2.0
// The commands nvme ns.
#include <fmt/format.h>

#include <algorithm>

#include "tools/nvme/client.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/structures.h"
#include "tools/shell/confirm.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// The namespaces of a drive. One without namespace management has those alone that are attached.
struct NamespaceLists {
    std::vector<uint32_t> all;
    std::vector<uint32_t> attached;
    uint32_t describe = kIdentifyCnsAllocatedNamespace;  ///< CNS of the structure of each

    bool is_attached(uint32_t id) const {
        return std::find(attached.begin(), attached.end(), id) != attached.end();
    }
};

NamespaceLists read_namespace_lists(NvmeClient& client, uint16_t controller) {
    NamespaceLists lists;
    lists.attached = namespace_list(client, controller, true);
    try {
        lists.all = namespace_list(client, controller, false);
    } catch (const Failure& failure) {
        if (!failure.code() || failure.code()->kind != DeviceCode::Kind::kNvme) {
            throw;
        }
        lists.all = lists.attached;
        lists.describe = kIdentifyCnsNamespace;
    }
    return lists;
}

/// As drives are sold: by powers of ten.
std::string capacity_text(uint64_t bytes) {
    const auto number = static_cast<double>(bytes);
    return number < 1e9 ? fmt::format("{:.2f} MB", number / 1e6)
                        : fmt::format("{:.2f} GB", number / 1e9);
}

/// Host software specified fields of Namespace Management.
std::vector<uint8_t> creation_data(const NvmeNamespaceWish& wish) {
    constexpr size_t kCapacity = 8;
    constexpr size_t kFormattedSize = 26;
    constexpr size_t kSharing = 30;
    std::vector<uint8_t> data(NVME_ADMIN_DATA_MAX);
    for (size_t i = 0; i < sizeof wish.blocks; ++i) {
        data[i] = data[kCapacity + i] = static_cast<uint8_t>(wish.blocks >> (8 * i));
    }
    data[kFormattedSize] = wish.format;
    data[kSharing] = wish.shared ? 1 : 0;
    return data;
}

}  // namespace

void run_nvme_ns_list(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    const NamespaceLists lists = read_namespace_lists(client, controller);
    Table table({{"NSID", true},
                 {"ATTACHED"},
                 {"BLOCKS", true},
                 {"USED", true},
                 {"BLOCK SIZE", true},
                 {"SIZE", true}});
    Json list = Json::array();
    for (const uint32_t id : lists.all) {
        const std::vector<uint8_t> data = client.identify(controller, lists.describe, id);
        const uint64_t blocks = little_endian_at(data, 0, 8);
        const uint64_t used = little_endian_at(data, 16, 8);
        const LbaFormat format = lba_format(data, format_in_use(data));
        const bool attached = lists.is_attached(id);
        table.add({std::to_string(id), attached ? "yes" : "no", std::to_string(blocks),
                   std::to_string(used), std::to_string(format.bytes()),
                   capacity_text(blocks * format.bytes())});
        list.push_back({{"nsid", id},
                        {"attached", attached},
                        {"nsze", blocks},
                        {"nuse", used},
                        {"lbads", format.data_size},
                        {"ms", format.metadata}});
    }
    context.output.text(list.items().empty() ? "no namespaces\n" : table.text());
    context.output.document(
        {{"endpoint", target.endpoint}, {"cntlid", controller}, {"namespaces", list}});
}

void run_nvme_ns_create(Context& context, const NvmeTarget& target, const NvmeNamespaceWish& wish) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    const std::vector<uint8_t> data = creation_data(wish);
    uint32_t id = 0;
    found.client.call("Namespace Management (create)", [&] {
        return nvme_namespace_mgmt_create(found.client.context(), controller, data.data(), &id);
    });
    context.output.text(
        fmt::format("namespace {} has been created; no controller is attached to it\n", id));
    context.output.document({{"endpoint", target.endpoint}, {"nsid", id}});
}

void run_nvme_ns_delete(Context& context, const NvmeTarget& target, bool yes) {
    const std::string what = namespace_name(target.nsid);
    confirm(context.output, yes,
            fmt::format("This deletes {} of {} with all data", what, target.endpoint));
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    found.client.call(fmt::format("Namespace Management (delete) of {}", what), [&] {
        return nvme_namespace_mgmt_delete(found.client.context(), controller, target.nsid);
    });
    context.output.text(fmt::format("{} has been deleted\n", what));
    context.output.document({{"endpoint", target.endpoint}, {"nsid", target.nsid}});
}

void run_nvme_ns_attach(Context& context, const NvmeTarget& target, bool attach) {
    FoundDrive found(context.port, target.endpoint);
    const uint16_t controller = found.client.choose(target.controller);
    found.client.call(fmt::format("Namespace Attachment ({}) of namespace {}",
                                  attach ? "attach" : "detach", target.nsid),
                      [&] {
                          return nvme_namespace_mgmt_attachment(
                              found.client.context(), controller, target.nsid,
                              attach ? NVME_NAMESPACE_ATTACH : NVME_NAMESPACE_DETACH);
                      });
    context.output.text(fmt::format("namespace {} is {} controller {}\n", target.nsid,
                                    attach ? "attached to" : "detached from", controller));
    context.output.document({{"endpoint", target.endpoint},
                             {"nsid", target.nsid},
                             {"cntlid", controller},
                             {"attached", attach}});
}

}  // namespace tool
