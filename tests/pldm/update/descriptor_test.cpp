// SPDX-License-Identifier: Apache-2.0
// Descriptors, the checksum, and the routines that open, close and print (DSP0267).
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <numeric>

#include "pldm/update/package_fixture.h"
#include "support/capture.h"

namespace {

using test::Bytes;
using test::hex;
using test::port;
using test::operator+;
using Lines = std::vector<std::string>;

using FwDescriptor = test::PlatformTest;
using FwFile = test::PackageTest;

std::string joined(const Lines& lines) {
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

TEST(FwDescriptorName, IsThatOfTheTable) {
    const std::pair<unsigned, const char*> names[] = {
        {0x0000, "PCI Vendor ID"},         {0x0001, "IANA Enterprise ID"},
        {0x0003, "Pnp Vendor ID"},         {0x0004, "ACPI Vendor ID"},
        {0x0100, "PCI Device ID"},         {0x0101, "PCI SubSystem Vendor ID"},
        {0x0102, "PCI Subsystem ID"},      {0x0103, "PCI Revision ID"},
        {0x0104, "PnP Product Identifer"}, {0x0105, "ACPI Product Identifer"},
        {0xFFFF, "Vendor Defined"}};
    size_t unknown = 0;
    for (unsigned type = 0; type <= 0xFFFF; type++) {
        const auto* found = std::find_if(std::begin(names), std::end(names),
                                         [&](const auto& entry) { return entry.first == type; });
        const char* name = show_desc_id_string(static_cast<uint16_t>(type));
        ASSERT_STREQ(name, found == std::end(names) ? "Unknown ID" : found->second) << type;
        unknown += found == std::end(names) ? 1 : 0;
    }
    EXPECT_EQ(unknown, 65536u - 11);
    EXPECT_STREQ(show_desc_id_string(2), "Unknown ID");  // the UUID
}

TEST_F(FwDescriptor, IsPrintedWithItsNameAndItsBytes) {
    test::Capture capture;
    EXPECT_EQ(pldm_parse_record_descriptors(hex("0301 0300 0a00ff").data()), 0);
    EXPECT_EQ(pldm_parse_record_descriptors(hex("0200 0000").data()), 0);
    EXPECT_EQ(pldm_parse_record_descriptors(nullptr), 0);
    EXPECT_EQ(capture.text(),
              "desc type: 103(PCI Revision ID)\ndesc len : 3\ndesc val : a 0 ff\n"
              "desc type: 2(Unknown ID)\ndesc len : 0\ndesc val :\n");
}

TEST_F(FwDescriptor, MatchesWhereTypeLengthAndValueAreEqual) {
    const Bytes vendor = hex("0000 0200 b315");
    EXPECT_EQ(pldm_compare_descriptors(vendor.data(), hex("0000 0200 b315").data()), 0);
    EXPECT_EQ(pldm_compare_descriptors(vendor.data(), hex("0001 0200 b315").data()), 1);
    EXPECT_EQ(pldm_compare_descriptors(vendor.data(), hex("0000 0100 b3").data()), 1);
    EXPECT_EQ(pldm_compare_descriptors(vendor.data(), hex("0000 0300 b31500").data()), 1);
    EXPECT_NE(pldm_compare_descriptors(vendor.data(), hex("0000 0200 b316").data()), 0);
    EXPECT_NE(pldm_compare_descriptors(vendor.data(), hex("0000 0200 b415").data()), 0);
    EXPECT_EQ(pldm_compare_descriptors(hex("0200 0000").data(), hex("0200 0000").data()), 0);
    EXPECT_EQ(port().console, Lines());
}

TEST_F(FwDescriptor, NothingMatchesNothing) {
    const Bytes vendor = hex("0000 0200 b315");
    EXPECT_EQ(pldm_compare_descriptors(vendor.data(), nullptr), 1);
    EXPECT_EQ(pldm_compare_descriptors(nullptr, vendor.data()), 1);
    EXPECT_EQ(pldm_compare_descriptors(nullptr, nullptr), 1);
}

TEST_F(FwDescriptor, EveryOneOfAValuesBytesCounts) {
    const Bytes uuid = hex("0200 1000") + test::counting(16, 0x30);
    for (size_t bit = 4 * 8; bit < uuid.size() * 8; bit++) {
        Bytes other = uuid;
        other[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        EXPECT_NE(pldm_compare_descriptors(uuid.data(), other.data()), 0) << bit;
    }
}

TEST_F(FwDescriptor, ARevisionOfOneByteMatchesEveryRevisionFromThereOn) {
    for (unsigned wanted = 0; wanted < 256; wanted++) {
        for (unsigned found = 0; found < 256; found++) {
            const Bytes package = hex("0301 0100") + Bytes{static_cast<uint8_t>(wanted)};
            const Bytes device = hex("0301 0100") + Bytes{static_cast<uint8_t>(found)};
            port().console.clear();
            ASSERT_EQ(pldm_compare_descriptors(package.data(), device.data()),
                      wanted <= found ? 0 : 1);
            ASSERT_EQ(port().console.size(), wanted <= found ? 0u : 1u);
        }
    }
    pldm_compare_descriptors(hex("0301 0100 b2").data(), hex("0301 0100 0a").data());
    EXPECT_EQ(port().console.back(), "error desc_type: 103 desc: 0xb2, desc1 =0xa");
}

TEST_F(FwDescriptor, ALongerRevisionIsComparedByteForByte) {
    const Bytes two = hex("0301 0200 0101");
    EXPECT_EQ(pldm_compare_descriptors(two.data(), two.data()), 0);
    EXPECT_NE(pldm_compare_descriptors(two.data(), hex("0301 0200 0102").data()), 0);
    EXPECT_NE(pldm_compare_descriptors(two.data(), hex("0301 0200 0201").data()), 0);
    EXPECT_EQ(pldm_compare_descriptors(two.data(), hex("0301 0100 01").data()), 1);
    EXPECT_EQ(port().console, Lines());
}

TEST_F(FwDescriptor, AMismatchIsShownAsFarAsItIsKnown) {
    const Bytes package = hex("0000 0200 b315");
    const Bytes device = hex("0301 0100 0a");
    Bytes response = hex("000501 00 0d000000 02") + device + hex("ffff 0400 01014200");
    response.resize(PLDM_FW_UPDATE_RESPONSE_SIZE);
    plds_show_descriptot(nullptr, nullptr, nullptr);
    EXPECT_EQ(port().syslog, Lines());
    plds_show_descriptot(package.data(), nullptr, nullptr);
    EXPECT_EQ(joined(port().syslog), "Image desc type: 0\nImage desc val =  b3 15\n");
    EXPECT_EQ(port().syslog.size(), 5u);
    port().syslog.clear();
    plds_show_descriptot(nullptr, device.data(), nullptr);
    EXPECT_EQ(joined(port().syslog), "FD desc1 type: 103\nFD desc1 val =  a\n");
    port().syslog.clear();
    plds_show_descriptot(package.data(), device.data(), response.data());
    EXPECT_EQ(joined(port().syslog),
              "Image desc type: 0\nImage desc val =  b3 15\n"
              "FD desc1 type: 103\nFD desc1 val =  a\n"
              "desc type: 103(PCI Revision ID)\ndesc len : 1\ndesc val : a\n"
              "desc type: ffff(Vendor Defined)\ndesc len : 4\ndesc val : 1 1 42 0\n");
}

/// A response in a heap block of exactly its size.
std::string shown(Bytes response) {
    response.resize(PLDM_FW_UPDATE_RESPONSE_SIZE);
    response.shrink_to_fit();
    port().syslog.clear();
    plds_show_descriptot(nullptr, nullptr, response.data());
    return joined(port().syslog);
}

TEST_F(FwDescriptor, AResponseThatClaimsTooMuchIsShownAsFarAsItGoes) {
    EXPECT_EQ(shown(hex("000501 00 00000000 00")), "");
    EXPECT_EQ(shown(hex("000501 00 00000000 01 0301 ffff")), "");
    // 1024 bytes hold 9 of header and one descriptor of 1011 bytes of value, but not of 1012.
    EXPECT_EQ(shown(hex("000501 00 00000000 ff 0301 f303")).substr(0, 32),
              "desc type: 103(PCI Revision ID)\n");
    EXPECT_EQ(shown(hex("000501 00 00000000 ff 0301 f403")), "");
    // Empty descriptors up to the last whole one: (1024 - 9) / 4.
    const std::string all = shown(hex("000501 00 00000000 ff"));
    EXPECT_EQ(all.size(), 253 * std::string("desc type: 0(PCI Vendor ID)\n"
                                            "desc len : 0\ndesc val :\n")
                                    .size());
}

// ---- CRC32 ----

TEST(FwChecksum, HasTheCheckValueOfTheCatalogue) {
    const Bytes digits = hex("313233343536373839");
    EXPECT_EQ(CRC32(0, digits.data(), digits.size()), 0xCBF43926u);
    EXPECT_EQ(CRC32(0, digits.data(), 0), 0u);
    EXPECT_EQ(CRC32(0x12345678, digits.data(), 0), 0x12345678u);
    EXPECT_EQ(CRC32(0, nullptr, 0), 0u);
    const Bytes zeros(32);
    EXPECT_EQ(CRC32(0, zeros.data(), zeros.size()), 0x190A55ADu);
    const Bytes ones(32, 0xFF);
    EXPECT_EQ(CRC32(0, ones.data(), ones.size()), 0xFF6CAB0Bu);
}

TEST(FwChecksum, IsThatOfEveryLengthAndAlignmentBitByBit) {
    const Bytes bytes = test::counting(600, 7);
    for (size_t start = 0; start < 9; start++) {
        for (size_t size = 0; size < 64; size++) {
            ASSERT_EQ(CRC32(0, bytes.data() + start, size),
                      tool::package_checksum(bytes.data() + start, size));
        }
    }
}

TEST(FwChecksum, ContinuesWhereItStopped) {
    const Bytes bytes = test::counting(300, 1);
    const uint32_t whole = CRC32(0, bytes.data(), bytes.size());
    for (size_t cut = 0; cut <= bytes.size(); cut++) {
        const uint32_t front = CRC32(0, bytes.data(), cut);
        ASSERT_EQ(CRC32(front, bytes.data() + cut, bytes.size() - cut), whole) << cut;
    }
}

// ---- Component entries ----

TEST_F(FwDescriptor, AComponentEntryIsPrintedFieldByField) {
    const Bytes entry =
        hex("0a00 0201 ffeeddcc 0280 2010 39300000 00000100 01 0a 32322e34312e3130303021");
    for (const void* ignored :
         {static_cast<const void*>(nullptr), static_cast<const void*>(entry.data())}) {
        test::Capture capture;
        EXPECT_EQ(pldm_parse_component_image(ignored, entry.data()), 0);
        EXPECT_EQ(capture.text(),
                  "classification: a\n"
                  "identifier: 102\n"
                  "comparison stamp: ccddeeff\n"
                  "option: 2 80\n"
                  "activation_method: 20 10\n"
                  "offset: 3039\n"
                  "size:  10000\n"
                  "ver_string_type: 1\n"
                  "ver_string_length: a\n"
                  "ver_string: 22.41.1000\n");
    }
}

TEST_F(FwDescriptor, NoComponentEntryPrintsNothing) {
    test::Capture capture;
    EXPECT_EQ(pldm_parse_component_image(nullptr, nullptr), 0);
    EXPECT_EQ(capture.text(), "");
}

// ---- Opening and closing ----

TEST_F(FwFile, IsMappedWhole) {
    const Bytes bytes = test::counting(5000, 3);
    write_file(bytes);
    void* address = nullptr;
    size_t length = 0;
    test::Capture capture;
    const int32_t descriptor = open_pldm_file(path.c_str(), &address, &length);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(length, bytes.size());
    EXPECT_EQ(test::bytes_at(address, length), bytes);
    EXPECT_EQ(libc.live_mappings(), 1u);
    EXPECT_EQ(close_pldm_file(descriptor, address, length), 0);
    EXPECT_EQ(capture.text(), "");
}

TEST_F(FwFile, ThatIsNotThereStoresNothing) {
    void* address = &path;
    size_t length = 77;
    test::Capture capture;
    EXPECT_EQ(open_pldm_file("/nonexistent/x", &address, &length), -1);
    EXPECT_EQ(capture.text(), "can't open file /nonexistent/x\n");
    EXPECT_EQ(address, &path);
    EXPECT_EQ(length, 77u);
}

TEST_F(FwFile, ThatCannotBeMappedIsClosedAgain) {
    write_file({});
    void* address = nullptr;
    size_t length = 0;
    test::Capture capture;
    EXPECT_EQ(open_pldm_file(path.c_str(), &address, &length), -1);
    EXPECT_EQ(capture.text(), "can't map the file " + path + "\n");
    EXPECT_EQ(libc.calls["close"], 1);
}

TEST_F(FwFile, NeedsAllArguments) {
    void* address = nullptr;
    size_t length = 0;
    EXPECT_EQ(open_pldm_file(nullptr, &address, &length), -1);
    EXPECT_EQ(open_pldm_file(path.c_str(), nullptr, &length), -1);
    EXPECT_EQ(open_pldm_file(path.c_str(), &address, nullptr), -1);
    EXPECT_EQ(libc.calls["open file"], 0);
}

}  // namespace
