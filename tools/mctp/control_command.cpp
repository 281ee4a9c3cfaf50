// SPDX-License-Identifier: Apache-2.0
// The commands mctp eid, mctp uuid and mctp routes: MCTP control.
#include <fmt/format.h>

#include "tools/mctp/codes.h"
#include "tools/mctp/commands.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// A PCIe address is bus, then device and function; any other one stays hex.
std::string address_text(const RoutingEntry& entry) {
    constexpr uint8_t kPcieVdm = 2;
    if (entry.binding_type != kPcieVdm || entry.address.size() != 2) {
        return hex(entry.address);
    }
    return fmt::format("{:02x}:{:02x}.{:x}", entry.address[0], entry.address[1] >> 3,
                       entry.address[1] & 7);
}

void show_eid(Context& context, Session& session) {
    const EndpointId id = session.endpoint_id();
    context.output.text(fmt::format("EID            {}{}\n", id.eid,
                                    session.eid_assigned() ? " (assigned now)" : ""));
    context.output.text(fmt::format("Endpoint type  {}\n", endpoint_type_name(id.endpoint_type)));
    context.output.text(fmt::format("EID type       {}\n", eid_type_name(id.eid_type)));
    context.output.document({{"endpoint", session.endpoint().name},
                             {"eid", id.eid},
                             {"eid_assigned", session.eid_assigned()},
                             {"endpoint_type", id.endpoint_type},
                             {"endpoint_id_type", id.eid_type}});
}

void show_uuid(Context& context, Session& session) {
    const std::array<uint8_t, 16> uuid = session.uuid();
    context.output.text(uuid_text(uuid) + "\n");
    context.output.document({{"endpoint", session.endpoint().name}, {"uuid", uuid_text(uuid)}});
}

Json route_json(const RoutingEntry& entry) {
    return {{"eid_range_size", entry.eid_range_size},
            {"starting_eid", entry.starting_eid},
            {"entry_type", entry.entry_type},
            {"dynamic_entry", entry.dynamic_entry},
            {"port_number", entry.port},
            {"physical_transport_binding_type_id", entry.binding_type},
            {"physical_media_type_id", entry.media_type},
            {"physical_address", hex(entry.address)}};
}

void show_routes(Context& context, Session& session) {
    Table table({{"EIDS"}, {"ENTRY"}, {"PORT", true}, {"BINDING"}, {"MEDIA"}, {"ADDRESS"}});
    Json list = Json::array();
    for (const RoutingEntry& entry : session.routes()) {
        const std::string eids = entry.eid_range_size > 1
                                     ? fmt::format("{}-{}", entry.starting_eid,
                                                   entry.starting_eid + entry.eid_range_size - 1)
                                     : std::to_string(entry.starting_eid);
        table.add({eids, routing_entry_type_name(entry.entry_type), std::to_string(entry.port),
                   binding_type_name(entry.binding_type), fmt::format("0x{:02x}", entry.media_type),
                   address_text(entry)});
        list.push_back(route_json(entry));
    }
    context.output.text(table.text());
    context.output.document(
        {{"endpoint", session.endpoint().name}, {"routing_table_entries", list}});
}

}  // namespace

void run_mctp_eid(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    show_eid(context, session);
}

void run_mctp_uuid(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    show_uuid(context, session);
}

void run_mctp_routes(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    show_routes(context, session);
}

}  // namespace tool
