// SPDX-License-Identifier: Apache-2.0
// Fixture of the firmware updates end to end: an add-in card on the board, and packages for it.
#include "update_fixture.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

// There under AddressSanitizer: whether memory has been lost by now.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace board_test {

namespace {

constexpr uint16_t kSelfContained = 0x02;

/// What a card answers that runs version "OLD" of components 1 and 2.
const std::string kTwoComponents = R"("active": "OLD", "components": [
    {"identifier": 1, "index": 0, "active": {"text": "old-1", "stamp": 16},
     "activation_methods": 2},
    {"identifier": 2, "index": 1, "active": {"text": "old-2", "stamp": 16},
     "activation_methods": 2}])";

size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

bool is_mapped(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(path) != std::string::npos;
}

tool::PackageComponent component(size_t number, size_t size) {
    tool::PackageComponent made;
    made.identifier = static_cast<uint16_t>(number);
    made.comparison_stamp = 0x20;
    made.activation_method = kSelfContained;
    made.version = "new-" + std::to_string(number);
    made.image = image_of(number, size);
    return made;
}

}  // namespace

std::vector<uint8_t> image_of(size_t component, size_t size) {
    std::vector<uint8_t> image(size);
    for (size_t i = 0; i < size; ++i) {
        image[i] = static_cast<uint8_t>(component * 31 + i * 7 + i / 256);
    }
    return image;
}

tool::Package card_package() {
    tool::Package package;
    package.version = "PKG";
    package.components = {component(1, 300), component(2, 200)};
    tool::PackageRecord record;
    record.version = "NEW";
    record.components = {0, 1};
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_DEVICE_ID, {0x1D, 0x10}, {}});
    package.records.push_back(record);
    return package;
}

void UpdateRun::SetUp() {
    descriptors_ = open_descriptors();
}

void UpdateRun::TearDown() {
    if (board != nullptr) {
        EXPECT_EQ(board->pcie_sessions().open, 0U);
        EXPECT_EQ(board->pcie_sessions().stray_closes, 0U);
    }
    BoardRun::TearDown();
    EXPECT_EQ(open_descriptors(), descriptors_);
    if (!path.empty()) {
        EXPECT_FALSE(is_mapped(path));
        std::remove(path.c_str());
    }
    if (__lsan_do_recoverable_leak_check != nullptr) {
        EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
    }
}

void UpdateRun::open_card(Binding binding, const std::string& firmware_keys) {
    open_card_with(binding, R"("descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
        {"type": "pci_device_id", "hex": "1d10"}, {"type": "pci_revision_id", "hex": "03"}], )" +
                                kTwoComponents + firmware_keys);
}

void UpdateRun::open_card_with(Binding binding, const std::string& firmware) {
    open_place(binding == Binding::kPcie ? R"("transport": "pcie", "bdf": "81:00.0", "eid": 9,
                        "card": {"vendor_id": "0x15b3", "flags": "0x20000"})"
                                         : R"("bus": 2, "address": "0x64",
                        "card": {"bdf": "81:00.0", "vendor_id": "0x15b3", "flags": "0x10000"})",
               firmware);
}

void UpdateRun::open_graphics_card() {
    name = "gpu0";
    open_place(R"("bus": 2, "address": "0x66",
                  "card": {"bdf": "47:00.0", "vendor_id": "0x8086", "flags": "0x800000"})",
               R"("descriptors": [{"type": "pci_vendor_id", "hex": "8680"},
                                  {"type": "pci_device_id", "hex": "1d10"}], )" +
                   kTwoComponents);
}

void UpdateRun::open_place(const std::string& place, const std::string& firmware) {
    open(board_with("", R"({"type": "pldm", "name": ")" + name + "\", " + place +
                            R"(, "firmware": {)" + firmware + "}}"));
    if (board != nullptr) {
        device = board->firmware(name);
        ASSERT_NE(device, nullptr);
    }
}

void UpdateRun::provide(const tool::Package& package) {
    provide_bytes(tool::build_package(package));
    for (const tool::PackageComponent& each : package.components) {
        if (each.identifier >= 1 && each.identifier <= device->components().size()) {
            device->expect(each.identifier - 1U, sim::ExpectedImage(each.image));
        }
    }
}

void UpdateRun::provide_bytes(const std::vector<uint8_t>& bytes) {
    if (path.empty()) {
        path = (std::filesystem::temp_directory_path() / "sideband-update-XXXXXX").string();
        const int descriptor = mkstemp(path.data());
        ASSERT_GE(descriptor, 0);
        close(descriptor);
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

UpdateReport UpdateRun::update(uint32_t flags, Check check) {
    UpdateReport report;
    pldm_fw_update_ctx ctx{};
    ctx.task_id = 7;
    plt_card_info card = board->card(name).value();
    const pldm_card_location location{card.bus, card.device};
    mctp_ctx endpoint;
    LoggedRun log;
    test::Capture out;
    report.check = check(path.c_str(), &ctx, &location, &endpoint, &card);
    EXPECT_EQ(board->lock_report().held, std::vector<std::string>{});
    if (report.check == 0) {
        report.update = pldm_nic_update(path.c_str(), &ctx, nullptr, flags);
    } else {
        report.update = 1;
        pldm_free_ua_resource(&ctx);
    }
    report.out = out.text();
    report.log = log.text();
    report.mark = ctx.pldm.completion_code;
    report.state = ctx.state;
    report.error = *pldm_fw_update_last_error(&ctx);
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
    EXPECT_EQ(ctx.records, nullptr);
    EXPECT_EQ(ctx.update_list, nullptr);
    EXPECT_EQ(ctx.fd_component_params, nullptr);
    EXPECT_EQ(ctx.pcie_session, nullptr);
    return report;
}

}  // namespace board_test
