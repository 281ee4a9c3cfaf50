// SPDX-License-Identifier: Apache-2.0
// Packages that independent tools have made, in cards that each of their records is for.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "support/bytes.h"
#include "update_fixture.h"

namespace {

namespace fs = std::filesystem;
using board_test::Binding;
using board_test::UpdateReport;
using board_test::UpdateRun;
using test::Bytes;

const fs::path kFolder = fs::path(SIDEBAND_DATA_DIR) / "packages";

/// Those that can be parsed. The second one has the revision of a later format behind the
/// identifier of 1.0, which decides; in the last but one the last byte of an image is missing,
/// which the header does not show.
const std::set<std::string> kGood = {
    "a_nic_single_64k.fwpkg",
    "e_identifier_1_0_revision_2.fwpkg",
    "b_three_records_three_components.fwpkg",
    "c_package_data_300.fwpkg",
    "d_bitmap_16.fwpkg",
    "d_bitmap_32.fwpkg",
    "f_truncated_component.fwpkg",
    "g_longest_strings.fwpkg",
};

/// A component of a package as its header tells of it.
struct Component {
    unsigned classification;
    unsigned identifier;
    uint32_t offset;
    uint32_t size;
    std::string version;
};

uint32_t number(const uint8_t* bytes, size_t width) {
    uint32_t value = 0;
    for (size_t i = width; i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

Component component_of(const uint8_t* entry) {
    return {number(entry, 2), number(entry + 2, 2), number(entry + 12, 4), number(entry + 16, 4),
            reinterpret_cast<const char*>(entry) + PLDM_COMPONENT_IMAGE_SIZE};
}

std::string packed(const Bytes& bytes) {
    std::string text = test::to_hex(bytes);
    std::erase(text, ' ');
    return text;
}

/// What a card answers that has just the descriptors of a record.
std::string identifiers_of(const pldm_device_record& record) {
    Bytes all;
    const uint8_t* at = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        const size_t size = PLDM_DESCRIPTOR_HEADER_SIZE + number(at + 2, 2);
        all.insert(all.end(), at, at + size);
        at += size;
    }
    const auto size = static_cast<uint32_t>(all.size());
    Bytes head;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        head.push_back(static_cast<uint8_t>(size >> shift));
    }
    head.push_back(record.desc_num);
    return packed(head) + packed(all);
}

class RealPackageUpdate : public UpdateRun, public ::testing::WithParamInterface<Binding> {
protected:
    void SetUp() override {
        UpdateRun::SetUp();
        if (!fs::is_directory(kFolder)) {
            GTEST_SKIP() << "no firmware packages in " << kFolder;
        }
    }

    /// Copies the package, since the fixture removes its file in the end.
    void take(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        content = Bytes(std::istreambuf_iterator<char>(in), {});
        provide_bytes(content);
        parsed = {};
        test::Capture out;
        parse_result = pldm_parse_file(path.c_str(), &parsed);
    }

    /// A card that the record is for, with the components that it marks. They have no versions yet:
    /// with these the parameters of 25 would not fit the 1024 bytes that the agent takes.
    void open_card_for(const pldm_device_record& record) {
        std::string components;
        wanted.clear();
        for (unsigned i = 0; i < parsed.component_num && i < 32; ++i) {
            if ((record.applicable_components >> i & 1) == 0) {
                continue;
            }
            const Component component = component_of(parsed.component_images[i]);
            components += std::string(components.empty() ? "" : ", ") + R"({"classification": )" +
                          std::to_string(component.classification) + R"(, "identifier": )" +
                          std::to_string(component.identifier) + R"(, "index": )" +
                          std::to_string(wanted.size()) +
                          R"(, "active": "", "activation_methods": 2})";
            wanted.push_back(component);
        }
        open_card_with(GetParam(),
                       R"("active": "old", "identifiers_hex": ")" + identifiers_of(record) +
                           R"(", "get_package_data": true, "components": [)" + components + "]");
    }

    /// The bytes of an image as the package has them, zeros behind its end.
    Bytes image_in_package(const Component& component) const {
        Bytes image(component.size);
        for (size_t i = 0; i < image.size() && component.offset + i < content.size(); ++i) {
            image[i] = content[component.offset + i];
        }
        return image;
    }

    void expect_updated() {
        const UpdateReport report = update();
        EXPECT_EQ(report.check, 0) << report.log;
        EXPECT_EQ(report.update, 0);
        EXPECT_EQ(report.mark, 0);
        // Without anything to activate the update ends where it began.
        EXPECT_EQ(report.state, wanted.empty() ? 1 : 6);
        for (size_t i = 0; i < wanted.size(); ++i) {
            const sim::ByteView image = device->image(i);
            EXPECT_TRUE(std::ranges::equal(image, image_in_package(wanted[i]))) << i;
            EXPECT_EQ(component_version(i), wanted[i].version);
        }
        // Package data are those of the first record, as long as those of the last one.
        const size_t length = device->package_data().size();
        EXPECT_EQ(length, parsed.package_data_len);
        const size_t own = std::min<size_t>(length, parsed.records[0].package_data_len);
        EXPECT_TRUE(std::equal(parsed.records[0].package_data, parsed.records[0].package_data + own,
                               device->package_data().begin()));
    }

    pldm_fw_update_ctx parsed{};
    int32_t parse_result = -1;
    Bytes content;
    std::vector<Component> wanted;
};

TEST_P(RealPackageUpdate, EveryRecordUpdatesTheCardThatItIsFor) {
    size_t updates = 0;
    for (const std::string& name : kGood) {
        take(kFolder / name);
        ASSERT_EQ(parse_result, 0) << name;
        for (unsigned i = 0; i < parsed.device_record_num; ++i) {
            SCOPED_TRACE(name + ", record " + std::to_string(i));
            open_card_for(parsed.records[i]);
            expect_updated();
            ++updates;
        }
        pldm_free_ctx_resource(&parsed);
    }
    EXPECT_GE(updates, kGood.size());
}

TEST_P(RealPackageUpdate, OthersAreRefusedBeforeTheDeviceIsAsked) {
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        if (entry.path().extension() != ".fwpkg" || kGood.contains(entry.path().filename())) {
            continue;
        }
        SCOPED_TRACE(entry.path().filename());
        take(entry.path());
        EXPECT_EQ(parse_result, -1);
        pldm_free_ctx_resource(&parsed);
        open_card(GetParam());
        const UpdateReport report = update();
        EXPECT_EQ(report.check, -1);
        EXPECT_NE(report.log.find("NIC FW image parse fail\n"), std::string::npos);
        EXPECT_EQ(device->count(sim::kFwQueryDeviceIdentifiers), 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(Card, RealPackageUpdate,
                         ::testing::Values(Binding::kSmbus, Binding::kPcie), [](const auto& info) {
                             return info.param == Binding::kSmbus ? "Smbus" : "Pcie";
                         });

}  // namespace
