// SPDX-License-Identifier: Apache-2.0
// A board whose transfers take real time, below the port to copy; processes share its endpoints.
#ifndef SIDEBAND_TESTS_TRANSPORT_THREADS_BOARD_H
#define SIDEBAND_TESTS_TRANSPORT_THREADS_BOARD_H

#include <sideband/mctp.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace test {

constexpr size_t kSlowBuses = 16;
constexpr size_t kSlowEndpoints = 8;  ///< on each bus

/// What endpoints, and whoever asks them in whatever process, have in common.
struct SlowBoard {
    std::atomic<uint32_t> transfer_us = 0;  ///< how long each write and each read takes
    /// Writes that began on a bus while another transfer was under way there.
    std::atomic<uint32_t> collisions = 0;
    std::array<std::atomic<int>, kSlowBuses> under_way{};
    std::array<std::array<std::atomic<uint8_t>, kSlowEndpoints>, kSlowBuses> eids{};

    /// While a write to this bus goes on, the process that makes it is stuck; 0xFFFF: none.
    std::atomic<uint32_t> stuck_bus = 0xFFFF;
    std::atomic<int> stuck = 0;  ///< how many are
};

/// The one of this process and of the children that it forks from now on.
SlowBoard& slow_board();

constexpr uint8_t slow_address(size_t endpoint) {
    return static_cast<uint8_t>(0x40 + 2 * endpoint);
}

/// What an endpoint alone says, and only to this question.
constexpr uint32_t slow_reading(uint8_t bus, uint8_t address, uint16_t sensor) {
    return uint32_t{bus} << 24 | uint32_t{address} << 16 | sensor;
}

/// A context for one of the endpoints, as a service fills it in.
mctp_ctx slow_context(size_t bus, size_t endpoint);

}  // namespace test

#endif
