// SPDX-License-Identifier: Apache-2.0
// What a drive is asked: Identify of 4 KiB through the admin tunnel, and its health.
#include <sideband/nvme_mi.h>

#include <algorithm>
#include <array>
#include <vector>

#include "bench/cases.h"
#include "bench/memory_platform.h"

namespace bench {
namespace {

constexpr uint8_t kMessageType = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;
/// Behind the message type (NVMe-MI, message header): ROR and the NVMe-MI message type.
constexpr uint8_t kManagementAnswer = 0x88;
constexpr uint8_t kAdminAnswer = 0x90;
constexpr size_t kIdentifySize = 4096;
/// The header, status and reserved bytes, and the three dwords of the completion.
constexpr size_t kIdentifyFront = 3 + 4 + 12;
constexpr size_t kCheckSize = 4;

nvmemi_ctx drive;
std::vector<uint8_t> answer;
std::array<uint8_t, kIdentifySize> identified;
nvme_subsystem_health health;

void prepare_drive() {
    mctp_ctx config{};
    config.src_eid = 0x08;
    config.dest_eid = 0x1D;
    config.bus = 3;
    config.slave_addr = 0x64;
    config.binding_kind = MCTP_BINDING_KIND_SL8_SMBUS;
    nvmemi_init(&drive, &config);
}

}  // namespace

void prepare_identify() {
    prepare_drive();
    answer.assign(kIdentifyFront + kIdentifySize + kCheckSize, 0);
    answer[0] = kAdminAnswer;
    for (size_t i = 0; i < kIdentifySize; ++i) {
        answer[kIdentifyFront + i] = static_cast<uint8_t>(i * 5 + i / 256);
    }
    prepare_answer(kMessageType, answer.data(), answer.size(), kUnitSize);
}

bool run_identify() {
    nvme_admin_req request{};
    request.ctx = &drive;
    request.dlen = kIdentifySize;
    request.cdw10 = 1;  // CNS 1: the controller
    uint32_t received = 0;
    return nvme_identify(&request, kIdentifySize, 0, identified.data(), &received) == 0 &&
           received >= kIdentifySize;
}

bool verify_identify() {
    return std::equal(identified.begin(), identified.end(), answer.begin() + kIdentifyFront);
}

/// NVM Subsystem Health Status Poll: functional, 40 degrees Celsius, 3 % used.
void prepare_health() {
    prepare_drive();
    answer = {kManagementAnswer, 0, 0, 0, 0, 0, 0, 0x38, 0xFF, 40, 3, 0, 0, 0, 0, 0, 0, 0, 0};
    prepare_answer(kMessageType, answer.data(), answer.size(), kUnitSize);
}

bool run_health() {
    constexpr uint32_t kKeep = 0;
    return nvmemi_nvm_subsystem_health_status_poll(&drive, &kKeep, &health) == 0;
}

bool verify_health() {
    return health.nss == 0x38 && health.ctemp == 40 && health.pdlu == 3;
}

}  // namespace bench
