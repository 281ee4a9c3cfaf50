// SPDX-License-Identifier: Apache-2.0
// The demo's two halves: what a healthy board shows, and what happens when it is not.
#ifndef SIDEBAND_TOOLS_DEMO_H
#define SIDEBAND_TOOLS_DEMO_H

#include "tools/port.h"
#include "tools/tour.h"

namespace tool {

/// Power off, faults on the bus, questions that a device refuses.
/// @param endpoint  a PLDM terminus with a numeric sensor
void show_trouble(Tour& tour, Port& port, const Endpoint& endpoint, const Sensor& sensor);

}  // namespace tool

#endif
