// SPDX-License-Identifier: Apache-2.0
// What MCTP_STRICT_PACKAGE refuses of a package (DSP0267, version 1.0): each fault by itself.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "pldm/update/package_fixture.h"

namespace {

using test::Bytes;
using test::sample_package;
using Texts = std::vector<std::string>;

class FwPackageStrict : public test::PackageTest {
protected:
    FwPackageStrict() { ctx.strict = MCTP_STRICT_PACKAGE; }

    /// Expects that a package is refused with this text, and taken without the bit.
    void expect_refused_strictly(const Bytes& package, const std::string& text) {
        test::port().syslog.clear();
        ctx.strict = MCTP_STRICT_PACKAGE;
        EXPECT_EQ(parse(package), -1);
        expect_result(-1, "");
        EXPECT_EQ(test::port().syslog, Texts{"pldm_parse_file, " + text + "\n"});
        test::port().syslog.clear();
        const std::string strict_out = out;
        ctx.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PACKAGE;
        EXPECT_EQ(parse(package), 0);
        EXPECT_EQ(out, strict_out);
        EXPECT_EQ(test::port().syslog, Texts());
    }
    void expect_refused_strictly(const tool::Package& package, const std::string& text) {
        expect_refused_strictly(tool::build_package(package), text);
    }
    /// The sample with one thing changed.
    void expect_refused_strictly(const std::function<void(tool::Package&)>& change,
                                 const std::string& text) {
        tool::Package package = sample_package();
        change(package);
        expect_refused_strictly(package, text);
    }
};

TEST_F(FwPackageStrict, AWellFormedPackageIsTaken) {
    EXPECT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(test::port().syslog, Texts());
}

TEST_F(FwPackageStrict, StringTypesUpToFiveAreTaken) {
    for (uint8_t type = 0; type < 6; ++type) {
        tool::Package package = sample_package();
        package.version_type = type;
        package.records[1].version_type = type;
        package.components[2].version_type = type;
        EXPECT_EQ(parse(package), 0);
    }
}

TEST_F(FwPackageStrict, ReservedStringTypesAreRefused) {
    for (uint8_t type : {6, 255}) {
        expect_refused_strictly([=](auto& package) { package.version_type = type; },
                                "header of revision 1: reserved string type");
        expect_refused_strictly([=](auto& package) { package.records[1].version_type = type; },
                                "device record 1: reserved string type");
        expect_refused_strictly([=](auto& package) { package.components[2].version_type = type; },
                                "component 2: reserved string type");
    }
}

TEST_F(FwPackageStrict, EmptyVersionStringsAreRefused) {
    expect_refused_strictly([](auto& package) { package.version.clear(); },
                            "header of revision 1: empty version string");
    expect_refused_strictly([](auto& package) { package.records[0].version.clear(); },
                            "device record 0: empty version string");
    expect_refused_strictly([](auto& package) { package.components[1].version.clear(); },
                            "component 1: empty version string");
}

TEST_F(FwPackageStrict, ImagesOutsideTheFileAreRefused) {
    const std::string text = "component 2: its image is not in the file, behind the header";
    const size_t size = tool::build_package(sample_package()).size();
    const auto place = [&](uint32_t offset, uint32_t length) {
        tool::Package package = sample_package();
        package.components[2].location_offset = offset;
        package.components[2].size = length;
        return package;
    };
    const auto end = static_cast<uint32_t>(size);
    EXPECT_EQ(parse(place(end - 1, 1)), 0);
    EXPECT_EQ(parse(place(end, 0)), 0);
    expect_refused_strictly(place(end - 1, 2), text);
    expect_refused_strictly(place(end + 1, 0), text);
    expect_refused_strictly(place(0xFFFFFFFF, 0xFFFFFFFF), text);
}

TEST_F(FwPackageStrict, AnImageInTheHeaderIsRefused) {
    tool::PackageLayout layout;
    tool::build_package(sample_package(), &layout);
    const auto header = static_cast<uint32_t>(layout.checksum + tool::kChecksumSize);
    tool::Package package = sample_package();
    package.components[0].location_offset = header;
    EXPECT_EQ(parse(package), 0);
    package.components[0].location_offset = header - 1;
    expect_refused_strictly(package,
                            "component 0: its image is not in the file, behind the header");
}

TEST_F(FwPackageStrict, AFileCutBehindItsHeaderIsRefused) {
    Bytes bytes = tool::build_package(sample_package());
    bytes.pop_back();
    expect_refused_strictly(bytes, "component 2: its image is not in the file, behind the header");
}

TEST_F(FwPackageStrict, ClaimsBeyondTheBitmapAreRefused) {
    for (size_t component : {3u, 7u}) {
        expect_refused_strictly(
            [=](auto& package) {
                package.records[1].components = {1, component};
            },
            "device record 1: it claims components beyond the bitmap");
    }
    // The file has a bit for each of forty; of a record's no more than 32 are kept.
    tool::Package package = sample_package();
    while (package.components.size() < 40) {
        package.components.push_back(package.components.back());
    }
    package.records[0].components = {31};
    EXPECT_EQ(parse(package), 0);
    package.records[0].components = {31, 32};
    expect_refused_strictly(package, "device record 0: it claims components beyond the bitmap");
}

TEST_F(FwPackageStrict, TheBitmapHasABitForEachComponentAndIsOfBytes) {
    const std::string text =
        "header of revision 1: a bitmap that is not of bytes, or too short for the components";
    for (uint16_t bits : {9, 15}) {
        expect_refused_strictly([=](auto& package) { package.bitmap_bits = bits; }, text);
    }
    tool::Package package = sample_package();
    while (package.components.size() < 9) {
        package.components.push_back(package.components.back());
    }
    package.bitmap_bits = 8;
    expect_refused_strictly(package, text);
    package.bitmap_bits = 24;
    EXPECT_EQ(parse(package), 0);
}

TEST_F(FwPackageStrict, ARecordIsAsLongAsItsFields) {
    const std::string text = "device record 1: its length is not that of its fields";
    // A record of 32 bytes, padded: what is stated includes the first bytes of what is behind it.
    tool::PackageLayout layout;
    const Bytes bytes = tool::build_package(sample_package(), &layout);
    Bytes padded(bytes.begin(), bytes.begin() + static_cast<long>(layout.component_count));
    const size_t length_at = layout.records[1];
    padded[length_at] = static_cast<uint8_t>(padded[length_at] + 2);
    padded.insert(padded.end(), {0xEE, 0xEE});
    padded.insert(padded.end(), bytes.begin() + static_cast<long>(layout.component_count),
                  bytes.end());
    padded[tool::kHeaderSizeOffset] = static_cast<uint8_t>(padded[tool::kHeaderSizeOffset] + 2);
    tool::seal_package(padded, layout.checksum + 2);
    expect_refused_strictly(padded, text);
}

TEST_F(FwPackageStrict, ARecordIsNoShorterThanItsFields) {
    // The package data of the last record takes the number of components for its own.
    tool::PackageLayout layout;
    Bytes bytes = tool::build_package(sample_package(), &layout);
    const size_t length_at = layout.records[1] + 9;
    bytes[length_at] = static_cast<uint8_t>(bytes[length_at] + 2);
    tool::seal_package(bytes, layout.checksum);
    expect_refused_strictly(bytes, "device record 1: its length is not that of its fields");
}

TEST_F(FwPackageStrict, RecordsHaveDescriptorsAndPackagesHaveRecords) {
    expect_refused_strictly([](auto& package) { package.records[0].descriptors.clear(); },
                            "device record 0: no descriptor");
    expect_refused_strictly([](auto& package) { package.records.clear(); },
                            "header of revision 1: no device record");
}

TEST_F(FwPackageStrict, TheRevisionIsThatOfTheIdentifier) {
    for (uint8_t revision : {0, 2}) {
        expect_refused_strictly([=](auto& package) { package.format_revision = revision; },
                                "header of revision " + std::to_string(revision) +
                                    ": it has the identifier of another one");
    }
}

TEST_F(FwPackageStrict, WhatIsRefusedWithoutTheBitIsRefusedAsEver) {
    Bytes bytes = tool::build_package(sample_package());
    bytes[40] ^= 1;
    expect_refused(bytes, test::kChecksum);
    EXPECT_EQ(test::port().syslog, Texts());
}

}  // namespace
