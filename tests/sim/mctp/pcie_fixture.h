// SPDX-License-Identifier: Apache-2.0
// Fixture of the tests of PCIe: request records, wire bytes in hex.
#ifndef SIDEBAND_TESTS_SIM_MCTP_PCIE_FIXTURE_H
#define SIDEBAND_TESTS_SIM_MCTP_PCIE_FIXTURE_H

#include <algorithm>

#include "sim/board/board_fixture.h"

namespace sim_test {

/// What is wrong with a list of devices: "KEY: TEXT"; empty if nothing is.
inline std::string error_of(const std::string& devices) {
    sim::BoardError error;
    return sim::Board::parse(board_with(devices), error) ? "" : error.key + ": " + error.text;
}

class PcieBoard : public BoardTest {
protected:
    /// A write-then-read routed by ID. @param message  hex, the type byte first
    static plt_pcie_request to(uint32_t bus, uint32_t device, uint32_t function,
                               std::string_view message) {
        plt_pcie_request request{};
        request.operation = PLT_PCIE_WRITE_READ;
        const std::vector<uint8_t> data = bytes(message);
        std::ranges::copy(data, request.message);
        request.length = static_cast<uint32_t>(data.size());
        request.bus = bus;
        request.device = device;
        request.function = function;
        request.routing = PLT_PCIE_ROUTE_BY_ID;
        return request;
    }

    static plt_pcie_request reading() {
        plt_pcie_request request{};
        request.operation = PLT_PCIE_READ;
        return request;
    }

    static std::string message_of(const plt_pcie_request& request) {
        return hex({request.message, request.message + request.length});
    }

    /// One control message to the function 00:00.0 and its answer, both without their type byte;
    /// "nothing" if none came.
    static std::string ask_root_complex(std::string_view request) {
        plt_pcie_request record = to(0, 0, 0, "00 " + std::string(request));
        return PltMCTP_WriteRead(&record) == 1 ? message_of(record).substr(3) : "nothing";
    }
};

}  // namespace sim_test

#endif
