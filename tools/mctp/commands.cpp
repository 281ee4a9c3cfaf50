// SPDX-License-Identifier: Apache-2.0
// The command line of the commands scan, mctp and raw.
#include "tools/mctp/commands.h"

#include "tools/shell/commands.h"

namespace tool {
namespace {

struct ScanArguments {
    std::optional<uint32_t> bus;
};

struct RawArguments : EndpointArguments {
    std::string type;
    std::vector<std::string> pieces;
};

void add_raw(const Commands& commands) {
    const auto [raw, arguments] = commands.add<RawArguments>(
        commands.top(), "raw", "one message body out, the answer in hex",
        [](Context& c, const RawArguments& a) { run_raw(c, a.endpoint, a.type, a.pieces); });
    raw.add_option("TYPE", arguments.type, "control, pldm, ncsi, nvme-mi, or a number")
        .required()
        .suggest("control|pldm|ncsi|nvme-mi");
    raw.add_option("HEX", arguments.pieces, "the message without its type byte").required();
}

}  // namespace

void add_mctp_commands(const Commands& commands) {
    const auto [scan, arguments] = commands.add<ScanArguments>(
        commands.top(), "scan", "every endpoint: where it is, EID, UUID, what it speaks",
        [](Context& c, const ScanArguments& a) { run_scan(c, a.bus); });
    scan.add_option("--bus", arguments.bus, "those on one I2C bus alone")
        .type_name("N")
        .range(0, 255);
    const Command mctp = commands.noun("mctp", "MCTP control");
    commands.add(mctp, "eid", "the endpoint ID, assigned where there was none", run_mctp_eid);
    commands.add(mctp, "uuid", "the endpoint's UUID", run_mctp_uuid);
    commands.add(mctp, "routes", "the routing table of a bus owner or bridge", run_mctp_routes);
    add_raw(commands);
}

}  // namespace tool
