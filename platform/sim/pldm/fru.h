// SPDX-License-Identifier: Apache-2.0
// The FRU record table of a PLDM terminus (DSP0257).
#ifndef SIDEBAND_SIM_PLDM_FRU_H
#define SIDEBAND_SIM_PLDM_FRU_H

#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"

namespace sim {

class FruTable {
public:
    /// Reads a "fru" object.
    explicit FruTable(const Place& place);

    /// Answers a GetFRURecordTableMetadata request, completion code first.
    Bytes metadata() const;
    /// Answers a GetFRURecordTable request, completion code first.
    /// @param data  data transfer handle and operation flag
    Bytes part(ByteView data) const;

private:
    void add_record(const Place& place);

    Bytes table_;        ///< the records
    Bytes image_;        ///< what travels: the records, pad bytes, checksum, fill bytes
    size_t part_size_;   ///< table bytes in an answer; 0: all of them
    uint32_t length_;    ///< what the metadata tell
    uint32_t checksum_;  ///< of the records and the pad bytes
    uint16_t sets_ = 0;
    uint16_t records_ = 0;
};

}  // namespace sim

#endif
