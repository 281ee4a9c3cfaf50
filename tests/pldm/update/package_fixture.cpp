// SPDX-License-Identifier: Apache-2.0
// Tests of firmware update packages: a package on disk, a context, and what must not be left over.
#include "pldm/update/package_fixture.h"

#include <gtest/gtest.h>
#include <sideband/debug_log.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/capture.h"

namespace test {

tool::Package sample_package() {
    tool::Package package;
    package.version = "NIC-22.41";
    package.version_type = 1;
    tool::PackageRecord first;
    first.update_option_flags = 0x04030201;
    first.components = {0, 2};
    first.version_type = 1;
    first.version = "22.41.1000";
    first.descriptors = {{0x0000, {0xB3, 0x15}, {}}, {0x0100, {0x1D, 0x10}, {}}};
    tool::PackageRecord second;
    second.components = {1};
    second.version_type = 2;
    second.version = "s";
    second.descriptors = {{0xFFFF, {0x01, 0x01, 0x42, 0xFE}, {}}};
    second.package_data = counting(18, 0x41);
    package.records = {first, second};
    for (uint8_t i = 0; i < 3; i++) {
        tool::PackageComponent component;
        component.classification = static_cast<uint16_t>(0x0A00 + i);
        component.identifier = static_cast<uint16_t>(0x0100 + i);
        component.comparison_stamp = 0xA1B2C300u + i;
        component.options = static_cast<uint16_t>(0x0201 + i);
        component.activation_method = static_cast<uint16_t>(0x2010 + i);
        component.version_type = 1;
        component.version = std::string("v") + static_cast<char>('0' + i);
        component.image = counting(static_cast<size_t>(i) * 10 + 1, i);
        package.components.push_back(component);
    }
    return package;
}

tool::Package small_package() {
    tool::Package package;
    package.version = "p";
    tool::PackageRecord record;
    record.components = {0};
    record.version = "r";
    package.records = {record};
    tool::PackageComponent component;
    component.version = "c";
    component.image = {0xC0};
    package.components = {component};
    return package;
}

std::string result_line(int32_t result) {
    return "[RUWA][pldm_parse_file]res=" + std::to_string(result) + " \n";
}

PackageTest::PackageTest() {
    path = use_directory() + "/package.fwpkg";
    std::ofstream(libc.root + DEBUG_LOG_FILE_MARKER).flush();
}

PackageTest::~PackageTest() {
    pldm_free_ctx_resource(&ctx);
}

void PackageTest::TearDown() {
    PlatformTest::TearDown();
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(libc.open_descriptors(), 0u);
    EXPECT_EQ(libc.live_mappings(), 0u);
}

void PackageTest::write_file(const Bytes& bytes) const {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.flush());
}

int32_t PackageTest::parse(const Bytes& bytes) {
    std::filesystem::remove(path);  // much faster than to truncate it
    write_file(bytes);
    return parse_again();
}

int32_t PackageTest::parse_again() {
    port().console.clear();
    Capture capture;
    const int32_t result = pldm_parse_file(path.c_str(), &ctx);
    out = capture.text();
    EXPECT_EQ(libc.open_descriptors(), 0u);
    EXPECT_EQ(libc.live_mappings(), 0u);
    return result;
}

void PackageTest::expect_refused(const Bytes& bytes, const std::string& text) {
    EXPECT_EQ(parse(bytes), -1);
    expect_result(-1, text);
}

void PackageTest::expect_result(int32_t result, const std::string& text) const {
    for (const std::string& refusal : {kBoundary, kChecksum}) {
        const size_t first = out.find(refusal);
        EXPECT_EQ(first != std::string::npos, refusal == text) << out;
        EXPECT_TRUE(first == std::string::npos || first + refusal.size() == out.size())
            << "something was printed behind the refusal:\n"
            << out;
    }
    ASSERT_FALSE(port().console.empty());
    EXPECT_EQ(port().console.back(), result_line(result));
    EXPECT_EQ(std::count(port().console.begin(), port().console.end(), result_line(result)), 1);
}

}  // namespace test
