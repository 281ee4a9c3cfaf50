// SPDX-License-Identifier: Apache-2.0
// Packages that independent tools have made, against the reading of them that came along.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "pldm/update/package_fixture.h"
#include "support/json.h"

namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::bytes_at;
using test::hex;
using test::kBoundary;
using test::kChecksum;
using test::port;
using test::result_line;
using tool::Json;

const fs::path kFolder = fs::path(SIDEBAND_DATA_DIR) / "packages";

Bytes contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Packages by the name of their files, each with what is told about it.
std::map<std::string, Json> sidecars() {
    std::map<std::string, Json> found;
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        if (entry.path().extension() == ".json") {
            Json sidecar = test::read_json(entry.path());
            std::string name = sidecar["file"].get<std::string>();
            found.emplace(std::move(name), std::move(sidecar));
        }
    }
    return found;
}

Bytes bytes_of(const Json& text) {
    return hex(text.get<std::string>());
}

class RealPackage : public test::PackageTest {
protected:
    void SetUp() override {
        if (!fs::is_directory(kFolder)) {
            GTEST_SKIP() << "no firmware packages in " << kFolder;
        }
    }

    int32_t parse_file(const std::string& name) {
        path = kFolder / name;
        return parse_again();
    }

    void expect_descriptors(const pldm_device_record& record, const Json& wanted) const;
    void expect_record(const pldm_device_record& record, const Json& wanted) const;
    void expect_component(const uint8_t* entry, const Json& wanted, const Bytes& file) const;
    void expect_content(const Json& wanted) const;
};

void RealPackage::expect_descriptors(const pldm_device_record& record, const Json& wanted) const {
    ASSERT_EQ(record.desc_num, wanted.size());
    const uint8_t* at = record.descriptors;
    for (const Json& descriptor : wanted) {
        const Bytes value = bytes_of(descriptor["data_hex"]);
        const unsigned type = descriptor["type"].get<unsigned>();
        const Bytes header{static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
                           static_cast<uint8_t>(value.size()),
                           static_cast<uint8_t>(value.size() >> 8)};
        EXPECT_EQ(bytes_at(at, 4), header);
        EXPECT_EQ(bytes_at(at + 4, value.size()), value);
        at += 4 + value.size();
    }
}

void RealPackage::expect_record(const pldm_device_record& record, const Json& wanted) const {
    EXPECT_EQ(record.record_len, wanted["record_length"]);
    EXPECT_EQ(record.package_data_len, wanted["package_data_length"]);
    uint32_t applicable = 0;
    for (unsigned component : wanted["applicable_components"].get<std::vector<unsigned>>()) {
        applicable |= component < 32 ? 1u << component : 0u;
    }
    EXPECT_EQ(record.applicable_components, applicable);
    const Json& version = wanted["image_set_version"];
    EXPECT_EQ(record.component_image_set_ver_string_type, version["type"]);
    EXPECT_EQ(record.component_image_set_ver_string_len, version["length"]);
    EXPECT_EQ(record.image_version_string, version["value"].get<std::string>());
    const Bytes data =
        wanted["package_data_length"] == 0 ? Bytes() : bytes_of(wanted["package_data_hex"]);
    EXPECT_EQ(bytes_at(record.package_data, data.size()), data);
    EXPECT_EQ(record.package_data[data.size()], 0);
    expect_descriptors(record, wanted["descriptors"]);
}

/// A little-endian number of an entry.
uint32_t number(const uint8_t* entry, size_t offset, size_t width) {
    uint32_t value = 0;
    for (size_t i = width; i > 0; i--) {
        value = value << 8 | entry[offset + i - 1];
    }
    return value;
}

void RealPackage::expect_component(const uint8_t* entry, const Json& wanted,
                                   const Bytes& file) const {
    EXPECT_EQ(number(entry, 0, 2), wanted["classification"]);
    EXPECT_EQ(number(entry, 2, 2), wanted["identifier"]);
    EXPECT_EQ(number(entry, 4, 4), wanted["comparison_stamp"]);
    EXPECT_EQ(number(entry, 8, 2), wanted["options"]);
    EXPECT_EQ(number(entry, 10, 2), wanted["requested_activation_method"]);
    const uint32_t offset = number(entry, 12, 4);
    const uint32_t size = number(entry, 16, 4);
    EXPECT_EQ(offset, wanted["location_offset"]);
    EXPECT_EQ(size, wanted["size"]);
    EXPECT_EQ(entry[20], wanted["version"]["type"]);
    EXPECT_EQ(entry[21], wanted["version"]["length"]);
    EXPECT_EQ(reinterpret_cast<const char*>(entry + 22),
              wanted["version"]["value"].get<std::string>());
    ASSERT_LE(uint64_t{offset} + size, file.size());
    EXPECT_EQ(CRC32(0, file.data() + offset, size), wanted["crc32"]);
}

void RealPackage::expect_content(const Json& wanted) const {
    EXPECT_EQ(ctx.package_version_string, wanted["package_version"]["value"].get<std::string>());
    ASSERT_EQ(ctx.device_record_num, wanted["device_record_count"]);
    ASSERT_EQ(wanted["device_records"].size(), ctx.device_record_num);
    for (size_t i = 0; i < ctx.device_record_num; i++) {
        SCOPED_TRACE("record " + std::to_string(i));
        expect_record(ctx.records[i], wanted["device_records"][i]);
    }
    EXPECT_EQ(ctx.package_data_len, wanted["device_records"].back()["package_data_length"]);
    ASSERT_EQ(ctx.component_num, wanted["component_count"]);
    ASSERT_EQ(wanted["components"].size(), ctx.component_num);
    const Bytes file = contents(path);
    for (size_t i = 0; i < ctx.component_num; i++) {
        SCOPED_TRACE("component " + std::to_string(i));
        expect_component(ctx.component_images[i], wanted["components"][i], file);
    }
    EXPECT_TRUE(
        printed("header length " + std::to_string(wanted["header_size"].get<int>()) + "\n"));
    EXPECT_TRUE(printed("component bitmap len " +
                        std::to_string(wanted["component_bitmap_bit_length"].get<int>()) + "\n"));
    const size_t header = wanted["header_size"].get<size_t>();
    EXPECT_EQ(CRC32(0, file.data(), header - 4), wanted["header_checksum"]);
}

TEST_F(RealPackage, ThatIsGoodIsReadAsItsMakerMeantIt) {
    size_t good = 0;
    for (const auto& [name, sidecar] : sidecars()) {
        if (sidecar["expect"]["result"] != "accept") {
            continue;
        }
        SCOPED_TRACE(name);
        ASSERT_EQ(parse_file(name), 0) << out;
        EXPECT_EQ(port().console,
                  (std::vector<std::string>{"Header format version 1.0.x\n", result_line(0)}));
        expect_content(sidecar["decoded"]);
        good++;
    }
    EXPECT_EQ(good, 6u);
}

/// What stands in the output of a package that is refused: a text on standard output, or none for
/// one whose identifier is not known.
struct Refusal {
    const char* name;
    std::string text;
};

TEST_F(RealPackage, ThatIsBadIsRefusedWithTheRightText) {
    const Refusal refusals[] = {
        {"e_format_1_1_0.fwpkg", ""},
        {"e_format_1_2_0.fwpkg", ""},
        {"e_format_1_3_0.fwpkg", ""},
        // The flipped bit is one of a string's length: the walk runs out of the header before
        // the checksum, which comes last, is looked at.
        {"f_bad_checksum.fwpkg", kBoundary},
        {"f_bad_checksum_field.fwpkg", kChecksum},
        {"f_truncated_header.fwpkg", kBoundary},
        {"f_truncated_identifier.fwpkg", ""},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        EXPECT_EQ(parse_file(refusal.name), -1);
        expect_result(-1, refusal.text);
        const bool identified = out.starts_with("package header id passed!\n");
        EXPECT_EQ(identified, !refusal.text.empty());
        EXPECT_EQ(std::count(port().console.begin(), port().console.end(),
                             "package header id mismatch!\n"),
                  identified ? 0 : 1);
        pldm_free_ctx_resource(&ctx);
    }
}

TEST_F(RealPackage, OfFormatOneIsReadWhateverItsRevision) {
    // DSP0267 gives the identifier and the revision together, so that a revision of 2 under this
    // identifier contradicts it. The revision is only reported here: the identifier alone tells
    // the format, and everything behind it is laid out as the identifier says.
    ASSERT_EQ(parse_file("e_identifier_1_0_revision_2.fwpkg"), 0);
    EXPECT_EQ(port().console,
              (std::vector<std::string>{"Header format version 1.1.x\n", result_line(0)}));
    const auto packages = sidecars();
    const Json& sidecar = packages.at("e_identifier_1_0_revision_2.fwpkg");
    EXPECT_EQ(sidecar["expect"]["result"], "refuse");
    Json wanted = packages.at(sidecar["derived_from"].get<std::string>())["decoded"];
    wanted["header_checksum"] = CRC32(0, contents(path).data(), 318);
    expect_content(wanted);
}

TEST_F(RealPackage, WithAComponentCutOffIsReadAllTheSame) {
    // DSP0267 has every component inside the package. The header says nothing wrong here, and the
    // images are not looked at before a device asks for them: what is missing is found then.
    const std::string name = "f_truncated_component.fwpkg";
    const auto packages = sidecars();
    EXPECT_EQ(packages.at(name)["expect"]["result"], "refuse");
    ASSERT_EQ(parse_file(name), 0);
    const Bytes whole = contents(kFolder / packages.at(name)["derived_from"].get<std::string>());
    const Json& wanted =
        packages.at(packages.at(name)["derived_from"].get<std::string>())["decoded"];
    ASSERT_EQ(ctx.component_num, 3);
    for (size_t i = 0; i < 3; i++) {
        expect_component(ctx.component_images[i], wanted["components"][i], whole);
    }
}

TEST_F(RealPackage, IsJudgedStrictlyAsItsMakerDoes) {
    ctx.strict = MCTP_STRICT_PACKAGE;
    for (const auto& [name, sidecar] : sidecars()) {
        SCOPED_TRACE(name);
        EXPECT_EQ(parse_file(name), sidecar["expect"]["result"] == "accept" ? 0 : -1);
    }
}

TEST_F(RealPackage, IsNeverLeftOut) {
    // The tests above name every package that is there.
    size_t packages = 0;
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        packages += entry.path().extension() == ".fwpkg" ? 1 : 0;
    }
    EXPECT_EQ(packages, 6u + 7 + 1 + 1);
    EXPECT_EQ(sidecars().size(), packages);
}

TEST_F(RealPackage, CutAnywhereInItsHeaderIsRefused) {
    for (const auto& [name, sidecar] : sidecars()) {
        if (sidecar["expect"]["result"] != "accept") {
            continue;
        }
        SCOPED_TRACE(name);
        const Bytes whole = contents(kFolder / name);
        const size_t header = sidecar["decoded"]["header_size"].get<size_t>();
        path = libc.root + "/package.fwpkg";
        for (size_t size = 1; size<header; size += header> 500 ? 7 : 1) {
            ASSERT_EQ(parse(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))), -1)
                << size;
        }
    }
}

}  // namespace
