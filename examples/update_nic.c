/* SPDX-License-Identifier: Apache-2.0 */
/* Updates a network card with a package (DSP0267): update_nic PACKAGE. */
#include <sideband-sim/sim.h>
#include <sideband/pldm_fw_update.h>
#include <stdio.h>

#define STATE_ACTIVATE 6
#define TASK 1 /* whose progress the platform shows */

/* Shows what the card runs, and what it will run once it is activated. */
static int show_versions(const char* when, const mctp_ctx* route) {
    pldm_fw_update_ctx card = {0};
    const int shown = pldm_fw_update_init(&card, route) == 0 &&
                      pldm_get_firmware_parameters(&card) == 0 &&
                      card.active_version_string != NULL && card.pending_version_string != NULL;
    if (shown) {
        const char* pending = card.pending_version_string;
        printf("%s: active %s, pending %s\n", when, card.active_version_string,
               *pending != '\0' ? pending : "nothing");
    }
    if (!shown) {
        fprintf(stderr, "the card does not tell its versions\n");
    }
    pldm_free_ua_resource(&card);
    return shown ? 0 : -1;
}

/* The library's marks for a step that failed. Other codes are answers that an update can bear. */
static int is_mark(uint8_t code) {
    return code == PLDM_FW_MARK_PASS_COMPONENT_TABLE || code == PLDM_FW_MARK_UPDATE_COMPONENT ||
           (code >= PLDM_FW_MARK_TERMINUS && code <= PLDM_FW_MARK_TIMEOUT);
}

/* Whether the package is for the card, and what becomes of it. */
static int update(const char* package, const pldm_card_location* slot, mctp_ctx* route,
                  plt_card_info* card) {
    pldm_fw_update_ctx agent = {0};
    agent.task_id = TASK;
    /* Finds the card, and leaves the way to it in route. */
    if (pldm_check_firmware_image(package, &agent, slot, route, card) != 0) {
        fprintf(stderr, "the card is not there, or the package is not for it\n");
        pldm_free_ua_resource(&agent);
        return -1;
    }
    if (show_versions("before", route) != 0) {
        pldm_free_ua_resource(&agent);
        return -1;
    }
    /* Blocks until the card is done, and releases what the check has set up. */
    const int32_t result = pldm_nic_update(package, &agent, NULL, 0);
    if (result != 0 || agent.state != STATE_ACTIVATE || is_mark(agent.pldm.completion_code)) {
        fprintf(stderr, "the update failed: state %d, mark 0x%02x\n", agent.state,
                agent.pldm.completion_code);
        return -1;
    }
    return show_versions("after", route);
}

int main(int argc, char** argv) {
    const pldm_card_location slot = {.bus = 0x41, .device = 0}; /* on PCIe */
    plt_card_info card = {.flags = PLT_CARD_NIC_SMBUS, .vendor_id = 0x15b3};
    mctp_ctx route = {0};
    if (argc != 2) {
        fprintf(stderr, "usage: update_nic PACKAGE\n");
        return 2;
    }
    if (sideband_sim_open(NULL) != 0) {
        return 1;
    }
    const int result = update(argv[1], &slot, &route, &card);
    sideband_sim_close();
    return result == 0 ? 0 : 1;
}
