/* SPDX-License-Identifier: Apache-2.0 */
/* Finds MCTP endpoints on PCIe: brings the bus owner up, then asks who is behind each function. */
#include <sideband-sim/sim.h>
#include <sideband/platform.h>
#include <sideband/pldm.h>
#include <stdio.h>
#include <string.h>

#define BMC_EID 8

/* The MPIO gives the functions behind the processor their EIDs. Done once after power-on. */
static int bring_up_owner(void) {
    mctp_ctx owner = {0};
    _init_amd_mpio_ctx(&owner);
    return init_amd_mpio_if_need(&owner);
}

/* PLDM over an endpoint that is up: its terminus ID. @return -1 if it does not speak PLDM */
static int terminus_id(mctp_ctx* endpoint) {
    pldm_ctx terminus = {0};
    if (mctp_pldm_register(endpoint, &terminus) != 0 || pldm_get_tid(&terminus) != 0) {
        return -1;
    }
    return terminus.tid;
}

static void print_endpoint(const mctp_ctx* endpoint, int has_uuid, int tid) {
    const uint8_t* bdf = endpoint->pcie_bdf;
    printf("%02x:%02x.%d: EID %d", bdf[0], bdf[1], bdf[2], endpoint->dest_eid);
    for (int i = 0; i < 16 && has_uuid; ++i) {
        printf("%s%02x",
               i == 0                                  ? ", UUID "
               : i == 4 || i == 6 || i == 8 || i == 10 ? "-"
                                                       : "",
               endpoint->uuid[i]);
    }
    if (tid >= 0) {
        printf(", TID %d", tid);
    }
    putchar('\n');
}

/* @return whether there is an endpoint behind the function */
static int look_at(const uint8_t bdf[3], void* session) {
    mctp_ctx endpoint = {.src_eid = BMC_EID};
    endpoint.binding_kind = MCTP_BINDING_KIND_PCIE;
    endpoint.pcie_session = session;
    memcpy(endpoint.pcie_bdf, bdf, sizeof endpoint.pcie_bdf);
    /* Discovery looks the function up in the routing table of its owner. */
    if (mctp_init2(&endpoint) != 0) {
        printf("%02x:%02x.%d: no endpoint\n", bdf[0], bdf[1], bdf[2]);
        return 0;
    }
    const int has_uuid = mctp_get_endpoint_uuid(&endpoint) == 0;
    const int tid = terminus_id(&endpoint);
    print_endpoint(&endpoint, has_uuid, tid);
    return 1;
}

int main(void) {
    /* Firmware takes these from its own scan of the PCIe buses. */
    static const uint8_t functions[][3] = {{0x47, 0, 0}, {0xc2, 0, 0}, {0xc3, 0, 0}};
    plt_pcie_session session = {0};
    int found = 0;

    if (sideband_sim_open(NULL) != 0) {
        return 1;
    }
    if (bring_up_owner() != 0) {
        fprintf(stderr, "the bus owner does not answer\n");
    } else if (libmctp_pcie_open(&session) != 0) {
        fprintf(stderr, "no MCTP over PCIe here\n");
    } else {
        for (size_t i = 0; i < sizeof functions / sizeof *functions; ++i) {
            found += look_at(functions[i], session.handle);
        }
        libmctp_pcie_close(&session);
    }
    sideband_sim_close();
    return found > 0 ? 0 : 1;
}
