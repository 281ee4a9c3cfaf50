// SPDX-License-Identifier: Apache-2.0
// The demo on PCIe, and the BMC on buses that somebody else owns.
#include <fmt/format.h>

#include <algorithm>

#include "tools/demo/demo.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

bool is_mpio(const Endpoint& endpoint) {
    return endpoint.transport == Transport::kPcie && endpoint.bdf == std::array<uint8_t, 3>{};
}

void show_bring_up(Tour::Step& step, const Port& port, const Endpoint& endpoint) {
    const uint64_t begin = port.now_us();
    Session session(endpoint);
    session.discover();
    const uint64_t taken = port.now_us() - begin;
    // Allocate Endpoint IDs, operation 2: what was allocated.
    const std::vector<uint8_t> request{0x80, 0x08, 0x02, 0x00, 0x00};
    const std::vector<uint8_t> pool = session.exchange(MCTP_MSG_TYPE_CONTROL, request);
    if (pool.size() != 6 || pool[2] != 0 || pool[4] == 0) {
        throw Failure(endpoint.name, "Allocate Endpoint IDs", "unexpected answer " + hex(pool));
    }
    step.say(fmt::format("EID   {}", session.eid()));
    step.say(fmt::format("pool  {} EIDs from {} for the functions behind it", pool[4], pool[5]));
    step.say("took  " + seconds_text(taken));
    step.details = {{"eid", session.eid()},
                    {"eid_assigned", session.eid_assigned()},
                    {"eid_pool_size", pool[4]},
                    {"first_eid", pool[5]},
                    {"duration_us", taken}};
    step.result = fmt::format("EID {}, {} EIDs from {}", session.eid(), pool[4], pool[5]);
}

void show_routes(Tour::Step& step, const Endpoint& endpoint) {
    Session session(endpoint);
    session.discover();
    const std::vector<RoutingEntry> entries = session.routes();
    step.details = Json::array();
    for (const RoutingEntry& entry : entries) {
        step.say(fmt::format("EID {:3}  address {}", entry.starting_eid, hex(entry.address)));
        step.details.push_back(
            {{"starting_eid", entry.starting_eid}, {"physical_address", hex(entry.address)}});
    }
    step.result = fmt::format("{} routing table entries", entries.size());
}

void show_owner(Tour::Step& step, const Port& port, const Endpoint& endpoint) {
    Session session(endpoint);
    const uint8_t bmc_eid = session.take_eid();
    step.details = {{"bmc_eid", bmc_eid}, {"owner_eid", session.eid()}};
    Json asked = Json::array();
    Table table({{"THE OWNER ASKS"}, {"THE BMC ANSWERS"}});
    std::string complaint;
    for (const OwnerQuestion& question : port.owner_questions(endpoint.name)) {
        table.add({question.name, question.answer.empty() ? "(nothing)" : question.answer});
        asked.push_back({{"request", question.name},
                         {"response", question.answer.empty() ? Json() : Json(question.answer)}});
        if (!question.complaint.empty()) {
            complaint = question.name + ": " + question.complaint;
        }
    }
    step.output.text(table.text(3));
    step.details["requests"] = asked;
    step.say(
        fmt::format("{} (EID {}) gave the BMC the EID {}.", endpoint.name, session.eid(), bmc_eid));
    if (!complaint.empty()) {
        throw Failure(endpoint.name, "the owner's check", complaint);
    }
    step.result = fmt::format("the BMC is {} there", bmc_eid);
}

}  // namespace

void show_pcie(Tour& tour, Port& port, std::vector<Finding>& findings) {
    const std::vector<Endpoint>& all = port.endpoints();
    const auto mpio = std::find_if(all.begin(), all.end(), is_mpio);
    if (mpio != all.end()) {
        tour.step("MPIO bring-up", "The bus owner behind the CPU gets an EID and a pool of EIDs.",
                  mpio->name, [&](Tour::Step& step) { show_bring_up(step, port, *mpio); });
    }
    const bool any = std::any_of(all.begin(), all.end(), [](const Endpoint& endpoint) {
        return endpoint.transport == Transport::kPcie;
    });
    if (any) {
        tour.step(
            "Discovery on PCIe", "Functions are found in the bus owner's routing table.", "all",
            [&](Tour::Step& step) { show_discovery(step, port, Transport::kPcie, findings); });
    }
    if (mpio != all.end()) {
        tour.step("Routing table", "Get Routing Table Entries, part by part.", mpio->name,
                  [&](Tour::Step& step) { show_routes(step, *mpio); });
    }
}

void show_owners(Tour& tour, Port& port) {
    for (const Endpoint& endpoint : port.endpoints()) {
        if (endpoint.type == "bus_owner") {
            tour.step("An EID for the BMC",
                      "The BMC announces itself; the bus owner discovers it and assigns an EID.",
                      endpoint.name, [&](Tour::Step& step) { show_owner(step, port, endpoint); });
        }
    }
}

}  // namespace tool
