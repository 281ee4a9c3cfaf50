// SPDX-License-Identifier: Apache-2.0
// Names that NVMe and NVMe-MI give to status values, commands and features.
#include "tools/nvme/codes.h"

#include "tools/shell/name_table.h"

namespace tool {
namespace {

constexpr uint8_t kFirstVendorCode = 0xC0;

constexpr Name kNvmeGenericCodes[] = {
    {0x00, "Successful Completion"},
    {0x01, "Invalid Command Opcode"},
    {0x02, "Invalid Field in Command"},
    {0x03, "Command ID Conflict"},
    {0x04, "Data Transfer Error"},
    {0x05, "Commands Aborted due to Power Loss Notification"},
    {0x06, "Internal Error"},
    {0x07, "Command Abort Requested"},
    {0x08, "Command Aborted due to SQ Deletion"},
    {0x09, "Command Aborted due to Failed Fused Command"},
    {0x0A, "Command Aborted due to Missing Fused Command"},
    {0x0B, "Invalid Namespace or Format"},
    {0x0C, "Command Sequence Error"},
    {0x0D, "Invalid SGL Segment Descriptor"},
    {0x0E, "Invalid Number of SGL Descriptors"},
    {0x0F, "Data SGL Length Invalid"},
    {0x10, "Metadata SGL Length Invalid"},
    {0x11, "SGL Descriptor Type Invalid"},
    {0x12, "Invalid Use of Controller Memory Buffer"},
    {0x13, "PRP Offset Invalid"},
    {0x14, "Atomic Write Unit Exceeded"},
    {0x15, "Operation Denied"},
    {0x16, "SGL Offset Invalid"},
    {0x18, "Host Identifier Inconsistent Format"},
    {0x19, "Keep Alive Timer Expired"},
    {0x1A, "Keep Alive Timeout Invalid"},
    {0x1B, "Command Aborted due to Preempt and Abort"},
    {0x1C, "Sanitize Failed"},
    {0x1D, "Sanitize In Progress"},
    {0x1E, "SGL Data Block Granularity Invalid"},
    {0x1F, "Command Not Supported for Queue in CMB"},
    {0x20, "Namespace is Write Protected"},
    {0x21, "Command Interrupted"},
    {0x22, "Transient Transport Error"},
    {0x23, "Command Prohibited by Command and Feature Lockdown"},
    {0x24, "Admin Command Media Not Ready"},
    {0x25, "Invalid Key Tag"},
    {0x26, "Host Dispersed Namespace Support Not Enabled"},
    {0x27, "Host Identifier Not Initialized"},
    {0x28, "Incorrect Key"},
    {0x29, "FDP Disabled"},
    {0x2A, "Invalid Placement Handle List"},
    {0x80, "LBA Out of Range"},
    {0x81, "Capacity Exceeded"},
    {0x82, "Namespace Not Ready"},
    {0x83, "Reservation Conflict"},
    {0x84, "Format In Progress"},
    {0x85, "Invalid Value Size"},
    {0x86, "Invalid Key Size"},
    {0x87, "KV Key Does Not Exist"},
    {0x88, "Unrecovered Error"},
    {0x89, "Key Exists"},
};

constexpr Name kNvmeCommandCodes[] = {
    {0x00, "Completion Queue Invalid"},
    {0x01, "Invalid Queue Identifier"},
    {0x02, "Invalid Queue Size"},
    {0x03, "Abort Command Limit Exceeded"},
    {0x04, "Abort Command Is Missing"},
    {0x05, "Asynchronous Event Request Limit Exceeded"},
    {0x06, "Invalid Firmware Slot"},
    {0x07, "Invalid Firmware Image"},
    {0x08, "Invalid Interrupt Vector"},
    {0x09, "Invalid Log Page"},
    {0x0A, "Invalid Format"},
    {0x0B, "Firmware Activation Requires Conventional Reset"},
    {0x0C, "Invalid Queue Deletion"},
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
    {0x29, "I/O Command Set Not Supported"},
    {0x2A, "I/O Command Set Not Enabled"},
    {0x2B, "I/O Command Set Combination Rejected"},
    {0x2C, "Invalid I/O Command Set"},
    {0x2D, "Identifier Unavailable"},
    {0x2F, "Invalid Discovery Information"},
    {0x30, "Zoning Data Structure Locked"},
    {0x31, "Zoning Data Structure Not Found"},
    {0x32, "Insufficient Discovery Resources"},
    {0x33, "Requested Function Disabled"},
    {0x34, "ZoneGroup Originator Invalid"},
    {0x37, "Invalid Controller Data Queue"},
    {0x38, "Not Enough Resources"},
    {0x39, "Controller Suspended"},
    {0x3A, "Controller Not Suspended"},
    {0x3B, "Controller Data Queue Full"},
};

constexpr Name kNvmeMediaCodes[] = {
    {0x80, "Write Fault"},
    {0x81, "Unrecovered Read Error"},
    {0x82, "End-to-end Guard Check Error"},
    {0x83, "End-to-end Application Tag Check Error"},
    {0x84, "End-to-end Reference Tag Check Error"},
    {0x85, "Compare Failure"},
    {0x86, "Access Denied"},
    {0x87, "Deallocated or Unwritten Logical Block"},
    {0x88, "End-to-End Storage Tag Check Error"},
};

constexpr Name kNvmePathCodes[] = {
    {0x00, "Internal Path Error"},
    {0x01, "Asymmetric Access Persistent Loss"},
    {0x02, "Asymmetric Access Inaccessible"},
    {0x03, "Asymmetric Access Transition"},
    {0x60, "Controller Pathing Error"},
    {0x70, "Host Pathing Error"},
    {0x71, "Command Aborted By Host"},
};

constexpr Name kAdminCommands[] = {
    {0x00, "Delete I/O Submission Queue"},
    {0x01, "Create I/O Submission Queue"},
    {0x02, "Get Log Page"},
    {0x04, "Delete I/O Completion Queue"},
    {0x05, "Create I/O Completion Queue"},
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
    {0x1D, "NVMe-MI Send"},
    {0x1E, "NVMe-MI Receive"},
    {0x20, "Capacity Management"},
    {0x21, "Discovery Information Management"},
    {0x22, "Fabric Zoning Receive"},
    {0x24, "Lockdown"},
    {0x25, "Fabric Zoning Lookup"},
    {0x28, "Clear Exported NVM Resource Configuration"},
    {0x29, "Fabric Zoning Send"},
    {0x2A, "Create Exported NVM Subsystem"},
    {0x2D, "Manage Exported NVM Subsystem"},
    {0x31, "Manage Exported Namespace"},
    {0x35, "Manage Exported Port"},
    {0x39, "Send Discovery Log Page"},
    {0x3D, "Track Send"},
    {0x3E, "Track Receive"},
    {0x41, "Migration Send"},
    {0x42, "Migration Receive"},
    {0x45, "Controller Data Queue"},
    {0x7C, "Doorbell Buffer Config"},
    {0x7F, "Fabrics Commands"},
    {0x80, "Format NVM"},
    {0x81, "Security Send"},
    {0x82, "Security Receive"},
    {0x84, "Sanitize"},
    {0x85, "Load Program"},
    {0x86, "Get LBA Status"},
    {0x88, "Program Activation Management"},
    {0x89, "Memory Range Set Management"},
};

constexpr Name kFeatures[] = {
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
    {0x15, "LBA Status Information Report Interval"},
    {0x16, "Host Behavior Support"},
    {0x17, "Sanitize Config"},
    {0x18, "Endurance Group Event Configuration"},
    {0x19, "I/O Command Set Profile"},
    {0x1A, "Spinup Control"},
    {0x1B, "Power Loss Signaling Config"},
    {0x1C, "Performance Characteristics"},
    {0x1D, "Flexible Data Placement"},
    {0x1E, "Flexible Data Placement Events"},
    {0x1F, "Namespace Admin Label"},
    {0x20, "Key Value Configuration"},
    {0x21, "Controller Data Queue"},
    {0x78, "Embedded Management Controller Address"},
    {0x79, "Host Management Agent Address"},
    {0x7D, "Enhanced Controller Metadata"},
    {0x7E, "Controller Metadata"},
    {0x7F, "Namespace Metadata"},
    {0x80, "Software Progress Marker"},
    {0x81, "Host Identifier"},
    {0x82, "Reservation Notification Mask"},
    {0x83, "Reservation Persistence"},
    {0x84, "Namespace Write Protection Config"},
    {0x85, "Boot Partition Write Protection Config"},
};

}  // namespace

std::string nvmemi_status_name(uint8_t status) {
    constexpr uint8_t kFirstVendorStatus = 0xE0;
    static constexpr Name kNames[] = {
        {0x00, "Success"},
        {0x01, "More Processing Required"},
        {0x02, "Internal Error"},
        {0x03, "Invalid Command Opcode"},
        {0x04, "Invalid Parameter"},
        {0x05, "Invalid Command Size"},
        {0x06, "Invalid Command Input Data Size"},
        {0x07, "Access Denied"},
        {0x08, "Unable to Abort"},
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
    return find_name(kNames, status, status >= kFirstVendorStatus ? "vendor specific" : "reserved");
}

std::string nvme_status_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
        {0, "Generic Command Status"},
        {1, "Command Specific Status"},
        {2, "Media and Data Integrity Errors"},
        {3, "Path Related Status"},
        {7, "Vendor Specific"},
    };
    return find_name(kNames, type, "reserved");
}

std::string nvme_status_name(uint8_t type, uint8_t code) {
    constexpr uint8_t kVendorType = 7;
    static constexpr std::span<const Name> kTypes[] = {kNvmeGenericCodes, kNvmeCommandCodes,
                                                       kNvmeMediaCodes, kNvmePathCodes};
    const bool vendor = type == kVendorType || code >= kFirstVendorCode;
    const char* otherwise = vendor ? "vendor specific" : "reserved";
    return type < std::size(kTypes) ? find_name(kTypes[type], code, otherwise) : otherwise;
}

std::string nvmemi_frequency_name(uint8_t frequency) {
    static constexpr Name kNames[] = {{1, "100 kHz"}, {2, "400 kHz"}, {3, "1 MHz"}};
    return find_name(kNames, frequency, frequency == 0 ? "-" : "reserved");
}

std::string nvmemi_command_name(uint8_t opcode) {
    static constexpr Name kNames[] = {
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
    return find_name(kNames, opcode, opcode >= kFirstVendorCode ? "vendor specific" : "reserved");
}

std::string nvme_admin_command_name(uint8_t opcode) {
    return find_name(kAdminCommands, opcode,
                     opcode >= kFirstVendorCode ? "vendor specific" : "reserved");
}

std::string nvme_feature_name(uint8_t feature) {
    return find_name(kFeatures, feature,
                     feature >= kFirstVendorCode ? "vendor specific" : "reserved");
}

}  // namespace tool
