// SPDX-License-Identifier: Apache-2.0
// What a scenario runs in: a simulated board, contexts on it, and room for what a call stores.
#ifndef SIDEBAND_TESTS_SWEEP_WORLD_H
#define SIDEBAND_TESTS_SWEEP_WORLD_H

#include <sideband/mctp.h>
#include <sideband/ncsi.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>
#include <sideband/pldm_fru.h>
#include <sideband/pldm_fw_update.h>
#include <sideband/pldm_monitor.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/board/board.h"

namespace test {
class SocketPatch;
}

namespace sweep {

/// Everything is zeroed when a run begins.
struct World {
    World() = default;
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Puts a board underneath. A text that is no board ends the process.
    void open(const std::string& text);
    /// A context for a device of the board, as a service fills it in, before mctp_init2().
    mctp_ctx context_of(const std::string& name) const;
    /// Writes a file that lives as long as the world, and gives its path.
    const char* file(const std::vector<uint8_t>& bytes);

    std::unique_ptr<sim::Board> board;
    mctp_ctx endpoint{};
    mctp_ctx other{};
    pldm_ctx pldm{};
    pldm_fw_update_ctx update{};
    plt_card_info card{};
    pldm_fru_record record{};
    ncsi_ctx ncsi{};
    nvmemi_ctx nvme{};
    nvme_admin_req admin{};
    std::array<uint8_t, 8192> room{};
    std::array<uint32_t, 4> numbers{};
    int32_t descriptor = -1;
    void* address = nullptr;
    size_t size = 0;

private:
    std::string path_;
};

/// A board of one I2C bus with these devices.
std::string board_of(const std::string& devices, const std::string& keys = "");

/// Opens a board with one device, "dev", and fills the context endpoint for it.
void open_device(World& world, const std::string& device, const std::string& keys = "");
/// Also initialises it, with EID 9, without having spoken with the device.
void ready_device(World& world, const std::string& device, const std::string& keys = "");
/// Also binds the context pldm to it.
void ready_terminus(World& world, const std::string& device);

/// Bytes in hex, and members as numbers, for what a call has stored.
std::string shown(const void* bytes, size_t size);
template <typename... Numbers>
std::string listed(Numbers... numbers) {
    std::string text;
    ((text += std::to_string(numbers) + " "), ...);
    return text;
}

/// The kernel's sockets, while scenarios over sockets run.
test::SocketPatch*& sockets();

}  // namespace sweep

#endif
