// SPDX-License-Identifier: Apache-2.0
// PLDM firmware update: the agent's commands and answers, the check of cards, whole updates.
#include <algorithm>

#include "cards.h"
#include "scenario.h"
#include "support/bytes.h"

namespace sweep {
namespace {

using test::Bytes;
using test::hex;
using test::operator+;

template <auto kStep>
void ready_for(World& world) {
    ready_loaded(world);
    kStep(world);
}
// ---- The agent's commands ----

template <auto kCommand>
int64_t agent(World& world) {
    return kCommand(&world.update);
}

std::string stored_parameters(const World& world) {
    const pldm_fw_update_ctx& update = world.update;
    return listed(update.fd_components_num) +
           (update.active_version_string != nullptr ? update.active_version_string : "none");
}

/// Where an update stands, and what became of it.
std::string stored_progress(const World& world) {
    // The code of a command that failed stays, though the update goes on without it.
    const bool failed = record_of_update(world).cause != SIDEBAND_CAUSE_NONE;
    return listed(world.update.state, world.update.component_index,
                  failed ? world.update.pldm.completion_code : 0);
}

using AlsoCauses = std::vector<std::pair<std::string, uint8_t>>;

/// ActivateFirmware whose answer was lost is sent again, and refused by a card that has done it.
/// What is written over PCIe and lost shows as a card that is out of turn.
const AlsoCauses kRepeated{{"PltMCTPI2C_SlaveReadWithPEC_NoMutex", SIDEBAND_CAUSE_DEVICE},
                           {"PltMCTP_WriteRead", SIDEBAND_CAUSE_DEVICE},
                           {"PltMCTP_WriteRead", SIDEBAND_CAUSE_MALFORMED}};

/// A command in the middle of an update, behind which the rest of it runs.
Scenario running(const char* function, void (*set_up)(World&), int64_t (*call)(World&),
                 void (*again)(World&)) {
    return {.function = function,
            .set_up = set_up,
            .call = call,
            .stored = stored_progress,
            .again = again,
            .release = free_context,
            .record = record_of_update,
            .failures = {0, -1},
            .keeps_parts = true,
            .owns = true,
            .does_without = {"calloc", "malloc", "lx_mutex_get"},
            .also_causes = kRepeated};
}

/// What GetFirmwareParameters is answered with: one component, no versions.
Bytes parameters() {
    return hex("00 05 02 00 00000000 0100 01 03 01 00 4f4c44") +
           hex("0a00 0100 00 10000000 01 00 0000000000000000 00000000 01 00 0000000000000000") +
           hex("0000 00000000");
}

int64_t parse_parameters(World& world) {
    const Bytes response = parameters();
    return pldm_parse_firmware_para(&world.update, response.data(),
                                    static_cast<int32_t>(response.size()));
}
void forget_parameters(World& world) {
    free_context(world);
    forget_failures(world);
}

std::vector<Scenario> inventory() {
    return {
        {.function = "pldm_query_device_identifiers",
         .set_up = ready_loaded,
         .call = [](World& world) -> int64_t {
             return pldm_query_device_identifiers(&world.update, world.update.records);
         },
         .release = free_context,
         .record = record_of_update,
         .failures = {-1}},
        {.function = "pldm_get_firmware_parameters",
         .set_up = ready_on_smbus,
         .call = agent<pldm_get_firmware_parameters>,
         .stored = stored_parameters,
         .again = free_context,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1, 0},
         .keeps_parts = true,
         .owns = true,
         // 0 is documented for memory that runs out behind the exchange.
         .does_without = {"malloc", "calloc"},
         .succeeds_anyway = true},
        {.function = "pldm_parse_firmware_para",
         .call = parse_parameters,
         .stored = stored_parameters,
         .again = forget_parameters,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1},
         .keeps_parts = true,
         .owns = true},
        {.function = "pldm_get_status",
         .set_up = ready_loaded,
         .call = agent<pldm_get_status>,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1}},
        {.function = "pldm_get_device_metadata",
         .set_up =
             [](World& world) {
                 ready_talkative_loaded(world);
                 begin_update(world);
             },
         .call = [](World& world) -> int64_t { return pldm_get_device_metadata(&world.update, 5); },
         .release = free_context,
         .record = record_of_update,
         .failures = {-1},
         .succeeds_anyway = true},
        {.function = "pldm_get_meta_data",
         .set_up =
             [](World& world) {
                 ready_talkative_loaded(world);
                 begin_update(world);
             },
         .call = [](World& world) -> int64_t {
             return pldm_get_meta_data(&world.update, world.room.data(), 64);
         },
         .release = free_context,
         .record = record_of_update,
         .failures = {-1}},
        {.function = "pldm_activate_firmware",
         .set_up = ready_to_activate,
         .call = agent<pldm_activate_firmware>,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1},
         // It is tried ten times.
         .does_without = {"lx_mutex_get"}},
        {.function = "pldm_cancel_update",
         .set_up = ready_for<begin_update>,
         .call = agent<pldm_cancel_update>,
         .again = begin_update,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1}},
        {.function = "pldm_cancel_update_component",
         .set_up = ready_for<offer_component>,
         .call = agent<pldm_cancel_update_component>,
         .again = offer_component,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1}},
    };
}

std::vector<Scenario> steps() {
    return {
        running("pldm_request_firmware_update", ready_loaded, agent<pldm_request_firmware_update>,
                [](World& world) {
                    leave_update(world);
                    forget_failures(world);
                }),
        running(
            "pldm_update_component_table", ready_for<pass_component>,
            [](World& world) -> int64_t { return pldm_update_component_table(&world.update, 0); },
            pass_component),
        running("fw_update_state_fn", ready_for<begin_update>, agent<fw_update_state_fn>,
                begin_update),
    };
}

// ---- The agent's answers ----

/// Has the agent answer a request of the device, which has room for the longest one.
template <auto kAnswer>
int64_t answer(World& world, const char* text) {
    std::array<uint8_t, PLDM_FW_UPDATE_REQUEST_SIZE> request{};
    const Bytes bytes = hex(text);
    std::copy(bytes.begin(), bytes.end(), request.begin());
    return kAnswer(&world.update, request.data());
}

void ready_for_package_data(World& world) {
    ready_talkative_loaded(world);
    world.update.fd_will_send_pkg_data = 1;
}

/// A request that failed for memory counts as one all the same; what is refused begins the count
/// anew.
void begin_package_data_anew(World& world) {
    world.update.fd_will_send_pkg_data = 0;
    answer<pldm_get_package_data>(world, "80 05 11 00000000 01");
    world.update.fd_will_send_pkg_data = 1;
    forget_failures(world);
}

Scenario answering(const char* function, void (*set_up)(World&), int64_t (*call)(World&)) {
    return {.function = function,
            .set_up = set_up,
            .call = call,
            .again = forget_failures,
            .release = free_context,
            .record = record_of_update,
            .failures = {-1}};
}

std::vector<Scenario> answers() {
    std::vector<Scenario> all;
    all.push_back(answering("pldm_get_package_data", ready_for_package_data, [](World& world) {
        return answer<pldm_get_package_data>(world, "80 05 11 00000000 01");
    }));
    all.back().again = begin_package_data_anew;
    // The last part counts as sent, whatever becomes of it.
    all.back().succeeds_anyway = true;
    all.push_back(answering("pldm_request_fw_data", ready_loaded, [](World& world) {
        return answer<pldm_request_fw_data>(world, "80 05 15 00000000 40000000");
    }));
    all.push_back(answering("pldm_transfer_complete", ready_loaded, [](World& world) {
        return answer<pldm_transfer_complete>(world, "80 05 16");
    }));
    all.push_back(answering("pldm_verify_complete", ready_loaded, [](World& world) {
        return answer<pldm_verify_complete>(world, "80 05 17");
    }));
    all.push_back(answering("pldm_apply_complete", ready_loaded, [](World& world) {
        return answer<pldm_apply_complete>(world, "80 05 18");
    }));
    return all;
}

// ---- Cards ----

void open_on_smbus(World& world) {
    open_card(world, kOnSmbus);
}
void open_on_pcie(World& world) {
    open_card(world, kOnPcie);
}
void open_graphics(World& world) {
    open_card(world, kGraphics);
}

template <auto kCheck>
int64_t check(World& world) {
    constexpr pldm_card_location kLocation{0x81, 0};
    return kCheck(world.update.package_file, &world.update, &kLocation, &world.other, &world.card);
}

void begin_anew(World& world) {
    const char* const path = world.update.package_file;
    free_all(world);
    world.update = {};
    world.update.package_file = path;
    world.card = world.board->card("dev").value();
}

/// As a service does it whose update has failed: the card may be in the middle of it. It is made to
/// leave it, and what it has asked for until then is dropped. The port takes what goes out over
/// PCIe with the tag of an open request for its answer, for five seconds.
void bind_anew(World& world) {
    constexpr uint64_t kAnswerUs = 6000000;
    begin_anew(world);
    bind_endpoint(world);
    world.board->advance_us(kAnswerUs);
    world.endpoint.strict = MCTP_STRICT_PLDM;
    pldm_cancel_update(&world.update);
    world.endpoint.strict = 0;
    while (pldm_recv(&world.update.pldm, 64, world.room.data()) == 0) {
    }
    world.board->advance_us(kAnswerUs);
    forget_failures(world);
}

std::string stored_mark(const World& world) {
    return listed(world.update.pldm.completion_code);
}

Scenario checking(const char* function, const char* way, void (*set_up)(World&),
                  int64_t (*call)(World&), std::set<int64_t> failures) {
    return {.function = function,
            .way = way,
            .set_up = set_up,
            .call = call,
            .stored = stored_mark,
            .again = begin_anew,
            .release = free_all,
            .record = record_of_update,
            .failures = std::move(failures),
            .keeps_parts = true,
            .owns = true,
            .does_without = {"malloc"}};
}

std::vector<Scenario> checks() {
    return {
        checking("pldm_fw_update_init", "", open_on_smbus,
                 [](World& world) -> int64_t {
                     return pldm_fw_update_init(&world.update, &world.endpoint);
                 },
                 {-1, PLDM_ERROR_ARGUMENT}),
        checking("pldm_check_firmware_image", "SMBus", open_on_smbus,
                 check<pldm_check_firmware_image>, {-1}),
        checking("pldm_check_firmware_image", "PCIe", open_on_pcie,
                 check<pldm_check_firmware_image>, {-1}),
        checking("pldm_check_GPU_firmware_image", "", open_graphics,
                 check<pldm_check_GPU_firmware_image>, {-1, -2, -5, -6, -7}),
        {.function = "pldm_free_ua_resource",
         .set_up =
             [](World& world) {
                 open_on_smbus(world);
                 pldm_fw_update_init(&world.update, &world.endpoint);
             },
         .call = agent<pldm_free_ua_resource>},
    };
}

Scenario updating(const char* way, void (*set_up)(World&)) {
    return {.function = "pldm_nic_update",
            .way = way,
            .set_up = set_up,
            .call = [](World& world) -> int64_t {
                return pldm_nic_update(world.update.package_file, &world.update, nullptr, 0);
            },
            .stored = stored_progress,
            .again = bind_anew,
            .release = free_all,
            .record = record_of_update,
            .failures = {0, -1},
            .keeps_parts = true,
            .owns = true,
            .does_without = {"calloc", "malloc", "lx_mutex_get"},
            .also_causes = kRepeated};
}

std::vector<Scenario> updates() {
    return {updating("SMBus", ready_on_smbus), updating("PCIe", ready_on_pcie),
            updating("package data and metadata", ready_talkative)};
}

}  // namespace

std::vector<Scenario> update_scenarios() {
    std::vector<Scenario> all;
    for (auto* part : {inventory, steps, answers, checks, updates}) {
        const std::vector<Scenario> some = part();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace sweep
