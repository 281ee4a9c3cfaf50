// SPDX-License-Identifier: Apache-2.0
// Words for what NVMe drives report in bits and codes: health, warnings, temperature, sanitize.
#include "tools/nvme/states.h"

#include <fmt/format.h>

#include "tools/shell/name_table.h"

namespace tool {
namespace {

// What has no word here is known by its abbreviation.
constexpr Name kSubsystemBits[] = {
    {7, "ATF"},
    {6, "sanitize failure mode"},
    {5, "drive functional"},
    {4, "no reset required"},
    {3, "PCIe link of port 0 active"},
    {2, "PCIe link of port 1 active"},
    {1, "SNFM"},
};

constexpr Name kHealthWarnings[] = {
    {0, "available spare"},
    {1, "temperature"},
    {2, "reliability"},
    {3, "read only"},
    {4, "memory backup"},
    {5, "persistent memory region"},
    {6, "IPS"},
};

constexpr Name kSmartWarnings[] = {
    {0, "available spare low"},
    {1, "temperature"},
    {2, "reliability degraded"},
    {3, "read only"},
    {4, "volatile memory backup failed"},
    {5, "persistent memory region unreliable"},
    {6, "IPS"},
};

constexpr Name kCompositeBits[] = {
    {0, "ready"},
    {1, "fatal"},
    {2, "shutdown status changed"},
    {4, "subsystem reset occurred"},
    {5, "enable changed"},
    {6, "namespaces changed"},
    {7, "firmware activated"},
    {8, "status changed"},
    {9, "temperature changed"},
    {10, "percentage used changed"},
    {11, "available spare changed"},
    {12, "critical warning changed"},
    {13, "TCIDA"},
};

constexpr Name kControllerBits[] = {
    {0, "ready"},
    {1, "fatal"},
    {4, "subsystem reset occurred"},
    {5, "enable changed"},
    {6, "namespaces changed"},
    {7, "firmware activated"},
    {8, "TCIDA"},
};

/// CSTS.SHST (NVMe base specification): 0 is normal operation.
constexpr const char* kShutdownWords[] = {"", "shutting down", "shut down",
                                          "reserved shutdown status"};

}  // namespace

std::string subsystem_status_text(uint8_t nss) {
    return bits_text(nss, kSubsystemBits, "not functional");
}

std::string composite_status_text(uint16_t ccs) {
    return bits_text(ccs, kCompositeBits, "not ready");
}

std::string composite_text(uint8_t ctemp) {
    constexpr uint8_t kHottest = 0x7F;
    constexpr uint8_t kNoData = 0x80;
    constexpr uint8_t kSensorFailed = 0x81;
    constexpr uint8_t kColdest = 0xC4;
    if (ctemp < kHottest) {
        return fmt::format("{} degC", ctemp);
    }
    switch (ctemp) {
        case kHottest:
            return "127 degC or more";
        case kNoData:
            return "no data";
        case kSensorFailed:
            return "the sensor has failed";
        case kColdest:
            return "-60 degC or less";
        default:
            return ctemp > kColdest ? fmt::format("{} degC", static_cast<int8_t>(ctemp))
                                    : fmt::format("0x{:02x} (reserved)", ctemp);
    }
}

std::string controller_status_text(uint16_t csts) {
    const std::string shutdown = kShutdownWords[csts >> 2 & 3];
    const std::string bits = bits_text(csts, kControllerBits, shutdown.empty() ? "not ready" : "");
    return bits + (bits.empty() || shutdown.empty() ? "" : ", ") + shutdown;
}

std::string health_warnings_text(uint8_t warnings, const char* none) {
    return bits_text(warnings, kHealthWarnings, none);
}

std::string smart_warnings_text(uint8_t warnings) {
    return bits_text(warnings, kSmartWarnings, "none");
}

std::string sanitize_status_text(uint8_t status) {
    constexpr const char* kWords[] = {"never sanitized", "completed", "in progress", "failed",
                                      "completed, not deallocated as wished"};
    return status < std::size(kWords) ? kWords[status] : "reserved";
}

}  // namespace tool
