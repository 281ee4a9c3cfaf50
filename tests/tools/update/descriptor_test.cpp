// SPDX-License-Identifier: Apache-2.0
// Tests of descriptors of firmware devices: the names of their types, what their values mean.
#include "tools/update/descriptor.h"

#include <gtest/gtest.h>

namespace {

using tool::Descriptor;

std::vector<uint8_t> bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

TEST(DescriptorName, OfATypeThatIsNotAssignedIsUnknown) {
    for (const uint16_t type : {0x0007, 0x00FF, 0x010C, 0xFFFE}) {
        EXPECT_EQ(tool::descriptor_name(type), "Unknown ID") << type;
    }
    EXPECT_EQ(tool::descriptor_name(0x0002), "UUID");
    EXPECT_EQ(tool::descriptor_name(0x0106), "ASCII Model Number (Long String)");
}

TEST(DescriptorValue, IsANumberWithItsHighestByteFirst) {
    EXPECT_EQ(tool::descriptor_value({0x0000, {0xB3, 0x15}}), "0x15b3");
    EXPECT_EQ(tool::descriptor_value({0x0100, {0x1D, 0x10}}), "0x101d");
    EXPECT_EQ(tool::descriptor_value({0x0101, {0x01, 0x00}}), "0x0001");
    EXPECT_EQ(tool::descriptor_value({0x0102, {0x00, 0xFF}}), "0xff00");
    EXPECT_EQ(tool::descriptor_value({0x0103, {0x0A}}), "0x0a");
    EXPECT_EQ(tool::descriptor_value({0x0001, {0xCF, 0xC2, 0x00, 0x00}}), "49871");
}

TEST(DescriptorValue, IsAUuidInItsGroups) {
    const std::vector<uint8_t> uuid{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                    0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    EXPECT_EQ(tool::descriptor_value({0x0002, uuid}), "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(DescriptorValue, IsTextWithoutWhatFillsItUp) {
    EXPECT_EQ(tool::descriptor_value({0x0107, bytes_of("EN 40     ")}), "EN 40");
    EXPECT_EQ(tool::descriptor_value({0x0107, {'E', 'N', 0, 0, 0, 0, 0, 0, 0, 0}}), "EN");
    EXPECT_EQ(tool::descriptor_value({0x0107, bytes_of("EN\x1b[2J1234")}), "");
    EXPECT_EQ(tool::descriptor_value({0x0107, std::vector<uint8_t>(10)}), "");
}

TEST(DescriptorValue, IsMissingWhereTheSizeIsNotTheTypesOrNobodyKnowsTheOrder) {
    for (const Descriptor& descriptor :
         {Descriptor{0x0000, {}}, Descriptor{0x0000, {0xB3}},
          Descriptor{0x0000, {0xB3, 0x15, 0x00}}, Descriptor{0x0001, {1, 2}},
          Descriptor{0x0002, {0x0A, 0xFF}}, Descriptor{0x0005, {1, 2, 3}},
          Descriptor{0x0777, {1, 2}}, Descriptor{0xFFFF, {1, 2}}}) {
        EXPECT_EQ(tool::descriptor_value(descriptor), "") << descriptor.type;
    }
}

TEST(DescriptorValue, StandsBesideTheRawBytes) {
    const std::vector<Descriptor> list{{0x0000, {0xB3, 0x15}}, {0xFFFF, {0x01}}};
    EXPECT_EQ(tool::descriptors_text(list, 1),
              " TYPE    NAME            VALUE   DATA\n"
              " 0x0000  PCI Vendor ID   0x15b3  b315\n"
              " 0xffff  Vendor Defined  -       01\n");
    EXPECT_EQ(tool::descriptors_json(list).dump(),
              R"([{"type":"0x0000","name":"PCI Vendor ID","data":"b315","value":"0x15b3"},)"
              R"({"type":"0xffff","name":"Vendor Defined","data":"01"}])");
}

}  // namespace
