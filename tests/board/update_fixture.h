// SPDX-License-Identifier: Apache-2.0
// Fixture of the firmware updates end to end: an add-in card on the board, and packages for it.
#ifndef SIDEBAND_TESTS_BOARD_UPDATE_FIXTURE_H
#define SIDEBAND_TESTS_BOARD_UPDATE_FIXTURE_H

#include <sideband/pldm_fw_update.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fixture.h"
#include "sim/pldm/firmware.h"
#include "testing/package_builder.h"

namespace board_test {

enum class Binding { kSmbus, kPcie };

/// What a service sees of one check and the update that follows if it passes.
struct UpdateReport {
    int32_t check = 0;
    int32_t update = 0;  ///< 1 if there was none
    uint8_t mark = 0;    ///< pldm.completion_code
    uint8_t state = 0;
    sideband_error error{};  ///< pldm_fw_update_last_error()
    std::string out;         ///< standard output
    std::string log;         ///< the debug log
};

/// An image whose bytes tell where they stand and to which component they belong.
std::vector<uint8_t> image_of(size_t component, size_t size);

/// A package for the card below: one record, components 1 and 2 with images of 300 and 200 bytes.
tool::Package card_package();

class UpdateRun : public BoardRun {
protected:
    void SetUp() override;
    /// Expects that no descriptor, mapping, session or memory of the update is left.
    void TearDown() override;

    /// Opens a board with a network card, nic0, that has components 1 and 2 and runs version "OLD".
    /// @param firmware_keys  further keys of the firmware device, each with a comma in front
    void open_card(Binding binding, const std::string& firmware_keys = "");

    /// Opens a board with a network card, nic0, that has this firmware object.
    void open_card_with(Binding binding, const std::string& firmware);
    /// Opens a board with a graphics card on SMBus, and components like those of nic0.
    void open_graphics_card();

    /// Writes a package and has the card expect its images.
    void provide(const tool::Package& package);
    void provide_bytes(const std::vector<uint8_t>& bytes);

    using Check = decltype(&pldm_check_firmware_image);

    /// Checks the package against the card and updates it.
    UpdateReport update(uint32_t flags = 0, Check check = pldm_check_firmware_image);

    /// The version that a component of the card runs.
    std::string component_version(size_t component) const {
        return device->components().at(component).active.text;
    }

    sim::PldmFirmware* device = nullptr;
    std::string name = "nic0";  ///< of the card
    std::string path;           ///< of the package

private:
    /// @param place  keys that say where the card is and what it is
    void open_place(const std::string& place, const std::string& firmware);

    size_t descriptors_ = 0;
};

}  // namespace board_test

#endif
