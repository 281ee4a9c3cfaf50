// SPDX-License-Identifier: Apache-2.0
// The commands nvme identify.
#include <fmt/format.h>

#include <algorithm>

#include "tools/nvme/client.h"
#include "tools/nvme/commands.h"
#include "tools/nvme/structures.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr FieldLayout kControllerLayout[] = {
    {"vid", 0, 2, FieldLook::kHex},
    {"ssvid", 2, 2, FieldLook::kHex},
    {"sn", 4, 20, FieldLook::kAscii},
    {"mn", 24, 40, FieldLook::kAscii},
    {"fr", 64, 8, FieldLook::kAscii},
    {"rab", 72, 1},
    {"ieee", 73, 3, FieldLook::kHex},
    {"cmic", 76, 1, FieldLook::kHex},
    {"mdts", 77, 1},
    {"cntlid", 78, 2},
    {"ver", 80, 4, FieldLook::kVersion},
    {"rtd3r", 84, 4, FieldLook::kHex},
    {"rtd3e", 88, 4, FieldLook::kHex},
    {"oaes", 92, 4, FieldLook::kHex},
    {"ctratt", 96, 4, FieldLook::kHex},
    {"rrls", 100, 2, FieldLook::kHex},
    {"cntrltype", 111, 1},
    {"fguid", 112, 16, FieldLook::kBytes},
    {"crdt1", 128, 2},
    {"crdt2", 130, 2},
    {"crdt3", 132, 2},
    {"nvmsr", 253, 1, FieldLook::kHex},
    {"vwci", 254, 1, FieldLook::kHex},
    {"mec", 255, 1, FieldLook::kHex},
    {"oacs", 256, 2, FieldLook::kHex},
    {"acl", 258, 1},
    {"aerl", 259, 1},
    {"frmw", 260, 1, FieldLook::kHex},
    {"lpa", 261, 1, FieldLook::kHex},
    {"elpe", 262, 1},
    {"npss", 263, 1},
    {"avscc", 264, 1, FieldLook::kHex},
    {"apsta", 265, 1, FieldLook::kHex},
    {"wctemp", 266, 2, FieldLook::kKelvin},
    {"cctemp", 268, 2, FieldLook::kKelvin},
    {"mtfa", 270, 2},
    {"hmpre", 272, 4},
    {"hmmin", 276, 4},
    {"tnvmcap", 280, 16},
    {"unvmcap", 296, 16},
    {"rpmbs", 312, 4, FieldLook::kHex},
    {"edstt", 316, 2},
    {"dsto", 318, 1, FieldLook::kHex},
    {"fwug", 319, 1},
    {"kas", 320, 2},
    {"hctma", 322, 2, FieldLook::kHex},
    {"mntmt", 324, 2, FieldLook::kKelvin},
    {"mxtmt", 326, 2, FieldLook::kKelvin},
    {"sanicap", 328, 4, FieldLook::kHex},
    {"hmminds", 332, 4},
    {"hmmaxd", 336, 2},
    {"nsetidmax", 338, 2},
    {"endgidmax", 340, 2},
    {"anatt", 342, 1},
    {"anacap", 343, 1, FieldLook::kHex},
    {"anagrpmax", 344, 4},
    {"nanagrpid", 348, 4},
    {"pels", 352, 4},
    {"sqes", 512, 1, FieldLook::kHex},
    {"cqes", 513, 1, FieldLook::kHex},
    {"maxcmd", 514, 2},
    {"nn", 516, 4},
    {"oncs", 520, 2, FieldLook::kHex},
    {"fuses", 522, 2, FieldLook::kHex},
    {"fna", 524, 1, FieldLook::kHex},
    {"vwc", 525, 1, FieldLook::kHex},
    {"awun", 526, 2},
    {"awupf", 528, 2},
    {"icsvscc", 530, 1, FieldLook::kHex},
    {"nwpc", 531, 1, FieldLook::kHex},
    {"acwu", 532, 2},
    {"ocfs", 534, 2, FieldLook::kHex},
    {"sgls", 536, 4, FieldLook::kHex},
    {"mnan", 540, 4},
    {"subnqn", 768, 256, FieldLook::kAscii},
};

constexpr FieldLayout kNamespaceLayout[] = {
    {"nsze", 0, 8},
    {"ncap", 8, 8},
    {"nuse", 16, 8},
    {"nsfeat", 24, 1, FieldLook::kHex},
    {"nlbaf", 25, 1},
    {"flbas", 26, 1, FieldLook::kHex},
    {"mc", 27, 1, FieldLook::kHex},
    {"dpc", 28, 1, FieldLook::kHex},
    {"dps", 29, 1, FieldLook::kHex},
    {"nmic", 30, 1, FieldLook::kHex},
    {"rescap", 31, 1, FieldLook::kHex},
    {"fpi", 32, 1, FieldLook::kHex},
    {"dlfeat", 33, 1, FieldLook::kHex},
    {"nawun", 34, 2},
    {"nawupf", 36, 2},
    {"nacwu", 38, 2},
    {"nabsn", 40, 2},
    {"nabo", 42, 2},
    {"nabspf", 44, 2},
    {"noiob", 46, 2},
    {"nvmcap", 48, 16},
    {"npwg", 64, 2},
    {"npwa", 66, 2},
    {"npdg", 68, 2},
    {"npda", 70, 2},
    {"nows", 72, 2},
    {"anagrpid", 92, 4},
    {"nsattr", 99, 1, FieldLook::kHex},
    {"nvmsetid", 100, 2},
    {"endgid", 102, 2},
    {"nguid", 104, 16, FieldLook::kBytes},
    {"eui64", 120, 8, FieldLook::kBytes},
};

/// The LBA formats of a namespace, the one in use marked.
void show_formats(const std::vector<uint8_t>& data, std::string& text, Json& list) {
    list = Json::array();
    const size_t used = format_in_use(data);
    for (size_t i = 0; i <= data[kNamespaceFormats]; ++i) {
        const LbaFormat format = lba_format(data, i);
        text += fmt::format("lbaf{}{}ms {}, lbads {} ({} bytes), rp {}{}\n", i,
                            i < 10 ? "     " : "    ", format.metadata, format.data_size,
                            format.bytes(), format.performance, i == used ? " (in use)" : "");
        list.push_back(
            {{"ms", format.metadata}, {"lbads", format.data_size}, {"rp", format.performance}});
    }
}

std::string joined(const std::vector<uint32_t>& numbers) {
    return numbers.empty() ? "-" : fmt::format("{}", fmt::join(numbers, ", "));
}

}  // namespace

void run_nvme_identify_controller(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    Fields fields;
    fields.decode(client.identify(controller, kIdentifyCnsController, 0), kControllerLayout);
    context.output.text(fields.text());
    Json document{{"endpoint", target.endpoint}};
    document.update(fields.json());
    context.output.document(document);
}

void run_nvme_identify_namespace(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    const std::vector<uint8_t> data =
        client.identify(controller, kIdentifyCnsNamespace, target.nsid);
    Fields fields;
    fields.decode(data, kNamespaceLayout);
    std::string text = fields.text();
    Json formats;
    show_formats(data, text, formats);
    context.output.text(text);
    Json document{{"endpoint", target.endpoint}, {"nsid", target.nsid}};
    document.update(fields.json());
    document["lbaf"] = formats;
    context.output.document(document);
}

void run_nvme_identify_list(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    NvmeClient& client = found.client;
    const uint16_t controller = client.choose(target.controller);
    const std::vector<uint32_t> namespaces = namespace_list(client, controller, true);
    const std::vector<uint8_t> data = client.identify(controller, kIdentifyCnsControllers, 0);
    std::vector<uint32_t> controllers;
    const size_t count = std::min<size_t>(little_endian_at(data, 0, 2), data.size() / 2 - 1);
    for (size_t i = 0; i < count; ++i) {
        controllers.push_back(static_cast<uint32_t>(little_endian_at(data, 2 + 2 * i, 2)));
    }
    context.output.text(
        fmt::format("active namespaces of controller {}  {}\n", controller, joined(namespaces)));
    context.output.text(
        fmt::format("controllers of the drive            {}\n", joined(controllers)));
    context.output.document({{"endpoint", target.endpoint},
                             {"cntlid", controller},
                             {"active_namespaces", namespaces},
                             {"controllers", controllers}});
}

}  // namespace tool
