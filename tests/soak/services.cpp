// SPDX-License-Identifier: Apache-2.0
// What services do to the board for days: readings, health polls, updates; and what became of it.
#include "services.h"

#include <sideband/pldm_fw_update.h>
#include <sideband/pldm_monitor.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sim/nvme/drive.h"
#include "sim/pldm/firmware.h"
#include "testing/package_builder.h"

namespace soak {

namespace {

constexpr unsigned kFaultOneIn = 100;
constexpr size_t kImageSize = 16384;

/// One of each kind. A message that comes late comes behind the limit of its receive.
constexpr const char* kFaults[] = {
    R"({"kind": "no_ack", "count": 4})",
    R"({"kind": "no_ack", "count": 1})",
    R"({"kind": "lost", "count": 1})",
    R"({"kind": "lost", "what": "request", "count": 1})",
    R"({"kind": "duplicate", "count": 1})",
    R"({"kind": "reorder", "count": 1})",
    R"({"kind": "late", "delay_us": 30000, "count": 1})",
    R"({"kind": "truncate", "bytes": 1, "count": 1})",
    R"({"kind": "truncate", "bytes": 4, "count": 1})",
    R"({"kind": "truncate", "bytes": 9, "count": 1})",
    R"({"kind": "over_long", "bytes": 3, "count": 1})",
    R"({"kind": "over_long", "bytes": 200, "count": 1})",
    R"({"kind": "bad_pec", "count": 1})",
    R"({"kind": "wrong_tag", "count": 1})",
    R"({"kind": "wrong_sequence", "count": 1})",
    R"({"kind": "not_ready", "count": 1})",
};

double seconds_of(const sim::Board& board) {
    return static_cast<double>(board.now_us()) * 1e-6;
}

std::vector<uint8_t> image_of(const std::string& head, unsigned version) {
    std::vector<uint8_t> image(head.begin(), head.end());
    uint32_t state = version;
    while (image.size() < kImageSize) {
        state = state * 1664525 + 1013904223;
        image.push_back(static_cast<uint8_t>(state >> 24));
    }
    return image;
}

tool::Package package_of(const std::string& version, uint32_t stamp,
                         const std::vector<uint8_t>& image) {
    tool::Package package;
    package.version = version;
    tool::PackageComponent component;
    component.comparison_stamp = stamp;
    component.activation_method = 2;
    component.version = version;
    component.image = image;
    package.components = {component};
    tool::PackageRecord record;
    record.version = version;
    record.components = {0};
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_DEVICE_ID, {0x1D, 0x10}, {}});
    package.records.push_back(record);
    return package;
}

}  // namespace

Services::Services(sim::Board& board, const Options& options)
    : board_(board),
      options_(options),
      random_(options.seed),
      path_((std::filesystem::temp_directory_path() / "sideband-soak-XXXXXX").string()) {
    const int descriptor = mkstemp(path_.data());
    if (descriptor >= 0) {
        close(descriptor);
    }
}

Services::~Services() {
    for (pldm_ctx& terminus : termini_) {
        pldm_terminus_deinit(&terminus);
    }
    for (nvmemi_ctx& drive : drives_) {
        nvmemi_deinit(&drive);
    }
    std::remove(path_.c_str());
}

mctp_ctx Services::context_of(const std::string& name) const {
    mctp_ctx context{};
    const auto& all = board_.endpoints();
    const auto info = std::ranges::find(all, name, &sim::EndpointInfo::name);
    if (info == all.end()) {
        return context;
    }
    context.src_eid = 8;
    context.binding_kind = info->binding_kind;
    context.bus = info->bus;
    context.slave_addr = info->address;
    std::ranges::copy(info->mux, context.mux);
    std::ranges::copy(info->bdf, context.pcie_bdf);
    context.route = info->route;
    context.pcie_param = info->pcie_param;
    context.unit_size = info->unit_size;
    context.strict = options_.as_deployed ? 0 : MCTP_STRICT_ALL;
    return context;
}

bool Services::start() {
    for (size_t number = 0; number < kSensors; ++number) {
        const mctp_ctx config = context_of(sensor_name(number));
        if (pldm_terminus_init(&termini_[number], &config) != 0) {
            return false;
        }
    }
    for (size_t number = 0; number < kDrives; ++number) {
        const mctp_ctx config = context_of(drive_name(number));
        if (nvmemi_init(&drives_[number], &config) != 0) {
            return false;
        }
    }
    return true;
}

/// Puts a fault on a device once in a hundred times. @return whether it did
bool Services::strike(const std::string& name) {
    if (random_() % kFaultOneIn != 0) {
        return false;
    }
    sim::BoardError error;
    const bool added = board_.add_fault(name, kFaults[random_() % std::size(kFaults)], error);
    faults += added ? 1 : 0;
    return added;
}

/// Behind a fault: the device is whole again, and what it still had to say is said.
void Services::settle(const std::string& name) {
    constexpr uint64_t kRestUs = 50000;
    board_.clear_faults(name);
    board_.advance_us(kRestUs);
}

void Services::note(Tally& tally, bool success, bool right, bool struck,
                    const sideband_error& error) {
    if (success) {
        ++(right ? tally.right : tally.wrong);
        return;
    }
    ++tally.causes[error.cause];
    if (error.cause == SIDEBAND_CAUSE_NONE) {
        ++tally.without_cause;
    } else {
        ++(struck ? tally.failed : tally.without_a_fault);
    }
}

void Services::read_sensor(size_t number) {
    const std::string name = sensor_name(number);
    const bool struck = strike(name);
    const double begin = seconds_of(board_);
    uint32_t reading = 0;
    const bool success = pldm_get_sensor_reading(&termini_[number], kSensorId, &reading) == 0;
    const bool right = may_read(number, reading, begin, seconds_of(board_));
    note(readings, success, right, struck, *pldm_last_error(&termini_[number]));
    if (struck) {
        settle(name);
    }
}

void Services::read_sensors() {
    for (size_t number = 0; number < kSensors; ++number) {
        read_sensor(number);
    }
}

void Services::poll_drives() {
    for (size_t number = 0; number < kDrives; ++number) {
        const std::string name = drive_name(number);
        const bool struck = strike(name);
        const uint32_t keep_status = 0;
        nvme_subsystem_health health{};
        const int32_t result =
            nvmemi_nvm_subsystem_health_status_poll(&drives_[number], &keep_status, &health);
        const bool right = health.ctemp == drive_temperature(number) && health.pdlu == 0;
        note(polls, result == 0, right, struck, *nvmemi_last_error(&drives_[number]));
        if (struck) {
            settle(name);
        }
    }
}

std::string Services::new_version() {
    return "v" + std::to_string(++version_);
}

bool Services::write_file(const std::vector<uint8_t>& bytes) const {
    std::ofstream file(path_, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return file.flush().good();
}

/// @return whether the library says that the card has been updated
bool Services::update_card() {
    const std::string version = new_version();
    const std::vector<uint8_t> image = image_of("card", version_);
    sim::PldmFirmware* const device = board_.firmware(sensor_name(0));
    device->expect(0, sim::ExpectedImage(image));
    if (!write_file(tool::build_package(package_of(version, version_ + 1, image)))) {
        return false;
    }
    plt_card_info card = board_.card(sensor_name(0)).value();
    const pldm_card_location location{card.bus, card.device};
    pldm_fw_update_ctx ctx{};
    mctp_ctx endpoint;
    const bool fits =
        pldm_check_firmware_image(path_.c_str(), &ctx, &location, &endpoint, &card) == 0;
    const bool done = fits && pldm_nic_update(path_.c_str(), &ctx, nullptr, 0) == 0;
    if (!fits) {
        pldm_free_ua_resource(&ctx);
    }
    update_error_ = *pldm_fw_update_last_error(&ctx);
    return done;
}

bool Services::update_drive(size_t number) {
    constexpr uint8_t kSlot = 2;
    constexpr uint8_t kReplaceAndActivate = 1;
    constexpr size_t kRevision = 8;
    std::string head = new_version();
    head.resize(kRevision, ' ');
    nvmemi_ctx* const ctx = &drives_[number];
    if (!write_file(image_of(std::string(sim::NvmeFirmware::kMagic) + head, version_))) {
        return false;
    }
    if (nvme_fw_image_download(ctx, 0, path_.c_str(), 2048, 0) != 0 ||
        nvme_fw_image_commit(ctx, 0, kSlot, kReplaceAndActivate) != 0) {
        update_error_ = *nvmemi_last_error(ctx);
        return false;
    }
    nvmemi_reset(ctx);  // has no answer
    return true;
}

/// One of four updates meets a fault; behind one that failed for it the next one has to do.
void Services::update() {
    constexpr unsigned kFaultyOneIn = 4;
    const uint64_t turn = updates.all();
    const size_t drive = turn / 2 % kDrives;
    const std::string name = turn % 2 == 0 ? sensor_name(0) : drive_name(drive);
    bool struck = false;
    if (random_() % kFaultyOneIn == 0) {
        sim::BoardError error;
        struck = board_.add_fault(name, kFaults[random_() % std::size(kFaults)], error);
        faults += struck ? 1 : 0;
    }
    const bool done = turn % 2 == 0 ? update_card() : update_drive(drive);
    const std::string runs = turn % 2 == 0 ? board_.firmware(name)->components().at(0).active.text
                                           : board_.nvme(name)->firmware().revision();
    note(updates, done, runs == "v" + std::to_string(version_), struck, update_error_);
    settle(name);
}

}  // namespace soak
