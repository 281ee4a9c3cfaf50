// SPDX-License-Identifier: Apache-2.0
// Every management command with its bytes, for tests that go through all of them.
#ifndef SIDEBAND_TESTS_NVMEMI_MI_COMMANDS_H
#define SIDEBAND_TESTS_NVMEMI_MI_COMMANDS_H

#include <sideband/nvme_mi.h>

#include <string>
#include <vector>

#include "support/bytes.h"

namespace test {

/// What the commands fill, between canaries; every byte is 0xA5 before.
class MiRoom {
public:
    struct Values {
        nvme_subsystem_health health;
        nvme_controller_health controllers[NVMEMI_CONTROLLERS_MAX];
        uint16_t size;
        uint16_t length;
        uint8_t frequency;
        uint8_t count;
        uint8_t data[40];
    };

    Values& values() { return *reinterpret_cast<Values*>(room_.data()); }
    bool intact() const { return room_.intact(); }
    bool untouched() const { return room_.untouched_from(0); }

private:
    Guarded room_{sizeof(Values)};
};

struct MiCommand {
    const char* name;
    int32_t (*call)(nvmemi_ctx*, MiRoom::Values&);
    const char* packet;   ///< on the wire: the first packet of a context, integrity check included
    uint32_t capacity;    ///< room that the exchange is given
    Bytes response;       ///< a good one, without integrity check
    size_t needed;        ///< bytes without which a response of status 0 is refused
    const char* failure;  ///< what is printed if the exchange fails
    int allocations = 0;
};

const std::vector<MiCommand>& mi_commands();

/// The name of a test about one of them, by index.
std::string mi_command_name(size_t index);

}  // namespace test

#endif
