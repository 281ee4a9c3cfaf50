// SPDX-License-Identifier: Apache-2.0
// Raw PDRs for tests, GetPDR answers that carry them, and the terminus that gives them.
#ifndef SIDEBAND_TESTS_PLDM_PDR_RECORDS_H
#define SIDEBAND_TESTS_PLDM_PDR_RECORDS_H

#include <sideband/pldm_monitor.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "pldm/pldm_fixture.h"
#include "support/bytes.h"

namespace test {

/// Width in bytes of each of the seven data size codes (DSP0248).
constexpr unsigned kWidths[] = {1, 1, 2, 2, 4, 4, 4};

/// A Numeric Sensor PDR whose every value tells which it is: slot n, in the order of the record,
/// has the bytes n1 n2 n3 n4 in hex, or as many of them as its format is wide. Resolution 0.5,
/// offset 10.
Bytes numeric_pdr(uint8_t data_size = 0, uint8_t range_format = 0);

/// A composite sensor of a State Sensor PDR: state set ID and possibleStates.
using Composite = std::pair<uint16_t, Bytes>;

/// A State Sensor PDR with as many composite sensors.
Bytes state_pdr(const std::vector<Composite>& sensors);

/// The same, padded with zeros to the 64 bytes that a decoder takes, and decoded by hand.
pldm_state_sensor_pdr state_record(const std::vector<Composite>& sensors);

/// Fields of a GetPDR answer.
struct PdrPart {
    uint32_t next_record = 0;
    uint32_t next_transfer = 0;
    uint8_t flag = 5;  ///< StartAndEnd
};

/// A GetPDR answer with this record data.
Bytes pdr_answer(const Bytes& data, const PdrPart& part = {});

/// Fixture: a terminus with a PDR repository. Nothing may be left on the library's heap.
class PdrRepository : public PldmTest {
protected:
    void TearDown() override;

    /// Queues honest answers.
    void answer(std::initializer_list<Bytes> bodies);
    /// What went to the debug log.
    static std::vector<std::string>& messages() { return port().syslog; }
};

}  // namespace test

#endif
