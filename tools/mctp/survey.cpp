// SPDX-License-Identifier: Apache-2.0
// A first look at endpoints: are they there, which EID have they, what do they speak.
#include "tools/mctp/survey.h"

#include <algorithm>

#include "tools/shell/cause.h"
#include "tools/shell/codes.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/output.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// The value of a query, or nothing if the device answered with an error code of its own.
template <typename Query>
auto ask(Query query) -> std::optional<decltype(query())> {
    try {
        return query();
    } catch (const Failure& failure) {
        if (!failure.code()) {
            throw;
        }
        return std::nullopt;
    }
}

Finding look_at(const Port& port, const Endpoint& endpoint) {
    Finding finding;
    finding.endpoint = endpoint;
    try {
        if (const std::string objection = port.objection(endpoint); !objection.empty()) {
            throw Failure(endpoint.name, "discovery", objection, std::nullopt,
                          cause_word(SIDEBAND_CAUSE_NO_BUS));
        }
        Session session(endpoint);
        session.discover();
        finding.eid = session.eid();
        finding.eid_assigned = session.eid_assigned();
        finding.uuid = ask([&] { return session.uuid(); });
        finding.message_types = ask([&] { return session.message_types(); });
    } catch (const Failure& failure) {
        finding.failure = failure;
    }
    return finding;
}

/// Looks at those of some endpoints that are wanted.
template <typename Wanted>
std::vector<Finding> survey_those(const Port& port, const std::vector<Endpoint>& endpoints,
                                  Wanted wanted) {
    std::vector<Finding> findings;
    for (const Endpoint& endpoint : endpoints) {
        if (wanted(endpoint)) {
            findings.push_back(look_at(port, endpoint));
        }
    }
    return findings;
}

Json finding_json(const Finding& finding) {
    const Endpoint& endpoint = finding.endpoint;
    Json json{{"endpoint", endpoint.name}, {"location", endpoint_location(endpoint)}};
    if (endpoint.transport == Transport::kPcie) {
        json["transport"] = "pcie";
        json["bdf"] = endpoint_location(endpoint).substr(std::string_view("pcie:").size());
    } else if (endpoint.transport == Transport::kMctp) {
        json["transport"] = "mctp";
        json["net"] = endpoint.net;
    } else {
        json["transport"] = "i2c";
        json["bus"] = endpoint.bus;
        json["address"] = endpoint.address;
    }
    json["eid"] = finding.eid != 0 ? Json(finding.eid) : Json();
    json["eid_assigned"] = finding.eid_assigned;
    json["uuid"] = finding.uuid ? Json(uuid_text(*finding.uuid)) : Json();
    json["message_types"] = finding.message_types ? Json(*finding.message_types) : Json();
    json["status"] = finding.failure ? "failed" : "ok";
    if (finding.failure) {
        json["error"] = failure_json(*finding.failure);
    }
    return json;
}

}  // namespace

bool Finding::speaks(uint8_t message_type) const {
    return message_types && std::find(message_types->begin(), message_types->end(), message_type) !=
                                message_types->end();
}

std::vector<Finding> survey(const Port& port) {
    return survey_those(port, port.present_endpoints(), [](const Endpoint&) { return true; });
}

std::vector<Finding> survey_bus(const Port& port, uint32_t bus) {
    return survey_those(port, port.present_endpoints(), [bus](const Endpoint& endpoint) {
        return endpoint.transport == Transport::kI2c && endpoint.bus == bus;
    });
}

std::vector<Finding> survey(const Port& port, Transport transport) {
    return survey_those(port, port.endpoints(), [transport](const Endpoint& endpoint) {
        return endpoint.transport == transport;
    });
}

Table survey_table(const std::vector<Finding>& findings) {
    constexpr size_t kStatus = 5;
    Table table({{"ENDPOINT"}, {"WHERE"}, {"EID", true}, {"UUID"}, {"SPEAKS"}, {"STATUS"}});
    for (const Finding& found : findings) {
        table.add({found.endpoint.name, endpoint_location(found.endpoint),
                   found.eid != 0 ? std::to_string(found.eid) : "-",
                   found.uuid ? uuid_text(*found.uuid) : "-",
                   message_types_text(found.message_types.value_or(std::vector<uint8_t>{})),
                   found.failure ? "failed" : "ok"});
        table.tint(kStatus, found.failure ? Tone::kBad : Tone::kGood);
    }
    return table;
}

Json survey_json(const std::vector<Finding>& findings) {
    Json list = Json::array();
    for (const Finding& found : findings) {
        list.push_back(finding_json(found));
    }
    return list;
}

}  // namespace tool
