// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a terminus (DSP0248): one record, or a walk over all of them that ends
// whatever the terminus answers.
#ifndef SIDEBAND_TOOLS_PLDM_PDR_WALK_H
#define SIDEBAND_TOOLS_PLDM_PDR_WALK_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/session.h"

namespace tool {

/// One record, as far as it came.
struct PdrRecord {
    uint32_t asked = 0;          ///< handle that it was asked for with
    uint32_t next = 0;           ///< nextRecordHandle: 0 behind the last one
    std::vector<uint8_t> bytes;  ///< common header first
    std::string problem;         ///< why it is of no use; empty if it is whole

    bool whole() const { return problem.empty(); }
    /// recordHandle of its header; the one that it was asked for with if the header is missing.
    uint32_t handle() const;
    /// PDRType of its header; 0 if the header is missing.
    uint8_t type() const;
};

/// Reads the record with a handle; 0 is the first one's. A record that does not come whole is told
/// by its problem. Throws Failure if there is no answer that names a next record.
PdrRecord read_pdr(Session& session, uint32_t handle);

struct PdrWalk {
    bool repository = true;  ///< false: the terminus has none
    std::vector<PdrRecord> records;
    std::vector<Failure> failures;  ///< records that did not come whole, and what ended the walk
};

/// Reads all records from the first to the last. Throws Failure if not even the number of
/// records is told.
PdrWalk walk_pdrs(Session& session);

/// The failure of an operation on one record: "OPERATION of record 0x1a failed: REASON".
Failure pdr_failure(const Session& session, const std::string& operation, uint32_t handle,
                    const std::string& reason);

}  // namespace tool

#endif
