// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on PLDM messages and the base commands.
#include <sideband/mctp.h>

#include "tests/tools/check/defects.h"

namespace check_test {
namespace {

using namespace tool::check;

Match tid() {
    return pldm(kBase, kGetTid);
}

/// GetPLDMVersion of a type.
Match version(uint8_t type) {
    return sized(with(pldm(kBase, kGetPldmVersion), 8, type), 9);
}

/// GetPLDMCommands of a type.
Match commands(uint8_t type) {
    return with(pldm(kBase, kGetPldmCommands), 3, type);
}

/// A datagram that is answered.
void answer_datagram(Exchange& exchange) {
    exchange.response = Bytes{0x00, 0x00, kGetTid, 0x00, 0x02};
}

/// A version whose bytes are no BCD, with its right checksum.
void misspell_version(Exchange& exchange) {
    const Bytes version{0x00, 0xF0, 0xFA, 0xF1};
    success(Body().le32(0).u8(5).bytes(version).le32(crc32_of(version)))(exchange);
}

std::vector<Defect> header_defects() {
    return {
        {"pldm.header.request-bit", "gpu0", tid(), flip(0, 0x80)},
        {"pldm.header.reserved-bit", "gpu0", tid(), flip(0, 0x20)},
        {"pldm.header.instance-id", "gpu0", tid(), flip(0, 0x01)},
        {"pldm.header.version", "gpu0", pldm(kBase, kGetPldmTypes), flip(1, 0x40)},
        {"pldm.header.command", "gpu0", tid(), flip(1, 0x02)},
        {"pldm.header.command", "gpu0", pldm(kBase, kGetPldmTypes), put(2, 0x02)},
        {"pldm.header.datagram", "gpu0",
         [](const Exchange& exchange) {
             return exchange.type == MCTP_MSG_TYPE_PLDM && (exchange.request[0] & 0x40) != 0;
         },
         answer_datagram},
        {"pldm.base.unsupported-command", "gpu0", pldm(kBase, 0x7F), code(0x01)},
        {"pldm.base.unsupported-type", "gpu0", pldm(0x3E, 0x01), code(0x05)},
    };
}

std::vector<Defect> base_defects() {
    return {
        {"pldm.tid.length", "gpu0", sized(tid(), 3), lengthen(1)},
        {"pldm.tid.value", "gpu0", sized(tid(), 3), put(4, 0xFF)},
        {"pldm.tid.request-too-long", "gpu0", sized(tid(), 4), code(0x00)},
        {"pldm.set-tid.reserved", "gpu0", with(pldm(kBase, kSetTid), 3, 0xFF), code(0x00)},
        {"pldm.set-tid.own", "gpu0", with(pldm(kBase, kSetTid), 3, 0x02), code(0x05)},
        {"pldm.version.every-type", "gpu0", version(kFru), shorten(4)},
        {"pldm.version.transfer-flag", "gpu0", version(kBase), put(8, 4)},
        {"pldm.version.checksum", "gpu0", version(kBase), flip(13, 0x01)},
        {"pldm.version.encoding",
         "gpu0",
         version(kFru),
         misspell_version,
         {"pldm.commands.length"}},
        {"pldm.version.operation", "gpu0", with(version(kBase), 7, 0x7F), code(0x02)},
        {"pldm.version.unknown-type", "gpu0", version(0x3E), code(0x20)},
        {"pldm.version.request-too-short", "gpu0", sized(pldm(kBase, kGetPldmVersion), 8),
         code(0x01)},
        {"pldm.types.length", "gpu0", pldm(kBase, kGetPldmTypes), shorten(1)},
        {"pldm.types.base", "gpu0", pldm(kBase, kGetPldmTypes), flip(4, 0x01)},
        {"pldm.commands.length", "gpu0", commands(kFru), shorten(1)},
        {"pldm.commands.mandatory", "gpu0", commands(kBase), flip(4, 1 << kGetPldmTypes)},
        {"pldm.commands.there",
         "gpu0",
         sized(pldm(kMonitoring, 0x53), 3),
         code(0x05),
         {"monitor.signature.length"}},
        {"pldm.commands.unknown-type", "gpu0", commands(0x3E), code(0x84)},
        {"pldm.commands.unknown-version", "gpu0", with(commands(kBase), 5, 0xF9),
         success(Bytes(32))},
    };
}

}  // namespace

std::vector<Defect> pldm_defects() {
    std::vector<Defect> all = header_defects();
    const std::vector<Defect> base = base_defects();
    all.insert(all.end(), base.begin(), base.end());
    return all;
}

}  // namespace check_test
