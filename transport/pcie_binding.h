// SPDX-License-Identifier: Apache-2.0
// A request record of PCIe VDM, for who keeps a message in one.
#ifndef SIDEBAND_TRANSPORT_PCIE_BINDING_H
#define SIDEBAND_TRANSPORT_PCIE_BINDING_H

#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <cstdint>

namespace sideband {

/// Hands the message in a zeroed record to the platform, which reports no failure of a write.
void write_record(const mctp_section& section, plt_pcie_request& record);

/// Reads a message into a record, or writes the one that is there and reads its answer.
/// @param operation  PLT_PCIE_READ or PLT_PCIE_WRITE_READ
/// @return bytes of message that came, -1 on failure
int32_t read_record(mctp_section& section, uint32_t operation, plt_pcie_request& record);

}  // namespace sideband

#endif
