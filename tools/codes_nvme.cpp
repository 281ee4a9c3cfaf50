// SPDX-License-Identifier: Apache-2.0
// Names that NVMe and NVMe-MI give to status values, commands and features.
#include "tools/codes.h"
#include "tools/name_table.h"

namespace tool {
namespace {

constexpr uint8_t first_vendor_code = 0xC0;

constexpr Name nvme_generic_codes[] = {
    {0x00, "Successful Completion"},
    {0x01, "Invalid Command Opcode"},
    {0x02, "Invalid Field in Command"},
    {0x03, "Command ID Conflict"},
    {0x04, "Data Transfer Error"},
    {0x05, "Commands Aborted due to Power Loss Notification"},
    {0x06, "Internal Error"},
    {0x07, "Command Abort Requested"},
    {0x08, "Command Aborted due to SQ Deletion"},
    {0x0B, "Invalid Namespace or Format"},
    {0x0C, "Command Sequence Error"},
    {0x15, "Operation Denied"},
    {0x1C, "Sanitize Failed"},
    {0x1D, "Sanitize In Progress"},
    {0x20, "Namespace is Write Protected"},
    {0x21, "Command Interrupted"},
    {0x22, "Transient Transport Error"},
    {0x23, "Command Prohibited by Command and Feature Lockdown"},
    {0x24, "Admin Command Media Not Ready"},
    {0x80, "LBA Out of Range"},
    {0x81, "Capacity Exceeded"},
    {0x82, "Namespace Not Ready"},
    {0x83, "Reservation Conflict"},
    {0x84, "Format In Progress"},
};

constexpr Name nvme_command_codes[] = {
    {0x03, "Abort Command Limit Exceeded"},
    {0x05, "Asynchronous Event Request Limit Exceeded"},
    {0x06, "Invalid Firmware Slot"},
    {0x07, "Invalid Firmware Image"},
    {0x09, "Invalid Log Page"},
    {0x0A, "Invalid Format"},
    {0x0B, "Firmware Activation Requires Conventional Reset"},
    {0x0D, "Feature Identifier Not Saveable"},
    {0x0E, "Feature Not Changeable"},
    {0x0F, "Feature Not Namespace Specific"},
    {0x10, "Firmware Activation Requires NVM Subsystem Reset"},
    {0x11, "Firmware Activation Requires Controller Level Reset"},
    {0x12, "Firmware Activation Requires Maximum Time Violation"},
    {0x13, "Firmware Activation Prohibited"},
    {0x14, "Overlapping Range"},
    {0x15, "Namespace Insufficient Capacity"},
    {0x16, "Namespace Identifier Unavailable"},
    {0x18, "Namespace Already Attached"},
    {0x19, "Namespace Is Private"},
    {0x1A, "Namespace Not Attached"},
    {0x1B, "Thin Provisioning Not Supported"},
    {0x1C, "Controller List Invalid"},
    {0x1D, "Device Self-test In Progress"},
    {0x1E, "Boot Partition Write Prohibited"},
    {0x1F, "Invalid Controller Identifier"},
    {0x20, "Invalid Secondary Controller State"},
    {0x21, "Invalid Number of Controller Resources"},
    {0x22, "Invalid Resource Identifier"},
    {0x23, "Sanitize Prohibited While Persistent Memory Region is Enabled"},
    {0x24, "ANA Group Identifier Invalid"},
    {0x25, "ANA Attach Failed"},
    {0x26, "Insufficient Capacity"},
    {0x27, "Namespace Attachment Limit Exceeded"},
    {0x28, "Prohibition of Command Execution Not Supported"},
};

constexpr Name nvme_media_codes[] = {
    {0x80, "Write Fault"},
    {0x81, "Unrecovered Read Error"},
    {0x82, "End-to-end Guard Check Error"},
    {0x83, "End-to-end Application Tag Check Error"},
    {0x84, "End-to-end Reference Tag Check Error"},
    {0x85, "Compare Failure"},
    {0x86, "Access Denied"},
    {0x87, "Deallocated or Unwritten Logical Block"},
};

}  // namespace

std::string nvmemi_status_name(uint8_t status) {
    constexpr uint8_t first_vendor_status = 0xE0;
    static constexpr Name names[] = {
        {0x00, "Success"},
        {0x01, "More Processing Required"},
        {0x02, "Internal Error"},
        {0x03, "Invalid Command Opcode"},
        {0x04, "Invalid Parameter"},
        {0x05, "Invalid Command Size"},
        {0x06, "Invalid Command Input Data Size"},
        {0x07, "Access Denied"},
        {0x20, "VPD Updates Exceeded"},
        {0x21, "PCIe Inaccessible"},
        {0x22, "Management Endpoint Buffer Cleared Due to Sanitize"},
        {0x23, "Enclosure Services Failure"},
        {0x24, "Enclosure Services Transfer Failure"},
        {0x25, "Enclosure Failure"},
        {0x26, "Enclosure Services Transfer Refused"},
        {0x27, "Unsupported Enclosure Function"},
        {0x28, "Enclosure Services Unavailable"},
        {0x29, "Enclosure Degraded"},
        {0x2A, "Sanitize In Progress"},
    };
    return find_name(names, status, status >= first_vendor_status ? "vendor specific" : "reserved");
}

std::string nvme_status_type_name(uint8_t type) {
    static constexpr Name names[] = {
        {0, "Generic Command Status"},
        {1, "Command Specific Status"},
        {2, "Media and Data Integrity Errors"},
        {3, "Path Related Status"},
        {7, "Vendor Specific"},
    };
    return find_name(names, type, "reserved");
}

std::string nvme_status_name(uint8_t type, uint8_t code) {
    constexpr uint8_t vendor_type = 7;
    static constexpr std::span<const Name> types[] = {nvme_generic_codes, nvme_command_codes,
                                                      nvme_media_codes};
    const bool vendor = type == vendor_type || code >= first_vendor_code;
    const char* otherwise = vendor ? "vendor specific" : "reserved";
    return type < std::size(types) ? find_name(types[type], code, otherwise) : otherwise;
}

std::string nvmemi_command_name(uint8_t opcode) {
    static constexpr Name names[] = {
        {0x00, "Read NVMe-MI Data Structure"},
        {0x01, "NVM Subsystem Health Status Poll"},
        {0x02, "Controller Health Status Poll"},
        {0x03, "Configuration Set"},
        {0x04, "Configuration Get"},
        {0x05, "VPD Read"},
        {0x06, "VPD Write"},
        {0x07, "Reset"},
        {0x08, "SES Receive"},
        {0x09, "SES Send"},
        {0x0A, "Management Endpoint Buffer Read"},
        {0x0B, "Management Endpoint Buffer Write"},
        {0x0C, "Shutdown"},
    };
    return find_name(names, opcode, opcode >= first_vendor_code ? "vendor specific" : "reserved");
}

std::string nvme_admin_command_name(uint8_t opcode) {
    static constexpr Name names[] = {
        {0x02, "Get Log Page"},
        {0x06, "Identify"},
        {0x08, "Abort"},
        {0x09, "Set Features"},
        {0x0A, "Get Features"},
        {0x0C, "Asynchronous Event Request"},
        {0x0D, "Namespace Management"},
        {0x10, "Firmware Commit"},
        {0x11, "Firmware Image Download"},
        {0x14, "Device Self-test"},
        {0x15, "Namespace Attachment"},
        {0x18, "Keep Alive"},
        {0x19, "Directive Send"},
        {0x1A, "Directive Receive"},
        {0x1C, "Virtualization Management"},
        {0x20, "Capacity Management"},
        {0x24, "Lockdown"},
        {0x80, "Format NVM"},
        {0x81, "Security Send"},
        {0x82, "Security Receive"},
        {0x84, "Sanitize"},
        {0x86, "Get LBA Status"},
    };
    return find_name(names, opcode, opcode >= first_vendor_code ? "vendor specific" : "reserved");
}

std::string nvme_feature_name(uint8_t feature) {
    static constexpr Name names[] = {
        {0x01, "Arbitration"},
        {0x02, "Power Management"},
        {0x03, "LBA Range Type"},
        {0x04, "Temperature Threshold"},
        {0x05, "Error Recovery"},
        {0x06, "Volatile Write Cache"},
        {0x07, "Number of Queues"},
        {0x08, "Interrupt Coalescing"},
        {0x09, "Interrupt Vector Configuration"},
        {0x0A, "Write Atomicity Normal"},
        {0x0B, "Asynchronous Event Configuration"},
        {0x0C, "Autonomous Power State Transition"},
        {0x0D, "Host Memory Buffer"},
        {0x0E, "Timestamp"},
        {0x0F, "Keep Alive Timer"},
        {0x10, "Host Controlled Thermal Management"},
        {0x11, "Non-Operational Power State Config"},
        {0x12, "Read Recovery Level Config"},
        {0x13, "Predictable Latency Mode Config"},
        {0x14, "Predictable Latency Mode Window"},
        {0x16, "Host Behavior Support"},
        {0x17, "Sanitize Config"},
        {0x18, "Endurance Group Event Configuration"},
        {0x80, "Software Progress Marker"},
        {0x81, "Host Identifier"},
        {0x82, "Reservation Notification Mask"},
        {0x83, "Reservation Persistence"},
        {0x84, "Namespace Write Protection Config"},
    };
    return find_name(names, feature, feature >= first_vendor_code ? "vendor specific" : "reserved");
}

}  // namespace tool
