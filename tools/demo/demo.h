// SPDX-License-Identifier: Apache-2.0
// The demo's parts: what a healthy board shows, PCIe and bus owners, a board in trouble.
#ifndef SIDEBAND_TOOLS_DEMO_DEMO_H
#define SIDEBAND_TOOLS_DEMO_DEMO_H

#include <string>
#include <vector>

#include "tools/demo/tour.h"
#include "tools/mctp/survey.h"
#include "tools/shell/port.h"

namespace tool {

/// Power off, faults on the bus, questions that a device refuses.
/// @param endpoint  a PLDM terminus with a numeric sensor
void show_trouble(Tour& tour, Port& port, const Endpoint& endpoint, const Sensor& sensor);

/// A fault that a strict context notices and a lax one does not.
/// @param drive  an endpoint that speaks NVMe-MI
void show_strictness(Tour& tour, Port& port, const Endpoint& drive);

/// PCIe: the MPIO's bring-up, who is behind it, its routing table. Nothing on a board without.
void show_pcie(Tour& tour, Port& port, std::vector<Finding>& findings);

/// The BMC gets an EID from each bus owner of the board.
void show_owners(Tour& tour, Port& port);

/// Firmware updates: of the first card on I2C and the first on PCIe that take one.
/// @param speakers  endpoints that speak PLDM
void show_updates(Tour& tour, Port& port, const std::vector<Endpoint>& speakers);

/// The links and the temperature of each network controller.
/// @param controllers  endpoints that speak NC-SI
void show_controllers(Tour& tour, const std::vector<Endpoint>& controllers);

/// Health and SMART of each drive, and new firmware for the first.
/// @param drives  endpoints that speak NVMe-MI
/// @return the first drive that told its health; null if none did
const Endpoint* show_drives(Tour& tour, Port& port, const std::vector<Endpoint>& drives);

/// The version with its last number counted up: "1.9" to "1.10".
std::string next_version(const std::string& version);

/// Looks at every endpoint on one transport and adds what it finds.
void show_discovery(Tour::Step& step, const Port& port, Transport transport,
                    std::vector<Finding>& findings);

}  // namespace tool

#endif
