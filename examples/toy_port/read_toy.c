/* SPDX-License-Identifier: Apache-2.0 */
/* Reads the thermometer of the toy board over the port to copy. */
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>
#include <stdio.h>

int main(void) {
    plt_parameters service = {0};
    mctp_ctx where = {0};
    pldm_ctx toy = {0};
    uint32_t reading = 0;

    /* The first call of all: it makes the records valid. */
    if (GlobalParaInit(&service) == 0)
        return 1;

    where.src_eid = service.bmc_eid;
    where.binding_kind = MCTP_BINDING_KIND_SMBUS;
    where.bus = 1;
    where.slave_addr = 0x40;

    if (pldm_terminus_init(&toy, &where) != 0 || pldm_get_sensor_reading(&toy, 1, &reading) != 0) {
        fprintf(stderr, "the thermometer does not answer\n");
        return 1;
    }
    printf("EID %d: %.1f degC\n", toy.mctp->dest_eid, (uint16_t)reading * 0.1);

    pldm_terminus_deinit(&toy);
    return 0;
}
