// SPDX-License-Identifier: Apache-2.0
// Asks the kernel which MCTP endpoints it has a way to.
#ifndef SIDEBAND_LINUX_KERNEL_NETWORK_H
#define SIDEBAND_LINUX_KERNEL_NETWORK_H

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/netlink.h"

namespace machine {

/// @return nothing, with error filled, where the kernel does not tell
std::optional<std::vector<Reachable>> ask_kernel(std::string& error);

}  // namespace machine

#endif
