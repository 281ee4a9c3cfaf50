// SPDX-License-Identifier: Apache-2.0
// The board of the soak test: a hundred endpoints with a sensor each, one of them a network card,
// and drives; and what a sensor may say at a time.
#ifndef SIDEBAND_TESTS_SOAK_SOAK_BOARD_H
#define SIDEBAND_TESTS_SOAK_SOAK_BOARD_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

constexpr size_t kSensors = 100;  ///< endpoints with a sensor; the first one is the network card
constexpr size_t kDrives = 4;
constexpr uint16_t kSensorId = 1;

std::string sensor_name(size_t number);
std::string drive_name(size_t number);

/// The board file.
std::string board_text();

/// Whether a sensor had this value at some time from one second to another. Computed from the board
/// file's words, without the simulated sensor. No two sensors ever have the same value.
bool may_read(size_t number, uint32_t reading, double from_s, double to_s);

/// Degrees Celsius that a drive always has.
int drive_temperature(size_t number);

}  // namespace soak

#endif
