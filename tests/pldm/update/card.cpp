// SPDX-License-Identifier: Apache-2.0
// An add-in card behind the platform, over SMBus and over PCIe: it can be found and identified.
#include "pldm/update/card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "support/scripted_platform.h"

namespace test {

tool::PackageDescriptor identity(uint8_t number) {
    return {0x0000, {number, 0x15}, {}};
}

tool::Package package_for(const std::vector<uint8_t>& identities) {
    tool::Package package = small_package();
    package.records.clear();
    for (const uint8_t number : identities) {
        tool::PackageRecord record;
        record.components = {0};
        record.version = "r" + std::to_string(number);
        record.descriptors = {identity(number)};
        package.records.push_back(record);
    }
    return package;
}

CardTest::CardTest()
    : answers({{{0, 0x02}, "00 00 02 00 05"},
               {{0, 0x04}, "00 00 04 00 21 00 00 00 00 00 00 00"},
               {{5, 0x01}, "00 05 01 00 06 00 00 00 01 00 00 02 00 03 15"}}),
      endpoint_([this](uint8_t type, const Bytes& request) { return answer(type, request); }) {
    port().on_pcie = [this](plt_pcie_request& request) { return answer_pcie(request); };
}

void CardTest::TearDown() {
    EXPECT_EQ(pldm_free_ua_resource(&ctx), 0);
    PackageTest::TearDown();
}

std::optional<Bytes> CardTest::answer(uint8_t type, const Bytes& request) {
    const auto instance = static_cast<uint8_t>(request[0] & 0x1F);
    if (type == 0) {
        return Bytes{instance} + hex("02 00 1d 00 00");  // Get Endpoint ID
    }
    asked.push_back(to_hex(request));
    Bytes bytes = hex(answers[{request[1] & 0x3F, request[2]}]);
    if (bytes.empty()) {
        return std::nullopt;
    }
    bytes[0] = instance;
    return bytes;
}

int CardTest::answer_pcie(plt_pcie_request& request) {
    if (request.bus == 0 && request.device == 0) {
        return 0;  // there is no MPIO
    }
    const auto body = answer(request.message[0], bytes_at(request.message + 1, request.length - 1));
    if (!body) {
        return 0;
    }
    std::copy(body->begin(), body->end(), request.message + 1);
    request.length = static_cast<uint32_t>(body->size()) + 1;
    return 1;
}

std::vector<std::string> logged() {
    std::vector<std::string> lines;
    for (const std::string& line : port().syslog) {
        lines.push_back(std::regex_replace(line, std::regex(R"(^\[(\w+):\d+\])"), "[$1:#]"));
    }
    return lines;
}

}  // namespace test
