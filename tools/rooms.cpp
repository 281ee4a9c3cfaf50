// SPDX-License-Identifier: Apache-2.0
// The rooms of the tool that have commands.
#include "tools/rooms.h"

#include "tools/batch/commands.h"
#include "tools/board/commands.h"
#include "tools/check/commands.h"
#include "tools/demo/commands.h"
#include "tools/mctp/commands.h"
#include "tools/metrics/commands.h"
#include "tools/ncsi/commands.h"
#include "tools/nvme/commands.h"
#include "tools/pldm/commands.h"
#include "tools/serve/commands.h"
#include "tools/update/commands.h"

namespace tool {

std::span<const AddCommands> rooms() {
    static constexpr AddCommands kRooms[] = {
        add_demo_commands,    add_mctp_commands,   add_pldm_commands,  add_ncsi_commands,
        add_nvme_commands,    add_update_commands, add_check_commands, add_serve_commands,
        add_metrics_commands, add_batch_commands,  add_board_commands,
    };
    return kRooms;
}

}  // namespace tool
