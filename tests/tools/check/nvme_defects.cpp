// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on NVMe-MI.
#include <sideband/mctp.h>

#include "tests/tools/check/defects.h"

namespace check_test {
namespace {

using namespace tool::check;

enum Opcode : uint8_t {
    kStructure = 0x00,
    kSubsystemHealth = 0x01,
    kControllerHealth = 0x02,
    kConfiguration = 0x04,
    kVpd = 0x05,
};

// A response: status, management response, data.
constexpr size_t kStatus = 3;
constexpr size_t kManagement = 4;
constexpr size_t kData = 7;

/// Read NVMe-MI Data Structure of a type.
Match structure(uint8_t type) {
    return with(nvme(kStructure), 10, type);
}

Match health() {
    return sized(nvme(kSubsystemHealth), 15);
}

Change status(uint8_t value) {
    return checked(put(kStatus, value));
}

Change data(size_t place, uint8_t value) {
    return checked(put(kData + place, value));
}

std::vector<Defect> message_defects() {
    return {
        {"nvme.answer", "nvme0", structure(0), status(0x02), {"nvme.structure.subsystem"}},
        {"nvme.header.response", "nvme0", structure(0), checked(flip(0, 0x80))},
        {"nvme.header.response", "nvme0", structure(0), checked(flip(0, 0x10))},
        {"nvme.header.slot", "nvme0", with(health(), 0, 0x09), checked(flip(0, 0x01))},
        {"nvme.header.reserved", "nvme0", structure(0), checked(put(2, 1))},
        {"nvme.check", "nvme0", structure(0), flip(9, 0x02)},
        {"nvme.check.request", "drive0",
         [](const Exchange& exchange) {
             return (exchange.type & 0x7F) == MCTP_MSG_TYPE_NVME_MI && !exchange.response;
         },
         [](Exchange& exchange) { exchange.response = Bytes(11); }},
        {"nvme.unknown-opcode", "nvme0", nvme(0xBF), status(0x04)},
        {"nvme.request-too-short", "nvme0", sized(nvme(kSubsystemHealth), 7), status(0x00)},
        {"nvme.request-with-data", "nvme0", sized(nvme(kSubsystemHealth), 23), status(0x05)},
        {"nvme.structure.unknown", "nvme0", structure(0xFE), status(0x03)},
        {"nvme.structure.unknown", "nvme0", structure(0xFE), checked(put(kManagement + 1, 40))},
        {"nvme.structure.unknown-port", "nvme0", with(structure(1), 9, 0xFF), status(0x00)},
        {"nvme.configuration.unknown", "nvme0", with(nvme(kConfiguration), 7, 0xBF), status(0x00)},
        {"nvme.vpd.beyond-end", "nvme0", with(nvme(kVpd), 7, 0xF0), status(0x00)},
    };
}

std::vector<Defect> content_defects() {
    return {
        {"nvme.structure.subsystem", "nvme0", structure(0), checked(shorten(1))},
        {"nvme.structure.version", "nvme0", structure(0), data(1, 0)},
        {"nvme.structure.ports", "nvme0", with(structure(1), 9, 1), checked(put(kManagement, 31))},
        {"nvme.structure.port-type", "nvme0", with(structure(1), 9, 0), data(0, 3)},
        {"nvme.structure.port-type", "nvme0", with(structure(1), 9, 0),
         checked([](Exchange& exchange) {
             put(kData + 2, 63)(exchange);
             put(kData + 3, 0)(exchange);
         })},
        {"nvme.structure.controllers", "nvme0", structure(2), data(0, 7)},
        {"nvme.structure.controllers", "nvme0", structure(2), checked([](Exchange& exchange) {
             exchange.response->resize(kData);
             *exchange.response = Body().bytes(*exchange.response).le16(2).le16(0).le16(0);
         })},
        {"nvme.structure.controller", "nvme0", structure(3), checked(lengthen(4))},
        {"nvme.structure.optional-commands", "nvme0", structure(4), data(0, 1)},
        {"nvme.health.subsystem", "nvme0", health(), checked(lengthen(1))},
        {"nvme.health.reserved", "nvme0", health(), data(7, 1)},
        {"nvme.health.controllers", "nvme0", with(nvme(kControllerHealth), 9, 15),
         checked(shorten(1))},
        {"nvme.health.most", "nvme0", with(nvme(kControllerHealth), 9, 0),
         checked(put(kManagement + 2, 2))},
        {"nvme.configuration.unit-size", "nvme0", with(nvme(kConfiguration), 7, 3),
         checked(put(kManagement, 63))},
        {"nvme.configuration.frequency", "nvme0", with(nvme(kConfiguration), 7, 1),
         checked(put(kManagement, 0))},
        {"nvme.vpd.length", "nvme0", with(with(nvme(kVpd), 7, 0), 11, 8), checked(lengthen(1)), {}},
        {"nvme.vpd.repeat", "nvme0", from_on(with(with(nvme(kVpd), 7, 0), 11, 8), 3),
         data(5, 0x77)},
        {"nvme.vpd.common-header", "nvme0", with(with(nvme(kVpd), 7, 0), 11, 8), data(0, 2)},
    };
}

}  // namespace

std::vector<Defect> nvme_defects() {
    std::vector<Defect> all = message_defects();
    const std::vector<Defect> content = content_defects();
    all.insert(all.end(), content.begin(), content.end());
    return all;
}

}  // namespace check_test
