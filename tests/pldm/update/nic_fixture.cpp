// SPDX-License-Identifier: Apache-2.0
// Updates of a card with a package file; everything must be released behind each.
#include "pldm/update/nic_fixture.h"

#include <gtest/gtest.h>

namespace test {

NicUpdateTest::NicUpdateTest() {
    device.usual[0x02] = to_hex(parameters(known(3)));
    device.usual[0x01] = "00 05 01 00 06 00 00 00 01 00 00 02 00 03 15";  // identity 3
}

void NicUpdateTest::write_package(const std::vector<uint8_t>& identities, size_t components) {
    tool::Package package = update_package(components);
    const tool::PackageRecord model = package.records[0];
    package.records.clear();
    for (const uint8_t identity : identities) {
        tool::PackageRecord record = model;
        record.version = "r" + std::to_string(package.records.size());
        record.descriptors = {{0x0000, {identity, 0x15}, {}}};
        package.records.push_back(record);
    }
    write_file(tool::build_package(package));
}

Outcome NicUpdateTest::update(uint32_t flags) {
    port().syslog.clear();
    Outcome outcome = run([&] { return pldm_nic_update(path.c_str(), &ctx, nullptr, flags); });
    const size_t start = outcome.out.find("average percentage");
    if (start != std::string::npos) {
        outcome.out.erase(0, start);
    }
    expect_released();
    return outcome;
}

void NicUpdateTest::expect_released() const {
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(libc.open_descriptors(), 0u);
    EXPECT_EQ(libc.live_mappings(), 0u);
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
    EXPECT_EQ(ctx.records, nullptr);
    EXPECT_EQ(ctx.component_images, nullptr);
    EXPECT_EQ(ctx.fd_component_params, nullptr);
    EXPECT_EQ(ctx.update_list, nullptr);
    EXPECT_EQ(ctx.matched_record, nullptr);
    EXPECT_EQ(ctx.active_version_string, nullptr);
    EXPECT_EQ(ctx.pending_version_string, nullptr);
    EXPECT_EQ(ctx.package_version_string, nullptr);
    EXPECT_EQ(port().held, Texts());
    EXPECT_EQ(port().violations, Texts());
}

Texts NicUpdateTest::sessions() const {
    return port().trace_of({"open", "close"});
}

std::string NicUpdateTest::commands() const {
    std::string found;
    for (const std::string& line : device.dialogue_of({"> "})) {
        found += (found.empty() ? "" : " ") + line.substr(8, 2);
    }
    return found;
}

Texts NicUpdateTest::named() const {
    Texts found;
    for (const std::string& line : device.dialogue_of({"> "})) {
        if (line.substr(8, 2) == "10") {
            const Bytes request = hex(line.substr(2));
            found.emplace_back(request.begin() + 14, request.end());
        }
    }
    return found;
}

}  // namespace test
