// SPDX-License-Identifier: Apache-2.0
// Every tunnelled admin command: how a test calls it, what goes out then, what it prints.
#include "NVMeMI/admin_commands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ostream>

namespace test {

namespace {

constexpr uint16_t kController = 0x1234;
constexpr uint32_t kNamespace = 0x64636261;
constexpr uint32_t kFormat = 0xA3A2A1A0;

constexpr int32_t kNoData = 19;
constexpr int32_t kWantedData = 19 + kWanted;
constexpr int32_t kMostData = 4115;

int32_t sanitize(AdminRoom& room) {
    const nvme_sanitize_param param{room.req.ctx, kController, kNamespace,
                                    NVME_SANITIZE_SANACT(NVME_SANACT_CRYPTO_ERASE) |
                                        NVME_SANITIZE_OWPASS(15) | NVME_SANITIZE_OIPBP |
                                        NVME_SANITIZE_NDAS,
                                    0x5A5AA5A5};
    return nvme_sanitize_set(&param);
}

int32_t lockdown(AdminRoom& room) {
    const nvme_lockdown_param param{
        room.req.ctx, kController, kNamespace,
        NVME_LOCKDOWN_SCP(NVME_LOCKDOWN_ADMIN_OPCODE) | NVME_LOCKDOWN_PRHBT |
            NVME_LOCKDOWN_IFC(NVME_LOCKDOWN_MANAGEMENT) | NVME_LOCKDOWN_OFI(0x84),
        NVME_LOCKDOWN_UUID_INDEX(0x11)};
    return nvme_lockdown_set(&param);
}

template <uint8_t Passthrough>
int32_t log_page(AdminRoom& room) {
    // The controller is the argument's, not the record's.
    room.req.cntlid = 0xFFFF;
    return nvme_get_log_page(&room.req, kController, kWanted, Passthrough, room.data.data(),
                             &room.received);
}

template <uint8_t Passthrough>
int32_t identify(AdminRoom& room) {
    return nvme_identify(&room.req, kWanted, Passthrough, room.data.data(), &room.received);
}

constexpr const char* kNoLength = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
constexpr const char* kRecordLength = "00 02 00 00 40 00 00 00 00 00 00 00 00 00 00 00";
constexpr const char* kWantedLength = "00 02 00 00 50 00 00 00 00 00 00 00 00 00 00 00";
constexpr const char* kPassthrough = "00 02 00 00 50 00 00 00 00 00 00 00 50 00 00 00";
constexpr const char* kZeros =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
constexpr const char* kNothingCame = "M:0, read_len=0\nno NVMe-MI payload received\n";

const AdminCommand kCommands[] = {
    {"GetFeature",
     [](AdminRoom& room) { return nvme_admin_get_feature(&room.req, 0x0C, 2, &room.feature); },
     kMostData, "84 10 00 00 0a 03 34 12 61 62 63 64", kRecordLength,
     "0c 02 00 00 b0 b1 b2 b3 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 f0 f1 f2 f3", "4b d4 82 3c"},
    {"SetFeature",
     [](AdminRoom& room) { return nvme_admin_set_feature(&room.req, 0x0C, 1, &room.feature); },
     kMostData, "84 10 00 00 09 03 34 12 61 62 63 64", kRecordLength,
     "0c 00 00 80 b0 b1 b2 b3 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 f0 f1 f2 f3", "9b c5 61 d2"},
    {"GetSetFeature",
     [](AdminRoom& room) { return nvme_admin_get_set_feature(&room.req, 0xC5, &room.feature); },
     kMostData, "84 10 00 00 c5 03 34 12 61 62 63 64", kRecordLength,
     "a0 a1 a2 a3 b0 b1 b2 b3 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 f0 f1 f2 f3", "c5 05 07 e1"},
    {"FirmwareCommit",
     [](AdminRoom& room) { return nvme_fw_image_commit(room.req.ctx, kController, 2, 3); }, kNoData,
     "84 10 00 00 10 00 34 12 00 00 00 00", kNoLength,
     "1a 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "35 cd cb 56"},
    {"NamespaceAttachment",
     [](AdminRoom& room) {
         return nvme_namespace_mgmt_attachment(room.req.ctx, kController, kNamespace,
                                               NVME_NAMESPACE_DETACH);
     },
     kNoData, "84 10 00 00 15 00 34 12 61 62 63 64", kNoLength,
     "01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "72 c1 47 6a"},
    {.name = "NamespaceCreate",
     .call =
         [](AdminRoom& room) {
             return nvme_namespace_mgmt_create(room.req.ctx, kController, room.structure.data(),
                                               &room.nsid);
         },
     .capacity = kNoData,
     .head = "84 10 00 00 0d 01 34 12 00 00 00 00",
     .data = "00 00 00 00 00 10 00 00 00 00 00 00 00 00 00 00",
     .dwords = kZeros,
     .check = "3d 24 9d 40",
     .sends_structure = true},
    {"NamespaceDelete",
     [](AdminRoom& room) {
         return nvme_namespace_mgmt_delete(room.req.ctx, kController, kNamespace);
     },
     kNoData, "84 10 00 00 0d 00 34 12 61 62 63 64", kNoLength,
     "01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "86 92 6f 9d"},
    {"Format",
     [](AdminRoom& room) {
         return nvme_format_nvm(room.req.ctx, kController, kNamespace, &kFormat);
     },
     kNoData, "84 10 00 00 80 00 34 12 61 62 63 64", kNoLength,
     "a0 a1 a2 a3 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "40 54 99 bb"},
    {"Sanitize", sanitize, kNoData, "84 10 00 00 84 00 34 12 61 62 63 64", kNoLength,
     "f4 03 00 00 a5 a5 5a 5a 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "b3 90 8c c0"},
    {"Lockdown", lockdown, kNoData, "84 10 00 00 24 00 34 12 61 62 63 64", kNoLength,
     "50 84 00 00 00 00 00 00 00 00 00 00 00 00 00 00 11 00 00 00 00 00 00 00", "4a f0 86 e6"},
    {"GetLogPage", log_page<0>, kMostData, "84 10 00 00 02 03 34 12 61 62 63 64", kWantedLength,
     "a0 a1 a2 a3 b0 b1 b2 b3 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 00 00 00 00", "9b 53 b8 06", "",
     "MORE=0\n", "MORE=0\n"},
    {"GetLogPagePassthrough", log_page<1>, kMostData, "84 10 00 00 c2 03 34 12 61 62 63 64",
     kPassthrough, "a0 a1 a2 a3 b0 b1 b2 b3 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 61 62 63 64",
     "98 80 bc 6e", "", "MORE=0\n", "MORE=0\n"},
    {"Identify", identify<0>, kWantedData, "84 10 00 00 06 03 34 12 61 62 63 64", kWantedLength,
     "a0 a1 a2 a3 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "ba 1b ee 76",
     "[NVMeMI/nvme] Doing Direct NVMe-MI\n", kNothingCame, kNothingCame},
    {"IdentifyPassthrough", identify<1>, kWantedData, "84 10 00 00 c2 03 34 12 61 62 63 64",
     kPassthrough, "a0 a1 a2 a3 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
     "b6 43 92 11", "[NVMeMI/nvme] Doing Marvell passthrough: DW9=80\n", kNothingCame,
     kNothingCame},
    {"PdInfo",
     [](AdminRoom& room) {
         return nvme_get_pd_info(&room.req, kWanted, room.data.data(), &room.received);
     },
     kWantedData, "84 10 00 00 d2 03 34 12 61 62 63 64", kWantedLength,
     "a0 a1 a2 a3 00 00 00 00 c0 c1 c2 c3 00 00 00 00 e0 e1 e2 e3 00 00 00 00", "82 57 96 ec"},
    {"MrvlRead",
     [](AdminRoom& room) {
         return nvme_mrvl_read_cmd(&room.req, kWanted, room.data.data(), &room.received);
     },
     kWantedData, "84 10 00 00 d2 03 34 12 61 62 63 64", kWantedLength,
     "a0 a1 a2 a3 00 00 00 00 c0 c1 c2 c3 d0 d1 d2 d3 e0 e1 e2 e3 00 00 00 00", "93 ca af 44", "",
     "", "Command error (SCT:0x1, SC:0x2)\n", "fail to nvme_admin_cmd\n"},
};

}  // namespace

AdminRoom::AdminRoom(nvmemi_ctx* ctx)
    : req{ctx,        kController, kNamespace, 0x200,      0x40,       0xD2,
          0xA3A2A1A0, 0xB3B2B1B0,  0xC3C2C1C0, 0xD3D2D1D0, 0xE3E2E1E0, 0xF3F2F1F0},
      feature{kUntouched, kWanted, data.data()},
      structure(4096) {
    std::generate(structure.begin(), structure.end(), [value = uint8_t{4}]() mutable {
        return value = static_cast<uint8_t>(value + 3);
    });
}

bool AdminRoom::untouched() const {
    return data.untouched_from(0) && data.intact() && received == kUntouched &&
           feature.dword0 == kUntouched && feature.data_length == kWanted && nsid == kUntouched;
}

void PrintTo(const AdminCommand& command, std::ostream* stream) {
    *stream << command.name;
}

std::string name_of(const testing::TestParamInfo<AdminCommand>& info) {
    return info.param.name;
}

std::span<const AdminCommand> admin_commands() {
    return kCommands;
}

Bytes message_of(const AdminCommand& command, const AdminRoom& room) {
    return hex(command.head) + Bytes(16) + hex(command.data) + hex(command.dwords) +
           (command.sends_structure ? room.structure : Bytes()) + hex(command.check);
}

Texts without_line(Texts texts, std::string_view name) {
    const std::string start = "[" + std::string(name) + ":";
    for (std::string& text : texts) {
        const size_t number = start.size();
        size_t end = number;
        while (text.starts_with(start) &&
               std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
            end++;
        }
        if (end > number && text[end] == ']') {
            text.erase(number - 1, end - number + 1);
        }
    }
    return texts;
}

Texts console() {
    return without_line(port().console, "NVMeMI/nvme");
}

std::string command_error(uint32_t type, uint32_t code) {
    char text[64];
    std::snprintf(text, sizeof text, "Command error (SCT:%#x, SC:%#x)\n", type, code);
    return text;
}

}  // namespace test
