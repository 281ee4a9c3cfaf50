// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on firmware update.
#include "tests/tools/check/defects.h"
#include "tools/check/update.h"

namespace check_test {
namespace {

using namespace tool::check;

Match update(uint8_t command) {
    return pldm(kUpdate, command);
}

Match identifiers() {
    return sized(update(kQueryDeviceIdentifiers), 3);
}

Match parameters() {
    return update(kGetFirmwareParameters);
}

// The answers of gpu0: where its first component is, behind the version of the set.
constexpr size_t kFirstComponent = 14 + 7;

std::vector<Defect> inventory_defects() {
    return {
        {"update.identifiers.succeed", "gpu0", identifiers(), code(0x01)},
        {"update.identifiers.length", "gpu0", identifiers(), put(8, 1)},
        {"update.identifiers.length", "gpu0", identifiers(), flip(4, 0x01)},
        {"update.identifiers.initial", "gpu0", identifiers(), put(10, 0x01)},
        {"update.identifiers.sizes", "gpu0", identifiers(), put(9, 0x01)},
        {"update.identifiers.request-too-long", "gpu0", sized(update(kQueryDeviceIdentifiers), 4),
         code(0x00)},
        {"update.unsupported-command", "gpu0", update(0x7F), code(0x80)},
        {"update.parameters.length", "gpu0", parameters(), lengthen(1)},
        {"update.parameters.length", "gpu0", parameters(), put(8, 1)},
        {"update.parameters.string-type", "gpu0", parameters(), put(10, 6)},
        {"update.parameters.date", "gpu0", parameters(), put(kFirstComponent + 11, 'x')},
        {"update.parameters.activation", "gpu0", parameters(), put(kFirstComponent + 34, 0x01)},
        {"update.status.length", "gpu0", update(kGetStatus), lengthen(1)},
        {"update.status.state",
         "gpu0",
         update(kGetStatus),
         put(5, 7),
         {"update.mode.state", "update.mode.cancel"}},
        {"update.status.aux-state", "gpu0", update(kGetStatus), put(6, 0)},
        {"update.status.progress", "gpu0", update(kGetStatus), put(8, 0x66)},
        {"update.status.reason", "gpu0", update(kGetStatus), put(9, 8), {"update.mode.cancel"}},
    };
}

/// A match that holds while the device is in update mode, or while it has never been there.
Match in_mode(const Match& match) {
    return [=, updating = false](const Exchange& exchange) mutable {
        if (update(kRequestUpdate)(exchange) || update(kCancelUpdate)(exchange)) {
            updating = update(kRequestUpdate)(exchange);
        }
        return updating && match(exchange);
    };
}

Match before_mode(const Match& match) {
    return [=, updated = false](const Exchange& exchange) mutable {
        updated = updated || update(kRequestUpdate)(exchange);
        return !updated && match(exchange);
    };
}

/// A second RequestUpdate without CancelUpdate in between.
Match request_again() {
    return [requests = 0](const Exchange& exchange) mutable {
        requests = update(kCancelUpdate)(exchange) ? 0 : requests;
        return update(kRequestUpdate)(exchange) && requests++ > 0;
    };
}

std::vector<Defect> mode_defects() {
    return {
        {"update.idle.metadata", "gpu0", update(kGetDeviceMetaData), code(0x84)},
        {"update.idle.cancel", "gpu0", before_mode(update(kCancelUpdate)), code(0x00)},
        {"update.idle.cancel-component", "gpu0", update(kCancelUpdateComponent), code(0x00)},
        {"update.idle.activate", "gpu0", before_mode(update(kActivateFirmware)), code(0x84)},
        {"update.mode.enter", "gpu0", update(kRequestUpdate), lengthen(1)},
        {"update.mode.state", "gpu0", in_mode(update(kGetStatus)), put(4, kIdle)},
        {"update.mode.twice", "gpu0", request_again(), code(0x01)},
        {"update.mode.activate", "gpu0", in_mode(update(kActivateFirmware)), code(0x80)},
        {"update.mode.cancel", "gpu0", update(kCancelUpdate),
         [](Exchange& exchange) {
             if (exchange.response->size() > 4) {
                 shorten(1)(exchange);
             }
         }},
    };
}

}  // namespace

std::vector<Defect> update_defects() {
    std::vector<Defect> all = inventory_defects();
    const std::vector<Defect> mode = mode_defects();
    all.insert(all.end(), mode.begin(), mode.end());
    return all;
}

}  // namespace check_test
