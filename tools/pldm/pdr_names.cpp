// SPDX-License-Identifier: Apache-2.0
// Names that the standards give to what stands in PDRs: record types, units, entities, state sets.
#include "tools/pldm/pdr_names.h"

#include <fmt/format.h>
#include <sideband/pldm_monitor.h>

#include <array>

#include "tools/shell/name_table.h"

namespace tool {
namespace {

struct Unit {
    const char* symbol;
    const char* name;
    bool prefix = false;
};

/// sensorUnits from 0 on.
constexpr Unit kUnits[] = {
    {"", "None"},
    {"", "Unspecified"},
    {"degC", "Degrees C"},
    {"degF", "Degrees F"},
    {"K", "Kelvins", true},
    {"V", "Volts", true},
    {"A", "Amps", true},
    {"W", "Watts", true},
    {"J", "Joules", true},
    {"C", "Coulombs", true},
    {"VA", "VA", true},
    {"nit", "Nits"},
    {"lm", "Lumens", true},
    {"lx", "Lux", true},
    {"cd", "Candelas", true},
    {"kPa", "kPa"},
    {"psi", "PSI"},
    {"N", "Newtons", true},
    {"cfm", "CFM"},
    {"rpm", "RPM"},
    {"Hz", "Hertz", true},
    {"s", "Seconds", true},
    {"min", "Minutes"},
    {"h", "Hours"},
    {"days", "Days"},
    {"weeks", "Weeks"},
    {"mil", "Mils"},
    {"in", "Inches"},
    {"ft", "Feet"},
    {"in3", "Cubic Inches"},
    {"ft3", "Cubic Feet"},
    {"m", "Meters", true},
    {"cm3", "Cubic Centimeters"},
    {"m3", "Cubic Meters"},
    {"l", "Liters", true},
    {"fl oz", "Fluid Ounces"},
    {"rad", "Radians", true},
    {"sr", "Steradians"},
    {"rev", "Revolutions"},
    {"cycles", "Cycles"},
    {"g", "Gravities"},
    {"oz", "Ounces"},
    {"lb", "Pounds"},
    {"ft lb", "Foot-Pounds"},
    {"oz in", "Ounce-Inches"},
    {"gauss", "Gauss"},
    {"Gb", "Gilberts"},
    {"H", "Henries", true},
    {"F", "Farads", true},
    {"ohm", "Ohms", true},
    {"S", "Siemens", true},
    {"mol", "Moles", true},
    {"Bq", "Becquerels", true},
    {"ppm", "PPM"},
    {"dB", "Decibels"},
    {"dBA", "DbA"},
    {"dBC", "DbC"},
    {"Gy", "Grays", true},
    {"Sv", "Sieverts", true},
    {"K (color)", "Color Temperature Degrees K"},
    {"bit", "Bits", true},
    {"byte", "Bytes", true},
    {"words", "Words"},
    {"dwords", "DoubleWords"},
    {"qwords", "QuadWords"},
    {"%", "Percentage"},
    {"Pa", "Pascals", true},
    {"counts", "Counts"},
    {"gram", "Grams", true},
    {"N m", "Newton-meters"},
    {"hits", "Hits"},
    {"misses", "Misses"},
    {"retries", "Retries"},
    {"overruns", "Overruns/Overflows"},
    {"underruns", "Underruns"},
    {"collisions", "Collisions"},
    {"packets", "Packets"},
    {"messages", "Messages"},
    {"characters", "Characters"},
    {"errors", "Errors"},
    {"corrected errors", "Corrected Errors"},
    {"uncorrectable errors", "Uncorrectable Errors"},
    {"mil2", "Square Mils"},
    {"in2", "Square Inches"},
    {"ft2", "Square Feet"},
    {"cm2", "Square Centimeters"},
    {"m2", "Square Meters"},
};

constexpr Unit kOemUnit{"OEM unit", "OEMUnit"};
constexpr Unit kNoUnit{"", "reserved"};

const Unit& find_unit(uint8_t unit) {
    constexpr uint8_t kOem = 255;
    if (unit == kOem) {
        return kOemUnit;
    }
    return unit < std::size(kUnits) ? kUnits[unit] : kNoUnit;
}

constexpr Name kEntities[] = {
    {0, "unspecified"},
    {1, "other"},
    {2, "network"},
    {3, "group"},
    {4, "remote management communication device"},
    {5, "external environment"},
    {6, "communication channel"},
    {7, "PLDM terminus"},
    {8, "platform event log"},
    {9, "device file"},
    {10, "device file directory"},
    {11, "memory rank"},
    {15, "keypad"},
    {16, "switch"},
    {17, "push button"},
    {18, "display"},
    {19, "indicator"},
    {30, "system management software"},
    {31, "system firmware"},
    {32, "operating system"},
    {33, "virtual machine manager"},
    {34, "OS loader"},
    {35, "device driver"},
    {36, "management controller firmware"},
    {37, "agent"},
    {45, "system chassis"},
    {46, "sub-chassis"},
    {47, "disk drive bay"},
    {48, "peripheral bay"},
    {49, "device bay"},
    {50, "door"},
    {51, "access panel"},
    {52, "cover"},
    {60, "board"},
    {61, "card"},
    {62, "module"},
    {63, "system management module"},
    {64, "system board"},
    {65, "memory board"},
    {66, "memory module"},
    {67, "processor module"},
    {68, "add-in card"},
    {69, "chassis front panel board"},
    {70, "back panel board"},
    {71, "power management/power distribution board"},
    {72, "power system board"},
    {73, "drive backplane"},
    {74, "system internal expansion board"},
    {75, "other system board"},
    {76, "chassis back panel board"},
    {77, "processing blade"},
    {78, "connectivity switch"},
    {79, "processor/memory module"},
    {80, "I/O module"},
    {81, "processor/I/O module"},
    {90, "cooling device"},
    {91, "cooling subsystem"},
    {92, "cooling unit/domain"},
    {93, "fan"},
    {94, "Peltier cooling device"},
    {95, "liquid cooling device"},
    {96, "liquid cooling subsystem"},
    {97, "liquid cooling input manifold"},
    {98, "liquid cooling output manifold"},
    {105, "other storage device"},
    {106, "floppy drive"},
    {107, "fixed disk/hard drive"},
    {108, "CD drive"},
    {109, "CD/DVD drive"},
    {110, "other silicon storage device"},
    {111, "solid-state drive"},
    {120, "power supply"},
    {121, "battery"},
    {122, "super capacitor"},
    {123, "power converter"},
    {124, "DC-DC converter"},
    {125, "AC mains power supply"},
    {126, "DC mains power supply"},
    {127, "voltage regulator"},
    {128, "multi-rail voltage regulator"},
    {129, "multi-rail voltage regulator channel"},
    {135, "processor"},
    {136, "chipset component"},
    {137, "management controller"},
    {138, "peripheral controller"},
    {139, "SEEPROM"},
    {140, "NVRAM chip"},
    {141, "flash memory chip"},
    {142, "memory chip"},
    {143, "memory controller"},
    {144, "network controller"},
    {145, "I/O controller"},
    {146, "south bridge"},
    {147, "real-time clock"},
    {148, "FPGA/CPLD configurable logic device"},
    {149, "accelerator"},
    {150, "TPM"},
    {151, "subprocessor/processor core"},
    {152, "GPU"},
    {153, "DPU"},
    {154, "PCIe retimer"},
    {155, "PCIe switch"},
    {160, "other bus"},
    {161, "system bus"},
    {162, "I2C bus"},
    {163, "SMBus"},
    {164, "SPI bus"},
    {165, "PCI bus"},
    {166, "PCI Express bus including CXL"},
    {167, "PECI bus"},
    {168, "LPC bus"},
    {169, "USB bus"},
    {170, "FireWire bus"},
    {171, "SCSI bus"},
    {172, "SATA/SAS bus"},
    {173, "processor front-side bus"},
    {174, "inter-processor bus"},
    {175, "inter-accelerator link"},
    {176, "I3C bus"},
    {177, "CAN bus"},
    {185, "connector"},
    {186, "slot"},
    {187, "cable"},
    {188, "interconnect"},
    {189, "plug"},
    {190, "socket"},
    {200, "RJ45"},
    {201, "XFP"},
    {202, "SFP"},
    {203, "SFP10"},
    {205, "SFP16"},
    {206, "SFP28"},
    {207, "SFP+"},
    {208, "SFP-DD"},
    {209, "CSFP"},
    {210, "QSFP"},
    {211, "QSFP28"},
    {212, "QSFP+"},
    {213, "QSFP-DD"},
    {214, "OSFP"},
    {215, "DSFP"},
    {290, "OIF ELSFP"},
    {291, "MPO"},
    {292, "MMC"},
    {299, "unknown network connector type"},
    {300, "Ethernet"},
    {301, "InfiniBand"},
    {302, "Fibre Channel"},
    {303, "Omnipath"},
    {400, "vendor specific interconnect"},
};

}  // namespace

std::string pdr_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
        {1, "Terminus Locator"},
        {2, "Numeric Sensor"},
        {3, "Numeric Sensor Initialization"},
        {4, "State Sensor"},
        {5, "State Sensor Initialization"},
        {6, "Sensor Auxiliary Names"},
        {7, "OEM Unit"},
        {8, "OEM State Set"},
        {9, "Numeric Effecter"},
        {10, "Numeric Effecter Initialization"},
        {11, "State Effecter"},
        {12, "State Effecter Initialization"},
        {13, "Effecter Auxiliary Names"},
        {14, "Effecter OEM Semantic"},
        {15, "Entity Association"},
        {16, "Entity Auxiliary Names"},
        {17, "OEM Entity ID"},
        {18, "Interrupt Association"},
        {19, "PLDM Event Log"},
        {20, "FRU Record Set"},
        {21, "Compact Numeric Sensor"},
        {22, "Redfish Resource"},
        {23, "Redfish Entity Association"},
        {24, "Redfish Action"},
        {25, "Redfish Parallel Resource"},
        {30, "File Descriptor"},
        {126, "OEM Device"},
        {127, "OEM"},
    };
    return find_name(kNames, type, "reserved");
}

std::string unit_symbol(uint8_t unit) {
    return find_unit(unit).symbol;
}

std::string unit_name(uint8_t unit) {
    return find_unit(unit).name;
}

bool takes_prefix(uint8_t unit) {
    return find_unit(unit).prefix;
}

std::string si_prefix(int8_t unit_modifier) {
    static constexpr std::array<const char*, 9> kPrefixes{"p", "n", "u", "m", "",
                                                          "k", "M", "G", "T"};
    constexpr int kStep = 3;
    constexpr int kFirst = -12;
    const int place = (unit_modifier - kFirst) / kStep;
    const bool there = unit_modifier >= kFirst && unit_modifier % kStep == 0 &&
                       place < static_cast<int>(kPrefixes.size());
    return there ? kPrefixes.at(static_cast<size_t>(place)) : "";
}

std::string rate_symbol(uint8_t rate_unit) {
    static constexpr Name kNames[] = {
        {1, "/us"},  {2, "/ms"},   {3, "/s"},     {4, "/min"},  {5, "/h"},
        {6, "/day"}, {7, "/week"}, {8, "/month"}, {9, "/year"},
    };
    return find_name(kNames, rate_unit, "");
}

std::string data_size_name(uint8_t code) {
    static constexpr Name kNames[] = {
        {PLDM_DATA_SIZE_UINT8, "uint8"},   {PLDM_DATA_SIZE_SINT8, "sint8"},
        {PLDM_DATA_SIZE_UINT16, "uint16"}, {PLDM_DATA_SIZE_SINT16, "sint16"},
        {PLDM_DATA_SIZE_UINT32, "uint32"}, {PLDM_DATA_SIZE_SINT32, "sint32"},
        {PLDM_DATA_SIZE_REAL32, "real32"},
    };
    return find_name(kNames, code, "reserved");
}

std::string sensor_init_name(uint8_t init) {
    static constexpr Name kNames[] = {
        {0, "noInit"}, {1, "useInitPDR"}, {2, "enableSensor"}, {3, "disableSensor"}};
    return find_name(kNames, init, "reserved");
}

std::string entity_type_name(uint16_t type) {
    constexpr uint16_t kLogical = 0x8000;
    constexpr uint16_t kFirstOemType = 0x6000;
    const auto id = static_cast<uint16_t>(type & ~kLogical);
    const std::string name = find_name(kEntities, id, "");
    return ((type & kLogical) != 0 ? "logical " : "") +
           (name.empty() ? fmt::format("{}entity type {}", id >= kFirstOemType ? "OEM " : "", id)
                         : name);
}

std::string entity_text(uint16_t type, uint16_t instance) {
    const std::string name = entity_type_name(type);
    const bool ends_in_number = name.back() >= '0' && name.back() <= '9';
    return fmt::format("{}{} {}", name, ends_in_number ? "," : "", instance);
}

}  // namespace tool
