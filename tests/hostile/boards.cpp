// SPDX-License-Identifier: Apache-2.0
// The board of the campaign, which has every kind of device on both buses, and its files.
#include <sideband/pldm_fw_update.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "case.h"
#include "testing/package_builder.h"

namespace hostile {

namespace {

constexpr const char* kTerminus = R"(
    "tid": 5, "auxiliary_names": true, "pdr_part_size": 60,
    "sensors": [
        {"kind": "numeric", "id": 1, "name": "asic", "unit": "degC", "data_size": 1,
         "signed": true, "waveform": {"shape": "constant", "value": 55},
         "thresholds": {"upper_warning": 70}},
        {"kind": "numeric", "id": 2, "name": "power", "unit": "W", "data_size": 4,
         "waveform": {"shape": "constant", "value": 18}},
        {"kind": "numeric", "id": 3, "name": "fan", "unit": "rpm", "data_size": 2,
         "operational_state": "disabled", "waveform": {"shape": "constant", "value": 5400}},
        {"kind": "state", "id": 4, "name": "health",
         "composites": [{"state_set": 1, "states": [1]}, {"state_set": 33, "states": [1, 2]}]}],
    "fru": {"part_size": 54, "records": [{"fields": [
        {"type": "manufacturer", "text": "Example Networks"}, {"type": "model", "text": "EN-1"},
        {"type": "serial_number", "text": "EN24C0012345"},
        {"type": "description", "text": "Dual-port 100 Gb/s network adapter"}]}]},
    "firmware": {"descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
                                 {"type": "pci_device_id", "hex": "1d10"}],
        "active": "OLD", "pending": "SOON", "get_package_data": true,
        "metadata": "6e696331000000000102030405060708", "metadata_part_size": 6,
        "components": [
            {"identifier": 1, "active": {"text": "old-1", "stamp": 16}, "activation_methods": 2},
            {"identifier": 2, "index": 1, "active": {"text": "old-2", "stamp": 16}}]})";

constexpr const char* kController = R"("controller": {
    "packages": [{"id": 0, "card_tlv": "f1250000c8", "channels": [
        {"id": 0, "speed": 10, "preboot_config": "0100b064", "mac": "024e43534900"},
        {"id": 1, "link": false, "preboot_config": "01003000", "mac": "024e43534901"}]}],
    "temperatures": [{"id": 0, "waveform": {"shape": "constant", "value": 51}}]})";

constexpr const char* kDrive = R"("drive": {
    "namespaces": [{"id": 1, "blocks": 900000, "used": 1000}], "firmware": {"slots": ["ES10", "", ""]},
    "vpd": "01000000010900f5010819cf4578616d706c652053746f72616765",
    "more_processing": 0})";

/// @param number  tells the devices of one place from those of the other
std::string devices_at(const std::string& first, const char* const (&places)[4], int eid,
                       const std::string& cards) {
    const char* const keys[] = {kTerminus, kController, kDrive, R"("assign": 40)"};
    const char* const types[] = {"pldm", "ncsi", "nvme", "bus_owner"};
    std::string text;
    for (size_t i = 0; i < 4; ++i) {
        text += (text.empty() ? "" : ",\n") + std::string(R"({"name": ")") + first + types[i] +
                R"(", "type": ")" + types[i] + "\", " + places[i] + R"(, "eid": )" +
                std::to_string(eid++) + ", " + (i == 0 ? cards : "") + keys[i] + "}";
    }
    return text;
}

std::string board_text() {
    const char* const on_i2c[] = {
        R"("bus": 2, "address": "0x64")", R"("bus": 3, "address": "0x50")",
        R"("bus": 2, "address": "0x3a")", R"("bus": 3, "address": "0x44")"};
    const char* const on_pcie[] = {
        R"("transport": "pcie", "bdf": "47:00.0")", R"("transport": "pcie", "bdf": "48:00.0")",
        R"("transport": "pcie", "bdf": "49:00.0")", R"("transport": "pcie", "bdf": "4a:00.0")"};
    const std::string mpio = R"({"name": "mpio", "type": "mpio", "transport": "pcie",
                                 "bdf": "00:00.0", "eid": 70})";
    return R"({"name": "hostile", "platform": {"mpio_state": "wanted"},
        "buses": [{"bus": 2, "clock_hz": 1000000}, {"bus": 3, "clock_hz": 1000000}],
        "devices": [)" +
           mpio + ", " +
           devices_at("i2c-", on_i2c, 20,
                      R"("card": {"bdf": "81:00.0", "vendor_id": "0x15b3", "flags": "0x10000"},
                         "pdrs": [{"type": 1, "length": 400}], )") +
           ", " +
           devices_at("pcie-", on_pcie, 30,
                      R"("card": {"vendor_id": "0x8086", "flags": "0x20000"}, )") +
           "]}";
}

tool::PackageComponent component(uint16_t identifier, size_t size) {
    tool::PackageComponent made;
    made.identifier = identifier;
    made.comparison_stamp = 0x20;
    made.activation_method = 2;
    made.version = "new-" + std::to_string(identifier);
    made.image.assign(size, static_cast<uint8_t>(identifier * 17));
    return made;
}

tool::Package package_with(std::vector<tool::PackageComponent> components, size_t data) {
    tool::Package package;
    package.version = "PKG";
    package.components = std::move(components);
    tool::PackageRecord record;
    record.version = "NEW";
    for (size_t i = 0; i < package.components.size(); ++i) {
        record.components.push_back(i);
    }
    record.package_data.assign(data, 0x44);
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_DEVICE_ID, {0x1D, 0x10}, {}});
    package.records.push_back(record);
    return package;
}

std::string write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path;
}

bool make_files(Files& files) {
    std::string folder = (std::filesystem::temp_directory_path() / "hostile-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        return false;
    }
    files.folder = folder;
    const tool::Package packages[] = {
        package_with({component(1, 300), component(2, 200)}, 0),
        package_with({component(1, 5000)}, 100),
        package_with({component(2, 64), component(1, 33), component(9, 40)}, 20),
    };
    for (const tool::Package& package : packages) {
        const std::string name = folder + "/" + std::to_string(files.packages.size()) + ".fwpkg";
        files.packages.push_back(write_file(name, tool::build_package(package)));
    }
    files.image = write_file(folder + "/drive.img", std::vector<uint8_t>(3000, 0x42));
    return true;
}

}  // namespace

std::unique_ptr<Boards> make_boards() {
    auto boards = std::make_unique<Boards>();
    sim::BoardError error;
    boards->board = sim::Board::parse(board_text(), error);
    if (boards->board == nullptr) {
        std::fprintf(stderr, "hostile-campaign: %s\n", error.message("board").c_str());
        return nullptr;
    }
    if (!make_files(boards->files)) {
        std::perror("hostile-campaign: no folder for files");
        return nullptr;
    }
    return boards;
}

void remove_files(const Files& files) {
    std::error_code ignored;
    std::filesystem::remove_all(files.folder, ignored);
}

}  // namespace hostile
