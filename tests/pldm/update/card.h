// SPDX-License-Identifier: Apache-2.0
// An add-in card behind the platform, over SMBus and over PCIe: it can be found and identified.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_CARD_H
#define SIDEBAND_TESTS_PLDM_UPDATE_CARD_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "pldm/update/package_fixture.h"
#include "support/endpoint.h"

namespace test {

/// A descriptor of a device or of a package's record that only this number matches.
tool::PackageDescriptor identity(uint8_t number);

/// A package with a record for each of these identities.
tool::Package package_for(const std::vector<uint8_t>& identities);

/// Fixture: the card answers whatever the binding; the debug log is in port().syslog.
class CardTest : public PackageTest {
protected:
    CardTest();
    /// Releases the context with its terminus first.
    void TearDown() override;

    /// PLDM answers of the card by type and command, as hex; empty: none. Its identity is 3.
    std::map<std::pair<int, int>, std::string> answers;
    std::vector<std::string> asked;  ///< PLDM requests, as hex

private:
    std::optional<Bytes> answer(uint8_t type, const Bytes& request);
    int answer_pcie(plt_pcie_request& request);

    Endpoint endpoint_;
};

/// What was logged, with "#" for each line number.
std::vector<std::string> logged();

}  // namespace test

#endif
