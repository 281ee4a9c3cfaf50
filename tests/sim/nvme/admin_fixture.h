// SPDX-License-Identifier: Apache-2.0
// Fixture of the admin tunnel's tests: one drive, and the commands that most of them begin with.
#ifndef SIDEBAND_TESTS_SIM_NVME_ADMIN_FIXTURE_H
#define SIDEBAND_TESTS_SIM_NVME_ADMIN_FIXTURE_H

#include "drive_fixture.h"

namespace sim_test {

class NvmeAdmin : public NvmeTest {
protected:
    sim::Bytes identify(uint32_t structure, uint32_t id = 0, uint16_t controller = 0) {
        return read_by({.opcode = 0x06,
                        .id = id,
                        .dword10 = structure,
                        .length = 4096,
                        .controller = controller});
    }
    sim::Bytes log(uint8_t page, uint32_t size, uint32_t offset = 0) {
        return read_by({.opcode = 0x02,
                        .id = 0xFFFFFFFF,
                        .dword10 = (size / 4 - 1) << 16 | page,
                        .length = size,
                        .dword12 = offset});
    }
    std::string revision() { return text(identify(1), 64, 8); }

    static std::vector<uint32_t> list(const sim::Bytes& data) {
        std::vector<uint32_t> ids;
        for (size_t at = 0; at < data.size() && sim::le32(data, at) != 0; at += 4) {
            ids.push_back(sim::le32(data, at));
        }
        return ids;
    }
};

}  // namespace sim_test

#endif
