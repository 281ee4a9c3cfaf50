// SPDX-License-Identifier: Apache-2.0
// A board with an NVMe drive, and what the tests of its commands share.
#include "tests/tools/nvme/drive_bench.h"

namespace tool_test {
DriveBench::DriveBench()
    : drive_(parse_json(R"({
            "model": "Example SSD", "serial": "EX0001", "vendor_id": 4660, "device_id": 8,
            "capacity": 1073741824,
            "controllers": [{"id": 1, "port": 0}, {"id": 5, "port": 0}],
            "temperature": {"shape": "constant", "value": 36},
            "smart": {"percentage_used": 3, "data_units_read": 123456, "power_on_hours": 4711},
            "namespaces": [{"id": 1, "blocks": 1048576, "used": 1000},
                           {"id": 3, "blocks": 1024, "format": 1, "controllers": [5]}],
            "firmware": {"slots": ["EX10", "EX09", ""]},
            "vpd": "0102414243ff"})")) {}

DriveBench& DriveBench::fault(const std::string& text) {
    drive_["faults"].push_back(parse_json(text));
    return *this;
}

std::string DriveBench::board() const {
    Json board = parse_json(R"({"name": "bench", "buses": [{"bus": 1, "clock_hz": 400000}],
        "devices": [{"name": "nvme0", "type": "nvme", "bus": 1, "address": "0x3a"},
                    {"name": "gpu0", "type": "pldm", "bus": 1, "address": "0x9e"},
                    {"name": "dead0", "type": "nvme", "bus": 1, "address": "0x50",
                     "drive": {}, "faults": [{"kind": "no_ack"}]}]})");
    board["devices"][0]["drive"] = drive_;
    return board.dump(1);
}

Outcome DriveBench::run(const std::vector<std::string>& arguments) const {
    return run_on(board(), arguments);
}

Json expect_document(const Outcome& run) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    return one_document(run.out);
}

/// An image as the simulated drive takes it.
std::string image_of(const std::string& revision, size_t size) {
    std::string image = "SIMDRIVE" + revision;
    image.resize(16, ' ');
    while (image.size() < size) {
        image += static_cast<char>(image.size() * 7);
    }
    return image;
}

}  // namespace tool_test
