// SPDX-License-Identifier: Apache-2.0
// What the rules on firmware devices share: commands, states, the status (DSP0267).
#ifndef SIDEBAND_TOOLS_CHECK_UPDATE_H
#define SIDEBAND_TOOLS_CHECK_UPDATE_H

#include "tools/check/messages.h"

namespace tool::check {

enum UpdateCommand : uint8_t {
    kQueryDeviceIdentifiers = 0x01,
    kGetFirmwareParameters = 0x02,
    kRequestUpdate = 0x10,
    kGetDeviceMetaData = 0x12,
    kPassComponentTable = 0x13,
    kActivateFirmware = 0x1A,
    kGetStatus = 0x1B,
    kCancelUpdateComponent = 0x1C,
    kCancelUpdate = 0x1D,
};

enum UpdateState : uint8_t { kIdle = 0, kLearnComponents = 1, kReadyXfer = 2 };

/// What GetStatus says.
struct Status {
    Exchange exchange;
    uint8_t current = 0;
    uint8_t previous = 0;
    uint8_t aux = 0;
    uint8_t progress = 0;
    uint8_t reason = 0;
};

/// The rule ends if the device does not name GetStatus.
Exchange ask_status(Device& device);

/// The rule ends if GetStatus does not succeed.
Status status_of(Device& device);

}  // namespace tool::check

#endif
