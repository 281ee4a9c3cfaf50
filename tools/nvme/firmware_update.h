// SPDX-License-Identifier: Apache-2.0
// New firmware for an NVMe drive: the download of an image, its commit, the reset behind it.
#ifndef SIDEBAND_TOOLS_NVME_FIRMWARE_UPDATE_H
#define SIDEBAND_TOOLS_NVME_FIRMWARE_UPDATE_H

#include <cstdint>
#include <string>

#include "tools/nvme/client.h"
#include "tools/nvme/structures.h"
#include "tools/shell/port.h"
#include "tools/shell/progress.h"

namespace tool {

/// Firmware Image Download of a file, piece by piece. Ctrl-C ends it behind the piece that is on
/// its way: what has come by then is of no use to the drive.
/// @param chunk_size  bytes in a piece, a multiple of 4
/// @return bytes of the image
uint64_t download_image(NvmeClient& client, uint16_t controller, const std::string& path,
                        uint32_t chunk_size, Progress& progress);

/// Firmware Commit.
/// @return what the new firmware waits for before it becomes active; empty for nothing
std::string commit_image(NvmeClient& client, uint16_t controller, uint8_t slot, uint8_t action);

/// Resets the drive and waits until it tells its firmware slots again.
FirmwareSlots reset_and_wait(Port& port, NvmeClient& client, uint16_t controller);

}  // namespace tool

#endif
