// SPDX-License-Identifier: Apache-2.0
// MCTP: bindings, set-up, control messages, discovery, the BMC as an endpoint.
#include "scenario.h"
#include "support/socket_patch.h"

namespace sweep {
namespace {

const std::string kSmbus =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9, "tid": 5,
        "mux": {"address": "0xe0", "channel": 1}})";
const std::string kSmbusWithoutEid =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "tid": 5})";
const std::string kSl8 =
    R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9, "pec": "software"})";
const std::string kPcie =
    R"({"name": "dev", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "eid": 9})";

void ready_smbus(World& world) {
    ready_device(world, kSmbus);
}
void ready_sl8(World& world) {
    ready_device(world, kSl8);
}
void ready_pcie(World& world) {
    ready_device(world, kPcie);
}

/// Main power is off, and devices may be spoken with in standby, if its register says so.
void ready_in_standby(World& world) {
    ready_device(world, kSmbus, R"("power": {"main": false, "standby_option": 1}, )");
}

void ready_socket(World& world) {
    world.endpoint.binding_kind = MCTP_BINDING_KIND_SOCKET;
    world.endpoint.pcie_param = 1;
    world.endpoint.dest_eid = 9;
    world.endpoint.src_eid = 8;
    world.endpoint.route = 300;
    world.endpoint.skip_discovery = 1;
    mctp_init2(&world.endpoint);
    sockets()->on_send = [](const test::SentDatagram& request) {
        const test::Bytes answer{
            static_cast<uint8_t>(request.body[0] & 0x1F), request.body[1], 0, 9, 0, 0};
        sockets()->deliver(test::SocketPatch::answer_to(request, answer));
    };
}

std::string stored_eid(const World& world) {
    return listed(world.endpoint.dest_eid);
}

/// A control message is written to the device, whose answer waits.
void write_get_endpoint_id(World& world) {
    const uint8_t request[] = {0x80, 0x02};
    world.endpoint.msg_type = MCTP_MSG_TYPE_CONTROL;
    world.endpoint.tag = 0;
    world.endpoint.send(&world.endpoint, sizeof request, request, 1);
}

void ready_smbus_with_answer(World& world) {
    ready_smbus(world);
    write_get_endpoint_id(world);
}
void ready_sl8_with_answer(World& world) {
    ready_sl8(world);
    write_get_endpoint_id(world);
}
void write_over_pcie(World& world) {
    world.endpoint.binding_eids[0] = world.endpoint.src_eid;
    world.endpoint.binding_eids[1] = world.endpoint.dest_eid;
    write_get_endpoint_id(world);
}
void ready_pcie_with_answer(World& world) {
    ready_pcie(world);
    write_over_pcie(world);
}

std::string stored_bytes(const World& world) {
    return shown(world.room.data(), 16);
}
void clear_room(World& world) {
    world.room = {};
}

/// Get Endpoint ID in one packet, behind four bytes for the binding.
constexpr std::array<uint8_t, 12> kPacket{0, 0, 0, 0, 0x01, 9, 8, 0xC8, 0x00, 0x80, 0x02};

template <auto kWrite>
int64_t write_packet(World& world) {
    std::copy(kPacket.begin(), kPacket.end(), world.room.begin());
    return kWrite(&world.endpoint.section, 7, world.room.data());
}

template <auto kRead>
int64_t read_packet(World& world) {
    return kRead(&world.endpoint.section, 64, world.room.data());
}

// ---- The BMC on somebody else's bus ----

void ready_for_owner(World& world, const std::string& place, mctp_recv_op receive) {
    world.open(board_of(R"({"name": "own0", "type": "bus_owner", "eid": 10, "assign": 40, )" +
                        place + "}"));
    world.endpoint = world.context_of("own0");
    world.endpoint.skip_discovery = 1;
    mctp_init2(&world.endpoint);
    world.endpoint.recv = receive;
}
void owner_on_smbus(World& world) {
    ready_for_owner(world, R"("bus": 2, "address": "0x42")", mctp_smbus_recv_with_type);
}
void owner_on_pcie(World& world) {
    ready_for_owner(world, R"("transport": "pcie", "bdf": "80:02.1")", mctp_pcie_recv_with_type);
}
/// A service that begins anew makes a new context; what an owner has still under way is lost.
void anew_on_smbus(World& world) {
    owner_on_smbus(world);
}
void anew_on_pcie(World& world) {
    owner_on_pcie(world);
}

std::vector<Scenario> bindings() {
    return {
        {.function = "smbus_block_write",
         .set_up = ready_smbus,
         .call = write_packet<smbus_block_write>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "smbus_block_write",
         .way = "standby",
         .set_up = ready_in_standby,
         .call = write_packet<smbus_block_write>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "sl8_smbus_block_write",
         .set_up = ready_sl8,
         .call = write_packet<sl8_smbus_block_write>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "smbus_block_read",
         .set_up = ready_smbus_with_answer,
         .call = read_packet<smbus_block_read>,
         .stored = stored_bytes,
         .again = write_get_endpoint_id,
         .record = record_of_endpoint,
         .failures = {-5}},
        {.function = "sl8_smbus_block_read",
         .set_up = ready_sl8_with_answer,
         .call = read_packet<sl8_smbus_block_read>,
         .stored = stored_bytes,
         .again = write_get_endpoint_id,
         .record = record_of_endpoint,
         .failures = {-5}},
        {.function = "mctp_smbus_recv_with_type",
         .set_up = ready_smbus_with_answer,
         .call = [](World& world) -> int64_t {
             return mctp_smbus_recv_with_type(&world.endpoint, 64, world.room.data());
         },
         .stored = stored_bytes,
         .again = write_get_endpoint_id,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_pcie_recv_with_type",
         .set_up = ready_pcie_with_answer,
         .call = [](World& world) -> int64_t {
             return mctp_pcie_recv_with_type(&world.endpoint, PLT_PCIE_MESSAGE_SIZE,
                                             world.room.data());
         },
         .stored = stored_bytes,
         .again = write_over_pcie,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "dump_packets",
         .call = [](World& world) -> int64_t {
             dump_packets(30, world.room.data());
             return 0;
         }},
    };
}

int64_t init2(World& world) {
    return mctp_init2(&world.endpoint);
}

std::vector<Scenario> set_up() {
    return {
        {.function = "mctp_init2",
         .way = "SMBus",
         .set_up = [](World& world) { open_device(world, kSmbus); },
         .call = init2,
         .stored = stored_eid,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_init2",
         .way = "SMBus, an EID assigned",
         .set_up = [](World& world) { open_device(world, kSmbusWithoutEid); },
         .call = init2,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_init2",
         .way = "PEC in software",
         .set_up = [](World& world) { open_device(world, kSl8); },
         .call = init2,
         .stored = stored_eid,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_init2",
         .way = "PCIe without MPIO",
         .set_up = [](World& world) { open_device(world, kPcie); },
         .call = init2,
         .stored = stored_eid,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_init2_with_i2c_delay",
         .set_up = [](World& world) { open_device(world, kSmbus); },
         .call = [](World& world) -> int64_t { return mctp_init2_with_i2c_delay(&world.endpoint); },
         .stored = stored_eid,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_set_deadline",
         .set_up = ready_smbus,
         .call = [](World& world) -> int64_t {
             mctp_set_deadline(&world.endpoint, 60000);
             return mctp_get_endpoint_id(&world.endpoint);
         },
         .record = record_of_endpoint,
         .failures = {-1}},
    };
}

template <auto kCommand, auto... kArguments>
int64_t command(World& world) {
    return kCommand(&world.endpoint, kArguments...);
}

std::vector<Scenario> control_messages() {
    std::vector<Scenario> all;
    const struct {
        const char* way;
        void (*set_up)(World&);
    } ways[] = {{"SMBus", ready_smbus}, {"PEC in software", ready_sl8}, {"PCIe", ready_pcie}};
    for (const auto& [way, set_up] : ways) {
        all.push_back({.function = "mctp_get_endpoint_id",
                       .way = way,
                       .set_up = set_up,
                       .call = command<mctp_get_endpoint_id>,
                       .record = record_of_endpoint,
                       .failures = {-1}});
        all.push_back({.function = "mctp_set_endpoint_id",
                       .way = way,
                       .set_up = set_up,
                       .call = command<mctp_set_endpoint_id, 9>,
                       .record = record_of_endpoint,
                       .failures = {-1}});
        all.push_back({.function = "mctp_get_endpoint_uuid",
                       .way = way,
                       .set_up = set_up,
                       .call = command<mctp_get_endpoint_uuid>,
                       .stored = [](const World& world) { return shown(world.endpoint.uuid, 16); },
                       .record = record_of_endpoint,
                       .failures = {-1}});
    }
    all.push_back({.function = "mctp_get_endpoint_id",
                   .way = "sockets",
                   .set_up = ready_socket,
                   .call = command<mctp_get_endpoint_id>,
                   .record = record_of_endpoint,
                   .failures = {-1},
                   .over_sockets = true});
    return all;
}

std::vector<Scenario> discovery() {
    return {
        {.function = "mctp_discovery",
         .set_up = ready_smbus,
         .call = command<mctp_discovery>,
         .stored = stored_eid,
         .record = record_of_endpoint,
         .failures = {-1}},
        // An endpoint that has taken its EID without the answer having come does not listen to its
        // former one any more, but to the null EID.
        {.function = "mctp_assign_eid",
         .set_up = ready_smbus,
         .call = command<mctp_assign_eid>,
         .again = [](World& world) { world.endpoint.dest_eid = 0; },
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "get_bmc_by_owner",
         .way = "SMBus",
         .set_up = owner_on_smbus,
         .call = command<get_bmc_by_owner>,
         .stored = [](const World& world) { return listed(world.endpoint.src_eid); },
         .again = anew_on_smbus,
         .record = record_of_endpoint,
         .failures = {0},
         .keeps_parts = true},
        {.function = "get_bmc_by_owner",
         .way = "PCIe",
         .set_up = owner_on_pcie,
         .call = command<get_bmc_by_owner>,
         .stored = [](const World& world) { return listed(world.endpoint.src_eid); },
         .again = anew_on_pcie,
         .record = record_of_endpoint,
         .failures = {0},
         .keeps_parts = true},
    };
}

}  // namespace

std::vector<Scenario> mctp_scenarios() {
    std::vector<Scenario> all;
    for (auto* part : {bindings, set_up, control_messages, discovery}) {
        const std::vector<Scenario> some = part();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

// ---- The MPIO ----

namespace {

const std::string kMpioDevices =
    R"({"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0",
        "entries_per_part": 1},
       {"name": "dev", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "tid": 5})";

/// The context of the MPIO is in endpoint, that of the device behind it in other.
void open_with_mpio(World& world) {
    world.open(board_of(kMpioDevices, R"("platform": {"mpio_state": "wanted"}, )"));
    _init_amd_mpio_ctx(&world.endpoint);
    world.other = world.context_of("dev");
}
void open_with_mpio_up(World& world) {
    open_with_mpio(world);
    init_amd_mpio_if_need(&world.endpoint);
}
/// After a failure the platform asks for another bring-up.
void want_mpio(World&) {
    at_p_St_GlobalSecVar->mpio_state = PLT_MPIO_WANTED;
}

const sideband_error& record_of_other(const World& world) {
    return world.other.last_error;
}
std::string stored_other_eid(const World& world) {
    return listed(world.other.dest_eid);
}

}  // namespace

std::vector<Scenario> mpio_scenarios() {
    return {
        {.function = "_init_amd_mpio_ctx",
         .call = [](World& world) -> int64_t {
             _init_amd_mpio_ctx(&world.endpoint);
             return world.endpoint.src_eid;
         }},
        {.function = "mctp_prepare_for_endpoint_discovery",
         .set_up = open_with_mpio,
         .call = command<mctp_prepare_for_endpoint_discovery>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_endpoint_discovery",
         .set_up =
             [](World& world) {
                 open_with_mpio(world);
                 mctp_prepare_for_endpoint_discovery(&world.endpoint);
             },
         .call = command<mctp_endpoint_discovery>,
         .again = [](World& world) { mctp_prepare_for_endpoint_discovery(&world.endpoint); },
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_allocate_endpoint_ids",
         .set_up = open_with_mpio_up,
         .call = command<mctp_allocate_endpoint_ids, 0, 32, 64>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "mctp_get_routing_table_entries",
         .set_up = open_with_mpio_up,
         .call = [](World& world) -> int64_t {
             return mctp_get_routing_table_entries(&world.endpoint, 0, world.room.data());
         },
         // The instance ID, which counts, is left out.
         .stored = [](const World& world) { return shown(world.room.data() + 1, 60); },
         .again = clear_room,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "get_eid_from_routing_table",
         .set_up = open_with_mpio_up,
         .call = [](World& world) -> int64_t {
             return get_eid_from_routing_table(&world.endpoint, &world.other);
         },
         .stored = stored_other_eid,
         .record = record_of_other,
         .failures = {-1}},
        {.function = "do_init_amd_mpio",
         .set_up = open_with_mpio,
         .call = command<do_init_amd_mpio>,
         .record = record_of_endpoint,
         .failures = {-1}},
        {.function = "init_amd_mpio_if_need",
         .set_up = open_with_mpio,
         .call = command<init_amd_mpio_if_need>,
         .stored = [](const World&) { return listed(at_p_St_GlobalSecVar->mpio_state != 0); },
         .again = want_mpio,
         .record = record_of_endpoint,
         .failures = {-1},
         .keeps_parts = true},
        {.function = "get_eid_from_mpio",
         .set_up = open_with_mpio_up,
         .call = [](World& world) -> int64_t { return get_eid_from_mpio(&world.other); },
         .stored = stored_other_eid,
         .record = record_of_other,
         .failures = {-1}},
        {.function = "mctp_init2",
         .way = "PCIe behind an MPIO",
         .set_up = open_with_mpio_up,
         .call = [](World& world) -> int64_t { return mctp_init2(&world.other); },
         .stored = stored_other_eid,
         .record = record_of_other,
         .failures = {-1}},
    };
}

}  // namespace sweep
