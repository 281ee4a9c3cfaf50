// SPDX-License-Identifier: Apache-2.0
// Tests of the names that the tool gives to the standards' codes.
#include "tools/shell/codes.h"

#include <gtest/gtest.h>

#include "tools/pldm/pdr_names.h"

namespace {

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
    EXPECT_EQ(tool::pldm_firmware_command_name(0x15), "RequestFirmwareData");
    EXPECT_EQ(tool::pldm_firmware_command_name(0x40), "unknown");
}

TEST(MessageTypes, AreNamedWithoutTheIntegrityCheckBit) {
    EXPECT_EQ(tool::message_type_name(0x00), "control");
    EXPECT_EQ(tool::message_type_name(0x01), "pldm");
    EXPECT_EQ(tool::message_type_name(0x02), "ncsi");
    EXPECT_EQ(tool::message_type_name(0x84), "nvme-mi");
    EXPECT_EQ(tool::message_type_name(0x7E), "vendor-pci");
    EXPECT_EQ(tool::message_type_name(0x60), "unknown");
}

TEST(ControlCommands, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::control_command_name(0x01), "Set Endpoint ID");
    EXPECT_EQ(tool::control_command_name(0x0A), "Get Routing Table Entries");
    EXPECT_EQ(tool::control_command_name(0x0D), "Discovery Notify");
    EXPECT_EQ(tool::control_command_name(0x14), "Query Supported Interfaces");
    EXPECT_EQ(tool::control_command_name(0xEE), "MCTP control command");
}

TEST(States, AreNamedWhereTheSetIsKnown) {
    EXPECT_EQ(tool::state_name(1, 3), "Critical");
    EXPECT_EQ(tool::state_name(13, 1), "Present");
    EXPECT_EQ(tool::state_name(21, 2), "Thermal Trip");
    EXPECT_EQ(tool::state_name(33, 2), "Disconnected");
    EXPECT_EQ(tool::state_name(15, 4), "Missing Configuration");
    EXPECT_EQ(tool::state_name(20, 2), "Initialization In Progress");
    EXPECT_EQ(tool::state_name(1, 99), "");
    EXPECT_EQ(tool::state_name(999, 1), "");
    EXPECT_EQ(tool::operational_state_name(0), "enabled");
    EXPECT_EQ(tool::operational_state_name(7), "inTest");
    EXPECT_EQ(tool::numeric_state_name(10), "UpperFatal");
    EXPECT_EQ(tool::numeric_state_name(11), "reserved");
}

TEST(StateSets, AreNamedByTheLibraryFirst) {
    EXPECT_EQ(tool::state_set_name(1), "HEALTH_STATE");
    EXPECT_EQ(tool::state_set_name(4), "Redundancy Status");
    EXPECT_EQ(tool::state_set_name(22), "Leak Detection");
    EXPECT_EQ(tool::state_set_name(32), "Heartbeat");
    EXPECT_EQ(tool::state_set_name(34), "state set 34");
    EXPECT_EQ(tool::state_set_name(0x8001), "OEM state set 32769");
}

TEST(Entities, AreNamedWithWhatTheyAre) {
    EXPECT_EQ(tool::entity_type_name(93), "fan");
    EXPECT_EQ(tool::entity_type_name(0x8000 | 152), "logical GPU");
    EXPECT_EQ(tool::entity_type_name(250), "entity type 250");
    EXPECT_EQ(tool::entity_text(200, 1), "RJ45, 1");
    EXPECT_EQ(tool::entity_text(0x6001, 2), "OEM entity type 24577, 2");
}

TEST(PldmTypes, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::pldm_type_name(0), "Messaging Control and Discovery");
    EXPECT_EQ(tool::pldm_type_name(5), "Firmware Update");
    EXPECT_EQ(tool::pldm_type_name(40), "reserved");
    EXPECT_EQ(tool::pldm_base_command_name(5), "GetPLDMCommands");
    EXPECT_EQ(tool::pldm_base_command_name(0x40), "unknown");
}

}  // namespace
