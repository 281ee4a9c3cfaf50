// SPDX-License-Identifier: Apache-2.0
// A board with a card that takes firmware, and packages for it.
#ifndef SIDEBAND_TESTS_TOOLS_UPDATE_FIRMWARE_BENCH_H
#define SIDEBAND_TESTS_TOOLS_UPDATE_FIRMWARE_BENCH_H

#include "testing/package_builder.h"
#include "tests/tools/tool_runner.h"

namespace tool_test {

/// nic0 over SMBus and nic1 over PCIe, the same card with one component. Its keys can be changed
/// before the board is put to use.
class FirmwareBoard {
public:
    FirmwareBoard();

    /// The keys of the card's firmware.
    Json& firmware() { return firmware_; }
    /// Adds a fault to it: a kind, the command that it happens to, and further keys.
    FirmwareBoard& fault(const std::string& kind, const std::string& command,
                         const Json& keys = Json::object());

    std::string text() const;
    Outcome run(std::vector<std::string> arguments) const { return run_on(text(), arguments); }

private:
    Json firmware_;
};

/// A package for that card with an image of so many bytes.
tool::Package card_package(size_t image_size = 1000);

std::string file_of(const tool::Package& package);

/// Whether a capture holds a PLDM firmware update request of the BMC with this command.
bool holds_request(const TemporaryFile& capture, uint8_t command);

}  // namespace tool_test

#endif
