// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on MCTP.
#include <sideband/mctp.h>

#include "tests/tools/check/defects.h"

namespace check_test {
namespace {

using namespace tool::check;

Match eid() {
    return control(kGetEndpointId);
}

/// Answers that take several packets; the request takes one.
Match long_answer() {
    return [](const Exchange& exchange) { return exchange.packets.size() > 2; };
}

/// The second packet of an answer, changed.
Change second_packet(void (*change)(SeenPacket&)) {
    return [=](Exchange& exchange) {
        bool first = true;
        for (SeenPacket& seen : exchange.packets) {
            if (!seen.sent && !std::exchange(first, false)) {
                change(seen);
                return;
            }
        }
    };
}

std::vector<Defect> control_defects() {
    return {
        {"mctp.control.request-bit", "gpu0", eid(), flip(0, 0x80)},
        {"mctp.control.request-bit", "gpu0", eid(), flip(0, 0x40)},
        {"mctp.control.reserved-bit", "gpu0", eid(), flip(0, 0x20)},
        {"mctp.control.instance-id", "gpu0", eid(), put(0, 0x00)},
        {"mctp.control.command-code", "gpu0", eid(), put(1, 0x03)},
        {"mctp.control.unsupported", "gpu0", control(0x70), code(0x00)},
        {"mctp.control.unsupported", "gpu0", control(0x70), silent()},
        {"mctp.eid.length", "gpu0", sized(eid(), 2), lengthen(1)},
        {"mctp.eid.length", "gpu0", sized(eid(), 2), shorten(1)},
        {"mctp.eid.agrees", "gpu0", eid(), put(3, 77)},
        {"mctp.eid.reserved-bits", "gpu0", eid(), flip(4, 0x08)},
        {"mctp.eid.reserved-bits", "gpu0", eid(), flip(4, 0x40)},
        {"mctp.eid.endpoint-type", "gpu0", eid(), flip(4, 0x30)},
        {"mctp.eid.request-too-long", "gpu0", sized(eid(), 3), code(0x00)},
        {"mctp.set-eid.null", "gpu0", with(control(kSetEndpointId), 3, 0x00), code(0x00)},
        {"mctp.set-eid.broadcast", "gpu0", with(control(kSetEndpointId), 3, 0xFF), code(0x01)},
        {"mctp.set-eid.own", "gpu0", with(control(kSetEndpointId), 3, 29), put(4, 30)},
        {"mctp.set-eid.own", "gpu0", with(control(kSetEndpointId), 3, 29), flip(3, 0x80)},
        {"mctp.set-eid.own", "gpu0", with(control(kSetEndpointId), 3, 29), shorten(1)},
        {"mctp.set-eid.request-too-short", "gpu0", sized(control(kSetEndpointId), 3), code(0x00)},
        {"mctp.uuid.length", "gpu0", control(kGetEndpointUuid), shorten(1)},
        {"mctp.uuid.stable", "gpu0", second(control(kGetEndpointUuid)), flip(3, 0x01)},
        {"mctp.uuid.variant", "gpu0", control(kGetEndpointUuid), flip(11, 0xC0)},
    };
}

std::vector<Defect> support_defects() {
    const Match version = control(kGetVersionSupport);
    const Match types = control(kGetMessageTypeSupport);
    return {
        {"mctp.version.base", "gpu0", with(version, 2, 0xFF), put(3, 2)},
        {"mctp.version.control", "gpu0", with(version, 2, 0x00), code(0x80)},
        {"mctp.version.encoding", "gpu0", with(version, 2, 0xFF), put(4, 0xFA)},
        {"mctp.version.every-type", "gpu0", with(version, 2, 0x01), code(0x80)},
        {"mctp.version.unknown-type", "gpu0", with(version, 2, 0x70),
         success({0x01, 0xF1, 0xF0, 0xFF, 0x00})},
        {"mctp.version.request-too-short", "gpu0", sized(version, 2), code(0x02)},
        {"mctp.types.length", "gpu0", types, lengthen(1)},
        {"mctp.types.proper", "gpu0", types, success({0x02, 0x01, 0x01})},
        {"mctp.types.proper", "own0", types, success({0x01, 0x81}), {"mctp.version.every-type"}},
    };
}

std::vector<Defect> route_defects() {
    const Match routes = control(kGetRoutingTableEntries);
    return {
        {"mctp.routes.end", "mpio0", routes, put(3, 0x00)},
        {"mctp.routes.end",
         "mpio0",
         with(routes, 2, 0x00),
         code(0x01),
         {"mctp.routes.length", "mctp.routes.eids"}},
        {"mctp.routes.length", "mpio0", with(routes, 2, 0x00), shorten(1)},
        {"mctp.routes.length", "mpio0", with(routes, 2, 0x00), put(4, 1)},
        {"mctp.routes.eids", "mpio0", with(routes, 2, 0x00), put(6, 0)},
        {"mctp.routes.eids", "mpio0", with(routes, 2, 0x00), put(5, 0)},
        {"mctp.routes.eids", "mpio0", with(routes, 2, 0x00), put(5, 250)},
    };
}

std::vector<Defect> packet_defects() {
    return {
        {"mctp.packet.version", "gpu0", eid(), packet(0, 0x03)},
        {"mctp.packet.version", "gpu0", eid(), packet(0, 0x10)},
        {"mctp.packet.ends", "gpu0", eid(), packet(3, 0x80)},
        {"mctp.packet.ends", "gpu0", eid(), packet(3, 0x40)},
        {"mctp.packet.ends", "gpu0", long_answer(),
         second_packet([](SeenPacket& seen) { seen.bytes[3] ^= 0x80; })},
        {"mctp.packet.sequence", "gpu0", long_answer(), packet(3, 0x20)},
        {"mctp.packet.sequence", "nvme0", any(MCTP_MSG_TYPE_NVME_MI), packet(3, 0x10)},
        {"mctp.packet.tag", "gpu0", eid(), packet(3, 0x01)},
        {"mctp.packet.tag", "gpu0", eid(), packet(3, 0x08)},
        {"mctp.packet.eids", "gpu0", eid(), packet(1, 0x01)},
        {"mctp.packet.eids", "gpu0", control(kGetMessageTypeSupport), packet(2, 0x01)},
        {"mctp.packet.size", "gpu0", long_answer(),
         second_packet([](SeenPacket& seen) { seen.bytes.resize(255); })},
        {"mctp.packet.baseline", "gpu0", long_answer(),
         [](Exchange& exchange) {
             for (SeenPacket& seen : exchange.packets) {
                 seen.bytes.resize(std::min<size_t>(seen.bytes.size(), 4 + 63));
             }
         }},
        {"mctp.packet.type", "gpu0", eid(), packet(4, 0x01)},
        {"mctp.packet.control-check", "gpu0", eid(), packet(4, 0x80)},
        {"mctp.smbus.pec", "gpu0", control(kGetMessageTypeSupport),
         [](Exchange& exchange) { exchange.packets.back().pec_good = false; }},
    };
}

}  // namespace

std::vector<Defect> mctp_defects() {
    std::vector<Defect> all;
    for (const auto& table :
         {control_defects(), support_defects(), route_defects(), packet_defects()}) {
        all.insert(all.end(), table.begin(), table.end());
    }
    return all;
}

}  // namespace check_test
