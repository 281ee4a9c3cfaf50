// SPDX-License-Identifier: Apache-2.0
// The calls of NVMe-MI: management commands, and admin commands through the tunnel.
#include <sideband/nvme_mi.h>

#include <array>

#include "case.h"
#include "room.h"

namespace hostile {

namespace {

constexpr uint32_t kAttempts = 3;
constexpr uint32_t kPieces = 40;

/// A port or controller that is mostly there.
uint8_t small(Case& at) {
    return static_cast<uint8_t>(at.random.one_of(6) ? at.random.byte() : at.random.below(2));
}

int32_t init(Case& at) {
    nvmemi_ctx made{};
    const int32_t result = at.way == Way::kSmbus && at.random.one_of(2)
                               ? nvmemi_init_for_MARV(&made, &at.config)
                               : nvmemi_init(&made, &at.config);
    at.error = made.last_error;
    nvmemi_deinit(&made);
    return result;
}

int32_t get_frequency(Case& at) {
    uint8_t frequency = 77;
    const int32_t result = nvmemi_config_get_smbus_freq(&at.nvme, small(at), &frequency);
    at.expect(result == 0 || frequency == 77, "a frequency of an answer that was refused");
    return result;
}

int32_t set_frequency(Case& at) {
    return nvmemi_config_set_smbus_freq(&at.nvme, small(at),
                                        static_cast<uint8_t>(at.random.below(5)));
}

int32_t get_health_change(Case& at) {
    return nvmemi_config_get_health_status_change(&at.nvme);
}

int32_t set_health_change(Case& at) {
    const uint32_t changes = at.random.word();
    return nvmemi_config_set_health_status_change(&at.nvme, &changes);
}

int32_t get_unit(Case& at) {
    uint16_t size = 7777;
    const int32_t result = nvmemi_config_get_mctp_tx_unit_size(&at.nvme, small(at), &size);
    at.expect(result == 0 || size == 7777, "a size of an answer that was refused");
    return result;
}

int32_t set_unit(Case& at) {
    return nvmemi_config_set_mctp_tx_unit_size(&at.nvme, small(at), 64);
}

int32_t subsystem_health(Case& at) {
    const uint32_t nmd1 = at.random.one_of(2) ? NVMEMI_HEALTH_CLEAR_STATUS : 0;
    nvme_subsystem_health out{};
    return nvmemi_nvm_subsystem_health_status_poll(&at.nvme, &nmd1, &out);
}

int32_t controller_health(Case& at) {
    const uint32_t nmd0 = NVMEMI_CONTROLLER_POLL_INCF | NVMEMI_CONTROLLER_POLL_ALL |
                          NVMEMI_CONTROLLER_POLL_MAXRENT(at.random.below(3));
    const uint32_t nmd1 = 0;
    uint8_t count = 77;
    const auto entries = std::make_unique<nvme_controller_health[]>(NVMEMI_CONTROLLERS_MAX);
    const int32_t result =
        nvmemi_controller_health_status_poll(&at.nvme, &nmd0, &nmd1, &count, entries.get());
    at.expect(result == 0 ? count <= NVMEMI_CONTROLLERS_MAX : count == 77, "a wrong count");
    return result;
}

int32_t structure(Case& at) {
    const uint32_t nmd0 = NVMEMI_DS(at.random.below(6), small(at), small(at));
    Room room(1 + at.random.below(64));
    uint16_t length = 7777;
    const int32_t result = nvmemi_read_nvmemi_data_structure(
        &at.nvme, &nmd0, room.data(), static_cast<uint32_t>(room.size()), &length);
    at.expect(result == 0 ? length <= room.size() : length == 7777, "a wrong length");
    at.expect(result != 0 || room.untouched_from(length), "bytes behind the structure");
    return result;
}

int32_t reset(Case& at) {
    return nvmemi_reset(&at.nvme);
}

int32_t vpd_read(Case& at) {
    Room room(1 + at.random.below(300));
    const int32_t result = nvmemi_vpd_read(&at.nvme, static_cast<uint16_t>(at.random.below(64)),
                                           static_cast<uint16_t>(room.size()), room.data());
    at.expect(result == 0 || room.untouched_from(), "data of an answer that was refused");
    return result;
}

int32_t vpd_write(Case& at) {
    Room room(1 + at.random.below(NVMEMI_VPD_WRITE_MAX + 1));
    return nvmemi_vpd_write(&at.nvme, room.data(), 0, static_cast<uint16_t>(room.size()));
}

nvme_admin_req admin_of(Case& at) {
    nvme_admin_req req{};
    req.ctx = &at.nvme;
    req.cntlid = at.random.one_of(8) ? at.random.byte() : 0;
    req.nsid = at.random.one_of(4) ? 0 : 1;
    return req;
}

int32_t get_feature(Case& at) {
    nvme_admin_req req = admin_of(at);
    Room room(1 + at.random.below(64));
    nvme_feature_result result{0, static_cast<uint32_t>(room.size()), room.data()};
    return nvme_admin_get_feature(&req, static_cast<uint8_t>(1 + at.random.below(14)),
                                  static_cast<uint8_t>(at.random.below(5)), &result);
}

int32_t set_feature(Case& at) {
    nvme_admin_req req = admin_of(at);
    req.cdw11 = at.random.word();
    return nvme_admin_set_feature(&req, static_cast<uint8_t>(1 + at.random.below(14)), 0, nullptr);
}

int32_t commit(Case& at) {
    return nvme_fw_image_commit(&at.nvme, 0, static_cast<uint8_t>(at.random.below(4)),
                                static_cast<uint8_t>(at.random.below(4)));
}

int32_t download(Case& at) {
    const uint32_t size = at.random.one_of(2) ? 4096 : 128 * (1 + at.random.below(8));
    return nvme_fw_image_download(&at.nvme, 0, at.files.image.c_str(), size, 3);
}

int32_t attach(Case& at) {
    return nvme_namespace_mgmt_attachment(&at.nvme, 0, 1 + at.random.below(3),
                                          at.random.byte() & 1);
}

int32_t create(Case& at) {
    Room data(NVME_ADMIN_DATA_MAX);
    uint32_t nsid = 77;
    const int32_t result = nvme_namespace_mgmt_create(&at.nvme, 0, data.data(), &nsid);
    at.expect(result == 0 || nsid == 77, "a namespace of an answer that was refused");
    return result;
}

int32_t remove(Case& at) {
    return nvme_namespace_mgmt_delete(&at.nvme, 0, 1 + at.random.below(5));
}

int32_t format(Case& at) {
    const uint32_t cdw10 = at.random.below(2);
    return nvme_format_nvm(&at.nvme, 0, 1, &cdw10);
}

int32_t sanitize(Case& at) {
    const nvme_sanitize_param param{&at.nvme, 0, 0, NVME_SANITIZE_SANACT(1 + at.random.below(4)),
                                    0};
    return nvme_sanitize_set(&param);
}

int32_t lockdown(Case& at) {
    const nvme_lockdown_param param{&at.nvme, 0, 0,
                                    NVME_LOCKDOWN_IFC(2) | NVME_LOCKDOWN_OFI(at.random.byte()), 0};
    return nvme_lockdown_set(&param);
}

/// Of a command that reads: what it says to have stored is there, and nothing behind it.
void expect_read(Case& at, int32_t result, const Room& room, uint32_t received) {
    at.expect(result == 0 ? received <= room.size() : received == 7777, "a wrong count");
    at.expect(room.untouched_from(result == 0 ? received : 0), "bytes that nobody counts");
}

size_t length_of(Case& at) {
    return at.random.one_of(4) ? NVME_ADMIN_DATA_MAX : 4 * (1 + at.random.below(128));
}

int32_t log_page(Case& at) {
    nvme_admin_req req = admin_of(at);
    Room room(length_of(at));
    static constexpr std::array<uint8_t, 4> kPages{0x01, 0x02, 0x03, 0x81};
    req.cdw10 =
        kPages[at.random.below(kPages.size())] | (static_cast<uint32_t>(room.size()) / 4 - 1) << 16;
    uint32_t received = 7777;
    const int32_t result = nvme_get_log_page(&req, 0, static_cast<uint32_t>(room.size()),
                                             at.random.byte() & 1, room.data(), &received);
    expect_read(at, result, room, received);
    return result;
}

int32_t identify(Case& at) {
    nvme_admin_req req = admin_of(at);
    Room room(length_of(at));
    req.cdw10 = at.random.below(4);
    uint32_t received = 7777;
    const int32_t result = nvme_identify(&req, static_cast<uint32_t>(room.size()),
                                         at.random.byte() & 1, room.data(), &received);
    expect_read(at, result, room, received);
    return result;
}

int32_t drive_info(Case& at) {
    nvme_admin_req req = admin_of(at);
    req.opcode = 0xC2;
    Room room(length_of(at));
    uint32_t received = 7777;
    const int32_t result =
        nvme_get_pd_info(&req, static_cast<uint32_t>(room.size()), room.data(), &received);
    expect_read(at, result, room, received);
    return result;
}

int32_t vendor_read(Case& at) {
    nvme_admin_req req = admin_of(at);
    req.opcode = 0xC2;
    Room room(length_of(at));
    uint32_t received = 7777;
    const int32_t result =
        nvme_mrvl_read_cmd(&req, static_cast<uint32_t>(room.size()), room.data(), &received);
    expect_read(at, result, room, received);
    return result;
}

constexpr Call kCalls[] = {
    {"nvmemi_init", 1, 0, init},
    {"nvmemi_config_get_smbus_freq", 8, kAttempts, get_frequency},
    {"nvmemi_config_set_smbus_freq", 6, kAttempts, set_frequency},
    {"nvmemi_config_get_health_status_change", 6, kAttempts, get_health_change},
    {"nvmemi_config_set_health_status_change", 6, kAttempts, set_health_change},
    {"nvmemi_config_get_mctp_tx_unit_size", 8, kAttempts, get_unit},
    {"nvmemi_config_set_mctp_tx_unit_size", 6, kAttempts, set_unit},
    {"nvmemi_nvm_subsystem_health_status_poll", 10, kAttempts, subsystem_health},
    {"nvmemi_controller_health_status_poll", 10, kAttempts, controller_health},
    {"nvmemi_read_nvmemi_data_structure", 16, kAttempts, structure},
    {"nvmemi_reset", 1, kAttempts, reset},
    {"nvmemi_vpd_read", 10, kAttempts, vpd_read},
    {"nvmemi_vpd_write", 6, kAttempts, vpd_write},
    {"nvme_admin_get_feature", 10, kAttempts, get_feature},
    {"nvme_admin_set_feature", 6, kAttempts, set_feature},
    {"nvme_fw_image_commit", 6, kAttempts, commit},
    {"nvme_fw_image_download", 3, kPieces* kAttempts, download},
    {"nvme_namespace_mgmt_attachment", 4, kAttempts, attach},
    {"nvme_namespace_mgmt_create", 2, kAttempts, create},
    {"nvme_namespace_mgmt_delete", 4, kAttempts, remove},
    {"nvme_format_nvm", 4, kAttempts, format},
    {"nvme_sanitize_set", 4, kAttempts, sanitize},
    {"nvme_lockdown_set", 2, kAttempts, lockdown},
    {"nvme_get_log_page", 10, kAttempts, log_page},
    {"nvme_identify", 8, kAttempts, identify},
    {"nvme_get_pd_info", 6, kAttempts, drive_info},
    {"nvme_mrvl_read_cmd", 6, kAttempts, vendor_read},
};

bool begin(Case& at) {
    return nvmemi_init(&at.nvme, &at.config) == 0;
}

void end(Case& at) {
    nvmemi_deinit(&at.nvme);
}

const sideband_error& error_of_nvme(const Case& at) {
    return at.error.cause != SIDEBAND_CAUSE_NONE ? at.error : *nvmemi_last_error(&at.nvme);
}

}  // namespace

const Protocol kNvmeProtocol{"nvme", "nvme", kCalls, begin, end, error_of_nvme};

}  // namespace hostile
