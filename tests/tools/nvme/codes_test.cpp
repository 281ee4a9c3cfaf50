// SPDX-License-Identifier: Apache-2.0
// Tests of the names that NVMe and NVMe-MI give to codes.
#include "tools/nvme/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(NvmeNames, AreThoseOfTheStandards) {
    EXPECT_EQ(tool::nvmemi_status_name(0x20), "VPD Updates Exceeded");
    EXPECT_EQ(tool::nvmemi_status_name(0x08), "Unable to Abort");
    EXPECT_EQ(tool::nvmemi_status_name(0x1F), "reserved");
    EXPECT_EQ(tool::nvmemi_status_name(0xE0), "vendor specific");
    EXPECT_EQ(tool::nvme_status_name(0, 0x0B), "Invalid Namespace or Format");
    EXPECT_EQ(tool::nvme_status_name(1, 0x0B), "Firmware Activation Requires Conventional Reset");
    EXPECT_EQ(tool::nvme_status_name(2, 0x81), "Unrecovered Read Error");
    EXPECT_EQ(tool::nvme_status_name(3, 0x01), "Asymmetric Access Persistent Loss");
    EXPECT_EQ(tool::nvme_status_name(3, 0x04), "reserved");
    EXPECT_EQ(tool::nvme_status_name(4, 0x01), "reserved");
    EXPECT_EQ(tool::nvme_status_name(7, 0x01), "vendor specific");
    EXPECT_EQ(tool::nvme_status_name(0, 0xC0), "vendor specific");
    EXPECT_EQ(tool::nvme_status_type_name(2), "Media and Data Integrity Errors");
    EXPECT_EQ(tool::nvmemi_command_name(0x07), "Reset");
    EXPECT_EQ(tool::nvme_admin_command_name(0x24), "Lockdown");
    EXPECT_EQ(tool::nvme_feature_name(0x81), "Host Identifier");
}

}  // namespace
