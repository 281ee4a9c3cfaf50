// SPDX-License-Identifier: Apache-2.0
// Reads what devices tell of themselves as figures: sensors, health, links, firmware versions.
#ifndef SIDEBAND_TOOLS_METRICS_SCRAPE_H
#define SIDEBAND_TOOLS_METRICS_SCRAPE_H

#include <string>
#include <vector>

#include "tools/metrics/exposition.h"
#include "tools/shell/port.h"
#include "tools/shell/session.h"

namespace tool {

/// One look at all of some endpoints.
struct Scrape {
    Exposition figures;
    std::vector<Failure> failures;
};

/// Reads everything that these endpoints have. One that fails stops nothing but what it is asked
/// itself.
/// @param endpoints  of the board
Scrape scrape(const Port& port, const std::vector<Endpoint>& endpoints);

/// One endpoint while it is looked at, as the readers of each message type see it.
struct Subject {
    Session& session;
    Scrape& scrape;

    /// Adds a figure, labelled with the endpoint first.
    void add(const MetricFamily& family, const MetricLabels& labels, double value) const;

    /// The version of something that has firmware.
    /// @param pending  the version that runs next; empty for none
    void add_firmware(const std::string& component, const std::string& version,
                      const std::string& pending) const;

    /// Runs a part of the reading; what fails in it is kept, and nothing else fails of it.
    /// @return whether the endpoint still answers
    template <typename Part>
    bool attempt(Part part) const {
        try {
            part();
        } catch (const Failure& failure) {
            scrape.failures.push_back(failure);
            return failure.code().has_value();
        }
        return true;
    }
};

// What the endpoint tells by one message type.
void scrape_pldm(const Subject& subject);
void scrape_ncsi(const Subject& subject);
void scrape_nvme(const Subject& subject);

}  // namespace tool

#endif
