// SPDX-License-Identifier: Apache-2.0
// The calls of a firmware update: each by itself, and whole updates.
#include <sideband/platform.h>

#include "case.h"
#include "room.h"

namespace hostile {

namespace {

/// The exchange that ActivateFirmware has ten attempts for, and what goes before it.
constexpr uint32_t kActivations = 10;
constexpr uint32_t kDiscovery = 2 + 6 + 3 * 257;
/// State 1, then state 3 for each component of a package, for each of its records.
constexpr uint32_t kUpdateMessages = 3 * (266'236 + 3 * 2 * 6000);

const std::string& package_of(Case& at) {
    return at.files.packages[at.random.below(static_cast<uint32_t>(at.files.packages.size()))];
}

/// A context as a service has it after its check: bound, with a package and a transfer size.
bool prepare(Case& at) {
    at.endpoint = at.config;
    at.endpoint.skip_discovery = 1;
    if (mctp_init2(&at.endpoint) != 0 || mctp_pldm_register(&at.endpoint, &at.update.pldm) != 0) {
        return false;
    }
    at.update.max_transfer_size = at.random.one_of(2) ? 64 : 1024;
    at.update.task_id = 7;
    at.update.strict = at.config.strict;
    return true;
}

int32_t start(Case& at) {
    pldm_fw_update_ctx made{};
    const int32_t result = pldm_fw_update_init(&made, &at.config);
    at.error = *pldm_fw_update_last_error(&made);
    pldm_free_ua_resource(&made);
    return result;
}

int32_t query(Case& at) {
    if (at.update.records == nullptr) {
        return 0;
    }
    return pldm_query_device_identifiers(&at.update, at.update.records);
}

int32_t parameters(Case& at) {
    return pldm_get_firmware_parameters(&at.update);
}

int32_t metadata(Case& at) {
    return pldm_get_device_metadata(&at.update, static_cast<uint16_t>(at.random.below(300)));
}

int32_t first_metadata(Case& at) {
    Room room(1 + at.random.below(200));
    return pldm_get_meta_data(&at.update, room.data(), static_cast<uint16_t>(room.size()));
}

int32_t activate(Case& at) {
    return pldm_activate_firmware(&at.update);
}

int32_t status(Case& at) {
    return pldm_get_status(&at.update);
}

int32_t cancel(Case& at) {
    return pldm_cancel_update(&at.update);
}

int32_t cancel_component(Case& at) {
    at.limit(at.endpoint);
    const int32_t result = pldm_cancel_update_component(&at.update);
    mctp_set_deadline(&at.endpoint, 0);
    return result;
}

/// RequestUpdate, and whatever goes on behind it.
int32_t request(Case& at) {
    at.limit(at.endpoint);
    at.update.matched_record = at.update.records;
    const int32_t result = pldm_request_firmware_update(&at.update);
    mctp_set_deadline(&at.endpoint, 0);
    return result;
}

int32_t state_machine(Case& at) {
    at.limit(at.endpoint);
    at.update.state = static_cast<uint8_t>(at.random.below(7));
    at.update.matched_record = at.update.records;
    at.update.fd_will_send_pkg_data = at.random.byte() & 1;
    const int32_t result = fw_update_state_fn(&at.update);
    mctp_set_deadline(&at.endpoint, 0);
    return result;
}

/// The whole of it, as a service runs it behind its check.
int32_t whole(Case& at) {
    pldm_free_ua_resource(&at.update);
    at.update = {};
    if (!prepare(at)) {
        return -1;
    }
    at.limit(at.endpoint);
    const uint32_t flags = at.random.one_of(4) ? at.random.byte() & 7 : 0;
    const int32_t result = pldm_nic_update(package_of(at).c_str(), &at.update, nullptr, flags);
    at.error = *pldm_fw_update_last_error(&at.update);
    at.expect(at.update.records == nullptr && at.update.update_list == nullptr &&
                  at.update.fd_component_params == nullptr && at.update.pldm.mctp == nullptr,
              "an update that has left something in its context");
    at.update = {};
    if (prepare(at)) {
        pldm_parse_file(package_of(at).c_str(), &at.update);
    }
    // With PLDM_FW_FLAG_QUERY nothing is sent, and that is no failure.
    if (result < 0 && at.error.cause == SIDEBAND_CAUSE_NONE) {
        return (flags & PLDM_FW_FLAG_QUERY) != 0 ? 0 : result;
    }
    return result;
}

/// What a service does first: the card's addressing is the platform's.
template <typename Check>
int32_t check_with(Case& at, Check check) {
    std::optional<plt_card_info> card = at.board.card(at.device->name);
    if (!card || at.way == Way::kSocket) {
        return 0;
    }
    pldm_fw_update_ctx made{};
    made.strict = at.config.strict;
    const pldm_card_location location{card->bus, card->device};
    mctp_ctx endpoint{};
    const int32_t result = check(package_of(at).c_str(), &made, &location, &endpoint, &*card);
    at.error = *pldm_fw_update_last_error(&made);
    pldm_free_ua_resource(&made);
    return result;
}

int32_t check_card(Case& at) {
    return check_with(at, pldm_check_firmware_image);
}

int32_t check_graphics_card(Case& at) {
    return check_with(at, pldm_check_GPU_firmware_image);
}

constexpr Call kCalls[] = {
    {"pldm_fw_update_init", 4, kDiscovery, start},
    {"pldm_query_device_identifiers", 10, 1, query},
    {"pldm_get_firmware_parameters", 10, 1, parameters},
    {"pldm_get_device_metadata", 6, 7, metadata},
    {"pldm_get_meta_data", 6, 1, first_metadata},
    {"pldm_activate_firmware", 2, kActivations, activate},
    {"pldm_get_status", 6, 1, status},
    {"pldm_cancel_update", 6, 3, cancel},
    {"pldm_cancel_update_component", 1, kUpdateMessages, cancel_component, kWithDeadline},
    {"pldm_request_firmware_update", 3, kUpdateMessages, request, kWithDeadline},
    {"fw_update_state_fn", 2, kUpdateMessages, state_machine, kWithDeadline},
    {"pldm_nic_update", 4, kUpdateMessages, whole, kWithDeadline},
    {"pldm_check_firmware_image", 3, kDiscovery + 3, check_card},
    {"pldm_check_GPU_firmware_image", 3, kDiscovery + 3, check_graphics_card},
};

bool begin(Case& at) {
    if (!prepare(at)) {
        return false;
    }
    pldm_parse_file(package_of(at).c_str(), &at.update);
    return true;
}

void end(Case& at) {
    pldm_free_ua_resource(&at.update);
}

const sideband_error& error_of_update(const Case& at) {
    return at.error.cause != SIDEBAND_CAUSE_NONE ? at.error
                                                 : *pldm_fw_update_last_error(&at.update);
}

}  // namespace

const Protocol kUpdateProtocol{"update", "pldm", kCalls, begin, end, error_of_update};

}  // namespace hostile
