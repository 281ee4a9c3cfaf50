// SPDX-License-Identifier: Apache-2.0
// A board with a card that takes firmware, and packages for it.
#include "tests/tools/update/firmware_bench.h"

namespace tool_test {

FirmwareBoard::FirmwareBoard()
    : firmware_(parse_json(R"({
    "descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
                    {"type": "pci_device_id", "hex": "1d10"}],
    "active": "1.0.0", "capabilities": 2,
    "components": [{"classification": 10, "identifier": 1, "index": 3,
                    "active": {"text": "fw-1.0", "stamp": "0x100", "date": "20240131"},
                    "activation_methods": 34, "capabilities": 4}],
    "faults": []})")) {}

FirmwareBoard& FirmwareBoard::fault(const std::string& kind, const std::string& command,
                                    const Json& keys) {
    Json fault{{"kind", kind}, {"command", command}};
    fault.update(keys);
    firmware_["faults"].push_back(fault);
    return *this;
}

std::string FirmwareBoard::text() const {
    Json board = parse_json(R"({"name": "bench", "platform": {"mpio_state": "wanted"},
        "buses": [{"bus": 2, "clock_hz": 400000}],
        "devices": [{"name": "nic0", "type": "pldm", "bus": 2, "address": "0x64"},
                    {"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"},
                    {"name": "nic1", "type": "pldm", "transport": "pcie", "bdf": "41:00.0"}]})");
    board["devices"][0]["firmware"] = firmware_;
    board["devices"][2]["firmware"] = firmware_;
    return board.dump(1);
}

tool::Package card_package(size_t image_size) {
    tool::PackageRecord record;
    record.components = {0};
    record.version = "1.1.0";
    record.descriptors = {{0x0000, {0xB3, 0x15}, {}}, {0x0100, {0x1D, 0x10}, {}}};
    tool::Package package;
    package.version = "card 1.1.0";
    package.records = {record};
    package.components = {{.comparison_stamp = 0x110,
                           .activation_method = 2,
                           .version = "fw-1.1",
                           .image = std::vector<uint8_t>(image_size, 0x5A)}};
    return package;
}

std::string file_of(const tool::Package& package) {
    const std::vector<uint8_t> bytes = tool::build_package(package);
    return {bytes.begin(), bytes.end()};
}

bool holds_request(const TemporaryFile& capture, uint8_t command) {
    const std::string bytes = capture.content();
    for (size_t i = 0; i + 4 <= bytes.size(); ++i) {
        // Message type PLDM, a request with any instance ID, PLDM type 5.
        if (bytes[i] == 1 && (static_cast<uint8_t>(bytes[i + 1]) & 0xE0) == 0x80 &&
            bytes[i + 2] == 5 && static_cast<uint8_t>(bytes[i + 3]) == command) {
            return true;
        }
    }
    return false;
}

}  // namespace tool_test
