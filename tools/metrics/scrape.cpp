// SPDX-License-Identifier: Apache-2.0
// Reads what devices tell of themselves as figures: sensors, health, links, firmware versions.
#include "tools/metrics/scrape.h"

#include <sideband/mctp.h>

#include <algorithm>

#include "tools/shell/cause.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr MetricFamily kBuild{"sideband_build_info", "", "The version of what was asked for this."};
constexpr MetricFamily kEndpointUp{"sideband_endpoint_up", "",
                                   "Whether the endpoint answered the first question."};
constexpr MetricFamily kEndpoint{"sideband_endpoint_info", "", "Where the endpoint is."};
constexpr MetricFamily kDuration{"sideband_endpoint_scrape_duration_seconds", "seconds",
                                 "How long all questions to the endpoint and its answers took."};
constexpr MetricFamily kErrors{"sideband_endpoint_scrape_errors", "",
                               "How much of this could not be read from the endpoint."};
constexpr MetricFamily kFirmware{
    "sideband_firmware_info", "",
    "The version of what runs, and of what has been loaded and does not run yet."};

/// What an endpoint speaks. One that does not tell, which is its right, may be a PLDM terminus.
std::vector<uint8_t> spoken(Session& session) {
    try {
        return session.message_types();
    } catch (const Failure& failure) {
        if (!failure.code()) {
            throw;
        }
        return {MCTP_MSG_TYPE_PLDM};
    }
}

void scrape_messages(const Subject& subject) {
    static constexpr struct {
        uint8_t type;
        void (*scrape)(const Subject&);
    } kReaders[] = {{MCTP_MSG_TYPE_PLDM, scrape_pldm},
                    {MCTP_MSG_TYPE_NCSI, scrape_ncsi},
                    {MCTP_MSG_TYPE_NVME_MI, scrape_nvme}};
    const std::vector<uint8_t> types = spoken(subject.session);
    for (const auto& reader : kReaders) {
        if (std::find(types.begin(), types.end(), reader.type) != types.end() &&
            !InterruptGuard::pending()) {
            subject.attempt([&] { reader.scrape(subject); });
        }
    }
}

/// @return whether the endpoint answered at all
bool scrape_endpoint(const Port& port, const Endpoint& endpoint, Scrape& scrape) {
    try {
        if (const std::string objection = port.objection(endpoint); !objection.empty()) {
            throw Failure(endpoint.name, "discovery", objection, std::nullopt,
                          cause_word(SIDEBAND_CAUSE_NO_BUS));
        }
        Session session(endpoint);
        session.discover();
        const Subject subject{session, scrape};
        subject.add(
            kEndpoint,
            {{"location", endpoint_location(endpoint)}, {"eid", std::to_string(session.eid())}}, 1);
        subject.attempt([&] { scrape_messages(subject); });
        return true;
    } catch (const Failure& failure) {
        scrape.failures.push_back(failure);
        return false;
    }
}

}  // namespace

void Subject::add(const MetricFamily& family, const MetricLabels& labels, double value) const {
    MetricLabels all{{"endpoint", session.endpoint().name}};
    all.insert(all.end(), labels.begin(), labels.end());
    scrape.figures.add(family, all, value);
}

void Subject::add_firmware(const std::string& component, const std::string& version,
                           const std::string& pending) const {
    add(kFirmware, {{"component", component}, {"version", version}, {"pending", pending}}, 1);
}

Scrape scrape(const Port& port, const std::vector<Endpoint>& endpoints) {
    constexpr double kSecond = 1e6;
    Scrape all;
    all.figures.add(kBuild, {{"version", SIDEBAND_VERSION}}, 1);
    for (const Endpoint& endpoint : endpoints) {
        if (InterruptGuard::pending()) {
            break;
        }
        const size_t failed_before = all.failures.size();
        const uint64_t begin = port.now_us();
        const bool up = scrape_endpoint(port, endpoint, all);
        const MetricLabels labels{{"endpoint", endpoint.name}};
        all.figures.add(kEndpointUp, labels, up ? 1 : 0);
        all.figures.add(kDuration, labels, static_cast<double>(port.now_us() - begin) / kSecond);
        all.figures.add(kErrors, labels, static_cast<double>(all.failures.size() - failed_before));
    }
    return all;
}

}  // namespace tool
