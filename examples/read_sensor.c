/* SPDX-License-Identifier: Apache-2.0 */
/* Reads a GPU's temperature over SMBus; the simulated board stands in for the hardware. */
#include <sideband-sim/sim.h>
#include <sideband/pldm_monitor.h>
#include <stdio.h>

int main(void) {
    mctp_ctx where = {0};
    pldm_ctx gpu = {0};
    uint32_t reading = 0;

    /* The built-in board. Firmware links its own platform library instead of this one. */
    if (sideband_sim_open(NULL) != 0)
        return 1;

    where.src_eid = 8; /* the BMC's own endpoint ID */
    where.binding_kind = MCTP_BINDING_KIND_SL8_SMBUS;
    where.bus = 3;
    where.slave_addr = 0x9e;

    /* Finds the endpoint's ID, or assigns one; then speaks PLDM with it. */
    if (pldm_terminus_init(&gpu, &where) != 0 || pldm_get_sensor_reading(&gpu, 1, &reading) != 0) {
        fprintf(stderr, "the GPU does not answer\n");
        return 1;
    }
    printf("EID %d: %.3f degC\n", gpu.mctp->dest_eid, (int16_t)reading * 0.125);

    pldm_terminus_deinit(&gpu);
    sideband_sim_close();
    return 0;
}
