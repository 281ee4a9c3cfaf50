// SPDX-License-Identifier: Apache-2.0
// NVMe-MI: contexts, management commands, admin commands, the download of an image.
#include "scenario.h"
#include "support/bytes.h"

namespace sweep {
namespace {

constexpr const char* kDriveKeys =
    R"("drive": {"model": "M", "serial": "S", "capacity": 1048576,
                 "namespaces": [{"id": 1, "blocks": 256, "used": 10}],
                 "firmware": {"slots": ["FW1", ""]}, "vpd": "0102030405060708090a"}})";

std::string drive(const std::string& place) {
    return R"({"name": "dev", "type": "nvme", "eid": 9, )" + place + ", " + kDriveKeys;
}
const std::string kSmbus = drive(R"("bus": 2, "address": "0x3a")");
const std::string kSl8 = drive(R"("bus": 2, "address": "0x3a", "pec": "software")");
const std::string kPcie = drive(R"("transport": "pcie", "bdf": "81:00.0")");

void open_on(World& world, const std::string& device) {
    open_device(world, device);
    world.endpoint.dest_eid = 9;
}
void ready_on(World& world, const std::string& device) {
    open_on(world, device);
    nvmemi_init(&world.nvme, &world.endpoint);
    world.admin.ctx = &world.nvme;
}
void open(World& world) {
    open_on(world, kSmbus);
}
void ready(World& world) {
    ready_on(world, kSmbus);
}
// The drive wants an integrity check, which these bindings append for strict contexts alone.
void ready_sl8(World& world) {
    ready_on(world, kSl8);
    world.nvme.mctp->strict = MCTP_STRICT_INTEGRITY;
}
void ready_pcie(World& world) {
    ready_on(world, kPcie);
    world.nvme.mctp->strict = MCTP_STRICT_INTEGRITY;
}
void release(World& world) {
    nvmemi_deinit(&world.nvme);
}

const sideband_error& record(const World& world) {
    return *nvmemi_last_error(&world.nvme);
}
std::string stored(const World& world) {
    return listed(world.numbers[0], world.numbers[1]) + shown(world.room.data(), 64);
}
void clear(World& world) {
    world.room = {};
    world.numbers = {};
}

uint8_t& first_byte(World& world) {
    return world.room[0];
}
uint16_t& half(World& world) {
    return *reinterpret_cast<uint16_t*>(world.room.data());
}

constexpr uint8_t kSmbusPort = 1;
constexpr uint32_t kZero = 0;
constexpr uint32_t kAll = NVMEMI_CONTROLLER_POLL_ALL | NVMEMI_CONTROLLER_POLL_MAXRENT(1);

template <auto kInit>
int64_t init(World& world) {
    return kInit(&world.nvme, &world.endpoint);
}

std::vector<Scenario> life() {
    std::vector<Scenario> all{
        {.function = "nvmemi_last_error",
         .call = [](World& world) -> int64_t { return nvmemi_last_error(&world.nvme)->cause; }},
        {.function = "nvmemi_deinit",
         .set_up = ready,
         .call = [](World& world) -> int64_t { return nvmemi_deinit(&world.nvme); }},
    };
    all.push_back({.function = "nvmemi_init",
                   .set_up = open,
                   .call = init<nvmemi_init>,
                   .release = release,
                   .record = record,
                   .failures = {-1}});
    all.push_back({.function = "nvmemi_init_for_MARV",
                   .set_up = open,
                   .call = init<nvmemi_init_for_MARV>,
                   .release = release,
                   .record = record,
                   .failures = {-1}});
    return all;
}

Scenario on(const char* function, const char* way, void (*set_up)(World&),
            int64_t (*call)(World&)) {
    return {.function = function,
            .way = way,
            .set_up = set_up,
            .call = call,
            .stored = stored,
            .again = clear,
            .release = release,
            .record = record,
            .failures = {-1},
            // Three exchanges are tried.
            .does_without = {"lx_mutex_get"}};
}

/// A command, over the bindings that differ in how they lock.
void add(std::vector<Scenario>& all, const char* function, int64_t (*call)(World&)) {
    all.push_back(on(function, "SMBus", ready, call));
    all.push_back(on(function, "PEC in software", ready_sl8, call));
    all.push_back(on(function, "PCIe", ready_pcie, call));
}

/// One that changes the drive so that it can be done once: the second time with a drive as it was.
void add_once(std::vector<Scenario>& all, const char* function, int64_t (*call)(World&)) {
    all.push_back(on(function, "SMBus", ready, call));
    all.back().again = [](World& world) {
        clear(world);
        world.open(board_of(kSmbus));
    };
    // One whose answer was lost is sent again, and refused by a drive that has done it.
    all.back().gives_codes = true;
    all.back().also_causes = {{"PltMCTPI2C_SlaveReadWithPEC_NoMutex", SIDEBAND_CAUSE_DEVICE}};
}

std::vector<Scenario> management() {
    std::vector<Scenario> all;
    add(all, "nvmemi_config_get_smbus_freq", [](World& world) -> int64_t {
        return nvmemi_config_get_smbus_freq(&world.nvme, kSmbusPort, &first_byte(world));
    });
    add(all, "nvmemi_config_set_smbus_freq", [](World& world) -> int64_t {
        return nvmemi_config_set_smbus_freq(&world.nvme, kSmbusPort, NVMEMI_SMBUS_400_KHZ);
    });
    add(all, "nvmemi_config_get_health_status_change", [](World& world) -> int64_t {
        return nvmemi_config_get_health_status_change(&world.nvme);
    });
    add(all, "nvmemi_config_set_health_status_change", [](World& world) -> int64_t {
        return nvmemi_config_set_health_status_change(&world.nvme, &kZero);
    });
    add(all, "nvmemi_config_get_mctp_tx_unit_size", [](World& world) -> int64_t {
        return nvmemi_config_get_mctp_tx_unit_size(&world.nvme, 0, &half(world));
    });
    add(all, "nvmemi_config_set_mctp_tx_unit_size", [](World& world) -> int64_t {
        return nvmemi_config_set_mctp_tx_unit_size(&world.nvme, 0, 64);
    });
    add(all, "nvmemi_nvm_subsystem_health_status_poll", [](World& world) -> int64_t {
        return nvmemi_nvm_subsystem_health_status_poll(
            &world.nvme, &kZero, reinterpret_cast<nvme_subsystem_health*>(world.room.data()));
    });
    add(all, "nvmemi_controller_health_status_poll", [](World& world) -> int64_t {
        return nvmemi_controller_health_status_poll(
            &world.nvme, &kAll, &kZero, &first_byte(world),
            reinterpret_cast<nvme_controller_health*>(world.room.data() + 2));
    });
    add(all, "nvmemi_read_nvmemi_data_structure", [](World& world) -> int64_t {
        return nvmemi_read_nvmemi_data_structure(&world.nvme, &kZero, world.room.data() + 2, 64,
                                                 &half(world));
    });
    add(all, "nvmemi_vpd_read", [](World& world) -> int64_t {
        return nvmemi_vpd_read(&world.nvme, 0, 8, world.room.data());
    });
    add(all, "nvmemi_vpd_write", [](World& world) -> int64_t {
        const std::array<uint8_t, 4> data{1, 2, 3, 4};
        return nvmemi_vpd_write(&world.nvme, data.data(), 0, data.size());
    });
    // A drive that is reset does not answer, which is what the record says too.
    all.push_back({.function = "nvmemi_reset",
                   .set_up = ready,
                   .call = [](World& world) -> int64_t { return nvmemi_reset(&world.nvme); },
                   .stored = [](const World& world) { return listed(record(world).cause); },
                   .release = release,
                   .record = record,
                   .failures = {-1},
                   .keeps_parts = true,
                   .does_without = {"lx_mutex_get"},
                   .fails_by_itself = true});
    return all;
}

constexpr uint32_t kIdentifyController = 1;
constexpr uint32_t kSmartLog = 2;
constexpr uint32_t kNone = 0;

int64_t admin_cmd(World& world) {
    std::array<uint8_t, NVME_ADMIN_REQUEST_SIZE> request{};
    request[3] = 0x0A;
    request[43] = 0x02;  // dword 10: power management
    return nvme_admin_cmd(&world.nvme, request.size(), NVME_ADMIN_RESPONSE_SIZE, request.data(),
                          world.room.data());
}

std::vector<Scenario> admin_reads() {
    std::vector<Scenario> all;
    add(all, "nvme_admin_cmd", admin_cmd);
    add(all, "nvme_admin_get_feature", [](World& world) -> int64_t {
        nvme_feature_result result{};
        const int32_t status = nvme_admin_get_feature(&world.admin, 2, 0, &result);
        world.numbers[0] = result.dword0;
        return status;
    });
    add(all, "nvme_admin_set_feature", [](World& world) -> int64_t {
        return nvme_admin_set_feature(&world.admin, 2, 0, nullptr);
    });
    add(all, "nvme_admin_get_set_feature", [](World& world) -> int64_t {
        world.admin.cdw10 = 2;
        return nvme_admin_get_set_feature(&world.admin, 0x0A, nullptr);
    });
    add(all, "nvme_get_log_page", [](World& world) -> int64_t {
        world.admin.cdw10 = kSmartLog | 15U << 16;
        world.admin.nsid = 0xFFFFFFFF;
        return nvme_get_log_page(&world.admin, 0, 64, 0, world.room.data(), &world.numbers[0]);
    });
    add(all, "nvme_identify", [](World& world) -> int64_t {
        world.admin.cdw10 = kIdentifyController;
        return nvme_identify(&world.admin, 64, 0, world.room.data(), &world.numbers[0]);
    });
    add(all, "nvme_get_pd_info", [](World& world) -> int64_t {
        world.admin.cdw10 = kIdentifyController;
        world.admin.opcode = 0x06;
        return nvme_get_pd_info(&world.admin, 64, world.room.data(), &world.numbers[0]);
    });
    add(all, "nvme_mrvl_read_cmd", [](World& world) -> int64_t {
        world.admin.cdw10 = kIdentifyController;
        world.admin.opcode = 0x06;
        return nvme_mrvl_read_cmd(&world.admin, 64, world.room.data(), &world.numbers[0]);
    });
    return all;
}

std::vector<Scenario> admin_writes() {
    std::vector<Scenario> all;
    add(all, "nvme_fw_image_commit",
        [](World& world) -> int64_t { return nvme_fw_image_commit(&world.nvme, 0, 1, 2); });
    add_once(all, "nvme_namespace_mgmt_attachment", [](World& world) -> int64_t {
        return nvme_namespace_mgmt_attachment(&world.nvme, 0, 1, NVME_NAMESPACE_DETACH);
    });
    add_once(all, "nvme_namespace_mgmt_create", [](World& world) -> int64_t {
        world.room[1024] = world.room[1024 + 8] = 16;  // size and capacity in blocks
        return nvme_namespace_mgmt_create(&world.nvme, 0, world.room.data() + 1024,
                                          &world.numbers[0]);
    });
    // The drive has made two of them then, of which the second is told.
    all.back().stored = nullptr;
    add_once(all, "nvme_namespace_mgmt_delete",
             [](World& world) -> int64_t { return nvme_namespace_mgmt_delete(&world.nvme, 0, 1); });
    add_once(all, "nvme_format_nvm",
             [](World& world) -> int64_t { return nvme_format_nvm(&world.nvme, 0, 1, &kNone); });
    add_once(all, "nvme_sanitize_set", [](World& world) -> int64_t {
        const nvme_sanitize_param param{&world.nvme, 0, 0,
                                        NVME_SANITIZE_SANACT(NVME_SANACT_BLOCK_ERASE), 0};
        return nvme_sanitize_set(&param);
    });
    add_once(all, "nvme_lockdown_set", [](World& world) -> int64_t {
        const nvme_lockdown_param param{
            &world.nvme, 0, 0,
            NVME_LOCKDOWN_SCP(NVME_LOCKDOWN_ADMIN_OPCODE) | NVME_LOCKDOWN_OFI(0x80), 0};
        return nvme_lockdown_set(&param);
    });
    return all;
}

void ready_for_download(World& world) {
    ready(world);
    world.update.package_file = world.file(test::counting(200));
}

std::vector<Scenario> download() {
    return {
        {.function = "nvme_fw_image_download",
         .set_up = ready_for_download,
         .call = [](World& world) -> int64_t {
             return nvme_fw_image_download(&world.nvme, 0, world.update.package_file, 128, 5);
         },
         .stored = [](const World&) { return listed(at_p_St_GlobalVar->nvme_fw_update_status); },
         .release = release,
         .record = record,
         .failures = {-1},
         .keeps_parts = true,
         .does_without = {"lx_mutex_get"}}};
}

}  // namespace

std::vector<Scenario> nvme_scenarios() {
    std::vector<Scenario> all;
    for (auto* part : {life, management, admin_reads, admin_writes, download}) {
        const std::vector<Scenario> some = part();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace sweep
