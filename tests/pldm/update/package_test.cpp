// SPDX-License-Identifier: Apache-2.0
// Firmware update packages that are good, and the odd ones among them (DSP0267, header format 1.0).
#include <gtest/gtest.h>

#include <filesystem>

#include "pldm/update/package_fixture.h"
#include "support/capture.h"

namespace {

using test::Bytes;
using test::bytes_at;
using test::hex;
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

using FwPackage = test::PackageTest;

const Lines kGood{"Header format version 1.0.x\n", result_line(0)};

TEST_F(FwPackage, IsKeptFieldByField) {
    ASSERT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(ctx.package_file, path.c_str());
    EXPECT_STREQ(ctx.package_version_string, "NIC-22.41");
    ASSERT_EQ(ctx.device_record_num, 2);
    const pldm_device_record& first = ctx.records[0];
    EXPECT_EQ(first.record_len, 11 + 1 + 10 + 12);
    EXPECT_EQ(first.desc_num, 2);
    EXPECT_EQ(first.package_data_len, 0);
    EXPECT_EQ(first.applicable_components, 0x5u);
    EXPECT_EQ(first.component_image_set_ver_string_type, 1);
    EXPECT_EQ(first.component_image_set_ver_string_len, 10);
    EXPECT_STREQ(first.image_version_string, "22.41.1000");
    EXPECT_EQ(bytes_at(first.package_data, 1), hex("00"));
    EXPECT_EQ(bytes_at(first.descriptors, 12), hex("0000 0200 b315  0001 0200 1d10"));
    const pldm_device_record& second = ctx.records[1];
    EXPECT_EQ(second.record_len, 11 + 1 + 1 + 8 + 18);
    EXPECT_EQ(second.desc_num, 1);
    EXPECT_EQ(second.package_data_len, 18);
    EXPECT_EQ(second.applicable_components, 0x2u);
    EXPECT_EQ(second.component_image_set_ver_string_type, 2);
    EXPECT_EQ(second.component_image_set_ver_string_len, 1);
    EXPECT_STREQ(second.image_version_string, "s");
    EXPECT_STREQ(reinterpret_cast<char*>(second.package_data), "ABCDEFGHIJKLMNOPQR");
    EXPECT_EQ(bytes_at(second.descriptors, 8), hex("ffff 0400 010142fe"));
}

TEST_F(FwPackage, ComponentEntriesAreKeptAsInTheFileWithATerminator) {
    PackageLayout layout;
    const Bytes bytes = build_package(sample_package(), &layout);
    ASSERT_EQ(parse(bytes), 0);
    ASSERT_EQ(ctx.component_num, 3);
    for (size_t i = 0; i < 3; i++) {
        Bytes wanted = bytes_at(bytes.data() + layout.components[i], 24);
        wanted.push_back(0);
        EXPECT_EQ(bytes_at(ctx.component_images[i], 25), wanted) << "component " << i;
    }
    // The second one by eye: header 197 bytes, the first image one byte.
    EXPECT_EQ(bytes_at(ctx.component_images[1], 25),
              hex("010a 0101 01c3b2a1 0202 1120 c6000000 0b000000 01 02 7631 00"));
}

TEST_F(FwPackage, KeepsThePackageDataLengthOfTheLastRecord) {
    Package package = sample_package();
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.package_data_len, 18);
    std::swap(package.records[0], package.records[1]);
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.package_data_len, 0);
}

TEST_F(FwPackage, IsReportedWhileItIsRead) {
    ASSERT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(port().console, kGood);
    EXPECT_EQ(port().syslog, Lines());
    EXPECT_EQ(out,
              "package header id passed!\n"
              "Header format version is 1\n"
              "header length 197\n"
              "component bitmap len 8\n"
              "header string type 1\n"
              "header string length 9\n"
              "ver string: NIC-22.41\n"
              "device id count 2\n"
              "======device record 0=======\n"
              "record length 34\n"
              "desc count 2\n"
              "device update options 1 2 3 4\n"
              "component set ver string type: 1\n"
              "component set ver string len: 10\n"
              "fw package data len: 0\n"
              "Applicable components: \n"
              "Component iamge st Ver String: 22.41.1000\n"
              "**************record desc 0**************\n"
              "desc type: 0(PCI Vendor ID)\n"
              "desc len : 2\n"
              "desc val : b3 15\n"
              "**************record desc 1**************\n"
              "desc type: 100(PCI Device ID)\n"
              "desc len : 2\n"
              "desc val : 1d 10\n"
              "firmware package data: \n"
              "ctx->records[0]\n"
              "record_len            = 34\n"
              "package_data_len      = 0\n"
              "desc_num              = 2\n"
              "applicable_components = 0x5\n"
              "component_image_set_ver_string_type = 0x1\n"
              "component_image_set_ver_string_len  = 10\n"
              "image_version_string  = 22.41.1000\n"
              "package_data          = \n"
              "desc type: 0(PCI Vendor ID)\n"
              "desc len : 2\n"
              "desc val : b3 15\n"
              "desc type: 100(PCI Device ID)\n"
              "desc len : 2\n"
              "desc val : 1d 10\n"
              "======device record 1=======\n"
              "record length 39\n"
              "desc count 1\n"
              "device update options 0 0 0 0\n"
              "component set ver string type: 2\n"
              "component set ver string len: 1\n"
              "fw package data len: 18\n"
              "Applicable components: \n"
              "Component iamge st Ver String: s\n"
              "**************record desc 0**************\n"
              "desc type: ffff(Vendor Defined)\n"
              "desc len : 4\n"
              "desc val : 1 1 42 fe\n"
              "firmware package data:  41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50\n"
              " 51 52\n"
              "ctx->records[1]\n"
              "record_len            = 39\n"
              "package_data_len      = 18\n"
              "desc_num              = 1\n"
              "applicable_components = 0x2\n"
              "component_image_set_ver_string_type = 0x2\n"
              "component_image_set_ver_string_len  = 1\n"
              "image_version_string  = s\n"
              "package_data          = ABCDEFGHIJKLMNOPQR\n"
              " 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 51 52\n"
              "desc type: ffff(Vendor Defined)\n"
              "desc len : 4\n"
              "desc val : 1 1 42 fe\n"
              "component image count 3\n"
              "+++++++++++++++component image 0++++++++\n"
              "+++++++++++++++component image 1++++++++\n"
              "+++++++++++++++component image 2++++++++\n");
}

TEST_F(FwPackage, WithoutArgumentsNothingIsSaidOrDone) {
    test::Capture capture;
    EXPECT_EQ(pldm_parse_file(nullptr, &ctx), -1);
    EXPECT_EQ(pldm_parse_file(path.c_str(), nullptr), -1);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(port().syslog, Lines());
    EXPECT_EQ(libc.calls["open file"], 0);
}

TEST_F(FwPackage, AMissingFileIsSaidToBeMissing) {
    EXPECT_EQ(parse_again(), -1);
    EXPECT_EQ(out, "can't open file " + path + "\nopen_file_fail\n");
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(ctx.package_file, nullptr);
}

TEST_F(FwPackage, AnEmptyFileOrAFolderCannotBeMapped) {
    EXPECT_EQ(parse(Bytes()), -1);
    EXPECT_EQ(out, "can't map the file " + path + "\nopen_file_fail\n");
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(parse_again(), -1);
    EXPECT_EQ(out, "can't map the file " + path + "\nopen_file_fail\n");
    EXPECT_EQ(port().console, Lines());
}

TEST_F(FwPackage, OtherIdentifiersAreRefusedWhateverTheRevision) {
    // DSP0267 1.1.0, 1.2.0 and 1.3.0, then one that is nobody's.
    const char* const identifiers[] = {
        "1244d264 8d7d4718 a030fc8a 56587d5a", "3119ce2f e80a4a99 af6d46f8 b121f6bf",
        "7b291c99 6db64208 801b0202 6e463c78", "f018878c cb7d4943 9800a02f 059aca03"};
    for (const char* identifier : identifiers) {
        for (uint8_t revision : {0, 1, 2, 3, 4, 255}) {
            SCOPED_TRACE(identifier);
            Package package = sample_package();
            const Bytes bytes = hex(identifier);
            std::copy(bytes.begin(), bytes.end(), package.identifier.begin());
            package.format_revision = revision;
            EXPECT_EQ(parse(package), -1);
            EXPECT_EQ(out, "");
            EXPECT_EQ(port().console, (Lines{"package header id mismatch!\n", result_line(-1)}));
            EXPECT_EQ(ctx.package_file, path.c_str());
        }
    }
}

TEST_F(FwPackage, TheRevisionIsPrintedAndChangesNothingElse) {
    for (unsigned revision = 0; revision < 256; revision++) {
        Package package = small_package();
        package.format_revision = static_cast<uint8_t>(revision);
        ASSERT_EQ(parse(package), 0) << revision;
        char line[64];
        std::snprintf(line, sizeof line, "Header format version is %x\n", revision);
        EXPECT_TRUE(printed(line)) << out;
        Lines logged{result_line(0)};
        if (revision == 1) {
            logged.insert(logged.begin(), "Header format version 1.0.x\n");
        } else if (revision == 2) {
            logged.insert(logged.begin(), "Header format version 1.1.x\n");
        }
        EXPECT_EQ(port().console, logged);
    }
}

/// A package whose bitmaps have the given width and bytes, whatever its components are.
Bytes with_bitmap(uint16_t bits, const Bytes& bitmap) {
    Package package = small_package();
    package.bitmap_bits = bits;
    PackageLayout layout;
    Bytes bytes = build_package(package, &layout);
    std::copy(bitmap.begin(), bitmap.end(),
              bytes.begin() + static_cast<ptrdiff_t>(layout.records[0] + 11));
    tool::seal_package(bytes, layout.checksum);
    return bytes;
}

TEST_F(FwPackage, ABitmapOfSevenBitsOrFewerHasNoBytes) {
    for (uint16_t bits : {0, 1, 7}) {
        ASSERT_EQ(parse(with_bitmap(bits, {})), 0) << bits;
        EXPECT_EQ(ctx.records[0].applicable_components, 0u);
        EXPECT_EQ(ctx.records[0].record_len, 11 + 1);
        EXPECT_STREQ(ctx.records[0].image_version_string, "r");
    }
}

TEST_F(FwPackage, ABitmapOfTwelveBitsHasOneByte) {
    ASSERT_EQ(parse(with_bitmap(12, hex("a5"))), 0);
    EXPECT_TRUE(printed("component bitmap len 12\n"));
    EXPECT_EQ(ctx.records[0].applicable_components, 0xA5u);
    EXPECT_STREQ(ctx.records[0].image_version_string, "r");
}

TEST_F(FwPackage, ABitmapIsLittleEndian) {
    ASSERT_EQ(parse(with_bitmap(24, hex("010280"))), 0);
    EXPECT_EQ(ctx.records[0].applicable_components, 0x800201u);
    ASSERT_EQ(parse(with_bitmap(32, hex("01020480"))), 0);
    EXPECT_EQ(ctx.records[0].applicable_components, 0x80040201u);
}

TEST_F(FwPackage, OfABitmapOfSixtyFourBitsTheFirstFourBytesCount) {
    ASSERT_EQ(parse(with_bitmap(64, hex("11223344ffffffff"))), 0);
    EXPECT_EQ(ctx.records[0].applicable_components, 0x44332211u);
    EXPECT_STREQ(ctx.records[0].image_version_string, "r");
}

TEST_F(FwPackage, ARecordIsSteppedByItsStatedLength) {
    // The first record's package data is the second record, which is therefore read twice.
    Package package = small_package();
    tool::PackageRecord first;
    first.version = "outer";
    first.package_data = hex("0d00 00 00000000 01 01 0000 7f 69");
    first.record_length = 11 + 1 + 5;
    package.records = {first};
    package.record_count = 2;
    ASSERT_EQ(parse(package), 0) << out;
    EXPECT_STREQ(ctx.records[0].image_version_string, "outer");
    EXPECT_EQ(ctx.records[0].package_data_len, 13);
    EXPECT_STREQ(ctx.records[1].image_version_string, "i");
    EXPECT_EQ(ctx.records[1].applicable_components, 0x7Fu);
    EXPECT_EQ(ctx.component_num, 1);
}

TEST_F(FwPackage, ARecordMayBePadded) {
    Package package = small_package();
    package.records[0].record_length = 13 + 7;
    PackageLayout layout;
    Bytes bytes = build_package(package, &layout);
    bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(layout.component_count), 7, 0xEE);
    bytes[17] = static_cast<uint8_t>(bytes[17] + 7);
    tool::seal_package(bytes, layout.checksum + 7);
    ASSERT_EQ(parse(bytes), 0) << out;
    EXPECT_EQ(ctx.component_num, 1);
    EXPECT_EQ(ctx.records[0].record_len, 20);
}

TEST_F(FwPackage, AChecksumElsewhereThanBehindTheLastEntryIsNotFound) {
    Package package = sample_package();
    PackageLayout layout;
    Bytes bytes = build_package(package, &layout);
    // Four bytes of padding, then a checksum that the header's size points at.
    bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(layout.checksum), 4, 0xEE);
    bytes[17] = static_cast<uint8_t>(bytes[17] + 4);
    tool::seal_package(bytes, layout.checksum + 4);
    expect_refused(bytes, kChecksum);
}

/// Chooses the last four of the bytes so that the CRC-32 of all comes out as wanted.
void force_checksum(Bytes& bytes, size_t covered, uint32_t wanted) {
    uint32_t backwards = ~wanted;
    for (int bit = 0; bit < 32; bit++) {
        backwards =
            (backwards & 0x80000000u) != 0 ? (backwards ^ 0xEDB88320u) << 1 | 1u : backwards << 1;
    }
    const uint32_t before = ~tool::package_checksum(bytes.data(), covered - 4);
    for (size_t i = 0; i < 4; i++) {
        bytes[covered - 4 + i] = static_cast<uint8_t>((before ^ backwards) >> (8 * i));
    }
}

TEST_F(FwPackage, AChecksumBehindTheLastEntryIsFoundWhereverTheHeaderEnds) {
    PackageLayout layout;
    Bytes bytes = build_package(sample_package(), &layout);
    // The header claims eight bytes of the images, so that the checksum covers itself as well.
    bytes[17] = static_cast<uint8_t>(bytes[17] + 12);
    force_checksum(bytes, layout.checksum + 12, 0x12345678);
    expect_refused(bytes, kChecksum);
    const Bytes stored = hex("78563412");
    std::copy(stored.begin(), stored.end(),
              bytes.begin() + static_cast<ptrdiff_t>(layout.checksum));
    force_checksum(bytes, layout.checksum + 12, 0x12345678);
    EXPECT_EQ(parse(bytes), 0) << out;
}

TEST_F(FwPackage, AHeaderThatEndsExactlyAtTheLimitPasses) {
    PackageLayout layout;
    const Bytes bytes = build_package(small_package(), &layout);
    ASSERT_EQ(bytes[17], layout.checksum + 4);
    EXPECT_EQ(parse(bytes), 0);
}

TEST_F(FwPackage, AHeaderThatEndsOneByteBehindTheLimitIsRefused) {
    for (const Package& from : {small_package(), sample_package()}) {
        PackageLayout layout;
        build_package(from, &layout);
        Package package = from;
        package.header_size = static_cast<uint16_t>(layout.checksum + 3);
        expect_refused(package, kBoundary);
        EXPECT_EQ(ctx.component_num, package.components.size());
        EXPECT_TRUE(printed("+component image"));
    }
}

TEST_F(FwPackage, AWrongChecksumIsRefusedAfterEverythingWasRead) {
    Package package = sample_package();
    package.checksum = 0x12345678;
    expect_refused(package, kChecksum);
    EXPECT_EQ(ctx.component_num, 3);
    EXPECT_NE(ctx.component_images[2], nullptr);
}

TEST_F(FwPackage, WithoutRecordsAndComponentsIsAPackageAllTheSame) {
    Package package;
    package.version = "empty";
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.device_record_num, 0);
    EXPECT_EQ(ctx.component_num, 0);
    EXPECT_STREQ(ctx.package_version_string, "empty");
    EXPECT_TRUE(printed("device id count 0\ncomponent image count 0\n")) << out;
}

TEST_F(FwPackage, WithoutComponentsOneBoundaryCheckIsLeft) {
    Package package = small_package();
    package.components.clear();
    ASSERT_EQ(parse(package), 0);
    PackageLayout layout;
    build_package(package, &layout);
    package.header_size = static_cast<uint16_t>(layout.checksum + 4 - 1);
    expect_refused(package, kBoundary);
    EXPECT_TRUE(printed("component image count 0\nboundary check failed\n")) << out;
}

TEST_F(FwPackage, TheLongestStringsAreKept) {
    Package package = sample_package();
    package.version = std::string(255, 'P');
    package.records[0].version = std::string(255, 'S');
    package.components[2].version = std::string(255, 'C');
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.package_version_string, package.version);
    EXPECT_EQ(ctx.records[0].image_version_string, package.records[0].version);
    EXPECT_EQ(reinterpret_cast<char*>(ctx.component_images[2] + 22), package.components[2].version);
}

TEST_F(FwPackage, EmptyStringsAreKeptAsEmptyStrings) {
    Package package = small_package();
    package.version = "";
    package.records[0].version = "";
    package.components[0].version = "";
    ASSERT_EQ(parse(package), 0);
    EXPECT_STREQ(ctx.package_version_string, "");
    EXPECT_STREQ(ctx.records[0].image_version_string, "");
    EXPECT_EQ(ctx.component_images[0][22], 0);
}

TEST_F(FwPackage, TheLargestHeaderIsRead) {
    Package package = small_package();
    PackageLayout layout;
    build_package(package, &layout);
    // Descriptor and package data together fill the header up to 65535 bytes.
    const size_t room = 65535 - (layout.checksum + 4);
    package.records[0].descriptors = {{0xFFFF, test::counting(20000), {}}};
    package.records[0].package_data = test::counting(room - 20004);
    ASSERT_EQ(parse(package), 0);
    EXPECT_EQ(ctx.records[0].package_data_len, room - 20004);
    EXPECT_EQ(bytes_at(ctx.records[0].package_data, room - 20004), package.records[0].package_data);
    EXPECT_EQ(bytes_at(ctx.records[0].descriptors, 4), hex("ffff204e"));
}

TEST_F(FwPackage, ASecondPackageTakesThePlaceOfTheFirst) {
    ASSERT_EQ(parse(sample_package()), 0);
    ctx.matched_record = &ctx.records[1];
    ASSERT_EQ(parse(small_package()), 0);
    EXPECT_EQ(ctx.matched_record, nullptr);
    EXPECT_EQ(ctx.device_record_num, 1);
    EXPECT_EQ(ctx.component_num, 1);
    EXPECT_STREQ(ctx.package_version_string, "p");
}

TEST_F(FwPackage, AMissingFileLeavesTheFirstPackageAlone) {
    ASSERT_EQ(parse(sample_package()), 0);
    test::Capture capture;
    EXPECT_EQ(pldm_parse_file("/nonexistent/package", &ctx), -1);
    capture.text();
    EXPECT_EQ(ctx.package_file, path.c_str());
    EXPECT_EQ(ctx.device_record_num, 2);
    EXPECT_STREQ(ctx.records[1].image_version_string, "s");
}

}  // namespace
