// SPDX-License-Identifier: Apache-2.0
// Packages that are cut, lie or have bits flipped, files that change underneath, a machine that
// fails.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "pldm/update/package_fixture.h"
#include "support/capture.h"
#include "support/numbers.h"

namespace {

using test::Bytes;
using test::kBoundary;
using test::kChecksum;
using test::port;
using test::result_line;
using test::sample_package;
using test::small_package;
using tool::build_package;
using tool::Package;
using tool::PackageLayout;
using Lines = std::vector<std::string>;

class FwPackageHostile : public test::PackageTest {
protected:
    /// Parses and releases. Whatever the bytes are, the result is one of two, and it is logged.
    int32_t parse_anything(const Bytes& bytes) {
        const int32_t result = parse(bytes);
        EXPECT_TRUE(result == 0 || result == -1);
        EXPECT_FALSE(port().console.empty());
        EXPECT_EQ(port().console.back(), result_line(result));
        pldm_free_ctx_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u);
        return result;
    }
};

Bytes head(const Bytes& bytes, size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
}

void put(Bytes& bytes, size_t offset, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; i++) {
        bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

// ---- Cut files ----

TEST_F(FwPackageHostile, AFileCutAnywhereInItsHeaderIsRefused) {
    PackageLayout layout;
    const Bytes bytes = build_package(sample_package(), &layout);
    for (size_t size = 1; size < layout.checksum + 4; size++) {
        SCOPED_TRACE(size);
        ASSERT_EQ(parse(head(bytes, size)), -1);
        if (size < 16) {
            EXPECT_EQ(port().console, (Lines{"package header id mismatch!\n", result_line(-1)}));
            EXPECT_EQ(out, "");
        } else {
            expect_result(-1, size < layout.checksum ? kBoundary : kChecksum);
        }
    }
}

TEST_F(FwPackageHostile, AFileCutBehindItsHeaderIsAGoodPackage) {
    // The images are looked for when the device asks for them, not before.
    PackageLayout layout;
    const Bytes bytes = build_package(sample_package(), &layout);
    for (size_t size = layout.checksum + 4; size <= bytes.size(); size++) {
        ASSERT_EQ(parse_anything(head(bytes, size)), 0) << size;
    }
}

TEST_F(FwPackageHostile, NothingIsPrintedOfWhatIsBehindTheEndOfTheFile) {
    PackageLayout layout;
    const Bytes bytes = build_package(sample_package(), &layout);
    expect_refused(head(bytes, 36 + 8), kBoundary);  // one byte of the version string is missing
    EXPECT_TRUE(printed("header string length 9\nboundary check failed\n")) << out;
    expect_refused(head(bytes, layout.records[0] + 10), kBoundary);
    EXPECT_TRUE(printed("======device record 0=======\nboundary check failed\n")) << out;
    expect_refused(head(bytes, layout.records[0] + 11), kBoundary);
    EXPECT_TRUE(printed("Applicable components: boundary check failed\n")) << out;
    expect_refused(head(bytes, layout.records[0] + 12 + 9), kBoundary);
    EXPECT_TRUE(printed("Applicable components: \nboundary check failed\n")) << out;
    expect_refused(head(bytes, layout.records[0] + 12 + 10 + 3), kBoundary);
    EXPECT_TRUE(printed("record desc 0**************\nboundary check failed\n")) << out;
    expect_refused(head(bytes, layout.records[1] + 12 + 1 + 8), kBoundary);
    EXPECT_TRUE(printed("firmware package data: boundary check failed\n")) << out;
    expect_refused(head(bytes, layout.components[1] + 23), kBoundary);
    EXPECT_TRUE(printed("component image 1++++++++\nboundary check failed\n")) << out;
    ASSERT_NE(ctx.component_images, nullptr);
    EXPECT_NE(ctx.component_images[0], nullptr);
    EXPECT_EQ(ctx.component_images[1], nullptr);
}

// ---- The header's size ----

TEST_F(FwPackageHostile, AHeaderSizeBehindTheEndOfTheFileIsRefused) {
    Package package = sample_package();
    const size_t size = build_package(package).size();
    for (size_t claimed : {size + 5, size + 100, size_t{65535}}) {
        package.header_size = static_cast<uint16_t>(claimed);
        expect_refused(package, kChecksum);
    }
}

TEST_F(FwPackageHostile, AHeaderSizeThatLeavesNoRoomIsRefusedAtTheFirstRecord) {
    Package package = sample_package();
    for (uint16_t claimed : {0, 1, 3, 4, 5, 36, 49}) {
        package.header_size = claimed;
        expect_refused(package, kBoundary);
        EXPECT_TRUE(printed("device id count 2\nboundary check failed\n")) << out;
        EXPECT_STREQ(ctx.package_version_string, "NIC-22.41");
        EXPECT_EQ(ctx.device_record_num, 2);
    }
}

TEST_F(FwPackageHostile, EveryHeaderSizeIsSurvived) {
    PackageLayout layout;
    Bytes bytes = build_package(small_package(), &layout);
    for (size_t claimed = 0; claimed < bytes.size() + 8; claimed++) {
        put(bytes, 17, claimed, 2);
        ASSERT_EQ(parse_anything(bytes), claimed == layout.checksum + 4 ? 0 : -1) << claimed;
    }
}

// ---- Counts ----

TEST_F(FwPackageHostile, MoreRecordsThanThereAreAreRefused) {
    Package package = small_package();
    package.record_count = 255;
    expect_refused(package, kBoundary);
    EXPECT_EQ(ctx.device_record_num, 255);
    package.records.clear();
    package.record_count = 1;
    EXPECT_EQ(parse(package), -1);
}

TEST_F(FwPackageHostile, MoreComponentsThanThereAreAreRefused) {
    Package package = sample_package();
    package.component_count = 4;
    expect_refused(package, kBoundary);
    EXPECT_EQ(ctx.component_num, 4);
    package.components.clear();
    package.component_count = 1;
    expect_refused(package, kBoundary);
}

TEST_F(FwPackageHostile, FewerComponentsThanThereAreMissTheChecksum) {
    Package package = sample_package();
    package.component_count = 2;
    expect_refused(package, kChecksum);
    EXPECT_EQ(ctx.component_num, 2);
}

TEST_F(FwPackageHostile, ACountThatCannotFitBuysNoMoreThanItsPointers) {
    Package package = small_package();
    package.component_count = 65535;
    expect_refused(package, kBoundary);
    EXPECT_EQ(ctx.component_num, 65535);
    EXPECT_TRUE(printed("component image count 65535\n")) << out;
    EXPECT_TRUE(printed("component image 1++++++++\nboundary check failed\n")) << out;
    ASSERT_NE(ctx.component_images, nullptr);
    EXPECT_NE(ctx.component_images[0], nullptr);
    const auto* const behind = ctx.component_images + 1;
    EXPECT_EQ(std::count(behind, behind + 65534, nullptr), 65534);
}

TEST_F(FwPackageHostile, ACountWhoseEntriesAreTooLongIsRefusedAtTheLastOne) {
    Package package = sample_package();
    package.components[2].version_length = 3;  // one byte longer than it is
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("component image 2++++++++\nboundary check failed\n")) << out;
}

TEST_F(FwPackageHostile, MoreDescriptorsThanThereAreAreRefused) {
    Package package = small_package();
    package.records[0].descriptor_count = 255;
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("record desc 0**************\n")) << out;
}

TEST_F(FwPackageHostile, TwoHundredAndFiftyFiveRecordsAreRead) {
    Package package = small_package();
    package.records.assign(255, package.records[0]);
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.device_record_num, 255);
    EXPECT_STREQ(ctx.records[254].image_version_string, "r");
}

TEST_F(FwPackageHostile, TheMostComponentsThatAHeaderHoldsAreRead) {
    Package package = small_package();
    package.bitmap_bits = 8;
    package.components.assign(2846, package.components[0]);
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.component_num, 2846);
}

// ---- Lengths inside records ----

TEST_F(FwPackageHostile, ARecordThatEndsBehindTheHeaderIsRefused) {
    PackageLayout layout;
    Package package = small_package();
    build_package(package, &layout);
    const size_t most = layout.checksum - layout.records[0];
    package.records[0].record_length = static_cast<uint16_t>(most + 1);
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("ctx->records[0]\n")) << out;
    package.records[0].record_length = 65535;
    expect_refused(package, kBoundary);
    // One that takes the whole header leaves the checksum to be read as the component count.
    package.records[0].record_length = static_cast<uint16_t>(most);
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("component image count ")) << out;
}

TEST_F(FwPackageHostile, ABitmapBehindTheHeaderIsRefused) {
    Package package = small_package();
    package.records[0].components.clear();
    PackageLayout layout;
    Bytes bytes = build_package(package, &layout);
    put(bytes, 32, 65535, 2);
    expect_refused(bytes, kBoundary);
    EXPECT_TRUE(printed("Applicable components: boundary check failed\n")) << out;
    EXPECT_EQ(ctx.records[0].applicable_components, 0u);
}

TEST_F(FwPackageHostile, AVersionStringBehindTheHeaderIsRefusedAfterItWasKept) {
    Package package = small_package();
    package.components[0].image = Bytes(600, 'x');
    PackageLayout layout;
    build_package(package, &layout);
    const size_t most = layout.checksum - (layout.records[0] + 12);
    package.records[0].version_length = static_cast<uint8_t>(most + 1);
    expect_refused(package, kBoundary);
    EXPECT_EQ(ctx.records[0].component_image_set_ver_string_len, most + 1);
    EXPECT_NE(ctx.records[0].image_version_string, nullptr);
    EXPECT_EQ(ctx.records[0].descriptors, nullptr);
}

TEST_F(FwPackageHostile, ADescriptorBehindTheHeaderIsRefusedAfterItWasPrinted) {
    Package package = small_package();
    package.components[0].image = Bytes(70000, 0x5A);
    package.records[0].descriptors = {{0x0103, {0x07}, 65535}};
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("desc type: 103(PCI Revision ID)\ndesc len : 65535\ndesc val : 7 ")) << out;
    EXPECT_TRUE(printed(" 5a\nboundary check failed\n"));
    EXPECT_EQ(ctx.records[0].descriptors, nullptr);
    EXPECT_EQ(ctx.package_data_len, 0);
}

TEST_F(FwPackageHostile, ADescriptorBehindTheEndOfTheFileIsNotPrinted) {
    Package package = small_package();
    package.records[0].descriptors = {{0x0103, {0x07}, 65535}};
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("record desc 0**************\nboundary check failed\n")) << out;
}

TEST_F(FwPackageHostile, PackageDataBehindTheHeaderIsRefusedBeforeItIsKept) {
    Package package = small_package();
    package.components[0].image = Bytes(70000, 0x5A);
    package.records[0].package_data_length = 65535;
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("firmware package data: boundary check failed\n")) << out;
    EXPECT_EQ(ctx.package_data_len, 65535);
    EXPECT_EQ(ctx.records[0].package_data, nullptr);
}

TEST_F(FwPackageHostile, OverlappingRecordsBuyNoMemoryWithoutBound) {
    // 255 records at one place, each with some 30 KiB: seven megabytes in all.
    const auto kept = [this](Package package, uint8_t* pldm_device_record::*copy) {
        package.records[0].record_length = 0;
        package.record_count = 255;
        expect_refused(package, kBoundary);
        return std::count_if(ctx.records, ctx.records + 255,
                             [copy](const auto& record) { return record.*copy != nullptr; });
    };
    Package with_data = small_package();
    with_data.records[0].package_data = Bytes(30000, 0x5A);
    EXPECT_EQ(kept(with_data, &pldm_device_record::package_data), 8);
    Package with_descriptors = small_package();
    with_descriptors.records[0].descriptors = {{0x0000, Bytes(30000, 0x5A), {}}};
    EXPECT_EQ(kept(with_descriptors, &pldm_device_record::descriptors), 8);
}

TEST_F(FwPackageHostile, OverlappingRecordsThatAreSmallAreRead) {
    // A record length of 0 never gets away from the record, whose first two bytes are then read
    // as a component count of 0 and the following four as the checksum.
    Package package = small_package();
    package.records[0].record_length = 0;
    package.record_count = 255;
    expect_refused(package, kChecksum);
    EXPECT_EQ(ctx.device_record_num, 255);
    EXPECT_STREQ(ctx.records[254].image_version_string, "r");
    EXPECT_EQ(ctx.component_num, 0);
}

// ---- Everything at its extremes ----

struct Field {
    const char* name;
    size_t offset;
    size_t width;
};

std::vector<Field> lengths_and_counts(const PackageLayout& layout) {
    return {{"header size", 17, 2},
            {"bitmap length", 32, 2},
            {"version length", 35, 1},
            {"record count", layout.record_count, 1},
            {"record length", layout.records[0], 2},
            {"descriptor count", layout.records[0] + 2, 1},
            {"set version length", layout.records[0] + 8, 1},
            {"package data length", layout.records[0] + 9, 2},
            {"descriptor length", layout.records[0] + 12 + 10 + 2, 2},
            {"last record length", layout.records[1], 2},
            {"last package data length", layout.records[1] + 9, 2},
            {"component count", layout.component_count, 2},
            {"component version length", layout.components[0] + 21, 1},
            {"last component version length", layout.components[2] + 21, 1}};
}

TEST_F(FwPackageHostile, EveryLengthAndCountAtItsExtremesIsSurvived) {
    PackageLayout layout;
    const Bytes good = build_package(sample_package(), &layout);
    std::set<std::pair<std::string, uint64_t>> accepted;
    for (const Field& field : lengths_and_counts(layout)) {
        const uint64_t largest = (uint64_t{1} << (8 * field.width)) - 1;
        for (uint64_t value : {uint64_t{0}, uint64_t{1}, largest - 1, largest}) {
            SCOPED_TRACE(std::string(field.name) + " " + std::to_string(value));
            Bytes bytes = good;
            put(bytes, field.offset, value, field.width);
            const bool same = bytes == good;
            // With the checksum as it was and with one that fits the change.
            EXPECT_EQ(parse_anything(bytes), same ? 0 : -1);
            tool::seal_package(bytes, layout.checksum);
            if (!same && parse_anything(bytes) == 0) {
                accepted.insert({field.name, value});
            }
        }
    }
    // The next record is looked for by the record's stated length, so that a record may say that
    // it holds less, and a last byte of its package data may be the next record's first.
    const std::set<std::pair<std::string, uint64_t>> harmless{{"descriptor count", 0},
                                                              {"descriptor count", 1},
                                                              {"package data length", 1},
                                                              {"last package data length", 0},
                                                              {"last package data length", 1}};
    EXPECT_EQ(accepted, harmless);
}

TEST_F(FwPackageHostile, WhereAComponentLiesIsNotLookedAt) {
    for (uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        Package package = sample_package();
        package.components[1].location_offset = value;
        package.components[2].size = value;
        ASSERT_EQ(parse(package), 0);
        EXPECT_EQ(std::memcmp(ctx.component_images[1] + 12, test::le32(value).data(), 4), 0);
        EXPECT_EQ(std::memcmp(ctx.component_images[2] + 16, test::le32(value).data(), 4), 0);
    }
}

TEST_F(FwPackageHostile, EveryFlippedBitOfTheHeaderIsRefused) {
    PackageLayout layout;
    Bytes bytes = build_package(sample_package(), &layout);
    for (size_t bit = 0; bit < (layout.checksum + 4) * 8; bit++) {
        bytes[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        ASSERT_EQ(parse_anything(bytes), -1) << "bit " << bit;
        bytes[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
    }
    EXPECT_EQ(parse_anything(bytes), 0);
}

TEST_F(FwPackageHostile, EveryFlippedBitUnderARightChecksumIsSurvived) {
    PackageLayout layout;
    const Bytes good = build_package(sample_package(), &layout);
    size_t accepted = 0;
    for (size_t bit = 16 * 8; bit < layout.checksum * 8; bit++) {
        Bytes bytes = good;
        bytes[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        tool::seal_package(bytes, layout.checksum);
        accepted += parse_anything(bytes) == 0 ? 1 : 0;
    }
    // Values may flip, lengths and counts may not.
    EXPECT_GT(accepted, 1000u);
    EXPECT_LT(accepted, (layout.checksum - 16) * 8 - 100);
}

// ---- A file that changes while it is read ----

TEST_F(FwPackageHostile, AFileCutBeforeItIsReadIsParsedAsItIs) {
    PackageLayout layout;
    const Bytes bytes = build_package(sample_package(), &layout);
    libc.before["pread"] = [this] { ASSERT_EQ(truncate(path.c_str(), 60), 0); };
    expect_refused(bytes, kBoundary);
}

TEST_F(FwPackageHostile, AFileEmptiedBeforeItIsReadIsRefused) {
    libc.before["pread"] = [this] { ASSERT_EQ(truncate(path.c_str(), 0), 0); };
    expect_refused(build_package(sample_package()), "");
    EXPECT_EQ(out, "");
    EXPECT_EQ(port().syslog, (Lines{"pldm_parse_file, can't read " + path + "\n"}));
}

TEST_F(FwPackageHostile, AFileCutWhileItIsParsedIsParsedAsItWas) {
    // Of a package larger than a page, all but one byte goes once it was read.
    Package package = sample_package();
    package.records[1].package_data = Bytes(20000, 0x41);
    libc.before["calloc"] = [this] { ASSERT_EQ(truncate(path.c_str(), 1), 0); };
    ASSERT_EQ(parse(package), 0) << out;
    EXPECT_EQ(test::bytes_at(ctx.records[1].package_data, 20000), package.records[1].package_data);
}

TEST_F(FwPackageHostile, AFileOverwrittenWhileItIsParsedIsParsedAsItWas) {
    libc.before["calloc"] = [this] { write_file(Bytes(300, 0xFF)); };
    ASSERT_EQ(parse(sample_package()), 0) << out;
    EXPECT_STREQ(ctx.records[1].image_version_string, "s");
}

TEST_F(FwPackageHostile, AFileIsReadInAsManyPiecesAsItTakes) {
    libc.read_at_most = 7;
    ASSERT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(libc.calls["pread"], (197 + 33 + 6) / 7);
}

// ---- A machine that fails ----

TEST_F(FwPackageHostile, AFileThatCannotBeOpenedIsSaidSo) {
    libc.fail["open"] = 1;
    EXPECT_EQ(parse(sample_package()), -1);
    EXPECT_EQ(out, "can't open file " + path + "\nopen_file_fail\n");
    EXPECT_EQ(port().console, Lines());
}

TEST_F(FwPackageHostile, AFileThatCannotBeMappedIsSaidSoAndClosed) {
    for (const char* call : {"fstat", "mmap"}) {
        libc.fail[call] = 1;
        EXPECT_EQ(parse(sample_package()), -1);
        EXPECT_EQ(out, "can't map the file " + path + "\nopen_file_fail\n");
        EXPECT_EQ(port().console, Lines());
        EXPECT_EQ(ctx.package_file, nullptr);
    }
}

TEST_F(FwPackageHostile, AHeaderThatCannotBeReadIsReported) {
    libc.fail["mmap"] = 2;
    expect_refused(sample_package(), "");
    EXPECT_EQ(out, "");
    EXPECT_EQ(port().syslog, (Lines{"pldm_parse_file, can't read " + path + "\n"}));
    libc.fail["pread"] = 1;
    expect_refused(sample_package(), "");
    EXPECT_EQ(port().syslog.size(), 2u);
}

TEST_F(FwPackageHostile, AMappingThatCannotBeGivenBackIsReported) {
    libc.fail["munmap"] = 1;
    test::Capture errors(2);
    EXPECT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(errors.text(), "Error unmmapping: Input/output error\n");
    EXPECT_EQ(libc.calls["close"], 1);
}

TEST_F(FwPackageHostile, WithoutMemoryForWhatAnUpdateCanDoWithoutItIsParsed) {
    // Allocations in turn: package version; records; of each record its version, descriptors and
    // package data; component array; a component each.
    for (int nth : {1, 5, 8}) {
        libc.fail_allocation(nth);
        ASSERT_EQ(parse(sample_package()), 0) << nth;
        EXPECT_EQ(ctx.package_version_string == nullptr, nth == 1);
        EXPECT_EQ(ctx.records[0].package_data == nullptr, nth == 5);
        EXPECT_EQ(ctx.records[1].package_data == nullptr, nth == 8);
    }
    EXPECT_TRUE(printed("package_data          = \n\ndesc type: ffff")) << out;
}

TEST_F(FwPackageHostile, WithoutMemoryForAnythingElseItIsNot) {
    for (int nth : {2, 3, 4, 6, 7, 9, 10, 11, 12}) {
        SCOPED_TRACE(nth);
        libc.fail_allocation(nth);
        expect_refused(sample_package(), "");
        EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MEMORY) << "and not a bad file";
        pldm_free_ctx_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
    const int before = libc.allocations();
    ASSERT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(libc.allocations() - before, 12);
}

}  // namespace
