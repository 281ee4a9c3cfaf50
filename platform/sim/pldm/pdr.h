// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a PLDM terminus: its sensors' records and those of the board file.
#ifndef SIDEBAND_SIM_PLDM_PDR_H
#define SIDEBAND_SIM_PLDM_PDR_H

#include <vector>

#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"
#include "sim/pldm/sensor.h"

namespace sim {

class PdrRepository {
public:
    PdrRepository() = default;
    /// Describes sensors, and reads "pdrs" and the keys beside it.
    PdrRepository(ObjectReader& reader, const std::vector<NumericSensor>& numeric,
                  const std::vector<StateSensor>& state);

    /// Answers a GetPDRRepositoryInfo request, completion code first.
    Bytes info() const;
    /// Answers a GetPDR request, completion code first.
    /// @param data  record handle, transfer handle, operation flag, request count, change number
    Bytes get(ByteView data) const;
    /// Answers a GetPDRRepositorySignature request, completion code first.
    Bytes signature() const;

private:
    struct Record {
        Bytes bytes;           ///< common header first
        size_t part_size = 0;  ///< at most so many bytes in an answer; 0: as many as asked for
        uint32_t start = 0;    ///< bytes of the records before it
    };

    void add(uint8_t type, ByteView data, uint16_t change_number, size_t part_size);
    void add_names(ObjectReader& reader, const SensorInfo& info, size_t count);
    void add_from_file(const Place& place);
    /// @return the position of the record that has a handle, the number of records if none has
    size_t find(uint32_t handle) const;
    uint32_t handle_at(size_t position) const;
    /// How many bytes of a record one answer has. @param at  where its part begins
    size_t part_size(const Record& record, size_t at, size_t asked) const;

    std::vector<Record> records_;
    size_t part_size_ = 0;
};

}  // namespace sim

#endif
