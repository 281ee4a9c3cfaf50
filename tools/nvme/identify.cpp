// SPDX-License-Identifier: Apache-2.0
// The commands nvme identify.
#include <fmt/format.h>

#include <algorithm>

#include "tools/nvme/commands.h"
#include "tools/nvme/drive.h"
#include "tools/nvme/structures.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr FieldLayout controller_layout[] = {
    {"vid", 0, 2, FieldLook::hex},
    {"ssvid", 2, 2, FieldLook::hex},
    {"sn", 4, 20, FieldLook::ascii},
    {"mn", 24, 40, FieldLook::ascii},
    {"fr", 64, 8, FieldLook::ascii},
    {"rab", 72, 1},
    {"ieee", 73, 3, FieldLook::hex},
    {"cmic", 76, 1, FieldLook::hex},
    {"mdts", 77, 1},
    {"cntlid", 78, 2},
    {"ver", 80, 4, FieldLook::version},
    {"rtd3r", 84, 4, FieldLook::hex},
    {"rtd3e", 88, 4, FieldLook::hex},
    {"oaes", 92, 4, FieldLook::hex},
    {"ctratt", 96, 4, FieldLook::hex},
    {"rrls", 100, 2, FieldLook::hex},
    {"cntrltype", 111, 1},
    {"fguid", 112, 16, FieldLook::bytes},
    {"crdt1", 128, 2},
    {"crdt2", 130, 2},
    {"crdt3", 132, 2},
    {"nvmsr", 253, 1, FieldLook::hex},
    {"vwci", 254, 1, FieldLook::hex},
    {"mec", 255, 1, FieldLook::hex},
    {"oacs", 256, 2, FieldLook::hex},
    {"acl", 258, 1},
    {"aerl", 259, 1},
    {"frmw", 260, 1, FieldLook::hex},
    {"lpa", 261, 1, FieldLook::hex},
    {"elpe", 262, 1},
    {"npss", 263, 1},
    {"avscc", 264, 1, FieldLook::hex},
    {"apsta", 265, 1, FieldLook::hex},
    {"wctemp", 266, 2, FieldLook::kelvin},
    {"cctemp", 268, 2, FieldLook::kelvin},
    {"mtfa", 270, 2},
    {"hmpre", 272, 4},
    {"hmmin", 276, 4},
    {"tnvmcap", 280, 16},
    {"unvmcap", 296, 16},
    {"rpmbs", 312, 4, FieldLook::hex},
    {"edstt", 316, 2},
    {"dsto", 318, 1, FieldLook::hex},
    {"fwug", 319, 1},
    {"kas", 320, 2},
    {"hctma", 322, 2, FieldLook::hex},
    {"mntmt", 324, 2, FieldLook::kelvin},
    {"mxtmt", 326, 2, FieldLook::kelvin},
    {"sanicap", 328, 4, FieldLook::hex},
    {"hmminds", 332, 4},
    {"hmmaxd", 336, 2},
    {"nsetidmax", 338, 2},
    {"endgidmax", 340, 2},
    {"anatt", 342, 1},
    {"anacap", 343, 1, FieldLook::hex},
    {"anagrpmax", 344, 4},
    {"nanagrpid", 348, 4},
    {"pels", 352, 4},
    {"sqes", 512, 1, FieldLook::hex},
    {"cqes", 513, 1, FieldLook::hex},
    {"maxcmd", 514, 2},
    {"nn", 516, 4},
    {"oncs", 520, 2, FieldLook::hex},
    {"fuses", 522, 2, FieldLook::hex},
    {"fna", 524, 1, FieldLook::hex},
    {"vwc", 525, 1, FieldLook::hex},
    {"awun", 526, 2},
    {"awupf", 528, 2},
    {"icsvscc", 530, 1, FieldLook::hex},
    {"nwpc", 531, 1, FieldLook::hex},
    {"acwu", 532, 2},
    {"ocfs", 534, 2, FieldLook::hex},
    {"sgls", 536, 4, FieldLook::hex},
    {"mnan", 540, 4},
    {"subnqn", 768, 256, FieldLook::ascii},
};

constexpr FieldLayout namespace_layout[] = {
    {"nsze", 0, 8},
    {"ncap", 8, 8},
    {"nuse", 16, 8},
    {"nsfeat", 24, 1, FieldLook::hex},
    {"nlbaf", 25, 1},
    {"flbas", 26, 1, FieldLook::hex},
    {"mc", 27, 1, FieldLook::hex},
    {"dpc", 28, 1, FieldLook::hex},
    {"dps", 29, 1, FieldLook::hex},
    {"nmic", 30, 1, FieldLook::hex},
    {"rescap", 31, 1, FieldLook::hex},
    {"fpi", 32, 1, FieldLook::hex},
    {"dlfeat", 33, 1, FieldLook::hex},
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
    {"nsattr", 99, 1, FieldLook::hex},
    {"nvmsetid", 100, 2},
    {"endgid", 102, 2},
    {"nguid", 104, 16, FieldLook::bytes},
    {"eui64", 120, 8, FieldLook::bytes},
};

/// The LBA formats of a namespace, the one in use marked.
void show_formats(const std::vector<uint8_t>& data, std::string& text, Json& list) {
    list = Json::array();
    const size_t used = format_in_use(data);
    for (size_t i = 0; i <= data[namespace_formats]; ++i) {
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
    NvmeDrive& drive = found.drive;
    const uint16_t controller = drive.choose(target.controller);
    Fields fields;
    fields.decode(drive.identify(controller, identify_cns_controller, 0), controller_layout);
    context.output.text(fields.text());
    Json document{{"endpoint", target.endpoint}};
    document.update(fields.json());
    context.output.document(document);
}

void run_nvme_identify_namespace(Context& context, const NvmeTarget& target) {
    FoundDrive found(context.port, target.endpoint);
    NvmeDrive& drive = found.drive;
    const uint16_t controller = drive.choose(target.controller);
    const std::vector<uint8_t> data =
        drive.identify(controller, identify_cns_namespace, target.nsid);
    Fields fields;
    fields.decode(data, namespace_layout);
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
    NvmeDrive& drive = found.drive;
    const uint16_t controller = drive.choose(target.controller);
    const std::vector<uint32_t> namespaces = namespace_list(drive, controller, true);
    const std::vector<uint8_t> data = drive.identify(controller, identify_cns_controllers, 0);
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
