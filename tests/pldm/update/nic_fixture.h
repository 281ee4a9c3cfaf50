// SPDX-License-Identifier: Apache-2.0
// Updates of a card with a package file; everything must be released behind each.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_NIC_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_UPDATE_NIC_FIXTURE_H

#include <string>
#include <vector>

#include "pldm/update/device.h"

namespace test {

/// Fixture: the device has identity 3, which a record's descriptor asks for, and three components.
class NicUpdateTest : public FwMachineTest {
protected:
    NicUpdateTest();

    /// A package with a record for each of these identities, called "r0", "r1"...
    void write_package(const std::vector<uint8_t>& identities, size_t components = 1);

    /// Updates; everything must be released then. What is printed of the parse is left out.
    Outcome update(uint32_t flags = 0);
    void expect_released() const;

    /// Sessions that were opened and closed.
    Texts sessions() const;
    /// Command codes of the agent's requests.
    std::string commands() const;
    /// The version strings that RequestUpdate named.
    Texts named() const;
};

/// An answer to RequestUpdate.
inline constexpr const char* kInUpdateMode = "00 05 10 81";

}  // namespace test

#endif
