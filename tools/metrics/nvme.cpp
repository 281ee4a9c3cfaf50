// SPDX-License-Identifier: Apache-2.0
// What an NVMe drive has in figures: its health, its SMART log page, the version of its firmware.
#include <fmt/format.h>

#include <cstdlib>
#include <string_view>

#include "tools/metrics/scrape.h"
#include "tools/nvme/health.h"
#include "tools/nvme/structures.h"

namespace tool {
namespace {

constexpr double kZeroCelsius = 273;

constexpr MetricFamily kSubsystemTemperature{
    "sideband_nvme_subsystem_temperature_celsius", "celsius",
    "Composite temperature of the drive; 127 or more and -60 or less are 127 and -60."};
constexpr MetricFamily kSubsystemUsed{"sideband_nvme_subsystem_used_ratio", "ratio",
                                      "How much of the drive's life is used."};
constexpr MetricFamily kSubsystemStatus{"sideband_nvme_subsystem_status", "",
                                        "NVM subsystem status of NVMe-MI, its bits as a number."};
constexpr MetricFamily kSubsystemWarnings{
    "sideband_nvme_subsystem_warnings", "",
    "Critical warnings of the drive, bits as a number: 1 spare, 2 temperature, 4 reliability, 8 "
    "read only, 16 memory backup, 32 persistent memory region."};
constexpr MetricFamily kControllerTemperature{"sideband_nvme_controller_temperature_celsius",
                                              "celsius",
                                              "Composite temperature that the controller tells."};
constexpr MetricFamily kUsed{"sideband_nvme_controller_used_ratio", "ratio",
                             "How much of the drive's life the controller tells to be used."};
constexpr MetricFamily kSpare{"sideband_nvme_controller_spare_ratio", "ratio",
                              "How much of the spare capacity the controller tells to be left."};
constexpr MetricFamily kWarnings{
    "sideband_nvme_controller_warnings", "",
    "Critical warnings of the controller, with the bits of sideband_nvme_subsystem_warnings."};
constexpr MetricFamily kReady{"sideband_nvme_controller_ready", "",
                              "Whether the controller is ready."};
constexpr MetricFamily kFatal{"sideband_nvme_controller_fatal", "",
                              "Whether the controller has failed for good."};

/// A field of the SMART log page as a figure.
struct SmartFigure {
    const char* field;
    MetricFamily family;
    double factor = 1;
    double offset = 0;
    const char* label = nullptr;  ///< the value of the label "sensor" or "level"
};

constexpr MetricFamily kThermalTransitions{
    "sideband_nvme_smart_thermal_transitions", "",
    "How often the drive slowed down to stay below a thermal management temperature."};
constexpr MetricFamily kThermalTime{
    "sideband_nvme_smart_thermal_seconds", "seconds",
    "How long the drive was slow to stay below a thermal management temperature."};

constexpr SmartFigure kSmart[] = {
    {"critical_warning",
     {"sideband_nvme_smart_critical_warning", "", "Critical Warning, its bits as a number."}},
    {"temperature",
     {"sideband_nvme_smart_temperature_celsius", "celsius", "Composite Temperature."},
     1,
     -kZeroCelsius},
    {"available_spare",
     {"sideband_nvme_smart_available_spare_ratio", "ratio", "Available Spare."},
     0.01},
    {"available_spare_threshold",
     {"sideband_nvme_smart_available_spare_threshold_ratio", "ratio", "Available Spare Threshold."},
     0.01},
    {"percentage_used", {"sideband_nvme_smart_used_ratio", "ratio", "Percentage Used."}, 0.01},
    {"data_units_read",
     {"sideband_nvme_smart_read_bytes", "bytes", "Data Units Read, of 512,000 bytes each."},
     512000},
    {"data_units_written",
     {"sideband_nvme_smart_written_bytes", "bytes", "Data Units Written, of 512,000 bytes each."},
     512000},
    {"host_read_commands", {"sideband_nvme_smart_host_read_commands", "", "Host Read Commands."}},
    {"host_write_commands",
     {"sideband_nvme_smart_host_write_commands", "", "Host Write Commands."}},
    {"controller_busy_time",
     {"sideband_nvme_smart_busy_seconds", "seconds", "Controller Busy Time."},
     60},
    {"power_cycles", {"sideband_nvme_smart_power_cycles", "", "Power Cycles."}},
    {"power_on_hours",
     {"sideband_nvme_smart_power_on_seconds", "seconds", "Power On Hours."},
     3600},
    {"unsafe_shutdowns", {"sideband_nvme_smart_unsafe_shutdowns", "", "Unsafe Shutdowns."}},
    {"media_errors", {"sideband_nvme_smart_media_errors", "", "Media and Data Integrity Errors."}},
    {"num_err_log_entries",
     {"sideband_nvme_smart_error_log_entries", "", "Number of Error Information Log Entries."}},
    {"warning_temp_time",
     {"sideband_nvme_smart_warning_temperature_seconds", "seconds",
      "Warning Composite Temperature Time."},
     60},
    {"critical_comp_time",
     {"sideband_nvme_smart_critical_temperature_seconds", "seconds",
      "Critical Composite Temperature Time."},
     60},
    {"thm_temp1_trans_count", kThermalTransitions, 1, 0, "1"},
    {"thm_temp2_trans_count", kThermalTransitions, 1, 0, "2"},
    {"thm_temp1_total_time", kThermalTime, 1, 0, "1"},
    {"thm_temp2_total_time", kThermalTime, 1, 0, "2"},
};

/// A field that does not fit a number of 64 bits is given in hex.
double number_of(const Json& value) {
    return value.is_text() ? std::strtod(value.text().c_str(), nullptr) : value.get<double>();
}

void scrape_smart(const Subject& subject, NvmeClient& client, uint16_t controller) {
    constexpr unsigned kSensors = 8;
    constexpr MetricFamily kSensor{"sideband_nvme_smart_sensor_temperature_celsius", "celsius",
                                   "Temperature Sensor 1 to 8, as far as the drive has them."};
    const Fields fields = read_smart(client, controller);
    const Json& smart = fields.json();
    const MetricLabels labels{{"controller", std::to_string(controller)}};
    for (const SmartFigure& figure : kSmart) {
        MetricLabels of_figure = labels;
        if (figure.label != nullptr) {
            of_figure.emplace_back("level", figure.label);
        }
        const bool told = smart.contains(figure.field);
        const double value = told ? number_of(smart[figure.field]) : 0;
        // A composite temperature of 0 K stands for none.
        if (told && (figure.offset == 0 || value != 0)) {
            subject.add(figure.family, of_figure, value * figure.factor + figure.offset);
        }
    }
    for (unsigned i = 1; i <= kSensors; ++i) {
        const std::string field = fmt::format("temperature_sensor_{}", i);
        if (smart.contains(field)) {
            MetricLabels of_sensor = labels;
            of_sensor.emplace_back("sensor", std::to_string(i));
            subject.add(kSensor, of_sensor, number_of(smart[field]) - kZeroCelsius);
        }
    }
}

/// Composite temperature of NVMe-MI: the codes from 0x80 on that are no temperature have none.
void add_subsystem_temperature(const Subject& subject, uint8_t ctemp) {
    constexpr uint8_t kHottest = 0x7F;
    constexpr uint8_t kColdest = 0xC4;
    if (ctemp <= kHottest || ctemp >= kColdest) {
        subject.add(kSubsystemTemperature, {}, static_cast<int8_t>(ctemp));
    }
}

void scrape_health(const Subject& subject, NvmeClient& client) {
    constexpr double kPercent = 100;
    const NvmeHealth health = read_health(client);
    add_subsystem_temperature(subject, health.subsystem.ctemp);
    subject.add(kSubsystemUsed, {}, health.subsystem.pdlu / kPercent);
    subject.add(kSubsystemStatus, {}, health.subsystem.nss);
    // There a bit that is 0 warns.
    subject.add(kSubsystemWarnings, {}, static_cast<uint8_t>(~health.subsystem.smart_warnings));
    for (const nvme_controller_health& one : health.controllers) {
        const MetricLabels labels{{"controller", std::to_string(one.ctlid)}};
        if (one.ctemp != 0) {
            subject.add(kControllerTemperature, labels, one.ctemp - kZeroCelsius);
        }
        subject.add(kUsed, labels, one.pdlu / kPercent);
        subject.add(kSpare, labels, one.spare / kPercent);
        subject.add(kWarnings, labels, one.cwarn);
        subject.add(kReady, labels, one.csts & 1);
        subject.add(kFatal, labels, one.csts >> 1 & 1);
    }
}

void scrape_slots(const Subject& subject, NvmeClient& client, uint16_t controller) {
    const FirmwareSlots slots = read_firmware_slots(client, controller);
    const auto revision = [&slots](uint8_t slot) {
        return slot == 0 ? std::string() : slots.revisions.at(slot - 1U);
    };
    subject.add_firmware(fmt::format("controller {}", controller), revision(slots.active),
                         revision(slots.next));
}

}  // namespace

void scrape_nvme(const Subject& subject) {
    NvmeClient client(subject.session);
    if (!subject.attempt([&] { scrape_health(subject, client); })) {
        return;
    }
    const uint16_t controller = client.choose(std::nullopt);
    subject.attempt([&] { scrape_smart(subject, client, controller); });
    subject.attempt([&] { scrape_slots(subject, client, controller); });
}

}  // namespace tool
