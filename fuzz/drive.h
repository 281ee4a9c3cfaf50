// SPDX-License-Identifier: Apache-2.0
// An NVMe drive's answers as the input has them, with the integrity check that it would send.
#ifndef SIDEBAND_FUZZ_DRIVE_H
#define SIDEBAND_FUZZ_DRIVE_H

#include <sideband/nvme_mi.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace fuzz {

/// In a response's first byte, and taken out of it.
enum : uint8_t {
    kDriveLies = 0x20,    ///< the result is the next two bytes, whatever was stored
    kDriveChecks = 0x40,  ///< an integrity check is put behind the body
};

/// Message type 4 with integrity check.
constexpr uint8_t kDriveMessageType = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;

inline void add_integrity_check(std::vector<uint8_t>& body) {
    uint32_t crc = 0xFFFFFFFF;
    const auto add = [&](uint8_t byte) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
        }
    };
    add(kDriveMessageType);
    std::for_each(body.begin(), body.end(), add);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        body.push_back(static_cast<uint8_t>(~crc >> shift));
    }
}

/// A drive's next answer, stored as far as there is room.
inline int32_t drive_answer(int32_t room, uint8_t* response) {
    // Answers have their status where the command would be, less one: see next_answer().
    constexpr size_t kBeforeStatus = 2;
    require(room >= 0 && room <= NVMEMI_RESPONSE_MAX, "more room than the receive area has");
    Answer answer = next_answer(kBeforeStatus);
    if (answer.result < 0) {
        return answer.result;
    }
    const uint8_t how = answer.bytes.empty() ? uint8_t{0} : answer.bytes[0];
    if (!answer.bytes.empty()) {
        answer.bytes[0] = how & static_cast<uint8_t>(~(kDriveLies | kDriveChecks));
    }
    if ((how & kDriveChecks) != 0) {
        add_integrity_check(answer.bytes);
    }
    const size_t stored = std::min(answer.bytes.size(), static_cast<size_t>(room));
    std::copy_n(answer.bytes.begin(), stored, response);
    if ((how & kDriveLies) != 0 && answer.bytes.size() >= 3) {
        return static_cast<int16_t>(answer.bytes[1] | answer.bytes[2] << 8);
    }
    return static_cast<int32_t>(stored);
}

/// Initialises a context over the scripted bus. Bit 0 of how: the binding with PEC in software; bit
/// 1: the form for slow drives.
/// @return whether it has an endpoint that works
inline bool init_drive(nvmemi_ctx& ctx, uint8_t how) {
    const mctp_ctx config = configuration(how & 0x01);
    const int32_t result =
        (how & 0x02) != 0 ? nvmemi_init_for_MARV(&ctx, &config) : nvmemi_init(&ctx, &config);
    require(result == 0 || result == -1, "an undocumented result");
    require(result != 0 || ctx.mctp != nullptr, "no endpoint");
    return result == 0;
}

}  // namespace fuzz

#endif
