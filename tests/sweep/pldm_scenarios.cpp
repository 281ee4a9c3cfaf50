// SPDX-License-Identifier: Apache-2.0
// PLDM: headers, message operations, the life of a terminus, the base commands.
#include "scenario.h"
#include "support/socket_patch.h"

namespace sweep {
namespace {

const std::string kTerminus =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9, "tid": 5,
        "sensors": [{"kind": "numeric", "id": 1, "data_size": 2,
                     "waveform": {"shape": "constant", "value": 71}}]})";
const std::string kSl8Terminus =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9, "tid": 5,
        "pec": "software"})";
const std::string kPcieTerminus =
    R"({"name": "dev", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "eid": 9, "tid": 5})";

void ready(World& world) {
    ready_terminus(world, kTerminus);
}
void ready_sl8(World& world) {
    ready_terminus(world, kSl8Terminus);
}
void ready_pcie(World& world) {
    ready_terminus(world, kPcieTerminus);
}
void ready_strict(World& world) {
    ready(world);
    world.endpoint.strict = MCTP_STRICT_ALL;
}
void ready_socket(World& world) {
    world.endpoint.binding_kind = MCTP_BINDING_KIND_SOCKET;
    world.endpoint.pcie_param = 1;
    world.endpoint.dest_eid = 9;
    world.endpoint.route = 300;
    world.endpoint.skip_discovery = 1;
    mctp_init2(&world.endpoint);
    mctp_pldm_register(&world.endpoint, &world.pldm);
    sockets()->on_send = [](const test::SentDatagram& request) {
        test::Bytes answer = request.body;
        answer[0] &= 0x1F;
        answer.resize(5);
        answer[4] = 5;
        sockets()->deliver(test::SocketPatch::answer_to(request, answer));
    };
}
void open_unbound(World& world) {
    open_device(world, kTerminus);
}

constexpr std::array<uint8_t, 3> kGetTid{0x80, 0x00, 0x02};

void send_get_tid(World& world) {
    world.room = {};
    pldm_send(&world.pldm, kGetTid.size(), kGetTid.data(), 1);
}
void ready_with_answer(World& world) {
    ready(world);
    send_get_tid(world);
}

std::string stored_tid(const World& world) {
    return listed(world.pldm.tid);
}
std::string stored_types(const World& world) {
    return listed(world.pldm.tid) + shown(world.pldm.pldm_types, 8);
}

template <auto kFunction>
int64_t base_command(World& world) {
    return kFunction(&world.pldm);
}

template <auto kInit>
int64_t header(World& world) {
    return kInit(world.room.data());
}

std::vector<Scenario> headers() {
    return {
        {.function = "pldm_request_init", .call = header<pldm_request_init>},
        {.function = "pldm_monitor_request_init", .call = header<pldm_monitor_request_init>},
        {.function = "pldm_FRU_request_init", .call = header<pldm_FRU_request_init>},
        {.function = "pldm_fw_update_request_init", .call = header<pldm_fw_update_request_init>},
        {.function = "pldm_fw_update_response_init",
         .call = [](World& world) -> int64_t {
             pldm_fw_update_response_init(world.room.data(), kGetTid.data());
             return 0;
         }},
        {.function = "pldm_last_error",
         .call = [](World& world) -> int64_t { return pldm_last_error(&world.pldm)->cause; }},
    };
}

/// A request of the device is under way.
void ask_over_socket(World& world) {
    world.room = {};
    sockets()->deliver({9, MCTP_MSG_TYPE_PLDM, 0x08, {0x80, 0x05, 0x15}});
}
void ready_to_be_asked(World& world) {
    ready_socket(world);
    ask_over_socket(world);
}

int64_t receive(World& world) {
    return pldm_recv(&world.pldm, 64, world.room.data());
}

int64_t transfer(World& world) {
    std::array<uint8_t, 3> request = kGetTid;
    return pldm_transfer(&world.pldm, request.size(), 5, request.data(), world.room.data());
}

std::vector<Scenario> messages() {
    return {
        {.function = "pldm_send",
         .set_up = ready,
         .call = [](World& world) -> int64_t {
             return pldm_send(&world.pldm, kGetTid.size(), kGetTid.data(), 1);
         },
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_recv",
         .set_up = ready_with_answer,
         .call = receive,
         .stored = [](const World& world) { return shown(world.room.data() + 1, 15); },
         .again = send_get_tid,
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_recv",
         .way = "sockets",
         .set_up = ready_to_be_asked,
         .call = receive,
         .stored = [](const World& world) { return shown(world.room.data() + 1, 15); },
         .again = ask_over_socket,
         .record = record_of_terminus,
         .failures = {-1},
         .over_sockets = true},
        {.function = "pldm_transfer",
         .set_up = ready,
         .call = transfer,
         .stored = [](const World& world) { return shown(world.room.data() + 1, 15); },
         .again = [](World& world) { world.room = {}; },
         .record = record_of_terminus,
         .failures = {-1}},
        {.function = "pldm_transfer",
         .way = "strict",
         .set_up = ready_strict,
         .call = transfer,
         .stored = [](const World& world) { return shown(world.room.data() + 1, 15); },
         .again = [](World& world) { world.room = {}; },
         .record = record_of_terminus,
         .failures = {-1}},
    };
}

std::vector<Scenario> life() {
    return {
        {.function = "pldm_init", .call = base_command<pldm_init>},
        {.function = "mctp_pldm_register",
         .set_up = open_unbound,
         .call = [](World& world) -> int64_t {
             return mctp_pldm_register(&world.endpoint, &world.pldm);
         }},
        {.function = "pldm_terminus_init",
         .set_up = open_unbound,
         .call = [](World& world) -> int64_t {
             return pldm_terminus_init(&world.pldm, &world.endpoint);
         },
         .stored = [](const World& world) { return listed(world.pldm.mctp != nullptr); },
         .again = [](World& world) { pldm_terminus_deinit(&world.pldm); },
         .release = [](World& world) { pldm_terminus_deinit(&world.pldm); },
         .record = record_of_terminus,
         .failures = {-1, PLDM_ERROR_ARGUMENT}},
        {.function = "pldm_terminus_deinit",
         .set_up =
             [](World& world) {
                 open_unbound(world);
                 pldm_terminus_init(&world.pldm, &world.endpoint);
             },
         .call = base_command<pldm_terminus_deinit>,
         .stored = [](const World& world) { return listed(world.pldm.mctp != nullptr); }},
        {.function = "discover_pldm_terminus",
         .set_up = open_unbound,
         .call = [](World& world) -> int64_t {
             return discover_pldm_terminus(&world.pldm, &world.endpoint);
         },
         .stored = stored_types,
         .again = [](World& world) { world.pldm = {}; },
         .record = record_of_terminus,
         .failures = {-1},
         .keeps_parts = true},
    };
}

std::vector<Scenario> base_commands() {
    std::vector<Scenario> all;
    const struct {
        const char* way;
        void (*set_up)(World&);
    } ways[] = {{"SMBus", ready},
                {"PEC in software", ready_sl8},
                {"PCIe", ready_pcie},
                {"strict", ready_strict},
                {"sockets", ready_socket}};
    for (const auto& [way, set_up] : ways) {
        all.push_back({.function = "pldm_get_tid",
                       .way = way,
                       .set_up = set_up,
                       .call = base_command<pldm_get_tid>,
                       .stored = stored_tid,
                       .again = [](World& world) { world.pldm.tid = 0; },
                       .record = record_of_terminus,
                       .failures = {-1},
                       .over_sockets = set_up == ready_socket});
    }
    const struct {
        const char* way;
        void (*set_up)(World&);
    } strictness[] = {{"", ready}, {"strict", ready_strict}};
    for (const auto& [way, set_up] : strictness) {
        all.push_back({.function = "pldm_get_version",
                       .way = way,
                       .set_up = set_up,
                       .call = [](World& world) -> int64_t {
                           return pldm_get_version(&world.pldm, PLDM_TYPE_BASE);
                       },
                       .stored = [](const World& world) { return listed(world.pldm.pldm_version); },
                       .record = record_of_terminus,
                       .failures = {-1}});
        all.push_back(
            {.function = "pldm_get_commands",
             .way = way,
             .set_up = set_up,
             .call = base_command<pldm_get_commands>,
             .stored = [](const World& world) { return shown(world.pldm.base_commands, 32); },
             .record = record_of_terminus,
             .failures = {-1}});
    }
    all.push_back({.function = "pldm_get_type",
                   .set_up = ready,
                   .call = base_command<pldm_get_type>,
                   .stored = stored_types,
                   .record = record_of_terminus,
                   .failures = {-1}});
    all.push_back({.function = "pldm_discovery",
                   .set_up = ready,
                   .call = base_command<pldm_discovery>,
                   .stored = stored_types,
                   .record = record_of_terminus,
                   .failures = {-1},
                   .keeps_parts = true});
    return all;
}

}  // namespace

std::vector<Scenario> pldm_scenarios() {
    std::vector<Scenario> all;
    for (auto* part : {headers, messages, life, base_commands}) {
        const std::vector<Scenario> some = part();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace sweep
