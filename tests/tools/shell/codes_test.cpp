// SPDX-License-Identifier: Apache-2.0
// Tests of the names of message types, of completion codes and of MCTP control commands.
#include "tools/shell/codes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

TEST(MessageTypes, AreNamedWithoutTheIntegrityCheckBit) {
    EXPECT_EQ(tool::message_type_name(0x00), "control");
    EXPECT_EQ(tool::message_type_name(0x01), "pldm");
    EXPECT_EQ(tool::message_type_name(0x02), "ncsi");
    EXPECT_EQ(tool::message_type_name(0x84), "nvme-mi");
    EXPECT_EQ(tool::message_type_name(0x7E), "vendor-pci");
    EXPECT_EQ(tool::message_type_name(0x60), "unknown");
}

TEST(MessageTypes, AreAListWithSpacesOrADash) {
    EXPECT_EQ(tool::message_types_text({}), "-");
    EXPECT_EQ(tool::message_types_text(std::array<uint8_t, 2>{0x01, 0x04}), "pldm nvme-mi");
}

TEST(ControlCodes, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::control_code_name(0x00), "SUCCESS");
    EXPECT_EQ(tool::control_code_name(0x01), "ERROR");
    EXPECT_EQ(tool::control_code_name(0x02), "ERROR_INVALID_DATA");
    EXPECT_EQ(tool::control_code_name(0x03), "ERROR_INVALID_LENGTH");
    EXPECT_EQ(tool::control_code_name(0x04), "ERROR_NOT_READY");
    EXPECT_EQ(tool::control_code_name(0x05), "ERROR_UNSUPPORTED_CMD");
    EXPECT_EQ(tool::control_code_name(0x06), "reserved");
    EXPECT_EQ(tool::control_code_name(0x80), "command specific");
}

TEST(PldmCodes, OfTheBaseAreTheSameForEveryCommand) {
    EXPECT_EQ(tool::pldm_code_name(0, 0x02, 0x01), "ERROR");
    EXPECT_EQ(tool::pldm_code_name(2, 0x11, 0x02), "ERROR_INVALID_DATA");
    EXPECT_EQ(tool::pldm_code_name(2, 0x11, 0x03), "ERROR_INVALID_LENGTH");
    EXPECT_EQ(tool::pldm_code_name(2, 0x21, 0x04), "ERROR_NOT_READY");
    EXPECT_EQ(tool::pldm_code_name(4, 0x01, 0x05), "ERROR_UNSUPPORTED_PLDM_CMD");
    EXPECT_EQ(tool::pldm_code_name(5, 0x01, 0x20), "ERROR_INVALID_PLDM_TYPE");
}

TEST(PldmCodes, From80OnBelongToTheCommand) {
    EXPECT_EQ(tool::pldm_code_name(0, 0x03, 0x83), "INVALID_PLDM_TYPE_IN_REQUEST_DATA");
    EXPECT_EQ(tool::pldm_code_name(0, 0x03, 0x80), "INVALID_DATA_TRANSFER_HANDLE");
    EXPECT_EQ(tool::pldm_code_name(0, 0x03, 0x84), "command specific");
    EXPECT_EQ(tool::pldm_code_name(0, 0x05, 0x80), "command specific");
    EXPECT_EQ(tool::pldm_code_name(0, 0x05, 0x81), "command specific");
    EXPECT_EQ(tool::pldm_code_name(0, 0x05, 0x84), "INVALID_PLDM_VERSION_IN_REQUEST_DATA");
    EXPECT_EQ(tool::pldm_code_name(2, 0x11, 0x80), "INVALID_SENSOR_ID");
    EXPECT_EQ(tool::pldm_code_name(2, 0x11, 0x81), "REARM_UNAVAILABLE_IN_PRESENT_STATE");
    EXPECT_EQ(tool::pldm_code_name(2, 0x20, 0x82), "EVENT_GENERATION_NOT_SUPPORTED");
    EXPECT_EQ(tool::pldm_code_name(2, 0x21, 0x80), "INVALID_SENSOR_ID");
    EXPECT_EQ(tool::pldm_code_name(2, 0x51, 0x82), "INVALID_RECORD_HANDLE");
    EXPECT_EQ(tool::pldm_code_name(4, 0x02, 0x85), "FRU_DATA_STRUCTURE_TABLE_UNAVAILABLE");
    EXPECT_EQ(tool::pldm_code_name(0, 0x02, 0x80), "command specific");
    EXPECT_EQ(tool::pldm_code_name(0, 0x02, 0x7F), "reserved");
}

TEST(PldmCodes, From80OnBelongToFirmwareUpdateAsAWhole) {
    EXPECT_EQ(tool::pldm_code_name(5, 0x10, 0x81), "ALREADY_IN_UPDATE_MODE");
    EXPECT_EQ(tool::pldm_code_name(5, 0x10, 0x8A), "UNABLE_TO_INITIATE_UPDATE");
    EXPECT_EQ(tool::pldm_code_name(5, 0x1D, 0x80), "NOT_IN_UPDATE_MODE");
    EXPECT_EQ(tool::pldm_code_name(5, 0x15, 0x91), "INVALID_TRANSFER_OPERATION_FLAG");
    EXPECT_EQ(tool::pldm_code_name(5, 0x11, 0x90), "INVALID_TRANSFER_HANDLE");
    EXPECT_EQ(tool::pldm_code_name(5, 0x15, 0xA0), "command specific");
}

TEST(ControlCommands, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::control_command_name(0x01), "Set Endpoint ID");
    EXPECT_EQ(tool::control_command_name(0x0A), "Get Routing Table Entries");
    EXPECT_EQ(tool::control_command_name(0x0D), "Discovery Notify");
    EXPECT_EQ(tool::control_command_name(0x14), "Query Supported Interfaces");
    EXPECT_EQ(tool::control_command_name(0xEE), "MCTP control command");
}

}  // namespace
