// SPDX-License-Identifier: Apache-2.0
// Names that DSP0249 gives to state sets and to their states.
#include <fmt/format.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>

#include "tools/pldm/pdr_names.h"
#include "tools/shell/name_table.h"

namespace tool {
namespace {

// The published lists contradict one another on 239 to 246: those stay numbers.
constexpr Name kStateSets[] = {
    {1, "Health State"},
    {2, "Availability"},
    {3, "Predictive Condition"},
    {4, "Redundancy Status"},
    {5, "Health/Redundancy Trend"},
    {6, "Group Resource Level"},
    {7, "Redundancy Entity Role"},
    {8, "Operational Status"},
    {9, "Operational Stress Status"},
    {10, "Operational Fault Status"},
    {11, "Operational Running Status"},
    {12, "Operational Connection Status"},
    {13, "Presence"},
    {14, "Performance"},
    {15, "Configuration State"},
    {16, "Changed Configuration"},
    {17, "Identify State"},
    {18, "Version"},
    {19, "Alarm State"},
    {20, "Device Initialization"},
    {21, "Thermal Trip"},
    {22, "Leak Detection"},
    {32, "Heartbeat"},
    {33, "Link State"},
    {64, "Smoke State"},
    {65, "Humidity State"},
    {66, "Door State"},
    {67, "Switch State"},
    {68, "Device File"},
    {96, "Lock State"},
    {97, "Physical Security"},
    {98, "Dock Authorization"},
    {99, "Hardware Security"},
    {100, "Physical Communication Connection"},
    {101, "Communication Leash Status"},
    {102, "Foreign Network Detection Status"},
    {103, "Password-Protected Access Security"},
    {104, "Security Access/Privilege Level"},
    {105, "Session Audit"},
    {106, "Supply Voltage Glitch Detection Sensor"},
    {107, "Clock Glitch Detection Sensor"},
    {108, "Signal Glitch Detection Sensor"},
    {109, "Temperature Glitch Detection Sensor"},
    {110, "Supply Voltage Glitch Detection Configurable Sensor"},
    {111, "Clock Glitch Detection Configurable Sensor"},
    {112, "Signal Glitch Detection Configurable Sensor"},
    {113, "Temperature Glitch Detection Configurable Sensor"},
    {129, "Software Termination Status"},
    {160, "Storage Media Activity"},
    {192, "Boot/Restart Cause"},
    {193, "Boot/Restart Request"},
    {194, "Entity Boot Status"},
    {195, "Boot Error Status"},
    {196, "Boot Progress"},
    {197, "System Firmware Hang"},
    {198, "POST Errors"},
    {199, "Embedded Processor OS States"},
    {225, "Log Fill Status"},
    {226, "Log Filter Status"},
    {227, "Log Timestamp Change"},
    {228, "Interrupt Requested"},
    {229, "Interrupt Received"},
    {230, "Diagnostic Interrupt Requested"},
    {231, "Diagnostic Interrupt Received"},
    {232, "I/O Channel Check NMI Requested"},
    {233, "I/O Channel Check NMI Received"},
    {234, "Fatal NMI Requested"},
    {235, "Fatal NMI Received"},
    {236, "Software NMI Requested"},
    {237, "Software NMI Received"},
    {238, "SMI Requested"},
    {256, "Power Supply State"},
    {257, "Device Power State"},
    {258, "ACPI Power State"},
    {259, "Backup Power Source"},
    {260, "System Power State"},
    {261, "Battery Activity"},
    {262, "Battery State"},
    {288, "Processor Power State"},
    {289, "Power-Performance State"},
    {290, "Processor Error Status"},
    {291, "BIST Failure Status"},
    {292, "IBIST Failure Status"},
    {293, "Processor Hang in POST"},
    {294, "Processor Startup Failure"},
    {295, "Uncorrectable CPU Error"},
    {296, "Machine Check Error"},
    {297, "Corrected Machine Check"},
    {320, "Cache Status"},
    {321, "Memory Error Status"},
    {322, "Redundant Memory Activity Status"},
    {330, "Error Detection Status"},
    {331, "Stuck Bit Status"},
    {332, "Scrub Status"},
    {352, "Slot Occupancy"},
    {353, "Slot State"},
};

constexpr Name kHealthState[] = {
    {1, "Normal"},         {2, "Non-Critical"},       {3, "Critical"},
    {4, "Fatal"},          {5, "Upper Non-Critical"}, {6, "Lower Non-Critical"},
    {7, "Upper Critical"}, {8, "Lower Critical"},     {9, "Upper Fatal"},
    {10, "Lower Fatal"},
};

constexpr Name kAvailability[] = {
    {1, "Enabled"},   {2, "Disabled"},       {3, "Shutdown"},       {4, "Offline"},
    {5, "In Test"},   {6, "Deferred"},       {7, "Quiescent"},      {8, "Rebooting"},
    {9, "Resetting"}, {10, "Failed"},        {11, "Not Installed"}, {12, "Power Save Mode"},
    {13, "Paused"},   {14, "Shutting Down"}, {15, "Starting"},      {16, "Not Responding"},
};

constexpr Name kPredictiveCondition[] = {
    {1, "Normal"},
    {2, "Predictive Failure"},
};

constexpr Name kOperationalStress[] = {
    {1, "Normal"},
    {2, "Stressed"},
};

constexpr Name kOperationalFault[] = {
    {1, "Normal"},
    {2, "Error"},
    {3, "Non Recoverable Error"},
};

constexpr Name kRunningStatus[] = {
    {1, "Starting"},   {2, "Stopping"}, {3, "Stopped"},
    {4, "In Service"}, {5, "Aborted"},  {6, "Dormant"},
};

constexpr Name kPresence[] = {
    {1, "Present"},
    {2, "Not Present"},
};

constexpr Name kPerformance[] = {
    {1, "Normal"},
    {2, "Throttled"},
    {3, "Degraded"},
};

constexpr Name kConfigurationState[] = {
    {1, "Valid Configuration"},
    {2, "Invalid Configuration"},
    {3, "Not Configured"},
    {4, "Missing Configuration"},
};

constexpr Name kChangedConfiguration[] = {
    {1, "Normal"},
    {2, "Configuration Change Detected"},
};

constexpr Name kIdentify[] = {
    {1, "Unasserted"},
    {2, "Asserted"},
};

constexpr Name kVersion[] = {
    {1, "Normal"},
    {2, "Version Change Detected - Compatible"},
    {3, "Version Change Detected - Incompatible"},
    {4, "Version Change Pending"},
};

constexpr Name kInitialization[] = {
    {1, "Normal"},
    {2, "Initialization In Progress"},
    {3, "Initialization Hung"},
    {4, "Initialization Failed"},
};

constexpr Name kThermalTrip[] = {
    {1, "Normal"},
    {2, "Thermal Trip"},
};

constexpr Name kLinkState[] = {
    {1, "Connected"},
    {2, "Disconnected"},
};

constexpr Name kHardwareSecurity[] = {
    {1, "Verified"},
    {2, "Unverified"},
};

constexpr Name kCommunicationLeash[] = {
    {1, "Leash Connected"},
    {2, "Leash Disconnected"},
};

constexpr Name kSoftwareTermination[] = {
    {1, "Normal"},
    {2, "Software Termination Detected"},
    {3, "Critical Stop during Load/Initialization"},
    {4, "Run-time Critical Stop"},
    {5, "Graceful Shutdown Requested"},
    {6, "Graceful Restart Requested"},
    {7, "Graceful Shutdown"},
    {8, "Termination Request Failed"},
};

constexpr Name kBootCause[] = {
    {1, "Powered Up"},        {2, "Hard Reset"},        {3, "Warm Reset"},
    {4, "Manual Hard Reset"}, {5, "Manual Warm Reset"}, {6, "System Restart"},
    {7, "Watchdog Timeout"},
};

constexpr Name kBootProgress[] = {
    {1, "Not Active"},
    {2, "Completed"},
    {3, "Memory Initialization"},
    {4, "Hard-Disk Initialization"},
    {5, "Secondary Processor(s) Initialization"},
    {6, "User Authentication"},
    {7, "User-Initiated System Setup"},
    {8, "USB Resource Configuration"},
    {9, "PCI Resource Configuration"},
    {10, "Option Rom Initialization"},
    {11, "Video Initialization"},
    {12, "Cache Initialization"},
    {13, "SMBus Initialization"},
    {14, "Keyboard Controller Initialization"},
    {15, "Embedded Controller / Management Controller Initialization"},
    {16, "Docking Station Attachment"},
    {17, "Enabling Docking Station"},
    {18, "Docking Station Ejection"},
    {19, "Disabling Docking Station"},
    {20, "Calling Operating System Wake-up Vector / OS Start"},
    {21, "Starting Operating System Boot Process"},
    {22, "Baseboard or Motherboard Initialization"},
    {23, "Floppy Initialization"},
    {24, "Keyboard Test"},
    {25, "Pointing Device Test"},
    {26, "Primary Processor Initialization"},
};

constexpr Name kDevicePowerState[] = {
    {0, "Unknown"}, {1, "Fully On"}, {2, "Intermediate 1"}, {3, "Intermediate 2"}, {4, "Off"},
};

constexpr Name kAcpiPowerState[] = {
    {1, "S0"}, {2, "S1"}, {3, "S2"}, {4, "S3"}, {5, "S4"}, {6, "S5"}, {7, "G3"},
};

constexpr Name kSystemPowerState[] = {
    {1, "On"},
    {2, "Hibernate"},
    {3, "Sleep - Light"},
    {4, "Sleep - Deep"},
    {5, "Power Cycle - Off Soft"},
    {6, "Power Cycle - Off Hard"},
    {7, "Power Cycle - Off Soft Graceful"},
    {8, "Power Cycle - Off Hard Graceful"},
    {9, "Off - Soft Graceful"},
    {10, "Off - Hard Graceful"},
    {11, "Master Bus Reset"},
    {12, "Master Bus Reset Graceful"},
    {13, "NMI"},
};

constexpr struct {
    uint16_t id;
    std::span<const Name> states;
} kStatesOfSets[] = {
    {1, kHealthState},
    {2, kAvailability},
    {3, kPredictiveCondition},
    {9, kOperationalStress},
    {10, kOperationalFault},
    {11, kRunningStatus},
    {13, kPresence},
    {14, kPerformance},
    {15, kConfigurationState},
    {16, kChangedConfiguration},
    {17, kIdentify},
    {18, kVersion},
    {20, kInitialization},
    {21, kThermalTrip},
    {33, kLinkState},
    {99, kHardwareSecurity},
    {101, kCommunicationLeash},
    {129, kSoftwareTermination},
    {192, kBootCause},
    {196, kBootProgress},
    {257, kDevicePowerState},
    {258, kAcpiPowerState},
    {260, kSystemPowerState},
};

}  // namespace

std::string state_set_name(uint16_t id) {
    constexpr uint16_t kFirstOemSet = 0x8000;
    char own[PLDM_STATE_SET_NAME_SIZE];
    lookup_state_set_string(id, own);
    if (own[0] != '\0') {
        return own;
    }
    const std::string name = find_name(kStateSets, id, "");
    return name.empty() ? fmt::format("{}state set {}", id >= kFirstOemSet ? "OEM " : "", id)
                        : name;
}

std::string state_name(uint16_t state_set, uint8_t state) {
    const auto* const set =
        std::find_if(std::begin(kStatesOfSets), std::end(kStatesOfSets),
                     [state_set](const auto& one) { return one.id == state_set; });
    return set == std::end(kStatesOfSets) ? "" : find_name(set->states, state, "");
}

}  // namespace tool
