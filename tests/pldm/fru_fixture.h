// SPDX-License-Identifier: Apache-2.0
// Answers to the FRU commands, and a terminus that gives them.
#ifndef SIDEBAND_TESTS_PLDM_FRU_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_FRU_FIXTURE_H

#include <sideband/pldm_fru.h>

#include "pldm/pldm_fixture.h"
#include "support/numbers.h"

namespace test {

/// An answer to GetFRURecordTableMetadata: version 1.0, no maximum size, one record in one set.
inline Bytes metadata_of(uint32_t table_length) {
    return hex("00 04 01 00 01 00 00 00 00 00") + le32(table_length) +
           hex("01 00 01 00 de ad be ef");
}

/// An answer to GetFRURecordTable.
inline Bytes table_part(uint8_t flag, uint32_t next_handle, const Bytes& data) {
    return hex("00 04 02 00") + le32(next_handle) + Bytes{flag} + data;
}

/// Fixture: a terminus that gives whole answers.
class FruTest : public PldmTest {
protected:
    using Texts = std::vector<std::string>;

    /// What pldm_transfer prints if no answer came.
    static constexpr const char* kXferFailed =
        "do retrying to xfer PLDM messages - 0\nfailed to xfer PLDM messages\n";

    void answer(std::initializer_list<Bytes> bodies) {
        for (const Bytes& body : bodies) {
            endpoint.answers.push_back(MctpAnswer::of(body));
        }
    }

    /// These answers and no other ones.
    void answer_only(std::initializer_list<Bytes> bodies) {
        endpoint.answers.clear();
        answer(bodies);
    }
};

}  // namespace test

#endif
